#!/usr/bin/env bash
# Catches: a service's run that a lost disk, interrupt, neighbour or terminal ends in another way, or leaves
# something of behind; what is told of a block, that differs.
. "$(dirname "$0")/lib.sh"

# What manual page and completion have, each verb with its options, is what the program says.
root=$(dirname "$0")/../..
for program in img_info sysconfig upgd_service; do
    "$program" --help | sed '/--help/,$d' | grep -oE "$program [a-z]+|--[a-z-]+" | sed 's/.* //' >words
    expect "words of the page of $program" "$(<words)" "$(sed '1,/^.Sh SYN/d; /^.Fl -help/,$d' "$root/man/$program.1" |
        grep -oE '^.Cm [a-z]+|Fl -[a-z-]+' | sed 's/Fl /-/; s/.* //')"
done
# shellcheck source=completion/upgd_service
. "$root/completion/upgd_service"
# shellcheck disable=SC2046 # each is a word
expect 'words to choose' "$(<words)"$'\n--help\n--version' \
    "$(for verb in $(completed upgd_service ''); do printf '%s\n' "$verb" $(completed upgd_service "$verb" -); done)"

lay_out_tree
[[ $SANDBOX_PRIVILEGED == 1 ]] || mv tree/vorn-kernel tree/plain
echo fpga >tree/InputCardTop.bin
img_deploy -c ./tree -r V7 u.img >/dev/null

# begin_update IMAGE SECONDS: up to the first card.
begin_update() {
    : >out
    (umask 0 && exec env --default-signal=INT \
        upgd_service update "$1" --dir /opt/upgddir --cards "simulate=$2" >out 2>err) &
    await 'the first card' grep -q FPGA out
}
# end_update WHAT EXPECTED: its status, and what it has complained of in short.
end_update() {
    wait $!
    expect "$1" "$2" "$?$(cut -d: -f 2-3 err)"
}
interrupt() {
    kill -INT $!
    await 'the word of the interrupt' grep -q '^interrupted' out
}
begin_log
begin_update u.img 30
interrupt
kill -TERM $!
end_update 'after two interrupts' '130 interrupted twice: ended at once'
await 'their outcome in the log' grep -q 'status 130: interrupted twice' log
expect 'mailboxes that are left' '' "$(ls /run/mailbox)"
begin_update u.img 1
kill -INT $!
end_update 'after one interrupt' '130 u.img: interrupted'
expect 'the file in hand was finished, the next one not begun' 0 "$(grep -c MCU out)"

# What others send to the mailboxes, which are for this user alone, harms no run. Nor does it end with its
# reader or terminal.
send_message() { # MAILBOX FORM VALUES...: a message of each, by perl's pack
    perl -MSocket -e 'socket(S, PF_UNIX, SOCK_DGRAM, 0); connect(S, sockaddr_un("/run/mailbox/" . shift)) // die $!;
        $form = shift; send(S, pack($form, split /,/), 0) // die $! for @ARGV' "$@"
}
begin_update u.img 2
expect 'modes of the mailboxes' '600 600' "$(stat -c %a /run/mailbox/* | paste -sd' ')"
send_message 010a3d00 'x28 i x1032 i i x4' 99,{0,4,5,7,9,10},505
send_message 010a3b00 'a*' short ''
send_message 010a3b00 'x38 i a1027' 23,longer
send_message 010a3b00 'x38 i a1026' '22,a;touch evil'
await 'events of a step without words' grep -q 'step 99: the kernel' out
expect 'their results' "
there is no such file
it can't be opened
it can't be mapped
the boot loader can't be installed
the kernel can't be installed" "$(sed -nE 's/^ 50 %  step 99(: )?//p' out)"
kill -HUP $!
end_update 'a run with them' 0
expect 'cards that were asked' '22 -2,24 0,25 0' \
    "$(sed -n 's/.*set card(\(..\)) update result :/\1/p' /var/log/upgd_log0.txt | sort | paste -sd,)"
begin_update u.img 1
rm /run/mailbox/010a3b00
end_update 'a run whose mailbox is gone' '1 u.img: a card could not be asked'
{ upgd_service update u.img --dir /opt/upgddir --cards simulate=1 && echo well >ended; } | head -n 1 >out
expect 'a run whose reader has gone' 'well ' "$(<ended) $(ls /run/mailbox)"

