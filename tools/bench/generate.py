"""A repository as large as real ones are, and the packages of a device that uses it. Seeded: the same
everywhere. What real ones repeat is repeated here: of 1.4 million dependencies of 60,000 names three of
four stand there more than once, and a fifth of the names have more than one version."""

import gzip
import hashlib
import random
from collections.abc import Iterable, Iterator
from pathlib import Path
from xml.sax.saxutils import quoteattr

from device.packages import Package

INSTALLED = 2000
REPLACING = range(940, 948)  # not installed; each obsoletes an installed package
CHAINED = range(948, 1000)  # not installed: libraries that only updates need, in chains of four
FIRST_FREE = INSTALLED + len(REPLACING) + len(CHAINED)  # from here on nothing is installed
CORE = ("libc.so.6()(64bit)", "libc.so.6(GLIBC_2.34)(64bit)", "libm.so.6()(64bit)", "rtld(GNU_HASH)",
        "libgcc_s.so.1()(64bit)", "libstdc++.so.6()(64bit)", "/usr/bin/perl", "config(system)")
RPMLIB = [(f"rpmlib({feature})", "LE", "4.0-1") for feature in
          ("CompressedFileNames", "FileDigests", "PayloadFilesHavePrefix")]
SYLLABLES = "kde gtk lib perl python ruby font data util core net sql mail xml doc image audio video crypt test".split()
WORDS = ("the package holds files needed to develop applications with a library that gives access to data "
         "of several formats and protocols for use in programs on small and large systems it is fast").split()
WORDS += [first + second for first in SYLLABLES for second in SYLLABLES]
SIGNS = {"EQ": "=", "GE": ">=", "LT": "<"}

Entry = tuple[str, str, str]  # name, flags as in the metadata, version and release; the latter may be empty


