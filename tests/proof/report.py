"""What the proof has found so far, as tables: from the files that its parts leave in build/proof/."""

import collections
import json
import subprocess

from device.cache import PROJECT

from .calls import KINDS
from .points import BUILT, WORDS

ROWS = (*KINDS, "other", "allocations", "never reached")


def program() -> str:
    """The commit that the program was built of."""
    return subprocess.run(["git", "describe", "--always", "--dirty", "--abbrev=10"], cwd=PROJECT, check=True,
                          capture_output=True, text=True).stdout.strip()


def calls_table(series: str) -> list[str]:
    """Rows: kinds of calls; columns: the words on disk behind the disturbance. Over all shares at hand."""
    cells: dict[str, collections.Counter[str]] = collections.defaultdict(collections.Counter)
    seconds = 0
    for file in sorted(BUILT.glob(f"{series}-*.json")):
        found = json.loads(file.read_text())
        seconds += found["seconds"]
        for _, kind, word, held, number in found["rows"]:
            for row in (kind, "all"):
                cells[row].update({"points": number, "held" if held else "violated": number, "word " + word: number})
    words = [word for word in ("", *WORDS, "?") if cells["all"]["word " + word]]
    head = ["call", *(word or "no file" for word in words), "points", "held", "violated"]
    lines = ["| " + " | ".join(head) + " |", "|---|" + "--:|" * (len(head) - 1)]
    for name in (*ROWS, "all"):
        if name in cells:
            row = [cells[name][key] for key in (*("word " + word for word in words), "points", "held", "violated")]
            lines.append(f"| {name} | " + " | ".join(f"{number:,}" if number else "" for number in row) + " |")
    return [*lines, "", f"{seconds // 60} minutes"]
