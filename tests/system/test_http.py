"""Updates over plain HTTP from nginx: what goes over the wire, and what doesn't."""

import pytest
from device.device import Package
from peers import AGENT, behind_head, log_of, nginx, update
from scenes import NEW_STATE, REPORT, set_up

URI = "http://127.0.0.1:8080/repo"
INDEX, PRIMARY = "/repo/repodata/repomd.xml", "/repo/repodata/primary.xml.gz"
SENT = "200|agent/1.1 (demo-00000000deadbeef) neon/0.32.5|"


@pytest.fixture
def server(device):
    set_up(device).configure(URI, release="firmware", addons=["extra"], extra=AGENT)
    nginx(device)
    return device


def requests(device, count: int) -> list[str]:
    """The lines of the log, without numbers of connections."""
    return [line.partition("|")[2] for line in log_of(device, "nginx", count)]


def connections(device, count: int) -> list[str]:
    return [line.partition("|")[0] for line in log_of(device, "nginx", count)]


@pytest.mark.parametrize("uri", [URI, URI + "/"])
def test_the_whole_road(server, uri):
    server.configure(uri, release="firmware", addons=["extra"], extra=AGENT)
    result = update(server)
    assert (result.returncode, server.status, server.installed()) == (0, "REBOOTING", NEW_STATE)
    assert requests(server, 6) == [f"{INDEX}|{SENT}no-cache|no-cache", *(f"{path}|{SENT}-|-" for path in (
        PRIMARY, *(f"/repo/{name}-1.noarch.rpm" for name in ("app-2", "lib-2", "extra-5", "firmware-2"))))]
    first = connections(server, 6)
    assert first == [first[0]] * 2 + [first[2]] * 2 + [first[4]] * 2  # a connection for each refresh or fetch
    assert len(set(first)) == 3


def test_an_unchanged_repository_costs_its_index_only(server):
    for _ in range(2):
        assert behind_head(update(server, "--check-only")) == [*REPORT, "INFO: --- EXIT OK ---"]
    assert [line.partition("|")[0] for line in requests(server, 3)] == [INDEX, PRIMARY, INDEX]


def test_one_connection_for_200_packages(device):
    names = [f"part{number:03}" for number in range(199)]
    device.install(Package("whole", "1-1"))
    device.publish(Package("whole", "2-1", requires=tuple(names)), *(Package(name, "1-1") for name in names))
    device.configure(URI)
    device.answer("rpm --test", exit=0)
    nginx(device)
    result = update(device, "--test", "whole")
    assert (result.returncode, "INFO: downloading 200 packages" in result.lines) == (0, True)
    assert len(requests(device, 202)) == 202
    assert len(set(connections(device, 202)[2:])) == 1


def test_a_damaged_package_is_fetched_again_past_the_caches(server):
    server.path("/srv/repo/lib-2-1.noarch.rpm").write_bytes(b"damaged")
    path = "/var/cache/updater/base/packages/lib-2-1.noarch.rpm"
    lines = update(server, "--test", "--no-cache-clean", "app").lines
    begin = lines.index("INFO: downloading 2 packages") + 1
    assert lines[begin:begin + 2] == [f"WARNING: invalid checksum on '{path}'; retrying with bypass of http caches",
                                      f"ERROR: invalid checksum on '{path}'"]
    assert requests(server, 5)[3:] == [f"/repo/lib-2-1.noarch.rpm|{SENT}-|-", f"/repo/lib-2-1.noarch.rpm|{SENT}no-cache|no-cache"]
    assert server.read(path) == "damaged"


@pytest.mark.parametrize("cpuinfo, agent, lines", [
    ("Hardware : Quorax\nRevision : 0210\n", "agent/1.1", ["ERROR: no Serial in '/proc/cpuinfo'"]),
    ("Hardware : Toaster\nRevision : 0210\nSerial : 1 2\n", "agent/1.1 (demo-1)", ["WARNING: unknown hardware 'Toaster'"]),
])
def test_the_user_agent_of_odd_devices(server, cpuinfo, agent, lines):
    server.write("/proc/cpuinfo", cpuinfo)
    result = update(server, "--check-only")
    assert [line for line in result.lines if line[:4] != "INFO"] == lines
    assert {line.split("|")[2] for line in requests(server, 2)} == {f"{agent} neon/0.32.5"}
