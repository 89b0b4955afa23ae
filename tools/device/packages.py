"""Packages for the device, made by the real rpmbuild from recipes and kept in the cache."""

import dataclasses
import os
import shutil
import struct
import subprocess
import tempfile
from pathlib import Path

from . import cache, keys


@dataclasses.dataclass(frozen=True)
class Package:
    """A recipe. Without files of its own the package owns /opt/NAME/version, which holds
    "VERSION-RELEASE\\n". Relations are written as in a recipe: "lib >= 1:2.0-3"."""

    name: str
    evr: str  # "VERSION-RELEASE" or "EPOCH:VERSION-RELEASE"
    requires: tuple[str, ...] = ()
    provides: tuple[str, ...] = ()
    obsoletes: tuple[str, ...] = ()
    group: str = "Unspecified"
    files: tuple[tuple[str, str], ...] = ()  # absolute path and text, only below /opt
    size: int = 0  # bytes of random payload, in /opt/NAME/payload
    scripts: tuple[tuple[str, str], ...] = ()  # section ("pre", "postun", ...) and shell commands
    key: str = "vendor"  # name of the key that signs it; "" leaves it unsigned
    arch: str = "noarch"

    @property
    def file_name(self) -> str:
        return f"{self.name}-{self.evr.split(':')[-1]}.{self.arch}.rpm"

    @property
    def paths(self) -> dict[str, bytes]:
        """The files that it owns."""
        files = {path: text.encode() for path, text in self.files}
        if not files:
            files[f"/opt/{self.name}/version"] = self.evr.split(":")[-1].encode() + b"\n"
        if self.size:
            files[f"/opt/{self.name}/payload"] = os.urandom(self.size)
        return files

    def recipe(self) -> str:
        epoch, _, rest = self.evr.rpartition(":")
        version, _, release = rest.partition("-")
        lines = [f"%package -n {self.name}", f"Version: {version}", f"Release: {release}",
                 f"Summary: {self.name}", f"Group: {self.group}", "AutoReqProv: no"]
        lines += [f"Epoch: {epoch}"] * bool(epoch)
        for tag in ("requires", "provides", "obsoletes"):
            lines += [f"{tag.capitalize()}: {relation}" for relation in getattr(self, tag)]
        lines += [f"%description -n {self.name}", f"{self.name} of the device."]
        for section, commands in self.scripts:
            kind, _, rest = section.partition(" ")
            lines += [f"%{kind} -n {self.name} {rest}", commands]
        lines += [f"%files -n {self.name}", "%defattr(-,root,root)", *self.paths]
        return "\n".join(lines) + "\n"


SOURCE = Path(__file__).read_text(encoding="utf-8")  # what is made by other code is not the same
HEAD = """Name: set
Version: 1
Release: 1
Summary: several packages
License: none
%description
Never built.
%install
cp -a ../FILES/. %{buildroot}
"""

#: Belongs to every device: stands for the system below, and lets a stub end rpm half-way, behind
#: the first package that rpm has put in place.
BASE = Package("base-system", "1-1", provides=("/bin/sh",), files=(("/opt/base", ""),), key="", scripts=((
    "filetriggerin -p <lua> -- /opt", """
local note = io.open("/device/in-rpm")
if note then
    local target, signal = note:read("n", "n")
    os.remove("/device/in-rpm")
    posix.kill(target, signal)
    posix.kill(posix.getprocessid("pid"), signal)
end"""),))


