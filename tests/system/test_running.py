"""What starts updater on a device, and what clears the way for it: the files of dist/, where they belong."""

import re
import shutil

import pytest
from conftest import PROJECT
from scenes import HALF_STATE, NEW_STATE, set_up

DIST = PROJECT / "dist"
UNITS = sorted(unit.name for unit in (DIST / "systemd").iterdir())
CLEARED = ["REBOOTING\n", "REBOOTING", " \n\t\v\f\rREBOOTING\rCORRUPTED\n", "REBOOTING * \\\n"]
KEPT = ["READY\n", "CORRUPTED\n", "rebooting\n", "REBOOTINGS\n", "xREBOOTING\n", "READY REBOOTING\n", "*\n", "REBOOTING" * 4,
        "REB\0OOTING", "REBOOTING\0", "", "\n \n", "x" * 5000 + " REBOOTING"]


def install(device, path, at):
    """Puts a file of dist/ into the device's /usr."""
    return device.write(f"/device/layer/{at}", (DIST / path).read_bytes(), (DIST / path).stat().st_mode & 0o777)


@pytest.mark.parametrize("shell", [shell for shell in ("/usr/bin/dash", "/usr/bin/busybox sh") if shutil.which(shell.split()[0])])
def test_only_the_word_rebooting_is_cleared(device, shell):
    install(device, "clear-rebooting", "libexec/updater/clear-rebooting")
    clear, status = f"{shell} /usr/libexec/updater/clear-rebooting", "/var/lib/updater/status"
    for number, content in enumerate(CLEARED + KEPT):
        device.write(f"/tmp/cases/{number:02}", content)
    device.write("/tmp/here/REBOOTING", "")  # what the word "*" would become
    result = device.shell(f"""cd /tmp/here; for case in $(ls /tmp/cases); do
        cp /tmp/cases/$case {status}; {clear} >/dev/null || echo failed
        cmp -s /tmp/cases/$case {status} || echo $case; done""")
    assert (result.stdout.split(), result.stderr) == ([f"{number:02}" for number in range(len(CLEARED))], "")

    result = device.shell(f"""set -e; rm -f {status}; {clear}; mkfifo {status}; {clear}; [ -p {status} ]; rm {status}
        mkdir {status}; {clear}; [ -d {status} ]; rmdir {status}; ln -s /nowhere {status}; {clear}; [ -L {status} ]
        ln -sf /tmp/cases/00 {status}; {clear}; [ ! -L {status} ]; cat /tmp/cases/00; ls /var/lib/updater""")
    assert (result.returncode, result.stdout.splitlines()[1:], result.stderr) == (0, ["REBOOTING"], "")


def test_the_init_script_clears_at_a_start_only(device):
    install(device, "clear-rebooting", "libexec/updater/clear-rebooting")
    device.write("/tmp/init", (DIST / "init/updater-boot").read_bytes(), 0o755)
    device.status = "REBOOTING"
    for word, code in (("stop", 0), ("restart", 0), ("force-reload", 0), ("status", 0), ("", 3)):
        assert (device.shell(f"/tmp/init {word}").returncode, device.status) == (code, "REBOOTING")
    assert (device.shell("/tmp/init start").returncode, device.status) == (0, "")


def test_the_init_script_waits_for_rpm_at_a_shutdown(device):
    """updater is told to end: rpm installs the first pass, there is no second one."""
    set_up(device)
    device.write("/tmp/init", (DIST / "init/updater-boot").read_text().replace("/usr/sbin/updater", "/device/bin/updater"), 0o755)
    device.hold_at("rpm -v -U")
    result = device.shell("""updater --no-reboot 2>/dev/null & until grep -q UPDATING /var/lib/updater/status; do sleep 0.1; done
        (sleep 1; touch /device/go) & /tmp/init stop; cat /var/lib/updater/status""")
    assert (result.stdout, device.installed()) == ("waiting for updater\nREADY\n", HALF_STATE)


@pytest.mark.parametrize("status, run, state, scheduled, reboots", [
    ("REBOOTING", "success", "running", "", True), ("REBOOTING", "success", "degraded", "", True),
    ("REBOOTING", "success", "running", "5", False), ("REBOOTING", "success", "stopping", "", False),
    ("REBOOTING", "exit-code", "running", "", False), ("READY", "success", "running", "", False)])
