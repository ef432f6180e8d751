#!/usr/bin/env python3
"""states.py WORK KIND FILES JOB LOG SEED FIRST STEP END: what a power cut during a logged run of JOB
may have left on the disk. Looks at the states FIRST, FIRST + STEP, ... below END of the log. Each
depends on log, seed and number alone; where KEEP is set its disk stays there."""
import os
import random
import shutil
import struct
import subprocess
import sys
from pathlib import Path

from look import Looker

SECTOR = 512
PARTS = ('boot', 'kernel', 'root', 'usb')
FLUSH, FUA, DISCARD, MARK = 1, 2, 4, 8  # flags of an entry


class Log:
    """The entries of a log: a sector that says how many there are, and then for each a sector with
    its target, length in sectors and flags, and its data."""

    def __init__(self, path, disk, ordered):
        self.file, self.ordered, self.entries, self.flushed = open(path, 'rb'), ordered, [], [0]
        sizes = [(disk / part).stat().st_size // SECTOR for part in PARTS]
        count = struct.unpack('<QQQ', self.file.read(24))[2]
        at, flushed = SECTOR, 0
        for i in range(count):
            self.file.seek(at)
            sector, length, flags, size = struct.unpack('<QQQQ', self.file.read(32))
            part = 0
            while part < 3 and sector >= sizes[part]:
                sector, part = sector - sizes[part], part + 1
            at += SECTOR
            self.entries.append((part, sector * SECTOR, length * SECTOR, flags, at))
            at += 0 if flags & DISCARD else length * SECTOR
            # A flush is done ahead of the data that may come with it.
            flushed = i if flags & FLUSH else flushed
            self.flushed.append(flushed)
        # The last one says that the log has ended.
        self.marks = [i + 1 for i, entry in enumerate(self.entries) if entry[3] & MARK][:-1]

    def state(self, seed, number):
        """Where the run was cut, up to which entry all are on the medium, which of those behind it,
        and how many bytes of the last of these."""
        rng = random.Random(f'{seed} {number}')
        # What is short in the log, as the recording of a version, is looked at as often as a tree.
        flush = rng.choice(sorted(set(self.flushed)))
        cut = rng.choice((rng.choice(self.marks), rng.randrange(len(self.entries) + 1),
                          rng.choice([i for i, last in enumerate(self.flushed) if last == flush])))
        safe = cut if self.ordered else self.flushed[cut]
        share = rng.choice((0, 0.1, 0.5, 0.9, 1))
        kept = [i for i in range(safe, cut) if self.entries[i][3] & FUA or rng.random() < share]
        if self.ordered and cut and rng.random() < 0.5:
            safe, kept = cut - 1, [cut - 1]
        length = self.entries[kept[-1]][2] if kept else 0
        # A file system counts on its superblock being written as a whole, and a FUA write that is
        # not the last of all is done.
        if length > SECTOR and self.entries[kept[-1]][1] and rng.random() < 0.5 and (
                kept[-1] == cut - 1 or not self.entries[kept[-1]][3] & FUA):
            length = rng.randrange(SECTOR, length, SECTOR)
        return cut, safe, kept, length

    def write(self, disk, i, length):
        part, offset, _, flags, at = self.entries[i]
        if length and not flags & DISCARD:
            self.file.seek(at)
            disk[part].seek(offset)
            disk[part].write(self.file.read(length))
            disk[part].flush()


def open_disk(path):
    return [open(path / part, 'r+b') for part in PARTS]


def keys_of(log, cut, safe, kept, length):
    """What tells the states of one partition from each other."""
    keys = {}
    for part, name in enumerate(PARTS):
        mine = tuple(i for i in kept if log.entries[i][0] == part)
        before = sum(1 for entry in log.entries[:safe] if entry[0] == part and entry[2])
        keys[name] = (before, mine, length if mine and mine[-1] == kept[-1] else 0)
    return keys


def show(work, files, states):
    """Has a machine tell what its kernel finds on root partitions that no tool can read."""
    host = Path(f'{states[0]}.host')
    shutil.copytree(work / files, host)
    job = ','.join('/' + str(state.relative_to(work)) for state in states)
    with open(host / 'console', 'wb') as console:
        subprocess.run([Path(__file__).with_name('machine.sh'), host, job], stdout=console, timeout=300,
                       check=False)
    if 'KEEP' not in os.environ:
        shutil.rmtree(host)


def main():
    work, kind, files, job, path, seed = Path(sys.argv[1]), *sys.argv[2:7]
    first, step, end = map(int, sys.argv[7:])
    looker = Looker(work, kind, files)
    log = Log(path, work / files, 'barrier=0' in os.environ['OPTIONS'])
    base = Path(f'{path}.base{first}')
    subprocess.run(['cp', '-r', '--sparse=always', work / files, base], check=True)
    disk, done, batch = open_disk(base), 0, []
    chosen = sorted((log.state(seed, number)[1], number) for number in range(first, end, step))
    for safe, number in chosen:
        cut, safe, kept, length = log.state(seed, number)
        for i in range(done, safe):
            log.write(disk, i, log.entries[i][2])
        done = safe
        state = Path(f'{path}.{number}')
        subprocess.run(['cp', '-r', '--sparse=always', base, state], check=True)
        files_of_state = open_disk(state)
        for i in kept:
            log.write(files_of_state, i, length if i == kept[-1] else log.entries[i][2])
        for file in files_of_state:
            file.close()
        what = f'state {number} of seed {seed}, entry {cut} of {len(log.entries)}'
        reported = sum(1 for mark in log.marks if mark <= cut)
        batch.append((state, what, job, reported, keys_of(log, cut, safe, kept, length)))
        if files == 'ext4' or len(batch) == 25 or number == chosen[-1][1]:
            if files != 'ext4':
                show(work, files, [entry[0] for entry in batch])
            for entry in batch:
                looker.look(*entry)
                # Each five hundredth is left for the next run to start from.
                if int(entry[0].suffix[1:]) % 500 and 'KEEP' not in os.environ:
                    shutil.rmtree(entry[0])
            batch = []
    shutil.rmtree(base)


main()
