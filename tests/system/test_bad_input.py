"""Malformed, missing, huge, cut and hostile input ends in the right line, with nothing lost."""

import gzip
import os
import re
import shutil
import sqlite3
from contextlib import closing

import pytest
from device.device import Package
from device.packages import build
from scenes import HALF_STATE, OLD_STATE, REPORT, edit_primary, set_up

CACHE = "/var/cache/updater/base"
INDEX = "/srv/repo/repodata/repomd.xml"
PRIMARY = "/srv/repo/repodata/primary.xml.gz"
REPO = 'xmlns="http://linux.duke.edu/metadata/repo"'
EXIT = "INFO: --- EXIT ERROR ---"


@pytest.mark.parametrize("content, lines", [
    (None, ["ERROR: could not open configuration file '/etc/updater.conf'"]),
    ("", []),
    ("<updater><repo", []),
    ("<other/>", ["ERROR: bad top-level element, 'other' instead of 'updater'"]),
    ("<updater><repository/></updater>", ["ERROR: no 'id' attribute in 'repository' element"]),
    ("<updater><tls trust='/none.pem'/></updater>", ["ERROR: *"]),
    ("<!DOCTYPE u [<!ENTITY a 'aaaaaaaaaa'>" + "".join(
        f"<!ENTITY {chr(c + 1)} '{f'&{chr(c)};' * 10}'>" for c in range(ord("a"), ord("i"))) +
     "]><updater><repository id='b'><name>&i;</name></repository></updater>", []),
])
def test_configuration(device, content, lines):
    device.path("/etc/updater.conf").unlink()
    if content is not None:
        device.write("/etc/updater.conf", content)
    result = device.run()
    ours = [line for line in result.lines if line.startswith("ERROR: ")]
    assert ours[-1] == "ERROR: failed parsing configuration file '/etc/updater.conf'"
    assert [line if line == said else "ERROR: *" for line, said in zip(ours[:-1], lines)] == lines
    assert (result.returncode, device.status, device.calls) == (1, "", [])


@pytest.mark.parametrize("macros, lines", [
    ("%_dbpath var/lib/rpm\n", ["path 'var/lib/rpm' of the rpm database is not absolute"]),
    ("", ["rpm does not know the architectures of this system", "path '%{_dbpath}' of the rpm database is not absolute"]),
], ids=["path", "none"])
def test_rpm_configuration(device, macros, lines):
    set_up(device)
    device.write("/etc/rpm/macros", macros)
    device.write("/srv/empty/rpmrc", "")
    device.write("/srv/empty/macros", "")
    result = device.run("--check-only", **({} if macros else {"RPM_CONFIGDIR": "/srv/empty"}))
    assert result.lines == [f"ERROR: {line}" for line in [*lines, "failed initializing (rpm)"]]
    assert (result.returncode, device.calls) == (1, [])


def test_a_faulty_proxy_file_stops_nothing(device):
    set_up(device)
    device.write("/etc/network/orvproxy.conf", "<proxyconf><proxy server='p' port='65535'/></proxyconf>")
    assert device.run("--check-only").lines[0] == "ERROR: invalid port number '65535'"
    device.write("/etc/network/orvproxy.conf", "<proxyconf><proxy server='p&#10;q' port='81'/>" + " " * 5000 + "<proxy")
    result = device.run("--check-only")
    assert (result.returncode, "INFO: using HTTP proxy 'p?q' port 81" in result.lines) == (0, True)
    device.write("/etc/network/orvproxy.conf", "<proxyconf><proxy password='hush' x></proxyconf>")
    result = device.run("--check-only")
    assert (result.lines[0], "hush" in result.stderr) == ("libxml2: /etc/network/orvproxy.conf:1: parser error", False)


def test_external_entities_read_no_local_file(device):
    set_up(device)
    device.write("/etc/secret", "top secret")
    device.write("/etc/updater.conf", "<!DOCTYPE u [<!ENTITY e SYSTEM '/etc/secret'>]>" +
                 device.read("/etc/updater.conf").partition("?>")[2].replace("<name>Demo<", "<name>Demo&e;<"))
    assert "INFO: updater version 1.1, product Demo" in device.run("--check-only").lines


