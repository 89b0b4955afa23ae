"""System calls: their names, what kind they are of, and with which errors each can fail."""

import collections
import errno
import functools
import itertools
import re
import signal
from collections.abc import Iterable, Iterator
from pathlib import Path

from .points import Point

SIGNALS = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT)
#: The first kind that has the name is it.
KINDS = {
    "opens and looks": "open openat stat lstat newfstatat access faccessat faccessat2 readlink getdents64 statfs",
    "reads": "read pread64 lseek readv",
    "writes": "write pwrite64 writev ftruncate fallocate",
    "forces to disk": "fsync fdatasync sync",
    "changes names": "rename renameat renameat2 mkdir unlink unlinkat rmdir chmod fchmod",
    "descriptors and locks": "close dup dup2 dup3 pipe pipe2 fcntl ioctl",
    "processes": "fork vfork clone clone3 execve wait4 waitid exit_group exit pidfd_open setsid kill chdir",
    "network": "socket connect sendto recvfrom sendmsg recvmsg setsockopt getsockopt getsockname bind getpeername "
               "poll ppoll select shutdown sendmmsg",
    "memory": "mmap munmap mprotect brk mremap madvise",
}
_COMMON = ("EIO", "ENOMEM", "EINTR", "EACCES")
#: What is tried at a call of this name, besides nothing.
ERRORS = {
    "openat": ("ENOSPC", "EROFS", "EMFILE", *_COMMON), "read": ("EIO", "EINTR"), "pread64": ("EIO", "EINTR"),
    "write": ("ENOSPC", "EIO", "EINTR"), "writev": ("ENOSPC", "EIO"), "fsync": ("EIO", "ENOSPC"),
    "close": ("EIO",), "rename": ("ENOSPC", "EIO", "EROFS", "EACCES"), "mkdir": ("ENOSPC", "EROFS", "EACCES"),
    "unlink": ("EIO", "EROFS", "EACCES"), "pipe": ("EMFILE",), "pipe2": ("EMFILE",), "fork": ("ENOMEM",),
    "vfork": ("ENOMEM",), "clone": ("ENOMEM",), "clone3": ("ENOMEM",), "wait4": ("EINTR",), "waitid": ("EINTR",),
    "connect": ("EIO", "EACCES"), "sendto": ("EIO", "EINTR"), "recvfrom": ("EIO", "EINTR"), "socket": ("EMFILE",),
    "poll": ("EINTR", "ENOMEM"), "ppoll": ("EINTR",), "fchmod": ("EIO",), "fcntl": ("EIO",), "execve": ("EACCES",),
    "newfstatat": ("EIO", "EACCES"), "access": ("EIO",), "dup2": ("EMFILE",), "chdir": ("EACCES",),
    "getdents64": ("EIO",), "mmap": ("ENOMEM",),  # brk has no error but an unchanged end
}
SHORT = ("read", "write", "pread64", "sendto", "recvfrom")


@functools.cache
def names() -> dict[int, str]:
    """The names of the calls by the kernel's numbers."""
    header = Path("/usr/include/x86_64-linux-gnu/asm/unistd_64.h").read_text()
    return {int(number): name for name, number in re.findall(r"#define __NR_(\w+) (\d+)", header)}


def kind_of(number: int) -> str:
    """-1 stands for a point that was never reached, -2 for an allocation."""
    if number < 0:
        return "never reached" if number == -1 else "allocations"
    name = names().get(number, "")
    return next((kind for kind, members in KINDS.items() if name in members.split()), "other")


def _places(calls: list[int]) -> Iterator[int]:
    """All places, but of a long row of one call (the look for sockets asks for each descriptor) both ends only."""
    end = 0
    for _, row in itertools.groupby(calls):
        begin, end = end, end + len(list(row))
        yield from (place for place in range(begin + 1, end + 1) if place - begin <= 8 or end - place < 8)


def killed(calls: list[int]) -> Iterator[Point]:
    return (Point(when, signal.SIGKILL, call) for call in _places(calls) for when in ("before", "behind"))


def signalled(calls: list[int]) -> Iterator[Point]:
    return (Point("before", number, call) for call in _places(calls) for number in SIGNALS)


def failed(calls: Iterable[int]) -> Iterator[Point]:
    """Each call by its number among those of its name, as a second thread shifts the others."""
    met: collections.Counter[int] = collections.Counter()
    places = set(_places(calls))
    for place, number in enumerate(calls, 1):
        met[number] += 1
        if place not in places:
            continue
        name = names().get(number, "")
        for error in ERRORS.get(name, ()):
            yield Point("fail", getattr(errno, error), met[number], number)
        if name in SHORT:
            yield Point("short", 0, met[number], number)


def starved(allocations: int) -> Iterator[Point]:
    """Each allocation fails alone, and with all behind it."""
    return (Point("starve", more, number) for number in range(1, allocations + 1) for more in (0, 10 ** 9))
