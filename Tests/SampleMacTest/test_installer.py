"""Packages: unpacked below the root, their scripts run inside, and receipts that can be forgotten."""

import os
import plistlib
import shutil

import pytest

from samplemac.package import write_package

pytestmark = pytest.mark.skipif(shutil.which("bsdtar") is None, reason="bsdtar is not installed")
needs_root = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")

IDENTIFIER = "pl.example.program"


@pytest.fixture
def payload(tmp_path):
    program = tmp_path / "payload/Applications/Nowy Program.app/Contents/MacOS/Nowy Program"
    program.parent.mkdir(parents=True)
    program.write_text("#!/bin/sh\necho 2.0\n")
    program.chmod(0o755)
    return tmp_path / "payload"


def install(mac, package):
    return mac.run("/usr/sbin/installer", "-pkg", str(package), "-target", "/")


def test_the_files_arrive_with_a_receipt(mac, payload, tmp_path):
    package = write_package(tmp_path / "Program-2.0.pkg", IDENTIFIER, "2.0", payload)
    done = install(mac, package)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == ("installer: Package name is Program-2.0\n"
                           "installer: Installing at base path /\n"
                           "installer: The install was successful.\n")
    assert mac.run("/Applications/Nowy Program.app/Contents/MacOS/Nowy Program").stdout == "2.0\n"
    receipt = plistlib.loads(mac.place(f"/var/db/receipts/{IDENTIFIER}.plist").read_bytes())
    assert receipt["PackageVersion"] == "2.0" and receipt["PackageFileName"] == "Program-2.0.pkg"
    assert os.listdir(mac.place("/private/tmp")) == []
    assert install(mac, package).stdout.endswith("installer: The upgrade was successful.\n")


def test_receipts_are_listed_and_forgotten(mac, payload, tmp_path):
    install(mac, write_package(tmp_path / "p.pkg", IDENTIFIER, "2.0", payload))
    assert mac.run("/usr/sbin/pkgutil", "--pkgs").stdout == f"{IDENTIFIER}\n"
    assert "version: 2.0\n" in mac.run("/usr/sbin/pkgutil", "--pkg-info", IDENTIFIER).stdout
    forgotten = mac.run("/usr/sbin/pkgutil", "--forget", IDENTIFIER)
    assert (forgotten.returncode, forgotten.stdout) == (0, f"Forgot package '{IDENTIFIER}' on '/'.\n")
    again = mac.run("/usr/sbin/pkgutil", "--forget", IDENTIFIER)
    assert (again.returncode, again.stderr) == (1, f"No receipt for '{IDENTIFIER}' found at '/'.\n")
    assert mac.run("/usr/sbin/pkgutil", "--pkgs").stdout == ""


@needs_root
@pytest.mark.parametrize("entered", [False, True])
def test_scripts_run_where_the_mac_is_the_root(mac, payload, tmp_path, entered):
    package = write_package(tmp_path / "p.pkg", IDENTIFIER, "2.0", payload, {
        "preinstall": '#!/bin/bash\nls /Applications > "/Library/Logs/before"\n',
        "postinstall": '#!/bin/bash\n{ echo "$2 $3"; ls /Applications; } > "/Library/Logs/after"\n'})
    if entered:
        done = mac.enter("/usr/sbin/installer", "-pkg", str(package), "-target", "/",
                         keep=(package,))
    else:
        done = install(mac, package)
    assert (done.returncode, done.stderr) == (0, "")
    assert "Nowy Program.app" not in mac.place("/Library/Logs/before").read_text()
    after = mac.place("/Library/Logs/after").read_text()
    assert after.startswith("/ /\n") and "Nowy Program.app\n" in after
    assert not os.path.exists("/Library/Logs/after")


@needs_root
@pytest.mark.parametrize(("script", "arrives"), [("preinstall", False), ("postinstall", True)])
def test_a_failing_script_fails_the_installation(mac, payload, tmp_path, script, arrives):
    package = write_package(tmp_path / "p.pkg", IDENTIFIER, "2.0", payload,
                            {script: "#!/bin/bash\nexit 3\n"})
    failed = install(mac, package)
    assert failed.returncode == 1
    assert "An error occurred while running scripts from the package “p.pkg”." in failed.stderr
    assert mac.place("/Applications/Nowy Program.app").exists() == arrives
    assert mac.run("/usr/sbin/pkgutil", "--pkgs").stdout == ""
    assert os.listdir(mac.place("/private/tmp")) == []


def test_what_is_no_package_is_refused(mac, tmp_path):
    missing = install(mac, tmp_path / "none.pkg")
    assert missing.returncode == 1 and "package path specified was invalid" in missing.stderr
    garbage = tmp_path / "g.pkg"
    garbage.write_bytes(b"<html>404</html>")
    refused = install(mac, garbage)
    assert refused.returncode == 1
    assert refused.stderr == f"installer: Package {garbage} could not be opened.\n"
    assert mac.run("/usr/sbin/installer", "-x").returncode == 1


def test_entries_of_property_lists(mac):
    info = str(mac.place("/Applications/Google Chrome.app/Contents/Info.plist"))

    def read(entry, file=info):
        return mac.run("/usr/libexec/PlistBuddy", "-c", f"Print {entry}", file)

    assert read(":CFBundleShortVersionString").stdout == "139.0.7258.155\n"
    missing = read(":Nothing")
    assert (missing.returncode, missing.stderr) == (
        1, 'Print: Entry, ":Nothing", Does Not Exist\n')
    assert read(":X", str(mac.place("/none.plist"))).returncode == 1
    broken = str(mac.place("/Applications/Śmieci.app/Contents/Info.plist"))
    assert read(":X", broken).stderr == f"Error Reading File: {broken}\n"
    nested = mac.write_job("/Library/LaunchDaemons/x.plist", {
        "Label": "x", "ProgramArguments": ["/bin/a", "b"], "RunAtLoad": True})
    assert read(":ProgramArguments:1", str(nested)).stdout == "b\n"
    assert read(":ProgramArguments", str(nested)).stdout == "Array {\n    /bin/a\n    b\n}\n"
    assert read(":RunAtLoad", str(nested)).stdout == "true\n"


def test_launch_services(mac):
    framework = "/System/Library/Frameworks/CoreServices.framework"
    for path in (f"{framework}/Frameworks/LaunchServices.framework/Support/lsregister",
                 f"{framework}/Versions/A/Frameworks/LaunchServices.framework/Versions/A/Support"
                 "/lsregister"):
        assert mac.run(path, "-f", "/Applications/Firefox.app").returncode == 0
        assert mac.run(path, "-f", "/Applications/none.app").returncode == 1
    assert len(mac.tool_calls("lsregister")) == 4
