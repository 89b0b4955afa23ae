"""Real servers in the network of a device, each with a configuration of its own below /srv."""

import base64
import hashlib
import json
import subprocess
import time
from collections.abc import Sequence
from pathlib import Path

from device import webserver
from device.device import Device, Result
from scenes import REPORT

INDEX, PRIMARY = "repodata/repomd.xml", "repodata/primary.xml.gz"
GOOD = [*REPORT, "INFO: --- EXIT OK ---"]
NO_INDEX = [f"ERROR: failed getting repository resource '{INDEX}'", "ERROR: could not update repository data",
            "INFO: --- EXIT ERROR ---"]
USER = "demo-0210"


def point_at(device: Device, uri: str, extra: str = "", level: str = "info") -> Device:
    device.configure(uri, release="firmware", addons=["extra"], level=level,
                     extra=f"<user-agent><base>demo</base><prodname>demo</prodname></user-agent>{extra}")
    return device


def update(device: Device, *arguments: str, **environment: str) -> Result:
    return device.run("--max-wait-time=-1", *arguments, **environment)


def check(device: Device, **environment: str) -> list[str]:
    """Checks for updates, and gives the lines from the first one on that the network may have caused."""
    head, _, rest = update(device, "--check-only", **environment).stderr.partition("\nINFO: updating packages from ")
    assert rest, head
    return rest.splitlines()[1:]


def log_of(device: Device, server: str, lines: int = 0) -> list[str]:
    """The server's access log. Waits for that many lines, as a server may log a moment behind its last answer."""
    log = device.path(f"/srv/{server}/access")
    end = time.monotonic() + 10
    while True:
        found = log.read_text().splitlines() if log.exists() else []
        if len(found) >= lines or time.monotonic() > end:
            return found
        time.sleep(0.01)


def nginx(device: Device) -> None:
    """On port 8080, see webserver.py. 10.9.9.8 redirects to itself, 10.9.9.9 to 127.0.0.1."""
    webserver.start(device, "if ($host = 10.9.9.8) { return 302 /; } if ($host = 10.9.9.9) { return 302 http://127.0.0.1:8080/; }")


def squid(device: Device, scheme: str = "", access: Sequence[str] = ("http_access allow all",)) -> None:
    """On port 3128, keeps everything for a day. `scheme`: "basic" or "digest", for user "me" with the
    password "secret", in place of `access`. It alone knows the host "repo.test". A line of its log is result and URL."""
    lines = ["http_port 3128", "pid_filename none", "visible_hostname proxy", "hosts_file /srv/squid/hosts",
             "dns_nameservers 127.0.0.1", "pinger_enable off", "netdb_filename none", "cache_log /srv/squid/log",
             "coredump_dir /srv/squid", "logformat line %Ss %ru", "access_log stdio:/srv/squid/access line",
             "refresh_pattern . 1440 100% 1440 override-expire override-lastmod"]
    password = "secret"
    if scheme:
        program = {"basic": "basic_ncsa_auth", "digest": "digest_file_auth"}[scheme]
        access = (f"auth_param {scheme} program /usr/lib/squid/{program} /srv/squid/users",
                  f"auth_param {scheme} realm proxy", "acl known proxy_auth REQUIRED", "http_access allow known")
    if scheme == "basic":
        password = subprocess.check_output(["openssl", "passwd", "-apr1", "secret"], text=True)
    device.write("/srv/squid/users", f"me:{password}")
    device.write("/srv/squid/hosts", "127.0.0.1 localhost repo.test\n")
    device.write("/srv/squid/conf", "\n".join([*lines, *access, ""]))
    device.serve("/usr/sbin/squid", "-N", "-f", "/srv/squid/conf", port=3128)


def use_proxy(device: Device, **attributes: str) -> None:
    pairs = {"server": "127.0.0.1", "port": "3128"} | attributes
    text = " ".join(f"{name}='{value}'" for name, value in pairs.items())
    device.write("/etc/network/orvproxy.conf", f"<proxyconf><proxy {text}/></proxyconf>")


