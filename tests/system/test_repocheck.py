"""updater-repocheck: each mistake of a publisher is told of, and a good repository is not found fault with."""

import dataclasses
import json
import shutil
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest
from device import keys
from device.packages import BASE, Package, build, damaged
from device.repository import COMMAND
from scenes import NEW, OLD

SYSTEM = dataclasses.replace(BASE, key="vendor")
OLD_NAV, CORE, MAPS = (Package("nav", "1-1"), Package("nav-core", "2-1", obsoletes=("nav < 2",)),
                       Package("nav-maps", "2-1", obsoletes=("nav < 2",)))
#: Pass 1 brings in one package for three requires, for two of which the check has brought in others.
TWO_PROVIDERS = (
    Package("app", "2-1", requires=("x",)), Package("z", "1-1", provides=("x",)),
    Package("firmware", "2-1", requires=("y", "w")), Package("c", "1-1", provides=("y",)),
    Package("d", "1-1", provides=("w",)), Package("m", "1-1", provides=("x", "y", "w")))
TYPES = [word for word in COMMAND if word not in ("--checksum", "sha")]


@dataclasses.dataclass
class Scene:
    """A repository with a mistake. By default lib, app, firmware and the add-on extra are published anew."""

    new: tuple[Package, ...] = ()  # in place of those of these names, and besides
    old: tuple[Package, ...] = ()
    gone: tuple[str, ...] = ()
    release: str = "firmware"
    addons: str = "<package><name>extra</name></package>"
    before: Callable[[Path], object] = lambda repo: None  # in front of createrepo_c
    command: list[str] = dataclasses.field(default_factory=lambda: COMMAND)
    behind: Callable[[Path], object] = lambda repo: None

    def publish(self, repo: Path, packages: dict[str, Package], special: bool) -> None:
        repo.mkdir()
        for file in build(*packages.values()):
            shutil.copy(file, repo)
        if special:
            self.before(repo)
        subprocess.run([*(self.command if special else COMMAND), str(repo)], check=True, capture_output=True)
        if special:
            self.behind(repo)

    def check(self, program: Path, top: Path) -> tuple[int, dict]:
        old = {p.name + p.arch: p for p in (*OLD, SYSTEM, *self.old)}
        new = {p.name + p.arch: p for p in (*NEW, SYSTEM, *self.new) if p.name not in self.gone}
        self.publish(top / "old", old, False)
        self.publish(top / "new", new, True)
        (top / "conf").write_text(f"""<updater><product><packages><release><package><name>{self.release}</name>
            </package></release><addons>{self.addons}</addons></packages></product></updater>""")
        return repocheck(program, "--conf-file", top / "conf", "--previous", top / "old", "--baseline",
                         "--key", keys.public_key("vendor"), top / "new")


def repocheck(program: Path, *arguments: object) -> tuple[int, dict]:
    done = subprocess.run([program.with_name("updater-repocheck"), "--format", "json", *map(str, arguments)],
                          capture_output=True, text=True, check=False, env={"PATH": "/usr/bin:/bin", "LC_ALL": "C"})
    assert done.stderr == ""
    return done.returncode, json.loads(done.stdout)


def ids(report: dict, worst: str = "note") -> set[str]:
    words = ["note", "warning", "error"]
    return {f["id"] for f in report["findings"] if words.index(f["severity"]) >= words.index(worst)}


def spoil(how: str) -> Callable[[Path], object]:
    return lambda repo: damaged(next(repo.glob("app-2*")), how, next(repo.glob("app-2*")))


def app(**more: object) -> Scene:
    return Scene((Package("app", "2-1", **more),))


