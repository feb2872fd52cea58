"""Every tool answers the agent's argument lists in the Mac's formats and fails as the Mac's does."""

import hashlib
import json
import os
import re
import time

import pytest


def answer(mac, tool, *arguments):
    result = mac.run(tool, *arguments)
    assert result.returncode == 0, result.stderr
    return result.stdout


def failure(mac, tool, *arguments):
    result = mac.run(tool, *arguments)
    assert result.returncode != 0
    return result.returncode, result.stderr or result.stdout


def profile(mac, *types):
    return json.loads(answer(mac, "/usr/sbin/system_profiler", *types, "-json"))


def test_uname_names_the_kernel_and_the_architecture(laptop):
    assert answer(laptop, "/usr/bin/uname", "-r") == "24.6.0\n"
    assert answer(laptop, "/usr/bin/uname", "-m") == "arm64\n"
    assert answer(laptop, "/usr/bin/uname") == "Darwin\n"
    assert re.fullmatch(r"Darwin \S+ 24\.6\.0 Darwin Kernel .*RELEASE_ARM64_M4 arm64\n",
                        answer(laptop, "/usr/bin/uname", "-a"))


def test_uname_refuses_an_unknown_option(laptop):
    assert failure(laptop, "/usr/bin/uname", "-x") == (
        1, "uname: illegal option -- x\nusage: uname [-amnoprsv]\n")


def test_sysctl_names_the_key_unless_asked_not_to(laptop):
    assert answer(laptop, "/usr/sbin/sysctl", "hw.model") == "hw.model: Mac16,1\n"
    assert answer(laptop, "/usr/sbin/sysctl", "-n", "machdep.cpu.brand_string") == "Apple M4\n"


def test_sysctl_knows_when_the_machine_started(laptop):
    text = answer(laptop, "/usr/sbin/sysctl", "-n", "kern.boottime")
    seconds = int(re.match(r"\{ sec = (\d+), usec = \d+ \} \w{3} \w{3} ", text)[1])
    assert 3 * 86400 < time.time() - seconds < 4 * 86400


def test_sysctl_refuses_an_unknown_key(laptop):
    assert failure(laptop, "/usr/sbin/sysctl", "no.such") == (
        1, "sysctl: unknown oid 'no.such'\n")


def test_vm_stat_counts_pages(laptop):
    text = answer(laptop, "/usr/bin/vm_stat")
    assert "(page size of 16384 bytes)" in text.splitlines()[0]
    for label in ("Pages active", "Pages wired down", "Pages occupied by compressor"):
        assert re.search(rf"^{label}: +\d+\.$", text, re.MULTILINE)


def test_the_profiler_answers_any_types_in_any_order(laptop):
    both = profile(laptop, "SPPrintersDataType", "SPUSBDataType")
    assert list(both) == ["SPPrintersDataType", "SPUSBDataType"]
    assert list(profile(laptop, "SPHardwareDataType")) == ["SPHardwareDataType"]
    assert profile(laptop, "SPNonsenseDataType") == {}
    assert json.loads(answer(laptop, "/usr/sbin/system_profiler", "-json", "SPUSBDataType"))
    assert "Usage: system_profiler" in failure(laptop, "/usr/sbin/system_profiler", "-bad")[1]


def test_the_laptop_reports_usb_in_the_old_form(laptop):
    found = profile(laptop, "SPUSBDataType", "SPUSBHostDataType")
    hub = found["SPUSBDataType"][1]["_items"][0]
    names = [item["_name"] for item in hub["_items"][0]["_items"]]
    assert names == ["Klawiatura Keychron K3", "USB Receiver Mouse"]
    assert found["SPUSBHostDataType"] == []


def test_the_desktop_reports_usb_in_the_new_form(desktop):
    found = profile(desktop, "SPUSBDataType", "SPUSBHostDataType")
    assert found["SPUSBDataType"] == []
    hub = found["SPUSBHostDataType"][0]["_items"][0]
    assert [item["USBDeviceKeyVendorID"] for item in hub["_items"]] == ["0x0b0e", "0x04c5"]
    assert hub["USBDeviceKeySerialNumber"] == "Not Provided"


