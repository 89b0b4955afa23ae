"""The device's identity, proven to an Apache server that was told user and password independently."""

import hashlib
import string

import pytest
from device.device import Device
from peers import AGENT, FIRST, NO_INDEX, USER, behind_head, certificates, httpd, log_of, update
from scenes import REPORT, set_up

ALPHABET = string.ascii_lowercase + string.ascii_uppercase + string.digits + ".-"
EEPROM = "/sys/bus/i2c/drivers/Quorax-EEPROM"
CORE, BASE = b"core-EEPROM02-00-12345", b"base-EEPROM02-12-67890"  # 22 bytes: the last one does not count
OTHER = bytes(range(21)), bytes(range(100, 121))
GOOD = [*REPORT, "INFO: --- EXIT OK ---"]
REFUSED = [f"ERROR: failed fetching '{FIRST}' (authentication failed on server)", *NO_INDEX]


def password_of(blocks: bytes) -> str:
    return "".join(ALPHABET[byte % 64] for byte in hashlib.md5(blocks).digest()[:12])


PASSWORD = password_of(OTHER[0] + OTHER[1])


def set_blocks(device: Device, blocks: dict[int, bytes]) -> None:
    for number in (50, 52, 53):
        device.path(f"{EEPROM}/0-00{number}/data").unlink(missing_ok=True)
        if number in blocks:
            device.write(f"{EEPROM}/0-00{number}/data", blocks[number])


def go_to(device: Device, path: str, scheme: str = "http", level: str = "info") -> None:
    tls = '<tls trust="system"/>' if scheme == "https" else ""
    device.configure({"http": "http://localhost:8080/", "https": "https://repo.test:8443/"}[scheme] + path,
                     release="firmware", addons=["extra"], extra=AGENT + tls, level=level)


@pytest.fixture
def waiting(device):
    set_blocks(set_up(device), {50: OTHER[0], 52: OTHER[1]})
    return device


@pytest.mark.parametrize("board, blocks, hashed", [
    ("Quorax", {50: CORE, 52: BASE}, CORE[:14] + b"12" + CORE[16:21] + BASE[:21]),  # a faulty pair is mended
    ("Quorax", {52: CORE, 53: BASE}, CORE[:14] + b"12" + CORE[16:21] + BASE[:21]),
    ("Quorax", {50: BASE, 52: CORE}, BASE[:21] + CORE[:21]),
    ("Other", {50: CORE, 52: BASE}, CORE[:21] + BASE[:21]),
    ("Velmir", {50: b"short", 52: CORE, 53: BASE}, CORE[:21]),
])
def test_the_password_of_every_board(waiting, board, blocks, hashed):
    waiting.write("/proc/cpuinfo", f"Hardware : {board}\nRevision : 0210\nSerial : 1\n")
    set_blocks(waiting, blocks)
    httpd(waiting, password_of(hashed))
    go_to(waiting, "digest")
    result = update(waiting, "--check-only")
    assert (result.returncode, behind_head(result)) == (0, GOOD)
    assert log_of(waiting, "httpd", 3) == ["- 401", f"{USER} 200", f"{USER} 200"]


@pytest.mark.parametrize("scheme, path", [
    ("http", "digest"), ("http", "legacy"), ("https", "digest"), ("https", "basic")])
def test_schemes_that_work_and_leave_no_password(waiting, tmp_path, scheme, path):
    certificates(tmp_path / "tls")
    httpd(waiting, PASSWORD, {8443: tmp_path / "tls/good.pem"})
    go_to(waiting, path, scheme, "trace")
    waiting.write("/srv/ca.pem", (tmp_path / "tls/ca.pem").read_bytes())
    result = update(waiting, "--test", SSL_CERT_FILE="/srv/ca.pem")
    assert (result.returncode, f"{USER} 200" in log_of(waiting, "httpd", 2)) == (0, True)
    assert f"DEBUG: default http user initialized to '{USER}'" in result.lines
    assert f"TRACE: attempting http authentication as user '{USER}'" in result.lines
    written = [file for place in ("/var", "/run", "/tmp", "/opt", "/root") for file in waiting.path(place).rglob("*")]
    texts = [file.read_bytes() for file in written if file.is_file()]
    assert len(texts) > 5 and not [text for text in [*texts, result.stderr.encode()] if PASSWORD.encode() in text]


@pytest.mark.parametrize("path, password, blocks, lines", [
    ("basic", PASSWORD, True, REFUSED),  # not even asked
    ("digest", "wrong", True, [f"ERROR: http authentication as user '{USER}' failed", *REFUSED]),
    ("digest", PASSWORD, False, ["ERROR: http authentication requested but no credentials set", *REFUSED]),
])
def test_refusals(waiting, path, password, blocks, lines):
    if not blocks:
        set_blocks(waiting, {})
    httpd(waiting, password)
    go_to(waiting, path)
    result = update(waiting, "--check-only", "--log-level", "trace")
    graver = [line for line in result.lines if line.partition(":")[0] not in ("TRACE", "DEBUG")]
    lost = ["ERROR: cannot recover default password for authentication",
            "WARNING: cannot recover default authentication credentials"]
    assert graver[-len(lines):] == lines
    assert [line for line in graver if line in lost] == ([] if blocks else lost)
    attempts = [line for line in result.lines if line.startswith("TRACE: attempting")]
    assert len(attempts) == (1 if password == "wrong" else 0)
    requests = 2 if password == "wrong" else 1
    assert len(log_of(waiting, "httpd", requests)) == requests
