"""The road of one update, in each of its modes, with its exact lines, calls and status words."""

import re

import pytest
from device.device import Package
from scenes import (HALF_STATE, NEW_STATE, OLD, OLD_STATE, PASS_1, PASS_2, REBOOT, REPORT, head, set_up, wait_until)


def installing(number: int, names: list[str], output: list[str]) -> list[str]:
    return [f"INFO: starting update ({number} packages):", *(f"INFO: \t{name}.noarch.rpm" for name in names),
            "INFO: running download hook", f"INFO: downloading {number} packages",
            "INFO: verifying package signatures", "INFO: running update hook", "INFO: updating package(s)",
            "INFO: rpm output:", "INFO:   Verifying packages...", "INFO:   Preparing packages...",
            *(f"INFO:   {name}.noarch" for name in output), "INFO: packages installed OK"]


def test_two_passes_and_a_reboot(device):
    set_up(device)
    result = device.trace()
    assert result.lines == [
        *head("update"), *REPORT,
        "INFO: pass 1: all but add-ons", *installing(2, ["app-2-1", "lib-2-1"], ["lib-2-1", "app-2-1", "lib-1-1", "app-1-1"]),
        "INFO: pass 2: add-ons", *installing(2, ["extra-5-1", "firmware-2-1"], ["firmware-2-1", "extra-5-1", "firmware-1-1"]),
        "INFO: rebooting for upgrades to take full effect", "INFO: --- EXIT OK ---"]
    telinit, shutdown = REBOOT
    assert shutdown in result.events  # at any place behind telinit: it runs beside the program
    assert [event for event in result.events if event != shutdown] == [
        "hook init 1.1", "ANALYZING", "ANALYZING",
        "hook download 1.1", "DOWNLOADING", "hook update 1.1 2", "UPDATING", "fsync", PASS_1, "sync", "PKGSDONE", "fsync",
        "ANALYZING",
        "hook download 1.1", "DOWNLOADING", "hook update 1.1 2", "UPDATING", "fsync", PASS_2, "sync", "PKGSDONE", "fsync",
        "READY", telinit, "REBOOTING", "fsync"]
    assert (result.returncode, device.installed(), device.status) == (0, NEW_STATE, "REBOOTING")
    assert list(device.path("/var/cache/updater/base/packages").iterdir()) == []
    assert device.read("/var/log/updater/lastlog").splitlines() == result.lines


def test_a_remote_repository_is_asked_after_a_random_wait(device):
    set_up(device).configure("http://127.0.0.1:9/repo")
    waits = set()
    for _ in range(3):
        running = device.start("--max-wait-time", "1000000")
        wait_until(lambda: device.status == "DELAYING")
        running.signal(15)
        result = running.wait(5)
        waits.add(re.fullmatch(r"INFO: waiting (\d+) secs before connection", result.lines[4])[1])
        assert (result.returncode, result.lines[5:], device.status) == (143, [
            "ERROR: wait interrupted", "INFO: --- EXIT ERROR ---", "ERROR: terminated by signal #15: Terminated"], "READY")
    assert len(waits) == 3
    device.answer("hook init", to_updater="TERM")
    assert "ERROR: wait interrupted" in device.run("--max-wait-time", "1000000").lines  # the signal came first


@pytest.mark.parametrize("arguments, state, status, calls", [
    (["--check-only"], OLD_STATE, "READY", ["hook init 1.1"]),
    (["--test"], OLD_STATE, "READY",
     ["hook init 1.1", "hook download 1.1", "hook test 1.1 2", PASS_1.replace("-v", "--test"),
      "hook download 1.1", "hook test 1.1 4",  # nothing of pass 1 is installed
      "rpm --test -U app-2-1.noarch.rpm extra-5-1.noarch.rpm firmware-2-1.noarch.rpm lib-2-1.noarch.rpm"]),
    (["--no-reboot"], NEW_STATE, "READY",
     ["hook init 1.1", "hook download 1.1", "hook update 1.1 2", PASS_1, "hook download 1.1", "hook update 1.1 2", PASS_2]),
    (["app", "app"], HALF_STATE, "REBOOTING", ["hook init 1.1", "hook download 1.1", "hook update 1.1 2", PASS_1, *REBOOT]),
    (["extra", "unknown"], [*OLD_STATE[:2], "extra-5-1", *OLD_STATE[2:]], "REBOOTING",
     ["hook init 1.1", "hook download 1.1", "hook update 1.1 1", "rpm -v -U extra-5-1.noarch.rpm", *REBOOT]),
])
def test_modes_and_names(device, arguments, state, status, calls):
    set_up(device)
    result = device.run(*arguments)
    assert (result.returncode, device.installed(), device.status, device.calls) == (0, state, status, calls)
    mode = "check" if "--check-only" in arguments else "test" if "--test" in arguments else "update"
    assert (result.reports[0], result.reports[-1]) == (f"--- MODE {mode} ---", "--- EXIT OK ---")


