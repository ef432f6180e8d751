#!/usr/bin/env bash
# Catches: a service's run that a lost disk, interrupt, neighbour or terminal ends in another way, or leaves
# something of behind; an event, or what is told of disks, backups and a block, that differs.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

# expect_call STATUS ERRORS COMMAND...
expect_call() {
    local expected=$1 errors=$2
    shift 2
    run "$@"
    expect "status and errors of $*" "$expected $errors" "$status $(head -n 1 err)"
}

# What the manual page and the completion have of each verb, its options, is what the program says.
root=$(dirname "$0")/../..
upgd_service --help | perl -0ne 'while (/^  upgd_service (\w.*\n( {6,}.*\n)+)/mg) { print join(" ", $1 =~ /^\w+|--[a-z-]+/g), "\n" }' >verbs
perl -0ne 's/\.Sh DESCRIPTION.*//s; while (/^\.Cm (\w.*?)\n\.Nm/msg) { print join(" ", map { s/^Fl /-/r } $1 =~ /^\w+|Fl -[a-z-]+/g), "\n" }' \
    "$root/man/upgd_service.1" >paged
expect 'verbs of the manual page' "$(cat verbs)" "$(cat paged)"
# shellcheck source=completion/upgd_service
. "$root/completion/upgd_service"
# completed WORD...: what stands to choose for the last one.
completed() {
    COMP_WORDS=(upgd_service "$@") COMP_CWORD=$#
    _upgd_service
    echo "${COMPREPLY[*]}"
}
expect 'verbs to choose' "$(cut -d' ' -f1 verbs | paste -sd' ') --help --version" "$(completed '')"
while read -r verb options; do expect "options of $verb" "$options" "$(completed "$verb" -)"; done <verbs

# Calls that are none: one line, and the usage of the verb. A value stands behind a word or a '='.
while IFS='|' read -r call words usage; do
    # shellcheck disable=SC2086 # each word is an argument
    run upgd_service $call
    expect "a call that is none: $call" "2 upgd_service: $words,Usage:$usage" "$status $(head -n 1 err),$(sed -n 2p err | cut -d' ' -f-3)"
done <<'END'
|a verb is missing|
frob u.img|'frob' is no verb|
update|update: too few words| upgd_service update
plan u.img --force|plan: unrecognized option '--force'| upgd_service plan
update --dir= u.img|update: --dir needs a directory| upgd_service update
restore u.img / x|restore: 'x' is a word too many| upgd_service restore
update u.img --cards=fail=21|update: 'fail=21' is no choice for --cards| upgd_service update
flash 31 f|flash: '31' is no type of card file| upgd_service flash
END

# What could not be printed is told; a stream that is not there is none of the files that are opened.
while read -r expected call; do
    $call >/dev/full 2>err
    expect "a full device behind $call" "$expected standard output: No space left on device" "$? $(sed 's/^[a-z_]*: //' err)"
    $call >&- 2>&- <&-
    expect "no streams for $call" 0 $?
done <<'END'
1 upgd_service disks
1 upgd_service --help
2 img_info --help
2 img_info --version
END

lay_out_tree
# The kernel's partition can be mounted by root alone.
[[ $SANDBOX_PRIVILEGED == 1 ]] || mv tree/vorn-kernel tree/plain
echo fpga >tree/InputCardTop.bin
img_deploy -c ./tree -r V7 u.img >/dev/null

# One changed byte: refused, and applied with --force. An image is applied through an open file whose name
# is gone.
cp u.img flipped.img
printf X | dd of=flipped.img bs=1 seek=600 conv=notrunc status=none
words='flipped.img: has another CRC than its header says'
expect_call 1 "upgd_service: $words: nothing was touched; get it anew, or take it as it is with --force" upgd_service update flipped.img
[[ ! -e /opt/upgddir/tree ]] || expect 'what was touched' nothing "$(ls -d /opt/upgddir/tree)"
expect_call 0 "upgd_service: $words, which --force passes over" upgd_service update --force flipped.img --dir "$work/forced" --cards simulate=0
cp u.img open.img
exec 5<open.img
rm open.img
expect_call 0 '' upgd_service update /proc/self/fd/5 --dir /opt/upgddir --cards simulate=0
exec 5<&-

# A service update: events on a pipe, one failing card, the program's end by interrupts.
expect_call 0 '' upgd_service update --dir=/opt/upgddir --cards=simulate=0 -- u.img
expect 'events' 'unpacking,input card FPGA,video card MCU,done,u.img: applied below /opt/upgddir, 9 entries,boot loader and kernel work from the next restart on' \
    "$(sed 's/^ *[0-9]* %  //' out | paste -sd,)"
expect_call 1 "upgd_service: u.img: the video card's MCU was not flashed" \
    upgd_service update u.img --dir /opt/upgddir --cards fail=24
