"""Passes that fail: the last attempt at the `updater` package alone."""

import pytest
from device.device import Package
from scenes import NEW, OLD, REBOOT, head, set_up

UPDATERS = Package("updater", "1.1-1"), Package("updater", "1.2-1")
FALL_BACK = ["ERROR: failed updating, will try updating updater only", "INFO: --- RETRY UPDATER ONLY ---"]


@pytest.fixture
def with_updater(device):
    set_up(device)
    device.install(UPDATERS[0])
    device.publish(*NEW, UPDATERS[1])
    return device


def test_a_new_firmware_brings_its_updater_along_in_silence(with_updater):
    assert with_updater.run("--check-only").reports[1:-1] == ["--- 5 UPDATE(S) ---", "--- FIRMWARE 2-1 ---"]


def test_a_failed_check_installs_the_updater_alone(device):
    device.install(OLD[0], UPDATERS[0])
    device.publish(Package("app", "2-1", requires=("nowhere > 3", "updater-running >= 1.2", "(no or never)")), UPDATERS[1])
    result = device.run()
    assert result.lines[4:10] == [
        "ERROR: unsatisfied non-file dependencies:", "ERROR: \tnowhere > 0:3",
        "ERROR: \tupdater-running >= 0:1.2", "ERROR: cannot update", *FALL_BACK]
    assert result.reports == ["--- MODE update ---", "--- RETRY UPDATER ONLY ---", "--- 1 UPDATE(S) ---",
                              "--- UPDATER 1.2-1 ---", "--- EXIT OK ---"]
    assert device.installed() == ["app-1-1", "base-system-1-1", "updater-1.2-1"]
    assert device.calls[-3:] == ["rpm -v -U updater-1.2-1.noarch.rpm", *REBOOT]


def test_a_newer_updater_is_required(device):
    device.install(OLD[0], Package("running", "1-1", provides=("updater-running = 1.2",)))
    device.publish(Package("app", "2-1", requires=("updater-running >= 1.2",)))
    result = device.run("--check-only")
    assert result.lines == [*head("check"), "ERROR: newer updater required to install: updater-running >= 0:1.2",
                            *FALL_BACK, "INFO: --- 0 UPDATE(S) ---", "INFO: no updates", "INFO: --- EXIT ERROR ---"]
    assert result.returncode == 1


@pytest.mark.parametrize("call, nth, line", [
    ("hook download", None, "ERROR: hook failed (exit code 3)"),
    ("hook update", 1, "ERROR: hook failed (exit code 3)"),
    ("rpm -v -U", 1, "ERROR: package installation FAILED (exit code 3)"),
])
def test_what_a_newer_updater_may_mend(with_updater, call, nth, line):
    device = with_updater
    device.answer(call, exit=3, nth=nth)
    result = device.run()
    lines = result.lines
    assert lines[lines.index(line) + 1:][:2] == FALL_BACK
    if nth:
        assert "updater-1.2-1" in device.installed()
        assert (result.returncode, device.status) == (0, "REBOOTING")
    else:  # fails in the retry as well
        assert lines.count(line) == 2
        assert (result.returncode, device.status, result.reports[-1]) == (1, "READY", "--- EXIT ERROR ---")


def test_a_failed_second_pass_still_reboots_for_the_first(device):
    set_up(device)
    device.answer("rpm -v -U", exit=1, nth=2)
    result = device.run()
    assert result.lines.count(FALL_BACK[0]) == 1
    assert "INFO: --- 0 UPDATE(S) ---" in result.lines
    assert (result.returncode, device.status, device.calls[-2:]) == (0, "REBOOTING", REBOOT)
