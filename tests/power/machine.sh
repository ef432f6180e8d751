#!/usr/bin/env bash
# machine.sh DISK JOB [LOG]: a virtual machine, and what its first process does: the steps of JOB, with
# a comma between them. It shares the working directory and reads the rest of this machine's files.
# DISK holds a file for each partition; with LOG each write to them is logged.
set -euo pipefail

# On the last two a backup finds room.
parts=(boot kernel root usb)
nodes=(mmcblk0p1 mmcblk0p6 root sda1)
disks=(/dev/ubd{a,b,c,d})

if ((PPID)); then
    TMPDIR=$PWD exec linux.uml mem=128M quiet ro root=/dev/root rootfstype=hostfs rootflags=/ con=null con0=fd:0,fd:1 \
        "uml_dir=$PWD/$1" umid=machine "init=$(realpath "$0")" "ubd0=$1/boot" "ubd1=$1/kernel" "ubd2=$1/root" \
        "ubd3=$1/usb" ${3:+"ubd4=$3"} "JOB=$2" "WORK=$PWD" "FILES=$FILES" "OPTIONS=$OPTIONS" "BARE=$BARE" \
        "BUSY=$BUSY" </dev/null 2>&1
fi

log_writes() {
    local i size start=0 table='' slices=''
    for i in "${!parts[@]}"; do
        size=$(blockdev --getsz "${disks[i]}")
        table+=",$start $size linear ${disks[i]} 0"
        slices+=";${parts[i]},,,rw,0 $size linear /dev/dm-1 $start"
        start=$((start + size))
    done
    dmsetup create --concise "disk,,,rw$table;log,,,rw,0 $start log-writes /dev/dm-0 /dev/ubde$slices"
    disks=(/dev/dm-{2,3,4,5})
} >/dev/null

set_up() {
    local i dir
    mount -t proc proc /proc
    mount -t tmpfs tmpfs /run
    mkdir /run/lib && ln -s /usr/lib/uml/modules /run/lib
    modprobe -d /run -a dm-log-writes vfat nls_cp437 nls_iso8859-1 f2fs loop
    [[ ! -b /dev/ubde ]] || log_writes
    for i in "${!nodes[@]}"; do cp -a "${disks[i]}" "/dev/${nodes[i]}"; done
    mount -t "$FILES" -o "$OPTIONS" /dev/root /mnt
    for dir in /usr/{bin,sbin,lib,lib64,share} /etc/alternatives /proc /dev /run; do
        mount --bind "$dir" "/mnt$dir"
    done
    mount -t hostfs -o "$WORK" hostfs /mnt/images
    [[ -z $BARE ]] || mount --bind /mnt/images/sysconfig /mnt/usr/local/bin/sysconfig
    mount -t tmpfs tmpfs /mnt/tmp
    mount -t vfat /dev/sda1 /mnt/mnt/sda1
    [[ -z $BUSY ]] || exec perl -MFcntl -e 'sysopen F, "/mnt/srv/notes", O_CREAT | O_WRONLY | O_SYNC;
        select undef, undef, undef, 0.02 while syswrite F, "note\n"' &
}

# Shows outside what the kernel finds on a root partition that is a file there.
show_state() {
    mount -t "$FILES" -o "loop,$OPTIONS" "/mnt/images/$1/root" /mnt/mnt/state || return 0
    mkdir "/mnt/images/$1/found"
    (cd /mnt/mnt/state && cp -r --parents opt etc/sysconfig usr/local usr/qrx310 "/mnt/images/$1/found")
    # It may fail to let go of a loop device that is gone already.
    umount /mnt/mnt/state 2>/dev/null || ! mountpoint -q /mnt/mnt/state
}

step() {
    local command status=0 version=${1#build}
    case $1 in
        build*) command="cd /images/$version && img_deploy -c ./tree -r $version /srv/$version.img" ;;
        sign) command="minisign -S -s /images/key -t 'product=board floor=V2' -m /srv/V2.img" ;;
        V*) command="img_deploy -u /srv/$1.img -m 2" ;;
        update) command='upgd_service update /srv/V2.img --dir /opt/upgddir' ;;
        backup) command='upgd_service backup /mnt/sda1' ;;
        change) command='mv /mnt/sda1/*.ubck /srv/settings.ubck && cp /images/changed/* /usr/qrx310/etc/vsp' ;;
        restore) command='upgd_service restore /srv/settings.ubck --allow-unsigned' ;;
    esac
    echo "machine: $1 begins"
    chroot /mnt sh -c "$command" || status=$?
    # The log takes down what has been done at a flush, for which nothing asks without barriers.
    if [[ $status == 0 && -b /dev/ubde ]]; then
        [[ $OPTIONS != *barrier=0* ]] || sync -d /dev/dm-1
        dmsetup message log 0 mark "$1"
    fi
    echo "machine: $1 ended with $status"
}

echo 'machine: up'
set_up
for name in ${JOB//,/ }; do
    if [[ $name == log* ]]; then show_state "$name"; else step "$name"; fi
done
[[ -z $BUSY ]] || { kill %% && wait; }
umount -R /mnt
[[ ! -b /dev/ubde ]] || dmsetup remove "${parts[@]}" log # which waits for the log to be written
echo 'machine: off'
perl -e 'syscall 169, 0xfee1dead, 672274793, 0x4321fedc' # reboot(2): the power is switched off
