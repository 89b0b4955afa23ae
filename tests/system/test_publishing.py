"""What docs/publishing.md says: each of its blocks with the scene that it stands for, and its figures."""

import dataclasses
import os
import re
import subprocess
import sys
from collections.abc import Sequence

import guides
import pytest
from conftest import PROJECT
from device import keys, webserver
from device.device import Package
from peers import GOOD, INDEX, PRIMARY, certificates, check, log_of, nginx, point_at
from scenes import NEW, set_up

GUIDE = "docs/publishing.md"
BLOCKS = guides.blocks(GUIDE)
LIB = Package("lib", "1-1")
NAV, CORE, MAPS = Package("nav", "1-1"), Package("nav-core", "2-1", obsoletes=("nav < 2",)), Package(
    "nav-maps", "2-1", obsoletes=("nav < 2",), group="Extras")
RUNNING = ("updater-running = 1.2",)
SIGNER = """export GNUPGHOME=/root GPG_TTY=; gpg --batch -q --pinentry-mode loopback --passphrase '' --quick-gen-key \
'Example <packages@example.com>' rsa2048 sign 0; gpg --armor --export >/root/key; gpgconf --kill all; rpm --import /root/key"""


@dataclasses.dataclass
class Scene:
    """`before` runs in the device, in the repository, in front of the block; `new` is a second repository."""

    offered: Sequence[Package] = (Package("app", "2-1"),)
    installed: Sequence[Package] = (Package("app", "1-1"),)
    new: Sequence[Package] = ()
    before: str = ""
    uri: str = "file:///srv/repo"
    settings: dict = dataclasses.field(default_factory=dict)


SCENES = {
    "recipe": Scene([Package("app", "2-1", key=""), Package("lib", "2-1", key="")], [Package("app", "1-1"), LIB], before=f"rm -r repodata; {SIGNER}"),
    "sha256": Scene(),
    "sha256 of packages": Scene(),
    "compression": Scene(),
    "hashes": Scene(before="rm -r repodata", new=[Package("lib", "2-1")]),
    "upload": Scene([], new=[Package("app", "2-1")], before="updater -n"),
    "gap": Scene([], new=[Package("app", "2-1")]),
    "link": Scene([], new=[Package("app", "2-1")], before="ln -s repo ../current; updater -n", uri="/srv/current"),
    "gone": Scene(uri="http://localhost:8080/repo"),
    "architectures": Scene([Package("app", "2-1", arch="x86_64"), Package("app", "2-1", arch="i686")], [Package("app", "1-1", arch="x86_64")]),
    "release": Scene([Package("app", "2-1", requires=("libfoo > 2-1",)), Package("lib", "2-2", provides=("libfoo = 2",))]),
    "strict": Scene([Package("lib", "2-1"), Package("lib-files", "2-1", obsoletes=("lib-data < 2",))],
                    [LIB, Package("lib-data", "1-1", requires=("lib = 1-1",))]),
    "split": Scene([CORE, MAPS], [NAV], settings={"groups": ["Extras"]}),
    "split by name": Scene([CORE, MAPS], [NAV], settings={"addons": ["nav-maps"]}),
    "newer updater": Scene([Package("app", "2-1", requires=("updater-running >= 1.2",)), Package("updater", "1.2-1", provides=RUNNING)],
                           [Package("app", "1-1"), Package("updater", "1.1-1")]),
    "key": Scene([Package("app", "2-1", key="second")], [Package("app", "1-1"), Package("updater", "1.1-1")],
                 before="printf '#!/bin/sh\n[ $1 != init ] || [ ! -e /opt/key ] || rpm --import /opt/key' >/usr/lib/updater/hook"),
}
SCENES["strict mended"] = Scene([Package("lib", "2-1", provides=("lib = 1-1",)), SCENES["strict"].offered[1]], SCENES["strict"].installed)
SCENES["split by a require"] = Scene([dataclasses.replace(CORE, requires=("nav-maps",)), MAPS], [NAV], settings={"groups": ["Extras"]})


def make(device, scene: Scene) -> None:
    device.install(*scene.installed)
    device.publish(*scene.offered)
    device.publish(*scene.new, at="/srv/new")
    device.configure(scene.uri, **scene.settings)
    device.write("/etc/rpm/macros", device.read("/etc/rpm/macros") + "%__gpg /usr/bin/gpg\n")
    if scene.uri.startswith("http"):
        nginx(device)
    assert device.shell(f"cd /srv/repo; {scene.before}").returncode == 0


@pytest.mark.parametrize("name", BLOCKS)
def test_blocks(device, name):
    scene = SCENES[name]
    if name == "architectures" and os.uname().machine != "x86_64":
        pytest.skip("for x86_64")
    if name == "key":
        new_key = ("/opt/key", keys.public_key("second").read_text())
        scene = dataclasses.replace(scene, offered=[*scene.offered, Package("updater", "1.2-1", files=(new_key,))])
    make(device, scene)
    guides.check(device, f"{BLOCKS[name]}$ gpgconf --kill all\n", "/srv/repo", GNUPGHOME="/root", GPG_TTY="")


