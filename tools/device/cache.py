"""What is dear to make and never changes: keys, packages, rpm databases. Kept below build/."""

import contextlib
import fcntl
import hashlib
import os
import shutil
import tempfile
from collections.abc import Callable, Iterator
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]


def directory() -> Path:
    """The cache's directory; a temporary one of this user if the project is not ours to write."""
    path = PROJECT / "build" / "device-cache"
    try:
        path.mkdir(parents=True, exist_ok=True)
        if os.access(path, os.W_OK) and path.stat().st_uid == os.getuid():
            return path
    except PermissionError:
        pass
    path = Path(tempfile.gettempdir()) / f"updater-device-cache-{os.getuid()}"
    path.mkdir(mode=0o700, exist_ok=True)
    if path.is_symlink() or path.stat().st_uid != os.getuid():
        raise PermissionError(f"{path} belongs to somebody else")
    return path


@contextlib.contextmanager
def locked() -> Iterator[None]:
    """Keeps other processes from filling the cache meanwhile."""
    with open(directory() / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def name_for(*parts: object) -> str:
    """A file name for what was made from these parts (compared by their repr)."""
    return hashlib.sha256(repr(parts).encode()).hexdigest()[:24]


def entry(name: str, fill: Callable[[Path], None]) -> Path:
    """The directory of that name in the cache. fill() makes it if it is not there, under another
    name, so that nobody sees it half full. If two do so at the same time, the first one's stays."""
    path = directory() / name
    if not path.exists():
        path.parent.mkdir(parents=True, exist_ok=True)
        draft = Path(tempfile.mkdtemp(prefix="draft-", dir=path.parent))
        try:
            fill(draft)
            with contextlib.suppress(FileExistsError):
                draft.rename(path)
        finally:
            shutil.rmtree(draft, ignore_errors=True)
    return path
