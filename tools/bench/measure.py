"""Runs jobs in turn, several rounds, and prints as JSON what each took and put out. Stands alone, so
that it can run in the device: measure.py ROUNDS LOG <JOBS. Jobs are as rows() takes them, in JSON."""

import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path


def run_once(command: list[str]) -> tuple[float, float, int, int, str]:
    """Processor seconds (user and system), wall seconds, peak memory in KiB, exit status, and what it
    put out. What the command starts and waits for counts for the time, the largest of them for the
    memory. A small program stands between, as each process's peak begins with that of its parent."""
    with tempfile.NamedTemporaryFile() as output, tempfile.NamedTemporaryFile() as peak:
        null = os.open(os.devnull, os.O_RDONLY)
        start = time.monotonic()
        pid = os.posix_spawn(
            "/usr/bin/time", ["time", "--quiet", "--format=%M", f"--output={peak.name}", *command], os.environ,
            file_actions=[(os.POSIX_SPAWN_DUP2, null, 0), (os.POSIX_SPAWN_DUP2, output.fileno(), 1),
                          (os.POSIX_SPAWN_DUP2, output.fileno(), 2)])
        _, status, usage = os.wait4(pid, 0)
        wall = time.monotonic() - start
        os.close(null)
        return (usage.ru_utime + usage.ru_stime, wall, int(Path(peak.name).read_text().split()[-1]),
                os.waitstatus_to_exitcode(status), Path(output.name).read_text(errors="replace"))


def rows(rounds: int, jobs: list[dict], log: str = os.devnull) -> list[dict]:
    """The medians for each job: its "command", in front of which the shell script "before" runs
    unmeasured. One round in front isn't counted: it fills the kernel's caches. Exit statuses, outputs
    and what came into the file `log` meanwhile are those of all rounds."""
    results: list[list[tuple]] = []
    with open(log, encoding="utf-8") as requests:
        for _ in range(rounds + 1):
            results.append([])
            for job in jobs:
                subprocess.run(["/bin/sh", "-c", job.get("before", "")], check=True)
                requests.seek(0, os.SEEK_END)
                results[-1].append((*run_once(job["command"]), requests.read()))
    table = []
    for runs in zip(*results):
        cpu, wall, memory = (statistics.median(column) for column in list(zip(*runs[1:]))[:3])
        table.append({"cpu": cpu, "wall": wall, "memory": memory / 1024,
                      "runs": [dict(zip(("status", "output", "requests"), run[3:])) for run in runs]})
    return table


if __name__ == "__main__":
    print(json.dumps(rows(int(sys.argv[1]), json.load(sys.stdin), sys.argv[2])))
