"""What the fuzz targets begin with: what createrepo_c and rpmbuild make, and the examples that are shipped."""

import gzip
import re
import shutil
from collections.abc import Iterator
from pathlib import Path

from device import keys, packages
from device.cache import PROJECT
from device.device import Device, Package
from device.packages import damaged, header_end

PACKAGES = (
    Package("app", "2:1.0~rc1-3", requires=("lib >= 1:2.0-3", "rpmlib(X) <= 1", "(a if b)", "/bin/sh"), group="Net",
            provides=("api = 2", "app(x)"), obsoletes=("old < 1.0^git",), scripts=(("post", "true"),)),
    Package("lib", "1:2.0-3", provides=("lib = 1:2.0-3", "libx.so.1()(64bit)")),
    Package("lib", "1:2.0-4", key="", obsoletes=("lib < 1:2.0-4",)),
    Package("far", "1-1", arch="mips"))
XML = ["<?xml version=\"1.0\"?>", "<!--", "-->", "<![CDATA[", "]]>", "<!DOCTYPE x [<!ENTITY e 'e'>]>", "&lt;", "&#10;",
       "&#x7f;", "&e;", "xmlns=\"", "\x1f\x8b\x08\x00"]
#: Words that no seed holds, by target.
WORDS = {"primary": [*XML, "<rpm:group>", ".tmp", "packages"], "index": [*XML, ".tmp", ".table", "packages"],
         "configuration": [*XML, "enabled=\"false\"", "trust=\"system\"", "trust=\"/\"", "kelo42", "syslog", "facility"],
         "armour": ["-----BEGIN PGP SIGNATURE-----", "-----END PGP SIGNATURE-----", "\n\n", "=", "iQ", "wv8A"],
         "proxyfile": [*XML, "bypassLocalNetwork=\"off\"", "65534", "secret"],
         "downloader": ["204 N", "Connection: close", "Basic ", "stale=true", "https://other/", "../", "[::1]", "\r\n\r\n",
                        "\n----\n"],
         "versions": ["~", "^", ":", "-", ".", "00", "-2147483648:", "4294967296:"]}
#: What each text and each value of an attribute ends in once, in a document each.
HOSTILE = {"primary": ["&#10;", ".tmp"], "index": ["&#10;", ".tmp", ".table"], "configuration": ["&#10;", "/"],
           "proxyfile": ["&#10;"]}


def _hostile(target: str, document: bytes) -> Iterator[tuple[str, bytes]]:
    """The document, and once more for each place and each hostile word."""
    yield target, document
    for end in re.finditer(rb'(?<=[^=?])(?="[ />])|(?<=[^>])(?=</)', document):
        for word in HOSTILE[target]:
            yield target, document[:end.start()] + word.encode() + document[end.start():]


def _answer(status: str, *headers: str, body: str = "") -> str:
    return "\r\n".join([f"HTTP/1.1 {status}", *headers, "", body])


_DIGEST = 'Digest realm="r", nonce="n", qop="auth", algorithm=MD5'
_GOOD = _answer("200 OK", "Content-Length: 4", body="body")
ANSWERS = ([_GOOD], [_answer("200 OK", "Transfer-Encoding: chunked", body="4\r\nbody\r\n0\r\n\r\n")],
           [_answer("302 F", "Location: http://other/x", "Content-Length: 0"), _GOOD],
           [_answer("301 F", "Location: file:///dev/null")], [_answer("307 F", "Location: https://local/")],
           [_answer("401 U", f"WWW-Authenticate: {_DIGEST}", "Content-Length: 0") + _GOOD],
           [_answer("407 P", f"Proxy-Authenticate: {_DIGEST}", "Content-Length: 0") +
            _answer("200 OK", 'Proxy-Authentication-Info: nextnonce="m"', "Content-Length: 1", body="b")],
           [_answer("200 OK", "Content-Length: 9", body="cut"), _GOOD], ["", _answer("500 E"), _GOOD],
           [_answer("100 C") + _GOOD])