def _build(recipes: list[Package], target: Path) -> None:
    """Builds packages of different names and files, and of one architecture, in one go into `target`. The work is done elsewhere:
    rpmbuild takes no blanks in its paths."""
    with tempfile.TemporaryDirectory(prefix="packages-", dir="/tmp") as name:
        top = Path(name)
        for directory in ("BUILD", "home"):
            (top / directory).mkdir()
        text = HEAD
        for recipe in recipes:
            text += recipe.recipe()
            for path, content in recipe.paths.items():
                file = top / "FILES" / path.lstrip("/")
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_bytes(content)
        (top / "recipe").write_text(text)
        defines = {"_topdir": str(top), "_build_name_fmt": "%%{NAME}-%%{VERSION}-%%{RELEASE}.%%{ARCH}.rpm",
                   "__os_install_post": "%{nil}", "_binary_payload": "w1.gzdio", "_rpmdir": str(top / "made"),
                   "_tmppath": str(top)}
        done = subprocess.run(
            ["rpmbuild", "-bb", "--target", recipes[0].arch, *(f"--define={name} {value}" for name, value in defines.items()), "recipe"],
            cwd=top, env={"HOME": str(top / "home"), "PATH": "/usr/bin:/bin", "LC_ALL": "C"},
            capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"rpmbuild failed:\n{done.stderr}\n{text}")
        for file in (top / "made").iterdir():
            shutil.move(file, target)


def build(*recipes: Package) -> list[Path]:
    """The package files, in the order of the recipes. They belong to the cache: never write them."""
    with cache.locked():
        places = {recipe: cache.directory() / "packages" / cache.name_for(recipe, SOURCE) for recipe in recipes}
        missing = [recipe for recipe, place in places.items() if not place.exists()]
        while missing:
            batch: list[Package] = []
            taken: set[str] = set()
            for recipe in missing:
                own = {recipe.name, *recipe.paths}
                if recipe.arch == missing[0].arch and not own & taken:
                    batch.append(recipe)
                    taken |= own
            _build_batch(batch, places)
            missing = [recipe for recipe in missing if recipe not in batch]
    return [places[recipe] / recipe.file_name for recipe in recipes]


def _build_batch(batch: list[Package], places: dict[Package, Path]) -> None:
    def fill(draft: Path) -> None:
        _build(batch, draft)
        for key in {recipe.key for recipe in batch} - {""}:
            keys.sign(key, [draft / recipe.file_name for recipe in batch if recipe.key == key])
        for recipe in batch:
            draft_of_one = draft / recipe.name
            draft_of_one.mkdir()
            (draft / recipe.file_name).rename(draft_of_one / recipe.file_name)
            draft_of_one.rename(places[recipe])
    shutil.rmtree(cache.entry("packages/batch", fill))


def header_end(data: bytes, start: int) -> int:
    """Where the header structure that begins at `start` ends."""
    magic, entries, size = struct.unpack_from(">3s5xII", data, start)
    if magic != b"\x8e\xad\xe8":
        raise ValueError("no header here")
    return start + 16 + 16 * entries + size


def _signature_at(data: bytes, start: int) -> int:
    """Where the RSA signature of the main header lies, which the header at `start` holds."""
    entries, = struct.unpack_from(">8xI", data, start)
    for index in range(entries):
        tag, _, offset, _ = struct.unpack_from(">IIII", data, start + 16 + 16 * index)
        if tag == 268:
            return start + 16 + 16 * entries + offset
    raise ValueError("not signed")


def damaged(package: Path, how: str, target: Path) -> Path:
    """Writes a damaged copy to `target`. `how`: "payload" (one byte changed near its end), "cut"
    (last third of the payload missing), "header" (one byte of a text), "signature" (one byte of
    it), "cut header", "text" (no package at all), "empty"."""
    data = bytearray(package.read_bytes())
    signature = 96
    header = -(-header_end(data, signature) // 8) * 8
    payload = header_end(data, header)
    if how == "payload":
        data[-12] ^= 0x55
    elif how == "cut":
        del data[payload + (len(data) - payload) * 2 // 3:]
    elif how == "header":
        data[data.index(b" of the device.", header)] ^= 0x01
    elif how == "signature":
        data[_signature_at(data, signature) + 100] ^= 0x55
    elif how == "cut header":
        del data[header + 200:]
    elif how == "text":
        data = bytearray(b"this is no package\n")
    elif how == "empty":
        data.clear()
    else:
        raise ValueError(how)
    target.write_bytes(data)
    return target
