"""The scenes that are disturbed at every system call, and what must be true behind each disturbance."""

import dataclasses
import hashlib
import os
import re
import shutil
import subprocess
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from device import webserver
from device.cache import PROJECT
from device.device import Device
from system.scenes import HALF_STATE, NEW, NEW_STATE, OLD_STATE, set_up

WORDS = ("READY", "DELAYING", "ANALYZING", "DOWNLOADING", "TESTING", "UPDATING", "PKGSDONE", "CORRUPTED", "REBOOTING")
ENDLESS = 200  # seconds: behind all time-outs of a run
BUILT = PROJECT / "build" / "proof"
TOOLS = {"callstop.cpp": ["g++", "-std=c++20", "-O1", "-Wall", "-Wextra"],
         "outofmemory.c": ["gcc", "-shared", "-fPIC", "-O1", "-Wall", "-Wextra"]}


@dataclasses.dataclass(frozen=True)
class Scene:
    """One run: an update in two passes and the reboot, a test of it, or a check."""

    mode: str
    http: bool

    @property
    def name(self) -> str:
        return f"{self.mode}, {'HTTP' if self.http else 'file:'}"

    @property
    def arguments(self) -> str:
        return "--max-wait-time=-1" + {"update": "", "test": " --test", "check": " --check-only"}[self.mode]

    @property
    def outcome(self) -> list[str]:
        """What is installed when all went well."""
        return NEW_STATE if self.mode == "update" else OLD_STATE


SCENES = tuple(Scene(mode, http) for http in (False, True) for mode in ("update", "test"))
CHECKS = tuple(Scene("check", http) for http in (False, True))


@dataclasses.dataclass(frozen=True)
class Point:
    """What happens at which call: `doing`, `number` and `of` are those of callstop.cpp. Or "starve": the
    allocation `call` fails, and the `number` ones behind it."""

    doing: str
    number: int
    call: int
    of: int = -1


@dataclasses.dataclass(frozen=True)
class Verdict:
    """What came of a point."""

    point: Point
    kernel_number: int  # of the call; -1 if the run ended ahead of it
    code: int
    word: str  # on disk behind it; "" for none
    faults: tuple[str, ...]  # empty: all held


def build_tools() -> None:
    BUILT.mkdir(parents=True, exist_ok=True)
    for name, compiler in TOOLS.items():
        source, tool = Path(__file__).with_name(name), BUILT / name.partition(".")[0]
        if not tool.exists() or tool.stat().st_mtime < source.stat().st_mtime:
            draft = BUILT / f"{tool.name}.{os.getpid()}"
            subprocess.run([*compiler, "-o", str(draft), str(source)], check=True)
            draft.rename(tool)


class Bed:
    """Makes devices for a scene and runs points in them. The server of HTTP scenes lives as long as this."""

    def __init__(self, program: Path, scene: Scene) -> None:
        self.program = program
        self.scene = scene
        self._known: dict[str, tuple[list[str], list[str]]] = {}  # by state of the disk: what is installed, and
        # what is wrong with the runs behind it
        self._server: Device | None = None
        if scene.http:
            self._server = Device(program)
            self._server.publish(*NEW)
            webserver.start(self._server)

    def close(self) -> None:
        if self._server:
            self._server.close()

    @contextmanager
    def device(self) -> Iterator[Device]:
        """A fresh device with old packages; firmware and add-on wait for the second pass."""
        with Device(self.program) as device:
            device.import_key()
            set_up(device)
            if self._server:
                device.join(self._server)
                device.configure("http://localhost:8080/repo/", release="firmware", addons=["extra"])
            for name in TOOLS:
                shutil.copy(BUILT / name.partition(".")[0], device.path("/device"))
            device.besides("rpm", "cat /var/lib/updater/status >>/device/words")
            device.write("/device/words", "")
            yield device

    def calls(self) -> list[int]:
        """The kernel's numbers of all calls of an undisturbed run, in order."""
        with self.device() as device:
            code, _ = _run(device, self.scene, Point("list", 0, 0))
            if code != 0:
                raise RuntimeError(f"{self.scene.name} fails when nothing disturbs it")
            return [int(line) for line in device.read("/device/point").split()]

    def allocations(self) -> int:
        """How often an undisturbed run asks for memory."""
        with self.device() as device:
            _run(device, self.scene, Point("starve", 0, 0))
            return int(device.read("/device/point"))

    def judge(self, point: Point) -> Verdict:
        """Runs to a point, then as often as it takes to see what became of the device."""
        with self.device() as device:
            try:
                return self._judge(device, point)
            except TimeoutError as error:
                return Verdict(point, -1, -1, "?", (f"hangs: {error}",))

    def _judge(self, device: Device, point: Point) -> Verdict:
        code, log = _run(device, self.scene, point)
        word, faults = _word(device)
        met = ["-2"] if point.doing == "starve" else device.read("/device/point").split()
        disk = _disk(device)
        partial = _partial_files(device)
        if disk not in self._known:
            self._known[disk] = device.installed(), self._next(device, word)
        state, behind = self._known[disk]
        faults += [f"rpm was started with the status '{noted}'" for noted in device.read("/device/words").split()
                   if noted != ("TESTING" if self.scene.mode == "test" else "UPDATING")]
        faults += partial
        if word not in ("UPDATING", "CORRUPTED") and state not in (OLD_STATE, HALF_STATE, NEW_STATE):
            faults.append(f"the status is {word or 'absent'} and {state} are installed")
        if word == "CORRUPTED" and "rpm was interrupted" not in log:
            faults.append("CORRUPTED, but rpm was not interrupted")
        if met:
            faults += _told(point, code, log, state == self.scene.outcome)
        faults += behind
        return Verdict(point, int(met[0]) if met else -1, code, word, tuple(faults))

    def _next(self, device: Device, word: str) -> list[str]:
        """What the runs behind it do, and what is wrong with that."""
        for file in device.path("/device").glob("rules*"):
            file.write_text("")  # nobody notes or disturbs any more
        if word in ("UPDATING", "CORRUPTED"):
            ends = []
            for _ in range(2):
                ends.append((device.run(*self.scene.arguments.split()).returncode, device.status))
            return [] if ends == [(2, "CORRUPTED")] * 2 else [f"behind {word} the next runs end with {ends}"]
        faults = []
        if word == "REBOOTING":
            if (code := device.run(*self.scene.arguments.split()).returncode) != 1:
                faults.append(f"behind REBOOTING the next run ends with {code}")
            device.remove("/var/lib/updater/status")
        result = device.run(*self.scene.arguments.split())
        if result.returncode != 0 or device.installed() != self.scene.outcome:
            faults.append(f"the next run ends with {result.returncode}: {result.lines[-3:]}; "
                          f"installed are {device.installed()}")
        faults += [f"{file.name} stays in the cache" for file in device.path("/var/cache/updater").rglob("*.tmp")]
        return faults


