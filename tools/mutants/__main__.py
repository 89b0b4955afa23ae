"""Plants small faults into a copy of the project, one at a time, and looks which test sees each: ./dev mutants.

The faults stand in table.txt. A section "== FILE" holds those of one file, each of this form:

    name (TEST...): what a tired person did
    -the text as it is, once in the file, without its indentation and whatever follows on its line
    +the text as it was then; no such line if something was forgotten

TEST is what "./dev test" knows, and runs first. If none of them fails, the unit tests of the fault's
layer and those above it are run, then all system tests that are not long; with --named none of these. A
row that does not apply, or does not build, is a fault of the table. What was found stays in
build/mutants/results.json.
"""

import argparse
import dataclasses
import fcntl
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
WORK = PROJECT / "build/mutants"
TREE = WORK / "tree"
LAYERS = ("support", "packages", "config", "rpmdb", "net", "resolver", "repository", "control")
GOAL = 95  # per cent


@dataclasses.dataclass
class Mutant:
    file: str
    name: str
    tests: list[str]
    fault: str
    old: list[str] = dataclasses.field(default_factory=list)
    new: list[str] = dataclasses.field(default_factory=list)

    def text(self) -> str:
        """What the file becomes."""
        old, text = "\n".join(self.old), (PROJECT / self.file).read_text(encoding="utf-8")
        if not old or text.count(old) != 1 or self.old == self.new:
            sys.exit(f"mutants: '{self.name}' does not apply: its text stands {text.count(old)} times in {self.file}")
        return text.replace(old, "\n".join(self.new))


def read_table(path: Path) -> list[Mutant]:
    found: dict[str, Mutant] = {}
    file, name = "", ""
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        head = re.fullmatch(r"([\w-]+) \(([^)]+)\): (.+)", line)
        if line.startswith("== "):
            file, name = line[3:], ""
        elif head and file and head[1] not in found:
            name = head[1]
            found[name] = Mutant(file, name, head[2].split(), head[3])
        elif line[:1] in ("-", "+") and name:
            (found[name].old if line[0] == "-" else found[name].new).append(line[1:])
        elif line:
            sys.exit(f"mutants: {path.name}:{number}: neither a fault nor a part of one, or a name twice")
    return list(found.values())


def resolve(names: list[str]) -> list[str]:
    """Of names of tests: "PROGRAM FILTER" for those of a program; all arguments for pytest, one a line."""
    command = [sys.executable, "tools/choose-tests.py", *names]
    done = subprocess.run(command, cwd=PROJECT, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"mutants: {done.stderr.strip()}")
    return grouped(done.stdout.splitlines())


def grouped(tests: list[str]) -> list[str]:
    system = sorted({test for test in tests if test.startswith("tests/")})
    return [*(test for test in tests if not test.startswith("tests/")), *(["\n".join(system)] if system else [])]


def refresh(mutant: Mutant | None) -> None:
    """Makes the tree a copy of the project, with this fault. A file that stays as it is keeps its time."""
    listed = subprocess.run(["git", "ls-files", "-coz", "--exclude-standard"], cwd=PROJECT, capture_output=True, text=True, check=True)
    files = {name for name in listed.stdout.split("\0") if name and (PROJECT / name).is_file()}
    for path in TREE.rglob("*"):
        name = str(path.relative_to(TREE))
        if path.is_file() and name not in files and not name.startswith("build/"):
            path.unlink()
    for name in files:
        data = (PROJECT / name).read_bytes() if mutant is None or name != mutant.file else mutant.text().encode()
        path = TREE / name
        if not path.exists() or path.read_bytes() != data:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)
            shutil.copymode(PROJECT / name, path)


def run(command: list[str], seconds: float = 600) -> tuple[int, str]:
    """Exit code, -1 if the time was over, and output. All goes to the log, too."""
    with open(WORK / "log", "a+", encoding="utf-8", errors="replace") as log:
        print("\n$", shlex.join(command), file=log, flush=True)
        begin = log.tell()
        environment = {**os.environ, "LC_ALL": "C", "COLUMNS": "1000"}
        with subprocess.Popen(command, cwd=TREE, stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=environment,
                              start_new_session=True) as process:
            try:
                code = process.wait(seconds)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                code = -1
        log.seek(begin)
        return code, log.read()


def build(*targets: str) -> bool:
    if not (TREE / "build/dev/build.ninja").exists() and run(["cmake", "--preset", "dev"])[0] != 0:
        return False
    return run(["cmake", "--build", "--preset", "dev", "--", "-j2", *targets])[0] == 0


