"""What a disk was told to write, in order, and the states in which a power cut can leave it. The order is that in
which the writes were begun; those that a flush found unfinished count as written."""

import dataclasses
import os
import random
import struct
from collections.abc import Iterator
from pathlib import Path

MAGIC, SECTOR, BLOCK = 0x6A736677736872, 512, 4096
FLUSH = 1
Write = tuple[int, bytes]  # offset and data


@dataclasses.dataclass(frozen=True)
class Entry:
    """A write, which may be empty, with a flush in front of it or without."""

    flush: bool
    offset: int
    data: bytes


@dataclasses.dataclass(frozen=True)
class State:
    """What lies on the disk beyond all that was flushed."""

    name: str
    writes: list[Write]


def read(log: Path) -> list[Entry]:
    """A log of dm-log-writes, as qemu's filter blklogwrites makes it."""
    entries = []
    with open(log, "rb") as file:
        magic, _, count, sector = struct.unpack("<QQQI", file.read(28))
        if magic != MAGIC or sector != SECTOR:
            raise RuntimeError(f"{log} is no log of writes")
        file.seek(SECTOR)
        for _ in range(count):
            first, length, flags, _ = struct.unpack("<QQQQ", file.read(SECTOR)[:32])
            if flags & ~FLUSH:  # a discard, or a write that is durable by itself: qemu offers neither
                raise RuntimeError(f"the log holds an entry of kind {flags}")
            entries.append(Entry(flags == FLUSH, first * SECTOR, file.read(length * SECTOR)))
    return entries


def apply(disk: int, writes: list[Write]) -> None:
    for offset, data in writes:
        os.pwrite(disk, data, offset)


def copy(source: int, target: int) -> None:
    """Makes one file like another, holes included."""
    size = os.fstat(source).st_size
    os.ftruncate(target, 0)
    os.ftruncate(target, size)
    offset = 0
    while True:
        try:
            offset = os.lseek(source, offset, os.SEEK_DATA)
        except OSError:
            return
        end = os.lseek(source, offset, os.SEEK_HOLE)
        while offset < end:
            os.lseek(target, offset, os.SEEK_SET)
            offset += os.sendfile(target, source, offset, end - offset)


def put(flushed: int, state: State, disk: int) -> None:
    """Makes a disk what it is in this state, `flushed` being all that is durable."""
    copy(flushed, disk)
    apply(disk, state.writes)


def _blocks(writes: list[Write]) -> list[Write]:
    """What a disk writes at once: a long write can be cut."""
    return [(offset + at, data[at:at + BLOCK]) for offset, data in writes for at in range(0, len(data), BLOCK)]


def states(disk: int, entries: list[Entry], seed: int) -> Iterator[State]:
    """All states, while the disk, on which nothing is written at first, takes what is flushed. A cut behind each
    write, in which all before it came to the disk; and from each flush to the next, cuts with random subsets of
    the blocks written since: a flush makes durable what was written before it."""
    lots = random.Random(seed)
    pending: list[Write] = []
    flushes = 0

    def cuts() -> Iterator[State]:
        for count in range(1, len(pending) + 1):
            yield State(f"flush {flushes}, {count} of {len(pending)} writes", pending[:count])
        ends = [len(_blocks(pending[:count])) for count in range(len(pending) + 1)]
        blocks = _blocks(pending)
        known = {tuple(range(end)) for end in ends}
        for number in range(1, max(3, len(pending) // 4) + 1 if pending else 0):
            end, share = lots.choice(ends[1:]), lots.choice((0.1, 0.5, 0.9))
            kept = tuple(place for place in range(end) if lots.random() < share)
            if kept not in known:
                known.add(kept)
                yield State(f"flush {flushes}, subset {number} with {len(kept)} of {len(blocks)} blocks", [blocks[place] for place in kept])

    yield State("begin", [])
    for entry in entries:
        if entry.flush:
            yield from cuts()
            apply(disk, pending)
            pending.clear()
            flushes += 1
        if entry.data:
            pending.append((entry.offset, entry.data))
    yield from cuts()
