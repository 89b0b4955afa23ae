"""The process itself: background start, lock, no-run file, signals, log outputs, options."""

import socket
from pathlib import Path

import pytest
from device.device import Package
from scenes import HALF_STATE, NEW_STATE, OLD_STATE, set_up, wait_until


def test_background_start(device):
    set_up(device)
    result = device.shell("updater --background --log-to /tmp/log; echo code $?; "
                          "while [ ! -s /device/calls ] || ! grep -q EXIT /var/log/updater/lastlog; do sleep 0.05; done")
    parent = result.lines
    assert (parent[0], parent[1], parent[-1]) == (
        "INFO: --- MODE update ---", "INFO: updater switched to background", "INFO: --- EXIT OK ---")
    assert parent[2].startswith("INFO: --- BACKGROUND PID ") and len(parent) == 4
    assert "code 0" in result.stdout
    child = device.read("/var/log/updater/lastlog").splitlines()
    assert (child[1], child[-1]) == ("INFO: --- MODE update ---", "INFO: --- EXIT OK ---")
    assert device.read("/var/lock/updater") == f"{parent[2].split()[4]:>10}\n"
    assert (device.installed(), device.status) == (NEW_STATE, "REBOOTING")
    # The parent lets the file go before its last line, the child keeps it; they write side by side.
    assert sorted(device.read("/tmp/log").splitlines()) == sorted(parent[:3] + child)


def test_a_background_run_has_its_own_session_and_outlives_the_hangup_of_the_old_one(device):
    """The terminal goes away just when the child is about to leave its session."""
    set_up(device)
    device.write("/usr/lib/updater/hook", "#!/bin/sh\ncut -d' ' -f6 /proc/$PPID/stat >>/tmp/sessions\n", 0o755)
    hangup = "strace -f -o /tmp/trace -e trace=setsid -e inject=setsid:signal=HUP:when=1 updater --background"
    result = device.shell(hangup, ASAN_OPTIONS="detect_leaks=0")
    assert device.installed() == NEW_STATE
    assert "SIGHUP" in device.read("/tmp/trace")
    assert set(device.read("/tmp/sessions").split()) == {result.lines[2].split()[4]}


def test_a_background_start_leaves_the_installation_of_another_run_alone(device):
    set_up(device)
    device.hold_at("rpm -v -U")
    first = device.start()
    first.wait_for("rpm -v -U")
    second = device.run("--background", "--lock-timeout", "-1")
    assert (second.returncode, second.reports[0], device.status) == (0, "--- MODE update ---", "UPDATING")
    device.release()
    assert (first.wait().returncode, device.status) == (0, "REBOOTING")


def test_what_the_caller_has_set_up_for_itself(device):
    set_up(device)
    device.answer("hook init", to_updater="TERM", nth=1)
    result = device.shell("exec env --block-signal=TERM updater app --check-only", POSIXLY_CORRECT="1")
    assert (result.returncode, result.reports) == (143, ["--- MODE check ---", "--- EXIT ERROR ---"])
    assert device.shell("umask 0; updater").returncode == 0
    modes = {str(path): path.lstat().st_mode & 0o777 for place in ("/var/cache/updater", "/var/lib/updater", "/var/log/updater")
             for path in device.path(place).rglob("*")}
    assert len(modes) >= 5 and not [path for path, mode in modes.items() if mode & 0o022]
    assert {mode for path, mode in modes.items() if Path(path).is_dir()} == {0o700}


@pytest.mark.parametrize("closed", ["<&- >&- 2>&-", ">&- 2>&-"])
def test_closed_standard_streams_let_no_file_take_their_place(device, closed):
    set_up(device)
    assert device.shell(f"updater --check-only --log-to /tmp/log {closed}").returncode == 0
    assert device.read("/tmp/log") == device.read("/var/log/updater/lastlog")
    assert len(device.read("/var/lock/updater")) == 11


def test_caller_that_ignores_the_end_of_children(device):
    set_up(device)
    assert device.shell("env --ignore-signal=CHLD updater").returncode == 0
    assert (device.installed(), device.status) == (NEW_STATE, "REBOOTING")


