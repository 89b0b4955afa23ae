"""What a machine starts from: a kernel, an initial root and the image of a disk. All is kept in the cache."""

import hashlib
import platform
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterable, Sequence
from pathlib import Path

from device import cache, keys
from device.packages import BASE, Package
from device.packages import build as build_packages
from device.root import FILES as DEVICE_FILES

HERE = Path(__file__).parent
SYSTEM = ("systemd", "systemd-sysv", "dbus", "udev", "mount", "kmod", "rpm", "libneon27", "libxml2", "procps", "logrotate")
LEFT_OUT = ("path-exclude=/usr/share/doc/*", "path-include=/usr/share/doc/updater/*", "path-exclude=/usr/share/locale/*")
MODULES = ("virtio_pci", "virtio_blk", "virtio_net", "virtio_rng")
INIT = """#!/bin/busybox sh
busybox mount -t devtmpfs dev /dev
for module in {modules}; do busybox insmod /$module.ko; done
until busybox mount -t ext4 -o ro /dev/vda /root; do busybox usleep 100000; done
busybox mount --move /dev /root/dev
exec busybox switch_root /root /sbin/init
"""
# Takes commands from the host, one a line, and ends the output of each with \\036 and its exit code.
HOST_SHELL = r"""stty raw -echo
printf '\036ready\n'
while IFS= read -r line; do
    sh -c "$line" </dev/null 2>&1
    printf '\036%d\n' $?
done
"""
ON_CONSOLE = "[Service]\nStandardOutput=journal+console\n"
#: The files of the device, beside those of its packages.
FILES = {
    "/etc/fstab": "/dev/vda / ext4 defaults 0 0\n",
    "/etc/hostname": "device\n",
    "/etc/hosts": "127.0.0.1 localhost device\n",
    "/etc/machine-id": "0123456789abcdef0123456789abcdef\n",
    "/etc/rpm/macros": DEVICE_FILES["/etc/rpm/macros"],
    "/etc/popt": DEVICE_FILES["/etc/popt"],
    "/usr/share/resources/default/updater/defaults.conf": "<updater/>\n",
    "/etc/systemd/network/lan.network": """[Match]
Name=e*
[Network]
Address=10.0.2.15/24
Gateway=10.0.2.2
LinkLocalAddressing=no
""",
    # Not once a day, but soon after each start.
    "/etc/systemd/system/updater.timer.d/soon.conf": """[Timer]
OnCalendar=
OnActiveSec=3s
RandomizedDelaySec=0
Persistent=no
AccuracySec=1s
""",
    "/etc/systemd/system/updater.service.d/console.conf": ON_CONSOLE,
    "/etc/systemd/system/updater-boot.service.d/console.conf": ON_CONSOLE,
    "/usr/local/lib/host-shell": HOST_SHELL,
    "/etc/systemd/system/host-shell.service": """[Unit]
Description=Commands of the host
DefaultDependencies=no
[Service]
ExecStart=/bin/sh /usr/local/lib/host-shell
StandardInput=tty-force
StandardOutput=tty
TTYPath=/dev/ttyS1
[Install]
WantedBy=sysinit.target
""",
    "/etc/systemd/system/shell.service": """[Unit]
Description=Shell on the console
ConditionKernelCommandLine=shell
After=multi-user.target
[Service]
Environment=HOME=/root TERM=vt220
WorkingDirectory=/root
ExecStart=/bin/bash -i
ExecStopPost=systemctl poweroff --no-block
StandardInput=tty-force
StandardOutput=tty
TTYPath=/dev/ttyS0
[Install]
WantedBy=multi-user.target
""",
}


def package() -> Path:
    """The Debian package of updater, built now."""
    made = subprocess.run([cache.PROJECT / "tools/package", "-G", "DEB"], capture_output=True, text=True, check=False)
    if made.returncode != 0:
        raise RuntimeError(f"tools/package failed: {made.stderr}")
    return cache.PROJECT / made.stdout.strip()


def _release() -> str:
    return platform.freedesktop_os_release()["VERSION_CODENAME"]


def base() -> Path:
    """A tar file with a Debian system like this one, without anything of ours."""
    def fill(draft: Path) -> None:
        subprocess.run(["mmdebstrap", "--quiet", "--variant=essential", "--include=" + ",".join(SYSTEM),
                        *(f"--dpkgopt={option}" for option in LEFT_OUT), _release(), str(draft / "base.tar")], check=True)
    return cache.entry("machine/base-" + cache.name_for(_release(), SYSTEM, LEFT_OUT), fill) / "base.tar"


