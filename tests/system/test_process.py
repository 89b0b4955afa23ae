"""The process itself: background start, lock, no-run file, signals, log outputs, options."""

import socket
from pathlib import Path

import pytest
from device.device import Package
from scenes import NEW_STATE, OLD_STATE, set_up, wait_until


def test_background_start(device):
    set_up(device).write("/var/lock/updater", "a longer text of some earlier program\n")
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


def test_what_the_caller_has_set_up_for_itself(device):
    set_up(device)
    device.answer("hook init", to_updater="TERM", nth=1)
    result = device.shell("exec env --block-signal=TERM updater app --check-only", POSIXLY_CORRECT="1")
    assert (result.returncode, result.reports) == (143, ["--- MODE check ---", "--- EXIT ERROR ---"])
    assert device.shell("umask 0; env --ignore-signal=CHLD updater").returncode == 0
    assert (device.installed(), device.status) == (NEW_STATE, "REBOOTING")
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


def test_second_instance(device):
    """It waits for the first one, or does not, and leaves the word of its installation alone."""
    set_up(device)
    device.hold_at("rpm -v -U")
    first = device.start()
    first.wait_for("rpm -v -U")
    refused = device.run("--lock-timeout", "-1")
    assert refused.lines == ["ERROR: failed acquiring lock file '/var/lock/updater' (Resource temporarily unavailable)",
                             "INFO: --- EXIT ERROR ---"]
    short = device.run("--lock-timeout", "1", "--quiet")
    assert short.lines == ["INFO: cache lock held by another instance, will timeout in 1 secs", refused.lines[0]]
    behind = device.run("--background", "--lock-timeout", "-1")
    assert (refused.returncode, short.returncode, behind.returncode, device.status) == (1, 1, 0, "UPDATING")

    device.write("/tmp/log", "")
    ended, waiting = (device.start("--lock-timeout", "30", "--log-to", "/tmp/log") for _ in range(2))
    wait_until(lambda: device.read("/tmp/log").count("lock held") == 2)
    ended.signal(15)
    result = ended.wait(5)
    assert (result.returncode, result.lines[-2:]) == (143, [
        "INFO: --- EXIT ERROR ---", "ERROR: terminated by signal #15: Terminated"])
    device.release()
    assert first.wait().returncode == 0
    second = waiting.wait()
    assert second.lines == ["INFO: cache lock held by another instance, will timeout in 30 secs",
                            "INFO: other instance terminated, got cache lock", *second.lines[2:4],
                            "INFO: machine is rebooting after update, cannot start", "INFO: --- EXIT ERROR ---"]
    assert device.installed() == NEW_STATE


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


def test_a_signal_to_the_group_meets_the_children_too(device):
    """As from a terminal: rpm dies of it, and nobody knows how far it came."""
    set_up(device).besides("rpm -v -U", "kill 0")
    assert (device.shell("exec setsid updater").returncode, device.status) == (143, "CORRUPTED")


def test_a_no_run_file_comes_first(device):
    set_up(device).path("/var/run/updater.norun").symlink_to("nowhere")
    result = device.run("--background")
    assert result.lines == ["ERROR: running is disabled by \"no run\" file '/var/run/updater.norun'",
                            "INFO: --- EXIT ERROR ---"]
    assert (result.returncode, device.status, device.path("/var/lock/updater").exists()) == (1, "", False)


@pytest.mark.parametrize("arguments, line", [
    (["--max-wait-time", "abc"], "updater: abc: invalid numeric value"),
    (["--repo", "none"], "ERROR: no repository with ID 'none'"),
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
