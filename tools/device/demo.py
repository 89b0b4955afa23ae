"""The road of one update, and how updater is itself updated, shown by running it: ./dev demo."""

import sys
import traceback

from . import scene, selfupdate
from .cache import PROJECT

BEGIN, END = "<!-- demo transcript -->\n", "<!-- end of demo transcript -->\n"
INSTALLED = "rpm -qa | grep -v gpg-pubkey | sort"
STEPS = (
    ("What is installed, and what the repository offers:",
     (INSTALLED, "ls /srv/repo", "cat /etc/updater.conf")),
    ("Is there anything to do?", ("updater --check-only --max-wait-time=-1",)),
    ("The update: two passes, the add-on and the release package come last.", ("updater --max-wait-time=-1; echo $?",)),
    ("What the server saw: the primary file once, and the index past all caches.",
     ("cut -d'|' -f2-6 /srv/nginx/access",)),
    ("What it left:", (INSTALLED, "cat /var/lib/updater/status")),
    ("What it called, in this order (the hook, telinit and shutdown are stand-ins here, rpm is real):",
     ("cat /device/calls",)),
    ("Until the device has come up again, nothing is touched:", ("updater; echo $?",)),
)
EXPECTED = {"firmware-2.0-1", "kiosk-2.0-1", "libkiosk-2.0-1", "libtouch-1.4-2", "maps-2026-1"}


def _show() -> tuple[str, list[str]]:
    """Runs it. What there was to see, and what is not as it should be."""
    with scene.made() as device:
        text = scene.shown(device, STEPS)
        installed, status, calls = set(device.installed()), device.status, device.calls
    faults = []
    if installed != EXPECTED | {"base-system-1-1"}:
        faults.append(f"installed are {sorted(installed)}")
    if status != "REBOOTING":
        faults.append(f"the status is {status}")
    if (passes := sum(call.startswith("rpm -v -U ") for call in calls)) != 2:
        faults.append(f"rpm was started {passes} times")
    if "shutdown -r +1 rebooting after upgrade" not in calls:
        faults.append("no reboot was asked for")
    return text, faults


def main() -> int:
    try:
        text, faults = _show()
        print(text, flush=True)
        print("=== A second device, on which updater itself is an installed package:\n", flush=True)
        more, more_faults = selfupdate.show()
        print(more, flush=True)
        faults += more_faults
    except Exception as error:  # whatever it is: the last line is to tell it
        traceback.print_exc()
        faults = [str(error).strip()]
    if faults:
        print("THE DEMO FAILED: " + "; ".join(faults), file=sys.stderr)
        return 1
    if "--transcript" in sys.argv:
        _into_readme(text)
    print(f"The demo went well: {len(EXPECTED)} packages went in, in two passes; the status is REBOOTING, "
          "and a reboot was asked for. On the second device updater was replaced by its own package, and the "
          "new one installed the rest.")
    return 0


def _into_readme(text: str) -> None:
    """Replaces what stands between the two marks in README.md."""
    readme = PROJECT / "README.md"
    head, begin, rest = readme.read_text(encoding="utf-8").partition(BEGIN)
    _, end, tail = rest.partition(END)
    if not begin or not end:
        sys.exit(f"README.md lacks the lines {BEGIN}{END}")
    readme.write_text(f"{head}{BEGIN}```console\n{text}```\n{END}{tail}", encoding="utf-8")


if __name__ == "__main__":
    sys.exit(main())
