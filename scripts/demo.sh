#!/usr/bin/env bash
# The main job from end to end on real files: a directory tree becomes an update image, and the
# image becomes a tree again, in a sandbox that has all the device's paths; then what goes wrong, and
# what the tools say. Leaves nothing behind but the build. Usage: scripts/demo.sh
set -Eeuo pipefail
trap 'echo "demo.sh: line $LINENO failed with status $?, in the step: $step" >&2' ERR
step='install what is missing'

say() {
    step=$*
    printf '\n== %s\n' "$*"
}

# Shows a call, and makes it.
call() {
    printf '$ %s\n' "$*"
    "$@"
}

# Trace lines without their prefixes.
messages() {
    sed 's/^\[[^]]*\] \[[^]]*\]:: //'
}

# A call as a person sees it at a terminal, and its exit status; what it prints for programs goes to
# the files run.log and entries.log.
at_terminal() {
    local command=$1 status=0
    printf '$ %s\n' "$command"
    script -qec "$command" /dev/null </dev/null >terminal || status=$?
    tr '\r' '\n' <terminal | grep -vE '^(\(num-.*|\[.*|.* (records (in|out)|copied, .*))?$' || :
    printf 'exit status %s\n' "$status"
}

lay_out_tree() {
    local tree=$1 file
    mkdir -p "$tree"/{files,bin,.hidden,vorn-kernel,vorn-uboot}
    # The first headers of the machine's kernel interface, with their directories. sed(1) reads all
    # names: head(1) would leave sort(1) without a reader, which kills it.
    (cd /usr/include && find linux -type f | sort | sed -n 1,250p | tar -cf - -T -) |
        tar -xf - --no-same-owner -C .
    # Two links beside each, since a link is a command of the update, which is what takes time in one;
    # and all in the order of their names, so that bytes and commands alternate.
    find linux -type f | while read -r file; do
        ln -s "${file##*/}" "$file.1"
        ln -s "${file##*/}" "$file.2"
    done
    tar --sort=name -cf - linux | tar -xf - --no-same-owner -C "$tree/files"
    rm -r linux
    cp /bin/dash "$tree/bin/shell"
    ln -s shell "$tree/bin/sh"
    ln -s /bin/true "$tree/bin/true"
    echo 'a hidden setting' >"$tree/.hidden/setting"
    : >"$tree/empty"
    head -c 70000 /dev/urandom >"$tree/App_VPUCard.bin"
    head -c 200000 /dev/urandom >"$tree/vorn-uboot/u-boot.bin"
    head -c 400000 /dev/urandom >"$tree/vorn-kernel/zImage"
}

build() {
    say 'build an image from a tree'
    lay_out_tree tree
    printf '%s files and links in %s directories, %s\n' "$(find tree ! -type d | wc -l)" \
        "$(find tree -mindepth 1 -type d | wc -l)" "$(du -sh tree | cut -f 1)"
    echo '$ IMG_DEPLOY_EXPLAIN=1 img_deploy -c ./tree -p 2 -r V2.0.0.0 update.img'
    # shellcheck disable=SC2069 # the sentence alone is shown
    IMG_DEPLOY_EXPLAIN=1 img_deploy -c ./tree -p 2 -r V2.0.0.0 update.img 2>&1 >build.log
    say 'look into it'
    echo '$ img_info update.img'
    img_info update.img >listing
    sed '/^$/,$d' listing
    echo ...
    grep -E 'bin/(sh|true|shell)|vorn-|App_' listing
    call img_info --verify update.img
}

apply() {
    local pid
    say 'apply it, and watch it from another process'
    echo '$ upgd_service watch & img_deploy -u update.img -m 2'
    if [[ -t 1 ]]; then
        upgd_service watch &
    else # some of the pictures that a terminal would have shown one after the other
        script -qec 'upgd_service watch' watched </dev/null >/dev/null &
    fi
    pid=$!
    sleep 0.2
    img_deploy -u update.img -m 2 >run.log 2>entries.log
    wait "$pid"
    [[ -t 1 ]] || tr '\r' '\n' <watched | sed 's/\x1b\[[0-9;]*[A-Za-z]//g; s/ *$//' |
        grep -E '%|[a-z]' | grep -v '^Script ' | awk '!seen[$0]++' >pictures
    [[ -t 1 ]] || awk -v n="$(wc -l <pictures)" 'NR == 1 || NR == n || NR % (int(n / 6) + 1) == 0' pictures
    grep '^(num-' entries.log >announced.log
    printf 'exit status 0; %s entries, the first and the last:\n' "$(wc -l <announced.log)"
    sed -n '1p;$p' announced.log
    messages <run.log | grep '^result'
    say 'the tree and what was unpacked differ in the empty file alone, which an image leaves out'
    diff -r --no-dereference tree /opt/upgddir/tree >differences || :
    cat differences
    [[ $(<differences) == 'Only in tree: empty' ]]
    say 'the update flag file, and the recorded version'
    cat /usr/local/upgdflag
    call sysconfig get fw_version
    say 'the boot loader partition begins with the boot loader'
    cmp -n "$(stat -c %s tree/vorn-uboot/u-boot.bin)" tree/vorn-uboot/u-boot.bin /dev/mmcblk0p1
    od -An -tx1 -N16 /dev/mmcblk0p1
    if [[ $SANDBOX_PRIVILEGED == 1 ]]; then
        say 'the kernel partition, unmounted and mounted again elsewhere'
        umount /mntker
        mkdir kernel
        mount -o ro /dev/mmcblk0p6 kernel
        cmp tree/vorn-kernel/zImage kernel/zImage
        find kernel -type f -printf '%p: %s bytes\n'
    else
        say 'the kernel partition is not shown: only root can mount it'
    fi
}

