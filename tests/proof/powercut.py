"""What lies on the disk behind a power cut, whether that may be, and what the next start makes of it."""

import contextlib
import dataclasses
import hashlib
import os
import shutil
import sqlite3
import subprocess
import tarfile
from collections.abc import Iterator
from pathlib import Path

from machine.machine import Machine, drive

from . import diskscene, writelog
from .points import WORDS

#: Which sets of packages may be installed behind a word; any with UPDATING and CORRUPTED.
SETS = {"REBOOTING": (diskscene.BEHIND,), "PKGSDONE": (diskscene.BETWEEN, diskscene.BEHIND)}
ANY = (diskscene.BEFORE, diskscene.BETWEEN, diskscene.BEHIND)
#: The disks of the machine: the state, and what it gives to the host to judge.
DISK, READ = "disk", "read"
GIVE = """{mount} && cd /disk && \
(grep -qxE 'UPDATING|CORRUPTED' var/lib/updater/status || echo boot opt var/lib/rpm) 2>/dev/null | \
xargs tar -cf /dev/vdb var/lib/updater && cd / && {unmount}""".replace("\\\n", "")
#: A start of the device, and a run: its exit code and the word that it leaves.
NEXT = "touch /run/quick; clear-rebooting >/dev/null; updater --max-wait-time=-1 2>/run/told; echo $?; cat /var/lib/updater/status"
QUERY = "/usr/bin/rpm -qa --qf '%{NAME}-%{VERSION}-%{RELEASE}\\n' | grep -v ^gpg-pubkey"


@dataclasses.dataclass(frozen=True)
class Verdict:
    """What came of a cut."""

    state: str
    word: str  # on disk; "" for none
    faults: tuple[str, ...]  # empty: all held


class Judge:
    """Has a machine mount one state of the disk after the other. Made by judging()."""

    def __init__(self, machine: Machine, system: str, work: Path) -> None:
        self._machine, self._system, self._work = machine, system, work
        self._known: dict[str, tuple[str, ...]] = {}

    def judge(self, flushed: int, state: writelog.State) -> Verdict:
        """`flushed` is the disk without what the state adds."""
        with open(self._work / DISK, "r+b") as file:
            writelog.put(flushed, state, file.fileno())
        unmount = diskscene.unmounting(self._system)
        code, told = self._machine.run(GIVE.format(mount=diskscene.mounting(self._system), unmount=unmount), diskscene.PATIENCE)
        if code != 0:
            self._machine.run("cd /; umount /disk/boot; umount /disk")
            return Verdict(state.name, "?", (f"the disk cannot be read: {told}",))
        with tarfile.open(self._work / READ) as files:
            found = {file.name: _content(files, file) for file in files if not file.isdir()}
            word, faults = _word(found)
            if not faults and word not in ("UPDATING", "CORRUPTED"):
                key = hashlib.sha256(repr((SETS.get(word), sorted(
                    (name, files.getmember(name).mtime, hashlib.sha256(content).digest())
                    for name, content in found.items() if not name.startswith("var/lib/updater/")))).encode()).hexdigest()
                if key not in self._known:
                    self._known[key] = tuple(self._judge_installed(files, word))
                faults += self._known[key]
        return Verdict(state.name, word, tuple(faults))

    def _judge_installed(self, files: tarfile.TarFile, word: str) -> Iterator[str]:
        """What is wrong with the installed packages."""
        tree = self._work / f"tree{len(self._known)}"
        files.extractall(tree)
        try:
            with sqlite3.connect(tree / "var/lib/rpm/rpmdb.sqlite") as database:
                if (told := database.execute("pragma integrity_check").fetchone()[0]) != "ok":
                    yield f"rpm's database: {told}"
        except sqlite3.Error as error:
            yield f"rpm's database: {error}"
        installed = sorted(line for line in _rpm(tree, "-qa", "--qf", "%{NAME}-%{VERSION}-%{RELEASE}\n").splitlines()
                           if not line.startswith("gpg-pubkey"))
        if installed not in SETS.get(word, ANY):
            yield f"with {word or 'no word'} there are {' '.join(installed)}"
        if told := _rpm(tree, "-Va"):
            yield "rpm -Va: " + "; ".join(told.splitlines()[:3]) + f" ({len(told.splitlines())} lines)"
        yield from _judge_index(tree)
        shutil.rmtree(tree)


@contextlib.contextmanager
def judging(kernel: tuple[Path, Path], system: str, work: Path) -> Iterator[Judge]:
    """`work` is a directory for its files."""
    for name in (DISK, READ):
        (work / name).write_bytes(b"")
        os.truncate(work / name, diskscene.SIZE)
    with diskscene.start(kernel, [*drive(work / DISK), *drive(work / READ)]) as machine:
        machine.wait_up(diskscene.PATIENCE)
        yield Judge(machine, system, work)


def _content(files: tarfile.TarFile, file: tarfile.TarInfo) -> bytes:
    stream = files.extractfile(file)
    return stream.read() if stream else file.linkname.encode()


def _rpm(tree: Path, *arguments: str) -> str:
    command = ["unshare", "--user", "--map-root-user", "rpm", "--root", tree, "--dbpath", "/var/lib/rpm", *arguments]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.stdout


def _judge_index(tree: Path) -> Iterator[str]:
    """What is wrong with the file that a script makes."""
    version = (tree / "opt/app/part0").read_text().split()[0] if (tree / "opt/app/part0").exists() else "?"
    index = tree / (diskscene.INDEX + version).lstrip("/")
    expected = "".join(f"{hashlib.sha1(file.read_bytes()).hexdigest()}  /{file.relative_to(tree)}\n"
                       for file in sorted((tree / "opt/app").glob("part*")))
    if not index.exists() or index.read_text() != expected:
        yield f"{index.name} is not what its script wrote: {index.stat().st_size if index.exists() else 'no'} bytes"


def _word(found: dict[str, bytes]) -> tuple[str, list[str]]:
    """The word on disk, and what is wrong with the file."""
    if "var/lib/updater/status" not in found:
        return "", []
    content = found["var/lib/updater/status"].decode(errors="replace")
    word = content.removesuffix("\n")
    return (word, []) if word in WORDS and content == word + "\n" else ("?", [f"the status file holds {content!r}"])


def boot(kernel: tuple[Path, Path], system: str, state: Path, word: str) -> list[str]:
    """What is wrong with the runs behind a start from a disk with this state and word."""
    with diskscene.start(kernel, drive(state)) as machine:
        machine.wait_up(diskscene.PATIENCE)
        diskscene.mount(machine, system)
        ends = []
        for _ in range(2):
            ends.append(machine.run(NEXT, diskscene.PATIENCE)[1].split())
        installed = sorted(machine.run(QUERY, diskscene.PATIENCE)[1].split())
        wrong = machine.run("/usr/bin/rpm -Va", diskscene.PATIENCE)[1]
    if word in ("UPDATING", "CORRUPTED"):
        return [] if ends == [["2", "CORRUPTED"]] * 2 else [f"behind {word} the next runs end with {ends}"]
    complete = ends[0] in (["0", "REBOOTING"], ["0", "READY"]) and ends[1] == ["0", "READY"]
    return [] if complete and installed == diskscene.BEHIND and not wrong else [
        f"behind {word or 'no word'} the next runs end with {ends}, there are {' '.join(installed)}, rpm -Va: {wrong}"]