# begin_update IMAGE SECONDS: up to the first card.
begin_update() {
    : >out
    env --default-signal=INT upgd_service update "$1" --dir /opt/upgddir --cards "simulate=$2" >out 2>err &
    await 'the first card' grep -q FPGA out
}
begin_update u.img 30
kill -INT $!
await 'the word of the interrupt' grep -q '^interrupted' out
kill -INT $!
wait $!
expect 'after two interrupts' '130 ' "$? $(ls /run/mailbox)"
begin_update u.img 1
kill -INT $!
wait $!
expect 'after one interrupt' '130 upgd_service: u.img: interrupted: what was written stays' "$? $(cat err)"
expect 'the file in hand was finished, the next one not begun' 0 "$(grep -c MCU out)"
# send_message MAILBOX <BYTES
send_message() {
    perl -MSocket -e 'socket(S, PF_UNIX, SOCK_DGRAM, 0); connect(S, sockaddr_un("/run/mailbox/$ARGV[0]")) // die $!;
        local $/; send(S, <STDIN> // "", 0) // die $!' "$1"
}
begin_update u.img 1
{ head -c 28 /dev/zero && printf 'c\0\0\0' && head -c 1044 /dev/zero; } | send_message 010a3d00
await 'an event of a step without words' grep -q '%  step 99$' out
wait $!
expect 'a run with it' '0 ' "$? $(cat err)"

# What others send to the mailboxes, which are for this user alone, harms no run: a datagram of another
# size is passed over, and a request whose path a shell would take apart is refused. A reader or a
# terminal that goes away ends no run. The mailboxes go on every way out.
mkfifo pipe
(umask 0 && exec upgd_service update u.img --dir /opt/upgddir --cards simulate=1) >pipe 2>err &
head -n 1 <pipe >out
expect 'modes of the mailboxes' '600 600' "$(stat -c %a /run/mailbox/* | paste -sd' ')"
printf short >short && : >empty
{ head -c 38 /dev/zero && printf '\x16\0\0\0a;touch evil' && head -c 1068 /dev/zero; } | head -c 1068 >request
for message in empty short request; do
    send_message 010a3b00 <$message
done
kill -HUP $!
wait $!
expect 'a run among them' $'0 [] set card(22) update result : -2\nset card(24) update result : 0\nset card(25) update result : 0' \
    "$? [$(cat err)] $(grep -o 'set card.*' /var/log/upgd_log0.txt | sort)"
expect 'mailboxes that are left' '' "$(ls /run/mailbox)"

# The disk with the image leaves while a card is flashed.
mkdir -p /mnt/sda1 && mount -t tmpfs tmpfs /mnt/sda1
cp u.img /mnt/sda1/
echo '8 1 sda1 1 2 3' >stats
if mount --bind stats /proc/diskstats; then
    for leave in ': >stats' 'umount -l /mnt/sda1'; do
        echo '8 1 sda1 1 2 3' >stats
        begin_update /mnt/sda1/u.img 1
        eval "$leave"
        wait $!
        expect "a disk that leaves: $leave" '1 upgd_service: /mnt/sda1/u.img: the disk is gone: what was written stays, and the version that is recorded as well; put the disk in again, and apply the image again' "$? $(cat err)"
    done
fi

# Watching a run in another process, and a block whose writer has died.
: >out
timeout 60 upgd_service watch >out 2>&1 &
await 'a watch' grep -q '^no run' out
img_deploy -u u.img -m 2 >/dev/null 2>&1
wait $!
expect 'the end that was watched' '0 the run went well: 9 of 9 entries' "$? $(tail -n 1 out)"
# The end of the run before is none of the next one's, which fails here.
: >first
timeout 60 upgd_service watch >first 2>&1 &
first=$!
await 'a look at the run before' grep -q . first
: >out
timeout 60 upgd_service watch >out 2>&1 &
await 'another look at it' grep -q . out
img_deploy -u empty -m 2 >/dev/null 2>&1
wait $!
expect 'what was said of the run before' '1 no run at work; the last one went well; waiting for one' "$? $(head -n 1 out)"
wait $first
expect 'the watch that began first' 'the run has failed: 0 of 0 entries' "$(tail -n 1 first)"
wait
for i in {1..150}; do mkdir "tree/d$i" && echo "$i" >"tree/d$i/f"; done
img_deploy -c ./tree long.img >/dev/null
: >err
img_deploy -u long.img -m 2 >out 2>err &
await 'the tenth entry' grep -q '(num-9)' err
kill -KILL $!
timeout 60 upgd_service watch >/dev/null 2>&1 &
run timeout 60 upgd_service watch
expect 'a run that was killed' '1 nobody is at work on this run any more' "$status $(grep -o 'nobody is .* any more' err)"
run upgd_service status
expect 'the status behind it' '0 at work none,last run did not end: of 159 entries,version V7,product none,lowest version none,keys 0,next step the last run did not end well: apply the image again' \
    "$status $(sed 's/[0-9]* of 159/of 159/' out | tr -s ' ' | paste -sd,)"
run upgd_service status --json
expect 'the status in JSON' '{"at_work":"","last_run":"did not end: of 159 entries","fw_version":"V7","product":"","fw_floor":"","keys":"0","next":"the last run did not end well: apply the image again"}' \
    "$(sed 's/[0-9]* of 159/of 159/' out)"
wait $!
expect 'another watch of it' 1 $?

# What is on the disks, a backup of the settings and its way back, and one card's file.
mkdir -p /mnt/root /usr/qrx310/etc/{vsp,mcucored,sysconf}
mount -t tmpfs tmpfs /mnt/sda1
mount -t tmpfs -o size=150m /dev/root /mnt/root
cp u.img /mnt/sda1/
touch /mnt/sda1/._u.img '/mnt/sda1/a"\.rcfgx' $'/mnt/sda1/\xff\xfe.ubck'
# A label that would clear a terminal's screen.
mkdir -p /dev/disk/by-label && ln -s ../../sda1 $'/dev/disk/by-label/A\e[2J'
if grep -q sda1 /proc/diskstats; then
    upgd_service disks >out
    expect 'disks' 'PATH NAME IMAGES BACKUPS RCFGX,/mnt/sda1 A\x1b[2J 1 1 1, u.img: V7' "$(tr -s ' ' <out | paste -sd,)"
    upgd_service disks --json >out
    expect 'disks in JSON' '[{"path":"/mnt/sda1","name":"A\u001b[2J","images":["/mnt/sda1/u.img"],"backups":["/mnt/sda1/\u00ff\u00fe.ubck"],"rcfgx":["/mnt/sda1/a\"\\.rcfgx"],"versions":["V7"]}]' "$(cat out)"
fi
sysconfig set device_name unit7
expect_call 1 'upgd_service: nothing was saved: there are no settings below /usr/qrx310/etc/' upgd_service backup /mnt/sda1
expect 'a backup of nothing' '' "$(ls /mnt/sda1/unit7* 2>/dev/null)"
echo saved >/usr/qrx310/etc/vsp/layout
mkdir /usr/qrx310/etc/sysconf/qrxpara && echo saved >/usr/qrx310/etc/sysconf/qrxpara/ip
expect_call 0 '' upgd_service backup /mnt/sda1/
saved=$(cat out)
expect 'the name and the mode of a backup' '/mnt/sda1/unit7_ 600' "${saved:0:16} $(stat -c %a "$saved")"
cp "$saved" unit7.ubck
echo changed >/usr/qrx310/etc/vsp/layout
expect_call 0 '' upgd_service restore "$saved"
expect_call 0 '' upgd_service restore "$saved" "$work/below"
expect 'what was brought back' $'saved\nsaved' "$(cat {,below}/usr/qrx310/etc/vsp/layout)"
expect_call 1 "upgd_service: $work/u.img/x/usr/qrx310/etc/vsp/layout: a file stands in the place of its directory" upgd_service restore "$saved" u.img/x
expect_call 1 "upgd_service: /mnt/sdz: the disk can't be opened" upgd_service backup /mnt/sdz
mkdir /mnt/sda
expect_call 1 'upgd_service: /mnt/sda: no disk is mounted there: nothing was saved' upgd_service backup /mnt/sda

# Each verb refuses the other's image, and tells which is the right one.
expect_call 1 'upgd_service: u.img: is no settings backup: apply it with "upgd_service update": nothing was touched' upgd_service restore u.img
for verb in update plan; do
    expect_call 1 'upgd_service: unit7.ubck: is a settings backup: bring it back with "upgd_service restore": nothing was touched' upgd_service $verb unit7.ubck
done

# A restore that is held at a command passes a lost terminal over, finishes after one interrupt, and leaves
# the version as it is at every moment. What outlives it holds its lock. What it has written is compared.
hold_command /bin/mkdir
begin_restore() {
    touch hold && rm -rf held restored
    env --default-signal=INT upgd_service restore unit7.ubck "$work/restored" >out 2>err &
    await 'a command of the restore' test -e held
}
begin_restore
kill -HUP $!
kill -INT $!
await 'the word of the interrupt' grep -q '^interrupted' out
rm hold
wait $!
expect 'a restore that was interrupted' '130 saved V7' "$? $(cat restored/usr/qrx310/etc/vsp/layout) $(sysconfig get fw_version)"
begin_restore
{ kill -KILL $! && wait $!; } 2>/dev/null
expect_call 1 'upgd_service: another update is at work: nothing was touched; wait for its end' timeout 20 upgd_service restore unit7.ubck
rm hold
restore_command /bin/mkdir
mkdir bin && printf '#!/bin/sh\n! test -d usr || echo other >usr/qrx310/etc/vsp/layout\necho "$*" >%s/recorded\n' "$work" >bin/sysconfig
chmod +x bin/sysconfig
PATH=$work/bin:$PATH expect_call 1 "upgd_service: $work/restored/usr/qrx310/etc/vsp/layout: other content" upgd_service restore unit7.ubck restored
expect 'the version that a restore records' 'set fw_version V7' "$(cat recorded)"

# A backup is compared, on its disk and with the settings: a copy may fail without a word.
# shellcheck disable=SC2016 # the scripts' own variables
while IFS='|' read -r script words; do
    replace_command /bin/cp "$script"
    run upgd_service backup /mnt/sda1
    expect "a backup with $script" "1 $words" "$status $(sed -n '1s/^upgd_service: //p' err | sed 's/^[^ ]*ubck: //')"
    restore_command /bin/cp
done <<'END'
"$0.real" "$@"; case $3 in /mnt/*) for f in "$3"/*.ubck; do dd if=/bin/sh of="$f" bs=1 seek=520 count=1 conv=notrunc; done ;; esac|what was saved has another CRC than its header says; make room and save again
case $2 in */qrxpara) ;; *) "$0.real" "$@" ;; esac|/usr/qrx310/etc/sysconf: was not saved
"$0.real" "$@"; case $2 in */vsp) echo other >$3/vsp/layout ;; esac|/usr/qrx310/etc/vsp/layout: other content
END
mv /usr/vorn/bin/mcu_isp .
expect_call 1 'upgd_service: u.img: not flashed: the tool /usr/vorn/bin/mcu_isp: No such file or directory' upgd_service flash 24 u.img
printf '#!/bin/sh\necho no card; exit 3\n' >/usr/vorn/bin/mcu_isp && chmod +x /usr/vorn/bin/mcu_isp
expect_call 1 'upgd_service: u.img: the tool /usr/vorn/bin/mcu_isp was called and has ended with status 3' upgd_service flash vpu-mcu u.img
expect_line err 'upgd_service: a command said: no card'
mv mcu_isp /usr/vorn/bin/
expect_call 0 '' upgd_service flash 24 u.img
cp u.img InputCardTop.bin
expect_call 1 'upgd_service: InputCardTop.bin: by its name it is for input FPGA, and not for VPU MCU: nothing was touched; rename it, or flash it with --force' upgd_service flash 24 InputCardTop.bin
expect 'what the tool was called with' $'mcu_isp\t-B\tvpu\t-C\t0x31\t-b\tu.img\t-r\t0x00' "$(grep mcu_isp /run/sandbox/calls)"

