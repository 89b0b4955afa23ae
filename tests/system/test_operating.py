"""The operator's guide: its tables beside the sources, and its ways out, run as they stand there."""

import re
import shutil
import sqlite3
from pathlib import Path

import pytest
from device import keys, webserver
from device.device import Package
from device.packages import BASE, build
from scenes import NEW, NEW_STATE, OLD, edit_primary, set_up

PROJECT = Path(__file__).resolve().parents[2]
GUIDE = (PROJECT / "docs/operating.md").read_text(encoding="utf-8")
TEXT = r'"(?:[^"\\]|\\.)*"'
LEVELS = ["INFO", "WARNING", "ERROR", "FATAL"]


def shown(text: str) -> str:
    """A format as the guide shows it: "…" for what differs, and no line breaks."""
    for old, new in (("\\n", " "), ("\\t", " "), ('\\"', '"')):
        text = text.replace(old, new)
    return " ".join(re.sub(r"%[a-z]+", "…", text).split())


def first_argument(text: str) -> str:
    """Up to the comma or bracket that ends it."""
    depth = 0
    for token in re.finditer(rf"{TEXT}|[(),]", text):
        if depth == 0 and token[0] in ",)":
            return text[:token.start()]
        depth += {"(": 1, ")": -1}.get(token[0], 0)
    raise ValueError(text[:80])


def lines_of_sources() -> set[str]:
    """All that the log can show at level info, but for the report lines."""
    lines = set()
    for file in (PROJECT / "src").rglob("*.cpp"):
        source = file.read_text(encoding="utf-8")
        for call in re.finditer(r"\blogMessage\(\s*(\w+)(\[.*?\])?,", source):
            formats = re.findall(rf"(?:{TEXT}\s*)+", first_argument(source[call.end():]))
            assert formats, f"{file} logs something else than a text of its own"
            levels = LEVELS if call[2] else [call[1]]  # rpm's own messages come at each of them
            lines |= {f"{level}: {shown(''.join(text[1:-1] for text in re.findall(TEXT, format)))}"
                      for level in levels for format in formats}
    return {line for line in lines if not re.match(r"TRACE|DEBUG|INFO: ---", line)}


def test_the_guide_has_every_line_of_the_log_and_no_other():
    rows = [row for row in GUIDE.splitlines() if row.startswith("|")]
    told = {" ".join(line.split()) for row in rows for line in re.findall(rf"`((?:{'|'.join(LEVELS)}): [^`]*)`", row)}
    lines = lines_of_sources()
    assert len(lines) > 200
    assert lines - told == set(), "not in the guide"
    assert told - lines == set(), "no longer written"


def test_the_guide_has_every_status_word():
    source = (PROJECT / "src/control/status.cpp").read_text(encoding="utf-8")
    words = re.findall(r'"([A-Z]+)"', source[source.index("k_vWords"):source.index("};")])
    section = GUIDE[GUIDE.index("## Status words"):GUIDE.index("## Exit codes")]
    assert re.findall(r"^\| (.*?) \|", section.replace("`, or no file", "`"), re.MULTILINE)[1:10] == [f"`{word}`" for word in words]


def test_links_lead_to_headings():
    places = {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
              for heading in re.findall(r"^#+ (.*)$", GUIDE, re.MULTILINE)}
    assert set(re.findall(r"\]\(#([^)]*)\)", GUIDE)) <= places


def block(heading: str, kind: str = "console") -> str:
    """The commands under a heading of the guide."""
    section = re.search(rf"^#+ {re.escape(heading)}\n(.*?)(?=^#+ \w|\Z)", GUIDE, re.MULTILINE | re.DOTALL)[1]
    return re.search(rf"^```{kind}\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)[1]


def follow(device, *headings) -> str:
    """Types the commands under these headings. Each must succeed, as `set -e` understands it."""
    result = device.shell("".join(f"(set -e\n{block(heading)}) || exit 1\n" for heading in headings))
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
BEFORE_STATE = ["app-1-1", "base-system-1-1", "firmware-1-1", "lib-1-1"]
AFTER_STATE = ["app-2-1", "base-system-1-1", "extra-5-1", "firmware-2-1", "fresh-1-1", "lib-2-1"]
LIST = "An installation was cut off"
LOST = "The cache is the list"
WAYS = {LOST: POWER, "UPDATING behind a power cut": POWER, "CORRUPTED after rpm was killed": KILL, "Without the package files": KILL}


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
    (way, where) if quick else pytest.param(way, where, marks=pytest.mark.long)
    for where in ("lib2.post", "lib1.preun", "app1.postun", "app2.posttrans", "firmware2.post") for way in WAYS
    for quick in [where == ("app1.postun" if way == LOST else "lib2.post")]])
