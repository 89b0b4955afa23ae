"""The device keeps what it promises to the other tests. The program in it is a shell."""

import shutil
from pathlib import Path

import pytest
from conftest import PROJECT
from device.device import Device, SanitizerError
from device.packages import Package

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
        assert shell.shell(f"test -e '{place}'").returncode == 1, place
    assert shell.shell("echo 1 >/etc/x && touch /usr/lib/updater/x /opt/x").returncode == 0
    assert (shell.read("/etc/x"), Path("/etc/x").exists()) == ("1\n", False)
    shell.write("/opt/locked/x", "").parent.chmod(0)
    left = shell.start("-c", "telinit u; sleep 100", PATH="/device/bin:/usr/bin")
    left.wait_for("telinit u")
    shell.close()
    assert (shell.directory.exists(), left.alive) == (False, False)
    shell.close()
    assert (Path("/proc/self/mounts").read_text(), shell.directory.parent.stat().st_mode) == (mounts, mode)


@pytest.mark.parametrize("when, installed", [
    ("before", ["app-1-1", "lib-1-1"]), ("in", ["app-1-1", "lib-1-1", "lib-2-1"]), ("behind", ["app-2-1", "lib-2-1"])])
def test_power_cut_ends_everything_at_the_named_call_only(shell, when, installed):
    shell.install(*OLD)
    shell.publish(*NEW)
    shell.cut_power_at("rpm -v -U", when, nth=2)
    assert shell.shell(f"rpm -v -U; (sleep 5; touch /tmp/alive) & {UPGRADE}; touch /tmp/alive").returncode == 137
    assert not shell.path("/tmp/alive").exists()
    assert shell.calls == ["rpm -v -U", "rpm -v -U app-2-1.noarch.rpm lib-2-1.noarch.rpm"]
    assert [name for name in shell.installed() if name != "base-system-1-1"] == installed


@pytest.mark.parametrize("rule, code, output, installed", [
    ({"signal": 9, "inside": True}, 137, "lib-2-1", "lib-2-1"),
    ({"to_updater": "KILL"}, 137, "", "lib-2-1"),
    ({"output": "also\n", "exit": 3, "nth": 2}, 0, "lib-2-1", "lib-2-1"),
])
def test_answers(shell, rule, code, output, installed):
    shell.install(*OLD)
    shell.publish(*NEW)
    shell.answer("rpm -v", **rule)
    result = shell.run("-c", f"{UPGRADE}; exit $?")
    assert (result.returncode, output in result.stdout, installed in shell.installed()) == (code, True, True)


def test_a_sanitizer_finding_is_never_missed(shell):
    for script in ("echo overflow >/device/sanitizer.77; exit 0", "echo overflow >&2; exit 99"):
        with pytest.raises(SanitizerError, match="overflow"):
            shell.run("-c", script)
    assert shell.run("-c", "exit 0").returncode == 0