def test_a_reboot_that_nobody_scheduled_is_made(device, status, run, state, scheduled, reboots):
    """`scheduled`: the second in which shutdown does it."""
    script = install(device, "ensure-reboot", "libexec/updater/ensure-reboot")
    device.status = status
    device.write("/device/bin/systemctl", f"""#!/bin/sh
        [ $1 = is-system-running ] || exec echo "$*"
        echo {state}; [ {state} = running ]""", 0o755)
    device.write("/device/bin/sleep", f"""#!/bin/sh
        echo >>/tmp/seconds; mkdir -p /run/systemd/shutdown
        [ "$(wc -l </tmp/seconds)" != "{scheduled}" ] || touch /run/systemd/shutdown/scheduled""", 0o755)
    result = device.shell(f"/usr/libexec/updater/{script.name}", SERVICE_RESULT=run)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.splitlines()[1:] == ["--no-block --ignore-inhibitors reboot"] * reboots


def test_the_example_hook_lets_every_pass_through(device):
    set_up(device)
    device.write("/usr/lib/updater/hook", (DIST / "examples/hook").read_bytes(), 0o755)
    assert (device.run("--test").returncode, device.run().returncode, device.installed()) == (0, 0, NEW_STATE)
    assert device.shell("/usr/lib/updater/hook of-tomorrow 9.9").returncode == 0


def test_cron_starts_it_where_systemd_does_not(device):
    """The command of the line is run as cron would, with the wait cut to nothing."""
    text = (DIST / "cron/updater").read_text()
    command = re.search(r"^[\d*/]+(?: [\d*/,-]+){4} root (.*)$", text, re.MULTILINE)[1]
    assert "%" not in command  # which cron takes for a newline
    path = "/device/bin:" + re.search("^PATH=(.*)$", text, re.MULTILINE)[1]
    command = command.replace("/usr/sbin/updater", "/device/bin/updater").replace("=7200", "=-1")
    for hindrance, undo in (("mkdir -p /run/systemd/system", "rmdir /run/systemd/system"),
                            ("chmod 644 /usr/lib/updater/hook", "chmod 755 /usr/lib/updater/hook"),
                            ("mv /etc/updater.conf /tmp", "mv /tmp/updater.conf /etc")):
        assert device.shell(f"PATH={path}; {hindrance} && {{ {command}; }} && {undo}").returncode == 0
        assert (device.calls, device.path("/var/log/updater/updater.log").exists()) == ([], False), hindrance
    set_up(device)
    assert device.shell(f"PATH={path}; {command}").returncode == 0
    assert (device.calls[-1], device.installed()) == ("shutdown -r +1 rebooting after upgrade", NEW_STATE)
    assert "INFO: --- EXIT OK ---\n" in device.read("/var/log/updater/updater.log")


@pytest.mark.long
def test_the_system_takes_the_files(device):
    """By its own judges: systemd-analyze, systemd-tmpfiles, logrotate."""
    for unit in UNITS:
        install(device, f"systemd/{unit}", f"lib/systemd/system/{unit}")
    for script in ("clear-rebooting", "ensure-reboot"):
        install(device, script, f"libexec/updater/{script}")
    install(device, "tmpfiles/updater.conf", "lib/tmpfiles.d/updater.conf")
    device.write("/device/layer/sbin/updater", "", 0o755)
    device.write("/etc/logrotate.d/updater", (DIST / "logrotate/updater").read_bytes())
    result = device.shell(f"""systemd-analyze verify --man=no {" ".join(UNITS)} || echo refused
        rmdir /var/lib/updater /var/log/updater /var/cache/updater
        systemd-tmpfiles --create --prefix=/var /usr/lib/tmpfiles.d/updater.conf
        stat -c '%a %U' /var/lib/updater /var/log/updater /var/cache/updater
        head -c 2000000 /dev/zero >/var/log/updater/updater.log
        logrotate --state /tmp/state /etc/logrotate.d/updater; ls /var/log/updater""")
    assert (result.stdout, result.stderr) == ("755 root\n" * 3 + "updater.log.1\n", "")
