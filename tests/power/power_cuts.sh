#!/usr/bin/env bash
# power_cuts.sh CUTS STATES [SEED]: what a power cut leaves of an update and of a backup.
#
# A virtual machine that runs as a process of an ordinary user shows the device's paths to the built
# programs, on a disk image of its own, and everything else of this machine for reading only. Killed,
# it loses what its kernel has not written yet, as at a power cut. CUTS runs are cut at a random
# moment, looked at from outside, and followed by a run that has to end well. Two runs more log each
# write to their disk, as a disk with a cache keeps it that loses what has not been flushed; the logs
# are replayed to STATES random points. Every second cut and log is of a board whose own `sysconfig`
# leaves it to the kernel when its file is written.
set -uo pipefail
export PATH=${SANDBOX_PATH:+$SANDBOX_PATH:}$PATH:/usr/local/bin:/usr/sbin:/sbin

# The partitions of the device's disk, and a USB disk, in sectors of 512 bytes. On the last two a
# backup finds room. Each is a file outside, and a device of the machine.
parts=(boot kernel root usb)
nodes=(mmcblk0p1 mmcblk0p6 root sda1)
sizes=(4096 32768 327680 262144)

# --- inside the machine, whose first process this is -------------------------

# One disk under all partitions, whose writes are logged.
log_writes() {
    local i start=0 table='' disks=(/dev/ubd{a,b,c,d})
    for i in "${!parts[@]}"; do
        table+="$start ${sizes[i]} linear ${disks[i]} 0"$'\n'
        start=$((start + sizes[i]))
    done
    dmsetup create disk <<<"$table"
    dmsetup create log --table "0 $start log-writes /dev/dm-0 /dev/ubde"
    start=0
    for i in "${!parts[@]}"; do
        dmsetup create "${parts[i]}" --table "0 ${sizes[i]} linear /dev/dm-1 $start"
        start=$((start + sizes[i]))
    done
} >/dev/null

set_up() {
    local i dir disks=(/dev/ubd{a,b,c,d})
    mount -t proc proc /proc
    mount -t tmpfs tmpfs /run
    mkdir /run/lib
    ln -s /usr/lib/uml/modules /run/lib
    modprobe -d /run -a dm-log-writes vfat nls_cp437 nls_iso8859-1
    [[ ! -b /dev/ubde ]] || { log_writes && disks=(/dev/dm-{2,3,4,5}); }
    for i in "${!nodes[@]}"; do cp -a "${disks[i]}" "/dev/${nodes[i]}"; done
    # What has been written waits for its turn much longer than the names of the files.
    mount -t ext4 -o commit=1 /dev/root /mnt
    for dir in usr/{bin,sbin,lib,lib64,share} etc/alternatives proc dev run; do
        mount --bind "/$dir" "/mnt/$dir"
    done
    mount -t hostfs -o "$OUTSIDE" hostfs /mnt/images
    [[ -z ${BARE:-} ]] || mount --bind /mnt/images/sysconfig /mnt/usr/local/bin/sysconfig
    mount -t tmpfs tmpfs /mnt/tmp
    mount -t vfat /dev/sda1 /mnt/mnt/sda1
}

step() {
    local status command="img_deploy -u /srv/$1.img -m 2"
    case $1 in
        build*) command="cd /images/${1#build} && img_deploy -c ./tree -r ${1#build} /srv/${1#build}.img" ;;
        backup) command='upgd_service backup /mnt/sda1' ;;
    esac
    chroot /mnt sh -c "$command"
    status=$?
    # Everything that a good report tells of has to stand ahead of the mark.
    [[ $status != 0 || ! -b /dev/ubde ]] || dmsetup message log 0 mark "$1"
    echo "machine: $1 ended with $status"
}