def test_second_instance(device):
    set_up(device)
    first = device.start()
    device.hold_at("hook init")
    first.wait_for("hook init")
    refused = device.run("--lock-timeout", "-1")
    assert refused.lines == ["ERROR: failed acquiring lock file '/var/lock/updater' (Resource temporarily unavailable)",
                             "INFO: --- EXIT ERROR ---"]
    short = device.run("--lock-timeout", "1", "--quiet")
    assert short.lines == ["INFO: cache lock held by another instance, will timeout in 1 secs",
                           "ERROR: failed acquiring lock file '/var/lock/updater' (Resource temporarily unavailable)"]
    assert (refused.returncode, short.returncode, device.calls) == (1, 1, ["hook init 1.1"])

    device.write("/tmp/log", "")
    waiting = device.start("--lock-timeout", "30", "--log-to", "/tmp/log")
    wait_until(lambda: "lock held" in device.read("/tmp/log"))
    device.release()
    assert first.wait().returncode == 0
    second = waiting.wait()
    assert second.lines == ["INFO: cache lock held by another instance, will timeout in 30 secs",
                            "INFO: other instance terminated, got cache lock", *second.lines[2:4],
                            "INFO: machine is rebooting after update, cannot start", "INFO: --- EXIT ERROR ---"]
    assert device.installed() == NEW_STATE


def test_a_signal_ends_the_wait_for_the_lock(device):
    set_up(device)
    device.hold_at("hook init")
    first = device.start()
    first.wait_for("hook init")
    device.write("/tmp/log", "")
    second = device.start("--lock-timeout", "30", "--log-to", "/tmp/log")
    wait_until(lambda: "lock held" in device.read("/tmp/log"))
    second.signal(15)
    result = second.wait(5)
    assert (result.returncode, result.lines[-2:]) == (143, [
        "INFO: --- EXIT ERROR ---", "ERROR: terminated by signal #15: Terminated"])
    device.release()
    first.wait()


@pytest.mark.parametrize("call, number, code, status, state, last", [
    ("hook init", 15, 143, "READY", OLD_STATE, "ERROR: terminated by signal #15: Terminated"),
    ("hook download", 2, 130, "READY", OLD_STATE, "ERROR: terminated by signal #2: Interrupt"),
    ("hook download", 1, 0, "REBOOTING", NEW_STATE, "INFO: --- EXIT OK ---"),  # a hangup is ignored by now
    ("hook update", 3, 131, "READY", OLD_STATE, "ERROR: terminated by signal #3: Quit"),
    # rpm runs to its end, and the reboot that it made necessary comes.
    ("rpm -v -U", 15, 0, "REBOOTING", ["app-2-1", *OLD_STATE[1:3], "lib-2-1"], "INFO: --- EXIT OK ---"),
])
def test_a_signal_is_noted_and_acted_on_at_the_next_look(device, call, number, code, status, state, last):
    set_up(device)
    device.hold_at(call)
    running = device.start()
    running.wait_for(call)
    running.signal(number)
    device.release()
    result = running.wait()
    assert (result.returncode, device.status, device.installed(), result.lines[-1]) == (code, status, state, last)
    assert call != "rpm -v -U" or "INFO:   lib-2-1.noarch" in result.lines  # what it said behind the signal
    # A plan that was given up behind a pass that went well is told of, as the end does not do so.
    given_up = [line for line in result.lines if "not going on" in line]
    assert given_up == (["WARNING: not going on with the update because of signal #15: Terminated"]
                        if state not in (OLD_STATE, NEW_STATE) else [])


