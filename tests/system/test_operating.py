"""The ways out of the operator's guide, run as they stand there."""

import shutil
import sqlite3

import guides
import pytest
from conftest import PROJECT
from device import keys, webserver
from device.device import Package
from device.packages import BASE, build
from scenes import NEW, NEW_STATE, OLD_STATE, edit_primary, set_up

BLOCKS = guides.blocks("docs/operating.md")


def follow(device, *headings) -> str:
    """Types the commands under these headings. Each must succeed, as `set -e` understands it."""
    result = device.shell("".join(f"(set -e\n{BLOCKS[heading]}) || exit 1\n" for heading in headings))
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def assert_sound(device, state):
    """The device comes up again, and all is installed, once, and unharmed."""
    device.path("/var/lib/updater/status").unlink(missing_ok=True)
    result = device.run(*RUN)
    assert (result.returncode, device.status, device.installed()) == (0, "READY", state)
    assert "--- 0 UPDATE(S) ---" in result.reports
    assert device.shell("rpm -Va").stdout == ""


def script(name):
    """Notes the calls of a package's scripts; each does what a file named after it says, once."""
    return tuple((section, f"echo {name} {section} >>/tmp/scripts; file=/tmp/at.{name}.{section}; "
                           f"[ ! -e $file ] || {{ mv $file /tmp/at; . /tmp/at; }}")
                 for section in ("pre", "post", "preun", "postun", "posttrans"))


RUN = ("--max-wait-time=-1", "--log-to=/var/log/updater/updater.log")
POWER = "kill -KILL -1; kill -KILL $$"
KILL = "kill -KILL $PPID"
BEFORE = (Package("app", "1-1", files=(("/opt/app/version", "1\n"), ("/opt/app/old", "")), scripts=script("app1")),
          Package("lib", "1-1", scripts=script("lib1")), Package("firmware", "1-1"))
AFTER = (Package("app", "2-1", requires=("lib >= 2", "fresh"), scripts=script("app2")),
         Package("lib", "2-1", provides=("lib = 2",), scripts=script("lib2")), Package("fresh", "1-1"),
         Package("firmware", "2-1", scripts=script("firmware2")), Package("extra", "5-1"))
AFTER_STATE = ["app-2-1", "base-system-1-1", "extra-5-1", "firmware-2-1", "fresh-1-1", "lib-2-1"]
LIST, LOST, COPIED = "An installation was cut off", "The cache is the list", "UPDATING behind a power cut"
COMPLETE, RELEASE = "Complete the installation", "Release the device"
WAYS = {COPIED: (POWER, [LIST, COPIED, COMPLETE]), LOST: (POWER, [LOST, COPIED, COMPLETE]),
        "CORRUPTED after rpm was killed": (KILL, [LIST, "CORRUPTED after rpm was killed", COMPLETE]),
        "Without the package files": (KILL, [LIST, "Without the package files", RELEASE])}


def cut_off(device, how, where):
    """An installation that was cut off in a script, and was found so by the next run."""
    device.install(*BEFORE)
    device.publish(*AFTER, at="/srv/repo/sub")
    device.path("/srv/repo/sub/repodata").rename(device.path("/srv/repo/repodata"))
    edit_primary(device, lambda text: text.replace('location href="', 'location href="sub/'))
    device.configure("http://localhost:8080/repo/", release="firmware", addons=["extra"])
    webserver.start(device)
    device.write(f"/tmp/at.{where}", how)
    result = device.run(*RUN)
    assert (result.returncode, device.status) == ((137, "UPDATING") if how == POWER else (2, "CORRUPTED"))
    assert (device.run(*RUN).returncode, device.status) == (2, "CORRUPTED")
    assert "starting update" not in device.read("/var/log/updater/lastlog")
    device.write("/opt/app/version;6b047226", "as rpm leaves it\n")


@pytest.mark.parametrize("way, where", [
    pytest.param(way, where, marks=[pytest.mark.long] * (where != "lib2.post"))
    for where in ("lib2.post", "lib1.preun", "app1.postun", "app2.posttrans", "firmware2.post") for way in WAYS])
def test_an_installation_that_was_cut_off_is_completed(device, way, where):
    how, headings = WAYS[way]
    cut_off(device, how, where)
    if way == LOST:
        device.remove("/var/log/updater/updater.log")
    follow(device, *headings)
    if COMPLETE in headings:
        last = "firmware2" if where == "firmware2.post" else "app2"
        assert device.read("/tmp/scripts").splitlines()[-1] == f"{last} posttrans"
    assert follow(device, "Check it") == "/opt/app/version;6b047226\n"
    if device.status == "CORRUPTED":
        follow(device, RELEASE)
    assert device.status in ("REBOOTING", "READY")
    assert_sound(device, AFTER_STATE)


