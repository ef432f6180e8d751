#!/usr/bin/env bash
# power_cuts.sh CUTS STATES [SEED]: what a power cut leaves of an update, a backup and a restore, by so
# many cuts and states. How stands in docs/architecture.md. With KEEP=DIR logs and disks stay there.
set -uo pipefail
export PATH=${SANDBOX_PATH:+$SANDBOX_PATH:}$PATH:/usr/local/bin:/usr/sbin:/sbin

# The logged runs: the root partition's file system, how it is mounted, and what is done.
logs=(
    'ext4 commit=1 V2,backup,restore'
    'ext4 commit=1 update,backup,restore'
    'ext4 commit=1,barrier=0 update,restore'
    'f2fs nodiscard V2,restore'
)

clean_up() {
    local file
    for file in */machine/pid; do
        [[ ! -f $file ]] || kill -KILL -- "-$(<"$file")"
    done
    [[ -n ${KEEP:-} ]] || rm -rf "$work"
}

skip() {
    echo "power cuts: not available: $1" >&2
    exit 77
}

fault() {
    echo "FAILED: $1" | tee -a faults
}

start() {
    disk=$1
    exec {console}< <(exec "$here/machine.sh" "$@")
    machine=$!
    : >"$disk/console"
}

# follow TEXT: to a line with it; fails if the machine ends or is silent for a minute.
follow() {
    local line
    while IFS= read -r -t 60 -u "$console" line; do
        printf '%s\n' "$line" >>"$disk/console"
        [[ $line != *"$1"* ]] || return 0
    done
    return 1
}

# It has made a process group for itself and all that it runs; the last of them may still write.
cut_power() {
    kill -KILL -- "-$machine"
    wait "$machine"
    for _ in {1..500}; do
        kill -0 -- "-$machine" || break
        sleep 0.01
    done
    exec {console}<&-
    rm -rf "$disk/machine"
} 2>/dev/null

# finish WHAT JOB: each step of a job that was started ends well.
finish() {
    local name
    for name in ${2//,/ }; do
        follow "machine: $name ended with 0" || { fault "$1: $name: $(tail -n 5 "$disk/console")"; break; }
    done
    follow 'machine: off' || fault "$1: the machine did not stop"
    cut_power
}

# outlive KIND DISK WHAT JOB: the job that was cut ends well when it is done again.
outlive() {
    start "$2" "$4"
    finish "the run after $3" "$4"
    [[ $FILES != ext4 ]] || look look "$1" "$2" "the run after $3" "$4" 9 # all of its steps
    rm -rf "$2"
}

look() {
    "$here/$1.py" "${@:2}" | tee -a faults || fault "$2: could not be looked at"
}

# The trees of both versions, settings to save and others to bring them back over, and the device's
# root directory.
lay_out() {
    local version i
    mkdir -p saved changed V{1,2}/tree/{etc,bin,vorn-kernel,vorn-uboot} \
        device/{proc,dev,run,tmp,images,srv,opt,var/log,mnt/{sda1,state},etc/{sysconfig,alternatives}} \
        device/usr/{{,local/}bin,sbin,lib,lib64,share,qrx310/etc/{mcucored,vsp,sysconf/qrxpara}} \
        device/etc/upgd/keys
    ln -s usr/{bin,sbin,lib,lib64} device
    cp "$(command -v img_deploy)" "$(command -v sysconfig)" "$(command -v upgd_service)" device/usr/local/bin
    minisign -GW -p device/etc/upgd/keys/key.pub -s key >/dev/null
    for i in {1..20}; do
        seq "$i" $((i * 700)) >"saved/settings$i"
        seq "$i" $((i * 900)) >"changed/settings$i"
    done
    cp saved/* device/usr/qrx310/etc/vsp
    for version in V1 V2; do
        for i in {1..150}; do
            printf "$version file $i %*s" $((i * 997 % 9000)) end >"$version/tree/etc/file$i"
        done
        for i in {1..5}; do ln -s "../etc/file$i${version#V}" "$version/tree/bin/link$i"; done
        echo "$version alone" >$version/tree/etc/$version
        head -c 3000000 /dev/urandom >$version/tree/etc/data
        head -c 1000000 /dev/urandom >$version/tree/vorn-kernel/zImage
        head -c 500000 /dev/urandom >$version/tree/vorn-uboot/u-boot.bin
    done
    printf '%s\n' device_name=board product=board key{1..100}=value >conf
    printf '%s\n' fw_version=V0 fw_floor=V1 | cat conf - >device/etc/sysconfig/device.conf
    # So slow that the kernel writes its file, but not yet those of file systems that commit later.
    cat >sysconfig <<'TOOL'
#!/bin/sh
sed -i "s/^$2=.*/$2=$3/" /etc/sysconfig/device.conf && sleep 1.2
echo 'sysconfig: done' && sleep 0.2
TOOL
    chmod 755 sysconfig
}

# The disk of a device with V1, saved settings, and others in their place.
make_disk() {
    local job=buildV1,buildV2,sign,V1,backup,change disk=$FILES
    mkdir "$disk"
    truncate -s 2M "$disk/boot"
    truncate -s 240M "$disk/root"
    {
        case $FILES in
            ext4) mke2fs -q -t ext4 -b 4096 -N 4096 -E root_owner=0:0 -d device "$disk/root" ;;
            f2fs) mkfs.f2fs -q "$disk/root" && sload.f2fs -f device "$disk/root" ;;
        esac && mke2fs -q -t ext4 -b 4096 -E root_owner=0:0 "$disk/kernel" 16M &&
            mformat -C -i "$disk/usb" -T 262144 ::
    } >making 2>&1 || fault "no $FILES: $(<making)"
    start "$disk" $job
    follow 'machine: up' || skip "the machine does not start: $(tail -n 1 "$disk/console")"
    finish 'ahead of all cuts' $job
    [[ ! -s faults ]] || exit 1
}

