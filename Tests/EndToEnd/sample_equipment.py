"""What the helpdesk is to be told of the sample Macs' applications and equipment, written down by
hand. Applications: name, version, publisher. Equipment: the values of a record in the keys' order."""

USUAL_DAY = "2025-04-17"
OTHER_DAYS = {"Google Chrome": "2025-08-28"}

# By name without regard to case; what carries a mark of its own comes after the plain letters.
APPLICATIONS = [
    ("1Password", "8.11.6", "AgileBits Inc."),  # by its signature
    ("Album Autora", "1.0", "Katarzyna Wójcik"),  # by the authors in its metadata
    ("Anonim", "0.1", ""),
    ("AnyDesk", "9.5.0", "philandro Software GmbH"),
    ("Bez Nazwy", "1.0", ""),  # its list has two empty names
    ("Bez Wersji", "", "Pracownia"),
    ("Calendar", "15.0", "Apple Inc."),
    ("Console", "1.1", "Apple Inc."),
    ("Cyberpismo", "0.9", ""),  # a copyright without a name
    ("Disk Utility", "22.7", "Apple Inc."),
    ("Dystrybucja", "1.4", "Hurtownia Danych Sp. z o.o."),
    ("Epson Scan", "6.7.80", "6.7.80, Seiko Epson Corporation"),
    ("Faktury Plus", "11.2", ""),  # signed by the store
    ("FileZilla", "3.69.3", "FileZilla Client 3.69.3, Tim Kosse"),
    ("Firefox", "142.0.1", "Firefox 142.0.1"),
    ("GIMP", "2.10.38", "2.10.38, The GIMP Team"),
    ("Google Chrome", "139.0.7258.155", "Google LLC"),
    ("Größen-Rechner", "4.0", "Müller & Söhne GmbH (Köln"),  # only the team is cut off
    ("Keka", "1.5.2", "aONe"),
    ("Keynote", "14.4", "Apple Inc."),
    ("Kreator", "7", "Fabryka Okien Sp. z o.o"),
    ("Mail", "16.0", "Apple Inc."),
    ("Microsoft Teams", "25212.1003", "Microsoft Corporation"),
    ("Microsoft Word", "16.100.4", "Microsoft Corporation"),
    ("Notatnik", "1.0", "Jan Nowak"),
    ("O'Brien \"Quote\"", "1.2.3", "O'Brien Software"),
    ("Obce Typy", "", ""),  # a list of wrong types: the bundle's file name
    ("Poczta S\u0301laska", "1.1", "Poczta Śląska"),
    ("Rozwlekły", "1.0", ""),  # a name of hundreds of letters
    ("RustDesk", "1.4.1", "Purslane Ltd"),
    ("Safari", "18.6", "Apple Inc."),
    ("Slack", "4.46.96", "Slack Technologies, Inc."),
    ("Spotify", "1.2.70.404", "Spotify"),  # by its identifier
    ("Stary Katalog", "5.1", "Wydawnictwo Mapa"),  # by the copyright in its metadata
    ("Steam", "3.0", "Valve Corporation"),
    ("Sygnał", "3.2", "Studio Nagrań „Echo”"),
    ("System Settings", "15.0", "Apple Inc."),
    ("TeamViewer", "15.69.5", "TeamViewer Germany GmbH"),
    ("Terminal", "2.14", "Apple Inc."),
    ("TextEdit", "1.20", "Apple Inc."),
    ("Tylko Kompilacja", "4711", "Pracownia"),
    ("Unknown Maker", "1.0", ""),
    ("VLC", "3.0.21", "the VideoLAN team"),
    ("Łączność zdalna", "2.4.1", "Żuraw Systemy S.A"),
    ("写真", "2.0.3", "株式会社サンプル"),
]
REMOTE_TOOLS = ("AnyDesk", "RustDesk", "TeamViewer")


def software(with_remote_tools: bool) -> list[dict[str, str]]:
    return [{"name": name, "version": version, "publisher": publisher,
             "installed_at": OTHER_DAYS.get(name, USUAL_DAY)}
            for name, version, publisher in APPLICATIONS
            if with_remote_tools or name not in REMOTE_TOOLS]


_USB = ("type", "path", "name", "model", "manufacturer", "serial_number", "vendor_id", "product_id")
_DISPLAY = ("name", "model", "manufacturer", "serial_number", "connection", "resolution")
_PRINTER = ("name", "model", "serial_number", "connection", "ip_address", "port_name", "status")


def _usb(kind: str, path: str, manufacturer: str = "", serial: str = "", vendor: str = "",
         product: str = "") -> dict:
    values = (kind, path, path.rpartition(" / ")[2], product, manufacturer, serial, vendor, product)
    return {"category": "usb", "connection": "usb", **dict(zip(_USB, values, strict=True))}


def _display(*values: str) -> dict:
    return {"category": "monitor", "type": "display", **dict(zip(_DISPLAY, values, strict=True))}


