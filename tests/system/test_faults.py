"""A server that misbehaves in every way that a network can, and the exact lines that follow."""

import re
import time

import pytest
from device.device import Device
from peers import GOOD, INDEX, NO_INDEX, PRIMARY, check, log_of, point_at, scripted, update
from scenes import set_up

URI = "http://127.0.0.1:8080/srv/repo"
CLOSED = "connection was closed by server"
TIMED_OUT = "connection timed out"


def reply(status: str, *header: str, body: str = "") -> list[str]:
    return ["\r\n".join([f"HTTP/1.1 {status}", *header, "Connection: close", "", body])]


def moved(location: str) -> list[str]:
    return reply("302 Found", f"Location: {location}", "Content-Length: 0")


def retrying(text: str) -> str:
    return f"WARNING: failed fetching '{INDEX}' ({text}); retrying"


def failed(text: str, *behind: str) -> list[str]:
    return [f"ERROR: failed fetching '{INDEX}' ({text})", *behind, *NO_INDEX]


@pytest.fixture
def waiting(device):
    return point_at(set_up(device), URI)


CUT = reply("200 OK", "Content-Length: 99", body="<repomd>")
BROKEN = [
    ([], f"Could not read status line: {CLOSED}"),
    ([None], "Could not read status line: Connection reset by peer"),
    (["SSH-2.0-server\r\n\r\n"], "Could not parse response status line"),
    (reply("200 OK", "Content-Length: 99999", body="x" * 9999), f"Could not read response body: {CLOSED}"),
    (reply("200 OK", "Transfer-Encoding: chunked", body="zz\r\n"), "Could not parse chunk size"),
    (moved("http://[::1"), "Could not parse redirect destination URL"),
]


@pytest.mark.parametrize("answer, text", BROKEN)
def test_three_requests_and_no_more(waiting, answer, text):
    """Repaired in time, nothing of the first answers is left."""
    scripted(waiting, *[answer] * 5)
    assert check(waiting) == [retrying(text), retrying(text), *failed(text)]
    assert len(log_of(waiting, "scripted")) == 3
    assert check(waiting) == [retrying(text), retrying(text), f"INFO: fetched '{INDEX}' in retry 2", *GOOD]
    assert waiting.read("/var/cache/updater/base/repomd.xml") == waiting.read(f"/srv/repo/{INDEX}")


FINAL = ("404 Not Found", "304 Not Modified", "308 Permanent Redirect", "302 Found")
TOO_MANY = ["ERROR: maximum number of redirects (5) exceeded", *NO_INDEX]
UNUSABLE = "ERROR: cannot create fetcher for redirection to '{}'"
REFUSED = "could not connect to server"
BAD_INDEX = [f"ERROR: failed parsing repository metadata from '{INDEX}'", *NO_INDEX[1:]]


@pytest.mark.parametrize("answers, lines, hosts", [
    *(([reply(status, "Content-Length: 0")], failed(status), ["127.0.0.1"]) for status in FINAL),
    ([reply("204 No Content")], BAD_INDEX, ["127.0.0.1"]),
    ([reply("206 Partial Content", body="{}")], GOOD, ["127.0.0.1"] * 2),
    ([moved("http://localhost:8080/x")] * 5, GOOD, ["127.0.0.1", *["localhost"] * 5, "127.0.0.1"]),
    ([moved("http://localhost:8080/x"), None] * 2, GOOD, ["127.0.0.1", "localhost"] * 2),
    ([moved("http://localhost:8080/x")] * 6, TOO_MANY, ["127.0.0.1", *["localhost"] * 5]),
    ([moved("file:///nowhere")], GOOD, ["127.0.0.1"] * 2),  # gives the same path of the local files
    ([moved("file://far/x")],
     ["ERROR: only local file: URIs supported", UNUSABLE.format("file://far/x"), *NO_INDEX], ["127.0.0.1"]),
    ([moved("ftp://%n%s/")], ["ERROR: scheme 'ftp' not supported", UNUSABLE.format("ftp://%n%s/"), *NO_INDEX], ["127.0.0.1"]),
    ([reply("404 %n%s\x1b[2J\rINFO: x\x7f", "Content-Length: 0")], failed("404 %n%s [2J INFO: x "), ["127.0.0.1"]),
    ([moved("http://localhost:8080/login"), reply("200 OK", body="<html>Please log in")], BAD_INDEX, ["127.0.0.1", "localhost"]),
    ([moved("http://a\x1b/")], ["ERROR: got redirect with unparseable location", *NO_INDEX], ["127.0.0.1"]),
    ([moved("http://localhost:9/")], [retrying(REFUSED), retrying(REFUSED), *failed(REFUSED)], ["127.0.0.1"]),
    ([moved("http://far.test/")], failed(
        "server or proxy hostname lookup failed", "ERROR: make sure that a network gateway and DNS servers are configured",
        "and that the unit is connected to the network"), ["127.0.0.1"]),
])
def test_answers(waiting, answers, lines, hosts):
    index, cache = waiting.read(f"/srv/repo/{INDEX}"), waiting.write("/var/cache/updater/base/repomd.xml", "older")
    scripted(waiting, *([part.replace("{}", index) if isinstance(part, str) else part for part in answer] if answer else None
                        for answer in answers))
    seen = check(waiting)
    assert seen[0 if lines != BAD_INDEX else -len(lines):] == lines  # libxml2 has its say there
    asked = re.findall(r"GET (\S+) .*\|Host: ([^:|]+):8080", "\n".join(log_of(waiting, "scripted")))
    assert [host for _, host in asked] == hosts
    assert {path for path, _ in asked} == {f"/srv/repo/{path}" for path in ((INDEX, PRIMARY) if lines == GOOD else (INDEX,))}
    assert [file.name for file in cache.parent.glob("repomd*")] == ["repomd.xml"]
    assert (cache.read_text() == "older") == (lines[0] not in (GOOD[0], BAD_INDEX[0]))