@pytest.mark.parametrize("call, script, code, status, state", [
    ("hook init", "kill 0", 143, "READY", OLD_STATE),
    ("hook download", "kill 0", 143, "READY", OLD_STATE),
    ("hook update", "kill 0", 143, "READY", OLD_STATE),
    ("rpm -v -U", "kill 0", 143, "CORRUPTED", OLD_STATE),  # nobody knows how far it came
    ("rpm -v -U", "echo 0 15 >/device/in-rpm", 143, "CORRUPTED", HALF_STATE),  # dies of it at the end of its transaction
    ("telinit", "kill 0", 0, "REBOOTING", NEW_STATE),
], ids=["init", "download", "update", "rpm", "in rpm", "telinit"])
def test_a_signal_to_the_group_meets_the_children_too(device, call, script, code, status, state):
    """As from a terminal. The children stay in the group, but for the reboot."""
    set_up(device).besides(call, script)
    result = device.shell("exec setsid updater")
    assert (result.returncode, device.status, device.installed()) == (code, status, state)
    assert ("shutdown -r +1 rebooting after upgrade" in device.calls) == (code == 0)


def test_a_no_run_file_comes_first(device):
    set_up(device).path("/var/run/updater.norun").symlink_to("nowhere")
    result = device.run("--background")
    assert result.lines == ["ERROR: running is disabled by \"no run\" file '/var/run/updater.norun'",
                            "INFO: --- EXIT ERROR ---"]
    assert (result.returncode, device.status, device.path("/var/lock/updater").exists()) == (1, "", False)


@pytest.mark.parametrize("arguments, line", [
    (["--bogus"], "updater: --bogus: unknown option"),
    (["--max-wait-time", "abc"], "updater: abc: invalid numeric value"),
    (["--repo", "none"], "ERROR: no repository with ID 'none'"),
    (["--repo-url", "base"], "ERROR: missing ':' in --repo-url option"),
    (["--conf-file", "/none"], "ERROR: failed parsing configuration file '/none'"),
    (["--conf-file="], "ERROR: could not open configuration file ''\nERROR: failed parsing configuration file ''"),
])
def test_a_bad_start_ends_without_an_exit_line(device, arguments, line):
    result = device.run(*arguments)
    lines = line.split("\n")
    assert (result.returncode, result.lines[-len(lines):]) == (1, lines)


def test_options_choose_repository_and_cache(device):
    device.install(Package("app", "1-1"))
    device.publish(Package("app", "2-1"), at="/srv/other")
    device.configure("file:///nowhere", extra="""
  <repository id="spare" enabled="no"><name>Spare</name><location href="/nowhere/either"/></repository>""")
    device.path("/srv/cache").mkdir()
    result = device.run("-nr", "spare", "--repo-url", "spare:file:///srv/other", "--cache-dir", "/srv/cache")
    assert result.lines[3] == "INFO: updating packages from repository 'Spare' (URI 'file:///srv/other')"
    assert "--- 1 UPDATE(S) ---" in result.reports
    assert device.path("/srv/cache/spare/repomd.xml").exists()


def test_syslog_and_a_file_that_is_appended_to(device):
    device.publish()
    device.configure(extra='<log><logger type="syslog"><facility>local3</facility></logger></log>')
    device.write("/tmp/log", "before\n")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        log.bind(str(device.path("/dev/log")))
        result = device.run("--log-to", "/tmp/log", "--log-level", "error")
        assert (result.returncode, result.lines) == (0, [])
        result = device.run("--log-to", "/tmp/log", "--check-only")
        log.settimeout(5)
        first = log.recv(1000).decode()
        device.status = "CORRUPTED"
        device.run()
        while "corrupted" not in (last := log.recv(1000).decode()):
            assert last.startswith("<158>")
    assert device.read("/tmp/log").splitlines() == ["before", *result.lines]
    assert first.startswith("<158>") and "updater[" in first and first.endswith(": updater version 1.1, product Demo")
    assert last.startswith("<154>")


def test_the_last_log_and_no_standard_error(device):
    device.publish()
    last = device.write("/var/log/updater/lastlog", "of the run before\n")
    result = device.run("--check-only", "--log-level", "debug")
    assert last.read_text().splitlines() == [line for line in result.lines if not line.startswith("DEBUG: ")] != result.lines
    device.write("/etc/updater.conf", device.read("/etc/updater.conf").replace('"stderr"/>', '"syslog"><facility>user</facility></logger>'))
    assert device.run("--check-only", "--log-to", "/tmp/log").lines == []
    assert device.read("/tmp/log") == last.read_text() != ""
