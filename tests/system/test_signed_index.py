"""A repository whose index is to be signed: who can make a device believe what. SECURITY.md refers to this."""

import re
import time

import guides
import pytest
from device import keys
from device.device import Device
from peers import GOOD, INDEX, log_of, nginx, point_at, scripted, squid, update, use_proxy
from scenes import NEW, NEW_STATE, set_up
from test_faults import moved, reply

SIGNATURE, CACHE = f"{INDEX}.asc", "/var/cache/updater/base"
NOW, DAY = int(time.time()), 86400
ROADS = {"file": "file:///srv/repo", "http": "http://127.0.0.1:8080/srv/repo", "proxy": "http://repo.test/srv/repo"}
REVISION = f"{CACHE}/repomd.xml.revision"
FAILED = ["ERROR: could not update repository data", "INFO: --- EXIT ERROR ---"]
NOT_LOADED = ["ERROR: could not load repository data", FAILED[1]]
IGNORED = f"WARNING: ignoring '{REVISION}', which holds no revision"
UNREADABLE = f"ERROR: cannot read '{CACHE}/{{}}' to verify the repository index ({{}})"
NO_KEY = "ERROR: no key in the rpm database to verify the repository index with"
AGAIN = ["WARNING: the signature does not fit the repository index; fetching both anew"] * 2
BAD = "ERROR: bad signature of key KEY on the repository index"
UNUSABLE = f"ERROR: no usable signature in '{SIGNATURE}'"
LONG, NOT_GOT = f"failed fetching '{INDEX}' (longer than it may be)", "ERROR: failed getting repository resource "
UNSIGNED = "ERROR: repository index cannot be verified without its signature"
UNKNOWN = "ERROR: repository index is signed by key KEY, which is not in the rpm database"
OLDER = "ERROR: repository index is older than one before: revision 1999, accepted before: 2000"
ARMOUR = "/usr/bin/rpm -qp --qf '%{RSAHEADER:armor}' /srv/repo/lib-2-1.noarch.rpm"
EXPIRED_AND_REVOKED = f"""set -e; rpm -e gpg-pubkey; export GNUPGHOME=/root
gpg() {{ /usr/bin/gpg --batch -q --yes --pinentry-mode loopback --passphrase '' --faked-system-time 20200101T000000 "$@"; }}
gpg --quick-gen-key x rsa2048 sign 1d; gpg --armor --detach-sign repo/{INDEX}; sed s/^:// /root/openpgp-revocs.d/*.rev | gpg --import
/usr/bin/gpg -k | grep revoked:; gpg --armor --export >key; gpgconf --kill all; rpm --import key"""


def pair(device: Device, revision: object = 3000, *names: str) -> tuple[bytes, bytes]:
    index = re.sub("<revision>.*</revision>", f"<revision>{revision}</revision>", device.read(f"/srv/new/{INDEX}")).encode()
    return index, keys.signature(index, *(names or ["vendor"]))


def by(*makers):
    return lambda device: ((good := pair(device))[0], b"text\n".join(make(device, *good) for make in makers))


def publish(device: Device, index: bytes, signature: bytes) -> None:
    device.write(f"/srv/repo/{INDEX}", index)
    device.write(f"/srv/repo/{SIGNATURE}", signature)


def cached(device: Device) -> list[bytes]:
    return [file.read_bytes() for file in sorted(device.path(CACHE).glob("repomd*"))]


def ask(device: Device, uri: str = ROADS["file"], attributes: str = "", *arguments: str) -> list[str]:
    point_at(device, uri)
    device.write("/etc/updater.conf", device.read("/etc/updater.conf").replace('id="base"', f'id="base" signed="true" {attributes}'))
    text = update(device, "--check-only", *arguments).stderr.partition("(URI ")[2].partition("\n")[2]
    return re.sub("(revision|now:) [0-9]{10}", r"\1 R", re.sub("key [0-9a-f]{16}", "key KEY", text)).splitlines()


@pytest.fixture
def seen(device):
    set_up(device).publish(*NEW, at="/srv/new")
    publish(device, *pair(device, 2000))
    assert ask(device) == GOOD
    return device


