"""Malformed, missing, huge, cut and hostile input ends in the right line, with nothing lost."""

import gzip
import re

import pytest
from device.device import Package
from device.packages import build
from scenes import HALF_STATE, OLD_STATE, REPORT, edit_primary, set_up

CACHE = "/var/cache/updater/base"
INDEX = "/srv/repo/repodata/repomd.xml"
PRIMARY = "/srv/repo/repodata/primary.xml.gz"
EXIT = "INFO: --- EXIT ERROR ---"
BOMB = "<!ENTITY a 'aaaaaaaaaa'>" + "".join(
    f"<!ENTITY {name} '{f'&{of};' * 10}'>" for of, name in zip("abcdefgh", "bcdefghe", strict=True))


def test_entities_read_no_local_file_and_do_not_grow(device):
    set_up(device)
    device.write("/etc/secret", "top secret")
    good = device.read("/etc/updater.conf").partition("?>")[2].replace("<name>Demo<", "<name>Demo&e;<")
    device.write("/etc/updater.conf", "<!DOCTYPE u [<!ENTITY e SYSTEM '/etc/secret'>]>" + good)
    assert "INFO: updater version 1.1, product Demo" in device.run("--check-only").lines
    device.write("/etc/updater.conf", f"<!DOCTYPE u [{BOMB}]>" + good)
    assert device.run().lines[-1] == "ERROR: failed parsing configuration file '/etc/updater.conf'"


def test_rpm_configuration(device):
    set_up(device)
    for file in ("/etc/rpm/macros", "/srv/empty/rpmrc", "/srv/empty/macros"):
        device.write(file, "")
    result = device.run("--check-only", RPM_CONFIGDIR="/srv/empty")
    assert result.lines == [f"ERROR: {line}" for line in (
        "rpm does not know the architectures of this system", "path '%{_dbpath}' of the rpm database is not absolute",
        "failed initializing (rpm)")]
    assert (result.returncode, device.calls) == (1, [])


def test_a_faulty_proxy_file_stops_nothing(device):
    set_up(device)
    device.write("/etc/network/orvproxy.conf", "<proxyconf><proxy server='p&#10;q' port='81'/>" + " " * 5000 + "<proxy")
    result = device.run("--check-only")
    assert (result.returncode, "INFO: using HTTP proxy 'p?q' port 81" in result.lines) == (0, True)
    device.write("/etc/network/orvproxy.conf", "<proxyconf><proxy password='hush' x></proxyconf>")
    result = device.run("--check-only")
    assert (result.lines[0], "hush" in result.stderr) == ("libxml2: /etc/network/orvproxy.conf:1: parser error", False)


@pytest.mark.parametrize("old, new, lines", [
    ("[^$]+", "", ["failed parsing repository metadata from 'repodata/repomd.xml'"]),
    ("repodata/primary.xml.gz", "&#10;INFO: --- EXIT OK ---", ["failed parsing repository metadata from 'repodata/repomd.xml'"]),
    ("repodata/primary.xml.gz", "../../etc/passwd",
     ["invalid checksum on '../../etc/passwd'", "failed getting repository resource '../../etc/passwd'"]),
    ("repodata/primary.xml.gz", "..",
     ["failed copying file (Is a directory)", "failed getting repository resource '..'", "failed getting repository resource '..'"]),
    ("[0-9a-f](</(open-)?checksum)", r"\1",
     ["invalid checksum on 'repodata/primary.xml.gz'", "failed getting repository resource 'repodata/primary.xml.gz'"]),
    ('"sha"', '"sh&#10;a"', ["unsupported checksum type 'sh?a'", "invalid checksum on 'repodata/primary.xml.gz'",
                             "failed getting repository resource 'repodata/primary.xml.gz'"]),
])
def test_index(device, old, new, lines):
    set_up(device)
    device.write(INDEX, re.sub(old, new, device.read(INDEX)))
    result = device.run()
    errors = [line[7:] for line in result.lines if line.startswith("ERROR: ")]
    assert errors[-len(lines) - 1:] == [*lines, "could not update repository data"]
    assert (result.returncode, result.lines[-1], device.status, device.installed()) == (1, EXIT, "READY", OLD_STATE)