if [[ -n ${JOB:-} ]]; then
    echo 'machine: up'
    set -e # the machine stops when its first process ends
    set_up
    set +e
    for name in ${JOB//,/ }; do step "$name"; done
    umount -R /mnt
    [[ ! -b /dev/ubde ]] || dmsetup remove "${parts[@]}" log # which waits for the log to be written
    echo 'machine: off'
    sleep 60
fi

# --- the machine from outside -------------------------------------------------

clean_up() {
    local file
    for file in "$work"{,/*,/*/*}/machine/pid; do
        [[ ! -f $file ]] || kill -KILL -- "-$(<"$file")"
    done
    rm -rf "$work"
}

skip() {
    echo "power cuts: not available: $1" >&2
    exit 77
}

fault() {
    printf 'FAILED: %s%s\n' "${bare:+bare sysconfig, }" "$1" | tee -a "$work/faults"
}

# start DISK JOB [LOG]: its console can be read from $console.
start() {
    exec {console}< <(TMPDIR=$work exec linux.uml mem=128M quiet ro \
        root=/dev/root rootfstype=hostfs rootflags=/ "uml_dir=$dir" umid=machine con=null \
        con0=fd:0,fd:1 "init=$script" "ubd0=$1/boot" "ubd1=$1/kernel" "ubd2=$1/root" \
        "ubd3=$1/usb" ${3:+"ubd4=$3"} "JOB=$2" "OUTSIDE=$work" "BARE=$bare" </dev/null 2>&1)
    machine=$!
    : >"$dir/console"
}

# follow TEXT: reads on to a line with the text; fails if the machine ends or is silent for a minute.
follow() {
    local line
    while IFS= read -r -t 60 -u "$console" line; do
        printf '%s\n' "$line" >>"$dir/console"
        [[ $line != *"$1"* ]] || return 0
    done
    return 1
}

# It has made a process group for itself and all that it runs; the last of them may still write.
cut_power() {
    local tries
    kill -KILL -- "-$machine"
    wait "$machine"
    for ((tries = 0; tries < 500; tries++)); do
        kill -0 -- "-$machine" || break
        sleep 0.01
    done
    exec {console}<&-
    rm -rf "$dir/machine"
} 2>/dev/null

# run_through WHAT DISK JOB [LOG]: a run of the machine in which each step of the job ends well.
run_through() {
    local name
    start "${@:2}"
    for name in ${3//,/ }; do
        follow "machine: $name ended with 0" || { fault "$1: $name: $(tail -n 5 "$dir/console")"; break; }
    done
    follow 'machine: off' || fault "$1: the machine did not stop"
    cut_power
}

# ln(1) makes a link under a name of its own, which it then gives the link's.
tree_sums() {
    (cd "$1" && find . -type f -exec md5sum {} + &&
        find . -type l ! -name 'Cu??????' -printf 'link to %l  %p\n')
}

# not_of VERSION: what in $found is not as after its run.
not_of() {
    grep -m 3 -vxFf "$found/sums" "$work/$1.sums"
    cmp "$work/$1/tree/vorn-kernel/zImage" "$found/kernel/zImage"
    cmp "$work/$1/tree/vorn-uboot/u-boot.bin" "$found/boot"
} 2>&1

# look DISK WHAT REPORTED: what is on the disk, where REPORTED of the steps V2 and backup have been
# reported to have ended well.
look() {
    local disk=$1 what=$2 reported=$3 found=$1.found part version flag wrong damaged file
    mkdir -p "$found/root" "$found/kernel"
    for part in root kernel; do
        e2fsck -p "$disk/$part" >"$found/fsck" 2>&1 || (($? == 1)) || fault "$what: $part: $(<"$found/fsck")"
        e2fsck -fn "$disk/$part" >"$found/fsck" 2>&1 || fault "$what: $part: $(<"$found/fsck")"
    done
    debugfs -R "rdump / $found/kernel" "$disk/kernel" >/dev/null 2>&1
    debugfs -R "rdump opt usr/local etc/sysconfig $found/root" "$disk/root" >/dev/null 2>&1
    head -c "$(stat -c %s "$work/V1/tree/vorn-uboot/u-boot.bin")" "$disk/boot" >"$found/boot"
    tree_sums "$found/root/opt/upgddir" >"$found/sums"
    damaged=$(grep -vcxFf "$work/sums" "$found/sums")
    version=$(sed -n 's/^fw_version=//p' "$found/root/sysconfig/device.conf")
    cmp -s "$found/root/sysconfig/device.conf" "$work/$version.conf" || fault "$what: configuration"
    file=$found/root/local/upgdflag
    flag=none
    [[ ! -e $file ]] || flag=$(<"$file")
    wrong=$(not_of "$version")
    echo "$version $((${#wrong} > 0)) $damaged" >>"$work/looks"

    [[ $flag =~ ^(none||1|2)$ ]] || fault "$what: flag file: $flag"
    # A run that has been started and not recorded has left a mix of both.
    [[ -z $wrong || $version$flag == V11 ]] ||
        fault "$what: version $version, flag '$flag', but not of it: $wrong"
    ((damaged < 2)) || fault "$what: damaged: $(grep -m 5 -vxFf "$work/sums" "$found/sums")"
    ((reported == 0)) || [[ $version$flag == V22 ]] || fault "$what, reported: $version, flag $flag"
    mcopy -i "$disk/usb" '::*.ubck' "$found" 2>/dev/null
    file=$(compgen -G "$found/*.ubck")
    # One that was cut is refused for its length.
    [[ -z $file ]] || img_info --verify "$file" >"$found/findings" 2>&1 || {
        ((reported < 2)) && grep -q ': is empty\|: is too short\|bytes, the file has' "$found/findings"
    } || fault "$what: backup: $(stat -c %s "$file") bytes, $(head -n 3 "$found/findings")"
    [[ $reported != 2 || -n $file ]] || fault "$what: the backup that was reported is missing"
    rm -rf "$found" "$disk"
}

# outlive DISK WHAT REPORTED: the same, and again when the next run has ended.
outlive() {
    local dir=$1.dir
    mkdir "$dir"
    cp -r --sparse=always "$1" "$1.cut"
    look "$1.cut" "$2" "$3"
    run_through "the run after $2" "$1" V2
    look "$1" "the run after $2" 1
    rm -rf "$dir"
}

make_disk() {
    local device=$work/device version i
    mkdir -p "$device"/{etc/{sysconfig,alternatives},usr/{bin,sbin,lib,lib64,share,local/bin}} \
        "$device"/{proc,dev,run,tmp,images,srv,opt,var/log,mnt/sda1} \
        "$device"/usr/qrx310/etc/{mcucored,vsp,sysconf/qrxpara}
    ln -s usr/bin usr/sbin usr/lib usr/lib64 "$device"
    cp "$(command -v img_deploy)" "$(command -v sysconfig)" "$(command -v upgd_service)" \
        "$device/usr/local/bin"
    seq 200000 >"$device/usr/qrx310/etc/vsp/settings"
    for version in V1 V2; do
        mkdir -p "$work/$version"/tree/{etc,bin,vorn-kernel,vorn-uboot}
        cd "$work/$version/tree" || exit
        for i in {1..150}; do
            printf "$version file $i %*s" $((i * 997 % 9000)) end >"etc/file$i"
        done
        for i in {1..5}; do ln -s "../etc/file$i${version#V}" "bin/link$i"; done
        echo "$version alone" >"etc/$version"
        head -c 3000000 /dev/urandom >etc/data
        head -c 1000000 /dev/urandom >vorn-kernel/zImage
        head -c 500000 /dev/urandom >vorn-uboot/u-boot.bin
        cd "$work" || exit
        { echo device_name=board && echo fw_version=$version && seq -f 'key%g=value' 100; } \
            >$version.conf
        tree_sums $version >$version.sums
    done
    cat V1.sums V2.sums >sums
    # So slow that the kernel writes its file, but not yet those of file systems that commit later.
    cat >sysconfig <<'TOOL'
#!/bin/sh
sed -i "s/^$2=.*/$2=$3/" /etc/sysconfig/device.conf && sleep 1.2
echo 'sysconfig: done' && sleep 0.2
TOOL
    chmod 755 sysconfig
    sed s/V1/V0/ V1.conf >"$device/etc/sysconfig/device.conf"
    mkdir disk
    for i in "${!parts[@]}"; do truncate -s $((sizes[i] * 512)) "disk/${parts[i]}"; done
    mke2fs -q -t ext4 -E root_owner=0:0 -d "$device" disk/root
    mke2fs -q -t ext4 -E root_owner=0:0 disk/kernel
    mformat -i disk/usb -T "${sizes[3]}" ::
    start disk buildV1,buildV2,V1
    follow 'machine: up' || skip "the machine does not start: $(tail -n 1 "$dir/console")"
    { follow 'machine: V1 ended with 0' && follow 'machine: off'; } ||
        fault "ahead of all cuts: $(tail -n 5 "$dir/console")"
    cut_power
}

# cut_runs FIRST: every second cut of all.
cut_runs() {
    local cut disk moment reported dir=$work/cuts$1 bare
    mkdir "$dir"
    RANDOM=$((seed + $1))
    for ((cut = $1; cut < cuts; cut += 2)); do
        disk=$dir/disk
        cp -r --sparse=always "$work/disk" "$disk"
        reported=0
        bare=$((cut & 2)) bare=${bare#0} # both have as many of the slow ones
        case $((RANDOM % 4)) in
            0 | 1) moment="(num-$((RANDOM % entries)))" ;;
            2) moment=${bare:+sysconfig: done} moment=${moment:-update successful} ;;
            3) moment='V2 ended with 0' reported=1 ;;
        esac
        start "$disk" V2
        follow "$moment" || fault "cut $cut: no '$moment': $(tail -n 5 "$dir/console")"
        ((reported)) || sleep "0.$(printf %03d $((RANDOM % 200)))"
        grep -q 'V2 ended with 0' "$dir/console" && reported=1
        cut_power
        outlive "$disk" "cut $cut, at '$moment'" $reported
    done
}