@pytest.mark.parametrize("content, lines", [
    (b"", ["failed parsing repository metadata from 'repodata/repomd.xml'"]),
    (b"<repomd " + REPO.encode(), ["failed parsing repository metadata from 'repodata/repomd.xml'"]),
    (os.urandom(100_000), ["failed parsing repository metadata from 'repodata/repomd.xml'"]),
    (f"<repomd {REPO}/>".encode(), ["no 'primary' entry in repository metadata"]),
    (f"<repomd {REPO}><data type='primary'><location href='&#10;INFO: --- EXIT OK ---'/></data></repomd>".encode(),
     ["failed parsing repository metadata from 'repodata/repomd.xml'"]),
    (f"<repomd {REPO}><data type='primary'><location href='../../etc/passwd'/><checksum type='sha'>1</checksum></data></repomd>".encode(),
     ["invalid checksum on '../../etc/passwd'", "failed getting repository resource '../../etc/passwd'"]),
    (f"<repomd {REPO}><data type='primary'><location href='..'/><checksum type='sha'>1</checksum></data></repomd>".encode(),
     ["failed copying file (Is a directory)", "failed getting repository resource '..'",
      "failed getting repository resource '..'"]),
])
def test_index(device, content, lines):
    set_up(device)
    device.write(INDEX, content)
    result = device.run()
    errors = [line[7:] for line in result.lines if line.startswith("ERROR: ")]
    assert errors[-len(lines) - 1:] == [*lines, "could not update repository data"]
    assert (result.returncode, result.lines[-1], device.status, device.installed()) == (1, EXIT, "READY", OLD_STATE)


def test_what_the_xml_library_says_cannot_be_taken_for_our_log(device):
    set_up(device)
    device.write(INDEX, f"<repomd {REPO}>\nINFO: --- EXIT OK ---<<\x1b[2K\n")
    result = device.run()
    said = [line for line in result.lines if not line.startswith(("INFO: ", "ERROR: "))]
    assert said and all(line.startswith("libxml2: ") and line.isprintable() for line in said)
    assert result.reports == ["--- MODE update ---", "--- EXIT ERROR ---"]


