"""The power fails, or a child is killed: what is on disk then, and what the next run makes of it."""

import pytest
from scenes import HALF_STATE, NEW_STATE, OLD_STATE, set_up

CUT_OFF = ["FATAL: a previous update was interrupted; SYSTEM MAY BE CORRUPTED! Aborting", "INFO: --- EXIT FATAL ---"]
CORRUPTED = ["FATAL: system is corrupted cannot update", "INFO: --- EXIT FATAL ---"]


@pytest.mark.parametrize("call, when, status, refused", [
    ("hook init", "before", "", False),
    ("hook update", "before", "DOWNLOADING", False),
    ("rpm -v -U", "in", "UPDATING", True),
    ("telinit", "before", "READY", False),
])
def test_next_run_refuses_only_a_cut_installation(device, call, when, status, refused):
    set_up(device)
    device.cut_power_at(call, when)
    assert (device.run().returncode, device.status) == (137, status)
    calls, state = device.calls, device.installed()

    result = device.run()

    if refused:
        assert (result.returncode, result.lines[-2:]) == (2, CUT_OFF)
        assert (device.calls, device.installed(), device.status) == (calls, state, "CORRUPTED")
        again = device.run("--background")  # reported by the process that was started
        assert (again.returncode, again.lines) == (2, [
            CORRUPTED[0], "ERROR: cannot recover status, aborting", CORRUPTED[1]])
    else:
        assert (result.returncode, device.installed()) == (0, NEW_STATE)


@pytest.mark.parametrize("call, nth, arguments, line, code, status", [
    ("rpm -v -U", 2, [], "FATAL: rpm was interrupted, installation may be incomplete; SYSTEM MAY BE CORRUPTED", 2, "CORRUPTED"),
    ("rpm --test", 1, ["--test"], "WARNING: rpm was interrupted while testing package(s) installation", 1, "READY"),
    ("hook update", 1, [], "ERROR: hook was interrupted", 1, "READY"),
    ("hook init", 1, [], "ERROR: hook was interrupted", 1, "READY"),
    ("telinit", 1, ["app"], "WARNING: telinit was interrupted", 0, "REBOOTING"),
])
def test_a_child_is_killed(device, call, nth, arguments, line, code, status):
    """A pass that is cut off takes the reboot for the one before with it."""
    set_up(device)
    device.answer(call, signal=9, nth=nth)
    result = device.run(*arguments)
    child = "/usr/lib/updater/hook" if call.startswith("hook") else call.split()[0]
    assert result.lines[-3:-1] == [f"ERROR: child '{child}' terminated by signal 9", line]
    assert (result.returncode, device.status) == (code, status)
    assert any(called.startswith("shutdown") for called in device.calls) == (status == "REBOOTING")


@pytest.mark.long
@pytest.mark.parametrize("stub, usual", [("/usr/lib/updater/hook", ""), ("/device/bin/rpm", 'exec /usr/bin/rpm "$@"')])
def test_a_daemon_stays_on_the_output(device, stub, usual):
    set_up(device)
    device.write(stub, f"#!/bin/sh\nsleep 100 &\necho $! >>/tmp/daemons\n{usual}\n", 0o755)
    result = device.shell("updater app; echo $?; kill $(cat /tmp/daemons) && echo still there", timeout=90)
    assert (result.stdout, device.installed(), device.status) == ("0\nstill there\n", HALF_STATE, "REBOOTING")
    assert f"WARNING: something that '{stub.removeprefix('/device/bin/')}' has started still holds its output open" in result.lines


@pytest.mark.parametrize("missing, code, status, line", [
    ("/usr/lib/updater/hook", 1, "READY", "ERROR: hook failed (exit code 1)"),
    ("/device/bin/telinit", 0, "REBOOTING", "WARNING: failed re-execing init (exit code 1)"),
    ("/device/bin/shutdown", 0, "REBOOTING", "INFO: rebooting for upgrades to take full effect"),
])
def test_a_program_is_missing(device, missing, code, status, line):
    set_up(device).remove(missing)
    result = device.run()
    assert line in result.lines
    assert (result.returncode, device.status) == (code, status)