def _published() -> Iterator[tuple[str, bytes]]:
    """By target, what a repository of each package, and of all, consists of."""
    with Device(PROJECT / "build" / "fuzz" / "updater") as device:
        device.configure()
        for items in [*([package] for package in PACKAGES), PACKAGES]:
            device.publish(*items)
            repodata = device.path("/srv/repo/repodata")
            primary = (repodata / "primary.xml.gz").read_bytes()
            yield "primary", primary
            if len(items) > 1:
                yield "primary", gzip.decompress(primary)
                yield from _hostile("index", (repodata / "repomd.xml").read_bytes())
            else:
                yield from _hostile("primary", gzip.decompress(primary))
            device.run("--check-only")
            for table in device.path("/var/cache/updater").rglob("*.table"):
                yield "table", table.read_bytes()


def _built() -> Iterator[tuple[str, bytes]]:
    for package, file in zip(PACKAGES, packages.build(*PACKAGES)):
        data = file.read_bytes()
        begin = -(-header_end(data, 96) // 8) * 8  # the header follows that of the signatures
        yield "package", data
        yield "header", data[begin + 8:header_end(data, begin)]
        if package.key:
            yield "signed", data[begin:]


def _written() -> Iterator[tuple[str, bytes]]:
    examples = PROJECT / "dist" / "examples"
    for name in ("updater.conf", "defaults.conf"):
        yield from _hostile("configuration", (examples / name).read_bytes())
    proxy = (examples / "orvproxy.conf").read_bytes()
    yield from _hostile("proxyfile", proxy)
    yield "proxyfile", proxy.replace(b"3128", b"65535")
    for package in PACKAGES:
        lines = [f"{sign}{package.name[0]}{package.evr}" for sign in "HJL"]
        yield "versions", "\n".join(lines).encode()
    for origin in "lhs":
        for answers in ANSWERS:
            yield "downloader", (origin + "\n----\n".join(answers)).encode()
    for uri in ("http://h:80/p", "https://[::1]/", "file:///dev/null", "http://[::1]:8/", "ftp://h/"):
        yield "downloader", f"u{uri}\n----\n{_GOOD}".encode()
    for names in (["vendor"], ["vendor", "stranger"]):
        yield "armour", keys.signature(b"index", *names)
    yield "installedlist", (b"P\ta\t1\t2\t3\tnoarch\nR\tb\t12\t1:2-3\nV\ta\t8\t2-3\nC\tc\t0\t\nO\td\t2\t1\nF\t/bin/sh\n"
                            b"P\tgpg-pubkey\t0\t9f1a\t6b03\t(none)\nV\tgpg(9f1a)\t67108872\t4:82-6b\n")
    yield "childlines", b"Preparing...  ####\nUpdating / installing...\n\na\n\0\n" + b"x" * 1500


def directory(build: Path, target: str) -> Path:
    """The seeds of a target; made, those of all, when first they are asked for."""
    place = build / "seeds"
    if not (place / "key.asc").exists():
        draft = build / "seeds.new"
        shutil.rmtree(draft, ignore_errors=True)
        for makes in (_published, _built, _written):
            for number, (name, data) in enumerate(makes()):
                (draft / name).mkdir(parents=True, exist_ok=True)
                (draft / name / f"{makes.__name__}-{number}").write_bytes(data)
        for how in ("payload", "cut", "header", "signature", "cut header"):
            damaged(packages.build(PACKAGES[0])[0], how, draft / "package" / how.replace(" ", "-"))
        shutil.copy(keys.public_key("vendor"), draft / "key.asc")
        shutil.rmtree(place, ignore_errors=True)
        draft.rename(place)
    return place / target


def dictionary(build: Path, target: str) -> list[str]:
    """libFuzzer's option for the words of a target: what stands in its seeds, and others."""
    if target not in WORDS:
        return []
    words = {word.encode("latin-1") for word in WORDS[target]}
    for seed in directory(build, target).iterdir():
        words.update(re.findall(rb'</?[\w:]{1,30}|[\w:-]{1,30}(?:="|: )[\w:/.-]{0,60}', seed.read_bytes()))
    file = build / f"{target}.dict"
    file.write_text("".join('"' + "".join(f"\\x{byte:02x}" for byte in word) + '"\n' for word in sorted(words)),
                    encoding="ascii")
    return [f"-dict={file}"]
