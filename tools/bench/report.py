"""The bench's tables, its targets, and docs/performance.md with its figure."""

import math
import subprocess
from collections.abc import Callable
from pathlib import Path

from device.cache import PROJECT

from .bed import Row

Results = dict[int, dict[str, Row]]  # by number of names and job
SIZES = (1_000, 10_000, 60_000)
LARGE = SIZES[-1]
GROWTH = (*SIZES, 240_000)
LABELS = {"updater": "updater --check-only", "dnf": "dnf check-update", "zypper": "zypper refresh, list-updates",
          "three": "updater --test, three analyses", "xmllint": "xmllint --stream", "walk": "SAX2 walk by libxml2",
          "gunzip": "gunzip by zlib", "sha1sum": "sha1sum", "headers": "rpm database by librpm",
          "checked": "updater --check-only --check-db-headers", "checked-headers": "rpm database by librpm, headers checked"}
BEGIN, END = "<!-- measured -->\n", "<!-- end of measured -->\n"
DOCUMENT, FIGURE = PROJECT / "docs/performance.md", PROJECT / "docs/performance.svg"

#: Title, figure, limit (positive: at most, negative: at least). A figure that was not measured raises KeyError.
TARGETS: list[tuple[str, Callable[[Results], float], float]] = [
    ("first check, of xmllint's time", lambda of: _share(of, "updater first", "xmllint"), 0.8),
    ("dnf's first check, of updater's", lambda of: _share(of, "dnf first", "updater first"), -4.0),
    ("zypper's first check, of updater's", lambda of: _share(of, "zypper first", "updater first"), -3.3),
    ("repeated check, of xmllint's time", lambda of: _share(of, "updater repeated", "xmllint"), 0.2),
    *((f"{peer}'s repeated check, of updater's, {names:,} names",
       lambda of, peer=peer, names=names: _share(of, f"{peer} repeated", "updater repeated", names), -1.0)
      for peer in ("dnf", "zypper") for names in SIZES),
    ("peak of a first check, MiB", lambda of: of[LARGE]["updater first"].memory, 64),
    ("peak of a repeated check, MiB", lambda of: of[LARGE]["updater repeated"].memory, 64),
    ("three analyses, of one check", lambda of: _share(of, "three first", "updater first"), 1.15),
    *((f"growth of a {kind} check's {what}, exponent",
       lambda of, kind=kind, field=field: _growth(of, f"updater {kind}", field), 1.02)
      for kind in ("first", "repeated") for what, field in (("time", "wall"), ("peak", "memory"))),
    ("--check-db-headers, of what librpm adds (processor)", lambda of: _added(of, "checked repeated", "updater repeated") /
     _added(of, "checked-headers", "headers"), 1.2),
]


def _share(of: Results, one: str, other: str, names: int = LARGE) -> float:
    return of[names][one].wall / of[names][other].wall


def _growth(of: Results, job: str, field: str) -> float:
    """The exponent between the smallest and the largest repository."""
    low, high = (getattr(of[names][job], field) for names in (GROWTH[0], GROWTH[-1]))
    return math.log(high / low) / math.log(GROWTH[-1] / GROWTH[0])


def _added(of: Results, checked: str, plain: str) -> float:
    """Processor seconds: in wall time the difference of some 15 ms is lost in what else the machine does."""
    return of[GROWTH[0]][checked].cpu - of[GROWTH[0]][plain].cpu


def judged(title: str, figure: float, limit: float) -> list[str]:
    """A row of the targets. A figure that could not be had, NaN, misses all of them."""
    met = figure <= limit if limit > 0 else figure >= -limit
    return [title, f"{figure:.2f}", f"at {'most' if limit > 0 else 'least'} {abs(limit):g}", "met" if met else "MISSED"]


def targets(results: Results, complete: bool) -> list[list[str]]:
    """The rows of all targets for which there are figures; those for all must be there if `complete`."""
    rows = []
    for title, figure, limit in TARGETS:
        try:
            rows.append(judged(title, figure(results), limit))
        except KeyError:
            if complete:
                raise
    return rows


def table(rows: list[list[str]]) -> str:
    """Lays out rows, the first of which is the head, in the way of Markdown."""
    widths = [max(map(len, column)) for column in zip(*rows)]
    lines = [" | ".join([row[0].ljust(widths[0]), *(cell.rjust(width) for cell, width in zip(row[1:], widths[1:]))])
             for row in rows]
    rule = " | ".join(["-" * widths[0], *("-" * (width - 1) + ":" for width in widths[1:])])
    return "".join(f"| {line} |\n" for line in (lines[0], rule, *lines[1:]))


def _cells(row: Row | None, base: Row) -> list[str]:
    if row is None:
        return ["", ""]
    return ["ERROR", ""] if row.error else [f"{row.wall:.3f} s", f"{row.wall / base.wall:.2f}"]


def measured(rows: dict[str, Row]) -> str:
    """The table of one repository. Ratios are those to the check of the same column."""
    lines = [["", "first", "ratio", "repeated", "ratio", "peak, first", "repeated"]]
    for name, label in LABELS.items():
        first, repeated = rows.get(f"{name} first", rows.get(name)), rows.get(f"{name} repeated")
        if first or repeated:
            lines.append([label, *_cells(first, rows["updater first"]), *_cells(repeated, rows["updater repeated"]),
                          *("" if row is None or row.error else f"{row.memory:.0f} MiB" for row in (first, repeated))])
    return table(lines)


def write_document(text: str) -> None:
    """Replaces what stands between the marks in the document."""
    head, begin, rest = DOCUMENT.read_text(encoding="utf-8").partition(BEGIN)
    _, end, tail = rest.partition(END)
    if not begin or not end:
        raise SystemExit(f"{DOCUMENT} lacks the lines {BEGIN}{END}")
    DOCUMENT.write_text(f"{head}{BEGIN}\n{text}\n{END}{tail}", encoding="utf-8")


def plot(results: Results) -> None:
    """Draws time and peak over the number of names, both logarithmic, as far as they were measured."""
    lines = [(name, kind) for name in ("updater", "dnf", "zypper") for kind in ("first", "repeated")]
    script = [f"set terminal svg size 900,420 font 'sans-serif,12' background 'white'; set output '{FIGURE}'",
              "set logscale xy; set grid; set key left top reverse Left samplen 2; set format '%.10g'",
              "set xlabel 'names in the repository'; set xrange [800:300000]; set multiplot layout 1,2"]
    for name, kind in lines:
        script.append(f"${name}_{kind} << END")
        for names, rows in sorted(results.items()):
            if (row := rows.get(f"{name} {kind}")) and not row.error:
                script.append(f"{names} {row.wall} {row.memory}")
        script.append("END")
    for title, column in (("seconds", 2), ("peak in MiB", 3)):
        curves = (f"${name}_{kind} using 1:{column} with linespoints linewidth 2 linecolor {1 + number // 2} "
                  f"dashtype {1 + number % 2} pointtype 7 pointsize 0.5 title '{name}, {kind}'"
                  for number, (name, kind) in enumerate(lines))
        script.append(f"set ylabel '{title}'; plot {', '.join(curves)}")
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)
