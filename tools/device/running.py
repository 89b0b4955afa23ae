"""A run in the device: how it is followed while it lasts, and what it gave."""

import contextlib
import dataclasses
import os
import re
import subprocess
import time
from collections.abc import Iterable
from pathlib import Path

STATUS_FILE = "/var/lib/updater/status"
STUBS = "/device/bin/rpm|/device/bin/telinit|/device/bin/shutdown|/usr/lib/updater/hook"
AT = "(?:AT_FDCWD[^,]*, )?"
#: What reading below /proc/PID raises when the process ends just then: ahead of open() or behind it.
ENDED = (FileNotFoundError, ProcessLookupError)


class SanitizerError(AssertionError):
    """AddressSanitizer, LeakSanitizer, UndefinedBehaviorSanitizer or memcheck found something."""


@dataclasses.dataclass(frozen=True)
class Result:
    """What a run gave. The log goes to stderr."""

    returncode: int
    stdout: str
    stderr: str
    events: list[str] = dataclasses.field(default_factory=list)  # of trace() only

    @property
    def lines(self) -> list[str]:
        return self.stderr.splitlines()

    @property
    def reports(self) -> list[str]:
        """The report lines alone, with their dashes."""
        return [line.partition(": ")[2] for line in self.lines if ": --- " in line and line.endswith(" ---")]


class Running:
    """A run that was started and not waited for. `notes` is the directory in which stubs and
    sanitizers leave theirs."""

    def __init__(self, notes: Path, process: subprocess.Popen) -> None:
        self._notes = notes
        self._process = process
        self._first_call = len(self._calls())

    def _calls(self) -> list[str]:
        return (self._notes / "calls").read_text().splitlines()

    def wait(self, timeout: float = 60) -> Result:
        """Waits for the end of all that the run started. What outlives the timeout is killed."""
        try:
            stdout, stderr = self._process.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            self._process.kill()
            stdout, stderr = self._process.communicate()
            raise TimeoutError(f"still running after {timeout} seconds:\n{stderr}") from None
        self._check_sanitizers(stderr if self._process.returncode == 99 else "")
        return Result(self._process.returncode, stdout, stderr)

    def wait_for(self, call: str, timeout: float = 20) -> None:
        """Waits for a stub's call that begins like this."""
        end = time.monotonic() + timeout
        while not any(line.startswith(call) for line in self._calls()[self._first_call:]):
            if time.monotonic() > end or self._process.poll() is not None:
                raise TimeoutError(f"no call of '{call}'")
            time.sleep(0.005)

    def signal(self, number: int) -> None:
        """Sends a signal to the program itself (the first one, if there are several)."""
        os.kill(self._find(self._process.pid), number)

    # For servers

    @property
    def alive(self) -> bool:
        return self._process.poll() is None

    @property
    def inside(self) -> str:
        """The number of the first process in the namespaces of the run; "" if there is none."""
        children = Path(f"/proc/{self._process.pid}/task/{self._process.pid}/children")
        return children.read_text().strip() if self.alive else ""

    def listens(self, port: int) -> bool:
        """Whether anything listens on a TCP port in the network of the run."""
        with contextlib.suppress(*ENDED):
            tables = [Path(f"/proc/{self.inside or 'none'}/net/{name}").read_text() for name in ("tcp", "tcp6")]
            return any(re.search(rf":{port:04X} \w+:0000 0A ", table) for table in tables)
        return False

    def kill(self) -> None:
        """Ends all processes of the run at once, if it has not ended."""
        if self.alive:
            self._process.kill()
            self._process.communicate()

    def _find(self, parent: int) -> int:
        """The process called "updater" among the descendants of a process. Asks again for a while,
        as it may be about to be started."""
        end = time.monotonic() + 20
        while time.monotonic() < end:
            generation = [parent]
            with contextlib.suppress(*ENDED):
                while generation:
                    for pid in generation:
                        if Path(f"/proc/{pid}/comm").read_text() == "updater\n":
                            return pid
                    generation = [int(child) for pid in generation
                                  for child in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]
            time.sleep(0.005)
        raise TimeoutError("the program does not run")

    def _check_sanitizers(self, text: str) -> None:
        """Raises SanitizerError if there is a text or any process of the run has left a report."""
        for report in sorted(self._notes.glob("sanitizer.*")):
            lines = report.read_text(errors="replace").splitlines(keepends=True)
            text += "".join(line for line in lines if not line.startswith("--"))  # memcheck's talk of itself
            report.unlink()
        if text:
            raise SanitizerError(text)


def events_of(lines: Iterable[str]) -> list[str]:
    """The events of Device.trace() in the sorted lines of `strace -y -ttt`."""
    events: list[str] = []
    words: dict[str, str] = {}  # what was written to each temporary status file
    forced: set[str] = set()  # the files that were forced to disk
    for line in lines:
        call = line.partition(" ")[2]
        if written := re.match(r'write\(\d+<([^>]+)>, "(\w+)\\n", ', call):
            words[written[1]] = written[2]
        elif re.search(r"\) += 0$", call) is None:
            continue
        elif renamed := re.match(rf'rename\w*\({AT}"([^"]+)", {AT}"{STATUS_FILE}"', call):
            events.append(words.get(renamed[1], "?") + ("" if renamed[1] in forced else ", not on disk"))
            forced.clear()
        elif synced := re.match(r"f(?:data)?sync\(\d+<([^>]+)>", call):
            forced.add(synced[1])
            if synced[1] == os.path.dirname(STATUS_FILE) and STATUS_FILE in forced:
                events.append("fsync")
        elif call.startswith("sync("):
            events.append("sync")
        elif stub := re.match(rf'execve\("(?:{STUBS})", \[(.*?)\], ', call):
            words_of_call = re.findall(r'"([^"]*)"', stub[1])
            events.append(" ".join(word.rpartition("/")[2] for word in words_of_call))
    return events
