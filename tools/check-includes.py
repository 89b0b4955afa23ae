#!/usr/bin/env python3
"""check-includes.py SRC: names each #include in the tree SRC that crosses the layers the wrong way.

Each folder is a layer. It may include itself and what MAY says.
"""

import pathlib
import re
import sys

VALUES = {"packages", "support"}
MAY = {
    "support": set(),
    "packages": {"support"},
    "config": VALUES,
    "rpmdb": VALUES,
    "net": VALUES | {"config"},
    "resolver": VALUES | {"config", "rpmdb"},
    "repository": VALUES | {"config", "net"},
    "control": VALUES | {"config", "rpmdb", "net", "resolver", "repository"},
    "publisher": VALUES | {"config", "rpmdb", "net", "resolver", "repository", "control"},
}


def layer(path: str) -> str:
    """The layer of a path relative to SRC."""
    return path.split("/")[0]


def main() -> int:
    source = pathlib.Path(sys.argv[1])
    files = sorted(p for p in source.rglob("*") if p.suffix in (".h", ".cpp"))
    bad = 0
    for file in files:
        name = str(file.relative_to(source))
        own = layer(name)
        for number, line in enumerate(file.read_text().splitlines(), 1):
            match = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
            if match and layer(match[1]) not in MAY[own] | {own}:
                print(f"{name}:{number}: {own} must not include {match[1]}")
                bad += 1
    print(f"layering: {len(files)} files, {bad} forbidden includes")
    return 1 if bad or not files else 0


if __name__ == "__main__":
    sys.exit(main())
