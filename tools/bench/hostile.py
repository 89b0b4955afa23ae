"""Primary files that are made to cost as much as they can: each of about a megabyte compressed, or of a share of that."""

import gzip
import hashlib
from collections.abc import Iterable, Iterator
from pathlib import Path

from device.device import Device, Package, Result

CACHE = "/var/cache/updater/base"
#: Stands alone, in the device: processor seconds and peak memory of a command.
MEASURE = """import resource, subprocess, sys
code = subprocess.call(sys.argv[1:])
used = resource.getrusage(resource.RUSAGE_CHILDREN)
print(used.ru_utime + used.ru_stime, used.ru_maxrss / 1024)
sys.exit(code)"""

HEAD = ('<metadata xmlns="http://linux.duke.edu/metadata/common" xmlns:rpm="http://linux.duke.edu/metadata/rpm">')
TAIL = "</metadata>"


def _package(name: object, version: object, lists: str = "") -> str:
    return (f'<package type="rpm"><name>{name}</name><arch>noarch</arch><version epoch="0" ver="{version}" rel="1"/>'
            f'<checksum type="sha">1</checksum><location href="{name}"/><format>{lists}</format></package>')


def _list(kind: str, entries: Iterable[str]) -> str:
    return f"<rpm:{kind}>{''.join(f'<rpm:entry {entry}/>' for entry in entries)}</rpm:{kind}>"


def _entry(name: object, flags: str = "", version: object = "") -> str:
    return f'name="{name}" flags="{flags}" epoch="0" ver="{version}" rel="1"' if flags else f'name="{name}"'


# Each takes the share, 1 for a megabyte. "app" is installed in version 1, so version 2 is an update.


def crowd(share: float) -> Iterator[str]:
    """One name, provided and required in as many versions, of which none fits another."""
    count = int(80_000 * share)
    yield _package("app", 2, _list("provides", (_entry("x", "EQ", 4 * i) for i in range(count // 2)))
                   + _list("requires", (_entry("x", "EQ", 2 * i + 1) for i in range(count))))
    yield _package("other", 1, _list("provides", (_entry("x", "EQ", 4 * i + 2) for i in range(count // 2))))


def chain(share: float) -> Iterator[str]:
    """Each package that is pulled needs the next one."""
    count = int(40_000 * share)
    yield _package("app", 2, _list("requires", [_entry("n0")]))
    for i in range(count):
        yield _package(f"p{i}", 1, _list("provides", [_entry(f"n{i}")]) + _list("requires", [_entry(f"n{i + 1}")]))


def crowded_chain(share: float) -> Iterator[str]:
    """The same with one name in as many versions."""
    count = int(30_000 * share)
    yield _package("app", 2, _list("requires", [_entry("x", "EQ", 0)]))
    for i in range(count):
        yield _package(f"p{i}", 1, _list("provides", [_entry("x", "EQ", i)]) + _list("requires", [_entry("x", "EQ", i + 1)]))


def hopeless_chain(share: float) -> Iterator[str]:
    """A chain beside many requires that nothing provides."""
    yield _package("app", 2, _list("requires", [_entry("n0"), *(_entry(f"/{i}") for i in range(int(80_000 * share)))]))
    for i in range(int(20_000 * share)):
        yield _package(f"p{i}", 1, _list("provides", [_entry(f"n{i}")]) + _list("requires", [_entry(f"n{i + 1}")]))


def versions(share: float) -> Iterator[str]:
    """One package in as many versions, the newest last."""
    for i in range(int(100_000 * share)):
        yield _package("app", i + 1)


def obsoletes(share: float) -> Iterator[str]:
    """Each package obsoletes the whole lot."""
    count = int(300 * share ** 0.5)
    for i in range(count):
        yield _package(f"p{i}", 1, _list("obsoletes", [_entry("app"), *(_entry(f"p{j}", "LT", 1) for j in range(count))]))


def packages(share: float) -> Iterator[str]:
    """As many small packages as a GiB holds."""
    for i in range(int(3_500_000 * share)):
        yield _package(i % 500, 1)


def entries(share: float) -> Iterator[str]:
    yield _package("app", 2, _list("provides", [_entry("a")] * int(20_000_000 * share)))


def elements(share: float) -> Iterator[str]:
    for _ in range(int(260 * share)):
        yield "<a/>" * 1_000_000


def attributes(share: float) -> Iterator[str]:
    """As many as a tag may hold, in as many tags as a GiB holds."""
    tag = "<a " + " ".join(f"{chr(97 + i // 26)}{chr(97 + i % 26)}=''" for i in range(64)) + "/>"
    for _ in range(int(600 * share)):
        yield tag * 1_000


def one_tag(share: float) -> Iterator[str]:
    yield "<a " + " ".join(f"a{i}=''" for i in range(int(400_000 * share))) + "/>"


def namespaces(share: float) -> Iterator[str]:
    for i in range(250):
        yield "<a " + " ".join(f"xmlns:n{i}x{j}='u'" for j in range(int(2_000 * share))) + ">"
    for _ in range(int(100 * share)):
        yield "<n0x0:a/>" * 10_000
    yield "</a>" * 250


def undeclared(share: float) -> Iterator[str]:
    for _ in range(int(100 * share)):
        yield "<x:a y:b=''/>" * 100_000


def defaults(share: float) -> Iterator[str]:
    for _ in range(int(100 * share)):
        yield "<d/>" * 100_000


DOCUMENTS = (crowd, chain, crowded_chain, hopeless_chain, versions, obsoletes, packages, entries, elements, attributes, one_tag,
             namespaces, undeclared, defaults)


def write(document, share: float, directory: Path) -> None:
    """Writes index and primary file of a repository into a directory."""
    head = HEAD
    if document is defaults:
        head = f"<!DOCTYPE metadata [<!ATTLIST d a CDATA '{'x' * 10_000}'>]>{HEAD}"
    primary = directory / "primary.xml.gz"
    with gzip.open(primary, "wt", compresslevel=9, encoding="ascii") as file:
        file.write(head)
        file.writelines(document(share))
        file.write(TAIL)
    sum = hashlib.sha1(primary.read_bytes()).hexdigest()
    (directory / "repomd.xml").write_text(
        f'<repomd xmlns="http://linux.duke.edu/metadata/repo"><data type="primary"><checksum type="sha">{sum}</checksum>'
        '<location href="repodata/primary.xml.gz"/></data></repomd>')


def cost(device: Device, document, share: float) -> tuple[Result, float, float]:
    """A check against a document: what it gave, its processor seconds and its peak in MiB."""
    if not device.path(CACHE).exists():
        device.install(Package("app", "1-1"))
        device.path(CACHE).mkdir()
    for file in device.path(CACHE).iterdir():
        file.unlink()
    write(document, share, device.path(CACHE))
    result = device.shell(f"/usr/bin/python3 -I -c '{MEASURE}' updater --check-only --cache-only", timeout=120)
    seconds, mebibytes = map(float, result.stdout.split())
    return result, seconds, mebibytes
