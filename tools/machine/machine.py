"""A machine in qemu's emulation, which needs no rights and nothing of the processor: its console, and
commands for it."""

import re
import socket
import subprocess
import threading
import time
from collections.abc import Callable, Sequence
from pathlib import Path

#: Without the last one the kernel waits a moment for its timer, and panics where the host is too busy for that.
PARAMETERS = "console=ttyS0 quiet loglevel=4 systemd.show_status=1 TERM=dumb no_timer_check"
ESCAPES = re.compile(r"\x1b(\[[0-9;?]*[A-Za-z]|[()].|[>=c78])|\r|^M$")


def drive(disk: Path) -> list[str]:
    """Options of qemu that make the image of a disk the first one of a machine."""
    return ["-drive", f"file={disk},format=raw,if=virtio"]


def command(kernel: tuple[Path, Path], drive: Sequence[str], *serial: str, parameters: str = PARAMETERS) -> list[str]:
    """qemu with these serial ports, the first of which is the console. The host's loopback is 10.0.2.2."""
    return ["qemu-system-x86_64", "-accel", "tcg,thread=multi", "-smp", "2", "-m", "512", "-display", "none", "-monitor", "none",
            *(option for port in serial for option in ("-serial", port)), "-kernel", str(kernel[0]), "-initrd", str(kernel[1]), "-append", parameters, *drive,
            "-netdev", "user,id=lan", "-device", "virtio-net-pci,netdev=lan,romfile=", "-device", "virtio-rng-pci"]


class Machine:
    """Runs until it powers itself off, or close(), or this process ends. Use it in "with"."""

    def __init__(self, kernel: tuple[Path, Path], drive: Sequence[str], show: Callable[[str], object]) -> None:
        """`show` gets each line of the console, from a thread."""
        self._show = show
        self._lines: list[str] = []
        self._seen = 0  # lines that wait_for() has passed
        self._news = threading.Condition()
        self._port, theirs = socket.socketpair()
        self._answers = self._port.makefile("r", errors="replace", newline="\n")
        with theirs:
            line = ["setpriv", "--pdeathsig", "KILL", *command(kernel, drive, "stdio", "chardev:host"),
                    "-chardev", f"socket,id=host,fd={theirs.fileno()}"]
            self._process = subprocess.Popen(line, pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL, text=True,
                                             errors="replace", stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def __enter__(self) -> "Machine":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Takes the power away, if it is still on."""
        self._process.kill()
        self._process.wait()
        self._reader.join()
        self._answers.close()
        self._port.close()

    def wait_for(self, text: str, timeout: float = 300) -> str:
        """Waits for a line with this text on the console, behind the one that was waited for last."""
        end = time.monotonic() + timeout
        with self._news:
            while True:
                while self._seen < len(self._lines):
                    self._seen += 1
                    if text in self._lines[self._seen - 1]:
                        return self._lines[self._seen - 1]
                if not self._reader.is_alive() or not self._news.wait(end - time.monotonic()):
                    raise TimeoutError(f"the console does not say: {text}")

    def wait_off(self, timeout: float = 300) -> None:
        """Waits until the machine has powered itself off."""
        self._process.wait(timeout)

    def wait_up(self, timeout: float = 300) -> None:
        """Waits until a start of the machine has come so far that run() works."""
        while self._answer(timeout)[1] != "ready":
            pass

    def run(self, command: str, timeout: float = 120) -> tuple[int, str]:
        """The exit code of a shell command, a single line, and what it printed. Only behind wait_up()."""
        self._port.sendall(command.encode() + b"\n")
        output, code = self._answer(timeout)
        return int(code), output

    def _answer(self, timeout: float) -> tuple[str, str]:
        """What comes up to the next mark, and what stands behind the mark."""
        self._port.settimeout(timeout)
        text = ""
        while True:
            line = self._answers.readline()
            if not line:
                raise EOFError(f"the machine went off: {text}")
            before, mark, behind = line.partition("\036")
            text += before
            if mark:
                return text, behind.strip()

    def _read(self) -> None:
        for line in self._process.stdout or ():
            line = ESCAPES.sub("", line).rstrip()
            if not line:
                continue
            with self._news:
                self._lines.append(line)
                self._news.notify_all()
            self._show(line)
        with self._news:
            self._news.notify_all()
