"""The device in which all is measured: 2,000 packages installed, one repository served over loopback."""

import collections
import dataclasses
import hashlib
import json
import math
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import NamedTuple
from xml.etree import ElementTree

from device import cache, scene, webserver
from device.device import Device

from . import generate, jobs, measure

NOTHING = "#!/bin/sh\n"
LOG = "/srv/nginx/access"


class Row(NamedTuple):
    """The medians of a job, or what it did wrong in place of them."""

    wall: float = math.nan  # seconds, as is cpu
    cpu: float = math.nan
    memory: float = math.nan  # MiB, of the largest process
    error: str = ""


class Repository(NamedTuple):
    size: int  # of the primary file
    open_size: int
    digest: str  # SHA-1


def limits_program() -> Path:
    """The program that measures what the libraries take, compiled anew when its source has changed."""
    source = Path(__file__).with_name("limits.cpp")

    def fill(draft: Path) -> None:
        libraries = subprocess.run(["pkg-config", "--cflags", "--libs", "libxml-2.0", "zlib", "rpm"],
                                   check=True, capture_output=True, text=True).stdout.split()
        subprocess.run(["c++", "-std=c++20", "-O2", "-o", str(draft / "limits"), str(source), *libraries], check=True)

    return cache.entry(f"bench/limits-{cache.name_for(source.read_text(encoding='utf-8'))}", fill) / "limits"


class Bed:
    """Context manager. One repository is offered at a time."""

    def __init__(self) -> None:
        # In memory: a disk's own habits are not to count.
        self._device = Device(scene.program(), Path(tempfile.mkdtemp(prefix="device-", dir="/dev/shm")))

    def __enter__(self) -> "Bed":
        try:
            self._prepare()
        except BaseException:
            self._device.close()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self._device.close()

    def _prepare(self) -> None:
        print(f"installing {generate.INSTALLED} packages (kept for the next time)", file=sys.stderr)
        self._device.install(*generate.installed())
        self._device.configure(jobs.URI)
        for path, content in jobs.FILES.items():
            self._device.write(path, content)
        for path in ("/usr/lib/updater/hook", "/device/bin/rpm"):
            self._device.write(path, NOTHING, 0o755)
        self._device.write("/device/measure.py", Path(measure.__file__).read_bytes())
        self._device.write(jobs.LIMITS, limits_program().read_bytes(), 0o755)
        for package in set().union(*generate.updates(generate.FIRST_FREE)):
            self._device.write(f"/srv/packages/{package}.noarch.rpm", generate.content_of(package))
        webserver.start(self._device)

    def offer(self, names: int) -> Repository:
        """Makes a repository with that many names the contents of the web server."""
        source = Path(generate.__file__).read_text(encoding="utf-8")
        metadata = cache.entry(f"bench/{cache.name_for(source, names)}", lambda draft: generate.write_metadata(
            draft, generate.packages(names), generate.package_count(names)))
        shutil.copytree(metadata, self._device.path("/srv/repo/repodata"), dirs_exist_ok=True)
        primary = (metadata / "primary.xml.gz").read_bytes()
        index = ElementTree.parse(metadata / "repomd.xml")
        return Repository(len(primary), int(index.findtext(".//{*}open-size") or 0), hashlib.sha1(primary).hexdigest())

    def measure(self, rounds: int, tasks: dict[str, jobs.Job]) -> dict[str, Row]:
        """Measures the jobs in turn. A job that did not do its work gives no figures."""
        self._device.write("/device/jobs", json.dumps([dataclasses.asdict(job) | {"found": ""} for job in tasks.values()]))
        done = self._device.shell(f"/usr/bin/python3 -I -S /device/measure.py {rounds} {LOG} </device/jobs", timeout=7200)
        if done.returncode != 0:
            sys.exit(done.stderr)
        rows = {}
        for (name, job), row in zip(tasks.items(), json.loads(done.stdout)):
            error = next(filter(None, (fault(job, **run) for run in row["runs"])), "")
            if error:
                print(f"ERROR: {name}: {error}", file=sys.stderr)
            rows[name] = Row(error=error) if error else Row(row["wall"], row["cpu"], row["memory"])
        return rows


def fault(job: jobs.Job, status: int, output: str, requests: str) -> str:
    """What is wrong with a run; empty if it found exactly what it had to, asked for the index, and fetched
    the primary file once if it did not know it."""
    if status != job.status:
        return f"exit status {status}: {' '.join(output.split())[-200:]}"
    expected, found = collections.Counter(job.expected), collections.Counter(job.found(output))
    if found != expected:
        return (f"found {(found & expected).total()} of {expected.total()}, and {(found - expected).total()} others: "
                f"{sorted((found - expected) + (expected - found))[:3]}")
    index, primary = (requests.count(f"|/repo/repodata/{name}|200|") for name in ("repomd.xml", "primary.xml.gz"))
    if (index > 0, primary) != (job.fetches is not None, 1 if job.fetches else 0):
        return f"asked for the index {index} times and for the primary file {primary} times"
    return ""
