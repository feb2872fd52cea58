"""What the system profiler answers, one list per data type.

The laptop's system still reports USB devices in the old form; the desktop's has an empty old list
and the devices in the new form with other keys. Displays are below "spdisplays_ndrvs" on both.
"""

import json
import pathlib

from .variants import Variant


def write_profiler(folder: pathlib.Path, mac: Variant) -> None:
    laptop = mac.name == "laptop"
    reports = {
        "SPHardwareDataType": [_hardware(mac)],
        "SPUSBDataType": _usb_tree() if laptop else [],
        "SPUSBHostDataType": [] if laptop else _usb_host_tree(),
        "SPDisplaysDataType": [_graphics(mac, _laptop_displays() if laptop else _desktop_displays())],
        "SPPrintersDataType": _printers() if laptop else _no_printers(),
    }
    folder.mkdir(parents=True, exist_ok=True)
    for data_type, report in reports.items():
        text = json.dumps(report, ensure_ascii=False, indent=2, separators=(",", " : "))
        (folder / f"{data_type}.json").write_text(text.replace("\n", "\n  "))


def _hardware(mac: Variant) -> dict:
    return {
        "_name": "hardware_overview",
        "activation_lock_status": "activation_lock_enabled",
        "boot_rom_version": "13822.1.2",
        "chip_type": mac.chip,
        "machine_model": mac.model,
        "machine_name": mac.machine_name,
        "model_number": "MW2U3ZE/A",
        "number_processors": mac.cores,
        "os_loader_version": "13822.1.2",
        "physical_memory": f"{mac.memory_gigabytes} GB",
        "platform_UUID": mac.platform_uuid,
        "provisioning_UDID": "00008132-001A0C4E21D3801C",
        "serial_number": mac.serial_number,
    }


def _usb_device(name: str, vendor: str, product: str, location: str, **more) -> dict:
    return {
        "_name": name, "bcd_device": "1.00", "bus_power": "500", "bus_power_used": "100",
        "device_speed": "high_speed", "extra_current_used": "0", "location_id": location,
        "product_id": product, "vendor_id": vendor, **more,
    }


def _usb_tree() -> list:
    keyboard = _usb_device("Klawiatura Keychron K3", "0x3434", "0x0430", "0x01111000 / 4",
                           device_speed="full_speed", manufacturer="Keychron")
    mouse = _usb_device("USB Receiver Mouse", "0x046d  (Logitech Inc.)", "0xc548",
                        "0x01112000 / 5", device_speed="full_speed", manufacturer="Logitech")
    camera = _usb_device("Kamera biurowa 4K Camera", "0x0c45", "0x6366", "0x01120000 / 6",
                         manufacturer="Sonix Technology Co., Ltd.", serial_num="SN0001")
    stick = _usb_device(
        "DataTraveler 3.0", "0x0951  (Kingston Technology Company)", "0x1666", "0x02200000 / 2",
        device_speed="super_speed", manufacturer="Kingston", serial_num="60A44C4252B1F371",
        Media=[{
            "_name": "DataTraveler 3.0", "bsd_name": "disk4", "Logical Unit": 0,
            "removable_media": "yes", "size": "62,03 GB", "size_in_bytes": 62030598144,
            "smart_status": "Verified", "USB Interface": 0,
            "volumes": [{"_name": "FAKTURY", "bsd_name": "disk4s1", "size_in_bytes": 62029545472}],
        }])
    inner_hub = _usb_device("USB2.0 Hub", "0x1a40  (TERMINUS TECHNOLOGY INC.)", "0x0101",
                            "0x01110000 / 3", manufacturer="<null>", _items=[keyboard, mouse])
    dock = _usb_device("USB-C Dock Hub", "0x17ef  (Lenovo)", "0x30ab", "0x01100000 / 1",
                       manufacturer="VIA Labs, Inc.", _items=[inner_hub, camera])
    return [
        {"_name": "USB31Bus", "host_controller": "AppleT8132USBXHCI"},
        {"_items": [dock], "_name": "USB31Bus", "host_controller": "AppleT8132USBXHCI"},
        {"_items": [stick], "_name": "USB31Bus", "host_controller": "AppleT8132USBXHCI"},
    ]


def _usb_host_device(name: str, vendor: str, vendor_name: str, product: str, location: str,
                     serial: str = "Not Provided", **more) -> dict:
    return {
        "_name": name, "USBDeviceKeyLinkSpeed": "480 Mb/s",
        "USBDeviceKeyPowerAllocation": "2.50 W (500 mA)", "USBDeviceKeyProductID": product,
        "USBDeviceKeyProductVersion": "0x0200", "USBDeviceKeySerialNumber": serial,
        "USBDeviceKeyVendorID": vendor, "USBDeviceKeyVendorName": vendor_name,
        "USBKeyHardwareType": "Removable", "USBKeyLocationID": location, **more,
    }