def test_displays_and_printers(laptop, desktop):
    graphics = profile(laptop, "SPDisplaysDataType")["SPDisplaysDataType"][0]
    external, built_in = graphics["spdisplays_ndrvs"]
    assert "spdisplays_connection_type" not in external
    assert built_in["spdisplays_connection_type"] == "spdisplays_internal"
    printers = profile(laptop, "SPPrintersDataType")["SPPrintersDataType"]
    assert [printer["status"] for printer in printers] == ["idle", "stopped"]
    assert [printer["uri"].split(":")[0] for printer in printers] == ["ipps", "usb"]
    assert profile(desktop, "SPPrintersDataType")["SPPrintersDataType"] == [
        {"cupsversion": "CUPS/2.3.4", "status": "no_info_found"}]


def test_security_tools(laptop, desktop):
    firewall = "/usr/libexec/ApplicationFirewall/socketfilterfw"
    assert answer(laptop, firewall, "--getglobalstate") == "Firewall is enabled. (State = 1)\n"
    assert "(State = 2)" in answer(desktop, firewall, "--getglobalstate")
    assert answer(laptop, "/usr/bin/fdesetup", "status") == "FileVault is On.\n"
    assert answer(desktop, "/usr/bin/fdesetup", "status") == "FileVault is Off.\n"
    assert answer(laptop, "/usr/bin/csrutil", "status").endswith("status: enabled.\n")
    for tool in (firewall, "/usr/bin/fdesetup", "/usr/bin/csrutil"):
        assert "usage" in failure(laptop, tool, "nonsense")[1]


def test_only_the_laptop_has_a_battery(laptop, desktop):
    text = answer(laptop, "/usr/bin/pmset", "-g", "batt")
    assert re.search(r"-InternalBattery-0 \(id=\d+\)\t83%; discharging; 5:12 remaining", text)
    assert answer(desktop, "/usr/bin/pmset", "-g", "batt") == "Now drawing from 'AC Power'\n"


def test_interfaces_with_their_hardware_addresses(laptop):
    text = answer(laptop, "/sbin/ifconfig", "-a")
    assert text.startswith("lo0: flags=8049<UP,LOOPBACK")
    found = re.findall(r"^\tether ([0-9a-f:]{17})$", text, re.MULTILINE)
    assert len(found) == 5 and len(set(found)) == 3
    assert answer(laptop, "/sbin/ifconfig", "-l").split()[:2] == ["lo0", "gif0"]
    assert failure(laptop, "/sbin/ifconfig", "en9") == (
        1, "ifconfig: interface en9 does not exist\n")


def test_directory_service(laptop):
    users = answer(laptop, "/usr/bin/dscl", ".", "-list", "/Users").split()
    assert {"anna", "goscinny", "root", "_spotlight"} <= set(users)
    assert answer(laptop, "/usr/bin/dscl", ".", "-read", "/Users/anna", "NFSHomeDirectory") == \
        "NFSHomeDirectory: /Users/anna\n"
    assert answer(laptop, "/usr/bin/dscl", ".", "-read", "/Users/goscinny", "NFSHomeDirectory") == \
        "NFSHomeDirectory:\n /Users/Konto Gościnne\n"


@pytest.mark.parametrize("name", ["nobody-here", "../anna", "anna/..", "", "$(id)", "a b"])
def test_directory_service_knows_no_strange_users(laptop, name):
    assert failure(laptop, "/usr/bin/dscl", ".", "-read", f"/Users/{name}", "NFSHomeDirectory") == (
        56, "<dscl_cmd> DS Error: -14136 (eDSRecordNotFound)\n")


def test_a_missing_attribute_is_no_failure(laptop):
    result = laptop.run("/usr/bin/dscl", ".", "-read", "/Users/anna", "Picture")
    assert (result.returncode, result.stderr) == (0, "No such key: Picture\n")


def test_printer_queues(laptop, desktop):
    lines = answer(laptop, "/usr/bin/lpstat", "-p").splitlines()
    assert lines[0].startswith("printer HP_LaserJet_M404_Sekretariat is idle.")
    assert lines[2] == "\tPaused"
    assert failure(desktop, "/usr/bin/lpstat", "-p") == (1, "lpstat: No destinations added.\n")


def test_software_updates(laptop, desktop):
    text = answer(laptop, "/usr/sbin/softwareupdate", "-l")
    assert re.findall(r"^\* Label: (.+)$", text, re.MULTILINE) == [
        "macOS Sequoia 15.7-24G222", "Safari26.0SequoiaAuto-26.0"]
    none = desktop.run("/usr/sbin/softwareupdate", "-l")
    assert none.stderr == "No new software available.\n"
    assert none.stdout == "Software Update Tool\n\nFinding available software\n"


