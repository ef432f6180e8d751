# Shared by the device tests, which run inside the sandbox with the built programs on the path.
# shellcheck shell=bash
set -uo pipefail

[[ ${SANDBOX:-} == 1 ]] || { echo 'to be run by sandbox.sh' >&2; exit 2; }

failures=0

# skip WHY: what this machine can't test. CTest shows the test as skipped, scripts/test.sh the line.
skip() {
    echo "skipped: $1"
    exit 77
}

# expect WHAT EXPECTED GOT
expect() {
    [[ $2 != "$3" ]] || return 0
    printf 'FAILED: %s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
}

# expect_line FILE LINE: the file holds this very line.
expect_line() {
    grep -qxF -- "$2" "$1" || expect "a line of $1" "$2" "$(head -c 2000 "$1")"
}

# A check that is misspelt must not pass.
command_not_found_handle() {
    echo "FAILED: there is no command $1" && kill "$$"
}

# run COMMAND...: leaves $status, and output and errors in out and err.
run() {
    "$@" >out 2>err
    # shellcheck disable=SC2034 # for the tests
    status=$?
}

# expect_call STATUS ERROR COMMAND...: the command ends so. ERROR is what the first line of its errors begins with,
# behind the program's name; '' if there is none.
expect_call() {
    local error
    run "${@:3}"
    error=$(sed 's/^[a-z_]*: //; q' err)
    [[ -z $2 ]] || error=${error::${#2}}
    expect "status and error of ${*:3}" "$1 $2" "$status $error"
}

# await WHAT COMMAND...: until the command succeeds, a minute at most.
await() {
    local what=$1 end=$((SECONDS + 60))
    shift
    until "$@"; do
        ((SECONDS < end)) || { expect 'what a minute was waited for' "$what" 'nothing'; return 1; }
        sleep 0.02
    done
}

# replace_command PATH SCRIPT: the program there becomes a shell script, which finds it as "$0.real", until
# restore_command PATH.
replace_command() {
    cp "$1" "$1.real" && rm "$1"
    printf '#!/bin/sh\n%s\n' "$2" >"$1" && chmod +x "$1"
}
restore_command() { mv "$1.real" "$1"; }

# hold_command PATH: whoever calls it leaves what it has open in the file `held` here, and waits as long as the
# file `hold` is there.
hold_command() {
    touch hold && rm -f held
    replace_command "$1" "while [ -e $work/hold ]; do
        [ -e $work/held ] || { ls -l /proc/\$\$/fd >$work/open; mv $work/open $work/held; }
        sleep 0.05
    done; exec \"\$0.real\" \"\$@\""
}

# kill_run_at COMMAND IMAGE: a run that is killed at the command, which ends by itself.
kill_run_at() {
    hold_command "$1"
    img_deploy -u "$2" -m 2 >out 2>&1 &
    await "a call of $1" test -e held
    { kill -KILL $! && wait $!; } 2>/dev/null
    rm hold
}

# overwrite FILE AT BYTES: puts BYTES, as printf(1) writes them, in the place of others.
overwrite() { printf '%b' "$3" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none; }

# completed PROGRAM WORD...: what stands to choose for the last word.
completed() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    "_$1" "$1"
    echo "${COMPREPLY[*]}"
}

flag() { cat /usr/local/upgdflag; }

# begin_log: what is sent to the log daemon goes to the file `log`.
begin_log() {
    perl -MSocket -e '$| = 1; socket(S, PF_UNIX, SOCK_DGRAM, 0); bind(S, sockaddr_un("/dev/log")) or die $!;
        print "$m\n" while defined recv(S, $m, 9999, 0)' >log &
    await 'the log' test -S /dev/log
}

progress_block() {
    perl -e 'shmread(shmget(0x600001, 16, 0) // die($!), $b, 0, 16) or die $!;
        printf "file_nums=%d cur_nums=%d result=%d cur_percent=%d\n", unpack "i4", $b'
}

make_backup() {
    mkdir -p s/usr/qrx310/etc/vsp && echo saved >s/usr/qrx310/etc/vsp/layout
    (cd s && img_deploy -c . -p 1 ../s.ubck >/dev/null)
}

lay_out_tree() {
    mkdir -p tree/bin tree/etc/deep/er tree/vorn-kernel tree/vorn-uboot tree/.hidden
    echo tool >tree/bin/tool
    echo 'hidden' >tree/.hidden/file
    # Without an X, which tests put in the place of a byte.
    LC_ALL=C tr X Y </dev/urandom | head -c 300000 >tree/etc/deep/er/data
    echo kernel >tree/vorn-kernel/zImage
    echo boot >tree/vorn-uboot/u-boot.bin
    echo card >tree/App_VPUCard.bin
    ln -s ../../bin/tool tree/etc/deep/link
    ln -s /bin/sh tree/sh
}

finish() { ((failures == 0)) || exit 1; }

work=$(mktemp -d)
cd "$work" || exit 1
