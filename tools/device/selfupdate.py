"""A device replaces updater by its own package, and goes on with the new one: the second scene of
./dev demo. Both packages are those of tools/package, and rpm is real."""

import contextlib
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

from . import cache, keys, scene
from .device import Device
from .packages import Package

UPDATER = "/usr/sbin/updater --max-wait-time=-1; echo $?"
STEPS = (
    ("updater is an installed package, and the new player needs a newer one:",
     ("rpm -q updater player", "rpm -q --provides updater | grep running", "ls /srv/repo",
      "rpm -qp --requires /srv/repo/player-*.rpm | grep running")),
    ("The update falls back to updater alone. Its program is replaced while it runs:", (UPDATER,)),
    ("The device comes up again, and the next run is one of the new program:",
     ("rpm -q updater", "/usr/libexec/updater/clear-rebooting", UPDATER)),
    ("What it left:", ("rpm -q updater player", "cat /device/calls")),
)


def built(*options: str) -> Path:
    """The rpm package of updater, built now."""
    made = subprocess.run([cache.PROJECT / "tools/package", *options], capture_output=True, text=True, check=False)
    if made.returncode != 0:
        raise RuntimeError(f"tools/package failed: {made.stderr}")
    return cache.PROJECT / made.stdout.strip()


def queried(package: Path, what: str) -> list[str]:
    return subprocess.run(["rpm", "-qp", what, package], capture_output=True, text=True, check=True).stdout.splitlines()


def system_for(package: Path, *known: str) -> Package:
    """A package that provides what this one requires of the system, but for what is known there."""
    needs = {line for line in queried(package, "--requires") if not line.startswith(("rpmlib(", "config("))}
    return Package("system", "1-1", provides=tuple(sorted(needs - {*known})))


@contextlib.contextmanager
def made(old: Path, new: Path) -> Iterator[Device]:
    """A device with the package `old`, and a repository with `new` and with what needs it."""
    version = new.name.split("-")[1]
    with Device("/usr/bin/false", packaged=True) as device, tempfile.TemporaryDirectory() as place:
        signed = Path(shutil.copy(new, place))
        with cache.locked():
            keys.sign("vendor", [signed])
        device.import_key()
        device.install(system_for(old, "/bin/sh"), Package("player", "1.0-1"))
        device.write("/tmp/updater.rpm", old.read_bytes())
        done = device.shell("/usr/bin/rpm -i /tmp/updater.rpm")
        if done.returncode != 0:
            raise RuntimeError(f"rpm -i failed: {done.stderr}")
        device.publish(signed, Package("player", "2.0-1", requires=(f"updater-running >= {version}",)))
        device.configure()
        yield device


def show() -> tuple[str, list[str]]:
    """Runs it. What there was to see, and what is not as it should be."""
    old, new = built("-G", "RPM"), built("--next")
    with made(old, new) as device:
        text = scene.shown(device, STEPS)
        installed, calls = device.installed(), device.calls
        changed = device.shell("rpm -V updater").stdout
    faults = []
    if installed != ["base-system-1-1", "player-2.0-1", "system-1-1", new.name.removesuffix(".rpm")]:
        faults.append(f"on the second device are installed {installed}")
    if [call for call in calls if call.startswith("rpm ")] != [
            f"rpm -v -U {new.name}", "rpm -v -U player-2.0-1.noarch.rpm"]:
        faults.append(f"on the second device was called {calls}")
    if f"hook init {new.name.split('-')[1]}" not in calls:
        faults.append("the second run was not one of the new program")
    if changed:
        faults.append(f"the files of the new updater are not those of its package: {changed}")
    return text, faults
