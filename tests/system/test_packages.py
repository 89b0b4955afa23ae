"""What `cmake --install` installs, and both packages: installed, updated and removed in a fresh root."""

import os
import platform
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest

from conftest import PROJECT
from device import cache, packages, selfupdate

#: What belongs to the system beside updater: modes, directories and what lies in them, "/" at the end of a directory's name.
TREE = """
644 /etc/cron.d/ updater
755 /etc/init.d/ updater-boot
644 /etc/logrotate.d/ updater
644 /usr/lib/systemd/system-preset/ 50-updater.preset
644 /usr/lib/systemd/system/ updater-boot.service updater-inhibit.service updater.service updater.timer
644 /usr/lib/tmpfiles.d/ updater.conf
755 /usr/libexec/updater/ clear-rebooting ensure-reboot
755 /usr/sbin/ updater updater-repocheck
644 /usr/share/bash-completion/completions/ updater updater-repocheck
644 /usr/share/doc/updater/ CHANGELOG.md README.md SECURITY.md operating.md publishing.md
644 /usr/share/doc/updater/examples/ defaults.conf orvproxy.conf updater.conf
755 /usr/share/doc/updater/examples/ hook
644 /usr/share/man/ man5/updater.conf.5 man7/updater-hook.7 man7/updater-report.7 man8/updater-repocheck.8 man8/updater.8
644 /usr/share/updater/ orvproxy.rng updater.rng
755 /var/ cache/updater/ lib/updater/ log/updater/
"""
INSTALLED = {directory + name: mode for line in TREE.split("\n") if line
             for mode, directory, *names in [line.split()] for name in names}
OF_DEBIAN = {f"/usr/share/{name}": "644" for name in
             ("doc/updater/changelog.gz", "doc/updater/copyright", "lintian/overrides/updater")}
PACKED = {path + ".gz" * ("/man/" in path): mode for path, mode in INSTALLED.items()}
UNITS = "updater.timer updater-boot.service updater.service"
#: Notes what the packages' scripts do to services, of a system that seems to run.
SYSTEMCTL = """#!/bin/sh
echo "$*" >>/calls
case $* in *daemon-reload | *start* | *stop*) ;; *) SYSTEMD_OFFLINE=1 exec /usr/bin/systemctl.real "$@" ;; esac
"""


def modes(root: Path, paths: list[str]) -> dict[str, str]:
    """Modes of these paths, as in INSTALLED. Directories that hold any of it are 755, and left out."""
    places = {path: root / path.lstrip("/") for path in paths}
    found = {path + "/" * place.is_dir(): f"{place.lstat().st_mode & 0o7777:o}" for path, place in places.items()}
    assert {mode for path, mode in found.items() if path.endswith("/")} <= {"755"}
    return {path: mode for path, mode in found.items() if not path.endswith("/") or path.startswith("/var/")}


def test_install(tmp_path: Path, program: Path) -> None:  # noqa: ARG001
    """All that belongs to the system is installed, and nothing else, whatever the umask."""
    subprocess.run(["cmake", "--install", PROJECT / "build/dev"], check=True, capture_output=True, umask=0o027,
                   env={**os.environ, "DESTDIR": str(tmp_path)})
    paths = [path.relative_to(tmp_path) for path in tmp_path.rglob("*")]
    ours = [f"/{path}" for path in paths if "updater" in path.parts or not (tmp_path / path).is_dir()]
    assert modes(tmp_path, ours) == INSTALLED


