"""Runs commands in turn, several rounds, and prints what each took as JSON. Stands alone, so that it
can run in the device: measure.py ROUNDS COMMAND... (each command one argument, without quoting)."""

import json
import os
import statistics
import sys
import time


def run_once(command: list[str]) -> tuple[float, float, int, int]:
    """Processor seconds (user and system), wall seconds, peak memory in KiB, exit status. What the
    command starts and waits for counts for the time, the largest of them for the memory. The memory
    is never told as less than this interpreter's, some 9 MiB."""
    null = os.open(os.devnull, os.O_RDWR)
    start = time.monotonic()
    pid = os.posix_spawn(command[0], command, os.environ, file_actions=[
        (os.POSIX_SPAWN_DUP2, null, descriptor) for descriptor in (0, 1, 2)])
    _, status, usage = os.wait4(pid, 0)
    wall = time.monotonic() - start
    os.close(null)
    return usage.ru_utime + usage.ru_stime, wall, usage.ru_maxrss, os.waitstatus_to_exitcode(status)


def rows(rounds: int, commands: list[list[str]]) -> list[dict[str, float]]:
    """The medians for each command. One round in front isn't counted: it fills the kernel's caches."""
    results = [[run_once(command) for command in commands] for _ in range(rounds + 1)][1:]
    table = []
    for command, runs in zip(commands, zip(*results)):
        if any(run[3] for run in runs):
            raise SystemExit(f"{' '.join(command)} failed: {runs}")
        cpu, wall, memory = (statistics.median(column) for column in list(zip(*runs))[:3])
        table.append({"cpu": cpu, "wall": wall, "memory": memory / 1024})
    return table


if __name__ == "__main__":
    print(json.dumps(rows(int(sys.argv[1]), [command.split(" ") for command in sys.argv[2:]])))
