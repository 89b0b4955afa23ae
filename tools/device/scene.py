"""The scene of the demo and of the shell: a device with old packages and a repository with newer ones."""

import os
import sys
from pathlib import Path

from . import webserver
from .cache import PROJECT
from .device import Device
from .packages import Package

OLD = (Package("kiosk", "1.0-3"), Package("libkiosk", "1.0-3"), Package("firmware", "1.0-3"),
       Package("maps", "2025-1"))
NEW = (Package("kiosk", "2.0-1", requires=("libkiosk >= 2.0", "libtouch")), Package("libkiosk", "2.0-1"),
       Package("libtouch", "1.4-2"), Package("firmware", "2.0-1", requires=("kiosk = 2.0",)),
       Package("maps", "2026-1"), Package("unrelated", "9.9-9"))


def program() -> Path:
    """The program to show: $UPDATER, else the optimised one."""
    path = Path(os.environ.get("UPDATER", PROJECT / "build/updater"))
    if not path.is_file():
        sys.exit(f"no program at {path}: ./dev build")
    return path


def make() -> Device:
    device = Device(program())
    device.import_key()
    device.install(*OLD)
    device.publish(*NEW)
    device.configure("http://localhost:8080/repo/", release="firmware", addons=["maps"],
                     extra="\n  <user-agent><base>Demo</base><prodname>kiosk7</prodname></user-agent>")
    webserver.start(device)
    return device
