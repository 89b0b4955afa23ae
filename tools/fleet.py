"""fleet.py: what a fleet of devices asks of a server, as the tables of docs/publishing.md.

Each figure of the busiest second is calculated from the distribution of the wait, and then found once more by
letting the devices draw their waits. Exit code 1 if the two do not agree.
"""

import math
import random
import sys
from collections import Counter
from collections.abc import Callable

FLEETS = (10_000, 100_000, 1_000_000)
#: Bytes to the server and from it, in clear as test_publishing.py measures them: index of 1,189 bytes, primary file of 797.
CHECKS = {"http": {"unchanged": (221, 1429), "changed": (377, 2465)},
          "https": {"unchanged": (864, 2794), "changed": (1042, 3850)}}
#: An update that is worth a look ahead: the primary file of 1,000 names, and packages.
UPDATE = 400_000 + 20_000_000
RAND_MAX = 2**31 - 1


def wait_of_the_program(chance: random.Random) -> int:
    """Whole seconds, as --max-wait-time=600 draws them."""
    return 600 * chance.getrandbits(31) // RAND_MAX


def delay_of_the_timer(chance: random.Random) -> int:
    """The second in which a RandomizedDelaySec=2h ends; --max-wait-time=7200 of the cron line is the same in seconds."""
    return int(7200 * chance.random())


WAITS: tuple[tuple[str, int, Callable[[random.Random], int]], ...] = (
    ("default: 10 minutes", 600, wait_of_the_program), ("timer, cron: 2 hours", 7200, delay_of_the_timer))


def calculated(devices: int, seconds: int) -> float:
    """The mean of the busiest second: the devices of each are nearly Poisson distributed, and independent."""
    mean = devices / seconds
    below, total, count = 0.0, 0.0, 0
    while True:
        below += math.exp(count * math.log(mean) - mean - math.lgamma(count + 1))
        if (rest := 1 - min(below, 1.0) ** seconds) < 1e-9 and count > mean:
            return total
        total += rest
        count += 1


def simulated(devices: int, draw: Callable[[random.Random], int], rounds: int) -> float:
    chance = random.Random(1)
    return sum(max(Counter(draw(chance) for _ in range(devices)).values()) for _ in range(rounds)) / rounds


def main() -> int:
    print("| a check | requests | connections | http: sent, received | https: sent, received |\n|---|--:|--:|--:|--:|")
    for number, kind in enumerate(("unchanged", "changed"), start=1):
        sums = " | ".join(f"{CHECKS[scheme][kind][0]:,}, {CHECKS[scheme][kind][1]:,} bytes" for scheme in CHECKS)
        print(f"| {kind} | {number} | 1 | {sums} |")
    print("\n| spread by | devices | checks a second | busiest second, calculated | simulated "
          "| unchanged, http | https | an update of 20.4 MB |\n|---|--:|--:|--:|--:|--:|--:|--:|")
    agree = True
    for name, seconds, draw in WAITS:
        for devices in FLEETS:
            mean, peak = devices / seconds, calculated(devices, seconds)
            found = simulated(devices, draw, max(6, 400_000 // devices))
            agree = agree and abs(found - peak) < 0.04 * peak
            rates = [mean * CHECKS[scheme]["unchanged"][1] * 8 / 1e6 for scheme in CHECKS]
            print(f"| {name} | {devices:,} | {mean:,.1f} | {peak:,.1f} | {found:,.1f} | "
                  + " | ".join(f"{rate:.2f} Mbit/s" for rate in rates) + f" | {mean * UPDATE * 8 / 1e9:,.1f} Gbit/s |")
    if not agree:
        print("fleet.py: what is calculated does not agree with the simulation", file=sys.stderr)
    return 0 if agree else 1


if __name__ == "__main__":
    sys.exit(main())