# replay LOG STATES: the log has a sector that says how many entries there are, and then for each
# entry a sector with its target, length in sectors and flags, and its data.
replay() {
    local log count i part how reported=0 states=$2 state=$work/state sector length flags
    exec {log}<"$1"
    read -r _ _ count _ < <(od -An -v -w32 -t u8 -N 512 <&"$log")
    rm -rf "$state"
    cp -r --sparse=always "$work/disk" "$state"
    ((states < count)) || states=$count
    looked=$((looked + states))
    for ((i = 0; i < count; i++)); do
        read -r sector length flags _ < <(od -An -v -w32 -t u8 -N 512 <&"$log")
        for ((part = 0; part < 3 && sector >= sizes[part]; part++)); do sector=$((sector - sizes[part])); done
        ((length == 0)) || dd bs=512 iflag=fullblock count="$length" seek="$sector" conv=notrunc \
            of="$state/${parts[part]}" status=none <&"$log"
        ((!(flags & 8))) || reported=$((reported + 1))
        # As many as are left, evenly out of the entries that are left.
        ((RANDOM % (count - i) < states)) || continue
        states=$((states - 1))
        cp -r --sparse=always "$state" "$state.$i"
        (($(jobs -r | wc -l) < 2)) || wait -n
        how=look
        ((states % 100)) || how=outlive
        $how "$state.$i" "after write $i of $count" $reported &
    done
    wait
}

