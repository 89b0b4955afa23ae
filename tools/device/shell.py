"""A device to try the program by hand: ./dev shell."""

import subprocess
import sys

from . import scene

WELCOME = r"""
A private device with four old packages, and newer ones at http://localhost:8080/repo/.
A run waits up to 600 seconds before it connects, unless --max-wait-time=-1 says otherwise. Try:

    updater -n --max-wait-time=-1   cat /var/lib/updater/status     rpm -qa
    updater --max-wait-time=-1      cat /device/calls               less /var/log/updater/lastlog

rpm is real, telinit, shutdown and the hook only note their calls. Nothing of the host can be
written; all is gone when you leave ("exit").
"""


def main() -> int:
    with scene.made() as device:
        device.write("/root/.bashrc", f"cat <<'END'\n{WELCOME}\nEND\nPS1='device:\\w# '\ncd /root\n")
        command, environment = device.command("/bin/bash", "-i")
        environment["PATH"] = "/device/bin:/usr/sbin:/usr/bin"
        return subprocess.call(command, env=environment)


if __name__ == "__main__":
    sys.exit(main())