# The disk with the image leaves, and the one whose name it begins like stays.
for dir in sda10 sda1; do mkdir -p /mnt/$dir && mount -t tmpfs tmpfs /mnt/$dir; done
cp u.img /mnt/sda10/
for leave in 'echo 8 1 sda1 1 2 3 >stats' 'umount -l /mnt/sda10'; do
    printf '8 %s 1 2 3\n' '1 sda1' '10 sda10' >stats
    mount --bind stats /proc/diskstats || break
    begin_update /mnt/sda10/u.img 1
    eval "$leave"
    end_update "a disk that leaves: $leave" '1 /mnt/sda10/u.img: the disk is gone'
    expect 'its event' 1 "$(grep -c gone out)"
    umount /proc/diskstats
done

# watched IMAGE: how a watch ends that began ahead of the run, and what it says first and last.
watched() {
    : >out
    timeout 60 upgd_service watch >out 2>&1 &
    await 'a watch' grep -q . out
    sleep 0.1 # in which it looks again
    img_deploy -u "$1" -m 2 >/dev/null 2>&1
    wait $!
    echo "$?" "$(grep -vxE 'starting|unpacking|a service update .*' out | paste -sd,)"
}
expect 'a run' '0 no run so far, waiting for one,the run went well: 9 of 9 entries' "$(watched u.img)"
expect 'the run behind one that went well' \
    '1 no run at work; the last one went well; waiting for one,the run has failed: 0 of 0 entries' "$(watched empty)"
kill_run_at /bin/dd u.img
restore_command /bin/dd
said=$(script -qec 'timeout 60 upgd_service watch; echo $?' /dev/null </dev/null | tr -d '\r')
n=$(sed -n 's/.*ended: \([0-9]\) .*/\1/p' <<<"$said")
left="nobody is at work on this run any more, which has not ended: $n of 9 entries; apply the image again"
expect 'a watch behind it' "$((n * 100 / 9)) % $n/9 upgd_service: $left 1" \
    "$(grep -oaE '[0-9]+ % [0-9]/9' <<<"$said" | tail -n 1) $(tail -n 2 <<<"$said" | paste -sd' ')"
last='last run did not end: N of 9 entries,version V7,product none,lowest version none,keys 0,next step'
alone="at work none,$last the last run did not end well: apply the image again"
beside="at work a service update, a restore, or flashing,$last wait for its end, or watch it with"
expect 'the status behind it, and beside another one' "$alone,$beside \"upgd_service watch\"" \
    "$(for lock in '' 'flock /run/img_deploy.lock'; do $lock upgd_service status; done |
        tr -s ' ' | sed 's/: [0-9] of/: N of/' | paste -sd,)"
flock -F /run/img_deploy.lock upgd_service watch >out &
await 'a watch beside it' grep -q '^a service update .* for its end$' out
kill $!

# A restore finishes after one interrupt, and leaves the version as it is.
make_backup
hold_command /bin/mkdir
env --default-signal=INT upgd_service restore s.ubck "$work/restored" >out 2>err &
await 'a command of the restore' test -e held
interrupt
rm hold
wait $!
expect 'a restore that was interrupted' '130 saved V7' \
    "$? $(cat restored/usr/qrx310/etc/vsp/layout) $(sysconfig get fw_version)"

# An image that was changed behind its test is no success. Modes do not depend on the caller.
touch hold && rm held
(umask 077 && exec upgd_service update u.img --dir "$work/late" --cards simulate=0) >out 2>err &
await 'a command of the update' test -e held
overwrite u.img "$(LC_ALL=C grep -abo 'tool$' u.img | cut -d: -f1)" f
rm hold
wait $!
expect 'an image that was changed behind its test' "1 upgd_service: $work/late/tree/bin/tool: other content 755" \
    "$? $(head -n 1 err) $(stat -c %a late/tree/bin)"
form='^<30>.* imgdeploy\[[0-9]+\]: 010a3d00 log_outcome' call='update by user 0: image <u.img> version <V7> key none'
await 'the outcome in the log' grep -qE "$form: $call: status 1: u.img: applied below $work/late, but" log
finish
