"""Disturbs a run at each of its system calls, or at a share of them: ./dev proof SERIES."""

import argparse
import collections
import contextlib
import itertools
import json
import multiprocessing
import os
import sys
import time
from collections.abc import Iterator
from pathlib import Path

from device.cache import PROJECT
from device.scene import tidy_up_on_signals

from . import calls, disk, points, report
from .points import Bed, Point, Scene, Verdict

#: What is done, in which scenes, and to which of their points.
SERIES = {"killed": (points.SCENES, lambda bed: calls.killed(bed.calls())),
          "signalled": (points.SCENES, lambda bed: calls.signalled(bed.calls())),
          "failed": (points.SCENES, lambda bed: calls.failed(bed.calls())),
          "starved": (points.CHECKS, lambda bed: calls.starved(bed.allocations()))}
Found = tuple[Scene, Verdict]


def chosen(series: str, only: str, program: Path, share: tuple[int, int]) -> Iterator[tuple[Scene, Point]]:
    """The points of all scenes that belong to this share, say every third one from the second on."""
    scenes, points_of = SERIES[series]
    for scene in scenes:
        if only not in scene.name:
            continue
        with contextlib.closing(Bed(program, scene)) as bed:
            of_scene = list(points_of(bed))
        yield from ((scene, point) for point in of_scene[share[0] - 1::share[1]])


def work(program: Path, tasks: list[tuple[Scene, Point]], results: multiprocessing.Queue) -> None:
    """Judges all tasks; then an end mark."""
    tidy_up_on_signals()
    try:
        for scene, group in itertools.groupby(tasks, lambda task: task[0]):
            with contextlib.closing(Bed(program, scene)) as bed:
                for _, point in group:
                    results.put((scene, bed.judge(point)))
    finally:
        results.put(None)


def judged(program: Path, tasks: list[tuple[Scene, Point]], workers: int) -> Iterator[Found]:
    results: multiprocessing.Queue = multiprocessing.Queue()
    processes = [multiprocessing.Process(target=work, args=(program, tasks[first::workers], results), daemon=True)
                 for first in range(workers)]
    for process in processes:
        process.start()
    alive = workers
    while alive:
        if found := results.get():
            yield found
        else:
            alive -= 1
    for process in processes:
        process.join()
        if process.exitcode != 0:
            raise RuntimeError("a worker failed")


def kept(series: str, share: str, found: list[Found], seconds: float) -> None:
    """Leaves what was found for docs/proof.md, in place of an earlier look at the same share."""
    rows = collections.Counter((scene.name, calls.kind_of(verdict.kernel_number), verdict.word, not verdict.faults)
                               for scene, verdict in found)
    points.BUILT.joinpath(f"{series}-{share.replace('/', '-of-')}.json").write_text(json.dumps(
        {"series": series, "share": share, "program": report.program(), "seconds": round(seconds),
         "rows": [[*row, number] for row, number in rows.items()],
         "violated": [describe(scene, verdict) for scene, verdict in found if verdict.faults]}, indent=1))


def describe(scene: Scene, verdict: Verdict) -> str:
    point = verdict.point
    name = calls.names().get(verdict.kernel_number, "?")
    return f"{scene.name}: {point.doing} {point.number} at call {point.call} ({name}): " + "; ".join(verdict.faults)


def main() -> int:
    if sys.argv[1:2] == ["disk"]:
        return disk.main(sys.argv[2:])
    if sys.argv[1:] == ["page"]:
        report.write()
        return 0
    parser = argparse.ArgumentParser(prog="./dev proof", description=__doc__)
    parser.add_argument("series", nargs="*", help=f"of {', '.join(SERIES)}; all without any")
    parser.add_argument("--share", default="1/1", metavar="I/N", help="only every Nth point, from the Ith on")
    parser.add_argument("--scene", default="", help="only scenes whose name holds this")
    options = parser.parse_args()
    tidy_up_on_signals()
    first, every = map(int, options.share.split("/"))
    program = Path(os.environ.get("UPDATER", PROJECT / "build/updater")).resolve()
    points.build_tools()
    violated = 0
    for series in options.series or SERIES:
        start = time.monotonic()
        tasks = list(chosen(series, options.scene, program, (first, every)))
        print(f"{series}: {len(tasks)} points", flush=True)
        found = []
        for scene, verdict in judged(program, tasks, os.cpu_count() or 1):
            found.append((scene, verdict))
            if verdict.faults:
                violated += 1
                print(describe(scene, verdict), flush=True)
        kept(series, options.share, found, time.monotonic() - start)
        print("\n".join(report.calls(series)), "\n", flush=True)
    return 1 if violated else 0


if __name__ == "__main__":
    sys.exit(main())