def test_metadata_of_bundles(laptop):
    def metadata(name):
        return answer(laptop, "/usr/bin/mdls", "-raw", "-name", "kMDItemCopyright", "-name",
                      "kMDItemAuthors", str(laptop.place(f"/Applications/{name}.app")))

    assert metadata("Firefox") == "(null)\0(null)"
    assert metadata("Stary Katalog").split("\0")[0].endswith("Wydawnictwo Mapa. All rights reserved.")
    assert metadata("Album Autora") == '(null)\0(\n    "Katarzyna Wójcik"\n)'
    assert failure(laptop, "/usr/bin/mdls", "-raw", "-name", "x", "/Applications/Nie ma.app") == (
        1, "/Applications/Nie ma.app: could not find /Applications/Nie ma.app.\n")


def test_signatures_are_shown_on_standard_error(laptop):
    def signature(name, *options):
        return laptop.run("/usr/bin/codesign", *options, f"/Applications/{name}.app")

    shown = signature("Slack", "-d", "--verbose=4")
    assert (shown.returncode, shown.stdout) == (0, "")
    assert "\nAuthority=Developer ID Application: Slack Technologies, Inc. (BQR82RBBHL)\n" in shown.stderr
    assert "\nAuthority=Apple Mac OS Application Signing\n" in signature("Keynote", "-dvv").stderr
    assert "Authority=" not in signature("Slack", "-dv").stderr
    unsigned = signature("Anonim", "-d", "--verbose=4")
    assert (unsigned.returncode, unsigned.stderr) == (
        1, "/Applications/Anonim.app: code object is not signed at all\n")
    assert signature("Slack").returncode == 2
    assert signature("Nie ma", "-d").stderr == "/Applications/Nie ma.app: No such file or directory\n"


def test_preferences(laptop):
    domain = "/Library/Preferences/com.teamviewer.teamviewer.preferences.plist"
    text = answer(laptop, "/usr/bin/defaults", "read", str(laptop.place(domain)))
    assert "\n    ClientID = 1402977351;\n" in text
    assert answer(laptop, "/usr/bin/defaults", "read", domain, "Version") == "15.69.5 M\n"
    code, error = failure(laptop, "/usr/bin/defaults", "read", "/Library/Preferences/none")
    assert code == 1 and error.endswith("Domain /Library/Preferences/none does not exist\n")
    assert "does not exist" in failure(laptop, "/usr/bin/defaults", "read", domain, "Nothing")[1]


def test_preferences_in_other_languages_and_shapes(mac):
    mac.write_preferences("/Library/Preferences/x.plist", {
        "Imię": "Żółć \"w\" cudzysłowie", "empty": [], "flag": True, "real": 1.5,
        "data": b"\x01\xff", "folder": {"a": "b.", "pełne": 2}})
    text = answer(mac, "/usr/bin/defaults", "read", "/Library/Preferences/x.plist")
    assert '    "Imi\\\\U0119" = "\\\\U017b\\\\U00f3\\\\U0142\\\\U0107 \\"w\\" ' in text
    assert "    flag = 1;\n" in text and '    real = "1.5";\n' in text
    assert "    data = {length = 2, bytes = 0x01ff};\n" in text
    assert '        a = "b.";\n' in text and "    empty = (\n    );\n" in text


def test_user_numbers(laptop):
    assert answer(laptop, "/usr/bin/id", "-u", "root") == "0\n"
    uid = int(answer(laptop, "/usr/bin/id", "-u", "anna"))
    assert uid == laptop.place("/dev/console").stat().st_uid
    assert answer(laptop, "/usr/bin/id", "-u") == f"{os.geteuid()}\n"
    assert answer(laptop, "/usr/bin/id", "-un") == ("root\n" if os.geteuid() == 0 else "anna\n")
    assert failure(laptop, "/usr/bin/id", "-u", "nikt") == (1, "id: nikt: no such user\n")


