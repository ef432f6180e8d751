#!/usr/bin/env bash
# An image against a device: what img_info --compare and upgd_service find, before and after an update.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

# findings STATUS COMMAND...: its status, and its lines in order.
findings() {
    local expected=$1
    shift
    run "$@"
    expect "status of $*" "$expected" "$status $(head -n 1 err)"
    sort -o out out
}

lay_out_tree
# The kernel's partition can be mounted by root alone.
device=--device
[[ $SANDBOX_PRIVILEGED == 1 ]] || { rm -r tree/vorn-kernel && device=--extra; }
count=$(find tree ! -type d | wc -l)
img_deploy -c ./tree -r V7 u.img >/dev/null
img_deploy -u u.img -m 2 >/dev/null 2>&1
findings '0 ' img_info --compare /opt/upgddir --extra $device u.img
expect 'what was applied' "u.img: well, $count entries as they stand below /opt/upgddir" "$(cat out)"

below=/opt/upgddir/tree
rm $below/bin/tool
printf X | dd of=$below/etc/deep/er/data bs=1 seek=299999 conv=notrunc status=none
rm $below/.hidden/file && mkdir $below/.hidden/file
ln -sfn /bin/true $below/sh
mkdir $below/old && echo more >$below/old/file
echo more >$below/etc/deep/er/more
printf X | dd of=/dev/mmcblk0p1 bs=1 seek=3 conv=notrunc status=none
{
    echo "u.img: missing: $below/bin/tool"
    echo "u.img: not of the image: $below/etc/deep/er/more"
    echo "u.img: not of the image: $below/old: a directory"
    [[ $device == --extra ]] || echo 'u.img: not on its partition: /dev/mmcblk0p1: other content stands there'
    [[ $device == --extra ]] || echo 'u.img: not on its partition: /dev/mmcblk0p6:zImage: what stands there is cut short'
    echo "u.img: other content: $below/etc/deep/er/data"
    echo "u.img: other kind: $below/.hidden/file"
    echo "u.img: other target: $below/sh"
} >expected
if [[ $device == --device ]]; then
    truncate -s 3 /mntker/zImage && umount /mntker
fi
findings '1 ' img_info --compare /opt/upgddir --extra $device u.img
expect 'findings' '' "$(diff expected out)"
expect 'what is left mounted' '' "$(grep mmcblk0p6 /proc/self/mounts; ls -d /tmp/kernel.* 2>/dev/null)"
findings '1 ' img_info --compare /opt/upgddir --json u.img
expect 'findings in JSON' "4 ],\"compared\":$count,\"well\":false}" "$(grep -c '^{"finding":' out) $(grep -o '],"compared.*' out)"
findings "2 img_info: $work/none: No such file or directory" img_info --compare "$work/none" u.img
head -c 5000 u.img >cut.img
findings '2 img_info: cut.img: entry '"$(img_info cut.img 2>&1 | sed -n 's/.*: entry \([0-9]*\) at.*/\1/p') at offset $(img_info cut.img 2>&1 | sed -n 's/.* at offset \([0-9]*\):.*/\1/p'): it runs past the end of the image; the rest was not compared" \
    img_info --compare /opt/upgddir cut.img

# Two entries of one path: the last one stands there.
mkdir -p twice/.d && echo one >twice/f && echo two >twice/.d/f && img_deploy -c twice t.img >/dev/null
expect 'entries of one path' 2 "$(img_info t.img | grep -c ' f$')"
img_deploy -u t.img -m 2 >/dev/null 2>&1
findings '0 ' img_info --compare /opt/upgddir t.img

# An image that fits no device, or only one with a shorter base directory.
slashes=$(printf '/%.0s' {1..85})
mkdir long && ln -s "${slashes}bin/sh" long/l && img_deploy -c ./long l.img >/dev/null 2>&1
findings '1 ' img_info --verify l.img
expect 'verification' 'l.img: entry 0 at offset 488: its path and target are too long for a link, below /opt/upgddir/' "$(cat out)"
findings '0 ' img_info --verify --base / l.img
finish