# tally WHAT COUNT: how the looks at it went, of which there are COUNT at least.
tally() {
    awk -v what="$1" '{ v += $1 == "V2" && $2; if ($3 > most) most = $3 } END { print what ": " NR+0 \
        " looks, " v+0 " with a false version, " most+0 " damaged files at most" }' "$work/looks"
    (($(wc -l <"$work/looks") >= $2)) || fault "$1: looks are missing"
    : >"$work/looks"
}

cuts=${1:-20}
states=${2:-300}
seed=${3:-$RANDOM}
looked=0
bare=''
RANDOM=$seed
echo "seed $seed"
for tool in linux.uml dmsetup modprobe mke2fs debugfs mformat; do
    command -v $tool >/dev/null || skip "there is no $tool"
done
# Memory is the fastest disk, if there is enough of it.
(($(df --output=avail /dev/shm 2>/dev/null | tail -n 1) < 2000000)) || export TMPDIR=/dev/shm
work=$(mktemp -d) || exit
trap clean_up EXIT
dir=$work
script=$(realpath "${BASH_SOURCE[0]}")
: >"$work/faults"
make_disk
entries=$(wc -l <V2.sums)
cp -r --sparse=always disk first
look first 'ahead of all cuts' 0
tally 'ahead of all cuts' 1
cut_runs 0 &
cut_runs 1 &
wait
tally "$cuts cuts" $((cuts * 2))
for bare in '' 1; do
    rm -rf logged
    : >log
    cp -r --sparse=always disk logged
    truncate -s 1G log
    run_through 'the logged run' logged V2,backup log
    replay log $(((states + 1) / 2))
done
tally "$looked states" "$looked"
[[ ! -s faults ]] || exit 1
echo 'all well'
