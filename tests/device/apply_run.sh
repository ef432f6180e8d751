#!/usr/bin/env bash
# From a tree to an image and back, with the real tools; damaged images; loss of the terminal.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

# What the platform's log daemon receives.
mailbox_reader -t /dev/log >log &
reader=$!
await 'the log reader' test -S /dev/log

lay_out_tree
run img_deploy -c ./tree -p 1 -r V3.2.1.0 update.img
expect 'status of the build' 0 "$status"
run img_deploy -u update.img -m 2
expect 'status of the run' 0 "$status"
expect 'differences' '' "$(diff -r --no-dereference tree /opt/upgddir/tree 2>&1)"
expect 'flag file' 2 "$(flag)"
expect 'progress block' 'file_nums=8 cur_nums=8 result=1 cur_percent=100' "$(progress_block)"
expect_line <(messages out) 'result = 1, update successful !! '
expect 'what was announced' 8 "$(grep -c '^(num-[0-7])/opt/upgddir/tree/.* type([0-9]*), size([0-9]*)$' err)"
# The log names no process of its own: task, function, text.
await 'the last line of the log' grep -q 'set_update_flag: /bin/echo 2' log
grep -qE '^<30>.* imgdeploy\[[0-9]+\]: 010a3c00 do_update:  run rsync ok\.$' log ||
    expect 'the platform log' 'run rsync ok' "$(tail -n 3 log)"
kill "$reader"

# A second run over the first: the old files are unlinked, not written over.
mkdir -p /opt/upgddir/tree/extra
ln /opt/upgddir/tree/bin/tool kept
echo changed >tree/bin/tool
img_deploy -c ./tree update.img >/dev/null
run img_deploy -u update.img -m 2
expect 'status of the second run' 0 "$status"
expect 'a file that is in use' tool "$(cat kept)"
expect 'the new file' changed "$(cat /opt/upgddir/tree/bin/tool)"

# Reboot mode leaves the flag at 1: the board goes down before it could be written.
before=$SECONDS
run img_deploy -u update.img
expect 'the reboot' $'reboot\t-f' "$(cat /run/sandbox/calls)"
expect 'seconds before it' 1 "$((SECONDS - before >= 6))"

# Damaged images, by their codes.
size=$(stat -c %s update.img)
for damage in "truncate -s $((size - 1))" "truncate -s 100" "truncate -s 0"; do
    cp update.img bad.img
    $damage bad.img
    run img_deploy -u bad.img -m 2
    expect "status after $damage" '246 1' "$status $(flag)"
done
# The first entry's name without an end: 1023 characters and more.
{ head -c 488 update.img; tail -c +489 update.img | tr '\0' x; } >bad.img
rm -r /opt/upgddir
run img_deploy -u bad.img -m 2
expect 'status of a damaged body' '252 1' "$status $(flag)"
expect 'what it has left' '' "$(find /opt/upgddir -mindepth 1)"
expect 'its progress block' 'file_nums=8 cur_nums=0 result=2 cur_percent=100' "$(progress_block)"

# Full disks: under the target, and under the image.
mkdir -p /opt/upgddir small
mount -t tmpfs -o size=200k tmpfs /opt/upgddir
run img_deploy -u update.img -m 2
expect 'status on a full disk' '252 1' "$status $(flag)"
grep -q 'bb_full_write failed' out || expect 'its trace line' 'bb_full_write failed' "$(cat out)"
umount /opt/upgddir
mount -t tmpfs -o size=200k tmpfs small
run img_deploy -c ./tree small/update.img
expect 'status of a build on a full disk' 255 "$status"
expect_line <(messages out) "image is incomplete at \`./tree/etc/deep/er/data': No space left on device"
run img_deploy -u small/update.img -m 2
expect 'status of an image that was not finished' 246 "$status"

# Commands and the tool's own lines in the order in which they happened, on a pipe as well.
mkdir -p one/dir && echo x >one/dir/f
img_deploy -c ./one one.img >/dev/null
rm -rf /opt/upgddir && mkdir /opt/upgddir && echo 'in the way' >/opt/upgddir/one
img_deploy -u one.img -m 2 2>&1 | cat >mixed
sed -n '/start creat img/,$p' mixed | messages /dev/stdin |
    grep -oE '^(start creat|/bin/mkdir: |\(num-0\)|copy_file failed|result = 2, update error)' >order
expect 'order' 'start creat
/bin/mkdir: 
(num-0)
copy_file failed
result = 2, update error' "$(cat order)"

# Many directories make a run long enough to be hit while it works.
rm -rf /opt/upgddir
for i in {1..150}; do mkdir "tree/d$i" && echo "$i" >"tree/d$i/f"; done
img_deploy -c ./tree long.img >/dev/null
# hit SIGNAL STATUS FLAG
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
expect 'differences after it' '' "$(diff -r --no-dereference tree /opt/upgddir/tree 2>&1)"
hit TERM 143 1
hit INT 130 1
img_deploy -u long.img -m 2 2>&1 | head -n 1 >/dev/null
expect 'status and flag without a reader' '0 2' "${PIPESTATUS[0]} $(flag)"
finish
