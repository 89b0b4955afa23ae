"""What whoever controls the repository, but no key, can do to a device, and what he can't. SECURITY.md refers to this."""

import base64
import hashlib
import os
import re

import pytest
from device import webserver
from device.device import Package
from peers import INDEX, PRIMARY, USER, certificates, log_of, nginx, point_at, scripted, update
from scenes import NEW, OLD, OLD_STATE, edit_primary, set_up
from test_authentication import BASE, CORE, PASSWORD, set_blocks
from test_faults import moved

STRANGER = Package("stranger", "1-1")  # signed, and never meant for this device
LIB = Package("lib", "2-1", provides=("lib = 2-1",))


def says(kind: str, entry: str):
    """The metadata give each package one more list of its own."""
    lie = f'<rpm:{kind}><rpm:entry name="{entry}"/></rpm:{kind}>'
    return lambda text: text.replace("<rpm:provides>", f"{lie}<rpm:provides>")


def never_adds_up(text: str) -> str:
    """Pass 1 leaves a package out, and removes the reason for which the check named it."""
    lie = '<rpm:obsoletes><rpm:entry name="lib" flags="LT" epoch="0" ver="2"/></rpm:obsoletes><rpm:provides>'
    return text.replace("<rpm:group>Unspecified", "<rpm:group>Extras", 1).replace("<rpm:provides>", lie, 1)


@pytest.mark.parametrize("offers, lie, line, gone, come", [
    ([Package("app", "0.9-1"), OLD[1]], None, "INFO: no updates", [], []),
    ([Package("app", "0.9-1")], lambda text: text.replace('ver="0.9"', 'ver="9"'),
     "INFO:   \tpackage app-1-1.noarch (which is newer than app-0.9-1.noarch) is already installed", [], []),
    ([Package("app", "2-1", requires=("lib = 0.9",)), Package("lib", "0.9-1", provides=("lib = 0.9-1",))], None,
     "INFO:   \tpackage lib-1-1.noarch (which is newer than lib-0.9-1.noarch) is already installed", [], []),
    ([Package("app", "2-1", requires=("lib >= 2",))], lambda text: re.sub("<rpm:requires>.*</rpm:requires>", "", text, flags=re.DOTALL),
     "INFO:   \tlib >= 2 is needed by app-2-1.noarch", [], []),
    ([STRANGER], says("obsoletes", "app"), "INFO: packages installed OK", [], ["stranger-1-1"]),
    ([Package("oldapp", "0.5-1", obsoletes=("app",))], None, "INFO: packages installed OK", ["app-1-1"], ["oldapp-0.5-1"]),
    ([Package("app", "2-1", key="")], None, "ERROR: no signature on package 'app-2-1.noarch.rpm'", [], []),
    ([Package("another", "1-1"), LIB, Package("app", "2-1", requires=("lib >= 2",))], never_adds_up,
     "FATAL: failed passing all updates but update process succeeded, SYSTEM MAY BE CORRUPTED", ["app-1-1", "lib-1-1"],
     ["app-2-1", "lib-2-1"]),
], ids=["freeze", "rollback", "rollback by a require", "mix and match", "extraneous package",
        "old rename", "arbitrary package", "never adds up"])
def test_a_lying_repository(device, offers, lie, line, gone, come):
    device.install(*OLD)
    device.publish(*offers)
    device.configure(groups=["Extras"])
    if lie:
        edit_primary(device, lie)
    result = device.run("--no-reboot")
    assert line in result.lines
    assert device.installed() == sorted({*OLD_STATE, *come} - {*gone})
    assert device.status == ("CORRUPTED" if line.startswith("FATAL") else "READY")


@pytest.mark.parametrize("file, line", [
    ("etc/secret", "ERROR: invalid checksum on '../../etc/secret'"),
    ("dev/zero", "ERROR: failed copying file (Invalid argument)"),
])
def test_a_redirect_to_a_local_file_gives_it_to_nobody(device, file, line):
    """The path is that of the request, and so of the metadata."""
    point_at(set_up(device), "http://127.0.0.1:8080/srv/repo", level="trace")
    index = device.read(f"/srv/repo/{INDEX}").replace(PRIMARY, f"../../{file}")
    device.write("/etc/secret", "top secret")
    scripted(device, [f"HTTP/1.1 200 OK\r\n\r\n{index}"], *[moved("file:///x")] * 2)
    result = update(device, "--check-only")
    assert line in result.lines and result.lines[-1] == "INFO: --- EXIT ERROR ---"
    assert "top secret" not in result.stderr
    assert len(log_of(device, "scripted")) == 2 + (file == "etc/secret")


