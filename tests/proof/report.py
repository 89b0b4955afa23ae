"""Writes docs/proof.md: from what the parts of ./dev proof leave below build/, and from the tables of attacks and
of fuzzing so far that people keep."""

import collections
import datetime
import json
import os
import re
import subprocess
from pathlib import Path
from string import Template

from device.cache import PROJECT

from .calls import KINDS
from .points import BUILT, WORDS

PAGE = PROJECT / "docs" / "proof.md"
ROWS = (*KINDS, "other", "allocations", "never reached")
NOT_RUN = ["Not run in this checkout."]
SHOWN = 20  # of what was violated


def program() -> str:
    """The commit that the program was built of."""
    return subprocess.run(["git", "describe", "--always", "--dirty", "--abbrev=10"], cwd=PROJECT, check=True,
                          capture_output=True, text=True).stdout.strip()


def table(head: list[str], rows: list[list[object]], texts: int = 1) -> list[str]:
    """In Markdown, with so many columns of texts in front of those of figures."""
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * texts + "--:|" * (len(head) - texts)]
    return lines + ["| " + " | ".join(f"{cell:,}" if isinstance(cell, int) else str(cell) for cell in row) + " |" for row in rows]


def shares(series: str) -> list[dict]:
    """The results of a series: of those which divide it in the same way, and cover the most of it."""
    by_number = collections.defaultdict(list)
    for file in sorted(BUILT.glob(f"{series}-*-of-*.json")):
        by_number[int(file.stem.rpartition("-")[2])].append(json.loads(file.read_text()))
    return max(by_number.items(), key=lambda item: len(item[1]) / item[0], default=(0, []))[1]


def calls_table(found: list[dict]) -> list[str]:
    """Rows: kinds of calls; columns: the words on disk behind the disturbance."""
    cells: dict[str, collections.Counter[str]] = collections.defaultdict(collections.Counter)
    for _, kind, word, held, number in (row for share in found for row in share["rows"]):
        for name in (kind, "all"):
            cells[name].update({"points": number, "held" if held else "violated": number, "word " + word: number})
    words = [word for word in ("", *WORDS, "?") if cells["all"]["word " + word]]
    columns = [*("word " + word for word in words), "points", "held", "violated"]
    return table(["call", *(word or "no file" for word in words), "points", "held", "violated"],
                 [[name, *(cells[name][column] or "" for column in columns[:-1]), cells[name]["violated"]]
                  for name in (*ROWS, "all") if name in cells])


def calls(series: str) -> list[str]:
    """All that is told of a series."""
    found = shares(series)
    if not found:
        return NOT_RUN
    every = int(found[0]["share"].partition("/")[2])
    extent = "All points" if len(found) == every else f"{len(found)} of {every} shares of the points"
    minutes = sum(share["seconds"] for share in found) / 60
    violated = [line for share in found for line in share["violated"]]
    return [f"{extent}, commit {', '.join(sorted({share['program'] for share in found}))}, {minutes:.0f} minutes.", "",
            *calls_table(found), *(["", "Violated:", ""] if violated else []), *(f"- {line.partition(chr(10))[0]}" for line in violated[:SHOWN])]


def disk(results: list[dict]) -> list[str]:
    """Rows: file systems, and faults built into the program."""
    words = [word for word in ("", *WORDS, "?") if any(word in result["words"] for result in results)]
    figures = ["points", "held", "violated", "starts", "starts failed", "seconds"]
    head = ["file system", "fault", "share", "writes", "flushes", *(word or "no file" for word in words), *figures]
    return table(head, [[*(result[name] for name in head[:5]), *(result["words"].get(word, "") for word in words),
                         *(result[name] for name in figures)] for result in results], texts=3)


def fuzz() -> list[str]:
    """Runs of each target: those of old in tests/fuzz/figures.txt, and those of this checkout."""
    rows: list[list[object]] = []
    for line in (PROJECT / "tests/fuzz/figures.txt").read_text(encoding="ascii").splitlines():
        if row := re.fullmatch(r"(\w+) +([\d,]+) .*", line):
            file = PROJECT / "build/fuzz/figures" / row[1]
            known = json.loads(file.read_text(encoding="ascii")) if file.exists() else collections.Counter()
            before = int(row[2].replace(",", ""))
            rows.append([row[1], before + known["runs"], known["runs"], known["runs"] // (known["seconds"] or 1), known["branches"]])
    return table(["reader", "runs ever", "in this checkout", "a second", "branches"], rows)


def attacks() -> list[str]:
    """The names of the scenes in SECURITY.md."""
    text = (PROJECT / "SECURITY.md").read_text(encoding="utf-8").partition("## Attacks by name")[2]
    rows = re.findall(r"^\| (?:\*\*)?(.+?)(?:\*\*.*?)? \| .* \| (.*?) \|$", text.partition("\n## ")[0], re.MULTILINE)[1:]
    names = [name.rstrip(":,") for name, _ in rows]
    tests = {test for _, shown in rows for test in re.findall(r"`([\w.]+)`", shown)}
    return [f"{len(names)} scenes in {len(tests)} tests, which `./dev check` runs; SECURITY.md tells what happens in each:", "",
            "; ".join(names) + "."]


def mutants() -> list[str]:
    file = PROJECT / "build/mutants/results.json"
    if not file.exists():
        return NOT_RUN
    results = json.loads(file.read_text())
    survived = [f"- `{name}` ({row['file']}): {row['fault']}" for name, row in results.items() if row["by"] in ("", "build")]
    by_folder = collections.Counter((Path(row["file"]).parent.name, row["by"] not in ("", "build")) for row in results.values())
    rows = [[folder, by_folder[folder, True] + by_folder[folder, False], by_folder[folder, True]]
            for folder in sorted({name for name, _ in by_folder})]
    rate = 100 * (len(results) - len(survived)) / len(results)
    return [f"{len(results)} faults, {rate:.1f} % seen.", "", *table(["folder", "faults", "seen"], rows),
            *(["", "Not seen:", "", *survived] if survived else [])]


def write() -> None:
    """Puts what is at hand into the page."""
    file = BUILT / "disk.json"
    page = Template(Path(__file__).with_name("page.md").read_text(encoding="utf-8"))
    parts = {series: calls(series) for series in ("killed", "signalled", "failed", "starved")} | {
        "disk": disk(json.loads(file.read_text())) if file.exists() else NOT_RUN,
        "fuzz": fuzz(), "attacks": attacks(), "mutants": mutants()}
    date = datetime.date.today().isoformat()
    PAGE.write_text(page.substitute({name: "\n".join(lines) for name, lines in parts.items()}, date=date,
                                    processors=os.cpu_count()), encoding="utf-8")
    print(f"what was found stands in {PAGE.relative_to(PROJECT)}")
