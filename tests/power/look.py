#!/usr/bin/env python3
"""look.py WORK KIND FILES JOB DONE DISK WHAT: what is on the disk of a device that has lost its
power, and whether that may be. JOB is what it was to do, DONE how many steps it has reported."""
import hashlib
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path
from types import SimpleNamespace

UPDATES = {'V2', 'update'}  # by the tool and by the service; both bring V2 over V1
SETTINGS = 'usr/qrx310/etc/vsp'
# A file of zeros: its write-out had been begun, and its size was ahead of its data. On a busy machine
# that may be many, and nobody is told that they are done.
BEGUN = 'begun'

# What has to hold: how it is told if it does not, and the test over what was found.
INVARIANTS = (
    ('a file system is not whole', lambda s: not s.broken),
    ('the configuration is neither old nor new', lambda s: s.kept and s.floor in ('V1', 'V2')
     and (s.version == 'V1' or s.version == 'V2' and UPDATES & set(s.job))),
    ('more than one file is damaged', lambda s: len(s.damaged) < 2),
    ('the version is ahead of what it tells of', lambda s: s.version != 'V2' or not s.lacks['V2']),
    ('the floor is ahead of the version', lambda s: s.floor != 'V2' or s.version == 'V2'),
    ('the flag file is none', lambda s: s.flag in ('none', '', '1', '2')),
    ('a mix that no flag tells of', lambda s: 'update' in s.job or s.version == 'V2'
     or not s.lacks['V1'] or s.flag == '1'),
    ('nobody has updated it, but it is another', lambda s: UPDATES & set(s.job) or not s.lacks['V1']),
    ('the tool has reported success without it', lambda s: 'V2' not in s.done
     or s.flag == '2' and s.version == 'V2'),
    ('the service has reported success without it', lambda s: 'update' not in s.done
     or s.floor == 'V2' and s.version == 'V2'),
    ('a backup is neither whole nor short', lambda s: s.backup in ('none', 'whole', 'short')),
    ('a backup was reported and is not whole', lambda s: 'backup' not in s.done or s.backup == 'whole'),
    ('other settings without a restore', lambda s: 'restore' in s.job or s.settings == s.changed),
    ('a restore without its settings', lambda s: 'restore' not in s.done or s.settings == s.saved),
)


def run(*command, text=''):
    return subprocess.run([str(word) for word in command], input=text, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors='replace', check=False)


def read(path, missing=b''):
    return path.read_bytes() if path.exists() else missing


def sums(top):
    """Each file and link below a directory. ln(1) makes a link under a name of its own first."""
    found = set()
    for where, dirs, files in os.walk(top):
        for path in (os.path.join(where, name) for name in dirs + files):
            if os.path.islink(path):
                found.add((os.path.relpath(path, top), 'link to ' + os.readlink(path)))
            elif os.path.isfile(path):
                data = Path(path).read_bytes()
                text = BEGUN if data and not data.strip(b'\0') else hashlib.md5(data).hexdigest()
                found.add((os.path.relpath(path, top), text))
    return {(path, text) for path, text in found if not re.search(r'/Cu\w{6}$', path)}


def check(disk, part):
    """What is wrong with an ext4 file system behind the replay of its journal."""
    results = (run('e2fsck', '-p', disk / part), 1), (run('e2fsck', '-fn', disk / part), 0)
    return [result.stdout for result, most in results if result.returncode > most]


