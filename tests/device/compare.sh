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
mkdir -p tree/x/vorn-uboot && echo second >tree/x/vorn-uboot/u-boot.bin
head -c 400000 /dev/urandom >tree/vorn-kernel/zImage
printf Y | dd of=tree/etc/deep/er/data bs=1 seek=299999 conv=notrunc status=none
# The kernel's partition can be mounted by root alone.
device=--device
[[ $SANDBOX_PRIVILEGED == 1 ]] || { rm -r tree/vorn-kernel && device=--extra; }
count=$(find tree ! -type d | wc -l)
img_deploy -c ./tree -r V7 u.img >/dev/null
img_deploy -u u.img -m 2 >/dev/null 2>&1
findings '0 ' img_info --compare /opt/upgddir --extra $device u.img
expect 'what was applied' "u.img: well, $count entries as they stand below /opt/upgddir" "$(cat out)"

# A run waits for a look that has the kernel partition mounted, and not for one whose lines nobody reads. A
# look that is killed leaves no mount. What is compared is what stands on the medium, under a warm cache.
is_mounted() { grep -qs '^[^ ]* /tmp ext4' /proc/[0-9]*/mounts; }
is_let_go() { ! is_mounted; }
if [[ $device == --device ]]; then
    umount /mntker
    # shellcheck disable=SC2016 # the script's own variables
    replace_command /bin/mount '"$0.real" "$@"; case $* in *" /tmp") while [ -e '"$work/hold"' ]; do sleep 0.05; done ;; esac'
    for way in wait kill; do
        touch hold
        upgd_service plan u.img --dir /opt/upgddir --cards simulate >look_out 2>&1 &
        look=$!
        await 'the mount of a look' is_mounted
        expect 'what others see of it' '' "$(grep ' /tmp ' /proc/self/mounts)"
        if [[ $way == kill ]]; then
            { kill -KILL $look && wait $look; } 2>/dev/null
            rm hold
            await 'the end of its mount' is_let_go
            continue
        fi
        cp /var/log/upgd_log0.txt before
        img_deploy -u u.img -m 2 >/dev/null 2>&1 &
        sleep 0.3
        expect 'a run beside a look' '' "$(cmp before /var/log/upgd_log0.txt)"
        rm hold
        wait $!
        expect 'the run behind the look' '0 0' "$? $(wait $look; echo $?)"
        umount /mntker
    done
    restore_command /bin/mount
    mkdir -p many/vorn-kernel empty && echo k >many/vorn-kernel/zImage && mkfifo listing
    for i in {1..800}; do echo x >"$(printf 'many/%0100d' "$i")"; done
    img_deploy -c many many.img >/dev/null
    img_info --compare empty --device many.img >listing &
    exec 6<listing && read -r _ <&6
    run timeout 60 img_deploy -u u.img -m 2
    expect 'a run beside lines that nobody reads' 0 "$status"
    kill $!
    exec 6<&-
    cat /mntker/zImage >/dev/null
    # What the runs ahead have left of it on free blocks as well.
    perl -e 'local $/; open(K, "tree/vorn-kernel/zImage"); open(D, "+<", "/dev/mmcblk0p6"); ($k, $d) = (substr(<K>, 204800, 64), <D>);
        for ($at = -1; ($at = index($d, $k, $at + 1)) >= 0;) { seek(D, $at, 0); print D ~substr($k, 0, 8) }'
    findings '1 ' img_info --compare /opt/upgddir --device u.img
    expect 'damage below a warm cache' 'u.img: not on its partition: /dev/mmcblk0p6:zImage: other content stands there' "$(cat out)"
fi

below=/opt/upgddir/tree
rm $below/bin/tool
printf X | dd of=$below/etc/deep/er/data bs=1 seek=299999 conv=notrunc status=none
rm $below/.hidden/file && mkdir $below/.hidden/file
ln -sfn /bin/su $below/sh
echo more >>$below/App_VPUCard.bin
mkdir $below/old && echo more >$below/old/file
echo more >$below/etc/deep/er/more
printf X | dd of=/dev/mmcblk0p1 bs=1 seek=3 conv=notrunc status=none
{
    echo "u.img: missing: $below/bin/tool"
    echo "u.img: not of the image: $below/etc/deep/er/more"
    echo "u.img: not of the image: $below/old: a directory"
    [[ $device == --extra ]] || echo 'u.img: not on its partition: /dev/mmcblk0p1: other content stands there'
    [[ $device == --extra ]] || echo 'u.img: not on its partition: /dev/mmcblk0p6:zImage: what stands there is cut short'
    echo "u.img: other content: $below/App_VPUCard.bin"
    echo "u.img: other content: $below/etc/deep/er/data"
    echo "u.img: other kind: $below/.hidden/file"
    echo "u.img: other target: $below/sh"
} >expected
if [[ $device == --device ]]; then
    echo more >>/mntker/zImage
    run img_info --compare /opt/upgddir --device u.img
    expect_line out 'u.img: not on its partition: /dev/mmcblk0p6:zImage: other content stands there'
    truncate -s 3 /mntker/zImage && umount /mntker
fi
findings '1 ' img_info --compare /opt/upgddir --extra $device u.img
expect 'findings' '' "$(diff expected out)"
expect 'what is left mounted' '' "$(grep ' /tmp ' /proc/self/mounts)"
findings '1 ' img_info --compare /opt/upgddir --json u.img
expect 'findings in JSON' "5 ],\"compared\":$count,\"well\":false}" "$(grep -c '^{"finding":' out) $(grep -o '],"compared.*' out)"
findings "2 img_info: $work/none: No such file or directory" img_info --compare "$work/none" u.img
head -c 5000 u.img >cut.img
findings '2 img_info: cut.img: entry '"$(img_info cut.img 2>/dev/null | sed '1,/^$/d' | wc -l): it runs past the end of the image; the rest was not compared" \
    img_info --compare /opt/upgddir cut.img