def _modules(directory: Path, names: Iterable[str]) -> list[Path]:
    """The files of these kernel modules and of those that they need, in the order of loading."""
    files = {file.stem.replace("-", "_"): file for file in directory.rglob("*.ko")}
    order: list[Path] = []

    def add(name: str) -> None:
        needs = re.search(rb"\0depends=([^\0]*)\0", files[name].read_bytes())
        for needed in filter(None, needs[1].decode().split(",") if needs else []):
            add(needed.replace("-", "_"))
        if files[name] not in order:
            order.append(files[name])
    for name in names:
        add(name)
    return order


def _fill_kernel(draft: Path, modules: Sequence[str], init: str) -> None:
    with tempfile.TemporaryDirectory(prefix="kernel-") as name:
        work = Path(name)
        depends = subprocess.run(["apt-cache", "depends", "linux-image-cloud-amd64"], check=True, capture_output=True, text=True)
        package = re.search(r"Depends: (linux-image-\S+)", depends.stdout)
        if not package:
            raise RuntimeError(f"no kernel found: {depends.stdout}")
        subprocess.run(["apt-get", "-qq", "download", package[1]], cwd=work, check=True)
        subprocess.run(["dpkg-deb", "--extract", next(work.glob("*.deb")), work / "kernel"], check=True)
        root = work / "root"
        for directory in ("bin", "dev", "root"):
            (root / directory).mkdir(parents=True)
        shutil.copy("/bin/busybox", root / "bin")
        files = _modules(work / "kernel/lib/modules", modules)
        for module in files:
            shutil.copy(module, root)
        (root / "init").write_text(init.format(modules=" ".join(module.stem for module in files)))
        (root / "init").chmod(0o755)
        with open(draft / "initrd", "wb") as initrd:
            subprocess.run("find . | busybox cpio -o -H newc 2>/dev/null", shell=True, cwd=root, stdout=initrd, check=True)
        shutil.copy(next(work.glob("kernel/boot/vmlinuz-*")), draft / "vmlinuz")


def kernel(modules: Sequence[str] = MODULES, init: str = INIT) -> tuple[Path, Path]:
    """Debian's kernel for virtual machines, and an initial root that mounts the first disk, or has another
    /init and other modules."""
    place = cache.entry("machine/kernel-" + cache.name_for(_release(), modules, init), lambda draft: _fill_kernel(draft, modules, init))
    return place / "vmlinuz", place / "initrd"


def image(package: Path, *installed: Package, key: str = "vendor") -> Path:
    """The image of a disk with a device that has this Debian package, and what is installed by rpm. It
    belongs to the cache: use a copy. It lacks /etc/updater.conf."""
    def fill(draft: Path) -> None:
        for old in draft.parent.glob("image-*"):
            shutil.rmtree(old)  # each takes some 300 MB, and comes back when it is wanted
        with tempfile.TemporaryDirectory(prefix="image-") as name:
            work = Path(name)
            work.chmod(0o755)
            for path, content in FILES.items():
                file = work / "files" / path.lstrip("/")
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(content)
            hook = work / "files/usr/lib/updater/hook"
            hook.parent.mkdir(parents=True)
            shutil.copy(cache.PROJECT / "dist/examples/hook", hook)
            (work / "rpms").mkdir()
            for file in build_packages(BASE, *installed):
                shutil.copy(file, work / "rpms")
            done = subprocess.run([HERE / "make-image", base(), package, work / "files", work / "rpms",
                                   keys.public_key(key), draft / "disk"], capture_output=True, text=True, check=False)
            if done.returncode != 0:
                raise RuntimeError(f"making the image failed:\n{done.stdout}{done.stderr}")
    what = (base(), hashlib.sha256(package.read_bytes()).hexdigest(), FILES, (HERE / "make-image").read_text(),
            (cache.PROJECT / "dist/examples/hook").read_text(), BASE, installed, keys.public_key(key).read_text())
    return cache.entry("machine/image-" + cache.name_for(*what), fill) / "disk"


def put(disk: Path, path: str, content: str) -> None:
    """Puts a new file into a directory that the image of a disk, which no machine uses, has."""
    with tempfile.NamedTemporaryFile("w", prefix="put-") as file:
        file.write(content)
        file.flush()
        done = subprocess.run(["debugfs", "-w", "-R", f"write {file.name} {path}", disk], capture_output=True, text=True, check=True)
    if "Allocated inode" not in done.stdout:
        raise RuntimeError(f"{path}: {done.stdout}{done.stderr}")
