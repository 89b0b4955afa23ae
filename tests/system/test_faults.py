"""A server that misbehaves in every way that a network can, and the exact lines that follow."""

import time

import pytest
from device.device import Device, Package
from peers import FIRST, NO_INDEX, behind_head, log_of, scripted, update
from scenes import REPORT, set_up

URI = "http://127.0.0.1:8080/srv/repo"
CLOSED = "connection was closed by server"


def reply(status: str, *header: str, body: str = "") -> str:
    return "\r\n".join([f"HTTP/1.1 {status}", *header, "Connection: close", "", body])


def moved(location: str = "", status: str = "302 Found") -> list:
    return [reply(status, f"Location: {location}" if location else "X: y", "Content-Length: 0")]


def failed(text: str) -> str:
    return f"ERROR: failed fetching '{FIRST}' ({text})"


def retrying(text: str) -> str:
    return f"WARNING: failed fetching '{FIRST}' ({text}); retrying"


@pytest.fixture
def waiting(device):
    set_up(device).configure(URI, release="firmware", addons=["extra"])
    return device


@pytest.mark.parametrize("answer, text", [
    ([""], f"Could not read status line: {CLOSED}"),
    (["HTTP/1.1 20"], f"Could not read status line: {CLOSED}"),
    ([None], "Could not read status line: Connection reset by peer"),
    (["SSH-2.0-server\r\n\r\n"], "Could not parse response status line"),
    ([reply("200 OK", "Content-Length: 99", body="<repomd>")], f"Could not read response body: {CLOSED}"),
    ([reply("200 OK", "Transfer-Encoding: chunked", body="9\r\n<repomd/>\r\n")], f"Could not read chunk size: {CLOSED}"),
    ([reply("200 OK", "Transfer-Encoding: chunked", body="zz\r\n")], "Could not parse chunk size"),
    (moved("http://[::1"), "Could not parse redirect destination URL"),
])
def test_three_requests_and_then_no_more(waiting, answer, text):
    """The third time it fails for good. Repaired in time, nothing of the first answers is left."""
    scripted(waiting, answer, answer, answer, answer, answer)
    assert behind_head(update(waiting, "--check-only")) == [retrying(text), retrying(text), failed(text), *NO_INDEX]
    assert len(log_of(waiting, "scripted")) == 3
    assert behind_head(update(waiting, "--check-only")) == [
        retrying(text), retrying(text), f"INFO: fetched '{FIRST}' in retry 2", *REPORT, "INFO: --- EXIT OK ---"]
    assert waiting.read("/var/cache/updater/base/repomd.xml") == waiting.read("/srv/repo/repodata/repomd.xml")


@pytest.mark.parametrize("answer, text", [
    (moved(status=status), status) for status in
    ("404 Not Found", "500 Internal Server Error", "304 Not Modified", "308 Permanent Redirect", "302 Found")])
def test_one_request_and_no_more(waiting, answer, text):
    waiting.write("/var/cache/updater/base/repomd.xml", "older")
    scripted(waiting, answer)
    assert behind_head(update(waiting, "--check-only")) == [failed(text), *NO_INDEX]
    assert log_of(waiting, "scripted") == [f"/srv/repo/{FIRST} 127.0.0.1:8080"]
    assert [path.name for path in waiting.path("/var/cache/updater/base").glob("repomd*")] == ["repomd.xml"]
    assert waiting.read("/var/cache/updater/base/repomd.xml") == "older"


@pytest.mark.parametrize("answer, code", [
    ([reply("204 No Content")], 1),
    ([reply("200 OK", "Content-Length: 40", body="{}")], 1),  # shorter than the file, so it is cut unseen
    ([reply("206 Partial Content", body="{}")], 0),
    ([reply("200 OK", body="{}")], 0),
    (["H", 0.02, "TTP/1.1 200", 0.02, reply(" OK")[9:], 0.02, "{}"], 0),
])
def test_what_counts_as_a_success(waiting, answer, code):
    index = waiting.read("/srv/repo/repodata/repomd.xml")
    scripted(waiting, [part.replace("{}", index) if isinstance(part, str) else part for part in answer])
    result = update(waiting, "--check-only")
    assert behind_head(result)[-len(REPORT) - 1:-1] == REPORT if code == 0 else behind_head(result)[-3:] == [
        f"ERROR: failed parsing repository metadata from '{FIRST}'", *NO_INDEX[1:]]
    assert result.returncode == code


