"""Updates through Squid, or past it."""

import pytest
from device.device import Package
from peers import GOOD, INDEX, NO_INDEX, PRIMARY, check, log_of, nginx, point_at, squid, use_proxy
from scenes import NEW, set_up

UNKNOWN = ["ERROR: failed resolving address 'repo.test' (Temporary failure in name resolution)",
           "WARNING: could not check if addresses for host 'repo.test' are in local net, using proxy"]
REFUSED = [f"ERROR: failed fetching '{INDEX}' (authentication failed on proxy)",
           "ERROR: make sure the proper username and password are configured in the proxy settings", *NO_INDEX]


@pytest.fixture
def waiting(device):
    nginx(point_at(set_up(device), "http://repo.test:8080/repo"))
    return device


@pytest.mark.parametrize("host, bypass, lines, proxied", [
    ("10.9.9.77", {}, GOOD, False),
    ("10.9.10.1", {}, GOOD, True),
    ("localhost", {}, GOOD, False),
    ("[::1]", {}, GOOD, False),
    ("10.9.9.77", {"bypassLocalNetwork": "off"}, GOOD, True),
    ("repo.test", {}, UNKNOWN + GOOD, True),
])
def test_who_goes_past_the_proxy(waiting, host, bypass, lines, proxied):
    """10.9.10.1 is of no local network, and leads to this machine all the same."""
    point_at(waiting, f"http://{host}:8080/repo")
    assert waiting.shell("ip route add local 10.9.10.0/24 dev lo").returncode == 0
    squid(waiting)
    use_proxy(waiting, **bypass)
    assert check(waiting) == lines
    assert log_of(waiting, "squid", 2 * proxied) == [
        f"TCP_MISS http://{host}:8080/repo/{path}" for path in (INDEX, PRIMARY)] * proxied
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
    assert check(waiting) == lines


def test_a_stale_answer_is_asked_for_again(waiting):
    """Only the index is asked for past the cache, until what comes from there does not fit it."""
    squid(waiting)
    use_proxy(waiting, bypassLocalNetwork="off")
    assert check(waiting) == GOOD
    waiting.publish(*NEW, Package("more", "1-1"))
    assert check(waiting) == [f"WARNING: invalid checksum on '{PRIMARY}'; retrying with bypass of http caches", *GOOD]
    assert log_of(waiting, "squid", 5) == [f"{result} http://repo.test:8080/repo/{path}" for result, path in (
        ("TCP_MISS", INDEX), ("TCP_MISS", PRIMARY), ("TCP_MISS", INDEX), ("TCP_MEM_HIT", PRIMARY), ("TCP_MISS", PRIMARY))]
