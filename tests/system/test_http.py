"""Updates over plain HTTP from nginx: what goes over the wire, and what doesn't."""

import pytest
from peers import GOOD, INDEX, PRIMARY, check, log_of, nginx, point_at, update
from scenes import NEW_STATE, set_up

URI = "http://127.0.0.1:8080/repo"
SENT = "200|demo/1.1 (demo-00000000deadbeef) neon/0.32.5|"


@pytest.fixture
def server(device):
    nginx(point_at(set_up(device), URI))
    return device


def log(device, count: int) -> tuple[list[str], list[str]]:
    """The numbers of the connections and the rest, of so many requests."""
    lines = [line.split("|/repo/") for line in log_of(device, "nginx", count)]
    return [number for number, _ in lines], [rest for _, rest in lines]


def test_the_whole_road(server):
    result = update(server)
    assert (result.returncode, server.status, server.installed()) == (0, "REBOOTING", NEW_STATE)
    numbers, requests = log(server, 6)
    assert requests == [f"{INDEX}|{SENT}no-cache|no-cache", *(f"{path}|{SENT}-|-" for path in (
        PRIMARY, *(f"{name}-1.noarch.rpm" for name in ("app-2", "lib-2", "extra-5", "firmware-2"))))]
    assert [numbers.count(number) for number in numbers] == [2] * 6  # one for the refresh and for each pass


def test_an_unchanged_repository_costs_its_index_only(server):
    assert [check(server), check(server)] == [GOOD, GOOD]
    assert [line.partition("|")[0] for line in log(server, 3)[1]] == [INDEX, PRIMARY, INDEX]


@pytest.mark.parametrize("host, requests, connections", [("10.9.9.8", 6, 1), ("10.9.9.9", 4, 4)])
def test_a_redirect_closes_connections_at_another_origin_only(device, host, requests, connections):
    nginx(point_at(set_up(device), f"http://{host}:8080/repo"))
    check(device)
    numbers = log(device, requests)[0]
    assert (len(numbers), len(set(numbers))) == (requests, connections)


def test_a_damaged_package_is_fetched_again_past_the_caches(server):
    name = "lib-2-1.noarch.rpm"
    server.write(f"/srv/repo/{name}", "damaged")
    path = f"/var/cache/updater/base/packages/{name}"
    lines = update(server, "--test", "--no-cache-clean", "app").lines
    begin = lines.index("INFO: downloading 2 packages") + 1
    assert lines[begin:begin + 2] == [f"WARNING: invalid checksum on '{path}'; retrying with bypass of http caches",
                                      f"ERROR: invalid checksum on '{path}'"]
    assert log(server, 5)[1][3:] == [f"{name}|{SENT}-|-", f"{name}|{SENT}no-cache|no-cache"]
    assert server.read(path) == "damaged"