def test_an_installation_that_was_cut_off_is_completed(device, way, where):
    cut_off(device, WAYS[way], where)
    if way == LOST:
        device.remove("/var/log/updater/updater.log")
        follow(device, LOST, "UPDATING behind a power cut", "Complete the installation")
    elif way == "Without the package files":
        follow(device, LIST, way, "Release the device")
    else:
        follow(device, LIST, way, "Complete the installation")
        last = "firmware2" if where == "firmware2.post" else "app2"
        assert device.read("/tmp/scripts").splitlines()[-1] == f"{last} posttrans"
    assert follow(device, "Check it") == "/opt/app/version;6b047226\n"
    if device.status == "CORRUPTED":
        follow(device, "Release the device")
    assert device.status in ("REBOOTING", "READY")
    assert_sound(device, AFTER_STATE)


def put(device, at, *packages):
    device.path(at).mkdir(parents=True)
    for file in build(*packages):
        shutil.copy(file, device.path(at))


def test_rpm_goes_on_when_updater_is_killed(device):
    device.install(*BEFORE)
    device.publish(*AFTER)
    device.configure(addons=["extra"])
    device.write("/tmp/at.lib2.post", "kill -KILL $(ps -o ppid= -p $PPID); sleep 1")
    result = device.shell(f"updater {RUN[1]}; echo code $?; {block(LIST)}")
    assert (result.stdout.splitlines()[0], device.status) == ("code 137", "UPDATING")
    assert "app-2-1" in device.installed() and "app-1-1" not in device.installed()
    follow(device, "UPDATING behind a power cut", "Complete the installation", "Check it", "Release the device")
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
    assert device.installed() == sorted([*BEFORE_STATE, "fresh-1-1"])


def test_the_reboot_fails_and_no_boot_unit_clears_the_word(device):
    set_up(device)
    stub = device.path("/device/bin/shutdown").rename(device.path("/device/shutdown"))
    assert (device.run().returncode, device.status) == (0, "REBOOTING")
    stub.rename(device.path("/device/bin/shutdown"))
    follow(device, "REBOOTING stays")
    assert (device.calls[-1], device.run().returncode) == ("shutdown -r now", 1)
    program = device.path("/device/layer/libexec/updater/clear-rebooting")
    program.parent.mkdir(parents=True)
    shutil.copy(PROJECT / "dist/clear-rebooting", program)
    program.chmod(0o755)
    follow(device, "Clear it by hand")
    assert device.status == ""
    assert_sound(device, NEW_STATE)


def test_what_cron_finds_in_its_path(device):
    """Neither telinit nor shutdown: the word tells of a reboot that never comes."""
    set_up(device)
    result = device.shell("/device/bin/updater app", PATH="/usr/bin:/bin")
    assert (result.returncode, device.status, device.calls) == (0, "REBOOTING", ["hook init 1.1", "hook download 1.1", "hook update 1.1 2"])
    assert "WARNING: failed re-execing init (exit code 1)" in result.lines


def test_a_device_without_serial_or_revision(device):
    set_up(device).configure("http://localhost:8080/repo/", extra="<user-agent><base>Example</base><prodname>x</prodname></user-agent>")
    webserver.start(device)
    device.write("/proc/cpuinfo", "processor\t: 0\n")
    result = device.run("--max-wait-time=-1", "--check-only")
    assert (result.returncode, "ERROR: no Serial in '/proc/cpuinfo'" in result.lines) == (0, True)
    assert "|Example/1.1 neon/" in device.read("/srv/nginx/access")


@pytest.mark.parametrize("content", ["", "\0\0\0", None], ids=["empty", "garbage", "directory"])
def test_an_unreadable_status_file(device, content):
    set_up(device)
    if content is None:
        device.path("/var/lib/updater/status").mkdir()
    else:
        device.write("/var/lib/updater/status", content)
    assert device.run().returncode == 1
    follow(device, "An unreadable status file")
    assert_sound(device, NEW_STATE)


ROOM = "mount -t tmpfs -o size=64k none /var/lib/updater"
FILL = "head -c 100000 /dev/zero >/var/lib/updater/status.a1B2c3"


def test_no_room_for_the_status_file(device):
    set_up(device)
    result = device.shell(f"{ROOM}; {FILL}; updater; echo code $?; rpm -qa\n{block('A full /var/lib/updater')}")
    assert "ERROR: failed setting status file for launching rpm, cannot continue" in result.lines
    assert "code 1\n" in result.stdout and "app-1-1" in result.stdout and result.returncode == 0
    assert_sound(device, NEW_STATE)


def test_no_room_behind_rpm(device):
    set_up(device).publish(*NEW[1:], Package("app", "2-1", scripts=(("post", FILL),)))
    result = device.shell(f"""{ROOM}; updater app; cat /var/lib/updater/status; updater; echo code $?
        rm /var/lib/updater/status.*\n{block("Release the device")}""")
    assert (result.stdout, result.returncode) == ("UPDATING\ncode 2\n", 0)
    assert "INFO: packages installed OK" in result.lines
    assert_sound(device, NEW_STATE)


