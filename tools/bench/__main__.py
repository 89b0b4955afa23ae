"""Time and memory of a check against a large repository, beside what reading the same file costs.

All rows of a table come from the same run, in turn, so that their ratios mean something on any
machine. Exit code 1 if a target is missed."""

import json
import os
import shutil
import sys
from pathlib import Path

from device import cache, scene
from device.device import Device

from . import generate, measure, transfer

ROUNDS = 5
COUNTS = (1_000, 10_000, 60_000)
CACHE = "/var/cache/updater/base"
CHECK = "/device/bin/updater --check-only --cache-only"
MIB = 1 << 20


def _judged(value: float, limit: float, text: str) -> str:
    """A line's end: the target, and whether it is met."""
    return f"{text}  {'met' if value <= limit else 'MISSED'}"


def _measure_check(device: Device, count: int) -> tuple[list[dict[str, float]], str]:
    """The rows of the check, of xmllint and of sha1sum, and what the program reported."""
    source = Path(generate.__file__).read_text(encoding="utf-8")
    metadata = cache.entry(f"bench/{cache.name_for(source, count)}",
                           lambda draft: generate.write_metadata(draft, generate.packages(count), count))
    shutil.copytree(metadata, device.path(CACHE), dirs_exist_ok=True)
    result = device.run("--check-only", "--cache-only", timeout=600)
    report = next((line for line in result.reports if line.endswith("UPDATE(S) ---")), "")
    if result.returncode != 0 or not report or report == "--- 0 UPDATE(S) ---":
        sys.exit(f"the check of {count} packages failed:\n{result.stderr[-2000:]}")
    primary = f"{CACHE}/primary.xml.gz"
    commands = [CHECK, f"/usr/bin/xmllint --stream --noout {primary}", f"/usr/bin/sha1sum {primary}"]
    quoted = " ".join(f"'{command}'" for command in commands)
    done = device.shell(f"/usr/bin/python3 -I -S /device/measure.py {ROUNDS} {quoted}", timeout=600, PATH="/device/bin")
    if done.returncode != 0:
        sys.exit(done.stderr)
    return json.loads(done.stdout), report


def _bench_check() -> list[str]:
    lines = []
    each: list[tuple[int, dict[str, float], float]] = []  # count, the check's row, its ratio to xmllint
    with Device(scene.program()) as device:
        print(f"installing {generate.INSTALLED} packages (kept for the next time)", file=sys.stderr)
        device.install(*generate.installed())
        device.configure()
        device.write("/device/measure.py", Path(measure.__file__).read_bytes())
        for count in COUNTS:
            print(f"measuring with {count} packages", file=sys.stderr)
            table, report = _measure_check(device, count)
            each.append((count, table[0], table[0]["cpu"] / table[1]["cpu"]))
        size = device.path(f"{CACHE}/primary.xml.gz").stat().st_size / MIB
    base = table[1]["cpu"]
    ends = [_judged(table[0]["cpu"] / base, 1.5, "at most 1.50") + "; "
            + _judged(table[0]["memory"], 100, "at most 100 MiB"), "", ""]
    lines += [f"{COUNTS[-1]:,} packages, primary file of {size:.0f} MiB, {generate.INSTALLED:,} installed, {report}",
              "",
              f"{'':36}{'cpu':>9}{'wall':>9}{'ratio':>8}{'memory':>11}"]
    for name, row, end in zip((CHECK.removeprefix("/device/bin/"), "xmllint --stream --noout", "sha1sum"), table, ends):
        lines.append(f"{name:36}{row['cpu']:7.2f} s{row['wall']:7.2f} s{row['cpu'] / base:8.2f}"
                     f"{row['memory']:7.0f} MiB  {end}".rstrip())
    lines += ["", f"{'packages':>12}{'cpu':>9}{'a package':>12}{'ratio':>8}{'memory':>11}"]
    for count, row, ratio in each:
        lines.append(f"{count:12,}{row['cpu']:7.2f} s{row['cpu'] / count * 1e6:9.1f} us{ratio:8.2f}"
                     f"{row['memory']:7.0f} MiB")
    growth = each[-1][2] / each[-2][2]
    lines.append(_judged(growth, 1.1, f"the ratio grows by a factor of {growth:.2f} from {COUNTS[-2]:,} to "
                                      f"{COUNTS[-1]:,} packages, at most 1.10"))
    return lines


def _bench_digest() -> list[str]:
    program = cache.PROJECT / "build/release/sha1-bench"
    if not program.exists():
        return [f"no {program.name}: SHA-1 not measured"]
    with Device(scene.program()) as device:
        file = device.write("/tmp/large", os.urandom(200_000_000))
        own, other = measure.rows(ROUNDS, [[str(program), str(file)], ["/usr/bin/sha1sum", str(file)]])
    ratio = own["cpu"] / other["cpu"]
    return [f"SHA-1 of 200 MB: own {own['cpu']:.2f} s, sha1sum {other['cpu']:.2f} s, ratio {ratio:.2f}  "
            + _judged(ratio, 1.5, "at most 1.50")]


def _bench_transfer() -> list[str]:
    own, other = transfer.measured(3 * ROUNDS)  # short ones, which vary more
    return [f"{transfer.COUNT} packages of {transfer.SIZE // 1000} KB over HTTP: own {own:.2f} s, curl {other:.2f} s, "
            f"ratio {own / other:.2f}  " + _judged(own / other, 1.3, "at most 1.30")]


def main() -> int:
    scene.tidy_up_on_signals()
    lines = [*_bench_check(), "", *_bench_digest(), *_bench_transfer()]
    print("\n".join(lines))
    return 1 if any("MISSED" in line for line in lines) else 0


if __name__ == "__main__":
    sys.exit(main())
