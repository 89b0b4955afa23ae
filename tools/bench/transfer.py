"""Fetching many packages over HTTP, beside curl with the same list over one connection."""

import hashlib
import os
import statistics
import tempfile
from pathlib import Path

from device import scene, webserver
from device.device import Device

from . import generate

COUNT, SIZE = 500, 100_000
UPDATE = ("--test", "--no-sig-check", "--max-wait-time=-1")
NAMES = [f"p{number:03}" for number in range(COUNT)]
#: In place of the device's hook. What lies between the calls "download" and "test" is the transfer with
#: the tests of the checksums, and the hook's own start.
HOOK = """#!/bin/sh
exec /usr/bin/date +%s.%N >>/device/times
"""
CURL = """rm -rf /srv/target; mkdir /srv/target; date +%s.%N >/device/times
curl --silent --show-error --fail --config /srv/list || exit; date +%s.%N >>/device/times"""
ELEMENT = """<package type="rpm"><name>{name}</name><arch>noarch</arch><version epoch="0" ver="1" rel="1"/>
<checksum type="sha">{digest}</checksum><location href="{name}.rpm"/></package>
"""


def _publish(device: Device) -> None:
    """A repository of random files, which are no packages: rpm is a stub here."""
    elements = []
    for name in NAMES:
        content = os.urandom(SIZE)
        device.write(f"/srv/repo/{name}.rpm", content)
        elements.append(ELEMENT.format(name=name, digest=hashlib.sha1(content).hexdigest()))
    repodata = device.path("/srv/repo/repodata")
    repodata.mkdir()
    generate.write_metadata(repodata, elements, COUNT)
    device.write("/srv/list", "".join(f'url = "http://localhost:8080/repo/{name}.rpm"\noutput = "/srv/target/{name}.rpm"\n'
                                      for name in NAMES))


def _seconds(device: Device) -> float:
    """Between the last two times that were noted."""
    begin, end = map(float, device.read("/device/times").split()[-2:])
    return end - begin


def measured(rounds: int) -> tuple[float, float]:
    """Wall seconds of the program and of curl, in turn: medians. One round in front isn't counted."""
    own, other = [], []
    memory = Path(tempfile.mkdtemp(prefix="device-", dir="/dev/shm"))  # a disk's own habits are not to count
    with Device(scene.program(), memory) as device:
        _publish(device)
        device.configure("http://localhost:8080/repo/", addons=NAMES)
        device.write("/usr/lib/updater/hook", HOOK, 0o755)
        device.answer("rpm", exit=0)
        webserver.start(device)
        for _ in range(rounds + 1):
            result = device.run(*UPDATE)
            if result.returncode != 0 or f"INFO: downloading {COUNT} packages" not in result.lines:
                raise SystemExit(f"the run failed:\n{result.stderr[-2000:]}")
            own.append(_seconds(device))
            result = device.shell(CURL, PATH="/usr/bin:/bin")
            if result.returncode != 0:
                raise SystemExit(result.stderr)
            other.append(_seconds(device))
    return statistics.median(own[1:]), statistics.median(other[1:])
