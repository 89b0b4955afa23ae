"""The device keeps what it promises to the other tests. The program in it is a shell."""

import shutil
import signal
from pathlib import Path

import pytest
from conftest import PROJECT
from device.device import Device, Result, SanitizerError
from device.packages import Package, build, damaged

OLD = Package("app", "1-1"), Package("lib", "1-1")
NEW = Package("app", "2-1", requires=("lib >= 2",)), Package("lib", "2-1")
UPGRADE = "rpm -v -U /srv/repo/*.rpm"


@pytest.fixture
def shell(tmp_path):
    with Device(shutil.copy("/bin/bash", tmp_path / "updater")) as device:
        yield device


def test_nothing_of_the_host_can_be_written_or_seen(shell):
    mounts, mode = Path("/proc/self/mounts").read_text(), shell.directory.parent.stat().st_mode
    for path in ("/usr/x", "/usr/lib/x", "/bin/sh", "/device/bin/updater", "/proc/sys/vm/swappiness"):
        result = shell.shell(f"echo 1 2>/dev/null >>{path}")
        assert result.returncode != 0, path
    for place in (PROJECT, Path(__file__), shell.directory, "/mnt/etc", "/etc/shadow"):
        assert shell.shell(f"test -e {place}").returncode == 1, place
    assert shell.shell("echo 1 >/etc/x && touch /usr/lib/updater/x /opt/x").returncode == 0
    assert (shell.read("/etc/x"), Path("/etc/x").exists()) == ("1\n", False)
    shell.write("/opt/locked/x", "").parent.chmod(0)
    shell.close()
    assert not shell.directory.exists()
    shell.close()
    assert (Path("/proc/self/mounts").read_text(), shell.directory.parent.stat().st_mode) == (mounts, mode)


@pytest.mark.parametrize("when, installed", [
    ("before", ["app-1-1", "lib-1-1"]),
    ("in", ["app-1-1", "lib-1-1", "lib-2-1"]),
    ("behind", ["app-2-1", "lib-2-1"]),
])
def test_power_cut_ends_everything_at_the_named_call_only(shell, when, installed):
    shell.install(*OLD)
    shell.publish(*NEW)
    shell.cut_power_at("rpm -v -U", when, nth=2)
    script = f"rpm -v -U; (sleep 5; touch /tmp/alive) & {UPGRADE}; touch /tmp/alive"

    assert shell.shell(script).returncode == 137

    assert not shell.path("/tmp/alive").exists()
    assert shell.calls == ["rpm -v -U", "rpm -v -U app-2-1.noarch.rpm lib-2-1.noarch.rpm"]
    assert [name for name in shell.installed() if name != "base-system-1-1"] == installed


@pytest.mark.parametrize("rule, code, output, installed", [
    ({"exit": 0}, 0, "", "lib-1-1"),
    ({"exit": 3, "output": "no"}, 3, "no", "lib-1-1"),
    ({"signal": 9}, 137, "", "lib-1-1"),
    ({"signal": 9, "inside": True}, 137, "lib-2-1", "lib-2-1"),
    ({"to_updater": "KILL"}, 137, "", "lib-2-1"),
    ({"output": "also\n", "exit": 3, "nth": 2}, 0, "lib-2-1", "lib-2-1"),
])
def test_answers(shell, rule, code, output, installed):
    shell.install(*OLD)
    shell.publish(*NEW)
    shell.answer("rpm -v", **rule)
    result = shell.run("-c", f"{UPGRADE}; exit $?")
    assert result.returncode == code
    assert output in result.stdout
    assert installed in shell.installed()


def test_signals_reach_the_program_and_what_it_leaves_is_waited_for(shell):
    shell.hold_at("hook update")
    running = shell.start("-c", "trap 'exit 7' TERM; (/bin/sleep 0.3; shutdown now) & "
                                "/usr/lib/updater/hook update 1.1 3; exit 1")
    running.wait_for("hook update 1.1 3")
    running.signal(signal.SIGTERM)
    shell.release()
    assert running.wait().returncode == 7
    assert shell.calls == ["hook update 1.1 3", "shutdown now"]
    assert shell.run("-c", "kill -TERM $$") == Result(143, "", "")
    with pytest.raises(TimeoutError):
        shell.run("-c", "while :; do :; done", timeout=0.2)


def test_trace_tells_words_syncs_and_calls_in_order(shell):
    script = """PATH=$PATH:/bin; status=/var/lib/updater/status
        for word in READY UPDATING; do echo $word >$status.1; mv $status.1 $status; done; sync $status
        mv /missing $status; rpm --test -U; sync; echo READY >$status"""
    assert shell.trace("-c", script).events == ["READY", "UPDATING", "fsync", "rpm --test -U", "sync"]


def test_a_sanitizer_finding_is_never_missed(shell):
    with pytest.raises(SanitizerError, match="overflow"):
        shell.run("-c", "echo heap-buffer-overflow >/device/sanitizer.77; exit 0")
    with pytest.raises(SanitizerError, match="undefined"):
        shell.run("-c", "echo undefined >&2; exit 99")
    assert shell.run("-c", "exit 0").returncode == 0


def test_damaged_packages_are_damaged_as_told(shell, tmp_path):
    shell.import_key()
    good, = build(Package("app", "1-1"))
    shell.write("/srv/good.rpm", good.read_bytes())
    kinds = {"payload": "PAYLOAD", "cut": "PAYLOAD", "header": "HEADER", "signature": "BAD", "cut header": "",
             "text": "", "empty": ""}
    for kind in kinds:
        copy = damaged(good, kind, tmp_path / kind)
        shell.write(f"/srv/{kind}.rpm", copy.read_bytes())
    assert shell.shell("/usr/bin/rpm -K /srv/good.rpm").stdout == "/srv/good.rpm: digests signatures OK\n"
    for kind, wrong in kinds.items():
        result = shell.shell(f"/usr/bin/rpm -Kv '/srv/{kind}.rpm'")
        assert result.returncode != 0 and wrong in (result.stdout + result.stderr).upper(), (kind, result)