# What is wrong with an image, or with the board, and what a person is told.
go_wrong() {
    local middle byte
    say 'a cut image: refused before anything is touched'
    head -c -1000 update.img >cut.img
    call img_info --verify cut.img || printf 'exit status %s\n' $?
    at_terminal 'img_deploy -u cut.img -m 2 >run.log'

    say 'one flipped byte in the middle: img_deploy would not see it, so look first'
    cp update.img flipped.img
    middle=$(($(stat -c %s update.img) / 2))
    byte=$(od -An -tu1 -j "$middle" -N 1 update.img)
    printf '%b' "\\0$(printf %o $((byte ^ 1)))" |
        dd of=flipped.img bs=1 seek="$middle" conv=notrunc status=none
    echo '$ img_info --verify flipped.img && img_deploy -u flipped.img -m 2'
    # shellcheck disable=SC2015 # the second is not to be run
    img_info --verify flipped.img && img_deploy -u flipped.img -m 2 || printf 'exit status %s\n' $?
    call upgd_service update flipped.img --dir /opt/upgddir || printf 'exit status %s\n' $?

    say 'a full disk: the run ends at the entry that does not fit, and the log names it'
    rm -rf /opt/upgddir
    mkdir /opt/upgddir
    mount -t tmpfs -o size=600k tmpfs /opt/upgddir
    sysconfig set fw_version V1.0.0.0
    at_terminal 'img_deploy -u update.img -m 2 >run.log'
    grep -m 1 'failed' run.log | messages
    call sysconfig get fw_version
    umount /opt/upgddir
}

# A USB disk is a file system below /mnt/ whose device the kernel lists.
plug_in_disk() {
    mkdir -p /mnt/sda1 /mnt/root /dev/disk/by-label
    mount -t tmpfs -o size=150m tmpfs /mnt/sda1
    echo '   8       1 sda1 1 2 3' >stats
    mount --bind stats /proc/diskstats
    ln -s ../../sda1 '/dev/disk/by-label/FIELD\x20KIT'
    # The backup measures the room on the root file system by this name.
    mount -t tmpfs -o size=200m /dev/root /mnt/root
}

serve() {
    say 'a service update from a USB disk, with simulated cards'
    find tree/files -type l -delete
    img_deploy -c ./tree -r V2.0.0.1 /mnt/sda1/update.img >build.log
    call upgd_service update /mnt/sda1/update.img --dir /opt/upgddir --cards simulate=1

    say 'save the settings to the disk, change them, bring them back'
    mkdir -p /usr/qrx310/etc/{mcucored,vsp,sysconf}
    echo 'brightness 7' >/usr/qrx310/etc/vsp/screen
    sysconfig set device_name unit7
    echo '$ upgd_service backup /mnt/sda1'
    upgd_service backup /mnt/sda1 | tee backup
    echo 'brightness 0' >/usr/qrx310/etc/vsp/screen
    echo '$ upgd_service restore ...'
    upgd_service restore "$(<backup)"
    cat /usr/qrx310/etc/vsp/screen
    grep -qx 'brightness 7' /usr/qrx310/etc/vsp/screen

    say 'the disk'
    call upgd_service disks
}

show() {
    local root scratch log=/var/log/upgd_log0.txt
    root=$(realpath "$(dirname "$0")/..")
    cd "$root"
    scripts/setup.sh
    say 'build the four programs and the libraries in them, and none of the tests'
    cmake --preset release >/dev/null
    cmake --build --preset release --target img_deploy sysconfig img_info upgd_service | tail -n 1

    scratch=$(mktemp -d)
    # shellcheck disable=SC2064 # these are its values at this place
    trap "rm -rf '$scratch'" EXIT
    cd "$scratch"
    unset SANDBOX_PATH
    step='run it in the sandbox'
    if "$root/tests/sandbox.sh" true; then
        "$root/tests/sandbox.sh" "$BASH" "$root/scripts/demo.sh" --in-sandbox
    else
        # The tool keeps its trace log in a fixed place; what stands there is put back.
        [[ ! -e $log ]] || cp -p "$log" kept.log
        # shellcheck disable=SC2064
        trap "rm -f '$log'; [[ ! -e kept.log ]] || mv kept.log '$log'; rm -rf '$scratch'" EXIT
        PATH=$root/build/release/update/img_deploy:$root/build/release/companions/img_info:$PATH
        build
        say 'the image is not applied: without the sandbox that would change this machine'
    fi
}

if [[ ${1:-} == --in-sandbox ]]; then
    build
    apply
    go_wrong
    if [[ $SANDBOX_PRIVILEGED == 1 ]]; then
        plug_in_disk
        serve
    else
        say 'the service update and the backup are not shown: only root can plug a disk in'
    fi
else
    show
fi
