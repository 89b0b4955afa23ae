"""The files that a new device has, and what is mounted over them in each run."""

import os
import shutil
from pathlib import Path

STUBS = ("rpm", "telinit", "shutdown")
EEPROM = "/sys/bus/i2c/drivers/Quorax-EEPROM"
DIRECTORIES = ("/etc/network", "/var/lib/updater", "/var/lib/rpm", "/var/log/updater", "/var/cache/updater",
               "/var/tmp", "/run/lock", "/opt", "/root", "/srv", "/tmp", "/dev/shm", "/proc", "/usr", "/mnt",
               "/device/layer/lib/updater", "/device/layer/share/resources", EEPROM + "/0-0053")
LINKS = {"bin": "usr/bin", "sbin": "usr/sbin", "lib": "usr/lib", "lib64": "usr/lib64",
         "var/run": "/run", "var/lock": "/run/lock"}
FILES: dict[str, str | bytes] = {
    "/etc/hosts": "127.0.0.1 localhost\n",
    "/etc/rpm/macros": "%_dbpath /var/lib/rpm\n",
    "/etc/popt": "rpm alias -U --force-debian -U\nrpm alias -i --force-debian -i\n",  # less talk
    "/usr/share/resources/default/updater/defaults.conf": "<updater/>\n",
    "/proc/cpuinfo": "Hardware\t: Quorax\nRevision\t: 0210\nSerial\t\t: 00000000deadbeef\n",
    EEPROM + "/0-0050/data": bytes(21),
    EEPROM + "/0-0052/data": bytes(21),
    "/device/leaks": "leak:libsqlite3.so\n",  # of librpm, when a database cannot be opened
    "/device/calls": "",
    "/device/rules": "",
    "/device/servers": "",
    "/device/bin/updater": "",
}
#: Paths of the device whose files lie elsewhere in its directory, as something is mounted there.
MOVED = {"/var/run": "/run", "/var/lock": "/run/lock", "/usr/lib/updater": "/device/usr-lib-updater",
         "/usr/share/resources": "/device/resources", "/proc/cpuinfo": "/device/cpuinfo"}
#: Where updater's own package has files in /usr.
PACKAGED = ("/usr/sbin", "/usr/libexec", "/usr/lib/systemd", "/usr/lib/tmpfiles.d", "/usr/share/updater",
            "/usr/share/doc", "/usr/share/man", "/usr/share/bash-completion")


def host_path(root: Path, path: str) -> Path:
    """Where a file of the device with this root directory lies on the host."""
    for place, real in MOVED.items():
        if path == place or path.startswith(place + "/"):
            path = real + path[len(place):]
    return root / path.lstrip("/")


def write(root: Path, path: str, content: str | bytes, mode: int = 0o644) -> Path:
    """Writes a file of the device and makes the directories above it."""
    file = host_path(root, path)
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(content.encode() if isinstance(content, str) else content)
    file.chmod(mode)
    return file


def make(root: Path, program: Path, packaged: bool) -> None:
    """Makes the files of a new device, with an empty rpm database, in an existing directory. `packaged`:
    the directories PACKAGED are its own and empty. The program runs in $EMULATOR, if that is set: a file,
    and behind it what to call, with {} in place of the file; $SYSROOT is at /device/sysroot then."""
    for path in DIRECTORIES:
        host_path(root, path).mkdir(parents=True, exist_ok=True)
    for link, target in LINKS.items():
        (root / link).symlink_to(target)
    for file in ("passwd", "group", "nsswitch.conf", "ld.so.cache"):
        if Path("/etc", file).exists():
            shutil.copyfile(Path("/etc", file), root / "etc" / file)
    for path, content in FILES.items():
        write(root, path, content)
    stub = Path(__file__).with_name("stub").read_bytes()
    for path in [*(f"/device/bin/{name}" for name in STUBS), "/usr/lib/updater/hook"]:
        write(root, path, stub, 0o755)

    # Mounted from within the root: its own path could not stand in options without more escapes.
    mounts = [("overlay", "/usr", "overlay", "ro,lowerdir=device/layer:/usr"), ("proc", "/proc", "proc", "ro")]
    place = "/device/bin/updater"
    if "EMULATOR" in os.environ:
        emulator, _, call = os.environ["EMULATOR"].partition(" ")
        place, inside = "/device/emulated/updater", "/device/emulator/updater"  # which the process is called
        write(root, "/device/bin/updater", f'#!/bin/sh\nexec {call.format(inside)} {place} "$@"\n', 0o755)
        write(root, place, "")
        write(root, inside, "")
        (root / "device/sysroot").mkdir()
        mounts += [(Path(emulator), inside, "none", "bind,ro"),
                   (Path(os.environ.get("SYSROOT", "/usr")), "/device/sysroot", "none", "bind,ro")]
    mounts.append((program, place, "none", "bind,ro"))
    for place in ("/usr/lib/updater", "/usr/share/resources", "/proc/cpuinfo"):
        mounts.append((host_path(root, place), place, "none", "bind"))
    for place in PACKAGED if packaged else ():
        own = root / "device/layer" / place.removeprefix("/usr/")  # which makes the mount point, too
        own.mkdir(parents=True, exist_ok=True)
        mounts.append((own, place, "none", "bind"))
    for name in ("null", "zero", "full", "urandom", "random", "tty"):
        (root / "dev" / name).touch()
        mounts.append((Path("/dev", name), f"/dev/{name}", "none", "bind"))
    write(root, "/device/fstab", "".join(
        f"{_escape(what)} {_escape(root)}{where} {kind} {options} 0 0\n" for what, where, kind, options in mounts))


def _escape(text: object) -> str:
    return "".join(f"\\{ord(sign):03o}" if sign in "\\ \t\n" else sign for sign in str(text))
