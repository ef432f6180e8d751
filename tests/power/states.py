#!/usr/bin/env python3
"""states.py KIND JOB LOG SEED NUMBER...: what a power cut during a logged run of JOB may have left on the
disk. Looks at the states of these numbers. Where KEEP is set their disks stay there."""
import os
import random
import shutil
import struct
import subprocess
import sys
from collections import namedtuple
from pathlib import Path

from look import Looker

SECTOR = 512
PARTS = ('boot', 'kernel', 'root', 'usb')
FLUSH, FUA, DISCARD, MARK = 1, 2, 4, 8  # flags of an entry
Entry = namedtuple('Entry', 'part offset length flags at')  # its data stands there in the log


class Log:
    """The entries of a log: a sector that says how many there are, and then for each a sector with
    its target, length in sectors and flags, and its data."""

    def __init__(self, path, disk, ordered):
        self.file, self.ordered, self.entries, self.flushed = open(path, 'rb'), ordered, [], [0]
        sizes = [(disk / part).stat().st_size // SECTOR for part in PARTS]
        count = struct.unpack('<QQQ', self.file.read(24))[2]
        at = SECTOR
        for i in range(count):
            self.file.seek(at)
            sector, length, flags, _ = struct.unpack('<QQQQ', self.file.read(32))
            part = 0
            while part < 3 and sector >= sizes[part]:
                sector, part = sector - sizes[part], part + 1
            length = 0 if flags & DISCARD else length * SECTOR
            self.entries.append(Entry(part, sector * SECTOR, length, flags, at + SECTOR))
            at += SECTOR + length
            # A flush is done ahead of the data that may come with it.
            self.flushed.append(i if flags & FLUSH else self.flushed[-1])
        # The last one says that the log has ended.
        self.marks = [i + 1 for i, entry in enumerate(self.entries) if entry.flags & MARK][:-1]

    def state(self, seed, number):
        """Where the run was cut, up to which entry all are on the medium, and which of those behind it,
        with how many bytes of each."""
        rng = random.Random(f'{seed} {number}')
        flush = rng.choice(sorted(set(self.flushed)))
        cut = rng.choice((rng.choice(self.marks), rng.randrange(len(self.entries) + 1),
                          rng.choice([i for i, last in enumerate(self.flushed) if last == flush])))
        safe = cut if self.ordered else self.flushed[cut]
        share = rng.choice((0, 0.1, 0.5, 0.9, 1))
        kept = [i for i in range(safe, cut) if self.entries[i].flags & FUA or rng.random() < share]
        if self.ordered and cut and rng.random() < 0.5:
            safe, kept = cut - 1, [cut - 1]
        kept = {i: self.entries[i].length for i in kept}
        last = max(kept, default=0)
        # A superblock is written as a whole, and so is a FUA write that is not the last of all.
        if kept and kept[last] > SECTOR and self.entries[last].offset and rng.random() < 0.5 and (
                last == cut - 1 or not self.entries[last].flags & FUA):
            kept[last] = rng.randrange(SECTOR, kept[last], SECTOR)
        return cut, safe, kept

    def write(self, disk, i, length):
        entry = self.entries[i]
        self.file.seek(entry.at)
        with open(disk / PARTS[entry.part], 'r+b') as part:
            part.seek(entry.offset)
            part.write(self.file.read(length))


def copy(disk, to):
    subprocess.run(['cp', '-r', disk, to], check=True)


def show(files, states):
    """Has a machine tell what its kernel finds on root partitions that no tool can read."""
    host = f'{states[0]}.host'
    copy(files, host)
    with open(f'{host}/console', 'wb') as console:
        subprocess.run([Path(__file__).with_name('machine.sh'), host, ','.join(map(str, states))],
                       stdout=console, timeout=300, check=False)
    shutil.rmtree(host)


def main():
    files, (kind, job, path, seed) = os.environ['FILES'], sys.argv[1:5]
    looker = Looker(kind)
    log = Log(path, Path(files), 'barrier=0' in os.environ['OPTIONS'])
    base, written = Path(f'{path}.base{os.getpid()}'), 0
    copy(files, base)
    chosen = sorted(map(int, sys.argv[5:]), key=lambda number: log.state(seed, number)[1])
    size = 25 if files == 'f2fs' else 1
    while chosen:
        batch = [(number, Path(f'{path}.{number}'), *log.state(seed, number)) for number in chosen[:size]]
        for _, state, _, safe, kept in batch:
            for i in range(written, safe):
                log.write(base, i, log.entries[i].length)
            written = safe
            copy(base, state)
            for i, length in kept.items():
                log.write(state, i, length)
        if files == 'f2fs':
            show(files, [state for _, state, *_ in batch])
        for number, state, cut, *_ in batch:
            what = f'state {number} of seed {seed}, entry {cut} of {len(log.entries)}'
            looker.look(state, what, job, sum(mark <= cut for mark in log.marks))
            # Each five hundredth is left to be started again.
            if number % 500 and 'KEEP' not in os.environ:
                shutil.rmtree(state)
        del chosen[:size]
    shutil.rmtree(base)


main()
