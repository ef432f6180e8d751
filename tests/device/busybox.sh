#!/usr/bin/env bash
# Catches: a command line that the board's small shell and tools take in another way.
. "$(dirname "$0")/lib.sh"

busybox=$(command -v busybox) || skip 'there is no busybox'
lay_out_tree
mkdir -p /mnt/{sda1,root} /usr/qrx310/etc/{vsp,mcucored,sysconf}
for dir in sda1 root; do mount -t tmpfs -o size=150m /dev/root /mnt/$dir; done
for file in vsp/layout mcucored/conf sysconf/qrxpara; do echo $file >/usr/qrx310/etc/$file; done
cp -r /usr/qrx310 saved
# shellcheck disable=SC2016 # the quotes of the page
for tool in sh $(sed -n '/^| tools/s/.*a shell with `\([^`]*\)`.*/\1/p' "$(dirname "$0")/../../README.md"); do
    [[ $tool != reboot && $tool != killall ]] || continue
    "$busybox" rm -f {,/usr,/usr/local}/{,s}bin/"$tool"
    "$busybox" ln -s "$busybox" "/bin/$tool"
done
hash -r

img_deploy -c ./tree -r V2 u.img >/dev/null
run img_deploy -u u.img -m 2
expect 'a run' '0 2 V2' "$status $(flag) $(sysconfig get fw_version)"
expect 'what it has made' '' "$(diff -r --no-dereference tree /opt/upgddir/tree
    cmp -n 5 tree/vorn-uboot/u-boot.bin /dev/mmcblk0p1)"
# Where the partition can't be mounted, it is in the directory.
expect 'the kernel' kernel "$(mount /dev/mmcblk0p6 /mntker 2>/dev/null; cat /mntker/zImage)"
sysconfig set device_name unit7
run upgd_service backup /mnt/sda1
expect 'a backup' '0 /mnt/sda1/unit7_' "$status $(head -c 16 out)"
rm -r /usr/qrx310
run upgd_service restore "$(cat out)"
expect 'the way back' '0 ' "$status $(diff -r saved /usr/qrx310)"
finish
