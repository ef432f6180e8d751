#!/usr/bin/env bash
# Boot loader, kernel partition, recorded version and target directory, with the real tools.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

if [[ $SANDBOX_PRIVILEGED != 1 ]]; then
    echo 'skipped: only root can mount the kernel partition'
    exit 77
fi

version() {
    sysconfig get fw_version
}

# The files of the kernel partition, looked at through another mount point.
partition_files() {
    mkdir -p look
    umount /mntker
    mount -o ro /dev/mmcblk0p6 look
    (cd look && find . -type f -printf '%P ' -exec cat {} \; | sort)
    umount look
}

mkdir -p tree/vorn-uboot/sub tree/vorn-kernel tree/x/vorn-uboot
head -c 100000 /dev/urandom >tree/vorn-uboot/u-boot.bin
head -c 50000 /dev/urandom >tree/x/vorn-uboot/second.bin
for file in zImage rk3288-tyx.dtb extlinux.conf notes.txt; do
    echo "first $file" >"tree/vorn-kernel/$file"
done
img_deploy -c ./tree -r V1.2.3.4 update.img >/dev/null
run img_deploy -u update.img -m 2
expect 'status' '0 2' "$status $(flag)"
expect 'version' V1.2.3.4 "$(version)"

# The later of two boot loaders wins.
expect 'two boot loaders' 2 "$(grep -c ' type(7)' err)"
last=$(grep -o '/opt/upgddir/.* type(7)' err | tail -n 1)
cmp -n "$(stat -c %s "${last% type(7)}")" "${last% type(7)}" /dev/mmcblk0p1 ||
    expect 'boot partition' "the bytes of $last" 'others'

expect 'kernel partition' 'extlinux.conf first extlinux.conf
rk3288-tyx.dtb first rk3288-tyx.dtb
zImage first zImage' "$(partition_files)"

# A second run in the same boot finds the partition mounted and keeps what it does not replace.
mount /dev/mmcblk0p6 /mntker/
echo 'of the board' >/mntker/board.txt
rm tree/vorn-kernel/{rk3288-tyx.dtb,notes.txt}
echo 'second' >tree/vorn-kernel/zImage
img_deploy -c ./tree -r V2 update.img >/dev/null
run img_deploy -u update.img -m 2
expect 'status of the second run' 0 "$status"
expect_line <(messages out) ' /mntker is mounted already.'
expect 'one mount' 1 "$(grep -c ' /mntker ' /proc/self/mounts)"
expect 'kernel partition after the second run' 'board.txt of the board
extlinux.conf first extlinux.conf
rk3288-tyx.dtb first rk3288-tyx.dtb
zImage second' "$(partition_files)"
expect 'version after the second run' V2 "$(version)"

# What somebody has put there in the partition's place is used as it stands.
mount -t tmpfs tmpfs /mntker && echo kept >/mntker/kept
run img_deploy -u update.img -m 2
expect 'another mount in its place' '0 1 extlinux.conf kept zImage' \
    "$status $(grep -c ' /mntker ' /proc/self/mounts) $(cd /mntker && echo *)"
umount /mntker

# A failed run leaves the old version.
img_deploy -c ./tree -r V3 update.img >/dev/null
rm -r /opt/upgddir && mkdir -p /opt/upgddir/tree/vorn-kernel/zImage
run img_deploy -u update.img -m 2
expect 'status of a failed run' '252 1' "$status $(flag)"
expect 'version after a failed run' V2 "$(version)"
umount /mntker 2>/dev/null

# Commands that run and fail are no failure here: a full partition, one that is gone.
rm -r /opt/upgddir
head -c 20000000 /dev/urandom >tree/vorn-kernel/zImage
img_deploy -c ./tree -r V4 update.img >/dev/null
run img_deploy -u update.img -m 2
expect 'a full kernel partition' '0 V4' "$status $(version)"
grep -q 'No space left on device' err || expect 'the words of cp' 'No space left' "$(tail -n 3 err)"
umount /mntker
mv /dev/mmcblk0p6 /dev/mmcblk0p1 .
mkdir /dev/mmcblk0p1
run img_deploy -u update.img -m 2
expect 'partitions that are not there' 0 "$status"
expect 'what was copied beside the partition' 'extlinux.conf zImage' "$(echo /mntker/* | sed 's|/mntker/||g')"
mv mmcblk0p6 /dev/ && rmdir /dev/mmcblk0p1 && mv mmcblk0p1 /dev/

# Paths that fit no command end the run: 106 characters at most for a kernel file.
deep=$(printf 'd%.0s' {1..80})
mkdir -p "long/$deep/vorn-kernel" && echo x >"long/$deep/vorn-kernel/zImage"
img_deploy -c ./long -r V5 update.img >/dev/null
run img_deploy -u update.img -m 2
expect 'a kernel file with too long a path' '242 V4 1' "$status $(version) $(flag)"

# The search for the image's own place runs also where a directory is forced.
mkdir -p /nand/usr/tree
mailbox_reader -t /dev/log >log &
reader=$!
await 'the log reader' test -S /dev/log
img_deploy -c ./tree/x update.img >/dev/null
mkdir -p /nand/usr/xylem
img_deploy -u update.img -m 2 >/dev/null 2>&1
await 'the last line of the log' grep -q 'set_update_flag: /bin/echo 2' log
kill "$reader"
grep -q 'find_dir: update dir is </nand/usr/>\.$' log || expect 'the search' '</nand/usr/>' "$(grep find_dir log)"
finish
