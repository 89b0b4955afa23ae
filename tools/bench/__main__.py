"""Time and memory of a check against large repositories, beside the limits of the libraries and other
tools for the same job.

All rows of a table come from the same run, in turn, so that their ratios mean something on any machine.
Exit code 1 if a target is missed, or if something did not find the updates that there are."""

import argparse
import math
import os
import platform
import re
import subprocess
import sys
import textwrap
import time
from pathlib import Path

from device import cache, scene
from device.device import Device

from . import generate, hostile, jobs, measure, report, transfer
from .bed import Bed

ROUNDS = {1_000: 15, 10_000: 9, 60_000: 5, 240_000: 3}


def _bench_checks(options: argparse.Namespace) -> tuple[report.Results, list[str]]:
    """The figures, and the lines with the tables."""
    results: report.Results = {}
    lines: list[str] = []
    sizes = {report.LARGE, *(report.SIZES if options.peers else ()), *(report.GROWTH if options.growth else ())}
    with Bed() as bed:
        for names in sorted(sizes):
            print(f"measuring with {names:,} names", file=sys.stderr)
            repository = bed.offer(names)
            peers = options.peers and names in report.SIZES
            tasks = jobs.checks(jobs.TOOLS if peers else ["updater"], names)
            if names <= report.LARGE:
                tasks |= jobs.analyses(names) | jobs.limits(names, repository.open_size, repository.digest)
            if options.growth and names == report.GROWTH[0]:
                tasks |= jobs.header_checks(names)
            results[names] = bed.measure(ROUNDS[names], tasks)
            lines += [f"{names:,} names, {generate.package_count(names):,} packages, {repository.size / 1e6:.1f} MB gzip, "
                      f"{repository.open_size / 1e6:.0f} MB open; {generate.INSTALLED:,} installed, "
                      f"{len(set().union(*generate.updates(names)))} updates:",
                      "", report.measured(results[names])]
    return results, lines


def _bench_digest() -> list[str]:
    """A row of the targets."""
    program = cache.PROJECT / "build/release/sha1-bench"
    with Device(scene.program()) as device:
        file = str(device.write("/tmp/large", os.urandom(200_000_000)))
        own, other = measure.rows(5, [{"command": [str(program), file]}, {"command": ["/usr/bin/sha1sum", file]}])
    right = all(one["output"].split() == two["output"].split()[:1] for one, two in zip(own["runs"], other["runs"]))
    return report.judged("SHA-1 of 200 MB, of sha1sum's time", own["cpu"] / other["cpu"] if right else math.nan, 1.5)


def _bench_transfer() -> list[str]:
    own, other = transfer.measured(15)  # short ones, which vary more
    return report.judged(f"{transfer.COUNT} packages of {transfer.SIZE // 1000} KB over HTTP, of curl's time",
                         own / other, 1.3)


def _bench_hostile() -> tuple[list[str], list[list[str]]]:
    """The lines of a table, and rows of the targets."""
    rows = [["a megabyte of", "processor", "peak"]]
    most = [0.0, 0.0]
    with Device(scene.program()) as device:
        device.configure()
        for document in hostile.DOCUMENTS:
            _, *figures = hostile.cost(device, document, 1)
            most = list(map(max, most, figures))
            rows.append([document.__name__.replace("_", " "), f"{figures[0]:.1f} s", f"{figures[1]:.0f} MiB"])
    return (["Metadata that are made to cost as much as they can (`tools/bench/hostile.py`):", "", report.table(rows), ""],
            [report.judged("the worst of them, processor seconds", most[0], 10), report.judged("the same, MiB", most[1], 300)])


def _put_out(*command: str) -> str:
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()


def _circumstances() -> str:
    """When, what and on what is measured, and how busy that is before."""
    cpu = Path("/proc/cpuinfo").read_text(encoding="utf-8")
    model = re.search(r"^model name\s*: (.*?)\s*$", cpu, re.MULTILINE)
    versions = _put_out("dpkg-query", "--show", "--showformat=, ${Package} ${Version}",
                        "dnf", "zypper", "libxml2", "librpm9", "zlib1g")
    return textwrap.fill(
        f"Measured on {time.strftime('%Y-%m-%d')} at commit {_put_out('git', 'describe', '--always', '--dirty')}, on "
        f"{os.cpu_count()} cores of {model[1] if model else platform.machine()} (load before: {os.getloadavg()[0]:.1f}), "
        f"Linux {platform.release()}{versions}.", 110, break_on_hyphens=False)


def main() -> int:
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__, allow_abbrev=False)
    parser.add_argument("--peers", action="store_true", help="dnf and zypper beside it, at three sizes")
    parser.add_argument("--growth", action="store_true", help="up to 240,000 names; and --check-db-headers beside librpm")
    parser.add_argument("--plot", action="store_true", help="both, into docs/performance.md and docs/performance.svg")
    options = parser.parse_args()
    options.peers |= options.plot
    options.growth |= options.plot
    scene.tidy_up_on_signals()
    circumstances = _circumstances() if options.plot else ""
    results, lines = _bench_checks(options)
    judged = [*report.targets(results, complete=options.plot), _bench_digest(), _bench_transfer()]
    if options.growth:
        table, rows = _bench_hostile()
        lines += table
        judged += rows
    lines += ["Targets:", "", report.table([["", "figure", "target", ""], *judged])]
    print("\n".join(lines))
    failed = any(row.error for rows in results.values() for row in rows.values())
    if options.plot and not failed:
        report.write_document("\n".join([circumstances, "", *lines]))
        report.plot(results)
    return 1 if failed or any(row[-1] == "MISSED" for row in judged) else 0


if __name__ == "__main__":
    sys.exit(main())