class Root:
    """A small Debian in a directory, with what the package for Debian depends on, but without it."""

    def __init__(self, archive: Path, directory: Path) -> None:
        self.directory = directory
        subprocess.run(["tar", "-C", directory, "-xf", archive], check=True)
        systemctl = self.path("/usr/bin/systemctl")
        systemctl.rename(f"{systemctl}.real")
        systemctl.write_text(SYSTEMCTL)
        systemctl.chmod(0o755)
        self.path("/run/systemd/system").mkdir(parents=True)
        self.before = self.paths()

    def path(self, path: str) -> Path:
        return self.directory / path.lstrip("/")

    def paths(self) -> set[str]:
        return {f"/{path.relative_to(self.directory)}" for path in self.directory.rglob("*")}

    def run(self, script: str) -> str:
        done = subprocess.run(
            ["unshare", "--mount", "--pid", "--fork", f"--mount-proc={self.path('/proc')}", "chroot", self.directory,
             "/bin/sh", "-ec", script], capture_output=True, text=True, check=False,
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C"})
        assert done.returncode == 0, f"{script}: {done.stdout}{done.stderr}"
        return done.stdout

    def services(self) -> list[str]:
        """What was started, stopped and the like since this was last asked. Systemd was reloaded."""
        calls = [re.sub("--[^ ]+ ", "", call) for call in self.path("/calls").read_text().splitlines()]
        self.path("/calls").unlink()
        assert "daemon-reload" in calls
        return [call for call in calls if not re.match("daemon-reload|is-|preset|disable", call)]

    def states(self) -> list[str]:
        return self.run(f"SYSTEMD_OFFLINE=1 systemctl.real is-enabled {UNITS} 2>&1 || true").split("\n")[:-1]

    def left(self) -> set[str]:
        """What came since the beginning, past what goes with the next start or is the package managers'."""
        return {path for path in self.paths() - self.before
                if not re.match(r"/(run|root|calls|var/(lib/(dpkg|rpm)|log/(dpkg|alternatives)))\b", path)}

    def version(self) -> str:
        """What the installed program calls itself."""
        log = self.run("updater --log-to-stderr -n --conf-file=/usr/share/doc/updater/examples/updater.conf 2>&1 || true")
        return re.search("^INFO: updater version ([^,]+),", log, re.MULTILINE)[1]


@pytest.fixture(scope="module")
def built() -> dict[str, Path]:
    """Both packages, and the rpm package of the version that may come next."""
    both = subprocess.run([PROJECT / "tools/package"], check=True, capture_output=True, text=True).stdout.split()
    return {name.rpartition(".")[2]: PROJECT / name for name in both} | {"next": selfupdate.built("--next")}


@pytest.fixture
def root(built: dict[str, Path]) -> Iterator[Root]:
    if os.geteuid() != 0:
        pytest.skip("only root can make a root of its own")
    depends = subprocess.run(["dpkg-deb", "-f", built["deb"], "Depends"], check=True, capture_output=True, text=True)
    names = sorted({"systemd", *re.findall(r"(?:^|, )([^ ,]+)", depends.stdout.strip())})
    release = platform.freedesktop_os_release()["VERSION_CODENAME"]

    def fill(draft: Path) -> None:
        subprocess.run(["mmdebstrap", "--quiet", "--variant=essential", f"--include={','.join(names)}", release,
                        draft / "root.tar"], check=True, stdin=subprocess.DEVNULL)

    archive = cache.entry(f"roots/{cache.name_for(release, names)}", fill) / "root.tar"
    with tempfile.TemporaryDirectory(prefix="root-") as directory:
        Path(directory).chmod(0o755)
        yield Root(archive, Path(directory))


@pytest.mark.long
def test_checkers(built: dict[str, Path]) -> None:
    """lintian finds nothing, and rpmlint no error."""
    rpmlintrc = PROJECT / "dist/packages/rpm/rpmlintrc"
    for command, good in ((["lintian", built["deb"]], "^$"),
                          (["rpmlint", "--rpmlintrc", rpmlintrc, built["rpm"]], " 1 packages .* 0 errors,")):
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        assert done.returncode == 0 and re.search(good, done.stdout), done.stdout


@pytest.mark.long
def test_packing_again(built: dict[str, Path]) -> None:
    """The same build gives the same packages."""
    before = [built[kind].read_bytes() for kind in ("deb", "rpm")]
    subprocess.run([PROJECT / "tools/package"], check=True, capture_output=True)
    assert [built[kind].read_bytes() for kind in ("deb", "rpm")] == before


@pytest.mark.long
def test_debian(root: Root, built: dict[str, Path]) -> None:
    shutil.copy(built["deb"], root.path("/updater.deb"))
    root.run("dpkg -i /updater.deb")
    assert root.services() == ["start updater.timer"]
    listed = [path for path in root.run("dpkg -L updater").split() if path not in root.before]
    assert modes(root.directory, listed) == PACKED | OF_DEBIAN
    assert root.run("dpkg-query -f '${Conffiles}' -W updater | awk '{print $1}'").split() == [
        path for path in PACKED if path.startswith("/etc/")]
    assert root.run("dpkg-query -f '${Version}' -W updater") == root.version()
    assert root.states() == ["enabled", "enabled", "static"]
    assert len(list(root.path("/etc").glob("rc?.d/S??updater-boot"))) == 1

    root.run("echo READY >/var/lib/updater/status; touch /var/log/updater/updater.log /var/cache/updater/file")
    root.run("dpkg -i /updater.deb")  # as an update does
    assert root.services() == []
    root.run("dpkg -r updater")
    assert root.services() == ["stop updater.timer"]
    assert "enabled" not in root.states()
    root.run("/etc/init.d/updater-boot start")
    assert root.path("/var/lib/updater/status").exists()
    root.run("dpkg -P updater; rm /updater.deb")
    assert root.left() == set()


@pytest.mark.long
def test_rpm(root: Root, built: dict[str, Path]) -> None:
    root.path("/usr/lib/systemd/systemd-sysv-install").write_text("#!/bin/sh\n")  # it is Debian's
    system, = packages.build(selfupdate.system_for(built["rpm"]))
    for name, package in (("system", system), ("updater", built["rpm"]), ("next", built["next"])):
        shutil.copy(package, root.path(f"/{name}.rpm"))
    rpm = "rpm --force-debian --dbpath /var/lib/rpm"
    root.run(f"{rpm} -i /system.rpm && {rpm} -i /updater.rpm")
    assert root.services() == []
    listed = root.run(f"{rpm} -ql updater").split()
    assert modes(root.directory, listed) == PACKED
    assert root.run(f"{rpm} -qc updater").split() == ["/etc/cron.d/updater", "/etc/logrotate.d/updater"]
    version = root.version()
    assert root.run(f"{rpm} -q --qf '%{{VERSION}}' updater") == version
    provides = f"{rpm} -q --provides updater"
    assert f"updater-running = {version}" in root.run(provides).splitlines()
    assert root.states() == ["enabled", "enabled", "static"]

    root.run("echo >>/etc/cron.d/updater; rm /etc/systemd/system/timers.target.wants/updater.timer")
    root.run(f"{rpm} -U /next.rpm")
    assert root.services() == []
    assert root.path("/etc/cron.d/updater").read_text().endswith("\n\n")
    assert root.states() == ["disabled", "enabled", "static"]  # as the device had it
    assert f"updater-running = {root.version()}" in root.run(provides).splitlines()
    assert root.version() != version

    root.run(f"{rpm} -e updater system; rm /*.rpm")
    assert root.services() == ["stop updater.timer"]
    assert not [path for path in root.left() if not path.startswith(("/var/", "/etc/cron.d", "/opt/system"))]


@pytest.mark.long
def test_update_of_updater() -> None:
    """A run replaces updater by its own package, and the next one, of the new program, does the rest."""
    text, faults = selfupdate.show()
    assert not faults, text