# A version that was not recorded is no success, and neither is an image that its disk has shown in
# another way behind the test. Modes do not depend on the caller, and each outcome is a line of the log.
read_mailbox /dev/log >log &
logger=$!
await 'a log' test -S /dev/log
sysconfig set fw_version V6
PATH=$work/bin:$PATH expect_call 1 "upgd_service: u.img: all of it was applied, but its version 'V7' was not recorded: fw_version is 'V6'; set it with \"sysconfig set fw_version\"" upgd_service update u.img --dir "$work/unrecorded" --cards simulate=0
hold_command /bin/mkdir
touch hold && rm -rf held
cp u.img late.img
(umask 077 && exec upgd_service update late.img --dir "$work/late" --cards simulate=0) >out 2>err &
await 'a command of the update' test -e held
perl -e 'open(F, "+<", "late.img"); local $/; $at = index(<F>, "tool\n"); seek(F, $at, 0); print F "f"'
rm hold
wait $!
expect 'an image that was changed behind its test' "1 upgd_service: $work/late/tree/bin/tool: other content 755" "$? $(head -n 1 err) $(stat -c %a late/tree/bin)"
restore_command /bin/mkdir
kill $logger
expect 'outcomes in the log' "update by user 0: image <u.img> version <V7> key none: status 1: u.img: all of it was" "$(grep -o ' update by user.*' log | cut -c 2-86 | head -n 1)"

# On a terminal: one line that fits, never goes backwards and ends at 100 %.
for columns in 80 40; do
    script -qec "stty cols $columns; exec upgd_service update u.img --dir /opt/upgddir --cards simulate=1" /dev/null |
        tr '\r' '\n' | sed 's/\x1b\[K//g' | grep ' %' >lines
    expect "width at $columns" '' "$(awk -v max=$columns 'length >= max' lines)"
    expect "percents at $columns" '' "$(grep -oE '[0-9]+ %' lines | sort -nc 2>&1)"
    expect "the end at $columns" '100 % 9/9' "$(grep -oE '[0-9]+ % 9/9' lines | tail -n 1)"
done
finish