@pytest.mark.parametrize("before, status", [(0, "ANALYZING"), (1, "ANALYZING"), (3, "DOWNLOADING")])
def test_a_signal_ends_a_transfer_at_once(waiting, before, status):
    scripted(waiting, *[None] * before, [*reply("200 OK", "Content-Length: 99", body="<"), 30])
    running = waiting.start("--max-wait-time=-1", "app")
    assert len(log_of(waiting, "scripted", before + 1)) == before + 1
    running.signal(15)
    assert (running.wait(5).returncode, waiting.status) == (143, status)


def test_one_fetcher_for_each_origin(waiting):
    """A redirect of the index does not make one of the plain failure behind it, either."""
    redirected = moved("http://localhost:8080/x"), None
    scripted(point_at(waiting, URI, level="debug"), *redirected, reply("404 Not Found"), *redirected * 2)
    seen = check(waiting)
    assert f"ERROR: failed fetching '{PRIMARY}' (404 Not Found)" in seen and NO_INDEX[1] in seen
    made = [line for line in check(waiting) if line.startswith("DEBUG: URI fetcher")]
    assert [line.split("host ")[1] for line in made] == ["'127.0.0.1', port 8080 created", "'localhost', port 8080 created"]


@pytest.mark.long
def test_silence_and_slow_transfers(program):
    """Three devices at a time, as each of them waits: for answers, for a connection, for a slow package."""
    with Device(program) as silent, Device(program) as absent, Device(program) as slow:
        for device, host in ((silent, "127.0.0.1"), (absent, "10.8.0.1"), (slow, "127.0.0.1")):
            device.import_key()
            point_at(set_up(device), URI.replace("127.0.0.1", host))
        scripted(silent, [125], [*CUT, 125])
        scripted(absent)
        package = slow.path("/srv/repo/lib-2-1.noarch.rpm").read_bytes().decode("latin-1")
        scripted(slow, None, None, None, [*reply("200 OK", f"Content-Length: {len(package)}", body=package[:99]), 62, package[99:]])
        assert absent.shell("ip route add 10.8.0.0/16 dev lo; mount -o remount,rw /proc;"  # swallows what comes
                            "echo 8 >/proc/sys/net/ipv4/tcp_syn_retries").returncode == 0
        begin = time.monotonic()
        runs = [device.start("--max-wait-time=-1", *arguments) for device, arguments in (
            (silent, ["--check-only"]), (absent, ["--check-only"]), (slow, ["--test", "app"]))]
        time.sleep(190)  # the second attempt is under way
        assert absent.shell("ip address add 10.8.0.1/32 dev lo").returncode == 0
        silence, absence, progress = [run.wait(400).lines for run in runs]
        assert 240 <= time.monotonic() - begin < 300
    assert silence[4:] == [
        "INFO: downloading... (0/2)", retrying(TIMED_OUT), "INFO: downloading... (0/2)",
        retrying(f"Could not read response body: {TIMED_OUT}"), f"INFO: fetched '{INDEX}' in retry 2",
        "INFO: downloaded (2/2)", *GOOD]
    assert absence[4:] == [retrying(TIMED_OUT), "INFO: downloading... (0/2)", f"INFO: fetched '{INDEX}' in retry 1",
                           "INFO: downloaded (2/2)", *GOOD]
    begin = progress.index("INFO: downloading 2 packages") + 1
    assert progress[begin:begin + 2] == ["INFO: downloading... (1/2)", "INFO: downloaded (2/2)"]