def _printer(*values: str | None) -> dict:
    return {"category": "printer", "type": "printer", **dict(zip(_PRINTER, values, strict=True))}


_OLD_BUS = "USB / USB31Bus"
_DOCK = f"{_OLD_BUS} / USB-C Dock Hub"
_NEW_BUS = "USB / USB 3.1 Bus"
_HUB = f"{_NEW_BUS} / USB3.1 Hub"

# Without the profiler's own items.
PERIPHERALS = {
    "laptop": [
        _usb("usb", _OLD_BUS),
        _usb("usb", _OLD_BUS),
        _usb("usb", _DOCK, "VIA Labs, Inc.", "", "0x17ef  (Lenovo)", "0x30ab"),
        _usb("usb", f"{_DOCK} / USB2.0 Hub", "", "", "0x1a40  (TERMINUS TECHNOLOGY INC.)", "0x0101"),
        _usb("usb", f"{_DOCK} / USB2.0 Hub / Klawiatura Keychron K3", "Keychron", "", "0x3434",
             "0x0430"),
        _usb("mouse", f"{_DOCK} / USB2.0 Hub / USB Receiver Mouse", "Logitech", "",
             "0x046d  (Logitech Inc.)", "0xc548"),
        _usb("camera", f"{_DOCK} / Kamera biurowa 4K Camera", "Sonix Technology Co., Ltd.", "SN0001",
             "0x0c45", "0x6366"),
        _usb("usb", _OLD_BUS),
        _usb("usb", f"{_OLD_BUS} / DataTraveler 3.0", "Kingston", "60A44C4252B1F371",
             "0x0951  (Kingston Technology Company)", "0x1666"),
        _display("PHL 272B1", "", "410c", "1a2b3c4d", "display", "2560 x 1440 @ 60.00Hz"),
        _display("Color LCD", "spdisplays_built-in-liquid-retina-xdr", "610", "fd626d71",
                 "spdisplays_internal", "1512 x 982 @ 120.00Hz"),
        _printer("HP LaserJet M404 – sekretariat", "HP LaserJet Pro M404-M405", "PHB1234567", "ip",
                 "hpb4b686.local.",
                 "ipps://HPB4B686.local.:443/ipp/print?uuid=564e4333&serial=PHB1234567", "idle"),
        _printer("Zebra ZD421 Magazyn", "Zebra ZPL Label Printer", "D4J231500123", "usb", None,
                 "usb://Zebra%20Technologies/ZTC%20ZD421-203dpi%20ZPL?serial=D4J231500123",
                 "stopped"),
    ],
    "desktop": [
        _usb("usb", _NEW_BUS),
        _usb("usb", _HUB, "VIA Labs, Inc.", "", "0x2109", "0x0817"),
        _usb("audio", f"{_HUB} / Jabra Evolve2 40 Audio", "GN Audio A/S", "305075A5C1F2E8",
             "0x0b0e", "0x0e41"),
        _usb("usb", f"{_HUB} / Scanner fi-8170", "RICOH", "A3BC001284", "0x04c5", "0x15ff"),
        _usb("usb", _NEW_BUS),
        _usb("usb", _NEW_BUS),
        _usb("keyboard", f"{_NEW_BUS} / Magic Keyboard", "Apple Inc.", "F0T1234A56B78C9D", "0x05ac",
             "0x0322"),
        _display("LG HDR 4K", "", "1e6d", "0005c1e7", "display", "3840 x 2160 @ 60.00Hz"),
    ],
}

NOT_INSTALLED = {
    "anydesk": {"provider": "anydesk", "installed": False, "configuration_paths": []},
    "teamviewer": {"provider": "teamviewer", "installed": False, "preference_paths": []},
    "rustdesk": {
        "provider": "rustdesk", "installed": False, "status": "not_installed",
        "app_path": "/Applications/RustDesk.app", "console_user": "", "config_directory": "",
        "server_launch_agent_running": False, "service_launch_daemon_running": False,
    },
}
INSTALLED = {
    "anydesk": {
        "provider": "anydesk", "installed": True, "id": "1083427195",
        "configuration_paths": ["/Users/anna/.anydesk/service.conf",
                                "/Users/anna/.anydesk/system.conf"],
    },
    "teamviewer": {
        "provider": "teamviewer", "installed": True, "id": "1402977351",
        "preference_paths": [
            "/Library/Preferences/com.teamviewer.teamviewer.preferences.plist",
            "/Users/anna/Library/Preferences/com.teamviewer.teamviewer.preferences.Machine.plist",
        ],
    },
    "rustdesk": {
        "provider": "rustdesk", "installed": True, "status": "online", "id": "271846093",
        "app_path": "/Applications/RustDesk.app", "console_user": "anna",
        "config_directory": "/Users/anna/Library/Preferences/com.carriez.RustDesk",
        "server_launch_agent_running": True, "service_launch_daemon_running": True,
    },
}
REMOTE = {"laptop": INSTALLED, "desktop": NOT_INSTALLED}
