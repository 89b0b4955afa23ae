"""What docs/publishing.md says: each of its blocks with the scene that it stands for, and its figures."""

import os
import re
import shutil
import subprocess
import sys

import guides
import pytest
from conftest import PROJECT
from device import keys, webserver
from device.device import Package
from peers import GOOD, INDEX, PRIMARY, check, log_of, nginx, point_at
from scenes import NEW, set_up

GUIDE = (PROJECT / "docs/publishing.md").read_text(encoding="utf-8")
BLOCKS = guides.blocks("docs/publishing.md")
APP, APP2, LIB, LIB2 = (Package(name, evr) for name in ("app", "lib") for evr in ("1-1", "2-1"))
UPDATER, NAV, CORE = Package("updater", "1.1-1"), Package("nav", "1-1"), Package("nav-core", "2-1", obsoletes=("nav < 2",))
CORE_WITH_MAPS = Package("nav-core", "2-1", obsoletes=("nav < 2",), requires=("nav-maps",))
MAPS = Package("nav-maps", "2-1", obsoletes=("nav < 2",), group="Extras")
PAIR = [LIB, Package("lib-data", "1-1", requires=("lib = 1-1",))]
FILES = Package("lib-files", "2-1", obsoletes=("lib-data < 2",))
SIGNER = """export GNUPGHOME=/root GPG_TTY=; gpg --batch -q --pinentry-mode loopback --passphrase '' --quick-gen-key \
'Example <packages@example.com>' rsa2048 sign 0; gpg --armor --export >/root/key; gpgconf --kill all; rpm --import /root/key"""
SIGN = "gpg --armor --detach-sign repodata/repomd.xml; gpg --armor --detach-sign ../new/repodata/repomd.xml; gpgconf --kill all"
SIGNED = f"{SIGNER}; sed -i 's/id=\"base\"/& signed=\"true\"/' /etc/updater.conf"
TWO = f"""rpm -e gpg-pubkey; {SIGNED}; gpg --batch -q --pinentry-mode loopback --passphrase '' --quick-gen-key \
'Second <second@example.com>' rsa2048 sign 0; gpg --armor --export second@ >../second.asc; gpgconf --kill all"""
HOOK = "printf '#!/bin/sh\n[ $1 != init ] || [ ! -e /opt/key ] || rpm --import /opt/key' >/usr/lib/updater/hook"


def make(device, offered=(APP2,), installed=(APP,), new=(), before="", uri="file:///srv/repo", **settings) -> None:
    """Before a block: `before` runs in the device, in the repository; `new` is a second repository."""
    device.install(*installed)
    device.publish(*offered)
    device.publish(*new, at="/srv/new")
    device.configure(uri, **settings)
    device.write("/etc/rpm/macros", device.read("/etc/rpm/macros") + "%__gpg /usr/bin/gpg\n")
    if uri.startswith("http"):
        nginx(device)
    assert device.shell(f"cd /srv/repo; {before}").returncode == 0