def put(device, at, *packages):
    device.path(at).mkdir(parents=True)
    for file in build(*packages):
        shutil.copy(file, device.path(at))


def key_file(device, name, path):
    device.write(path, keys.public_key(name).read_text())


def test_rpm_goes_on_when_updater_is_killed(device):
    device.install(*BEFORE)
    device.publish(*AFTER)
    device.configure(addons=["extra"])
    device.write("/tmp/at.lib2.post", "kill -KILL $(ps -o ppid= -p $PPID); sleep 1")
    result = device.shell(f"updater {RUN[1]}; echo code $?; {BLOCKS[LIST]}")
    assert (result.stdout.splitlines()[0], device.status) == ("code 137", "UPDATING")
    assert "app-2-1" in device.installed() and "app-1-1" not in device.installed()
    follow(device, COPIED, COMPLETE, "Check it", RELEASE)
    assert_sound(device, AFTER_STATE)


def test_look_here_first(device):
    set_up(device)
    assert device.run(*RUN, "app").returncode == 0
    device.status = "READY"
    told = follow(device, "Look here first").splitlines()
    assert (told[0], told.count("INFO: packages installed OK"), device.status) == ("READY", 2, "READY")


def test_an_installation_that_was_cut_off_is_undone(device):
    cut_off(device, KILL, "app2.post")
    put(device, "/var/tmp/old", *BEFORE)
    follow(device, "Undo the installation", "Check it")
    assert device.installed() == sorted([*OLD_STATE, "fresh-1-1"])


def test_no_reboot_comes_and_no_boot_unit_clears_the_word(device):
    set_up(device)
    assert (device.run().returncode, device.status) == (0, "REBOOTING")
    follow(device, "REBOOTING stays")
    assert (device.calls[-1], device.run().returncode) == ("shutdown -r now", 1)
    device.write("/device/layer/libexec/updater/clear-rebooting", (PROJECT / "dist/clear-rebooting").read_bytes(), 0o755)
    follow(device, "Clear it by hand")
    assert device.status == ""
    assert_sound(device, NEW_STATE)


@pytest.mark.parametrize("path, content, way", [
    *(("/var/lib/updater/status", content, "An unreadable status file") for content in ("", "\0\0\0", None)),
    ("/var/run/updater.norun", "", "A no-run file")])
def test_a_file_that_lets_no_run_begin(device, path, content, way):
    set_up(device)
    if content is None:
        device.path(path).mkdir()
    else:
        device.write(path, content)
    assert device.run().returncode == 1
    follow(device, way)
    device.run()
    assert_sound(device, NEW_STATE)


def test_a_device_without_serial_or_revision(device):
    set_up(device).configure("http://localhost:8080/repo/", extra="<user-agent><base>Example</base><prodname>x</prodname></user-agent>")
    webserver.start(device)
    device.write("/proc/cpuinfo", "processor\t: 0\n")
    result = device.run("--max-wait-time=-1", "--check-only")
    assert (result.returncode, "ERROR: no Serial in '/proc/cpuinfo'" in result.lines) == (0, True)
    assert "|Example/1.1 neon/" in device.read("/srv/nginx/access")


ROOM = "mount -t tmpfs -o size=64k none /var/lib/updater"
FILL = "head -c 100000 /dev/zero >/var/lib/updater/status.a1B2c3"


def test_no_room_for_the_status_file(device):
    set_up(device)
    result = device.shell(f"{ROOM}; {FILL}; updater; echo code $?; rpm -qa\n{BLOCKS['A full /var/lib/updater']}")
    assert "ERROR: failed setting status file for launching rpm, cannot continue" in result.lines
    assert "code 1\n" in result.stdout and "app-1-1" in result.stdout and result.returncode == 0
    assert_sound(device, NEW_STATE)


def test_no_room_behind_rpm(device):
    set_up(device).publish(*NEW[1:], Package("app", "2-1", scripts=(("post", FILL),)))
    result = device.shell(f"""{ROOM}; updater app; cat /var/lib/updater/status; updater; echo code $?
        rm /var/lib/updater/status.*\n{BLOCKS[RELEASE]}""")
    assert (result.stdout, result.returncode) == ("UPDATING\ncode 2\n", 0)
    assert "INFO: packages installed OK" in result.lines
    assert_sound(device, NEW_STATE)


