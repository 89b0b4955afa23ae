"""Publishes packages as a repository, in the way that the device's vendor does."""

import shutil
import subprocess
from collections.abc import Iterable
from pathlib import Path

from . import cache

COMMAND = ["createrepo_c", "--quiet", "--checksum", "sha", "--general-compress-type", "gz",
           "--simple-md-filenames", "--no-database"]


def publish(directory: Path, files: Iterable[Path]) -> None:
    """Puts copies of package files into `directory`, which may exist, and writes its repodata/.
    Other files that the directory had are removed."""
    files = list(files)
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for file in files:
        shutil.copy2(file, directory)
    name = cache.name_for("repodata", sorted((file.name, file.stat().st_mtime_ns) for file in files))

    def fill(draft: Path) -> None:
        subprocess.run([*COMMAND, "--outputdir", str(draft), str(directory)], check=True, capture_output=True)

    with cache.locked():
        repodata = cache.entry(f"repodata/{name}", fill) / "repodata"
        shutil.copytree(repodata, directory / "repodata", dirs_exist_ok=True)