@pytest.mark.parametrize("offered, line, state", [
    ([Package("libnew", "2-1", provides=("lib = 2-1",), obsoletes=("lib < 2",))], "INFO: packages installed OK", ["libnew-2-1", "nav-1-1"]),
    ([Package("libnew", "2-1", provides=("lib = 2-1",))], "INFO: no updates", ["lib-1-1", "nav-1-1"]),
    ([Package("libnew", "2-1", obsoletes=("lib < 2",))], "INFO:   \tlib >= 1 is needed by (installed) app-1-1.noarch", ["lib-1-1", "nav-1-1"]),
    ([Package("lib", "2-1", requires=("/usr/bin/foo",))], "INFO:   \t/usr/bin/foo is needed by lib-2-1.noarch", ["lib-1-1", "nav-1-1"]),
    ([Package("lib", "2-1", requires=("updater-running >= 1.2",)), Package("updater", "1.2-1")],
     "ERROR: \tupdater-running >= 0:1.2", ["lib-1-1", "nav-1-1"]),
    ([MAPS, Package("nav", "2-1"), Package("lib", "2-1", requires=("nav >= 2",))],
     "FATAL: failed passing all updates but update process succeeded, SYSTEM MAY BE CORRUPTED", ["lib-2-1", "nav-2-1"]),
], ids=["rename", "no obsoletes", "no provides", "file", "updater without provides", "split that keeps the name"])
def test_what_stands_in_the_text(device, offered, line, state):
    make(device, Scene(offered, [LIB, NAV, Package("app", "1-1", requires=("lib >= 1",))], settings={"groups": ["Extras"]}))
    assert line in device.run("--no-reboot").lines
    assert device.installed() == ["app-1-1", "base-system-1-1", *state]


def test_a_cache_of_ones_own_answers_for_the_index(device):
    """With the configuration that the guide gives, for a server on port 8080."""
    block = re.search(r"^```nginx\n(.*)\}\n```$", (PROJECT / GUIDE).read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)[1]
    point_at(set_up(device), "http://localhost:8081/repo")
    webserver.start(device, f"}} {block}")
    assert [check(device), check(device)] == [GOOD, GOOD]
    device.publish(*NEW, Package("more", "1-1"))
    assert check(device) == GOOD
    seen = log_of(device, "nginx", 6)
    assert [sum(file in line for line in seen) for file in (INDEX, PRIMARY)] == [3 + 1, 1 + 1]  # of the cache and the server
    assert device.shell("rm $(grep -lr KEY.*repomd /srv/nginx/cache)").returncode == 0  # its time is over
    assert check(device) == [f"WARNING: invalid checksum on '{PRIMARY}'; retrying with bypass of http caches", *GOOD]
    assert check(device) == GOOD


@pytest.fixture(scope="module")
def tables() -> str:
    made = subprocess.run([sys.executable, "tools/fleet.py"], cwd=PROJECT, capture_output=True, text=True, check=True)
    return made.stdout


def test_the_tables_are_those_of_the_simulation(tables):
    assert f"<!-- fleet -->\n{tables}<!-- end of fleet -->" in (PROJECT / GUIDE).read_text(encoding="utf-8")
    assert "\nRandomizedDelaySec=2h\n" in (PROJECT / "dist/systemd/updater.timer").read_text(encoding="utf-8")
    assert " --max-wait-time=7200 " in (PROJECT / "dist/cron/updater").read_text(encoding="utf-8")


@pytest.mark.parametrize("scheme, port", [("http", 8080), ("https", 8443)])
def test_what_a_check_costs(device, tmp_path, tables, scheme, port):
    """In bytes that the program writes to its connection and reads from there."""
    pem = certificates(tmp_path) / "good.pem"
    device.write("/srv/pem", pem.read_bytes() + pem.with_suffix(".key").read_bytes())
    device.write("/srv/ca.pem", (tmp_path / "ca.pem").read_bytes())
    device.write("/etc/hosts", "127.0.0.1 localhost repo.test\n")
    point_at(set_up(device), f"{scheme}://repo.test:{port}/repo", '<tls trust="/srv/ca.pem"/>')
    webserver.start(device, "listen 8443 ssl; ssl_protocols TLSv1.3; ssl_certificate /srv/pem; ssl_certificate_key /srv/pem;")
    for kind in ("changed", "unchanged"):
        assert device.shell("strace -f -yy -o /tmp/trace -e trace=read,write,sendto,recvfrom,readv,writev,recvmsg,sendmsg "
                            "updater -n --max-wait-time=-1", ASAN_OPTIONS="detect_leaks=0").returncode == 0
        sums = {"sent": 0, "received": 0}
        for call, count in re.findall(r"^\d+ +(\w+)\(\d+<TCP.* = (\d+)$", device.read("/tmp/trace"), re.MULTILINE):
            sums["sent" if call[0] in "sw" else "received"] += int(count)
        row = re.search(rf"^\| {kind} \|.*", tables, re.MULTILINE)[0].replace(",", "").split("|")
        told = [int(number) for number in re.findall(r"\d+", row[4 if scheme == "http" else 5])]
        assert list(sums.values()) == pytest.approx(told, rel=0.03)
