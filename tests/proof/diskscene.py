"""The power is cut at every write of the disk: an update in a machine, on a disk whose writes are logged."""

import shutil
import struct
import subprocess
import tempfile
from pathlib import Path

from device import keys, packages, repository
from device.cache import PROJECT
from device.device import Package
from device.root import FILES as DEVICE_FILES
from machine import image
from machine.machine import Machine, drive
from machine.scene import CONFIGURATION

SIZE = 300 << 20
MODULES = ("virtio_pci", "virtio_blk", "virtio_rng", "xfs")
PATIENCE = 1200  # seconds for whatever a machine does: others may be at work
#: File systems: how they are made and mounted.
MAKE = {"ext4": ["mke2fs", "-q", "-F", "-t", "ext4", "-b", "4096", "-E", "lazy_itable_init=0,lazy_journal_init=0,offset={offset}"],
        "xfs": ["mkfs.xfs", "-q", "-f"]}
MOUNT = {"ext4": "-t ext4", "ext4-noauto_da_alloc": "-t ext4 -o noauto_da_alloc", "xfs": "-t xfs", "ext4-boot": "-t ext4"}
#: The one with a second file system, for /boot. Both are partitions: begin and size.
TWO, PARTITIONS = "ext4-boot", ((1 << 20, 240 << 20), (241 << 20, 59 << 20))
#: All that is not on the disk of /var and /opt lies in memory. Commands of the host come by the second port.
INIT = """#!/bin/busybox sh
export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C
busybox mount -t devtmpfs dev /dev
for module in {modules}; do busybox insmod /$module.ko; done
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sys /sys
exec sh /host-shell </dev/ttyS1 >/dev/ttyS1 2>&1
"""
DIRECTORIES = ("boot", "disk", "opt", "proc", "root", "run/lock", "sys", "tmp", "var", "usr/bin", "usr/sbin")
ON_DISK = ("boot", "opt", "var/cache/updater", "var/lib/rpm", "var/lib/updater", "var/log/updater", "var/tmp")
#: What a script of "app" writes, perhaps to where no package has files. At its end rpm 4.18 itself forces those file
#: systems to disk where packages have any, and its database.
INDEX = "/boot/index-"
#: Longer than journals wait; not in the runs behind a cut.
SLEEP = "[ -e /run/quick ] || sleep 7\n"
FILES = {
    "/etc/passwd": "root:x:0:0:root:/root:/bin/sh\n", "/etc/group": "root:x:0:\n",
    "/etc/rpm/macros": DEVICE_FILES["/etc/rpm/macros"], "/etc/popt": DEVICE_FILES["/etc/popt"],
    "/etc/updater.conf": CONFIGURATION.format(uri="file:///srv/repo"),
    "/usr/share/resources/default/updater/defaults.conf": "<updater/>\n",
    "/usr/lib/updater/hook": "#!/bin/sh\n" + SLEEP,
    "/usr/sbin/telinit": "#!/bin/sh\n" + SLEEP,
    "/usr/sbin/shutdown": "#!/bin/sh\n",
    "/host-shell": image.HOST_SHELL,
}


def _files(name: str, version: str, count: int) -> tuple[tuple[str, str], ...]:
    """Files whose names stay, and as many whose names change with the version."""
    return tuple((f"/opt/{name}/{place}{number}", f"{version} {number}\n" * 500)
                 for place in ("part", f"of-{version}-") for number in range(count))


def _set(version: str) -> tuple[Package, ...]:
    """Two packages for the first pass, two for the second."""
    slow = (("post", SLEEP), ("preun", SLEEP))
    index = (("posttrans", f"sha1sum /opt/app/part* >{INDEX}{version}"),)
    return (Package("app", version, files=_files("app", version, 12), scripts=slow + index),
            Package("lib", version, files=_files("lib", version, 12), size=3 << 20),
            Package("firmware", version, files=_files("firmware", version, 4), scripts=slow[:1]),
            Package("maps", version, files=_files("maps", version, 1), size=2 << 20))


OLD, NEW = _set("1-1"), _set("2-1")


def names(*sets: tuple[Package, ...]) -> list[str]:
    return sorted(["base-system-1-1", *(f"{package.name}-{package.evr}" for part in sets for package in part)])


BEFORE, BETWEEN, BEHIND = names(OLD), names(NEW[:2], OLD[2:]), names(NEW)


def _libraries(program: Path) -> list[Path]:
    done = subprocess.run(["ldd", program], capture_output=True, text=True, check=True)
    return [Path(word) for word in done.stdout.split() if word.startswith("/")]


def _root(program: Path, root: Path) -> None:
    """The files of a machine that lie in its memory."""
    for directory in DIRECTORIES:
        (root / directory).mkdir(parents=True)
    for path, content in FILES.items():
        file = root / path.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(str(content))
        file.chmod(0o755)
    for source, place in ((program, "usr/sbin/updater"), (Path("/usr/bin/rpm"), "usr/bin/rpm"), (Path("/usr/bin/rpmkeys"), "usr/bin/rpmkeys"),
                          (PROJECT / "dist/clear-rebooting", "usr/sbin/clear-rebooting")):
        shutil.copy(source, root / place)
    for library in {*_libraries(program), *_libraries(Path("/usr/bin/rpm"))}:
        (root / library.parent.relative_to("/")).mkdir(parents=True, exist_ok=True)
        shutil.copy(library, root / library.relative_to("/"))
    shutil.copytree("/usr/lib/rpm", root / "usr/lib/rpm", symlinks=True)
    repository.publish(root / "srv/repo", packages.build(*NEW))
    (root / "srv/old").mkdir()
    for package in packages.build(packages.BASE, *OLD):
        shutil.copy(package, root / "srv/old")
    shutil.copy(keys.public_key("vendor"), root / "srv/old/key")


