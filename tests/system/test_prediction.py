"""What updater-repocheck foresees is what a device does: random repositories of real packages, each in a private device."""

import random
import re
from pathlib import Path

import pytest
from conftest import PROJECT
from device import keys
from device.device import Device, Package
from test_repocheck import ids, repocheck

NAMES = (*"abcdefg", "updater")
#: Those of the seeds that show the most.
SHORT = (0, 3, 4, 5, 7, 8)
#: Findings that take the files of packages.
ONLY_FILES = {"rpm-refuses", "download-fails", "signature-fails"}
#: The line that makes a list.
LIST = re.search(r"^rpm -qa .*'", (PROJECT / "man/updater-repocheck.8").read_text(), re.MULTILINE)[0].replace(r"\e", "\\")


def package(dice: random.Random, name: str, version: int) -> Package:
    """One that may need, provide and obsolete others; few enough kinds for the cache to have most of them."""
    if version == 1:
        return Package(name, "1-1", provides=("feature-a",) if name == "a" else ())
    others = [other for other in NAMES if other != name]
    requires = [dice.choice([f"{other} >= {dice.choice('12')}", f"feature-{other}", "/opt/base", "(a if b)", f"/opt/{other}/version"])
                for other in dice.sample(others, dice.choice((0, 0, 1, 1, 2)))]
    return Package(name, f"{version}-1", requires=tuple(requires),
                   provides=tuple(f"feature-{other}" for other in dice.sample(others, dice.choice((0, 1, 2)))),
                   obsoletes=tuple(dice.choice((f"{other} < 2", other)) for other in dice.sample(others, dice.choice((0, 0, 0, 1)))),
                   group=dice.choice(("Unspecified", "Extras")), key=dice.choice(("vendor",) * 12 + ("stranger",)),
                   files=(("/opt/shared", name),) if dice.random() < 0.04 else ())


@pytest.mark.parametrize("seed", [
    seed if seed in SHORT else pytest.param(seed, marks=pytest.mark.long) for seed in range(206)])
def test_a_device_does_what_was_foreseen(program: Path, tmp_path: Path, seed: int) -> None:
    dice = random.Random(seed)
    with Device(program) as device:
        device.import_key()
        device.install(*(package(dice, name, 1) for name in dice.sample(NAMES, 5)))
        device.publish(*(package(dice, name, dice.choice((1, 2, 2))) for name in dice.sample(NAMES, 7)))
        if dice.random() < 0.15:
            dice.choice(sorted(device.path("/srv/repo").glob("*.rpm"))).unlink()
        device.configure(release=dice.choice(NAMES), addons=dice.sample(NAMES, 1), groups=dice.sample(["Extras"], dice.choice((0, 1))))
        (tmp_path / "list").write_text(device.shell(LIST).stdout)
        options = ("--conf-file", device.path("/etc/updater.conf"), "--key", keys.public_key("vendor"), device.path("/srv/repo"))
        _, full = repocheck(program, "--root", device.directory, "--installed", tmp_path / "list", *options)
        runs = full["runs"]
        _, values = repocheck(program, "--metadata-only", "--root", device.directory, *options)
        if not ids(full) & ONLY_FILES:
            runs.append(values["runs"][0])  # then the same comes of values alone
        result = device.run()
        # The lists of the check and of each pass, as the device names them.
        lists: list[list[str]] = []
        for line in result.lines:
            if line.startswith(("INFO: need to update", "INFO: starting update")):
                lists.append([])
            elif line.startswith("INFO: \t") and line.endswith(".rpm"):
                lists[-1].append(line[7:])
        done = (lists, result.returncode, device.status, any("shutdown" in call for call in device.calls))
    for run in runs:
        foreseen = [of["packages"] for of in run["passes"] if of["packages"]]
        assert (foreseen, run["exitCode"], run["status"], run["reboots"]) == done, run["state"] + "\n" + "\n".join(result.lines)
