#!/usr/bin/env bash
# The command line of img_deploy and its exit status, the flag file and the trace log.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

program=$(command -v img_deploy)
usage="Usage: $program [OPTION...] eFILE]...
Create Update File:
    $program -c [DIR] [FILE] -p [1|2|3] [rootfs|nandfs|custom]...
Upgrade:
    $program -u [FILE] -m [1(reboot)|2(online)]  ...
Show Image:
    $program -s [FILE] ...
Eg:
    img_deploy -c /nand -p 1 update.img 
    img_deploy -c /nand -p 3 update.img  /
    img_deploy -u update.img "

mkdir tree && echo x >tree/f

# expect_call STATUS ERRORS ARGUMENT...
expect_call() {
    local expected=$1 errors=$2
    shift 2
    run "$program" "$@"
    expect "status of $*" "$expected" "$status"
    expect "errors of $*" "$errors" "$(cat err)"
}

unsupported="$program: not Support
$usage"
expect_call 1 "$unsupported"
expect_call 1 "$unsupported" -s some.img
expect_call 1 "$unsupported" -v -m 2 -p 1 -r V2 -C anything
expect_call 1 "$program: invalid option -- 'x'
$usage" -x
expect_call 1 "$program: option requires an argument -- 'u'
$usage" -u
expect_call 1 "$usage" -c tree
expect_call 1 "$usage" -c tree -p 3 out.img
expect_call 1 "$usage" -p 3 out.img -c tree
expect_call 255 'Invalid mode: 2x' -m 2x -u x.img
expect_call 255 'Invalid mode: reboot' -m reboot
expect 'no image is made by a wrong call' '' "$(find . -name '*.img')"
expect 'no run is begun by a wrong call' none "$(flag)"

# Builds: the place in every notation, also what is no place.
place() {
    od -An -tx1 -j32 -N4 out.img | tr -d ' '
}
for row in '1 00000001' '0x3 00000003' '010 00000008' '4 00000004' 'none 00000000' '2x 00000002'; do
    read -r given stored <<<"$row"
    expect_call 0 '' -p "$given" -c ./tree out.img /to ignored
    expect "place of -p $given" "$stored" "$(place)"
done
expect_call 0 '' -c ./tree out.img
expect 'place without -p' 00000002 "$(place)"
expect_call 0 '' -m 0x2 -c ./tree out.img -r V9.8
expect 'version' V9.8 "$(tail -c +425 out.img | head -c 4)"
expect_call 255 '' -c missing out.img
expect_call 255 '' -c tree /missing/out.img

# A person at a terminal is told in one sentence; a pipe, as above, is not.
script -qec 'img_deploy -c missing out.img; img_deploy -m 2 -u missing.img' /dev/null </dev/null | tr -d '\r' |
    grep '^img_deploy: ' >sentences
expect 'sentences on a terminal' \
    'img_deploy: out.img was not built from missing: No such file or directory; mend that and build it again
img_deploy: missing.img was not applied: No such file or directory; mend that and apply it again' \
    "$(cat sentences)"
rm -f /usr/local/upgdflag

# Closed standard streams: no line goes into the image.
cp out.img whole.img
img_deploy -c ./tree -r V9.8 out.img >&- 2>&- <&-
expect 'an image made without standard streams' "0 $(stat -c %s whole.img)" "$? $(stat -c %s out.img)"
POSIXLY_CORRECT=1 img_deploy -c ./tree out.img -p 7 >/dev/null
expect 'an option behind the arguments' 00000007 "$(place)"
img_deploy -u out.img -m 4294967297 >/dev/null 2>&1
expect 'a mode beyond all numbers' '0 ' "$? $(cat /run/sandbox/calls)"
rm -r /opt/upgddir /usr/local/upgdflag
img_deploy -c ./tree -r V9.8 out.img >/dev/null

# The later option of -u, -c and -s decides.
expect_call 246 '' -m 2 -u out.img -s missing.img
expect_line <(messages out) 'error, access.'
expect_call 0 '(num-0)/opt/upgddir/tree/f type(0), size(2)' -c tree -m 2 -u out.img
expect 'what was unpacked' x "$(cat /opt/upgddir/tree/f)"

# The flag file: 1 after a failure, removed and made anew, 2 at the end of a run that went well.
rm /usr/local/upgdflag
for row in '246 missing.img 1' '0 out.img 2' '246 missing.img 1' '0 out.img 2'; do
    read -r expected image value <<<"$row"
    run "$program" -u "$image" -m 2
    expect "status with $image" "$expected" "$status"
    expect "flag file after $image" "$value" "$(flag)"
done
rm -r /usr/local/upgdflag && mkdir /usr/local/upgdflag
run "$program" -u out.img -m 2
expect 'a directory in the place of the flag file' '0 2' "$status $(flag)"

# Each process begins the first log file anew; both sinks show the same.
echo old >/var/log/upgd_log0.txt
echo other >/var/log/upgd_log1.txt
run "$program" -c ./tree out.img
expect 'the other log file' other "$(cat /var/log/upgd_log1.txt)"
expect 'log file and standard output' "$(cat out)" "$(cat /var/log/upgd_log0.txt)"
expect_line <(messages out) '   Image Name       : Vorn Video Systems firmware package'
grep -qE "^\[[0-9]{4}(/[0-9]{2}){2} ([0-9]{2}:){2}[0-9]{2}\.[0-9]{3} pid=[0-9]+\] \[ update/dtt_update_common/ +print_image_hdr/ +[0-9]+ \]::    Files            : 1$" out ||
    expect 'a prefix' 'date, time, process, place' "$(cat out)"
rm -r /var/log && touch /var/log
run "$program" -c ./tree out.img
expect 'without a log directory' '0 11' "$status $(grep -c ':: ' out)"
finish
