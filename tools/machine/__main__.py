"""A real machine, in emulation, that updates itself: ./dev machine [--shell]."""

import subprocess
import sys
import tempfile
import time
import traceback
from pathlib import Path

from . import image, machine, scene


def _shell(package: Path) -> int:
    """A machine with updates waiting, and the user's terminal as its console. Nothing starts by itself."""
    with tempfile.TemporaryDirectory(prefix="machine-") as work:
        made = scene.Scene(package, Path(work), print)
        with scene.served(made.repository) as port:
            image.put(made.disk, "/etc/updater.conf", scene.CONFIGURATION.format(uri=f"http://10.0.2.2:{port}/"))
            print("The shell comes when the machine is up. \"systemctl start updater\" updates it, \"exit\" powers it off,\n"
                  "ctrl-a x takes the power away.\n", flush=True)
            return subprocess.call(machine.command(made.kernel, machine.drive(made.disk), "mon:stdio", "null",
                                                   parameters=machine.PARAMETERS + " shell systemd.mask=updater.timer"))


def main() -> int:
    if "--shell" in sys.argv:
        return _shell(image.package())
    start = time.monotonic()
    try:
        faults = scene.play(image.package(), lambda line: print(f"{time.monotonic() - start:6.1f}  {line}", flush=True))
    except Exception as error:  # whatever it is: the last line is to tell it
        traceback.print_exc()
        faults = [str(error).strip()]
    if faults:
        print("THE MACHINE FAILED: " + "; ".join(faults), file=sys.stderr)
        return 1
    print("The machine went well: it updated and rebooted itself, a shutdown waited for rpm, a power cut was told.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
