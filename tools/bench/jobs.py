"""What is measured in the device, and how each job shows that it did its work."""

import dataclasses
import re
import shlex
from collections.abc import Callable, Iterable

from . import generate

PRIMARY = "/srv/repo/repodata/primary.xml.gz"
URI = "http://localhost:8080/repo/"
LIMITS = "/device/limits"
UPDATER = "/device/bin/updater --max-wait-time=-1"
#: A run up to the test of the installation: checks the whole, then plans two passes. All packages are
#: there, rpm and the hook do nothing.
THREE = f"{UPDATER} --test --no-sig-check --no-cache-clean"
CACHED_PACKAGES = "mkdir -p /var/cache/updater/base && cp -rT /srv/packages /var/cache/updater/base/packages"

REPOSITORY = f"[base]\nname=base\nbaseurl={URI}\nenabled=1\ngpgcheck=0\n"
#: The configuration of the peers, which lies in the device as their caches do.
FILES = {"/etc/dnf/dnf.conf": "[main]\n", "/etc/yum.repos.d/base.repo": REPOSITORY,
         # The generated packages have a vendor, the installed ones have none.
         "/etc/zypp/zypp.conf": "[main]\nsolver.allowVendorChange = true\n",
         "/etc/zypp/repos.d/base.repo": REPOSITORY + "type=rpm-md\nautorefresh=1\n"}


@dataclasses.dataclass(frozen=True)
class Job:
    """One command. `found` takes from its output what must be `expected`."""

    command: list[str]
    found: Callable[[str], list[str]]
    expected: list[str]
    before: str = ""  # shell script, not measured
    status: int = 0
    fetches: bool | None = None  # the primary file, or only asks for the index; None: nothing of both


@dataclasses.dataclass(frozen=True)
class Tool:
    """Something that looks for updates."""

    command: list[str]
    clear: str  # forgets the metadata
    pattern: str  # of a line that names an update: name and version, or all in one
    status: int = 0

    def found(self, text: str) -> list[str]:
        return sorted("-".join(match.groups()) for match in re.finditer(self.pattern, text, re.MULTILINE))


TOOLS = {
    "updater": Tool([*UPDATER.split(), "--check-only"], "rm -rf /var/cache/updater/*",
                    r"^INFO: \t(\S+)\.noarch\.rpm$"),
    "dnf": Tool(["/usr/bin/dnf", "--refresh", "check-update"], "rm -rf /var/cache/dnf/*",
                r"^(\S+)\.noarch\s+(\S+)\s+base\s*$", status=100),
    "zypper": Tool(["/bin/sh", "-c", "zypper -n refresh && exec zypper -n list-updates"],
                   "rm -rf /var/cache/zypp/raw /var/cache/zypp/solv/base /var/cache/zypp/pubkeys",
                   r"^v \| base +\| (\S+) +\| \S+ +\| (\S+) +\| noarch$"),
}


def checks(tools: Iterable[str], names: int) -> dict[str, Job]:
    """The first and the repeated check of each tool. dnf and zypper tell of updates and do not pull
    what those need; zypper leaves out what replaces another name."""
    newer, replacing, needed = generate.updates(names)
    updates = {"updater": newer | replacing | needed, "dnf": newer | replacing, "zypper": newer}
    jobs = {}
    for name in tools:
        tool = TOOLS[name]
        for kind, before in (("first", tool.clear), ("repeated", "")):
            jobs[f"{name} {kind}"] = Job(tool.command, tool.found, sorted(updates[name]), before, tool.status,
                                         fetches=kind == "first")
    return jobs


def analyses(names: int) -> dict[str, Job]:
    """A run that analyses three times, first and repeated."""
    tool = TOOLS["updater"]
    expected = sorted(3 * list(set().union(*generate.updates(names))))
    return {f"three {kind}": Job(THREE.split(), tool.found, expected, before + CACHED_PACKAGES, tool.status,
                                 fetches=kind == "first")
            for kind, before in (("first", tool.clear + " && "), ("repeated", ""))}


def limits(names: int, open_size: int, digest: str) -> dict[str, Job]:
    """What reading the same data costs without doing anything with them."""
    def job(command: str, expected: str) -> Job:
        return Job(shlex.split(command), str.split, expected.split())
    return {"xmllint": job(f"/usr/bin/xmllint --stream --noout {PRIMARY}", ""),
            "walk": job(f"{LIMITS} walk {PRIMARY}", str(generate.package_count(names))),
            "gunzip": job(f"{LIMITS} gunzip {PRIMARY}", str(open_size)),
            "sha1sum": job(f"/usr/bin/sha1sum {PRIMARY}", f"{digest} {PRIMARY}"),
            **headers("headers")}


def headers(*kinds: str) -> dict[str, Job]:
    """Reading the rpm database, in which base-system lies, too."""
    return {kind: Job([LIMITS, kind], str.split, [str(generate.INSTALLED + 1)]) for kind in kinds}


def header_checks(names: int) -> dict[str, Job]:
    """A repeated check, and reading the rpm database, with its headers checked: beside those without."""
    repeated = checks(["updater"], names)["updater repeated"]
    checked = dataclasses.replace(repeated, command=[*repeated.command, "--check-db-headers"])
    return {"checked repeated": checked, **headers("checked-headers")}