# cut_runs FIRST: every second cut of all.
cut_runs() {
    local cut disk=cut$1 moment job pause what jobs=(V2 update restore)
    RANDOM=$((seed + $1))
    for ((cut = $1; cut < cuts; cut += 2)); do
        job=${jobs[cut % 3]}
        cp -r "$FILES" "$disk"
        export BARE=${bare[cut / 2 % 2]} # both have as many of the slow ones
        case $((RANDOM % 4)),$job in
            [01],V2) moment="(num-$((RANDOM % entries)))" ;;
            2,V2) moment=${BARE:+sysconfig: done} moment=${moment:-update successful} ;;
            3,*) moment="$job ended with 0" ;;
            *) moment="$job begins" ;;
        esac
        what="cut $cut${BARE:+ of a bare board}, at '$moment'"
        start "$disk" "$job"
        follow "$moment" || fault "$what: not seen: $(tail -n 5 "$disk/console")"
        # The service says nothing while it unpacks.
        pause=$((RANDOM % 200)) && [[ $moment != *begins ]] || pause=$((RANDOM % 3000))
        [[ $moment == *ended* ]] || sleep "${pause}e-3"
        cut_power
        cp -r "$disk" "$disk.cut"
        look look "cuts of $job" "$disk.cut" "$what" "$job" "$(grep -c "$job ended with 0" "$disk/console")"
        rm -rf "$disk.cut"
        outlive "cuts of $job" "$disk" "$what" "$job"
    done
}

# replay KIND JOB LOG: the states of a logged run.
replay() {
    local first state log=$3
    rm -rf logged
    cp -r "$FILES" logged
    truncate -s 1G "$log"
    start logged "$2" "$log"
    finish 'the logged run' "$2"
    for first in 0 1; do
        # shellcheck disable=SC2046 # each is a word
        look states "$1" "$2" "$log" "$seed" $(seq $first 2 $((states - 1))) &
    done
    wait
    for state in "$log".*00 "$log.0"; do
        [[ ! -d $state ]] || outlive "$1" "$state" "state ${state##*.} of seed $seed" "$2"
    done
}

cuts=${1:-20} states=$((${2:-300} / ${#logs[@]})) seed=${3:-$RANDOM}
here=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
echo "seed $seed"
for tool in linux.uml dmsetup modprobe mke2fs debugfs mformat sload.f2fs minisign python3 img_info \
    upgd_service; do
    command -v $tool >/dev/null || skip "there is no $tool"
done
(($(df --output=avail /dev/shm 2>/dev/null | tail -n 1) < 2000000)) || export TMPDIR=/dev/shm
work=${KEEP:-$(mktemp -d)} && mkdir -p "$work" || exit
trap clean_up EXIT
cd "$work" || exit
export FILES OPTIONS BARE BUSY
bare=('' bare) busy=('' busy) # the first as often as the second
: >faults
lay_out
entries=$(find V2/tree -type f | wc -l)
for i in "${!logs[@]}"; do
    read -r FILES OPTIONS job <<<"${logs[i]}"
    BARE='' BUSY=''
    [[ -d $FILES ]] || make_disk
    if ((i == 0 && cuts)); then
        cut_runs 0 &
        cut_runs 1 &
        wait
    fi
    BARE=${bare[(seed + i) % 2]} BUSY=${busy[((seed + 1) / 2 + i) % 2]}
    replay "$FILES $OPTIONS, $job${BARE:+, bare}${BUSY:+, busy}" "$job" "log$i"
    [[ ! -s faults ]] || exit 1
done
sort looks | uniq -c
(($(wc -l <looks) >= 2 * cuts + states * ${#logs[@]})) || { fault 'looks are missing' && exit 1; }
echo 'all well'
