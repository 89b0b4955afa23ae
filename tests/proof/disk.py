"""Cuts the power at every write of an update in a machine, judges what then lies on the disk, and does the same
with faults built into the program: ./dev proof disk."""

import argparse
import collections
import concurrent.futures
import contextlib
import json
import os
import random
import tempfile
import time
from collections.abc import Iterator
from pathlib import Path

from device.cache import PROJECT
from device.scene import tidy_up_on_signals

from . import diskscene, powercut, report, writelog
from .points import BUILT
from .powercut import Verdict

#: Faults that are built into the program to see whether they are seen, and where.
FAULTS = {"none": tuple(diskscene.MOUNT), "word-not-forced": ("ext4-noauto_da_alloc",), "packages-not-forced": ("ext4-boot",)}


class Log:
    """An update on a file system, write by write."""

    def __init__(self, kernel: tuple[Path, Path], system: str, work: Path, seed: int) -> None:
        self.kernel, self.system, self._seed = kernel, system, seed
        self._begin = work / "begin"
        diskscene.make(kernel, system, self._begin)
        with self.copy(work / "run"):
            diskscene.update(kernel, system, work / "run", work / "log")
        self.entries = writelog.read(work / "log")

    @contextlib.contextmanager
    def copy(self, target: Path) -> Iterator[int]:
        """The disk as it was in front of the update."""
        with open(self._begin, "rb") as begin, open(target, "w+b") as file:
            writelog.copy(begin.fileno(), file.fileno())
            yield file.fileno()

    def states(self, disk: int) -> Iterator[writelog.State]:
        return writelog.states(disk, self.entries, self._seed)


def judge(log: Log, share: tuple[int, int]) -> list[Verdict]:
    """Of every Nth state, from the Ith on."""
    with tempfile.TemporaryDirectory(prefix="cuts-") as name:
        work = Path(name)
        with log.copy(work / "flushed") as flushed, powercut.judging(log.kernel, log.system, work) as found:
            return [found.judge(flushed, state) for number, state in enumerate(log.states(flushed))
                    if number % share[1] == share[0] - 1]


def chosen(verdicts: list[Verdict], count: int, seed: int) -> dict[str, str]:
    """States to start from, with their words, as many of each word as can be."""
    by_word = collections.defaultdict(list)
    for verdict in verdicts:
        if not verdict.faults:
            by_word[verdict.word].append(verdict.state)
    states: dict[str, str] = {}
    for of_word in by_word.values():
        random.Random(seed).shuffle(of_word)
    while len(states) < count and any(by_word.values()):
        states.update((of_word.pop(), word) for word, of_word in by_word.items() if of_word and len(states) < count)
    return states


def boot(log: Log, words: dict[str, str]) -> list[tuple[str, list[str]]]:
    """What is wrong behind a start from each of these states."""
    found = []
    with tempfile.TemporaryDirectory(prefix="boots-") as name:
        with log.copy(Path(name, "flushed")) as flushed:
            for state in log.states(flushed):
                if state.name in words:
                    with open(Path(name, "disk"), "w+b") as disk:
                        writelog.put(flushed, state, disk.fileno())
                    try:
                        faults = powercut.boot(log.kernel, log.system, Path(name, "disk"), words[state.name])
                    except (OSError, EOFError) as error:
                        faults = [f"hangs: {error}"]
                    found.append((state.name, faults))
    return found


def prove(program: Path, fault: str, system: str, options: argparse.Namespace) -> dict[str, object]:
    """All that is done with one program on one file system, its figures."""
    start = time.monotonic()
    workers = os.cpu_count() or 1
    share = options.share if fault == "none" else "1/1"  # a part may have none of the few states that are violated
    first, every = map(int, share.split("/"))
    with tempfile.TemporaryDirectory(prefix="disk-") as name, concurrent.futures.ThreadPoolExecutor(workers) as pool:
        kernel = diskscene.initial_root(program, Path(name, "initrd"))
        log = Log(kernel, system, Path(name), options.seed)
        print(f"{len(log.entries)} writes and flushes after {time.monotonic() - start:.0f} seconds", flush=True)
        shares = [(first + every * worker, every * workers) for worker in range(workers)]
        verdicts = [verdict for part in pool.map(lambda share: judge(log, share), shares) for verdict in part]
        violated = [f"{verdict.state} ({verdict.word}): " + "; ".join(verdict.faults) for verdict in verdicts if verdict.faults]
        print("\n".join([*violated, f"{len(violated)} of {len(verdicts)} violated after {time.monotonic() - start:.0f} seconds"]), flush=True)
        words = list(chosen(verdicts, options.boots if fault == "none" else 0, options.seed).items())
        boots = [end for part in pool.map(lambda worker: boot(log, dict(words[worker::workers])), range(workers)) for end in part]
    failed = [f"started from {state}: " + "; ".join(faults) for state, faults in boots if faults]
    for line in failed:
        print(line)
    return {"program": report.program(), "file system": system, "fault": fault, "share": share, "seed": options.seed,
            "writes": sum(bool(entry.data) for entry in log.entries), "flushes": sum(entry.flush for entry in log.entries),
            "words": collections.Counter(verdict.word for verdict in verdicts), "points": len(verdicts),
            "held": len(verdicts) - len(violated), "violated": len(violated),
            "starts": len(boots), "starts failed": len(failed), "seconds": round(time.monotonic() - start)}


def keep(result: dict) -> None:
    """Leaves a result in build/proof/disk.json, in place of an earlier one of the same."""
    def what(of: dict) -> list[str]:
        return [of[key] for key in ("file system", "fault", "share", "seed")]
    BUILT.mkdir(parents=True, exist_ok=True)
    file = BUILT / "disk.json"
    kept = [other for other in json.loads(file.read_text()) if what(other) != what(result)] if file.exists() else []
    file.write_text(json.dumps([*kept, result], indent=1) + "\n")


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(prog="./dev proof disk", description=__doc__)
    parser.add_argument("--fs", action="append", choices=diskscene.MOUNT, help="only this file system")
    parser.add_argument("--fault", action="append", choices=FAULTS,
                        help="only the program with this fault built in, which must be seen, or with none")
    parser.add_argument("--share", default="1/1", metavar="I/N", help="only every Nth state, from the Ith on")
    parser.add_argument("--boots", type=int, default=30, metavar="N", help="from so many states a machine is started")
    parser.add_argument("--seed", type=int, default=1, metavar="N", help="chooses what of unflushed writes is lost")
    options = parser.parse_args(arguments)
    tidy_up_on_signals()
    program = Path(os.environ.get("UPDATER", PROJECT / "build/updater")).resolve()
    tasks = [(fault, system) for fault in options.fault or FAULTS for system in FAULTS[fault] if system in (options.fs or FAULTS[fault])]
    results = []
    with tempfile.TemporaryDirectory(prefix="faults-") as name:
        for fault, system in tasks:
            print(f"disk: {system}, fault: {fault}", flush=True)
            tried = program if fault == "none" else diskscene.with_fault(fault, Path(name, fault))
            results.append(prove(tried, fault, system, options))
            print("\n".join(report.disk(results[-1:])), flush=True)
            keep(results[-1])
    return 1 if any(bool(result["violated"] or result["starts failed"]) != (result["fault"] != "none") for result in results) else 0