def test_an_answering_neighbour(laptop):
    text = answer(laptop, "/sbin/ping", "-c", "1", "-W", "350", "192.0.2.23")
    assert "64 bytes from 192.0.2.23: icmp_seq=0 ttl=64 time=4.019 ms\n" in text
    assert answer(laptop, "/usr/sbin/arp", "-n", "192.0.2.23") == \
        "? (192.0.2.23) at 0:1b:a9:5e:d:77 on en0 ifscope [ethernet]\n"
    assert answer(laptop, "/usr/bin/dscacheutil", "-q", "host", "-a", "ip_address", "192.0.2.23") == \
        "name: drukarka-sekretariat.biuro.example\nip_address: 192.0.2.23\n\n"


def test_a_silent_neighbour_takes_as_long_as_allowed_in_milliseconds(laptop):
    before = time.monotonic()
    result = laptop.run("/sbin/ping", "-c", "1", "-W", "120", "192.0.2.9")
    assert 0.12 <= time.monotonic() - before < 60, "not in seconds"
    assert result.returncode == 2
    assert "1 packets transmitted, 0 packets received, 100.0% packet loss" in result.stdout
    arp = laptop.run("/usr/sbin/arp", "-n", "192.0.2.9")
    assert (arp.returncode, arp.stdout) == (1, "192.0.2.9 (192.0.2.9) -- no entry\n")
    assert answer(laptop, "/usr/bin/dscacheutil", "-q", "host", "-a", "ip_address", "192.0.2.9") == ""


def test_odd_neighbours(laptop):
    assert " at (incomplete) on en0 " in answer(laptop, "/usr/sbin/arp", "-n", "192.0.2.104")
    assert failure(laptop, "/sbin/ping", "-c", "1", "nie.ma") == (
        68, "ping: cannot resolve nie.ma: Unknown host\n")
    assert failure(laptop, "/sbin/ping", "-w", "1", "192.0.2.1")[0] == 64


def test_file_facts_in_the_form_of_bsd(mac):
    file = mac.root / "ile bajtów"
    file.write_bytes(b"12345")
    file.chmod(0o640)
    assert answer(mac, "/usr/bin/stat", "-f", "%z", str(file)) == "5\n"
    assert answer(mac, "/usr/bin/stat", "-f", "%Su", str(mac.place("/dev/console"))) == "anna\n"
    assert answer(mac, "/usr/bin/stat", "-f", "%N: %Lp, %z%%", str(file)) == f"{file}: 640, 5%\n"
    assert failure(mac, "/usr/bin/stat", "-f", "%z", "/nie/ma") == (
        1, "stat: /nie/ma: stat: No such file or directory\n")
    assert "usage: stat" in failure(mac, "/usr/bin/stat", "-c", "%s", str(file))[1]


def test_digests(mac):
    file = mac.root / "pakiet.pkg"
    file.write_bytes(b"pakiet")
    digest = hashlib.sha256(b"pakiet").hexdigest()
    assert answer(mac, "/usr/bin/shasum", "-a", "256", str(file)) == f"{digest}  {file}\n"
    assert answer(mac, "/usr/bin/shasum", str(file)).startswith(hashlib.sha1(b"pakiet").hexdigest())
    assert failure(mac, "/usr/bin/shasum", "-a", "3", str(file))[0] == 1


def test_system_version_and_names(laptop):
    assert answer(laptop, "/usr/bin/sw_vers", "-buildVersion") == "24G90\n"
    assert answer(laptop, "/usr/sbin/scutil", "--get", "ComputerName") == "MacBook Anny Żółkiewskiej\n"


def test_services_of_others_are_described(laptop, desktop):
    uid = laptop.place("/dev/console").stat().st_uid
    for target in ("system/com.carriez.RustDesk_service", f"gui/{uid}/com.carriez.RustDesk_server"):
        text = answer(laptop, "/bin/launchctl", "print", target)
        assert text.startswith(f"{target} = {{\n")
        assert re.search(r"^\s*state = running$", text, re.MULTILINE)
        code, error = failure(desktop, "/bin/launchctl", "print", target)
        assert code in (112, 113) and error.startswith("Bad request.\n")


def test_every_call_is_recorded_with_its_arguments(mac):
    mac.run("/usr/bin/uname", "-r")
    mac.run("/usr/bin/codesign", "-d", "dwie\nlinie", "", "z\ttabulatorem")
    calls = mac.tool_calls()
    assert [call.tool for call in calls] == ["uname", "codesign"]
    assert mac.tool_calls("codesign")[0].arguments == ("-d", "dwie\nlinie", "", "z\ttabulatorem")
    mac.forget_calls()
    assert mac.tool_calls() == []