def test_nothing_from_outside_is_a_format_or_ends_a_line(device):
    set_up(device).configure("file:///srv/%n\n", release="firmware")
    good, uri = device.read("/etc/updater.conf"), "file:///srv/%n?"
    bad = good.replace('"info"', '"%n&#10;"').replace("Demo", "%n&#10;").replace("<release>", "<release><group><name>%n&#10;</name></group>")
    device.write("/etc/updater.conf", bad)
    assert device.run("--check-only").lines == [
        "ERROR: unrecognized logger level '%n?' using 'info'", "WARNING: ignoring package group named '%n?' in config file line 5",
        "INFO: updater version 1.1, product %n?", "INFO: --- MODE check ---", "INFO: running init hook",
        f"INFO: updating packages from repository '%n? packages' (URI '{uri}')", f"ERROR: failed parsing repository URI '{uri}'",
        f"ERROR: failed creating repository downloder from '{uri}'", "ERROR: could not update repository data",
        "INFO: --- EXIT ERROR ---"]
    device.write("/etc/updater.conf", good.replace("%n&#10;", "repo"))
    edit_primary(device, lambda text: text.replace('ver="2"', 'ver="2%n"').replace('"app-2-1.noarch.rpm', '"%n%s.rpm'))
    assert {"INFO: --- FIRMWARE 2%n-1 ---", "INFO: \t%n%s.rpm", "ERROR: failed getting package '%n%s.rpm' from repository"
            } <= {*device.run("app", "firmware").lines}


@pytest.mark.parametrize("file", [INDEX, "lib-2-1.noarch.rpm"])
def test_endless_data_fill_the_cache_and_are_gone_behind_it(device, file):
    nginx(point_at(set_up(device), "http://127.0.0.1:8080/repo"))
    os.truncate(device.path(f"/srv/repo/{file}"), 3 << 30)
    result = device.shell("mount -t tmpfs -o size=2m none /var/cache/updater; updater --max-wait-time=-1; find /var/cache/updater -size +99k")
    text = f"failed fetching '{file}' (failed writing downloaded data to file (No space left on device))"
    assert [line for line in result.lines if "fetching" in line] == [f"WARNING: {text}; retrying"] * 2 + [f"ERROR: {text}"]
    assert (result.stdout, device.status, result.reports[-1]) == ("", "READY", "--- EXIT ERROR ---")


@pytest.mark.parametrize("trust, sent", [("system", True), ("/srv/other.pem", False)])
def test_a_redirect_may_ask_for_the_password_where_anybody_is_trusted(device, tmp_path, trust, sent):
    """The plain server leads to one with TLS, whose certificate the system trusts, and which asks for it in clear."""
    for pem in certificates(tmp_path).glob("*.pem"):
        device.write(f"/srv/{pem.name}", pem.read_bytes() + pem.with_suffix(".key").read_bytes())
    device.write("/srv/users", f"{USER}:{{SHA}}" + base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode())
    device.write("/etc/hosts", "127.0.0.1 localhost repo.test\n")
    set_blocks(device, BASE, CORE, b"")
    point_at(set_up(device), "http://localhost:8080/repo", f'<tls trust="{trust}"/>')
    webserver.start(device, """return 302 https://repo.test:8443$request_uri; } server { listen 8443 ssl; root /srv; auth_basic x;
        auth_basic_user_file /srv/users; ssl_certificate /srv/good.pem; ssl_certificate_key /srv/good.pem;""")
    assert update(device, "--check-only", SSL_CERT_FILE="/srv/ca.pem").returncode == (0 if sent else 1)
    assert any("|200|" in line for line in log_of(device, "nginx", 1)) == sent
