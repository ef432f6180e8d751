#!/usr/bin/env python3
"""look.py KIND DISK WHAT JOB DONE: what is on the disk of a device that has lost its power, and
whether that may be. JOB is what it was to do, which brings V2 over V1 unless it is a restore
alone, DONE how many steps it has reported."""
import hashlib
import re
import shutil
import subprocess
import sys
from pathlib import Path
from types import SimpleNamespace

IMAGES = {'boot': 'tree/vorn-uboot/u-boot.bin', 'kernel': 'tree/vorn-kernel/zImage'}
# A file of zeros, whose size was ahead of its data. On a busy machine that may be many.
BEGUN = 'begun'

# What has to hold: how it is told if it does not, and the test over what was found.
INVARIANTS = (
    ('a file system is not whole', lambda s: not s.broken),
    ('the configuration is neither old nor new', lambda s: s.kept and s.floor in ('V1', 'V2')
     and (s.version == 'V1' or s.version == 'V2' and s.job != ['restore'])),
    ('more than one file is damaged', lambda s: len(s.damaged) < 2),
    ('the version is ahead of what it tells of', lambda s: s.version != 'V2' or not s.lacks['V2']),
    ('the floor is ahead of the version', lambda s: s.floor != 'V2' or s.version == 'V2'),
    ('the flag file is none', lambda s: s.flag in ('', '1', '2')),
    ('a mix that no flag tells of', lambda s: 'update' in s.job or s.version == 'V2'
     or not s.lacks['V1'] or s.flag == '1'),
    ('the tool has reported success without it', lambda s: 'V2' not in s.done
     or s.flag == '2' and s.version == 'V2'),
    ('the service has reported success without it', lambda s: 'update' not in s.done or s.floor == 'V2'),
    ('a backup is neither whole nor short', lambda s: s.backup in ('none', 'whole', 'short')),
    ('a backup was reported and is not whole', lambda s: 'backup' not in s.done or s.backup == 'whole'),
    ('other settings without a restore', lambda s: 'restore' in s.job or s.settings == 'changed'),
    ('a restore without its settings', lambda s: 'restore' not in s.done or s.settings == 'saved'),
)


def run(*command, text=''):
    return subprocess.run(command, input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors='replace', check=False)


def read(path):
    return path.read_bytes() if path.exists() else b''


def digest(data):
    return BEGUN if data and not data.strip(b'\0') else hashlib.md5(data).hexdigest()


def sums(top):
    """Each file and link below a directory. ln(1) makes a link under a name of its own first."""
    return {(str(path.relative_to(top)),
             f'link to {path.readlink()}' if path.is_symlink() else digest(path.read_bytes()))
            for path in top.rglob('*')
            if (path.is_symlink() or path.is_file()) and not re.fullmatch(r'Cu\w{6}', path.name)}


def check(disk, part):
    """What is wrong with an ext4 file system behind the replay of its journal."""
    results = (run('e2fsck', '-p', disk / part), 1), (run('e2fsck', '-fn', disk / part), 0)
    return [result.stdout for result, most in results if result.returncode > most]


def kind_of_backup(found):
    """One that was cut earlier may stand beside a whole one."""
    kinds = []
    for file in found.glob('*.ubck'):
        result = run('img_info', '--verify', file)
        cut = re.search(': is empty|: is too short|bytes, the file has', result.stdout)
        kinds.append('whole' if result.returncode == 0 else 'short' if cut else result.stdout)
    return min(kinds, key=lambda kind: (kind != 'whole', kind == 'short'), default='none')


class Looker:
    """Knows what may be there."""

    def __init__(self, kind):
        self.kind = kind
        self.settings = {name: sums(Path(name)) for name in ('changed', 'saved')}
        self.trees = {name: sums(Path(name)) | {(part, digest(read(Path(name, path))))
                                                for part, path in IMAGES.items()} for name in ('V1', 'V2')}
        self.conf = Path('conf').read_text(encoding='ascii').splitlines()

    def look(self, disk, what, job, done):
        """Tells what may not be, and notes what was seen in the file of all looks."""
        found, broken = disk / 'found', check(disk, 'kernel')
        if not found.is_dir():  # a machine fills it if no tool can
            broken += check(disk, 'root')
            (found / 'etc').mkdir(parents=True)
            run('debugfs', disk / 'root', text=f'rdump opt usr {found}\nrdump etc/sysconfig {found}/etc\n')
        run('debugfs', '-R', f'dump zImage {found}/zImage', disk / 'kernel')
        run('mcopy', '-i', disk / 'usb', '::*.ubck', found)
        boot = read(disk / 'boot')[:len(read(Path('V1', IMAGES['boot'])))]
        tree, settings = sums(found / 'opt/upgddir'), sums(found / 'usr/qrx310/etc/vsp')
        conf = read(found / 'etc/sysconfig/device.conf').decode(errors='replace').splitlines()
        value = dict(line.split('=', 1) for line in conf if '=' in line)
        held = tree | {('boot', digest(boot)), ('kernel', digest(read(found / 'zImage')))}
        right = set().union(*self.trees.values(), *self.settings.values())
        s = SimpleNamespace(
            job=job.split(','), done=job.split(',')[:int(done)], broken=broken,
            version=value.get('fw_version'), floor=value.get('fw_floor'),
            flag=read(found / 'usr/local/upgdflag').decode(errors='replace').strip(), backup=kind_of_backup(found),
            lacks={name: sorted(path for path, _ in its - held)[:5] for name, its in self.trees.items()},
            settings=next((name for name, its in self.settings.items() if its == settings), 'a mix'),
            kept=[line for line in conf if not line.startswith('fw_')] == self.conf,
            damaged=sorted(file for file in (tree | settings) - right if file[1] != BEGUN))
        shutil.rmtree(found)
        with open('looks', 'a', encoding='ascii') as looks:
            print(self.kind, file=looks)
        wrong = [words for words, holds in INVARIANTS if not holds(s)]
        if wrong:
            print(f'FAILED: {self.kind}: {what}: {", ".join(wrong)}: {vars(s)}'[:1500], flush=True)


if __name__ == '__main__':
    Looker(sys.argv[1]).look(Path(sys.argv[2]), *sys.argv[3:])
