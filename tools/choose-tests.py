"""choose-tests.py [NAME...]: finds the tests of these names in the sources; without a name all of them.

Prints "PROGRAM FILTER" for what lies in a unit test program and an argument for pytest, which begins with
"tests/", for what is a system test. Exit code 2 if there is no such test.
"""

import difflib
import re
import sys
from pathlib import Path

UNIT, SYSTEM = Path("tests/unit"), Path("tests/system")


def _filter(name: str) -> str:
    """The filter for a suite or for SUITE.TEST, instances with parameters included."""
    suite, _, test = name.partition(".")
    return f"{suite}.{test or '*'}:*/{suite}.{test or '*'}{'/*' if test else ''}"


def unit_tests() -> dict[str, tuple[str, str]]:
    """By each name that one can use: the program and the filter."""
    found: dict[str, tuple[str, str]] = {}
    for file in sorted(UNIT.glob("*/*_test.cpp")):
        program = f"{file.parent.name}_test"
        found[file.parent.name] = found[program] = (program, "*")
        names = re.findall(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", file.read_text(encoding="utf-8"), re.MULTILINE)
        for suite, test in names:
            found[suite] = (program, _filter(suite))
            found[f"{suite}.{test}"] = (program, _filter(f"{suite}.{test}"))
        whole = (program, ":".join(_filter(suite) for suite in sorted({suite for suite, _ in names})))
        for name in (file.stem, file.name, str(file)):
            found.setdefault(name, whole)
    return found


def system_tests() -> dict[str, list[str]]:
    """By each name that one can use: the arguments for pytest."""
    found: dict[str, list[str]] = {}
    for file in sorted(SYSTEM.glob("test_*.py")):
        for name in (file.stem, file.name, str(file)):
            found[name] = [str(file)]
        for test in re.findall(r"^def (test_\w+)", file.read_text(encoding="utf-8"), re.MULTILINE):
            found.setdefault(test, []).append(f"{file}::{test}")
    return found


def main() -> int:
    unit, system = unit_tests(), system_tests()
    if len(sys.argv) == 1:
        print(*sorted({f"{program} *" for program, _ in unit.values()}), SYSTEM, sep="\n")
        return 0
    filters: dict[str, list[str]] = {}
    for name in sys.argv[1:]:
        test, bracket, case = name.partition("[")  # a row of a table: test_x[row]
        if name in unit:
            program, filter_ = unit[name]
            filters.setdefault(program, []).append(filter_)
        if test in system:
            print(*(argument + bracket + case for argument in system[test]), sep="\n")
        elif name not in unit:
            near = difflib.get_close_matches(name, [*unit, *system], n=3)
            print(f"dev: no test is called '{name}'" + (f"; there is {', '.join(near)}" if near else ""), file=sys.stderr)
            return 2
    for program, parts in filters.items():
        print(program, ":".join(parts))
    return 0


if __name__ == "__main__":
    sys.exit(main())
