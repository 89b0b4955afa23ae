"""Updates over HTTPS: whom the device trusts, and why it doesn't."""

import pytest
from peers import FIRST, NO_INDEX, behind_head, certificates, httpd, log_of, squid, update, use_proxy
from scenes import REPORT, set_up

PORTS = {"good": 8443, "expired": 8444, "untrusted": 8445, "self-signed": 8446, "misnamed": 8447}
GOOD = [*REPORT, "INFO: --- EXIT OK ---"]
SYSTEM = '<tls trust="system"/>'


def rejected(reason: str) -> list[str]:
    text = f"failed fetching '{FIRST}' (Server certificate verification failed: {reason})"
    return [f"WARNING: {text}; retrying"] * 2 + [f"ERROR: {text}", *NO_INDEX]


@pytest.fixture(scope="module")
def pems(tmp_path_factory):
    directory = tmp_path_factory.mktemp("tls") / "made"
    certificates(directory)
    return directory


@pytest.mark.parametrize("server, extra, lines", [
    ("good", SYSTEM, GOOD),
    ("good", '<tls trust="/srv/ca.pem"/>', GOOD),
    ("good", '<tls trust="/srv/good.pem"/>', rejected("issuer is not trusted")),  # it takes the issuer, or a self-signed one
    ("good", "", rejected("issuer is not trusted")),
    ("expired", SYSTEM, rejected("certificate has expired")),
    ("untrusted", SYSTEM, rejected("issuer is not trusted")),
    ("self-signed", SYSTEM, rejected("issuer is not trusted")),
    ("self-signed", '<tls trust="/srv/self-signed.pem"/>', GOOD),
    ("misnamed", SYSTEM, rejected("certificate issued for a different hostname")),
    ("misnamed", "", rejected("certificate issued for a different hostname, issuer is not trusted")),
    ("good", f'{SYSTEM}<tls trust="/srv/other.pem"/>', rejected("issuer is not trusted")),
])
def test_trust(device, pems, server, extra, lines):
    httpd(set_up(device), tls={port: pems / f"{name}.pem" for name, port in PORTS.items()})
    for pem in pems.glob("*.pem"):
        device.write(f"/srv/{pem.name}", pem.read_bytes())
    device.configure(f"https://repo.test:{PORTS[server]}/repo", release="firmware", addons=["extra"], extra=extra)
    assert behind_head(update(device, "--check-only", SSL_CERT_FILE="/srv/ca.pem")) == lines
    expected = ["- 200"] * 2 * (lines == GOOD)
    assert log_of(device, "httpd", len(expected)) == expected


def test_through_a_proxy(device, pems):
    """The connection is a tunnel, and what is trusted stays the same."""
    httpd(set_up(device), tls={8443: pems / "good.pem"})
    device.write("/srv/ca.pem", (pems / "ca.pem").read_bytes())
    device.configure("https://repo.test:8443/repo", release="firmware", addons=["extra"], extra=SYSTEM)
    squid(device)
    use_proxy(device, bypassLocalNetwork="off")
    assert behind_head(update(device, "--check-only", SSL_CERT_FILE="/srv/ca.pem")) == GOOD
    assert log_of(device, "squid", 1) == ["TCP_TUNNEL repo.test:8443"]
