#!/usr/bin/env bash
# Catches: a partition that does not hold what an image brings, or loses what it does not bring.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

if [[ $SANDBOX_PRIVILEGED != 1 ]]; then
    echo 'skipped: only root can mount the kernel partition'
    exit 77
fi

# The files of the kernel partition, looked at through another mount point.
partition_files() {
    mkdir -p look
    umount /mntker
    mount -o ro /dev/mmcblk0p6 look
    (cd look && find . -type f -printf '%P ' -exec cat {} \; | sort | paste -sd,)
    umount look
}

# apply VERSION WHAT: the status of a run has to be 0, and its version is recorded.
apply() {
    img_deploy -c ./tree -r "$1" update.img >/dev/null
    run img_deploy -u update.img -m 2
    expect "$2" "0 2 $1" "$status $(flag) $(sysconfig get fw_version)"
}

mkdir -p tree/vorn-uboot tree/vorn-kernel tree/x/vorn-uboot
head -c 100000 /dev/urandom >tree/vorn-uboot/u-boot.bin
head -c 50000 /dev/urandom >tree/x/vorn-uboot/second.bin
for file in zImage rk3288-tyx.dtb extlinux.conf notes.txt; do
    echo "first $file" >"tree/vorn-kernel/$file"
done
apply V1 'the first run'
last=$(grep -o '/opt/upgddir/.* type(7)' err | tail -n 1)
head -c 50000 "${last% type(7)}" | cmp - <(head -c 50000 /dev/mmcblk0p1) ||
    expect 'the later of two boot loaders' "$last" 'another'
expect 'kernel partition' \
    'extlinux.conf first extlinux.conf,rk3288-tyx.dtb first rk3288-tyx.dtb,zImage first zImage' \
    "$(partition_files)"

# A second run in the same boot finds the partition mounted and keeps what it does not replace.
mount /dev/mmcblk0p6 /mntker/
echo 'of the board' >/mntker/board.txt
rm tree/vorn-kernel/{rk3288-tyx.dtb,extlinux.conf,notes.txt}
echo 'second' >tree/vorn-kernel/zImage
apply V2 'the second run'
expect 'one mount' 1 "$(grep -c ' /mntker ' /proc/self/mounts)"
expect 'kernel partition after it' 'board.txt of the board,extlinux.conf first extlinux.conf,rk3288-tyx.dtb first rk3288-tyx.dtb,zImage second' \
    "$(partition_files)"
finish