def test_metadata_forge_no_lines(device):
    """Neither by dependencies, nor by what the XML library says of them."""
    device.install(Package("app", "1-1"))
    device.publish(Package("app", "2-1", requires=("nowhere",)))
    edit_primary(device, lambda text: text.replace('"nowhere"', '"&#10;INFO: --- EXIT OK ---"'))
    result = device.run()
    assert result.reports == ["--- MODE update ---", "--- EXIT ERROR ---"]
    assert "ERROR: failed parsing repository resource 'repodata/primary.xml.gz'" in result.lines
    device.write(INDEX, '<repomd xmlns="http://linux.duke.edu/metadata/repo">\nINFO: --- EXIT OK ---<<\x1b[2K\n')
    result = device.run()
    said = [line for line in result.lines if not line.startswith(("INFO: ", "ERROR: "))]
    assert said and all(line.startswith("libxml2: ") and line.isprintable() for line in said)
    assert result.reports == ["--- MODE update ---", "--- EXIT ERROR ---"]


def test_a_changed_primary_file_is_refused_and_fetched_anew(device):
    set_up(device)
    good = device.path(PRIMARY).read_bytes()
    for bad in (b"", good[:-5], gzip.compress(b"<metadata/>")):
        device.write(PRIMARY, bad)
        device.write(CACHE + "/primary.xml.gz", "damaged on disk")
        lines = device.run("--check-only").lines
        assert [line for line in lines[-6:] if "failed while reading" not in line][-5:] == [
            "WARNING: invalid checksum on 'repodata/primary.xml.gz'; retrying with bypass of http caches",
            "ERROR: invalid checksum on 'repodata/primary.xml.gz'",
            "ERROR: failed getting repository resource 'repodata/primary.xml.gz'",
            "ERROR: could not update repository data", EXIT], bad[:20]
        assert device.run("--check-only", "--cache-only").lines[-2:] == ["ERROR: could not load repository data", EXIT]
    device.write(PRIMARY, good)
    assert device.run("--check-only").lines[-8:] == [*REPORT, "INFO: --- EXIT OK ---"]


def sql(statement: str) -> str:
    return f"""python3 -c "import sqlite3; d = sqlite3.connect('rpmdb.sqlite'); d.execute('''{statement} '''); d.commit()" """


CANNOT_OPEN = "rpmlib: cannot open Packages index using sqlite"
NO_DATABASE, NO_FIT = "no rpm database in '/var/lib/rpm'", "failed while iterating on rpm DB"


@pytest.mark.parametrize("damage, reason", [
    ("head -c 5000 /dev/urandom >rpmdb.sqlite", CANNOT_OPEN),
    ("truncate -s 20000 rpmdb.sqlite", CANNOT_OPEN),
    ("rm rpmdb.sqlite; mkdir rpmdb.sqlite", NO_DATABASE),
    ("rm -r /var/lib/rpm", NO_DATABASE),
    ("rm rpmdb.*", NO_DATABASE),
    (": >rpmdb.sqlite", NO_DATABASE),
    (sql("DELETE FROM Name WHERE key = 'lib'"), NO_FIT),
    (sql("DELETE FROM Packages WHERE hnum = (SELECT hnum FROM Name WHERE key = 'lib')"), NO_FIT),
    (sql("UPDATE Name SET key = CASE key WHEN 'app' THEN 'lib' ELSE 'app' END WHERE key IN ('app', 'lib')"), NO_FIT),
], ids=["garbage", "cut", "a directory", "no directory", "missing", "empty", "no name", "no package", "exchanged names"])
def test_rpm_database(device, damage, reason):
    """A missing one is not made, and none is taken for that of an empty device, to which an add-on would come."""
    set_up(device)
    result = device.shell(f"cd /var/lib/rpm; rm -f rpmdb.sqlite-*; {damage}; ls -A . >/tmp/before; updater extra; ls -A . | diff /tmp/before -")
    assert f"\nERROR: {reason}" in result.stderr
    assert result.lines[-3:] == ["ERROR: failed getting list of installed packages", "ERROR: could not initialize resolver", EXIT]
    assert device.status == "READY"
    assert reason != NO_DATABASE or not result.stdout


