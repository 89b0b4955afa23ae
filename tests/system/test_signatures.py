"""Which packages pass the signature test, and what is said of those that do not."""

import hashlib
import re

import pytest
from device.device import Device, Package
from device.packages import build, damaged
from scenes import OLD_STATE, edit_primary, set_up

APP = Package("app", "2-1", files=(("/opt/app/data", "0123456789" * 500),))
VERIFY = "INFO: verifying package signatures"
REFUSED = "ERROR: failed verifying package 'app-2-1.noarch.rpm'"


def update(device, package, *arguments):
    """Publishes one file, whatever it holds, under the checksum that it has, and updates."""
    set_up(device).publish(APP)
    device.write("/etc/rpm/macros", device.read("/etc/rpm/macros") + "%_pkgverify_level none\n%_pkgverify_flags 0xf0f00\n")  # for rpm alone
    place = device.path("/srv/repo/app-2-1.noarch.rpm")
    place.write_bytes(package)
    sum = hashlib.sha1(package).hexdigest()
    edit_primary(device, lambda text: re.sub(r"(<checksum [^>]*>)[0-9a-f]+", rf"\g<1>{sum}", text))
    return device.run("--no-reboot", *arguments)


STRANGER = r"ERROR: package 'app-2-1.noarch.rpm' is signed by key ([0-9a-f]{16}), which is not in the rpm database"
DAMAGED = "ERROR: package 'app-2-1.noarch.rpm' is damaged"
NO_PACKAGE = "ERROR: 'app-2-1.noarch.rpm' is damaged or no package"


@pytest.mark.parametrize("key, how, reason", [
    ("stranger", None, STRANGER),
    ("", None, None),
    ("vendor", "header", DAMAGED),
    ("vendor", "signature", DAMAGED),
    ("vendor", "payload", DAMAGED),
    ("vendor", "cut header", DAMAGED),
    ("vendor", "text", NO_PACKAGE),
], ids=["unknown key", "unsigned", "header", "signature", "payload", "cut header", "text"])
def test_refused(device, tmp_path, key, how, reason):
    [package] = build(Package(APP.name, APP.evr, files=APP.files, key=key))
    if how:
        package = damaged(package, how, tmp_path / "damaged")
    result = update(device, package.read_bytes())
    lines = result.lines[result.lines.index(VERIFY) + 1:]
    said = lines[:lines.index("ERROR: failed updating, will try updating updater only")]
    if reason:
        found = re.fullmatch(reason, said[-2])
        assert found and said[-1] == REFUSED
        assert not found.groups() or re.fullmatch(f"WARNING: rpmlib: .*key ID {found[1][8:]}: NOKEY", said[-3])
    else:
        assert said == ["ERROR: no signature on package 'app-2-1.noarch.rpm'"]
    assert (result.returncode, device.installed()) == (1, OLD_STATE)
    assert not [call for call in device.calls if call.startswith("rpm")]


def test_accepted(device):
    [package] = build(APP)
    assert VERIFY in update(device, package.read_bytes()).lines
    assert "app-2-1" in device.installed()


@pytest.mark.parametrize("arguments", [["--no-sig-check"], []])
def test_not_looked_at(program, arguments):
    """Neither with the option, nor with a database that holds no key."""
    with Device(program) as device:
        if arguments:
            device.import_key()
        [package] = build(Package(APP.name, APP.evr, files=APP.files, key=""))
        result = update(device, package.read_bytes(), *arguments)
        assert VERIFY not in result.lines
        assert "app-2-1" in device.installed()