MISTAKES = {
    "misspelt add-on": ("addon-missing", 1, Scene(addons="<package><name>extar</name></package>")),
    "misspelt group": ("group-missing", 1, Scene(addons="<group><name>Extras</name></group>")),
    "misspelt release package": ("release-missing", 1, Scene(release="fimware")),
    "createrepo_c forgotten": ("unnamed-file", 1, Scene(
        behind=lambda repo: shutil.copy(build(Package("lib", "3-1"))[0], repo))),
    "changed behind createrepo_c": ("file-differs download-fails", 2, Scene(
        behind=lambda repo: shutil.copy(build(Package("app", "2-1", size=9))[0], repo))),
    "not uploaded": ("file-missing download-fails", 2, Scene(
        behind=lambda repo: (repo / "lib-2-1.noarch.rpm").unlink())),
    "built anew": ("rebuilt", 2, Scene((Package("app", "1-1", files=(("/opt/app/new", ""),)),))),
    "lower version": ("went-back", 2, Scene((Package("app", "0.9-1"),))),
    "gone": ("disappeared", 1, Scene(old=(OLD_NAV,))),
    "wrong directory": ("empty-repository disappeared addon-missing release-missing", 1, Scene(
        before=lambda repo: [file.unlink() for file in repo.glob("*.rpm")])),
    "no index": ("no-index", 2, Scene(behind=lambda repo: (repo / "repodata/repomd.xml").unlink())),
    "old primary file": ("primary-differs", 2, Scene(behind=lambda repo: shutil.copy(
        repo.parent / "old/repodata/primary.xml.gz", repo / "repodata/primary.xml.gz"))),
    "checksums": ("checksum-type", 2, Scene(command=[*TYPES, "--checksum", "sha256"])),
    "checksums of packages": ("checksum-type download-fails", 2, Scene(
        command=[*TYPES, "--checksum", "sha256", "--repomd-checksum", "sha"])),
    "compression": ("compression", 2, Scene(command=[word.replace("gz", "bz2") for word in COMMAND])),
    "file name": ("primary-refused", 2, Scene(
        before=lambda repo: (repo / "app-2-1.noarch.rpm").rename(repo / "app[2].rpm"))),
    "unsigned": ("signature signature-fails", 2, app(key="")),
    "other key": ("signature signature-fails", 2, app(key="stranger")),
    "damaged": ("signature signature-fails", 2, Scene(before=spoil("payload"))),
    "no package": ("no-package download-fails", 2, Scene(behind=spoil("cut header"))),
    "two architectures": ("architectures-compete", 1, Scene(
        (Package("app", "2-1", arch="i686"), Package("app", "2-1", arch="x86_64")), gone=("app-",))),
    "nothing provides": ("unsatisfied", 2, app(requires=("nothing",))),
    "strict sister": ("unsatisfied", 2, Scene(
        (Package("data-files", "2-1", obsoletes=("data < 2",)),), (Package("data", "1-1", requires=("lib = 1-1",)),))),
    "bound without release": ("strict-bound unsatisfied", 2, Scene(
        (Package("app", "2-1", requires=("l > 2-1",)), Package("lib", "2-2", provides=("l = 2",))))),
    "Obsoletes alone": ("rpm-refuses", 2, Scene(
        (CORE, Package("user", "1-1", requires=("nav = 1-1",))), (OLD_NAV, Package("user", "1-1", requires=("nav = 1-1",))))),
    "split across the passes": ("sums-differ", 2, Scene((CORE, MAPS), (OLD_NAV,), release="nav-maps")),
    "two providers": ("sums-differ", 2, Scene(TWO_PROVIDERS, gone=("extra",), addons="<package><name>z</name></package>")),
    "file that nobody has": ("file-require rpm-refuses", 2, app(requires=("/usr/bin/none",))),
    "condition that is not met": ("rich-require rpm-refuses", 2, app(requires=("(none or nothing)",))),
    "same file twice": ("rpm-refuses", 2, Scene((
        Package("app", "2-1", files=(("/opt/one", "app"),)), Package("lib", "2-1", files=(("/opt/one", "lib"),))))),
    "updater that provides nothing": ("updater-running unsatisfied", 2, app(requires=("updater-running >= 1.2",))),
    "newer updater left out": ("needs-newer-updater", 2, Scene(
        (Package("app", "2-1", requires=("updater-running >= 1.2",)), Package("new", "1-1", provides=("updater-running = 1.2",))))),
    "newer updater comes first": ("needs-newer-updater updater-first", 0, Scene(
        (Package("app", "2-1", requires=("updater-running >= 1.2",)), Package("updater", "1.2-1", provides=("updater-running = 1.2",))),
        (Package("updater", "1.1-1", provides=("updater-running = 1.1",)),))),
    "obsoletes an add-on": ("rpm-refuses does-not-settle", 2, Scene((Package("app", "2-1", obsoletes=("extra",)),))),
}


@pytest.mark.parametrize("mistake", MISTAKES)
def test_each_mistake_is_told(program: Path, tmp_path: Path, mistake: str) -> None:
    expected, code, scene = MISTAKES[mistake]
    result, report = scene.check(program, tmp_path)
    assert (ids(report), result) == (set(expected.split()), code), json.dumps(report, indent=1)


def test_a_good_repository_is_left_in_peace(program: Path, tmp_path: Path) -> None:
    code, report = Scene().check(program, tmp_path)
    assert (code, report["findings"], report["runs"][0]["status"]) == (0, [], "REBOOTING")
    assert [p["packages"] for p in report["runs"][0]["passes"][1:]] == [
        ["app-2-1.noarch.rpm", "lib-2-1.noarch.rpm"], ["extra-5-1.noarch.rpm", "firmware-2-1.noarch.rpm"]]