def test_keys_that_get_lost_behind_the_snapshot(device):
    set_up(device)
    device.besides("hook download", "cd /var/lib/rpm; " + sql("UPDATE Name SET key = 1 WHERE key = 'gpg-pubkey'"))
    assert device.run("app", PATH="/device/bin:/usr/bin").lines[-3:] == [
        "ERROR: failed while iterating on rpm DB", "ERROR: failed opening rpm DB", EXIT]


@pytest.mark.parametrize("word, lines, code, after", [
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
    assert not code or result.lines[2:-1] == lines


def test_a_full_disk_leaves_the_status_word_that_was_there(device):
    device.publish()
    result = device.shell("""mount -t tmpfs -o size=64k none /var/lib/updater && cd /var/lib/updater && echo PKGSDONE >status
        cat /dev/zero >rest 2>/dev/null; updater --check-only; cat status; ls -A""")
    assert (result.stdout, result.lines[-2:]) == ("PKGSDONE\nrest\nstatus\n", [
        "WARNING: failed updating status file", EXIT.replace("ERROR", "OK")])


@pytest.mark.parametrize("place, error, code", [
    ("/var/lib/updater", "EINVAL", 0),  # the file system cannot do that for a directory
    ("/var/lib/updater", "EIO", 1),
])
def test_a_status_that_cannot_be_forced_to_disk_stops_rpm(device, place, error, code):
    set_up(device)
    result = device.shell(f"strace -o /tmp/trace -P {place} -e trace=fsync -e inject=fsync:error={error} updater app",
                          ASAN_OPTIONS="detect_leaks=0")
    assert (result.returncode, device.installed()) == (code, [HALF_STATE, OLD_STATE][code])
    assert ("ERROR: failed to sync status file: " in result.stderr) == bool(code)


@pytest.mark.parametrize("option, reason", [("-s", "Too many levels of symbolic links"), ("", "Too many links")])
def test_links_that_others_put_where_the_lock_is(device, option, reason):
    set_up(device)
    result = device.shell(f"cd /var/lock; echo precious >victim; ln {option} victim updater; updater; cat victim")
    assert (result.lines, result.stdout) == ([f"ERROR: failed creating lock file '/var/lock/updater' ({reason}).", EXIT], "precious\n")


def test_child_output(device):
    device.publish()
    device.answer("hook init", output="a\n\nbc\nx" + "y" * 2000 + "\nlast line", exit=0, nth=1)
    lines = device.run("--check-only").lines
    at = lines.index("INFO: /usr/lib/updater/hook output:")
    assert lines[at + 1:at + 7] == ["INFO:   a", "", "INFO:   bc", "INFO:   x" + "y" * 1022, "INFO:   " + "y" * 978, "INFO:   last line"]
    device.besides("hook init", "yes flood | head -n 50000")
    assert device.run("--check-only").lines.count("INFO:   flood") == 50000


def test_a_cache_that_cannot_be_used(device):
    set_up(device).write("/var/cache/updater/base", "no directory")
    assert "ERROR: cannot create dir '/var/cache/updater/base/' (File exists)" in device.run().lines


def test_rpm_gets_the_packages_that_were_verified_and_no_others(device):
    """It expands wildcards in its arguments, and a file may be kept from an earlier run."""
    set_up(device)
    [unsigned] = build(Package("stranger", "1-1", key=""))
    device.write(CACHE + "/packages/stranger-1-1.noarch.rpm", unsigned.read_bytes())
    device.path("/srv/repo/app-2-1.noarch.rpm").rename(device.path("/srv/repo/*.rpm"))
    for old, new, line in (("app-2-1.noarch", "*", "failed parsing repository resource 'repodata/primary.xml.gz'"),
                           ("*", "sub/lib-2-1.noarch", "packages app-0:2-1 and lib-0:2-1 have the same file name 'lib-2-1.noarch.rpm'")):
        edit_primary(device, lambda text, old=old, new=new: text.replace(f'"{old}.rpm', f'"{new}.rpm'))
        assert f"ERROR: {line}" in device.run("--no-cache-clean", "app").lines
    assert (device.installed(), device.status) == (OLD_STATE, "READY")