def failure(test: str) -> str:
    """The first of such tests that fails, "build" if they cannot be built; empty if all pass."""
    if test.startswith("tests/"):
        # The one test that a change of the text alone makes fail is left out.
        options = ["-q", "-x", "-rfE", "--tb=short", "-p", "no:cacheprovider",
                   "--deselect=tests/system/test_documents.py::test_every_small_fault_applies"]
        target, pattern, prefix = "updater updater-repocheck", r"^(?:FAILED|ERROR) (tests/.*?)(?: - .*)?$", ""
        command, seconds = ["/usr/bin/python3", "-m", "pytest", *options, *test.split("\n")], 3000
    else:
        target, filter_ = test.split(" ")
        pattern, prefix = r"^\[ +(?:RUN|FAILED) +\] (\S+)$(?!\n\[ +(?:OK|SKIPPED))", f"{target} "
        command, seconds = [f"build/dev/tests/{target}", "--gtest_fail_fast", f"--gtest_filter={filter_}"], 400
    if not build(*target.split()):
        return "build"
    code, output = run(command, seconds)
    named = re.findall(pattern, output, re.MULTILINE)
    return "" if code == 0 else prefix + named[-1] if named else test


def judge(mutant: Mutant, named_only: bool) -> str:
    """The test that sees the fault, "build" if it does not build, empty if it survives."""
    refresh(mutant)
    source, layer = mutant.file.split("/")[:2]
    above = LAYERS[LAYERS.index(layer):] if source == "src" and layer in LAYERS else ()  # publisher has none
    tests = resolve(mutant.tests)
    if not named_only:
        tests += [*(f"{layer}_test *" for layer in above), "tests/system"]
    return next(filter(None, map(failure, tests)), "")


def chosen(table: list[Mutant], options: argparse.Namespace, results: dict[str, dict]) -> list[Mutant]:
    first, every = map(int, options.share.split("/"))
    found = [mutant for mutant in table if not options.names or mutant.name in options.names or
             any(mutant.file.startswith(name) for name in options.names)][first - 1::every]
    return [mutant for mutant in found if not options.rest or results.get(mutant.name, {}).get("by", "") in ("", "build")]


def summary(results: dict[str, dict], number: int) -> tuple[float, str]:
    """The share that was seen, and all figures."""
    seen = [row["by"] for row in results.values()]
    system = sum(by.startswith("tests/") for by in seen)
    bad = {word: seen.count(word) for word in ("", "build")}
    caught = len(seen) - sum(bad.values())
    rate = 100 * caught / max(len(seen), 1)
    minutes = sum(row["seconds"] for row in results.values()) / 60
    return rate, (f"{len(seen)} of {number} faults, {caught} seen ({rate:.1f} %): {caught - system} by unit tests, {system} by "
                  f"system tests; {bad['']} survived, {bad['build']} did not build; {minutes:.0f} minutes")


def main() -> int:
    parser = argparse.ArgumentParser(prog="./dev mutants", description="Does a test see each of the small faults in tools/mutants/table.txt?")
    parser.add_argument("names", nargs="*", help="of faults, or what their files begin with: src/net; all without any")
    parser.add_argument("--share", default="1/1", metavar="I/N", help="only every Nth fault, from the Ith on")
    parser.add_argument("--rest", action="store_true", help="only those that no run before has seen")
    parser.add_argument("--named", action="store_true", help="run no more than the tests that the table names")
    parser.add_argument("--apply-only", action="store_true", help="only tell whether all of the table applies")
    parser.add_argument("--table", type=Path, default=Path(__file__).with_name("table.txt"), help=argparse.SUPPRESS)
    options = parser.parse_args()
    table = read_table(options.table)
    for mutant in table:
        mutant.text()
    resolve(sorted({name for mutant in table for name in mutant.tests}))
    if options.apply_only:
        return 0
    os.nice(5)
    TREE.mkdir(parents=True, exist_ok=True)
    lock = open(WORK / "lock", "w", encoding="ascii")  # noqa: SIM115  held to the end
    fcntl.flock(lock, fcntl.LOCK_EX)
    (WORK / "log").write_text("")
    file = WORK / "results.json"
    before = json.loads(file.read_text()) if file.exists() else {}
    results = {mutant.name: before[mutant.name] for mutant in table  # of the same fault
               if before.get(mutant.name, {}).get("change") == [mutant.old, mutant.new]}
    now = chosen(table, options, results)
    for mutant in now:
        start = time.monotonic()
        by = judge(mutant, options.named)
        seconds = round(time.monotonic() - start, 1)
        results[mutant.name] = {"file": mutant.file, "fault": mutant.fault, "change": [mutant.old, mutant.new], "by": by, "seconds": seconds}
        file.write_text(json.dumps(results, indent=1) + "\n")
        print(f"{mutant.name:32} {seconds:6.1f} s  { {'': 'SURVIVED', 'build': 'DOES NOT BUILD'}.get(by, by)}", flush=True)
    refresh(None)  # a test that fails without any fault has seen nothing
    for test in grouped(sorted({results[mutant.name]["by"] for mutant in now} - {"", "build"})):
        if by := failure(test):
            sys.exit(f"mutants: without any fault there is a failure, too: {by} (see {WORK}/log)")
    print(summary({mutant.name: results[mutant.name] for mutant in now}, len(now))[1])
    rate, figures = summary(results, len(table))
    print(f"all so far: {figures}")
    return 0 if rate >= GOAL and not any(row["by"] == "build" for row in results.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
