"""The operator's guide: its tables beside the sources, and its ways out, run as they stand there."""

import re
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
GUIDE = (PROJECT / "docs/operating.md").read_text(encoding="utf-8")
TEXT = r'"(?:[^"\\]|\\.)*"'
LEVELS = ["INFO", "WARNING", "ERROR", "FATAL"]


def shown(text: str) -> str:
    """A format as the guide shows it: "…" for what differs, and no line breaks."""
    for old, new in (("\\n", " "), ("\\t", " "), ('\\"', '"')):
        text = text.replace(old, new)
    return " ".join(re.sub(r"%[a-z]+", "…", text).split())


def first_argument(text: str) -> str:
    """Up to the comma or bracket that ends it."""
    depth = 0
    for token in re.finditer(rf"{TEXT}|[(),]", text):
        if depth == 0 and token[0] in ",)":
            return text[:token.start()]
        depth += {"(": 1, ")": -1}.get(token[0], 0)
    raise ValueError(text[:80])


def lines_of_sources() -> set[str]:
    """All that the log can show at level info, but for the report lines."""
    lines = set()
    for file in (PROJECT / "src").rglob("*.cpp"):
        source = file.read_text(encoding="utf-8")
        for call in re.finditer(r"\blogMessage\(\s*(\w+)(\[.*?\])?,", source):
            formats = re.findall(rf"(?:{TEXT}\s*)+", first_argument(source[call.end():]))
            assert formats, f"{file} logs something else than a text of its own"
            levels = LEVELS if call[2] else [call[1]]  # rpm's own messages come at each of them
            lines |= {f"{level}: {shown(''.join(text[1:-1] for text in re.findall(TEXT, format)))}"
                      for level in levels for format in formats}
    return {line for line in lines if not re.match(r"TRACE|DEBUG|INFO: ---", line)}


def test_the_guide_has_every_line_of_the_log_and_no_other():
    rows = [row for row in GUIDE.splitlines() if row.startswith("|")]
    told = {" ".join(line.split()) for row in rows for line in re.findall(rf"`((?:{'|'.join(LEVELS)}): [^`]*)`", row)}
    lines = lines_of_sources()
    assert len(lines) > 200
    assert lines - told == set(), "not in the guide"
    assert told - lines == set(), "no longer written"

