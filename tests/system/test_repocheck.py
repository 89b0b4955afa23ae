"""updater-repocheck: each mistake of a publisher is told of, and a good repository is not found fault with."""

import dataclasses
import functools
import http.server
import json
import os
import re
import shutil
import subprocess
import threading
from collections.abc import Callable
from pathlib import Path

import pytest
from conftest import PROJECT
from device import cache, keys
from device.device import Device
from device.packages import BASE, Package, build, damaged
from device.repository import COMMAND
from scenes import NEW, OLD, edit_primary

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
    keys: tuple[str, ...] = ("vendor",)
    signed: str = "false"
    more: tuple[str, ...] = ()
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
            </package></release><addons>{self.addons}</addons></packages></product>
            <repository id="base" signed="{self.signed}"><name>b</name><location href="/"/></repository></updater>""")
        return repocheck(program, "--conf-file", top / "conf", "--previous", top / "old", "--baseline",
                         *(f"--key={keys.public_key(key)}" for key in self.keys), *self.more, top / "new")


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


def in_file(name: str, old: str, new: str) -> Callable[[Path], object]:
    return lambda repo: (repo / name).write_text((repo / name).read_text().replace(old, new, 1))


class Published:
    """What edit_primary() takes for a device."""

    def __init__(self, repo: Path) -> None:
        self.path = lambda path: repo / path.removeprefix("/srv/repo/")
        self.read = lambda path: self.path(path).read_text()
        self.write = lambda path, text: self.path(path).write_text(text)


def sign_weakly(repo: Path) -> None:
    with cache.locked():
        keys.sign("vendor", [repo / "app-2-1.noarch.rpm"], "sha1")


def sign_index(key: str) -> Callable[[Path], object]:
    return lambda repo: (repo / "repodata/repomd.xml.asc").write_bytes(
        keys.signature((repo / "repodata/repomd.xml").read_bytes(), key))


def resized(repo: Path) -> None:
    edit_primary(Published(repo), lambda text: re.sub('<size package="[0-9]+"', '<size package="7"', text, count=1))


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
    "index not signed": ("index-signature", 2, Scene(signed="true")),
    "index signed by another key": ("index-signature", 2, Scene(signed="true", behind=sign_index("stranger"))),
    "wrong clock": ("revision-went-back", 2, Scene(
        signed="true", command=[*COMMAND, "--revision", "5"], behind=sign_index("vendor"))),
    "no primary file": ("no-primary", 2, Scene(behind=in_file("repodata/repomd.xml", '"primary"', '"other"'))),
    "another index": ("index-refused", 2, Scene(behind=in_file("repodata/repomd.xml", "<repomd ", "<mdrepo "))),
    "edited metadata": ("header-differs", 2, Scene(behind=lambda repo: edit_primary(
        Published(repo), lambda text: text.replace('<rpm:entry name="extra" ', '<rpm:entry name="other" ')))),
    "another size": ("header-differs", 2, Scene(behind=resized)),
    "another architecture": ("header-differs", 2, Scene(behind=lambda repo: edit_primary(
        Published(repo), lambda text: text.replace("<arch>noarch", "<arch>x86_64", 1)))),
    "hashes in names": ("hashed-names", 1, Scene(command=[word for word in COMMAND if not word.startswith("--simple")])),
    "same name elsewhere": ("same-file-name download-fails", 2, Scene(before=lambda repo: [
        (repo / "sub").mkdir(), (repo / "app-2-1.noarch.rpm").rename(repo / "sub/lib-2-1.noarch.rpm")])),
    "one version twice": ("listed-twice", 1, Scene(before=lambda repo: [
        (repo / "sub").mkdir(), shutil.copy(repo / "app-2-1.noarch.rpm", repo / "sub")])),
    "for another machine": ("other-architecture", 0, Scene((Package("arm", "1-1", arch="aarch64"),))),
    "no key to ask": ("unsigned", 1, dataclasses.replace(Scene((Package("app", "2-1", key=""),)), keys=())),
    "old key": ("key-expired", 1, Scene(keys=("vendor", "expired"))),
    "old digest": ("weak-signature", 1, Scene(before=sign_weakly)),
    "announced in vain": ("never-reached", 1, Scene((*TWO_PROVIDERS[:2], Package("firmware", "2-1", requires=("y",)),
        *TWO_PROVIDERS[3:4], TWO_PROVIDERS[5]), gone=("extra",), addons="<package><name>z</name></package>")),
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
    "the same by metadata alone": ("sums-differ", 2, Scene((CORE, MAPS), (OLD_NAV,), release="nav-maps", more=("--metadata-only",))),
    "two providers": ("sums-differ", 2, Scene(TWO_PROVIDERS, gone=("extra",), addons="<package><name>z</name></package>")),
    "file that nobody has": ("file-require rpm-refuses", 2, app(requires=("/usr/bin/none",))),
    "condition that is not met": ("rich-require rpm-refuses", 2, app(requires=("(none or nothing)",))),
    "same file twice": ("rpm-refuses", 2, Scene((
        Package("app", "2-1", files=(("/opt/one", "app"),)), Package("lib", "2-1", files=(("/opt/one", "lib"),))))),
    "same file twice, beside a newer updater": ("rpm-refuses updater-first", 2, Scene((
        Package("app", "2-1", files=(("/opt/one", "app"),)), Package("lib", "2-1", files=(("/opt/one", "lib"),)),
        Package("updater", "1.2-1")), (Package("updater", "1.1-1"),))),
    "nothing enabled": ("no-repository", 1, Scene(signed='true" enabled="0', behind=sign_index("vendor"))),
    "signature that nobody can verify": ("index-signature unsigned", 1, dataclasses.replace(
        Scene((Package("app", "2-1", key=""),), signed="true", behind=sign_index("vendor")), keys=())),
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
    assert ("sums-differ" in expected) == ("CORRUPTED" in [run["status"] for run in report["runs"]])


def test_a_good_repository_is_left_in_peace(program: Path, tmp_path: Path) -> None:
    code, report = Scene(signed="true", behind=sign_index("vendor")).check(program, tmp_path)
    assert (code, report["findings"], report["runs"][0]["status"]) == (0, [], "REBOOTING")
    assert [p["packages"] for p in report["runs"][0]["passes"][1:]] == [
        ["app-2-1.noarch.rpm", "lib-2-1.noarch.rpm"], ["extra-5-1.noarch.rpm", "firmware-2-1.noarch.rpm"]]


def test_the_page_tells_of_all(program: Path) -> None:
    page = (PROJECT / "man/updater-repocheck.8").read_text()
    findings = page[page.index(".Sh FINDINGS"):page.index(".Sh JSON")]
    named = {name for line in re.findall(r"^\.It Cm (.*)", findings, re.MULTILINE) for name in line.split(" , ")}
    assert named == {name for expected, _, _ in MISTAKES.values() for name in expected.split()}
    help_ = subprocess.run([program.with_name("updater-repocheck"), "--help"], capture_output=True, text=True, check=True).stdout
    assert re.findall(r"^\.It Fl -(\S+)(?: Ns = Ns Ar (\S+))?$", page, re.MULTILINE) == re.findall(
        r"^  +--([\w-]+)(?:[= ](\S+))?", help_[:help_.index("Help options")], re.MULTILINE)


def test_a_server_gives_what_a_directory_gives(program: Path, tmp_path: Path) -> None:
    _, of_directory = Scene().check(program, tmp_path)
    handler = functools.partial(http.server.SimpleHTTPRequestHandler, directory=str(tmp_path))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        _, of_server = repocheck(program, "--conf-file", tmp_path / "conf", "--previous", tmp_path / "old", "--baseline",
                                 "--key", keys.public_key("vendor"), f"http://127.0.0.1:{server.server_port}/new")
        server.shutdown()
    assert of_server["runs"] == of_directory["runs"] and of_server["findings"] == []


def installed_list(path: Path, *lines: str) -> Path:
    path.write_text("".join(line.replace(" ", "\t") + "\n" for line in lines))
    return path


def test_a_list_knows_files_and_no_keys(program: Path, tmp_path: Path) -> None:
    Scene().publish(tmp_path / "new", {"lib": NEW[1]}, False)
    lines = ("P gpg-pubkey 0 1 1 (none)", "P lib 0 1 1 noarch", "V lib 8 1-1", "F /opt/lib/f", "P user 0 1 1 noarch", "R /opt/lib/f 0 ")
    code, report = repocheck(program, "--installed", installed_list(tmp_path / "%(touch pwned)", *lines), tmp_path / "new")
    assert (code, ids(report, "error"), ids(report, "warning")) == (2, {"rpm-refuses"}, {"rpm-refuses"})
    assert "is needed by (installed) user" in json.dumps(report) and not Path("pwned").exists()


def test_a_device_with_keys_of_its_own(program: Path, tmp_path: Path) -> None:
    with Device(program) as device:
        device.import_key("stranger")
        scene = Scene(signed="true", behind=sign_index("vendor"), more=("--root", str(device.directory)), keys=())
        code, report = scene.check(program, tmp_path)
    assert (code, ids(report)) == (2, {"index-signature"})
    assert [(run["exitCode"], run["status"]) for run in report["runs"]] == [(0, "REBOOTING"), (1, "READY")]


@pytest.mark.parametrize(("arguments", "message"), [
    (["--conf-file=", "new"], "an option has an empty value"), (["--root=", "new"], "an option has an empty value"),
    (["--previous=http://a/", "new"], "--previous takes a directory"), (["--installed=/dev/zero", "new"], "is no file"),
    (["--previous=old", "--baseline", "new"], "--metadata-only does without"),
    (["--key=list", "new"], "not a public key each: 'list'"), (["new", "old"], "one repository at a time")])
def test_what_cannot_be_looked_at(program: Path, tmp_path: Path, arguments: list[str], message: str) -> None:
    for name in ("old", "new"):
        Scene().publish(tmp_path / name, {"lib": NEW[1]}, False)
    (tmp_path / "old/lib-2-1.noarch.rpm").unlink()
    installed_list(tmp_path / "list", "P app 0 1 1 noarch")
    done = subprocess.run([program.with_name("updater-repocheck"), *arguments], cwd=tmp_path, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (2, "") and message in done.stderr


def test_paths_of_all_kinds(program: Path, tmp_path: Path) -> None:
    repo = tmp_path / "x [re]{a,b} po%(touch pwned)'"
    Scene().publish(repo, {p.name: p for p in NEW}, False)
    (repo / "firmware-2-1.noarch.rpm").unlink()
    os.mkfifo(repo / "firmware-2-1.noarch.rpm")
    code, report = repocheck(program, "--installed", installed_list(tmp_path / "list", "P app 0 1 1 noarch"), repo)
    assert (code, ids(report, "error"), report["runs"][0]["status"]) == (2, {"file-missing"}, "REBOOTING")
    with open("/dev/full", "w") as full:
        done = subprocess.run([program.with_name("updater-repocheck"), repo], stdout=full, stderr=subprocess.PIPE, check=False)
    assert (done.returncode, b"cannot be written" in done.stderr) == (2, True)


@pytest.mark.parametrize("line", ["P\ta\t0\t1", "P\ta\tx\t1\t1\tnoarch", "R\ta\t0\t1", "P\t\t0\t1\t1\tnoarch", "nonsense", ""])
def test_a_list_that_is_none(program: Path, tmp_path: Path, line: str) -> None:
    (tmp_path / "list").write_text(line + "\n")
    Scene().publish(tmp_path / "new", {}, False)
    done = subprocess.run([program.with_name("updater-repocheck"), "--installed", tmp_path / "list", tmp_path / "new"],
                          capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (2, "") and "line 1 of" in done.stderr
