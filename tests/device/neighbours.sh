#!/usr/bin/env bash
# What other users and programs of the board can leave in a run's way.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

mkdir -p tree/vorn-kernel && echo f >tree/f && echo k >tree/vorn-kernel/zImage
img_deploy -c ./tree -r V2 update.img >/dev/null

# A second run beside one at work touches nothing. The first is held at its command.
cp /bin/mkdir /bin/mkdir.real && rm /bin/mkdir
printf '#!/bin/sh\nwhile [ -e %s/hold ]; do sleep 0.05; done\nexec /bin/mkdir.real "$@"\n' "$work" >/bin/mkdir
chmod +x /bin/mkdir && touch hold
img_deploy -u update.img -m 2 >first 2>&1 &
first=$!
await 'the first run' grep -q 'check img ok' first
cp /var/log/upgd_log0.txt before
run timeout 60 img_deploy -u update.img -m 2
expect 'a second run' '246 img_deploy: another update is at work: nothing was touched; wait for its end' "$status $(cat err)"
expect 'what it has written' '' "$(cat out; cmp before /var/log/upgd_log0.txt)"
rm hold && wait $first
expect 'the first run' '0 2' "$? $(flag)"
mv /bin/mkdir.real /bin/mkdir

# A parent that does not want to know of its children's ends.
(trap '' CHLD; img_deploy -u update.img -m 2 >out 2>&1)
expect 'a parent that ignores SIGCHLD' '0 V2' "$? $(sysconfig get fw_version)"

# A progress block that is too small, made by anybody: told on a terminal, with the way out.
ipcrm -M 0x600001
perl -e 'shmget(0x600001, 4, 01666) // die $!'
run script -qec 'img_deploy -u update.img -m 2' /dev/null
expect 'a block that is too small' '246 remove it with "ipcrm -M 0x600001" and apply it again 4' \
    "$status $(grep -o 'remove it .*again' out) $(awk '$1 == 6291457 { print $4 }' /proc/sysvipc/shm)"
ipcrm -M 0x600001

# A link in the place of the kernel's mount point: nothing behind it is removed.
umount /mntker 2>/dev/null
mkdir kept && echo kept >kept/file && rm -r /mntker && ln -s "$work/kept" /mntker
mv /dev/mmcblk0p6 partition
run img_deploy -u update.img -m 2
expect 'a link to other files' '0 file zImage' "$status $(cd kept && echo *)"
finish