def test_a_changed_primary_file_is_refused_and_fetched_anew(device):
    set_up(device)
    good = device.path(PRIMARY).read_bytes()
    assert device.run("--check-only").returncode == 0
    for bad in (b"", good[:len(good) // 2], good[:-5], gzip.compress(b"<metadata/>"), os.urandom(5000)):
        device.write(PRIMARY, bad)
        device.write(CACHE + "/primary.xml.gz", "damaged on disk")
        lines, again = ([line for line in device.run("--check-only", *more).lines if not line.startswith("ERROR: failed while reading")]
                        for more in ([], ["--cache-only"]))
        assert lines[-5:] == [
            "WARNING: invalid checksum on 'repodata/primary.xml.gz'; retrying with bypass of http caches",
            "ERROR: invalid checksum on 'repodata/primary.xml.gz'",
            "ERROR: failed getting repository resource 'repodata/primary.xml.gz'",
            "ERROR: could not update repository data", EXIT], bad[:20]
        assert again[-3:] == [
            "ERROR: invalid checksum on 'repodata/primary.xml.gz'", "ERROR: could not load repository data", EXIT]
    device.write(PRIMARY, good)
    assert device.run("--check-only").lines[-8:] == [*REPORT, "INFO: --- EXIT OK ---"]


@pytest.mark.parametrize("type, length, line", [
    ("sha", 39, "ERROR: invalid checksum on 'repodata/primary.xml.gz'"),
    ("sh&#10;a", 40, "ERROR: unsupported checksum type 'sh?a'"),
])
def test_a_checksum_that_tells_nothing(device, type, length, line):
    set_up(device)
    index = device.read(INDEX)
    device.write(INDEX, re.sub(r'checksum type="sha">([0-9a-f]+)', lambda found: (
        f'checksum type="{type}">{found[1][:length]}'), index))
    assert line in device.run("--check-only").lines


def test_a_package_that_is_not_what_the_metadata_say(device):
    set_up(device)
    device.write("/srv/repo/app-2-1.noarch.rpm", "another one")
    result = device.run()
    path = CACHE + "/packages/app-2-1.noarch.rpm"
    at = result.lines.index(f"ERROR: invalid checksum on '{path}'")
    assert result.lines[at - 1:at + 3] == [
        f"WARNING: invalid checksum on '{path}'; retrying with bypass of http caches",
        f"ERROR: invalid checksum on '{path}'", "ERROR: failed downloading packages",
        "ERROR: failed updating, will try updating updater only"]
    device.remove("/srv/repo/app-2-1.noarch.rpm")
    assert "ERROR: failed getting package 'app-2-1.noarch.rpm' from repository" in device.run().lines
    assert (device.installed(), device.status) == (OLD_STATE, "READY")


@pytest.mark.parametrize("damage", ["garbage", "empty", "cut", "directory"])
def test_rpm_database(device, damage):
    set_up(device)
    database = device.path("/var/lib/rpm/rpmdb.sqlite")
    content = database.read_bytes()
    for extra in database.parent.glob("rpmdb.sqlite-*"):
        extra.unlink()
    database.unlink()
    if damage == "directory":
        database.mkdir()
    else:
        database.write_bytes({"garbage": b"x" * 5000, "empty": b"", "cut": content[:len(content) // 2]}[damage])
    result = device.run()
    assert result.lines[-3:] == ["ERROR: failed getting list of installed packages", "ERROR: could not initialize resolver", EXIT]
    assert ("ERROR: rpmlib: cannot open Packages index using sqlite" in result.stderr) == (damage in ("garbage", "cut"))
    assert (result.returncode, device.status) == (1, "READY")


@pytest.mark.parametrize("left", [None, [], [".rpm.lock"], ["rpmdb.sqlite"]],
                         ids=["no directory", "nothing", "the lock file", "an empty database file"])
def test_a_missing_database_is_not_made_and_not_taken_for_an_empty_device(device, left):
    """With an add-on, which comes to an empty device too, and no key there is to verify it with."""
    set_up(device)
    directory = device.path("/var/lib/rpm")
    shutil.rmtree(directory)
    for name in left or ():
        device.write(f"/var/lib/rpm/{name}", "")
    if left == []:
        directory.mkdir()
    result = device.run("extra")
    assert result.lines[-5:] == [
        "ERROR: no rpm database in '/var/lib/rpm'", "ERROR: failed initializing rpm DB iterator",
        "ERROR: failed getting list of installed packages", "ERROR: could not initialize resolver", EXIT]
    assert (result.returncode, directory.exists()) == (1, left is not None)
    assert left is None or {file.name: file.read_bytes() for file in directory.iterdir()} == dict.fromkeys(left, b"")


DATABASE = "/var/lib/rpm/rpmdb.sqlite"


@pytest.mark.parametrize("change", [
    "DELETE FROM Name WHERE key = 'lib'",
    "DELETE FROM Packages WHERE hnum = (SELECT hnum FROM Name WHERE key = 'lib')",
    "INSERT INTO Name SELECT * FROM Name WHERE key = 'lib'",
    "UPDATE Name SET key = 'liz' WHERE key = 'lib'",
    "UPDATE Name SET hnum = (SELECT hnum FROM Name WHERE key = 'app') WHERE key = 'lib'",
    "UPDATE Name SET key = CASE key WHEN 'app' THEN 'lib' ELSE 'app' END WHERE key IN ('app', 'lib')",
], ids=["none", "no package", "twice", "other name", "other package", "exchanged"])
def test_an_index_of_names_that_does_not_fit_the_packages(device, change):
    set_up(device)
    with closing(sqlite3.connect(device.path(DATABASE))) as database, database:
        database.execute(change)
    result = device.run()
    assert result.lines[-4:] == ["ERROR: failed while iterating on rpm DB", "ERROR: failed getting list of installed packages",
                                 "ERROR: could not initialize resolver", EXIT]


@pytest.mark.parametrize("change, reason", [
    ("d.execute('UPDATE Name SET key = 1 WHERE key = \"gpg-pubkey\"')", "ERROR: failed while iterating on rpm DB"),
    ("__import__('shutil').rmtree('/var/lib/rpm')", "ERROR: failed initializing rpm DB iterator"),
], ids=["name", "database"])
def test_keys_that_get_lost_behind_the_snapshot(device, change, reason):
    set_up(device)
    device.write("/srv/change", f"#!/usr/bin/python3\nwith __import__('sqlite3').connect('{DATABASE}') as d: {change}", 0o755)
    script = device.read("/usr/lib/updater/hook")
    device.write("/usr/lib/updater/hook", script.replace("\n", "\n[ $1 != download ] || /srv/change || exit\n", 1), 0o755)
    assert device.run("app").lines[-3:] == [reason, "ERROR: failed opening rpm DB", EXIT]


@pytest.mark.parametrize("word, lines, code, after", [
    ("", ["ERROR: cannot recover status, aborting"], 1, ""),
    ("ready\n", ["ERROR: unknown status 'ready'", "ERROR: cannot recover status, aborting"], 1, "ready"),
    ("\n \tREADY and more", [], 0, "READY"),
    ("X" * 1_000_000, [f"ERROR: unknown status '{'X' * 31}'", "ERROR: cannot recover status, aborting"], 1, "X" * 1_000_000),
    ("PKGSDONE\n", [], 0, "READY"),
    ("REBOOTING\n", ["INFO: machine is rebooting after update, cannot start"], 1, "REBOOTING"),
])
def test_status_file(device, word, lines, code, after):
    device.publish()
    device.write("/var/lib/updater/status", word)
    result = device.run("--check-only")
    assert (result.returncode, device.status) == (code, after)
    if code:
        assert result.lines[2:-1] == lines


def test_a_status_that_cannot_be_written_stops_rpm(device):
    """As root nothing is read-only: the directory goes away instead, when the last hook runs."""
    set_up(device)
    device.write("/usr/lib/updater/hook", device.read("/usr/lib/updater/hook").replace(
        "#!/bin/sh", '#!/bin/sh\n[ "$1" != update ] || /bin/mv /var/lib/updater /var/lib/gone', 1), 0o755)
    result = device.run()
    assert result.lines[-4:] == [
        "INFO: updating package(s)", "ERROR: failed setting status file for launching rpm, cannot continue",
        "WARNING: failed updating status file", EXIT]
    assert (result.returncode, device.read("/var/lib/gone/status"), device.installed()) == (1, "DOWNLOADING\n", OLD_STATE)


def test_a_full_disk_leaves_the_status_word_that_was_there(device):
    device.publish()
    result = device.shell("""mount -t tmpfs -o size=64k none /var/lib/updater && cd /var/lib/updater && echo PKGSDONE >status
        cat /dev/zero >rest 2>/dev/null; updater --check-only; cat status; ls -A""")
    assert (result.stdout, result.lines[-2:]) == ("PKGSDONE\nrest\nstatus\n", [
        "WARNING: failed updating status file", EXIT.replace("ERROR", "OK")])


@pytest.mark.parametrize("place, error, code", [
    ("/var/lib/updater", "EINVAL", 0),  # the file system cannot do that for a directory
    ("/var/lib/updater", "EIO", 1),
    ("/var/lib/updater/status", "EINVAL", 1),
])
def test_a_status_that_cannot_be_forced_to_disk_stops_rpm(device, place, error, code):
    set_up(device)
    result = device.shell(f"strace -o /tmp/trace -P {place} -e trace=fsync -e inject=fsync:error={error} updater app",
                          ASAN_OPTIONS="detect_leaks=0")
    assert (result.returncode, device.installed()) == (code, [HALF_STATE, OLD_STATE][code])
    assert ("ERROR: failed to sync status file: " in result.stderr) == bool(code)


OTHERS = """python3 -c 'import fcntl, time; file = open("updater"); fcntl.lockf(file, fcntl.LOCK_SH); time.sleep(3)' &
    until grep -q READ /proc/locks; do :; done"""


@pytest.mark.parametrize("plant, line", [
    ("ln -s victim updater", "failed creating lock file '{}' (Too many levels of symbolic links)."),
    ("ln victim updater", "failed creating lock file '{}' (Too many links)."),
    ("mkdir updater", "failed creating lock file '{}' (Is a directory)."),
    ("mkfifo updater", "failed truncating lock file '{}' (Invalid argument)"),
    (f"touch updater; {OTHERS}", "failed acquiring lock file '{}' (Resource temporarily unavailable)"),
], ids=["symbolic link", "hard link", "directory", "FIFO", "read lock"])
def test_what_others_put_where_the_lock_is(device, plant, line):
    set_up(device)
    result = device.shell(f"cd /var/lock; echo precious >victim; {plant}; updater --lock-timeout=-1; cat victim")
    assert (result.lines, result.stdout) == (["ERROR: " + line.format("/var/lock/updater"), EXIT], "precious\n")


def test_lock_file(device):
    device.write("/var/lock/updater", "a longer text of some earlier program\n")
    assert device.run("--check-only").returncode == 1  # without a repository
    assert len(device.read("/var/lock/updater")) == 11


def test_child_output(device):
    device.publish()
    device.answer("hook init", output="a\n\nbc\nx" + "y" * 2000 + "\n" + "last line", exit=0, nth=1)
    lines = device.run("--check-only").lines
    at = lines.index("INFO: /usr/lib/updater/hook output:")
    assert lines[at + 1:at + 8] == ["INFO:   a", "", "INFO:   bc", "INFO:   x" + "y" * 1022, "INFO:   " + "y" * 978,
                                    "INFO:   last line", lines[at + 7]]
    device.besides("hook init", "yes flood | head -n 50000")
    assert device.run("--check-only").lines.count("INFO:   flood") == 50000


def test_a_cache_that_cannot_be_used(device):
    set_up(device).path("/var/cache/updater").rmdir()
    assert device.run().lines[-3:] == ["ERROR: cannot create dir '/var/cache/updater/base/' (No such file or directory)",
                                       "ERROR: could not update repository data", EXIT]
    device.write("/var/cache/updater/base", "no directory")
    assert "ERROR: cannot create dir '/var/cache/updater/base/' (File exists)" in device.run().lines


def test_dependencies_forge_no_lines(device):
    device.install(Package("app", "1-1"))
    device.publish(Package("app", "2-1", requires=("nowhere",)))
    edit_primary(device, lambda text: text.replace('"nowhere"', '"&#10;INFO: --- EXIT OK ---"'))
    result = device.run()
    assert result.reports == ["--- MODE update ---", "--- EXIT ERROR ---"]
    assert "ERROR: failed parsing repository resource 'repodata/primary.xml.gz'" in result.lines


def test_rpm_gets_the_packages_that_were_verified_and_no_others(device):
    """It expands wildcards in its arguments, and a file may be kept from an earlier run."""
    set_up(device)
    [unsigned] = build(Package("stranger", "1-1", key=""))
    device.write(CACHE + "/packages/stranger-1-1.noarch.rpm", unsigned.read_bytes())
    device.path("/srv/repo/app-2-1.noarch.rpm").rename(device.path("/srv/repo/*.rpm"))
    edit_primary(device, lambda text: text.replace('"app-2-1.noarch.rpm', '"*.rpm'))
    result = device.run("--no-cache-clean", "app")
    assert "ERROR: failed parsing repository resource 'repodata/primary.xml.gz'" in result.lines
    edit_primary(device, lambda text: text.replace('"*.rpm', '"sub/lib-2-1.noarch.rpm'))
    line = "ERROR: packages app-0:2-1 and lib-0:2-1 have the same file name 'lib-2-1.noarch.rpm'"
    assert line in device.run("app").lines
    assert (device.installed(), device.status) == (OLD_STATE, "READY")