class Looker:
    """Knows what may be there, and the partitions that it has seen already."""

    def __init__(self, work, kind, files):
        self.work, self.kind, self.files, self.seen = Path(work), kind, files, {}
        self.trees = {name: sums(self.work / name) for name in ('V1', 'V2')}
        self.images = {name: [read(self.work / name / 'tree' / path) for path in
                              ('vorn-uboot/u-boot.bin', 'vorn-kernel/zImage')] for name in self.trees}
        self.changed, self.saved = sums(self.work / 'changed'), sums(self.work / 'saved')
        self.conf = read(self.work / 'conf').decode().splitlines()

    def root(self, disk):
        found = disk / 'found'  # filled by a machine if no tool can
        broken = [] if self.files == 'ext4' or found.is_dir() else ['it could not be mounted']
        if self.files == 'ext4':
            broken = check(disk, 'root')
            shutil.rmtree(found, ignore_errors=True)
            for path in ('etc', 'usr'):
                (found / path).mkdir(parents=True)
            run('debugfs', disk / 'root', text=f'rdump opt {found}\nrdump etc/sysconfig {found}/etc\n'
                                               f'rdump usr/local usr/qrx310 {found}/usr\n')
        flag, conf = (read(found / path, missing).decode(errors='replace') for path, missing in
                      (('usr/local/upgdflag', b'none'), ('etc/sysconfig/device.conf', b'')))
        result = broken, sums(found / 'opt/upgddir'), sums(found / SETTINGS), flag.strip(), conf.splitlines()
        shutil.rmtree(found, ignore_errors=True)
        return result

    def kernel(self, disk):
        broken = check(disk, 'kernel')
        run('debugfs', '-R', f'dump zImage {disk}/zImage', disk / 'kernel')
        return broken, read(disk / 'zImage')

    def boot(self, disk):
        with open(disk / 'boot', 'rb') as file:
            return file.read(len(self.images['V1'][0]))

    def usb(self, disk):
        copies, kinds = disk / 'copies', set()
        shutil.rmtree(copies, ignore_errors=True)
        copies.mkdir()
        run('mcopy', '-i', disk / 'usb', '::*.ubck', copies)
        for file in copies.iterdir():
            result = run('img_info', '--verify', file)
            cut = re.search(': is empty|: is too short|bytes, the file has', result.stdout)
            kinds.add('whole' if result.returncode == 0 else 'short' if cut else result.stdout)
        # One that was cut earlier may stand beside a whole one.
        return 'whole' if 'whole' in kinds else next(iter(sorted(kinds - {'short'}) + sorted(kinds)), 'none')

    def part(self, name, disk, key):
        """What a partition holds. The key tells the writes that it has had."""
        if key is None:
            return getattr(self, name)(disk)
        if (name, key) not in self.seen:
            self.seen[name, key] = getattr(self, name)(disk)
        return self.seen[name, key]

    def look(self, disk, what, job, done, keys=None):
        """Tells what may not be, and notes what was seen in the file of all looks."""
        disk, job, keys = Path(disk), job.split(','), keys or {}
        (broken, tree, settings, flag, conf), (kernel_broken, kernel), boot, usb = (
            self.part(name, disk, keys.get(name)) for name in ('root', 'kernel', 'boot', 'usb'))
        value = dict(line.split('=', 1) for line in conf if '=' in line)
        version = value.get('fw_version')
        right = set().union(*self.trees.values(), self.changed, self.saved)
        lacks = {name: sorted(path for path, _ in self.trees[name] - tree)[:3]
                 + [part for part, found, its in zip(('boot', 'kernel'), (boot, kernel), self.images[name])
                    if found != its] for name in self.trees}
        s = SimpleNamespace(
            job=job, done=job[:done], broken=broken + kernel_broken, version=version,
            floor=value.get('fw_floor'), flag=flag, backup=usb, lacks=lacks, settings=settings,
            damaged=sorted(file for file in (tree | settings) - right if file[1] != BEGUN),
            kept=[line for line in conf if not line.startswith('fw_')] == self.conf)
        with open(self.work / 'looks', 'a', encoding='ascii') as looks:
            false = version == 'V2' and bool(lacks['V2'])
            looks.write(f'{self.kind}\t{false:d}\t{len(s.damaged)}\n')
        wrong = [words for words, holds in INVARIANTS
                 if not holds(SimpleNamespace(**vars(s), changed=self.changed, saved=self.saved))]
        if wrong:
            s.settings, s.damaged = len(settings), s.damaged[:8]
            text = f'FAILED: {self.kind}: {what}: {", ".join(wrong)}: {vars(s)}'[:1500]
            with open(self.work / 'faults', 'a', encoding='utf-8') as faults:
                print(text, file=faults)
            print(text, flush=True)


if __name__ == '__main__':
    Looker(*sys.argv[1:4]).look(sys.argv[6], sys.argv[7], sys.argv[4], int(sys.argv[5]))