run img_info --compare /opt/upgddir --json - < <(head -c 490 u.img)
expect 'a cut image in JSON' '{"findings":[],"compared":0,"well":false}' "$(cat out)"
run upgd_service plan u.img --dir /opt/upgddir --cards simulate
expect 'a plan by contents' "files           1 new, 3 changed, $((count - 5)) the same, 1 in the way" "$(grep ^files out)"
run upgd_service plan u.img --dir /opt/upgddir --cards simulate --json
expect 'a plan in JSON' "\"downgrade\":false,\"new\":1,\"changed\":3,\"same\":$((count - 5)),\"in_the_way\":1" "$(grep -o '"downgrade.*"in_the_way":.' out)"
upgd_service plan u.img --dir /opt/upgddir --cards simulate >out
expect 'the cards of a plan' 'card            VPU MCU, at most 30 s' "$(grep ^card out)"

# Two entries of one path: the last one stands there.
mkdir -p twice/.d && echo one >twice/f && echo two >twice/.d/f && img_deploy -c twice t.img >/dev/null
expect 'entries of one path' 2 "$(img_info t.img | grep -c ' f$')"
img_deploy -u t.img -m 2 >/dev/null 2>&1
findings '1 ' img_info --compare /opt/upgddir --extra t.img
expect 'beside them' 't.img: not of the image: /opt/upgddir/tree: a directory' "$(cat out)"

# What is bound to fail is told entry by entry, and nothing is touched.
mkdir -p way/tree/bin/tool small && echo file >way/tree/etc
run upgd_service plan u.img --dir way --cards simulate
expect 'a plan' "1 files           $((count - 3)) new, 0 changed, 0 the same, 3 in the way" "$status $(grep ^files out)"
expect_line out "bound to fail   $work/way/tree/bin/tool: a directory stands there"
expect_line out "bound to fail   $work/way/tree/etc/deep/er/data: a file stands in the place of its directory"
before=$(find way | sort)
findings "1 upgd_service: $work/way/tree/etc/deep/link: a file stands in the place of its directory" upgd_service update u.img --dir way --cards simulate
expect 'what an update left' "$before" "$(find way | sort)"
mv /usr/vorn/bin/mcu_isp .
run upgd_service plan u.img --dir "$work/way"
expect_line out "bound to fail   $work/way/tree/App_VPUCard.bin: the tool /usr/vorn/bin/mcu_isp: No such file or directory"
mv mcu_isp /usr/vorn/bin/
long=$(printf %0200d 0)
mkdir -p 'w y/tree' "$long/tree"
run upgd_service plan u.img --dir 'w y' --cards simulate
expect_line out "bound to fail   $work/w y/tree/App_VPUCard.bin: its path would be taken apart by a command"
expect_line out "bound to fail   $work/w y/tree/bin/tool: its directory can't be made by a command"
run upgd_service plan u.img --dir "$long" --cards simulate
expect_line out "bound to fail   $work/$long/tree/App_VPUCard.bin: its path is too long for the tool's command"
expect_line out "bound to fail   $work/$long/tree/vorn-uboot/u-boot.bin: its path is too long for the command that installs it"
if [[ $device == --device ]]; then
    mount -t tmpfs -o size=200k tmpfs small
    findings "1 upgd_service: $work/small: too little room: 708 KiB are needed, 200 KiB are free" \
        upgd_service update u.img --dir small --cards simulate
    expect 'what stands where there is no room' '' "$(ls small)"
    mount -o remount,size=800k small
    for _ in 1 2; do findings '0 ' upgd_service update u.img --dir small --cards simulate=0; done
    # A kernel that a full partition cuts short is a success to the run itself.
    mkdir kernel && mount /dev/mmcblk0p6 kernel && rm kernel/zImage
    dd if=/dev/zero of=kernel/fill bs=1k status=none 2>/dev/null
    umount kernel
    run upgd_service update u.img --dir /opt/fresh --cards simulate
    expect 'no room for the kernel' '1 /dev/mmcblk0p6: too little room: 391 KiB are needed' "$status $(grep -o '/dev/mmcblk0p6: too.*needed' err)"
    run upgd_service update u.img --dir /opt/fresh --cards simulate --force
    expect_line err 'upgd_service: /dev/mmcblk0p6:zImage: not on its partition: what stands there is cut short'
    grep -q 'a command said: .*No space left on device' err || expect 'what cp has said' 'No space left' "$(cat err)"
    mount /dev/mmcblk0p6 kernel && rm kernel/fill && umount kernel
    findings '0 ' upgd_service update u.img --dir /opt/fresh --cards simulate
fi

# An image that fits no device, or only one with a shorter base directory.
name=$(printf 'l%.0s' {1..111})
mkdir long && ln -s /bin/sh "long/$name" && img_deploy -c ./long l.img >/dev/null 2>&1
findings '1 ' img_info --verify l.img
expect 'verification' "l.img: entry 0 at offset 488, long/$name;/bin/sh: its path and target are too long for a link, below /opt/upgddir/" "$(grep entry out)"
findings '0 ' img_info --verify --base / l.img
# What the builder stores and no run can bring back.
mkdir -p 'semi/a;b' && echo x >'semi/a;b/f' && img_deploy -c ./semi s.img >/dev/null
findings '1 ' img_info --verify s.img
expect 'a directory with a ;' "s.img: entry 0 at offset 488, semi/a;b/f: the name of its directory is cut at its ';', as a link's would be, below /opt/upgddir/" "$(grep entry out)"
run img_deploy -u s.img -m 2
expect 'its run' 252 "$status"
finish