ROWS = {
    "same revision": ("file", lambda device: pair(device, 2000), GOOD),
    "arbitrary index": ("http", lambda device: pair(device, 3000, "stranger"), [UNKNOWN]),
    "replay, rollback": ("http", lambda device: pair(device, 1999), [OLDER]),
    "old pair from a proxy": ("proxy", lambda device: pair(device, 1999), [OLDER]),
    "freeze": ("file", lambda device: pair(device, NOW - 3 * DAY), ["ERROR: repository index is older than 2 days: revision R, now: R"], 'max-age="2"'),
    "young enough": ("file", lambda device: pair(device, NOW - 3 * DAY), GOOD, 'max-age="4"'),
    "ahead of the clock": ("file", lambda device: pair(device, NOW + 9999 * DAY), GOOD, 'max-age="1"'),
    "mix and match": ("proxy", by(lambda device, *_: cached(device)[1]), [*AGAIN, BAD]),
    "signature of other data": ("file", by(lambda *_: keys.signature(b"", "vendor")), [*AGAIN, BAD]),
    "signature of a package": ("http", by(lambda device, *_: device.shell(ARMOUR).stdout.encode()), [*AGAIN, BAD]),
    "truncated, none": ("http", by(lambda _, index, signature: signature[:-40], lambda *_: b"\33[1m\nERROR: %n"), [*AGAIN, UNUSABLE]),
    "of a text, weak, expiring": ("file", by(*(lambda _, index, signature, options=options: keys.signature(index, "vendor", options=options)
                                               for options in (["--textmode"], ["--digest-algo", "SHA1"], ["--default-sig-expire", "1d"]))), [*AGAIN, UNUSABLE]),
    "several signatures": ("http", lambda device: pair(device, 3000, "stranger", "vendor"), GOOD),
    "several, the known first": ("file", lambda device: pair(device, 3000, "vendor", "stranger"), GOOD),
    "several blocks": ("proxy", by(lambda _, index, signature: keys.signature(index, "stranger"), lambda *good: good[2]), GOOD),
    "too many signatures": ("file", by(lambda _, index, signature: keys.signature(index, "stranger") * 16 + signature), [UNKNOWN]),
    "endless signature": ("file", by(lambda *_: b"\n" * 16385), [
        "ERROR: failed copying file (File too large)", NOT_GOT + f"'{SIGNATURE}'", UNSIGNED]),
    "endless index": ("http", lambda _: (b"\n" * (2**20 + 1), b""), [
        *[f"WARNING: {LONG}; retrying"] * 2, f"ERROR: {LONG}", NOT_GOT + f"'{INDEX}'"]),
    "revision that is no number": ("file", lambda device: pair(device, 2**64), ["ERROR: the signed repository index has no revision that is a number"]),
}


@pytest.mark.parametrize("name", ROWS)
def test_what_is_believed(seen, name):
    road, show, lines, attributes = (*ROWS[name], "")[:4]
    before, shown = cached(seen), show(seen)
    publish(seen, *shown)
    scripted(seen)
    if road == "proxy":
        use_proxy(seen, port="8080", bypassLocalNetwork="off")
    assert ask(seen, ROADS[road], attributes) == [*lines, *FAILED * (lines != GOOD)]
    assert cached(seen) == ([*shown, re.findall(b"<revision>(.*)<", shown[0])[0] + b"\n"] if lines == GOOD else before)
    assert ask(seen, ROADS["file"], "", "--cache-only") == GOOD


@pytest.mark.parametrize("stale, redirects, lines", [(1, 0, AGAIN[1:] + GOOD), (2, 0, AGAIN + GOOD), (3, 0, [*AGAIN, BAD, *FAILED]), (0, 1, GOOD)])
def test_both_sides_of_a_publication(seen, stale, redirects, lines):
    answers = [None, reply("200 OK", body=cached(seen)[1].decode())] * stale + [None, moved("http://localhost:8080/x")] * redirects
    publish(seen, *pair(seen))
    scripted(seen, *answers)
    assert ask(seen, ROADS["http"]) == lines


@pytest.mark.parametrize("script, revision, arguments, lines", [
    (f"cp repo/{SIGNATURE} {CACHE}", 3000, ["--cache-only"], [BAD, *NOT_LOADED]),
    (f"cp repo/{SIGNATURE} {CACHE}", 3000, [], GOOD),
    (f"rm {CACHE}/{SIGNATURE[9:]}", 3000, ["--cache-only"], [UNREADABLE.format(f"{SIGNATURE[9:]}", "No such file or directory"), *NOT_LOADED]),
    (f"rm {REVISION}", 1999, [], [OLDER, *FAILED]),
    (f"printf 199 >{REVISION}", 1999, [], [IGNORED, OLDER, *FAILED]),
    (f"printf 199 >{REVISION}", 2000, [], [IGNORED, *GOOD]),
    (f"rm {REVISION}; mkdir {REVISION}", 3000, [], [UNREADABLE.format("repomd.xml.revision", "Is a directory"), *FAILED]),
    (f"rm {CACHE}/{SIGNATURE[9:]}", 1999, [], [OLDER, *FAILED]),
    (guides.blocks("docs/operating.md")["An index that counts as old"].splitlines()[0], 1999, [], GOOD),
    ("rpm -e gpg-pubkey", 3000, ["--no-sig-check"], [NO_KEY, *FAILED]),
    (f"rpm -e gpg-pubkey; echo >repo/{SIGNATURE}", 3000, [], [NO_KEY, *FAILED]),
    (EXPIRED_AND_REVOKED, 3000, [], GOOD),
], ids=["torn pair", "torn pair fetched anew", "no signature", "lost revision", "cut revision", "cut revision mended",
        "unreadable revision", "lost signature", "index of before forgotten", "no key", "no key, no signature", "expired and revoked key"])
def test_what_the_device_has(seen, script, revision, arguments, lines):
    publish(seen, *pair(seen, revision))
    assert seen.shell(f"cd /srv; {script}").returncode == 0
    assert ask(seen, ROADS["file"], "", *arguments) == lines


def test_both_files_are_asked_for_past_a_cache(seen):
    nginx(seen)
    squid(seen)
    use_proxy(seen, bypassLocalNetwork="off")
    assert [ask(seen, "http://repo.test:8080/repo") for _ in range(2)] == [GOOD, GOOD]
    assert [line.split()[0] for line in log_of(seen, "squid", 4) if "repomd" in line] == ["TCP_MISS"] * 4
    assert (update(seen, "--no-reboot").returncode, seen.installed()) == (0, NEW_STATE)  # both passes
