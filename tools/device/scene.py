"""The scene of the demo and of the shell: a device with old packages and a repository with newer ones."""

import contextlib
import os
import signal
import sys
from collections.abc import Iterable, Iterator
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


def tidy_up_on_signals() -> None:
    """Lets a signal that asks for the end unwind this program, so that its devices go, too."""
    numbers = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def leave(number: int, _: object) -> None:
        for other in numbers:
            signal.signal(other, signal.SIG_IGN)  # a second one must not disturb that
        sys.exit(128 + number)

    for number in numbers:
        signal.signal(number, leave)


def shown(device: Device, steps: Iterable[tuple[str, Iterable[str]]]) -> str:
    """What there is to see of these steps, each a title and shell commands, when they are taken."""
    lines: list[str] = []
    for title, commands in steps:
        lines += ["", f"# {title}"]
        for command in commands:
            result = device.shell(f"exec 2>&1; {command}")
            lines += [f"$ {command}", *result.stdout.splitlines()]
    return "\n".join(lines[1:]) + "\n"


@contextlib.contextmanager
def made() -> Iterator[Device]:
    """The scene's device, which is gone at the end, whatever that is."""
    tidy_up_on_signals()
    with Device(program()) as device:
        device.import_key()
        device.install(*OLD)
        device.publish(*NEW)
        device.configure("http://localhost:8080/repo/", release="firmware", addons=["maps"],
                         extra="\n  <user-agent><base>Demo</base><prodname>kiosk7</prodname></user-agent>")
        webserver.start(device)
        yield device
