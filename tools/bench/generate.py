"""A repository as large as real ones are, and the packages of a device that uses it. Seeded: the same
everywhere. Names and versions repeat as they do in real repositories."""

import gzip
import hashlib
import random
from collections.abc import Iterable, Iterator
from pathlib import Path
from xml.sax.saxutils import quoteattr

from device.packages import Package

INSTALLED = 2000
NOT_INSTALLED = range(950, 1000)  # small libraries that only updates need
CORE = ("libc.so.6()(64bit)", "libc.so.6(GLIBC_2.34)(64bit)", "libm.so.6()(64bit)", "rtld(GNU_HASH)",
        "libgcc_s.so.1()(64bit)", "libstdc++.so.6()(64bit)", "/usr/bin/perl", "config(system)")
RPMLIB = ("CompressedFileNames", "FileDigests", "PayloadFilesHavePrefix")
SYLLABLES = "kde gtk lib perl python ruby font data util core net sql mail xml doc image audio video crypt test".split()
WORDS = ("the package holds files needed to develop applications with a library that gives access to data "
         "of several formats and protocols for use in programs on small and large systems it is fast").split()


def _name(number: int) -> str:
    first, second, third = (SYLLABLES[number // step % len(SYLLABLES)] for step in (1, 20, 400))
    return f"{first}-{second}{third}-{number}"


def _library(number: int) -> str:
    return f"lib{_name(number)}.so.{number % 7}()(64bit)"


def _is_installed(number: int) -> bool:
    return number < INSTALLED + len(NOT_INSTALLED) and number not in NOT_INSTALLED


def _version(number: int, newer: bool) -> str:
    return f"{1 + number % 5}.{number % 23}.{1 if newer else 0}"


def _provides(number: int, version: str) -> list[tuple[str, str]]:
    name = _name(number)
    entries = [(name, version), (f"{name}(x86-64)", version), (f"pkgconfig({name})", version),
               (_library(number), ""), (f"cmake({name.title()})", version), (f"mimehandler({name})", "")]
    return entries + [(core, "") for core in CORE if number == 0]


def _requires(number: int, newer: bool) -> list[tuple[str, str]]:
    """About twelve. What an installed package requires is installed; an update may need a library more."""
    chance = random.Random(number)
    entries = [(core, "") for core in chance.sample(CORE, 4)] + [("/bin/sh", "")]
    entries += [(f"rpmlib({feature})", "4.0-1") for feature in RPMLIB]
    if number not in NOT_INSTALLED:
        others = [int(940 * chance.random() ** 3) for _ in range(5)]  # some are needed by very many
        entries += [(_library(other), "") if other % 3 else (_name(other), "1.0") for other in set(others)]
    if newer and number % 5 == 0:
        entries.append((_library(NOT_INSTALLED[number % len(NOT_INSTALLED)]), ""))
    return entries


def installed() -> list[Package]:
    """The packages of the device, all older than or the same as those of the repository."""
    return [Package(_name(number), f"{_version(number, False)}-1", key="",
                    requires=tuple(f"{name} >= {version}" if version else name for name, version in
                                   _requires(number, False) if not name.startswith("rpmlib(")),
                    provides=tuple(f"{name} = {version}" if version else name for name, version in
                                   _provides(number, _version(number, False))[1:]))
            for number in range(INSTALLED + len(NOT_INSTALLED)) if _is_installed(number)]


def _entries(kind: str, flags: str, entries: list[tuple[str, str]]) -> str:
    lines = [f"    <rpm:{kind}>"]
    for name, evr in entries:
        version, _, release = evr.partition("-")
        text = f' flags="{flags}" epoch="0" ver="{version}"' if version else ""
        text += f' rel="{release}"' if release else ""
        lines.append(f"      <rpm:entry name={quoteattr(name)}{text}/>")
    return "\n".join([*lines, f"    </rpm:{kind}>"])


def _package(number: int) -> str:
    chance = random.Random(-1 - number)
    name, newer = _name(number), number % 7 == 0
    version = _version(number, newer)
    digest = hashlib.sha1(name.encode()).hexdigest()
    size = chance.randrange(10_000, 5_000_000)
    description = " ".join(chance.choices(WORDS, k=chance.randrange(20, 100))).capitalize()
    places = chance.sample(("bin", "sbin", "etc", "lib"), 2)
    files = "\n".join(f"    <file>/usr/{place}/{name}</file>" for place in places)
    return f"""<package type="rpm">
  <name>{name}</name>
  <arch>noarch</arch>
  <version epoch="0" ver="{version}" rel="1"/>
  <checksum type="sha" pkgid="YES">{digest}</checksum>
  <summary>{description[:60]}</summary>
  <description>{description}.</description>
  <packager>Package maintainers &lt;packages@example.invalid&gt;</packager>
  <url>https://example.invalid/projects/{name}</url>
  <time file="{1700000000 + number}" build="{1690000000 + number}"/>
  <size package="{size}" installed="{3 * size}" archive="{3 * size + 1024}"/>
  <location href="Packages/{name[0]}/{name}-{version}-1.noarch.rpm"/>
  <format>
    <rpm:license>GPL-2.0-or-later AND MIT</rpm:license>
    <rpm:vendor>Example vendor</rpm:vendor>
    <rpm:group>{SYLLABLES[number % 20].title()}/Libraries</rpm:group>
    <rpm:buildhost>build{number % 40}.example.invalid</rpm:buildhost>
    <rpm:sourcerpm>{name}-{version}-1.src.rpm</rpm:sourcerpm>
    <rpm:header-range start="4504" end="{4504 + size // 50}"/>
{_entries("provides", "EQ", _provides(number, version + "-1"))}
{_entries("requires", "GE", _requires(number, newer))}
{files}
  </format>
</package>
"""


def packages(count: int) -> Iterator[str]:
    """The `package` elements of a repository of that size."""
    return map(_package, range(count))


def _primary(elements: Iterable[str], count: int) -> Iterator[bytes]:
    yield (f'<?xml version="1.0" encoding="UTF-8"?>\n<metadata xmlns="http://linux.duke.edu/metadata/common" '
           f'xmlns:rpm="http://linux.duke.edu/metadata/rpm" packages="{count}">\n').encode()
    for element in elements:
        yield element.encode()
    yield b"</metadata>\n"


def write_metadata(directory: Path, elements: Iterable[str], count: int) -> None:
    """Writes repomd.xml and primary.xml.gz of `count` packages into one directory, as in a cache."""
    content = hashlib.sha1()
    primary = directory / "primary.xml.gz"
    with gzip.GzipFile(primary, "wb", compresslevel=6, mtime=0) as file:
        for part in _primary(elements, count):
            content.update(part)
            file.write(part)
    digest = hashlib.sha1(primary.read_bytes()).hexdigest()
    (directory / "repomd.xml").write_text(f"""<?xml version="1.0" encoding="UTF-8"?>
<repomd xmlns="http://linux.duke.edu/metadata/repo">
  <data type="primary">
    <checksum type="sha">{digest}</checksum>
    <open-checksum type="sha">{content.hexdigest()}</open-checksum>
    <location href="repodata/primary.xml.gz"/>
    <timestamp>1700000000</timestamp>
  </data>
</repomd>
""")
