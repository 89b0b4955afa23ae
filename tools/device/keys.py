"""Keys to sign packages with: made once, kept in the cache, never in anybody's real key ring."""

import contextlib
import os
import shutil
import signal
import subprocess
import tempfile
import time
from collections.abc import Iterator
from pathlib import Path

from . import cache
from .running import ENDED


@contextlib.contextmanager
def _key_ring() -> Iterator[dict[str, str]]:
    """The environment of an empty key ring, which ends with its agent. Its path is short: the
    agent's socket lies in it."""
    with tempfile.TemporaryDirectory(prefix="keys-", dir="/tmp") as home:
        environment = {"GNUPGHOME": home, "HOME": home, "PATH": "/usr/bin:/bin", "LC_ALL": "C", "GPG_TTY": ""}
        try:
            yield environment
        finally:
            _stop_agent(environment)


def _stop_agent(environment: dict[str, str]) -> None:
    answer = subprocess.run(["gpg-connect-agent", "--no-autostart", "GETINFO pid", "/bye"],
                            env=environment, capture_output=True, text=True, check=False).stdout
    if not answer.startswith("D "):
        return
    agent = int(answer.split()[1])
    with contextlib.suppress(ProcessLookupError):
        os.kill(agent, signal.SIGINT)  # at once; SIGTERM takes two seconds
    end = time.monotonic() + 10
    while _runs(agent) and time.monotonic() < end:
        time.sleep(0.005)


def _runs(pid: int) -> bool:
    """Whether a process has not ended yet. One that has may stay in the list, if its heir doesn't care:
    the first process of a container often doesn't."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except ENDED:
        return False


def _gpg(environment: dict[str, str], *arguments: str) -> str:
    return subprocess.run(["gpg", "--batch", "--quiet", "--pinentry-mode", "loopback", "--passphrase", "",
                           *arguments], env=environment, capture_output=True, text=True, check=True).stdout


def _address(name: str) -> str:
    return f"{name} <{name}@example.invalid>"


def _files(name: str) -> Path:
    def fill(draft: Path) -> None:
        with _key_ring() as environment:
            times = (["--faked-system-time", "20200101T000000!"], "1y") if name == "expired" else ([], "0")
            _gpg(environment, *times[0], "--quick-gen-key", _address(name), "rsa2048", "sign", times[1])
            (draft / "public.asc").write_text(_gpg(environment, "--armor", "--export"))
            (draft / "secret.asc").write_text(_gpg(environment, "--armor", "--export-secret-keys"))
    return cache.entry(f"keys/{name}", fill)


def public_key(name: str) -> Path:
    """The public key of that name as a text file, as `rpm --import` takes it. That of "expired" has."""
    with cache.locked():
        return _files(name) / "public.asc"


def sign(name: str, packages: list[Path], digest: str = "sha512") -> None:
    """Signs package files in place. The caller holds the cache's lock."""
    secret = _files(name) / "secret.asc"
    with _key_ring() as environment:
        _gpg(environment, "--import", str(secret))
        subprocess.run(["rpmsign", "--define", f"__gpg {shutil.which('gpg')}", "--define",
                        f"_gpg_name ={_address(name)}", "--define", f"_gpg_digest_algo {digest}", "--addsign", *map(str, packages)],
                       env=environment, stdin=subprocess.DEVNULL, capture_output=True, check=True)


def signature(data: bytes, *names: str, options: tuple[str, ...] = ()) -> bytes:
    """A detached signature of these bytes by each of the keys, in one armour."""
    with cache.locked():
        secrets = [str(_files(name) / "secret.asc") for name in names]
    with _key_ring() as environment:
        _gpg(environment, "--import", *secrets)
        users = [part for name in names for part in ("--local-user", f"={_address(name)}")]
        return subprocess.run(["gpg", "--batch", "--quiet", *users, "--armor", *options, "--detach-sign"], input=data,
                              env=environment, capture_output=True, check=True).stdout
