#!/usr/bin/env bash
# faults.sh SHIM OPERATION...: each operation with each of its calls to the system failing once, and
# each that moves data also coming up short and interrupted. It fails and says so, or its outcome is
# whole and right. A failure is followed by a run without one, which must end well.
# shellcheck disable=SC2034 # the operations are used by their names
. "$(dirname "$0")/lib.sh"
shopt -s extglob

shim=$1
shift
export FAULT_REPORT=$work/fault
# The shim comes ahead of a sanitizer's runtime, which can do with that.
export ASAN_OPTIONS=verify_asan_link_order=0
# Hundreds of runs are not to reach the disks of the whole machine.
ln -sf true /bin/sync
# Without the partition the kernel goes to the directory beside it.
rm /dev/mmcblk0p6

mkdir -p tree/bin tree/vorn-kernel tree/vorn-uboot old/tree/vorn-uboot /etc/sysconfig
echo tool >tree/bin/tool
head -c 3000 /dev/urandom >tree/vorn-kernel/zImage
head -c 2000 /dev/urandom >tree/vorn-uboot/u-boot.bin
head -c 4000 /dev/urandom >old/tree/vorn-uboot/u-boot.bin # longer than what comes in its place
ln -s bin/tool tree/link

# plain COMMAND...: in the standing time of the shim.
plain() { FAULT_AT=0 LD_PRELOAD=$shim run "$@"; }
plain img_deploy -c ./tree -r V2 update.img

# --- The operations: how each is called, the statuses that tell of a failure, what it finds, and
# what then holds after a failure and after a success. Each prints what does not hold.
conf=/etc/sysconfig/device.conf

build=(255 img_deploy -c ./tree -r V2 made.img)
build_before() { rm -f made.img; }
# It is not taken for an image, unless it is all there.
build_failed() { cmp -s update.img made.img || ! img_deploy -u made.img -m 2 | grep 'check img ok'; }
build_right() { cmp update.img made.img; }

apply=('246|242|251|252|253' img_deploy -u update.img -m 2)
apply_before() {
    service_before
    echo 2 >/usr/local/upgdflag
}
apply_failed() {
    service_failed
    progress_block | grep -v result=2
    ! grep 2 /usr/local/upgdflag
}
apply_right() {
    service_right
    progress_block | grep -v result=1
    grep -q 2 /usr/local/upgdflag || echo 'the flag'
}

service=(3 fault_driver service "$work/update.img")
service_before() {
    rm -rf /opt/upgddir /mntker
    cp -r old /opt/upgddir
    : >/dev/mmcblk0p1
    echo fw_version=V1 >$conf
}
service_failed() { [[ $(<$conf) == fw_version=V1 ]] || echo 'the version'; }
service_right() {
    diff -r --no-dereference tree /opt/upgddir/tree
    cmp tree/vorn-uboot/u-boot.bin /dev/mmcblk0p1
    cmp tree/vorn-kernel/zImage /mntker/zImage
    [[ $(<$conf) == fw_version=V2 ]] || echo 'the version'
}

compress=(3 fault_driver compress body.img)
compress_before() {
    cp update.img body.img
    cat update.img update.img >/tmp/tmppfile # left by a failure, as this is
    gzip -c tree/bin/tool >/tmp/tmppfile.gz
}
compress_failed() { cmp update.img body.img; }
compress_right() { { head -c 488 body.img && tail -c +489 body.img | gunzip; } | cmp - update.img; }

configure=(1 sysconfig set b new)
settings() { printf 'a=1\nb=%s\nc=3\n' "$1"; }
configure_before() { settings old >$conf; }
configure_failed() { settings new | cmp -s - $conf || settings old | cmp - $conf; }
configure_right() { settings new | cmp - $conf; }

# Whether "OPERATION: CALL: WHAT DOES NOT HOLD" is to be, by the words of the header named.
unnoticed() {
    case $1 in
        # entry_writer.h and tree_walk.h: a file or directory that is not in the image
        build:\ @(open|opendir|fstat|lstat|readlink)\ *tree/*' differ'*) ;;
        # apply_engine.h: refused without a progress block, which has an earlier run's result
        apply:\ shmat\ *' result=1 cur_percent=100') ;;
        # create_image.h: without its CRC
        build:\ mmap\ *'made.img: '*'check img ok'*) ;;
        # update_flag.h and installer.h: commands that are not looked at
        apply:*'spawn /bin/echo 2 '*': the flag') ;;
        *'spawn '*'mkdir -p /mntker: cmp: /mntker/zImage: No such file'*) ;;
        *'spawn sysconfig set fw_version V2: the version') ;;
        # unpack.h: a link that could not be made
        *'/bin/ln -sf bin/tool link: File tree/link is a symbolic link while file '*) ;;
        *) return 1 ;;
    esac
}

# strike OPERATION N KIND: false if the operation makes fewer calls.
strike() {
    local -n operation=$1
    "$1_before"
    rm -f fault
    FAULT_AT=$2 FAULT_KIND=$3 LD_PRELOAD=$shim run "${operation[@]:1}"
    [[ -e fault ]] || return 1
    call=$(<fault)
    if ((status == 0)); then
        "$1_right"
    elif [[ $3 == fail && $status =~ ^(${operation[0]})$ ]]; then
        "$1_failed"
    else
        echo "status $status" && tail -n 3 err
    fi >wrong 2>&1
    grep '^held: ' err >>wrong
    ((status != 0)) || [[ -s wrong ]] || return 0
    [[ ! -s wrong ]] || unnoticed "$1: $call: $(<wrong)" ||
        expect "$1, $3 of $2, $call" '' "$(<wrong)"
    plain "${operation[@]:1}"
    expect "$1 after $3 of $2, $call" '0 ' "$status $("$1_right" 2>&1)"
}

# walk OPERATION
walk() {
    local n moves=0
    for ((n = 1; ; n++)); do
        strike "$1" "$n" fail || break
        [[ $call == @(read|pread|write)\ * ]] || continue
        strike "$1" "$n" short
        strike "$1" "$n" interrupted
        moves=$((moves + 1))
    done
    expect "$1 without a fault" '0 ' "$status $("$1_right" 2>&1)"
    ((n > 10 && moves > 0)) || expect "$1: calls that failed" many "$n, $moves"
}

for name; do walk "$name"; done
finish
