"""Updates over HTTPS: whom the device trusts, and why it doesn't."""

import pytest
from peers import GOOD, INDEX, NO_INDEX, certificates, check, httpd, log_of, point_at, squid, use_proxy
from scenes import set_up

PORTS = {"good": 8443, "expired": 8444, "untrusted": 8445, "self-signed": 8446, "misnamed": 8447}
SYSTEM = '<tls trust="system"/>'


def rejected(reason: str) -> list[str]:
    text = f"failed fetching '{INDEX}' (Server certificate verification failed: {reason})"
    return [f"WARNING: {text}; retrying"] * 2 + [f"ERROR: {text}", *NO_INDEX]


@pytest.fixture(scope="module")
def pems(tmp_path_factory):
    return certificates(tmp_path_factory.mktemp("tls"))


@pytest.mark.parametrize("server, extra, lines, proxy", [
    ("good", SYSTEM, GOOD, False),
    ("good", SYSTEM, GOOD, True),  # makes a tunnel, and no difference
    ("good", '<tls trust="/srv/ca.pem"/>', GOOD, False),
    ("good", '<tls trust="/srv/good.pem"/>', rejected("issuer is not trusted"), False),  # who signed it is what counts
    ("good", f'{SYSTEM}<tls trust="/srv/other.pem"/>', rejected("issuer is not trusted"), False),
    ("good", "", rejected("issuer is not trusted"), False),
    ("expired", SYSTEM, rejected("certificate has expired"), False),
    ("untrusted", SYSTEM, rejected("issuer is not trusted"), False),
    ("self-signed", SYSTEM, rejected("issuer is not trusted"), False),
    ("self-signed", '<tls trust="/srv/self-signed.pem"/>', GOOD, False),
    ("misnamed", SYSTEM, rejected("certificate issued for a different hostname"), True),
    ("misnamed", "", rejected("certificate issued for a different hostname, issuer is not trusted"), False),
])
def test_trust(device, pems, server, extra, lines, proxy):
    httpd(point_at(set_up(device), f"https://repo.test:{PORTS[server]}/repo", extra),
          tls={port: pems / f"{name}.pem" for name, port in PORTS.items()})
    for pem in pems.glob("*.pem"):
        device.write(f"/srv/{pem.name}", pem.read_bytes())
    if proxy:
        squid(device)
        use_proxy(device, bypassLocalNetwork="off")
    assert check(device, SSL_CERT_FILE="/srv/ca.pem") == lines
    expected = ["- 200"] * 2 * (lines == GOOD)
    assert log_of(device, "httpd", len(expected)) == expected
    if proxy:
        assert set(log_of(device, "squid", 1)) == {f"TCP_TUNNEL repo.test:{PORTS[server]}"}