def _name(number: int) -> str:
    first, second, third = (SYLLABLES[number // step % len(SYLLABLES)] for step in (1, 20, 400))
    return f"{first}-{second}{third}-{number}"


def _library(number: int) -> str:
    return f"lib{_name(number)}.so.{number % 7}()(64bit)"


def _is_installed(number: int) -> bool:
    return number < FIRST_FREE and number not in REPLACING and number not in CHAINED


def _replaced(number: int) -> int:
    """The installed package that one of REPLACING obsoletes; no update of its own is there."""
    return 7 * (number - REPLACING[0]) + 1


def _version(number: int, step: int) -> str:
    """Step 0 is what is installed, if the name is; those below are older, step 1 is newer."""
    return f"{3 + number % 7 + min(step, 0)}.{number % 47}.{2 * (number % 59) + max(step, 0)}"


def _steps(number: int) -> list[int]:
    """The versions in the repository: the newest first or last."""
    newest = 1 if number % 7 == 0 else 0
    steps = [newest - age for age in range(1 + (number % 5 == 1) + (number % 45 == 1))]
    return steps if number % 2 else steps[::-1]


def _provides(number: int, step: int) -> list[Entry]:
    name, version = _name(number), _version(number, step) + "-1"
    entries = [(text, "EQ", version) for text in
               (name, f"{name}(x86-64)", f"pkgconfig({name})", f"cmake({name.title()})")]
    entries += [(_library(number), "", "")] + [(f"mimehandler(x-{number % 400})", "", "")] * (number % 5 < 3)
    if number in REPLACING:
        old = _replaced(number)
        entries += [(_name(old), "EQ", _version(old, 1) + "-1"), (_library(old), "", "")]
    return entries + [(core, "", "") for core in CORE if number == 0]


def _requires(number: int, step: int) -> list[Entry]:
    """About thirteen. What an installed package requires is installed; an update may need libraries more."""
    chance = random.Random(number)
    entries = [(core, "", "") for core in chance.sample(CORE, 4)] + [("/bin/sh", "", "")]
    reach = REPLACING[0] if number < FIRST_FREE else number
    for other in {int(reach * chance.random() ** 3) for _ in range(5)}:  # some are needed by very many
        entries.append((_library(other), "", "") if other % 3 else (_name(other), "GE", _version(other, -1)))
    if step == 1 and number % 5 == 0:
        entries.append((_library(CHAINED[number // 35 * 4 % len(CHAINED)]), "", ""))
    if number in CHAINED and (number - CHAINED[0]) % 4 < 3:
        entries.append((_library(number + 1), "", ""))
    return entries


def _obsoletes(number: int, step: int) -> list[Entry]:
    if number in REPLACING and step == max(_steps(number)):
        return [(_name(_replaced(number)), "LT", _version(_replaced(number), 1))]
    return [(f"{_name(number)}-compat", "LT", _version(number, step))] if number % 6 == 3 else []


def installed() -> list[Package]:
    """The packages of the device, all older than or the same as those of the repository."""
    def relations(entries: list[Entry]) -> tuple[str, ...]:
        return tuple(f"{name} {SIGNS[flags]} {version}" if version else name for name, flags, version in entries)
    return [Package(_name(number), f"{_version(number, 0)}-1", key="", requires=relations(_requires(number, 0)),
                    provides=relations(_provides(number, 0)[1:]))
            for number in range(FIRST_FREE) if _is_installed(number)]


def updates(count: int) -> tuple[set[str], set[str], set[str]]:
    """What an update of the device has to find, as NAME-VERSION-RELEASE: newer versions of what is
    installed, what obsoletes something installed, and what those need besides."""
    newer = [number for number in range(min(count, FIRST_FREE)) if number % 7 == 0 and _is_installed(number)]
    needed = {CHAINED[number // 35 * 4 % len(CHAINED)] + link for number in newer if number % 5 == 0 for link in range(4)}
    return tuple({f"{_name(number)}-{_version(number, number % 7 == 0)}-1" for number in numbers}
                 for numbers in (newer, REPLACING, needed))


def _entries(kind: str, entries: list[Entry]) -> str:
    if not entries:
        return ""
    lines = [f"    <rpm:{kind}>"]
    for name, flags, evr in entries:
        version, _, release = evr.partition("-")
        text = f' flags="{flags}" epoch="0" ver="{version}"' if version else ""
        text += f' rel="{release}"' if release else ""
        lines.append(f"      <rpm:entry name={quoteattr(name)}{text}/>")
    return "\n".join([*lines, f"    </rpm:{kind}>\n"])


def content_of(package: str) -> bytes:
    """What stands in for the file of a package, so that its checksum fits."""
    return package.encode()


def _package(number: int, step: int) -> str:
    chance = random.Random(-1 - number)
    name, version = _name(number), _version(number, step)
    digest = hashlib.sha1(content_of(f"{name}-{version}-1")).hexdigest()
    size = chance.randrange(10_000, 5_000_000)
    description = " ".join(chance.choices(WORDS, k=chance.randrange(15, 80))).capitalize()
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
{_entries("provides", _provides(number, step))}\
{_entries("requires", _requires(number, step) + RPMLIB)}\
{_entries("obsoletes", _obsoletes(number, step))}\
{files}
  </format>
</package>
"""


def package_count(names: int) -> int:
    return sum(len(_steps(number)) for number in range(names))


def packages(names: int) -> Iterator[str]:
    """The `package` elements of a repository with that many names."""
    return (_package(number, step) for number in range(names) for step in _steps(number))


def _primary(elements: Iterable[str], count: int) -> Iterator[bytes]:
    yield (f'<?xml version="1.0" encoding="UTF-8"?>\n<metadata xmlns="http://linux.duke.edu/metadata/common" '
           f'xmlns:rpm="http://linux.duke.edu/metadata/rpm" packages="{count}">\n').encode()
    for element in elements:
        yield element.encode()
    yield b"</metadata>\n"


def write_metadata(directory: Path, elements: Iterable[str], count: int) -> None:
    """Writes repomd.xml and primary.xml.gz of `count` packages into one directory."""
    content, size = hashlib.sha1(), 0
    primary = directory / "primary.xml.gz"
    with gzip.GzipFile(primary, "wb", compresslevel=6, mtime=0) as file:
        for part in _primary(elements, count):
            content.update(part)
            size += file.write(part)
    digest = hashlib.sha1(primary.read_bytes()).hexdigest()
    (directory / "repomd.xml").write_text(f"""<?xml version="1.0" encoding="UTF-8"?>
<repomd xmlns="http://linux.duke.edu/metadata/repo">
  <data type="primary">
    <checksum type="sha">{digest}</checksum>
    <open-checksum type="sha">{content.hexdigest()}</open-checksum>
    <location href="repodata/primary.xml.gz"/>
    <timestamp>1700000000</timestamp>
    <size>{primary.stat().st_size}</size>
    <open-size>{size}</open-size>
  </data>
</repomd>
""")