def _run(device: Device, scene: Scene, point: Point) -> tuple[int, str]:
    if point.doing == "starve":
        before = (f"LD_PRELOAD=/device/outofmemory FAIL_AT={point.call} FAIL_MORE={point.number} "
                  "COUNT_TO=/device/point exec")
    else:
        before = f"exec /device/callstop {point.doing} {point.number} {point.call} {point.of} /device/point"
    result = device.shell(f"{before} /device/bin/updater {scene.arguments}", timeout=ENDLESS)
    return result.returncode, result.stderr


def _word(device: Device) -> tuple[str, list[str]]:
    """The word on disk, and what is wrong with the file."""
    file = device.path("/var/lib/updater/status")
    if not file.exists():
        return "", []
    content = file.read_text()
    word = content.removesuffix("\n")
    return word, [] if word in WORDS and content == word + "\n" else [f"the status file holds {content!r}"]


def _disk(device: Device) -> str:
    """A sum of all that a run finds on the disk."""
    sum = hashlib.sha256()
    for file in sorted(file for place in ("/var", "/run", "/opt") for file in device.path(place).rglob("*")):
        sum.update(f"{file.relative_to(device.directory)} {file.lstat().st_mode} ".encode())
        if file.is_file() and not file.is_symlink():
            sum.update(hashlib.sha256(file.read_bytes()).digest())
    return sum.hexdigest()


def _partial_files(device: Device) -> list[str]:
    """Files in the cache that bear a final name, but are not what was published under it."""
    published = {file.name: file for file in device.path("/srv/repo").rglob("*") if file.is_file()}

    def differs(file: Path) -> bool:
        return hashlib.sha1(file.read_bytes()).digest() != hashlib.sha1(published[file.name].read_bytes()).digest()

    return [f"{file.name} in the cache is not what was published"
            for file in device.path("/var/cache/updater").rglob("*") if file.name in published and differs(file)]


def _told(point: Point, code: int, log: str, complete: bool) -> list[str]:
    """Whether exit code and log tell what happened to the run."""
    told = re.search(r"^(ERROR|FATAL): ", log, re.MULTILINE)
    if code == 0:  # with a reboot under way for the first pass, the second one may have failed or not begun
        half = "rebooting for upgrades" in log and (told or "WARNING: not going on with the update" in log)
        return [] if complete or half else ["exit code 0, but something lacks"]
    if point.doing in ("fail", "short", "starve"):
        if re.search(r"^FATAL: .* in libgcrypt: ", log, re.MULTILINE):
            return []  # a library of rpm's that ends the process by itself, as it starts
        # Without memory librpm and popt end the process by themselves, and so does C++ ahead of our own handler.
        if point.doing == "starve" and re.search(
                r"^memory alloc|^virtual memory exhausted|bad_alloc|not enough memory|Cannot allocate memory", log, re.MULTILINE):
            return []
        if code >= 128:
            return [f"ended by signal {code - 128}"]
        return [] if told else ["nothing tells of the failure"]
    return [] if code in (1, 2, 128 + point.number) else [f"ended with {code}"]