def certificates(directory: Path) -> Path:
    """Makes NAME.pem with NAME.key: authorities "ca" and "other", and for the host repo.test "good",
    "expired", "untrusted" (of the other authority) and "self-signed"; "misnamed" is for another host, "address" for fd00::1."""
    def openssl(command: str) -> None:
        subprocess.run(["openssl", *command.split()], cwd=directory, check=True, capture_output=True)

    for name, issuer, host, days in (
            ("ca", "", "ca", 9), ("other", "", "other", 9), ("good", "ca", "repo.test", 9), ("expired", "ca", "repo.test", -1),
            ("untrusted", "other", "repo.test", 9), ("self-signed", "", "repo.test", 9), ("misnamed", "ca", "elsewhere.test", 9),
            ("address", "ca", "fd00::1", 9)):
        authority = "TRUE" if name == host else "FALSE"
        kind = "IP" if ":" in host else "DNS"
        openssl("req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -out request "
                f"-subj /CN={host} -addext subjectAltName={kind}:{host} -addext basicConstraints=CA:{authority} -keyout {name}.key")
        openssl(f"x509 -req -in request -copy_extensions copy -days {days} -out {name}.pem "
                + (f"-CA {issuer}.pem -CAkey {issuer}.key" if issuer else f"-signkey {name}.key"))
    return directory


def httpd(device: Device, password: str = "", tls: dict[int, Path] | None = None) -> None:
    """On port 8080, and with TLS on each port of `tls` with the certificate of that path. /digest and /basic
    are /srv/repo for USER with the password. A line of its log is user and status. repo.test is its name."""
    tls = tls or {}
    device.write("/srv/httpd/Digest", f"{USER}:realm:" + hashlib.md5(f"{USER}:realm:{password}".encode()).hexdigest())
    device.write("/srv/httpd/Basic", f"{USER}:{{SHA}}" + base64.b64encode(hashlib.sha1(password.encode()).digest()).decode())
    device.write("/etc/hosts", "127.0.0.1 localhost repo.test\n")
    lines = ["ServerRoot /srv/httpd", "ServerName repo.test", "PidFile pid", "ErrorLog error", "Mutex file:/srv/httpd",
             *(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so" for name in (
                 "mpm_event", "alias", "ssl", "auth_basic", "auth_digest", "authn_core", "authn_file", "authz_core", "authz_user")),
             "Listen 8080", "DocumentRoot /srv", 'LogFormat "%u %>s" line', "CustomLog access line"]
    for kind in ("Digest", "Basic"):
        lines += [f"Alias /{kind.lower()} /srv/repo", f"<Location /{kind.lower()}>", f"AuthType {kind}", "AuthName realm",
                  f"Auth{kind}Provider file", f"AuthUserFile {kind}", "Require valid-user", "</Location>"]
    for port, pem in tls.items():
        device.write(f"/srv/httpd/{port}.pem", pem.read_bytes() + pem.with_suffix(".key").read_bytes())
        lines += [f"Listen {port}", f"<VirtualHost *:{port}>", "SSLEngine on", f"SSLCertificateFile {port}.pem", "</VirtualHost>"]
    device.write("/srv/httpd/conf", "\n".join([*lines, ""]))
    device.serve("/usr/sbin/apache2", "-X", "-f", "/srv/httpd/conf", port=max([8080, *tls]))


def scripted(device: Device, *answers: list | int | None, port: int = 8080) -> None:
    """Answers each request in turn, as a server or as a proxy, and closes the connection each time. An answer is a list of
    texts to send, of seconds to wait, of None to reset the connection and True to leave it open; None instead of a list
    gives the file of that path or, for a CONNECT, a tunnel, as does all behind the last answer; a number gives a tunnel
    that stalls behind so many bytes from the origin or, negative, to it. TLS goes to port 8443 by such a tunnel, too.
    A line of its log is a whole request."""
    device.write("/srv/scripted/answers", json.dumps(answers))
    device.write("/srv/scripted/server", Path(__file__).with_name("scripted.py").read_bytes())
    device.serve("/usr/bin/python3", "-I", "/srv/scripted/server", str(port), port=port)