SCENES = {
    "recipe": dict(offered=[Package("app", "2-1", key=""), Package("lib", "2-1", key="")],
                   installed=[APP, LIB], before=f"rm -r repodata; {SIGNER}"),
    "sha256": {},
    "sha256 of packages": {},
    "compression": {},
    "hashes": dict(before="rm -r repodata", new=[LIB2]),
    "upload": dict(offered=[], new=[APP2], before="updater -n"),
    "gap": dict(offered=[], new=[APP2]),
    "link": dict(offered=[], new=[APP2], before="ln -s repo ../current; updater -n", uri="/srv/current"),
    "gone": dict(uri="http://localhost:8080/repo"),
    "architectures": dict(offered=[Package("app", "2-1", arch=arch) for arch in ("x86_64", "i686")],
                          installed=[Package("app", "1-1", arch="x86_64")]),
    "release": dict(offered=[Package("app", "2-1", requires=("libfoo > 2-1",)), Package("lib", "2-2", provides=("libfoo = 2",))]),
    "strict": dict(offered=[LIB2, FILES], installed=PAIR),
    "strict mended": dict(offered=[Package("lib", "2-1", provides=("lib = 1-1",)), FILES], installed=PAIR),
    "look ahead": dict(offered=[CORE, MAPS], installed=[NAV], groups=["Extras"]),
    "split": dict(offered=[CORE, MAPS], installed=[NAV], groups=["Extras"]),
    "split by a require": dict(offered=[CORE_WITH_MAPS, MAPS], installed=[NAV], groups=["Extras"]),
    "split by name": dict(offered=[CORE, MAPS], installed=[NAV], addons=["nav-maps"]),
    "newer updater": dict(offered=[Package("app", "2-1", requires=("updater-running >= 1.2",)),
                                   Package("updater", "1.2-1", provides=("updater-running = 1.2",))], installed=[APP, UPDATER]),
    "key": dict(offered=[Package("app", "2-1", key="second")], installed=[APP, UPDATER], before=HOOK),
    "signed": dict(before=f"{SIGNED}; rm -r repodata"),
    "signed, then made anew": dict(before=f"{SIGNED}; {SIGN}"),
    "signed upload": dict(offered=[], new=[APP2], before=f"{SIGNED}; {SIGN}; updater -n"),
    "signed gap": dict(offered=[], new=[APP2], before=f"{SIGNED}; {SIGN}; updater -n"),
    "signed by two keys": dict(before=TWO),
}


@pytest.mark.parametrize("name", BLOCKS)
def test_blocks(device, name, program):
    scene = SCENES[name]
    if name == "look ahead":
        shutil.copy(program.with_name("updater-repocheck"), device.path("/device/bin"))
    if name == "architectures" and os.uname().machine != "x86_64":
        pytest.skip("for x86_64")
    if name == "key":
        new_key = ("/opt/key", keys.public_key("second").read_text())
        scene = scene | {"offered": [*scene["offered"], Package("updater", "1.2-1", files=(new_key,))]}
    make(device, **scene)
    guides.check(device, f"{BLOCKS[name]}$ gpgconf --kill all\n", "/srv/repo", GNUPGHOME="/root", GPG_TTY="")


def test_a_cache_of_ones_own_answers_for_the_index(device):
    """With the configuration that the guide gives, for a server on port 8080."""
    block = re.search(r"^```nginx\n(.*)\}\n```$", GUIDE, re.MULTILINE | re.DOTALL)[1]
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


def test_the_tables_are_those_of_the_simulation():
    made = subprocess.run([sys.executable, "tools/fleet.py"], cwd=PROJECT, capture_output=True, text=True, check=True)
    assert f"<!-- fleet -->\n{made.stdout}<!-- end of fleet -->" in GUIDE
    assert "\nRandomizedDelaySec=2h\n" in (PROJECT / "dist/systemd/updater.timer").read_text(encoding="utf-8")
    assert " --max-wait-time=7200 " in (PROJECT / "dist/cron/updater").read_text(encoding="utf-8")


def test_what_a_check_costs(device):
    """In bytes that the program writes to its connection and reads from there, in clear."""
    point_at(set_up(device), "http://repo.test:8080/repo")
    device.write("/etc/hosts", "127.0.0.1 localhost repo.test\n")
    webserver.start(device)
    for kind in ("changed", "unchanged"):
        assert device.shell("strace -f -yy -o /tmp/trace -e trace=read,write,sendto,recvfrom,readv,writev,recvmsg,sendmsg "
                            "updater -n --max-wait-time=-1", ASAN_OPTIONS="detect_leaks=0").returncode == 0
        sums = {"sent": 0, "received": 0}
        for call, count in re.findall(r"^\d+ +(\w+)\(\d+<TCP.* = (\d+)$", device.read("/tmp/trace"), re.MULTILINE):
            sums["sent" if call[0] in "sw" else "received"] += int(count)
        row = re.search(rf"^\| {kind} \|.*", GUIDE, re.MULTILINE)[0].replace(",", "").split("|")
        told = [int(number) for number in re.findall(r"\d+", row[4])]
        assert list(sums.values()) == pytest.approx(told, rel=0.03)
