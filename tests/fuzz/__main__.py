"""Runs fuzz targets: ./dev fuzz [TARGET|all SECONDS]. What is kept lies below build/fuzz/."""

import json
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from device.cache import PROJECT

from . import seeds

BUILD = PROJECT / "build" / "fuzz"
FIGURES = BUILD / "figures"

#: Of each target, the most bytes of an input.
TARGETS = {"primary": 8192, "index": 4096, "configuration": 4096, "proxyfile": 1024, "table": 4096, "package": 16384,
           "header": 4096, "versions": 96, "armour": 4096, "downloader": 4096, "childlines": 4096, "installedlist": 1024}
#: Seconds of one process: texts of packages stay in memory for good, so that it grows, and gets slower.
SLICE = 15
#: Of the address sanitizer: what a replay tells better costs a third of the time.
FAST = "malloc_context_size=1:quarantine_size_mb=1:thread_local_quarantine_size_kb=64:max_malloc_fill_size=256"
#: What librpm keeps from run to run, libFuzzer would take the time to look at behind each of them.
KEEPING = {"package"}
ROW = "{:14} {:>14} {:>10} {:>9} {:>9} {:>9}"


def note(target: str, **figures: int) -> dict[str, int]:
    """Adds to what is known of a target's runs. Features are those of the last one."""
    file = FIGURES / target
    known = json.loads(file.read_text(encoding="ascii")) if file.exists() else {}
    for name in ("runs", "seconds"):
        known[name] = known.get(name, 0) + figures.pop(name, 0)
    known |= figures
    FIGURES.mkdir(exist_ok=True)
    file.write_text(json.dumps(known), encoding="ascii")
    return known


def row(target: str, known: dict[str, int]) -> str:
    return ROW.format(target, f"{known['runs']:,}", f"{known['runs'] // max(known['seconds'], 1):,}",
                      *(known.get(name, 0) for name in ("branches", "features", "inputs")))


def run(target: str, seconds: int) -> bool:
    """Whether nothing was found."""
    corpus, first = BUILD / "corpus" / target, seeds.directory(BUILD, target)
    corpus.mkdir(parents=True, exist_ok=True)
    found = PROJECT / "tests" / "fuzz" / "found" / target
    places = [corpus, first, *([found] if found.exists() else [])]
    program = BUILD / "tests" / "fuzz" / f"fuzz_{target}"
    end = time.monotonic() + seconds
    while (left := round(end - time.monotonic())) > 0:
        with tempfile.TemporaryDirectory(prefix="fuzz-", dir="/dev/shm") as memory:
            done = subprocess.run(
                [program, *places, *seeds.dictionary(BUILD, target), f"-max_len={TARGETS[target]}",
                 f"-max_total_time={min(left, SLICE)}", f"-detect_leaks={int(target not in KEEPING)}",
                 f"-artifact_prefix={BUILD}/found-{target}-",
                 "-timeout=10", "-malloc_limit_mb=300", "-rss_limit_mb=1500", "-print_final_stats=1"],
                env=os.environ | {"TMPDIR": memory, "LC_ALL": "C", "ASAN_OPTIONS": FAST,
                                  "FUZZ_SIGNED": str(first.parent / "signed"),
                                  "FUZZ_KEY": str(first.parent / "key.asc")},
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        text = done.stdout.decode(errors="replace")
        status = re.findall(r"^#\d+\s+\w+\s+cov: (\d+) ft: (\d+) corp: (\d+)/", text, re.MULTILINE)
        runs = re.findall(r"^Done (\d+) runs in (\d+) second", text, re.MULTILINE)
        if status and runs:
            branches, features, inputs = map(int, status[-1])
            known = note(target, runs=int(runs[0][0]), seconds=int(runs[0][1]), branches=branches, features=features,
                         inputs=inputs)
            print(row(target, known), flush=True)
        if done.returncode != 0 or not runs:
            print(*(line[:300] for line in text.splitlines()[-50:]), sep="\n")
            return False
    return True


def main() -> int:
    head = ROW.format("target", "runs so far", "a second", "branches", "features", "inputs")
    match sys.argv[1:]:
        case []:
            known = {target: FIGURES / target for target in TARGETS}
            print(head, *(row(target, json.loads(file.read_text(encoding="ascii")) if file.exists() else
                              {"runs": 0, "seconds": 0}) for target, file in known.items()), sep="\n")
            return 0
        case [name, seconds] if name in (*TARGETS, "all") and seconds.isdigit():
            print(head)
            good = [run(target, int(seconds)) for target in (TARGETS if name == "all" else [name])]
            return 0 if all(good) else 1
    print(f"dev fuzz [TARGET|all SECONDS]: the targets are {' '.join(TARGETS)}", file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main())
