#!/usr/bin/env bash
# Catches: a tree that does not come back whole over the real tools; a run that an interrupt, a hangup, a kill
# or a lost reader ends in another way, or that the run behind it minds.
. "$(dirname "$0")/lib.sh"

lay_out_tree
img_deploy -c ./tree -p 1 -r V3.2.1.0 update.img >/dev/null
whole_run() {
    run img_deploy -u update.img -m 2
    expect "status, flag and version $1" '0 2 V3.2.1.0' "$status $(flag) $(sysconfig get fw_version)"
    expect "differences $1" '' "$(diff -r --no-dereference tree /opt/upgddir/tree 2>&1
        cmp tree/vorn-kernel/zImage /mntker/zImage 2>&1; cmp -n 5 tree/vorn-uboot/u-boot.bin /dev/mmcblk0p1)"
    expect "progress block $1" 'file_nums=8 cur_nums=8 result=1 cur_percent=100' "$(progress_block)"
}
whole_run 'at first'

# A run that is killed leaves the lock to its last command for a moment, and a mount and a block for good.
for command in dd cp sync; do
    kill_run_at /bin/$command update.img
    expect "flag of a run killed at $command" 1 "$(flag)"
    whole_run "behind a kill at $command"
    restore_command /bin/$command
done

# Many directories make a run long enough to be hit while it works.
for i in {1..150}; do mkdir "tree/d$i" && echo "$i" >"tree/d$i/f"; done
img_deploy -c ./tree long.img >/dev/null
hit() {
    rm -rf /opt/upgddir
    : >err
    # A shell has its background commands ignore interrupts.
    env --default-signal=INT img_deploy -u long.img -m 2 >out 2>err &
    await 'the fourth entry' grep -q '(num-3)' err
    kill "-$1" $!
    wait $!
    expect "status and flag after SIG$1" "$2 $3" "$? $(flag)"
}
hit HUP 0 2
hit TERM 143 1
hit INT 130 1
img_deploy -u long.img -m 2 2>&1 | head -n 1 >/dev/null
expect 'status and flag without a reader' '0 2' "${PIPESTATUS[0]} $(flag)"
finish
