"""A device that updates itself and is treated badly meanwhile, from one start to the next."""

import contextlib
import functools
import http.server
import shutil
import tempfile
import threading
from collections.abc import Callable, Iterator
from pathlib import Path

from device import packages, repository
from device.packages import Package

from . import image
from .machine import Machine, drive

OLD = (Package("app", "1-1"), Package("lib", "1-1"), Package("firmware", "1-1"), Package("maps", "1-1"))
NEW = (Package("app", "2-1", requires=("lib >= 2",)), Package("lib", "2-1"), Package("firmware", "2-1"), Package("maps", "2-1"))
MIDDLE = "in the middle of rpm"
SLOW = (("pre", f"echo {MIDDLE}; sleep 10"),)
CONFIGURATION = """<updater>
  <log level="info"><logger type="stderr"/></log>
  <product><name>Machine</name><packages>
    <release><package><name>firmware</name></package></release>
    <addons><package><name>maps</name></package></addons>
  </packages></product>
  <repository id="base"><name>Packages</name><location href="{uri}"/></repository>
</updater>
"""


class Quiet(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_: object) -> None:
        pass


@contextlib.contextmanager
def served(directory: Path) -> Iterator[int]:
    """A web server of this directory on a port of the loopback, its number."""
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Quiet, directory=directory)) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            yield server.server_port
        finally:
            server.shutdown()


class Scene:
    """A disk with OLD on it, a repository that offers NEW, and what came of both."""

    def __init__(self, package: Path, work: Path, show: Callable[[str], object]) -> None:
        """`package` is the Debian package of updater, `work` an empty directory, `show` gets the transcript."""
        self.kernel = image.kernel()
        self.disk = work / "disk"
        self.repository = work / "repository"
        self.show = show
        self.faults: list[str] = []
        shutil.copyfile(image.image(package, *OLD), self.disk)
        self.publish(*NEW)

    def publish(self, *offered: Package) -> None:
        repository.publish(self.repository, packages.build(*offered))

    def start(self) -> Machine:
        self.show("==== power on")
        return Machine(self.kernel, drive(self.disk), self.show)

    def ask(self, machine: Machine, command: str, expected: str | None = None) -> str:
        """What a command prints in the machine. Anything but what is expected is a fault."""
        _, output = machine.run(command)
        self.show(f"device# {command}")
        for line in output.splitlines():
            self.show(f"    {line}")
        if expected is not None and output.split() != expected.split():
            self.faults.append(f"{command}: {output!r} and not {expected!r}")
        return output

    def installed(self, machine: Machine, version: str, names: str) -> None:
        """All of these packages are of this version, and whole."""
        self.ask(machine, f"rpm -V {names} && rpm -q {names}", " ".join(f"{name}-{version}.noarch" for name in names.split()))


def _update(scene: Scene, machine: Machine) -> None:
    """The timer starts an update, updater the machine, the timer the next one."""
    scene.show("==== the timer starts the update")
    machine.wait_up()
    for line in ("--- 4 UPDATE(S) ---", "packages installed OK", "packages installed OK", "--- EXIT OK ---"):
        machine.wait_for(line)
    scene.ask(machine, "systemctl start updater-boot; cat /var/lib/updater/status", "REBOOTING")  # clears once a start
    scene.show("==== it reboots by itself, after a minute")
    machine.wait_up()
    machine.wait_for("the status is cleared")
    machine.wait_for("--- 0 UPDATE(S) ---")
    machine.wait_for("--- EXIT OK ---")
    scene.installed(machine, "2-1", "app lib firmware maps")
    scene.ask(machine, "cat /var/lib/updater/status", "READY")


def _start_slow_update(scene: Scene, machine: Machine, evr: str) -> None:
    scene.publish(Package("app", evr, scripts=SLOW), Package("lib", evr), *NEW[2:])
    scene.ask(machine, "systemctl restart updater.timer")
    machine.wait_for(MIDDLE)
    scene.ask(machine, "cat /var/lib/updater/status", "UPDATING")


def _shutdown(scene: Scene, machine: Machine) -> None:
    """The machine is told to power itself off in the middle of rpm. That is what it does, though updater
    asks for a reboot meanwhile."""
    scene.show("==== a shutdown in the middle of rpm waits")
    _start_slow_update(scene, machine, "3-1")
    scene.ask(machine, "systemd-inhibit --list --no-legend | grep -c 'updater.*shutdown:sleep'", "1")
    scene.ask(machine, "systemctl poweroff --no-block")
    machine.wait_for("packages installed OK")
    machine.wait_off()


def _behind_shutdown(scene: Scene, machine: Machine) -> None:
    machine.wait_up()
    machine.wait_for("--- 0 UPDATE(S) ---")
    machine.wait_for("--- EXIT OK ---")
    scene.installed(machine, "3-1", "app lib")
    scene.ask(machine, "cat /var/lib/updater/status", "READY")


def _power_cut(scene: Scene, machine: Machine) -> None:
    """The power fails in the middle of rpm: nothing can help, but it is told."""
    scene.show("==== the power fails in the middle of rpm")
    _start_slow_update(scene, machine, "4-1")


def _behind_power_cut(scene: Scene, machine: Machine) -> None:
    scene.show("==== the next run refuses to go on")
    machine.wait_up()
    machine.wait_for("a previous update was interrupted; SYSTEM MAY BE CORRUPTED! Aborting")
    machine.wait_for("--- EXIT FATAL ---")
    scene.ask(machine, "cat /var/lib/updater/status", "CORRUPTED")
    scene.ask(machine, "until systemctl show -P ExecMainStatus updater | grep -v 0; do sleep 1; done", "2")
    scene.ask(machine, f"grep -c '{MIDDLE}' /var/log/updater/updater.log", "2")  # that of 3-1, too
    scene.ask(machine, "tail -n 16 /var/log/updater/updater.log")
    scene.ask(machine, "systemctl poweroff --no-block")
    machine.wait_off()


def play(package: Path, show: Callable[[str], object]) -> list[str]:
    """Runs all of it. What was not as it should be."""
    with tempfile.TemporaryDirectory(prefix="machine-") as work:
        scene = Scene(package, Path(work), show)
        with served(scene.repository) as port:
            image.put(scene.disk, "/etc/updater.conf", CONFIGURATION.format(uri=f"http://10.0.2.2:{port}/"))
            with scene.start() as machine:
                _update(scene, machine)
                _shutdown(scene, machine)
            with scene.start() as machine:
                _behind_shutdown(scene, machine)
                _power_cut(scene, machine)
            with scene.start() as machine:
                _behind_power_cut(scene, machine)
        return scene.faults
