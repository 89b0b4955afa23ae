"""The device's identity, proven to an Apache server that was told user and password independently."""

import base64
import hashlib
import string

import pytest
from device.device import Device
from peers import (GOOD, INDEX, NO_INDEX, USER, certificates, check, httpd, log_of, nginx, point_at, scripted, update,
                   use_proxy)
from scenes import set_up

ALPHABET = string.ascii_lowercase + string.ascii_uppercase + string.digits + ".-"
CORE, BASE = b"core-EEPROM02-00-12345", b"base-EEPROM02-12-67890"  # the last one of 22 bytes does not count
MENDED = b"core-EEPROM02-12-1234"
REFUSED = [f"ERROR: failed fetching '{INDEX}' (authentication failed on server)", *NO_INDEX]


def password_of(blocks: bytes) -> str:
    return "".join(ALPHABET[byte % 64] for byte in hashlib.md5(blocks).digest()[:12])


PASSWORD = password_of(BASE[:21] + CORE[:21])


def set_blocks(device: Device, *blocks: bytes) -> None:
    for number, block in zip((50, 52, 53), blocks, strict=True):
        file = device.write(f"/sys/bus/i2c/drivers/Quorax-EEPROM/0-00{number}/data", block)
        if not block:
            file.unlink()


@pytest.mark.parametrize("board, blocks, hashed", [
    ("Quorax", (CORE, BASE, BASE), MENDED + BASE[:21]),
    ("Velmir", (b"short", CORE, BASE), CORE[:21]),
])
def test_the_password_of_every_board(device, board, blocks, hashed):
    device.write("/proc/cpuinfo", f"Hardware : {board}\nRevision : 0210\nSerial : 1\n")
    set_blocks(device, *blocks)
    httpd(point_at(set_up(device), "http://localhost:8080/digest"), password_of(hashed))
    assert check(device) == GOOD
    assert log_of(device, "httpd", 3) == ["- 401", f"{USER} 200", f"{USER} 200"]


@pytest.mark.parametrize("uri", ["http://localhost:8080/digest", "https://repo.test:8443/basic"])
def test_schemes_that_work_and_leave_no_password(device, tmp_path, uri):
    certificates(tmp_path)
    set_blocks(device, BASE, CORE, b"")
    httpd(point_at(set_up(device), uri, '<tls trust="/srv/ca.pem"/>', "trace"), PASSWORD, {8443: tmp_path / "good.pem"})
    device.write("/srv/ca.pem", (tmp_path / "ca.pem").read_bytes())
    result = update(device, "--test")
    assert (result.returncode, f"{USER} 200" in log_of(device, "httpd", 2)) == (0, True)
    assert f"TRACE: attempting http authentication as user '{USER}'" in result.lines
    written = [file for place in ("/var", "/run", "/tmp", "/opt", "/root") for file in device.path(place).rglob("*")]
    texts = [result.stderr.encode(), *(file.read_bytes() for file in written if file.is_file())]
    assert len(texts) > 5 and not any(PASSWORD.encode() in text for text in texts)


@pytest.mark.parametrize("path, password, blocks, requests, lines", [
    ("basic", PASSWORD, (BASE, CORE, b""), 1, REFUSED),  # the credentials are not even asked for
    ("digest", "wrong", (BASE, CORE, b""), 2, [f"ERROR: http authentication as user '{USER}' failed", *REFUSED]),
    ("digest", PASSWORD, (b"", CORE, b""), 1, ["ERROR: http authentication requested but no credentials set", *REFUSED]),
])
def test_refusals(device, path, password, blocks, requests, lines):
    set_blocks(device, *blocks)
    httpd(point_at(set_up(device), f"http://localhost:8080/{path}", level="trace"), password)
    seen = update(device, "--check-only").lines
    assert [line for line in seen if line.startswith(("ERROR", "WARNING"))] == [
        "ERROR: cannot recover default password for authentication",
        "WARNING: cannot recover default authentication credentials"] * (not blocks[0]) + lines[:-1]
    assert len([line for line in seen if line.startswith("TRACE: attempting")]) == requests - 1
    assert len(log_of(device, "httpd", requests)) == requests


def demand(challenge: str, role: str, *header: str) -> list[str]:
    status, name = {"origin": (401, "WWW"), "proxy": (407, "Proxy")}[role]
    return ["\r\n".join([f"HTTP/1.1 {status} No", f"{name}-Authenticate: {challenge}", *header, "Content-Length: 0", "", ""])]


def asking(device: Device, role: str) -> Device:
    """Asks the scripted server as its origin or as its proxy, and knows a password for both."""
    set_blocks(device, BASE, CORE, b"")
    if role == "proxy":
        use_proxy(device, port="8080", bypassLocalNetwork="off", username="me", password="secret")
    return point_at(set_up(device), "http://localhost:8080/srv/repo")


DIGEST = 'Digest realm="r", nonce="n", qop="auth"'
TOKEN = "NTLM " + base64.b64encode(b"NTLMSSP\0\2\0\0\0" + bytes(36)).decode()
STALE = f"{DIGEST}, stale=true"


@pytest.mark.parametrize("role, first, then, kept, swallowed", [
    ("origin", [DIGEST], STALE, False, False),
    ("origin", [DIGEST, STALE], STALE, True, True),  # the last request as well
    ("proxy", [DIGEST], STALE, False, False),
    ("proxy", ["NTLM"], TOKEN, True, False),
], ids=["stale", "swallowed", "stale proxy", "NTLM"])
def test_challenges_without_end(device, role, first, then, kept, swallowed):
    """What a kept connection swallows the library sends once more by itself."""
    asking(device, role)
    close = [] if kept else ["Connection: close"]
    scripted(device, *([*demand(challenge, role, *close), kept] for challenge in first),
             *([*demand(then, role, *close), kept], *[[]] * swallowed) * 50)
    text = "maximum number of requests (12) exceeded"
    if len(first) == 2:
        text = "Could not read status line: connection was closed by server"
    assert check(device) == [f"ERROR: failed fetching '{INDEX}' ({text})", *NO_INDEX]
    assert len(log_of(device, "scripted")) == 12


@pytest.mark.parametrize("role, name, before, file", [("origin", "WWW", 2, "app-2-1.noarch.rpm"), ("proxy", "Proxy", 0, INDEX)])
def test_headers_that_the_library_cannot_bear(device, role, name, before, file):
    """An empty challenge behind another one; what follows a digest without any value."""
    asking(device, role)
    prefix = "" if role == "origin" else "Proxy-"
    info = [f"HTTP/1.1 200 OK\r\n{prefix}Authentication-Info: x\r\nContent-Length: 0\r\n\r\n"]
    scripted(device, *[None] * before, demand(DIGEST, role, f"{name}-Authenticate:"), demand(DIGEST, role), info, info)
    result = update(device, "--test", "app")
    text = f"failed fetching '{file}' (malformed authentication header)"
    assert [line for line in result.lines if "fetching" in line] == [f"WARNING: {text}; retrying"] * 2 + [f"ERROR: {text}"]
    assert (result.returncode, len(log_of(device, "scripted"))) == (1, before + 4)


def test_a_path_of_any_length(device):
    nginx(point_at(set_up(device), f"http://localhost:8080/{'x' * 9000}"))
    assert check(device) == ["ERROR: refused to request a path of more than 8192 bytes", *NO_INDEX]
    assert log_of(device, "nginx") == []
