"""Packages that many tests use: an application with its library, the firmware, an add-on."""

import gzip
import hashlib
import re
import time
from collections.abc import Callable

from device.device import Device, Package

OLD = (Package("app", "1-1"), Package("lib", "1-1", provides=("lib = 1-1",)), Package("firmware", "1-1"))
NEW = (Package("app", "2-1", requires=("lib >= 2",)), Package("lib", "2-1", provides=("lib = 2-1",)),
       Package("firmware", "2-1"), Package("extra", "5-1"))
OLD_STATE = ["app-1-1", "base-system-1-1", "firmware-1-1", "lib-1-1"]
NEW_STATE = ["app-2-1", "base-system-1-1", "extra-5-1", "firmware-2-1", "lib-2-1"]
HALF_STATE = ["app-2-1", "base-system-1-1", "firmware-1-1", "lib-2-1"]

HEAD = ["INFO: updater version 1.1, product Demo", "INFO: --- MODE {} ---", "INFO: running init hook",
        "INFO: updating packages from repository 'Demo packages' (URI 'file:///srv/repo')"]
REPORT = ["INFO: --- 4 UPDATE(S) ---", "INFO: --- FIRMWARE 2-1 ---", "INFO: need to update (4 packages):",
          "INFO: \tapp-2-1.noarch.rpm", "INFO: \textra-5-1.noarch.rpm", "INFO: \tfirmware-2-1.noarch.rpm",
          "INFO: \tlib-2-1.noarch.rpm"]
PASS_1 = "rpm -v -U app-2-1.noarch.rpm lib-2-1.noarch.rpm"
PASS_2 = "rpm -v -U extra-5-1.noarch.rpm firmware-2-1.noarch.rpm"
REBOOT = ["telinit u", "shutdown -r +1 rebooting after upgrade"]


def head(mode: str) -> list[str]:
    return [line.format(mode) for line in HEAD]


def set_up(device: Device) -> Device:
    """Old packages on the device, new ones in the repository; firmware and add-on wait for pass 2."""
    device.install(*OLD)
    device.publish(*NEW)
    device.configure(release="firmware", addons=["extra"])
    return device


def wait_until(condition: Callable[[], bool]) -> None:
    end = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < end, "it never came to that"
        time.sleep(0.005)


def edit_primary(device: Device, change: Callable[[str], str]) -> None:
    """Changes the primary file of the repository, and the index so that it fits."""
    primary = device.path("/srv/repo/repodata/primary.xml.gz")
    primary.write_bytes(gzip.compress(change(gzip.decompress(primary.read_bytes()).decode()).encode()))
    index = device.read("/srv/repo/repodata/repomd.xml")
    sum = hashlib.sha1(primary.read_bytes()).hexdigest()
    device.write("/srv/repo/repodata/repomd.xml", re.sub(
        r'(<data type="primary">\s*<checksum type="sha">)[0-9a-f]+', rf"\g<1>{sum}", index))