def initial_root(program: Path, target: Path) -> tuple[Path, Path]:
    """A kernel, and what it starts from, in the file `target`."""
    kernel, initrd = image.kernel(MODULES, INIT)
    with tempfile.TemporaryDirectory(prefix="root-") as name:
        _root(program, Path(name))
        made = subprocess.run("find . | busybox cpio -o -H newc 2>/dev/null", shell=True, cwd=name, capture_output=True, check=True)
    target.write_bytes(initrd.read_bytes() + made.stdout)
    return kernel, target


def _run(machine: Machine, command: str) -> str:
    code, output = machine.run(command, PATIENCE)
    if code != 0:
        raise RuntimeError(f"{command} ends with {code}: {output}")
    return output


def start(kernel: tuple[Path, Path], drives: list[str]) -> Machine:
    """A machine with one processor, as several are at work."""
    return Machine(kernel, [*drives, "-smp", "1"], lambda _: None)


def mounting(system: str) -> str:
    """The command that makes /disk what lies on the first disk."""
    if system == TWO:
        return f"blockdev --rereadpt /dev/vda && mount {MOUNT[system]} /dev/vda1 /disk && mkdir -p /disk/boot && mount {MOUNT[system]} /dev/vda2 /disk/boot"
    return f"mount {MOUNT[system]} /dev/vda /disk"


def unmounting(system: str) -> str:
    return "umount /disk/boot && umount /disk" if system == TWO else "umount /disk"


def mount(machine: Machine, system: str) -> None:
    """Puts the first disk where the program looks for it."""
    _run(machine, f"{mounting(system)} && mkdir -p {' '.join('/disk/' + name for name in ON_DISK)} && "
         "for part in boot opt var; do mount --bind /disk/$part /$part; done; ln -sfn /run /var/run; ln -sfn /run/lock /var/lock")


def _unmount(machine: Machine, system: str) -> None:
    _run(machine, f"umount /boot /opt /var && {unmounting(system)} && sync")


def _format(system: str, disk: Path) -> None:
    kind, whole = system.partition("-")[0], [(0, SIZE)]
    with open(disk, "wb") as file:
        file.truncate(SIZE)
        if system == TWO:  # a table of partitions
            entries = b"".join(struct.pack("<4x B 3x II", 0x83, begin >> 9, size >> 9) for begin, size in PARTITIONS)
            file.write(bytes(446) + entries.ljust(64, b"\0") + b"\x55\xaa")
    for begin, size in PARTITIONS if system == TWO else whole:
        command = [word.format(offset=begin) for word in MAKE[kind]]
        subprocess.run([*command, disk, *([f"{size >> 10}k"] if kind == "ext4" else [])], check=True, stderr=subprocess.DEVNULL)


def make(kernel: tuple[Path, Path], system: str, disk: Path) -> None:
    """A disk with the old packages on it."""
    _format(system, disk)
    with start(kernel, drive(disk)) as machine:
        machine.wait_up(PATIENCE)
        mount(machine, system)
        _run(machine, "/usr/bin/rpm --import /srv/old/key && touch /run/quick && /usr/bin/rpm -i /srv/old/*.rpm")
        _unmount(machine, system)
    subprocess.run(["fallocate", "--dig-holes", disk], check=True)


def logged(disk: Path, log: Path) -> list[str]:
    """Options of qemu that make this the first disk, with a cache that power cuts empty, and log its writes."""
    return ["-blockdev", f"driver=file,filename={disk},node-name=file", "-blockdev", f"driver=file,filename={log},node-name=log",
            "-blockdev", "driver=blklogwrites,file=file,log=log,node-name=disk",
            "-device", "virtio-blk-pci,drive=disk,write-cache=on,discard=off,write-zeroes=off"]


def update(kernel: tuple[Path, Path], system: str, disk: Path, log: Path) -> None:
    """An update from begin to end on this disk."""
    log.write_bytes(b"")
    with start(kernel, logged(disk, log)) as machine:
        machine.wait_up(PATIENCE)
        mount(machine, system)
        told = _run(machine, "updater --max-wait-time=-1 && sleep 7")
        _unmount(machine, system)
    if told.count("packages installed OK") != 2:
        raise RuntimeError(f"this is no update in two passes: {told}")


def with_fault(name: str, directory: Path) -> Path:
    """The program with the patch NAME.patch, built in a directory of its own if it is not there."""
    program = directory / "build/release/updater"
    if not program.exists():
        shutil.copytree(PROJECT, directory, ignore=shutil.ignore_patterns("build", ".git"))
        with open(Path(__file__).with_name(f"{name}.patch"), encoding="ascii") as file:
            subprocess.run(["patch", "--quiet", "--strip=1"], cwd=directory, stdin=file, check=True)
        for command in (["cmake", "--preset", "release"], ["cmake", "--build", "--preset", "release", "--target", "updater"]):
            subprocess.run(command, cwd=directory, stdout=subprocess.DEVNULL, check=True)
    return program
