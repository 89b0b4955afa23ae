"""The power fails, or a child is killed: what is on disk then, and what the next run makes of it."""

import pytest
from scenes import HALF_STATE, NEW_STATE, OLD_STATE, set_up

CUT_OFF = ["FATAL: a previous update was interrupted; SYSTEM MAY BE CORRUPTED! Aborting", "INFO: --- EXIT FATAL ---"]
CORRUPTED = ["FATAL: system is corrupted cannot update", "INFO: --- EXIT FATAL ---"]


@pytest.mark.parametrize("call, when, status, refused", [
    ("hook init", "before", "", False),
    ("hook download", "before", "ANALYZING", False),
    ("hook update", "before", "DOWNLOADING", False),
    ("rpm -v -U", "before", "UPDATING", True),
    ("rpm -v -U", "in", "UPDATING", True),
    ("rpm -v -U", "behind", "UPDATING", True),
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


def test_power_cut_between_the_passes(device):
    set_up(device)
    device.cut_power_at("hook download", nth=2)
    assert (device.run().returncode, device.status, device.installed()) == (137, "ANALYZING", HALF_STATE)
    assert (device.run().returncode, device.installed()) == (0, NEW_STATE)


def test_power_cut_in_a_test_is_harmless(device):
    set_up(device)
    device.cut_power_at("rpm --test")
    assert (device.run("--test").returncode, device.status) == (137, "TESTING")
    assert (device.run("--test").returncode, device.installed()) == (0, OLD_STATE)


@pytest.mark.parametrize("call, arguments, lines, code, status", [
    ("rpm -v -U", [], ["ERROR: child 'rpm' terminated by signal 9",
                       "FATAL: rpm was interrupted, installation may be incomplete; SYSTEM MAY BE CORRUPTED",
                       "INFO: --- EXIT FATAL ---"], 2, "CORRUPTED"),
    ("rpm --test", ["--test"], ["ERROR: child 'rpm' terminated by signal 9",
                                "WARNING: rpm was interrupted while testing package(s) installation",
                                "INFO: --- EXIT ERROR ---"], 1, "READY"),
    ("hook update", [], ["ERROR: child '/usr/lib/updater/hook' terminated by signal 9",
                         "ERROR: hook was interrupted", "INFO: --- EXIT ERROR ---"], 1, "READY"),
    ("hook init", [], ["ERROR: child '/usr/lib/updater/hook' terminated by signal 9",
                       "ERROR: hook was interrupted", "INFO: --- EXIT ERROR ---"], 1, "READY"),
])
def test_a_child_is_killed(device, call, arguments, lines, code, status):
    set_up(device)
    device.answer(call, signal=9)
    result = device.run(*arguments)
    assert (result.lines[-3:], result.returncode, device.status) == (lines, code, status)


def test_a_fatal_second_pass_stops_the_reboot(device):
    set_up(device)
    device.answer("rpm -v -U", signal=9, inside=True, nth=2)
    assert (device.run().returncode, device.status) == (2, "CORRUPTED")
    assert not [call for call in device.calls if call.startswith(("telinit", "shutdown"))]


@pytest.mark.long
@pytest.mark.parametrize("stub, usual", [("/usr/lib/updater/hook", ""), ("/device/bin/rpm", 'exec /usr/bin/rpm "$@"')])
def test_a_daemon_stays_on_the_output(device, stub, usual):
    set_up(device)
    device.write(stub, f"#!/bin/sh\nsleep 100 &\necho $! >>/tmp/daemons\n{usual}\n", 0o755)
    result = device.shell("updater app; echo $?; kill $(cat /tmp/daemons) && echo still there", timeout=90)
    assert (result.stdout, device.installed(), device.status) == ("0\nstill there\n", HALF_STATE, "REBOOTING")
    assert f"WARNING: something that '{stub.removeprefix('/device/bin/')}' has started still holds its output open" in result.lines


@pytest.mark.parametrize("missing, code, status, line", [
    (["/usr/lib/updater/hook"], 1, "READY", "ERROR: hook failed (exit code 1)"),
    (["/device/bin/telinit"], 0, "REBOOTING", "WARNING: failed re-execing init (exit code 1)"),
    (["/device/bin/shutdown"], 0, "REBOOTING", "INFO: rebooting for upgrades to take full effect"),
    (["/device/bin/rpm"], 1, "READY", "ERROR: package installation FAILED (exit code 1)"),
])
def test_a_program_is_missing(device, missing, code, status, line):
    set_up(device)
    for path in missing:
        device.remove(path)
    result = device.run()
    assert line in result.lines
    assert (result.returncode, device.status) == (code, status)


def test_telinit_is_killed(device):
    set_up(device)
    device.answer("telinit", signal=15)
    result = device.run("app")
    assert result.lines[-3:-1] == ["ERROR: child 'telinit' terminated by signal 15", "WARNING: telinit was interrupted"]
    assert (result.returncode, device.status) == (0, "REBOOTING")