def _usb_host_tree() -> list:
    # Some firmware pads its names with blanks; they come through as they are.
    scanner = _usb_host_device(" Scanner fi-8170", "0x04c5", " RICOH", "0x15ff", "0x01120000",
                               serial="A3BC001284")
    headset = _usb_host_device("Jabra Evolve2 40 Audio", "0x0b0e", "GN Audio A/S", "0x0e41",
                               "0x01110000", serial="305075A5C1F2E8")
    hub = _usb_host_device("USB3.1 Hub", "0x2109", "VIA Labs, Inc.", "0x0817", "0x01100000",
                           _items=[headset, scanner])
    keyboard = _usb_host_device("Magic Keyboard", "0x05ac", "Apple Inc.", "0x0322", "0x03100000",
                                serial="F0T1234A56B78C9D", USBDeviceKeyLinkSpeed="12 Mb/s")
    bus = {"Driver": "AppleT6040USBXHCI", "USBKeyHardwareType": "Built-in"}
    return [
        {"_items": [hub], "_name": "USB 3.1 Bus", **bus, "USBKeyLocationID": "0x01000000"},
        {"_name": "USB 3.1 Bus", **bus, "USBKeyLocationID": "0x02000000"},
        {"_items": [keyboard], "_name": "USB 3.1 Bus", **bus, "USBKeyLocationID": "0x03000000"},
    ]


def _graphics(mac: Variant, displays: list) -> dict:
    return {
        "_name": mac.chip,
        "spdisplays_mtlgpufamilysupport": "spdisplays_metal3",
        "spdisplays_ndrvs": displays,
        "spdisplays_vendor": "sppci_vendor_Apple",
        "sppci_bus": "spdisplays_builtin",
        "sppci_cores": "10",
        "sppci_device_type": "spdisplays_gpu",
        "sppci_model": mac.chip,
    }


def _external_display(name: str, serial: str, vendor: str, pixels: str, number: str) -> dict:
    return {
        "_name": name,
        "_spdisplays_display-product-id": "d0f4",
        "_spdisplays_display-serial-number": serial,
        "_spdisplays_display-vendor-id": vendor,
        "_spdisplays_display-week": "31",
        "_spdisplays_display-year": "2023",
        "_spdisplays_displayID": number,
        "_spdisplays_pixels": pixels,
        "_spdisplays_resolution": f"{pixels} @ 60.00Hz",
        "spdisplays_mirror": "spdisplays_off",
        "spdisplays_online": "spdisplays_yes",
        "spdisplays_resolution": f"{pixels} @ 60.00Hz",
        "spdisplays_rotation": "spdisplays_supported",
    }


def _laptop_displays() -> list:
    built_in = {
        "_name": "Color LCD",
        "_spdisplays_display-product-id": "a060",
        "_spdisplays_display-serial-number": "fd626d71",
        "_spdisplays_display-vendor-id": "610",
        "_spdisplays_displayID": "1",
        "_spdisplays_pixels": "3024 x 1964",
        "_spdisplays_resolution": "1512 x 982 @ 120.00Hz",
        "spdisplays_ambient_brightness": "spdisplays_yes",
        "spdisplays_connection_type": "spdisplays_internal",
        "spdisplays_display_type": "spdisplays_built-in-liquid-retina-xdr",
        "spdisplays_main": "spdisplays_yes",
        "spdisplays_mirror": "spdisplays_off",
        "spdisplays_online": "spdisplays_yes",
        "spdisplays_pixelresolution": "spdisplays_3024x1964Retina",
    }
    return [_external_display("PHL 272B1", "1a2b3c4d", "410c", "2560 x 1440", "2"), built_in]


def _desktop_displays() -> list:
    return [_external_display("LG HDR 4K", "0005c1e7", "1e6d", "3840 x 2160", "3")]


def _printers() -> list:
    filters = [{"_name": "pwgtopdf", "filter path": "/usr/libexec/cups/filter/pwgtopdf",
                "filter permissions": "spprinters_perm_ok (755)"}]
    common = {"airprintversion": "no", "cups filters": filters, "cupsversion": "2.3.4",
              "default": "no", "Fax Support": "no", "printserver": "local", "scanner": "no",
              "shared": "no"}
    return [
        {"_name": "HP LaserJet M404 – sekretariat", **common, "default": "yes",
         "creationDate": "3.02.2025, 09:41:07", "driverversion": "7.0",
         "ppd": "HP LaserJet Pro M404-M405", "ppdfileversion": "7.0", "status": "idle",
         "uri": "ipps://HPB4B686.local.:443/ipp/print?uuid=564e4333&serial=PHB1234567"},
        {"_name": "Zebra ZD421 Magazyn", **common, "creationDate": "17.06.2025, 13:20:55",
         "driverversion": "1.6", "ppd": "Zebra ZPL Label Printer", "status": "stopped",
         "uri": "usb://Zebra%20Technologies/ZTC%20ZD421-203dpi%20ZPL?serial=D4J231500123"},
    ]


def _no_printers() -> list:
    return [{"cupsversion": "CUPS/2.3.4", "status": "no_info_found"}]
