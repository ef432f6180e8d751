#!/usr/bin/env bash
# Catches: a look at the kernel's partition that keeps runs out, is in their way, or sees what is not on the
# medium; damage or a lack of room there that nobody tells of.
. "$(dirname "$0")/lib.sh"

[[ $SANDBOX_PRIVILEGED == 1 ]] || skip "only root can mount the kernel's partition"
lay_out_tree
mkdir -p tree/x/vorn-uboot && echo second >tree/x/vorn-uboot/u-boot.bin
head -c 400000 /dev/urandom >tree/vorn-kernel/zImage
img_deploy -c ./tree -r V7 u.img >/dev/null
img_deploy -u u.img -m 2 >/dev/null 2>&1
# look STATUS FINDING...: what img_info finds.
look() {
    run img_info --compare /opt/upgddir --extra --device u.img
    expect 'a look' "$1 $(printf '%s\n' "${@:2}")" "$status $(sed 's/^u.img: //' out | sort)"
}
look 0 'well, 9 entries as they stand below /opt/upgddir'
umount /mntker

# A run waits for a look that has the partition mounted. One that is killed leaves no mount.
is_mounted() { grep -qs '^[^ ]* /tmp ext4 ro' /proc/[0-9]*/mounts; }
# shellcheck disable=SC2016 # the script's own variables
replace_command /bin/mount '"$0.real" "$@"
    case $* in *" /tmp") while [ -e '"$work/hold"' ]; do sleep 0.05; done ;; esac'
begin_look() {
    touch hold
    upgd_service plan u.img --dir /opt/upgddir --cards simulate >look_out 2>&1 &
    look=$!
    await 'the mount of a look' is_mounted
    expect 'what others see of it' '' "$(grep ' /tmp ' /proc/self/mounts)"
}
for child in '' child; do
    begin_look
    victim=$look
    [[ -z $child ]] || read -r victim <"/proc/$look/task/$look/children"
    { kill -KILL "$victim" && wait $look; } 2>/dev/null
    await 'its end' eval '! grep -qsx upgd_service /proc/[0-9]*/comm'
    rm hold
    await 'the end of its mount' eval '! is_mounted'
done
expect 'a child that is killed' 1 "$(grep -c "can't" look_out)"
begin_look
cp /var/log/upgd_log0.txt before
img_deploy -u u.img -m 2 >/dev/null 2>&1 &
sleep 1.5 # longer than a run waits for another one
expect 'a run beside a look' '' "$(cmp before /var/log/upgd_log0.txt)"
rm hold
wait $!
expect 'the run behind the look' '0 0' "$? $(wait $look; echo $?)"
restore_command /bin/mount

# What is compared is what stands on the medium, under a warm cache. What lies on free blocks is damaged too.
cat /mntker/zImage >/dev/null
perl -e 'local $/; open(K, "tree/vorn-kernel/zImage"); open(D, "+<", "/dev/mmcblk0p6");
    ($k, $d) = (substr(<K>, 204800, 64), <D>);
    for ($at = -1; ($at = index($d, $k, $at + 1)) >= 0;) { seek(D, $at, 0); print D ~substr($k, 0, 8) }'
partition='not on its partition: /dev/mmcblk0p6:zImage:'
look 1 "$partition other content stands there"
truncate -s 3 /mntker/zImage && umount /mntker
overwrite /dev/mmcblk0p1 3 X
overwrite /opt/upgddir/tree/etc/deep/er/data 299999 X
look 1 'not on its partition: /dev/mmcblk0p1: other content stands there' "$partition what stands there is cut short" \
    'other content: /opt/upgddir/tree/etc/deep/er/data'

# No room is told ahead of an update, and behind it a kernel that was cut short, a success to the run itself.
mkdir kernel && mount /dev/mmcblk0p6 kernel && rm kernel/zImage
dd if=/dev/zero of=kernel/fill bs=1k status=none 2>/dev/null
umount kernel
fresh=(upgd_service update u.img --dir /opt/fresh --cards simulate=0)
expect_call 1 '/dev/mmcblk0p6: too little room: 391 KiB are needed' "${fresh[@]}"
run "${fresh[@]}" --force
expect_line err 'upgd_service: /dev/mmcblk0p6:zImage: not on its partition: what stands there is cut short'
rm /dev/mmcblk0p6
expect_call 1 '/dev/mmcblk0p6: there is no kernel partition /dev' "${fresh[@]}"
finish
