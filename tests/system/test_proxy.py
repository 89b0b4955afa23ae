"""Updates through Squid, or past it."""

import pytest
from device.device import Package
from peers import FIRST, NO_INDEX, behind_head, log_of, nginx, squid, update, use_proxy
from scenes import NEW, REPORT, set_up

GOOD = [*REPORT, "INFO: --- EXIT OK ---"]
PRIMARY = "repodata/primary.xml.gz"
UNKNOWN = ["ERROR: failed resolving address 'repo.test' (Temporary failure in name resolution)",
           "WARNING: could not check if addresses for host 'repo.test' are in local net, using proxy"]
REFUSED = [f"ERROR: failed fetching '{FIRST}' (authentication failed on proxy)",
           "ERROR: make sure the proper username and password are configured in the proxy settings", *NO_INDEX]


@pytest.fixture
def waiting(device):
    set_up(device).configure("http://repo.test:8080/repo", release="firmware", addons=["extra"])
    nginx(device)
    return device


@pytest.mark.parametrize("host, bypass, lines, proxied", [
    ("127.0.0.1", {}, GOOD, False),
    ("10.9.9.77", {}, GOOD, False),
    ("10.9.10.1", {}, GOOD, True),
    ("localhost", {}, GOOD, False),
    ("[::1]", {}, GOOD, False),
    ("[fd00::1]", {}, GOOD, True),
    ("10.9.9.77", {"bypassLocalNetwork": "off"}, GOOD, True),
    ("[::1]", {"bypassLocalNetwork": "false"}, GOOD, True),
    ("repo.test", {}, UNKNOWN + GOOD, True),
    ("repo.test", {"bypassLocalNetwork": "false"}, GOOD, True),
])
def test_who_goes_past_the_proxy(waiting, host, bypass, lines, proxied):
    """10.9.10.1 and fd00::1 are of no local network, and lead to this machine all the same."""
    uri = f"http://{host}:8080/repo"
    waiting.configure(uri, release="firmware", addons=["extra"])
    assert waiting.shell("ip route add local 10.9.10.0/24 dev lo; ip -6 route add local fd00::/64 dev lo").returncode == 0
    squid(waiting)
    use_proxy(waiting, **bypass)
    assert behind_head(update(waiting, "--check-only")) == lines
    assert log_of(waiting, "squid", 2 * proxied) == [
        f"{result} {uri}/{path}" for result, path in (("TCP_MISS", FIRST), ("TCP_MISS", PRIMARY))] * proxied
    assert len(log_of(waiting, "nginx", 2)) == 2


@pytest.mark.parametrize("scheme", ["basic", "digest"])
@pytest.mark.parametrize("known, lines", [
    ({"username": "me", "password": "secret"}, GOOD),
    ({"username": "me", "password": "wrong"}, ["ERROR: proxy authentication as user 'me' failed", *REFUSED]),
    ({}, ["ERROR: proxy authentication requested but no credentials set", *REFUSED]),
])
def test_the_password_of_the_proxy(waiting, scheme, known, lines):
    squid(waiting, scheme)
    use_proxy(waiting, bypassLocalNetwork="off", **known)
    result = update(waiting, "--check-only")
    assert behind_head(result) == lines
    assert "secret" not in result.stderr + waiting.read("/var/log/updater/lastlog")


def test_a_stale_answer_is_asked_for_again(waiting):
    """Only the index is asked for past the cache, until what comes from there does not fit it."""
    squid(waiting)
    use_proxy(waiting, bypassLocalNetwork="off")
    assert behind_head(update(waiting, "--check-only")) == GOOD
    waiting.publish(*NEW, Package("more", "1-1"))
    assert behind_head(update(waiting, "--check-only")) == [
        f"WARNING: invalid checksum on '{PRIMARY}'; retrying with bypass of http caches", *GOOD]
    assert [line.partition(" http://repo.test:8080/repo/")[::2] for line in log_of(waiting, "squid", 5)] == [
        ("TCP_MISS", FIRST), ("TCP_MISS", PRIMARY), ("TCP_MISS", FIRST),
        ("TCP_MEM_HIT", PRIMARY), ("TCP_MISS", PRIMARY)]


def test_no_proxy_there(waiting):
    use_proxy(waiting, bypassLocalNetwork="off")
    text = f"failed fetching '{FIRST}' (could not connect to server)"
    assert behind_head(update(waiting, "--check-only")) == [f"WARNING: {text}; retrying"] * 2 + [f"ERROR: {text}", *NO_INDEX]