def keep_copy(device):
    """A device whose hook has kept a copy of the rpm database in an update; nothing is due any more."""
    set_up(device)
    device.write("/usr/lib/updater/hook", "#!/bin/sh\nPATH=/usr/bin:/bin\n" + block("A copy of the rpm database", "sh"), 0o755)
    assert device.run("--no-reboot").returncode == 0
    device.write("/var/tmp/packages.txt", device.shell("rpm -qa | sort").stdout)
    put(device, "/var/tmp/all", BASE, *NEW)
    shutil.copy(keys.public_key("vendor"), device.path("/var/tmp/vendor.asc"))


DATABASE = "/var/lib/rpm/rpmdb.sqlite"


def damage(device, how):
    file = device.path(DATABASE)
    if how.startswith("delete"):
        with sqlite3.connect(file) as database:
            database.execute(how)
        database.close()
    elif how == "missing":
        shutil.rmtree(file.parent)
    else:
        file.write_bytes({"empty": b"", "cut": file.read_bytes()[:-4096], "overwritten": bytes(100) + file.read_bytes()[100:]}[how])
    result = device.run()
    assert (result.returncode, "ERROR: could not initialize resolver" in result.lines) == (1, True)


INDEX = "delete from Name where key = 'app'"
ROW = "delete from Packages where hnum = (select max(hnum) from Packages)"


@pytest.mark.parametrize("how, way", [
    ("overwritten", "Restore the copy"), ("missing", "Restore what is missing"), (INDEX, "Rebuild it"), ("cut", "Make it anew"),
    *(pytest.param(*row, marks=pytest.mark.long) for row in ((ROW, "Restore the copy"), ("empty", "Make it anew")))])
def test_a_damaged_rpm_database(device, how, way):
    keep_copy(device)
    damage(device, how)
    if how == "missing":  # a query makes an empty one, and the program takes it for good
        assert (device.shell("rpm -qa").stdout, device.run("--check-only").returncode) == ("", 0)
    follow(device, way)
    assert device.shell("rpm -q gpg-pubkey").returncode == 0
    assert_sound(device, NEW_STATE)


def test_a_rebuilt_rpm_database_may_lack_packages(device):
    keep_copy(device)
    damage(device, ROW)
    lost = device.shell(f"set -e\n{block('Rebuild it')}")
    assert (lost.returncode, len(lost.stdout.splitlines())) == (1, 2)  # a place and a package
    assert device.run("--check-only").returncode == 0  # as if nothing had happened
    name = lost.stdout.splitlines()[1].removeprefix("> ").removesuffix(".noarch")
    device.shell(f"mkdir /var/tmp/rest; mv /var/tmp/all/{name}*.rpm /var/tmp/rest; rm -r /var/tmp/all; mv /var/tmp/rest /var/tmp/all")
    assert device.shell("".join(block("Make it anew").splitlines(keepends=True)[-2:])).returncode == 0
    assert_sound(device, NEW_STATE)


def key_file(device, name, path):
    device.write(path, keys.public_key(name).read_text())


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
    device.write("/usr/lib/updater/hook", "#!/bin/sh\nPATH=/usr/bin:/bin\n" + block("A rotated key", "sh"), 0o755)
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


def test_a_no_run_file(device):
    set_up(device)
    device.write("/var/run/updater.norun", "")
    assert device.run().returncode == 1
    follow(device, "A no-run file")
    device.run()
    assert_sound(device, NEW_STATE)


def test_a_hook_hangs(device):
    set_up(device)
    device.hold_at("hook download")
    result = device.shell(f"""updater & run=$!
        until grep -q "hook download" /device/calls; do sleep 0.05; done
        {block("A stuck lock")}
        {block("End a hook that hangs")}
        wait $run; echo code $?""")
    assert "/usr/lib/updater/hook download 1.1" in result.stdout and result.stdout.endswith("code 1\n")
    assert result.lines[-2:] == ["ERROR: hook was interrupted", "INFO: --- EXIT ERROR ---"]
    device.run()
    assert_sound(device, NEW_STATE)


@pytest.mark.parametrize("section, code, state", [("post", 0, NEW_STATE), ("pre", 1, None)])
def test_a_script_hangs(device, section, code, state):
    set_up(device).publish(*NEW[1:], Package("app", "2-1", scripts=((section, "sleep 100"),)))
    result = device.shell(f"""updater & run=$!
        until ps -e -o args= | grep -q '[s]leep 100'; do sleep 0.05; done
        {block("A stuck lock")}
        {block("End a script that hangs")}
        wait $run; echo code $?""")
    assert "rpm -v -U" in result.stdout and result.stdout.endswith(f"code {code}\n")
    assert device.status == ("REBOOTING" if code == 0 else "READY")
    if state:
        assert_sound(device, state)
    else:
        assert {"app-1-1", "lib-2-1"} < set(device.installed())