@pytest.mark.parametrize("uri", [URI, "http://localhost:8080/elsewhere"])
def test_five_redirects_are_followed_and_the_sixth_fails(waiting, uri):
    scripted(waiting, *[moved(uri)] * 5, None, None, *[moved(uri)] * 6)
    assert behind_head(update(waiting, "--check-only")) == [*REPORT, "INFO: --- EXIT OK ---"]
    other = uri.split("/")[2]
    assert log_of(waiting, "scripted") == [
        f"/srv/repo/{FIRST} 127.0.0.1:8080", *[f"/srv/repo/{FIRST} {other}"] * 5,
        "/srv/repo/repodata/primary.xml.gz 127.0.0.1:8080"]
    assert behind_head(update(waiting, "--check-only")) == [
        "ERROR: maximum number of redirects (5) exceeded", *NO_INDEX]
    assert len(log_of(waiting, "scripted")) == 13


@pytest.mark.parametrize("location, lines", [
    ("file:///nowhere", [*REPORT, "INFO: --- EXIT OK ---"]),  # the path stays: /srv/repo/repodata/repomd.xml
    ("file://elsewhere/srv/repo", ["ERROR: only local file: URIs supported",
                                   "ERROR: cannot create fetcher for redirection to 'file://elsewhere/srv/repo'", *NO_INDEX]),
    ("ftp://elsewhere/", ["ERROR: scheme 'ftp' not supported",
                          "ERROR: cannot create fetcher for redirection to 'ftp://elsewhere/'", *NO_INDEX]),
    ("http://127.0.0.1:9/", [*[retrying("could not connect to server")] * 2, failed("could not connect to server"), *NO_INDEX]),
    ("http://nowhere.test/", [
        failed("server or proxy hostname lookup failed"),
        "ERROR: make sure that a network gateway and DNS servers are configured", "and that the unit is connected to the network",
        *NO_INDEX]),
])
def test_redirects_to_other_kinds_of_places(waiting, location, lines):
    scripted(waiting, moved(location))
    assert behind_head(update(waiting, "--check-only")) == lines


def test_a_package_that_breaks_off(waiting):
    name, uri = "app-2-1.noarch.rpm", "/srv/repo/app-2-1.noarch.rpm"
    scripted(waiting, None, None, *[[reply("200 OK", "Content-Length: 99", body="cut")]] * 4, [""])
    lines = update(waiting, "--test", "app").lines
    text = f"'{name}' (Could not read response body: {CLOSED})"
    begin = lines.index("INFO: downloading 2 packages") + 1
    assert lines[begin:begin + 4] == [
        *[f"WARNING: failed fetching {text}; retrying"] * 2, f"ERROR: failed fetching {text}",
        f"ERROR: failed getting package '{name}' from repository"]
    assert [line.split()[0] for line in log_of(waiting, "scripted")][2:] == [uri] * 3
    assert list(waiting.path("/var/cache/updater/base/packages").iterdir()) == []


@pytest.mark.long
def test_silence_and_the_progress_of_slow_transfers(program):
    """Three devices at a time, as each of them waits: for answers, for a connection, for a slow package."""
    with Device(program) as silent, Device(program) as absent, Device(program) as slow:
        for device in (silent, absent, slow):
            device.import_key()
            set_up(device).configure(URI)
        scripted(silent, [125], [reply("200 OK", "Content-Length: 99", body="x"), 125])
        scripted(absent)
        absent.configure(URI.replace("127.0.0.1", "10.8.0.1"))
        assert absent.shell("ip route add 10.8.0.0/16 dev lo").returncode == 0
        package = slow.path("/srv/repo/lib-2-1.noarch.rpm").read_bytes().decode("latin-1")
        half = [reply("200 OK", f"Content-Length: {len(package)}", body=package[:99]), 62, package[99:]]
        scripted(slow, None, None, None, half)
        begin = time.monotonic()
        arguments = ("--max-wait-time=-1", "--check-only")
        runs = [silent.start(*arguments), absent.start(*arguments), slow.start("--max-wait-time=-1", "--test", "app")]
        time.sleep(185)  # the second attempt is under way
        assert absent.shell("ip address add 10.8.0.1/32 dev lo").returncode == 0
        results = [run.wait(600) for run in runs]
        assert 240 <= time.monotonic() - begin < 300
    end = [*REPORT, "INFO: --- EXIT OK ---"]
    del end[1]  # no release package
    assert behind_head(results[0]) == [
        retrying("connection timed out"), retrying("Could not read response body: connection timed out"),
        f"INFO: fetched '{FIRST}' in retry 2", *end]
    assert behind_head(results[1]) == [retrying("connection timed out"), f"INFO: fetched '{FIRST}' in retry 1", *end]
    lines = results[2].lines
    begin = lines.index("INFO: downloading 2 packages") + 1
    assert lines[begin:begin + 2] == ["INFO: downloading... (1/2)", "INFO: downloaded (2/2)"]