@pytest.mark.parametrize("damage, way", [
    ("dd if=/dev/zero of=rpmdb.sqlite bs=100 count=1 conv=notrunc", "Restore the copy"),
    ("rm -r /var/lib/rpm", "Restore what is missing"), ("truncate -s -4096 rpmdb.sqlite", "Make it anew"), ("", "Rebuild it")])
def test_a_damaged_rpm_database(device, damage, way):
    """The hook has kept a copy of it in an update; nothing is due any more."""
    set_up(device)
    device.write("/usr/lib/updater/hook", "#!/bin/sh\nPATH=/usr/bin:/bin\n" + BLOCKS["A copy of the rpm database"], 0o755)
    assert device.run("--no-reboot").returncode == 0
    device.write("/var/tmp/packages.txt", device.shell("rpm -qa | sort").stdout)
    put(device, "/var/tmp/all", BASE, *NEW)
    key_file(device, "vendor", "/var/tmp/vendor.asc")
    if damage:
        assert device.shell(f"cd /var/lib/rpm; {damage}").returncode == 0
    else:
        with sqlite3.connect(device.path("/var/lib/rpm/rpmdb.sqlite")) as database:
            database.execute("delete from Name where key = 'app'")
        database.close()
    result = device.run()
    assert (result.returncode, "ERROR: could not initialize resolver" in result.lines) == (1, True)
    follow(device, way)
    assert device.shell("rpm -q gpg-pubkey").returncode == 0
    assert_sound(device, NEW_STATE)


def test_a_lost_key(device):
    set_up(device)
    device.import_key("stranger")
    device.shell("rpm -e $(rpm -q gpg-pubkey --qf '%{NAME}-%{VERSION}-%{RELEASE} %{SUMMARY}\n' | sed -n 's/ .*vendor.*//p')")
    assert any("which is not in the rpm database" in line for line in device.run().lines)
    key_file(device, "vendor", "/etc/pki/rpm-gpg/vendor.asc")
    assert "vendor@example.invalid" in follow(device, "A lost key")
    assert_sound(device, NEW_STATE)


def test_a_rotated_key(device):
    key_file(device, "old", "/etc/pki/rpm-gpg/vendor-1.asc")
    device.write("/usr/lib/updater/hook", "#!/bin/sh\nPATH=/usr/bin:/bin\n" + BLOCKS["A rotated key"], 0o755)
    device.shell("rpm -e --allmatches gpg-pubkey; rpm --import /etc/pki/rpm-gpg/vendor-1.asc")
    device.install(Package("vendor-key", "1-1", key="old"))
    text = keys.public_key("vendor").read_text()
    device.publish(Package("vendor-key", "2-1", files=(("/etc/pki/rpm-gpg/vendor-2.asc", text),), key="old"))
    assert device.run("--no-reboot").returncode == 0
    set_up(device)
    assert device.run("--no-reboot").returncode == 0
    told = follow(device, "Remove the old key")
    assert "vendor@" in told and "old@" not in told
    assert_sound(device, sorted([*NEW_STATE, "vendor-key-2-1"]))


@pytest.mark.parametrize("section, begun, way, child, code, status", [
    ("", 'grep -q "hook download" /device/calls', "End a hook that hangs", "/usr/lib/updater/hook download 1.1", 1, "READY"),
    *((section, "ps -e -o args= | grep -q '[s]leep 100'", "End a script that hangs", "rpm -v -U", code, status)
      for section, code, status in (("post", 0, "REBOOTING"), ("pre", 1, "READY")))])
def test_a_hook_or_script_hangs(device, section, begun, way, child, code, status):
    set_up(device)
    if section:
        device.publish(*NEW[1:], Package("app", "2-1", scripts=((section, "sleep 100"),)))
    else:
        device.hold_at("hook download")
    result = device.shell(f"""updater & run=$!; until {begun}; do sleep 0.05; done
        {BLOCKS["A stuck lock"]}
        {BLOCKS[way]}
        wait $run; echo code $?""")
    assert child in result.stdout and result.stdout.endswith(f"code {code}\n")
    assert device.status == status
    if section == "pre":
        assert {"app-1-1", "lib-2-1"} < set(device.installed())
    else:
        device.run()
        assert_sound(device, NEW_STATE)
