"""Updates over HTTPS: whom the device trusts, and why it doesn't."""

import contextlib
import re
import time

import pytest
from device.device import Device, Package
from peers import GOOD, INDEX, NO_INDEX, certificates, check, httpd, log_of, point_at, scripted, squid, update, use_proxy
from scenes import NEW, OLD, set_up

PORTS = {"good": 8443, "expired": 8444, "self-signed": 8445, "misnamed": 8446}
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
    ("good", '<tls trust="/srv/good.pem"/>', rejected("issuer is not trusted"), False),  # who signed it is what counts
    ("good", f'{SYSTEM}<tls trust="/srv/other.pem"/>', rejected("issuer is not trusted"), False),
    ("expired", SYSTEM, rejected("certificate has expired"), False),
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


def refused(status: str) -> list[str]:
    text = f"failed fetching '{INDEX}' (Could not create SSL connection through proxy server: {status})"
    return [f"WARNING: {text}; retrying"] * 2 + [f"ERROR: {text}", *NO_INDEX]


def secured(device, pems, uri="https://repo.test:8443/repo", certificate="good"):
    httpd(point_at(device, uri, '<tls trust="/srv/ca.pem"/>'), tls={8443: pems / f"{certificate}.pem"})
    device.write("/srv/ca.pem", (pems / "ca.pem").read_bytes())
    return device


@pytest.fixture
def secure(device, pems):
    """A device whose repository is on HTTPS."""
    return secured(set_up(device), pems)


CONNECT = "CONNECT repo.test:8443 HTTP/1.1"


def proxied(device, *answers):
    scripted(device, *answers, port=3128)
    use_proxy(device, bypassLocalNetwork="off", username="me", password="secret")


def answer(status: str, *header: str) -> list:
    return ["\r\n".join([f"HTTP/1.1 {status}", *header, "Content-Length: 0", "", ""]), True]


def demands(device) -> list[str]:
    """The request lines that the proxy saw in clear."""
    return [line.partition("|")[0] for line in log_of(device, "scripted")]


@pytest.mark.parametrize("status, header", [
    ("403 Forbidden", "Age: 1"), ("502 Bad Gateway", "Age: 1"), ("301 Moved Permanently", "Location: https://repo.test:8443/repo/"),
    ("302 Found", "Location: http://127.0.0.1:8080/"), ("303 See Other", "Location: file:///srv"),
    ("401 Unauthorized", 'WWW-Authenticate: Basic realm="proxy"'), ("407 Proxy Authentication Required", "Age: 1"),
])
def test_nothing_leaves_tls_behind_a_refused_tunnel(secure, status, header):
    """Nor is what the proxy says in the place of the origin believed."""
    proxied(secure, *[answer(status, header)] * 9)
    assert check(secure) == refused(status)
    assert demands(secure) == [CONNECT] * 3
    assert not [line for line in log_of(secure, "scripted") if "uthorization" in line or "no-cache" in line]
    assert log_of(secure, "httpd") == []


DEMAND = answer("407 Proxy Authentication Required", 'Proxy-Authenticate: Basic realm="proxy"')


def test_a_proxy_that_lets_pass_in_the_end(secure):
    proxied(secure, DEMAND, answer("503 Busy"), DEMAND)
    assert check(secure) == [refused("503 Busy")[0], f"INFO: fetched '{INDEX}' in retry 1", *GOOD]
    assert demands(secure) == [CONNECT] * 4
    assert log_of(secure, "httpd", 2) == ["- 200"] * 2


def test_a_proxy_that_demands_without_end(secure):
    digest = 'Proxy-Authenticate: Digest realm="r", nonce="n", qop="auth"'
    proxied(secure, answer("407 No", digest), *[answer("407 No", f"{digest}, stale=true")] * 50)
    assert "proxy server: maximum number of requests (12) exceeded)" in check(secure)[0]
    assert demands(secure) == [CONNECT] * 10  # the request behind the tunnel counts from its beginning


def test_packages_do_not_leave_tls_either(secure):
    proxied(secure, None, *[answer("403 Forbidden")] * 3)
    lines = update(secure, "--test", "app").lines
    assert lines[lines.index("INFO: downloading 2 packages") + 3] == (
        "ERROR: failed fetching 'app-2-1.noarch.rpm' (Could not create SSL connection through proxy server: 403 Forbidden)")
    assert demands(secure) == [CONNECT] * 4


@pytest.mark.parametrize("proxy", [False, True], ids=["direct", "tunnel"])
def test_reads_and_writes_end_below_tls(secure, proxy):
    """The library polls for an answer, and then may wait in a read or a write without end."""
    if proxy:
        proxied(secure)
    traced = secure.shell("strace -f -e trace=setsockopt,sendto,write -e signal=none /device/bin/updater --check-only --max-wait-time=-1",
                          ASAN_OPTIONS="detect_leaks=0")
    assert traced.returncode == 0, traced.stderr
    before = traced.stderr.partition('"\\26\\3\\1')[0]  # the head of a TLS handshake
    assert re.findall(r'SO_(...)TIMEO_\w+, "x\\0', before) == ["RCV", "SND"]  # x: 120


def test_an_address_in_brackets(device, pems):
    """Neither the library nor the server counts ::1 for an address of the device."""
    proxied(device)
    assert device.shell("ip address add fd00::1/64 dev lo").returncode == 0
    secured(set_up(device), pems, "https://[FD00:0::1]:8443/repo", "address")
    assert check(device) == GOOD
    assert demands(device) == ["CONNECT [fd00::1]:8443 HTTP/1.1"]
    device.remove("/etc/network/orvproxy.conf")
    assert check(device) == GOOD


@pytest.mark.long
@pytest.mark.parametrize("proxy", [False, True], ids=["direct", "tunnel"])
def test_stalls_inside_tls(program, pems, proxy):
    """All at once, as each takes minutes. The index is longer than a record."""
    scenes = {"silent": [0], "in the handshake": [100], "in the header": [5000], "in the body": [40_000],
              "in a package": [None, 60_000], "unread": [-900]}
    runs = {}
    with contextlib.ExitStack() as stack:
        for name, answers in scenes.items():
            device = stack.enter_context(Device(program))
            device.install(*OLD)
            device.publish(Package("app", "2-1", requires=("lib >= 2",), size=100_000), *NEW[1:])
            device.write(f"/srv/repo/{INDEX}", device.read(f"/srv/repo/{INDEX}") + f"<!--{'x' * 50_000}-->")
            uri = f"https://repo.test:{8443 if proxy else 3128}/repo" + "/." * (3500 if name == "unread" else 0)
            secured(device, pems, uri)
            proxied(device, *answers)
            if not proxy:
                device.remove("/etc/network/orvproxy.conf")
            if name == "unread":
                assert device.shell("mount -o remount,rw /proc; cd /proc/sys/net/ipv4; "
                                    "echo 4096 4096 4096 | tee tcp_rmem >tcp_wmem").returncode == 0
            runs[name] = device.start("--max-wait-time=-1", "--test", "app")
        begin = time.monotonic()
        for name, run in runs.items():
            result = run.wait(600)
            file = "app-2-1.noarch.rpm" if name == "in a package" else INDEX
            told = [line.partition(" (")[0] for line in result.lines if "fetching" in line or "in retry" in line]
            assert told == [f"WARNING: failed fetching '{file}'", f"INFO: fetched '{file}' in retry 1"], name
            assert (result.returncode, result.lines[-2]) == (0, "INFO: packages tested OK"), name
        assert 240 <= time.monotonic() - begin < 300
