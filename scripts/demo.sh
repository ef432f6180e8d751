#!/usr/bin/env bash
# The main job from end to end on real files: a directory tree becomes an update image, and the
# image becomes a tree again, in a sandbox that has all the device's paths. Leaves nothing behind
# but the build. Usage: scripts/demo.sh
set -euo pipefail

say() {
    printf '\n== %s\n' "$*"
}

# Trace lines without their prefixes.
messages() {
    sed 's/^\[[^]]*\] \[[^]]*\]:: //'
}

lay_out_tree() {
    local tree=$1 file
    mkdir -p "$tree"/{files,bin,.hidden,vorn-kernel,vorn-uboot}
    # The first headers of the machine's kernel interface, with their directories.
    (cd /usr/include && find linux -type f | sort | head -n 400 | tar -cf - -T -) |
        tar -xf - --no-same-owner -C "$tree/files"
    file=$(find "$tree/files" -type f | sort | tail -n 1)
    cp "$(command -v bash)" "$tree/bin/shell"
    ln -s shell "$tree/bin/sh"
    ln -s "../${file#"$tree"/}" "$tree/bin/last"
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
    echo '$ img_deploy -c ./tree -p 2 -r V2.0.0.0 update.img'
    img_deploy -c ./tree -p 2 -r V2.0.0.0 update.img >build.log
    stat -c '%n: %s bytes' update.img
    say 'its header, as the build reports it'
    messages <build.log | grep -E '^ {3}[A-Z].* : '
    say 'look into it'
    echo '$ img_info update.img'
    img_info update.img | sed -n '1,/^$/d; 1,/bin\/last/p' | tail -n 6
    echo '$ img_info --verify update.img'
    img_info --verify update.img
}

apply() {
    say 'apply it, and watch it from another process'
    echo '$ upgd_service watch & img_deploy -u update.img -m 2'
    upgd_service watch &
    img_deploy -u update.img -m 2 >run.log 2>entries.log
    wait
    grep '^(num-' entries.log >announced.log
    printf 'exit status 0; %s entries, the first and the last:\n' "$(wc -l <announced.log)"
    sed -n '1p;$p' announced.log
    messages <run.log | grep '^result'
    say 'the tree and what was unpacked differ in the empty file alone, which an image leaves out'
    diff -r --no-dereference tree /opt/upgddir/tree >differences || :
    cat differences
    [[ $(<differences) == 'Only in tree: empty' ]]
    say 'the update flag file'
    cat /usr/local/upgdflag
    say 'the recorded version'
    sysconfig get fw_version
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
    cp update.img /mnt/sda1/
    echo '$ upgd_service update /mnt/sda1/update.img --dir /opt/upgddir --cards simulate=1'
    upgd_service update /mnt/sda1/update.img --dir /opt/upgddir --cards simulate=1

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
    echo '$ upgd_service disks'
    upgd_service disks
}

show() {
    local root scratch log=/var/log/upgd_log0.txt
    root=$(realpath "$(dirname "$0")/..")
    cd "$root"
    scripts/setup.sh
    say 'build the tool'
    cmake --preset release >/dev/null
    cmake --build --preset release --target \
        img_deploy sysconfig img_info upgd_service | tail -n 1

    local build=$root/build/release
    export SANDBOX_PATH=$build/update/img_deploy:$build/platform:$build/tests:$build/companions/img_info:$build/companions/upgd_service
    scratch=$(mktemp -d)
    # shellcheck disable=SC2064 # these are its values at this place
    trap "rm -rf '$scratch'" EXIT
    cd "$scratch"
    if "$root/tests/sandbox.sh" --check; then
        "$root/tests/sandbox.sh" "$BASH" "$root/scripts/demo.sh" --in-sandbox
    else
        # The tool keeps its trace log in a fixed place; what stands there is put back.
        [[ ! -e $log ]] || cp -p "$log" kept.log
        # shellcheck disable=SC2064
        trap "rm -f '$log'; [[ ! -e kept.log ]] || mv kept.log '$log'; rm -rf '$scratch'" EXIT
        PATH=$SANDBOX_PATH:$PATH
        build
        say 'the image is not applied: without the sandbox that would change this machine'
    fi
}

if [[ ${1:-} == --in-sandbox ]]; then
    build
    apply
    if [[ $SANDBOX_PRIVILEGED == 1 ]]; then
        plug_in_disk
        serve
    else
        say 'the service update and the backup are not shown: only root can plug a disk in'
    fi
else
    show
fi