def test_what_hook_and_rpm_are_left_with(device):
    """The standard streams (3 is the directory that ls reads), and packages of this pass only."""
    packages = "/var/cache/updater/base/packages"
    set_up(device).write(f"{packages}/stale.rpm", "")
    look = "#!/bin/sh\n/bin/ls /proc/self/fd >>/tmp/descriptors\n"
    device.write("/usr/lib/updater/hook", f"{look}[ $1 != download ] || /bin/ls {packages} >>/tmp/packages\n", 0o755)
    device.write("/device/bin/rpm", f'{look}exec /usr/bin/rpm "$@"\n', 0o755)
    assert device.run("--log-to", "/tmp/log").returncode == 0
    assert set(device.read("/tmp/descriptors").split()) == {"0", "1", "2", "3"}
    assert (device.read("/tmp/packages"), device.installed()) == ("", NEW_STATE)


def test_nothing_but_time_is_lost_without_room_for_the_compiled_metadata(device):
    set_up(device)
    result = device.shell("mount -t tmpfs -o size=8k none /var/cache/updater; updater -n -l debug; ls /var/cache/updater/base")
    assert "DEBUG: no room for compiled metadata" in result.stderr
    lines = [line for line in result.lines if not line.startswith("DEBUG: ")]
    assert (lines[-8:], result.stdout) == ([*REPORT, "INFO: --- EXIT OK ---"], "primary.xml.gz\nrepomd.xml\n")


def test_the_cache_serves_without_its_repository(device):
    set_up(device)
    assert device.run("--check-only").returncode == 0
    device.remove("/srv/repo/repodata/repomd.xml")
    assert device.run("--check-only", "--cache-only").lines == [*head("check"), *REPORT, "INFO: --- EXIT OK ---"]
    far = ("--repo-url", "base:http://127.0.0.1:9/repo", "--max-wait-time", "2")
    assert device.run("--check-only", "--cache-only", *far).lines[4:] == [*REPORT, "INFO: --- EXIT OK ---"]
    assert device.run("--check-only").lines[-4:] == [
        "ERROR: failed copying file (No such file or directory)",
        "ERROR: failed getting repository resource 'repodata/repomd.xml'",
        "ERROR: could not update repository data", "INFO: --- EXIT ERROR ---"]


def test_kept_packages_are_not_fetched_again(device):
    set_up(device)
    assert device.run("--test", "--no-cache-clean", "app").returncode == 0
    kept = device.path("/var/cache/updater/base/packages/app-2-1.noarch.rpm")
    assert kept.exists()
    device.remove("/srv/repo/app-2-1.noarch.rpm")
    assert device.run("--no-cache-clean", "app").returncode == 0
    assert (device.installed(), kept.exists()) == (HALF_STATE, True)


def test_conditions_are_left_to_rpm(device):
    device.install(OLD[0], Package("bystander", "1-1", requires=("(base-system or nothing)",)))
    device.publish(Package("app", "2-1", requires=("(bystander if base-system)",)))
    assert device.run().returncode == 0
    assert device.installed() == ["app-2-1", "base-system-1-1", "bystander-1-1"]
    device.publish(Package("app", "3-1", requires=("(nothing or nobody)",)))
    device.status = "READY"
    assert "\nERROR: package installation FAILED" in device.run().stderr
