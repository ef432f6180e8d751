#!/usr/bin/env bash
# Runs a command in a sandbox that looks like the device to the update tool: the fixed paths it
# writes, the partitions it flashes and the programs it calls. All of it stands in a private mount
# namespace on a tmpfs, and goes with the last process in there.
set -uo pipefail
shopt -s nullglob

script=$(realpath "$0")
project=${script%/*/*}
printf -v programs ":$project/build/release/%s" update/img_deploy platform companions/{img_info,upgd_service}
caller_path=${SANDBOX_PATH-${programs#:}}
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
path=({/usr/local,/usr,}/{s,}bin)
recorders=({/usr/local,/usr,}/{s,}bin/{reboot,killall,mcu_isp,kmd_test} /usr/vorn/bin/{mcu_isp,kmd_test})

root=/proc/fs # no project can live there, and the sandbox does not show it

# With CI=true nothing may be left out.
unavailable() {
    printf 'sandbox: not available: %s\n' "$1" >&2
    [[ ${CI:-} != true ]] || exit 1
    exit 77
}

# Shows a directory of the machine, with changes kept apart; unwritable if no overlay can be had.
show() {
    local dir=$1 layer=$root/layers$1 place
    mkdir -p "$layer/upper" "$layer/work" "$root$dir"
    # A user namespace has no rights over the machine's directories, but over those of the upper layer.
    for place in /etc/sysconfig /usr/local "${path[@]}"; do
        [[ ! -d $place || $place != "$dir"/* ]] || mkdir -p "$layer/upper${place#"$dir"}"
    done
    [[ $dir != /usr ]] || mkdir -p "$layer/upper/vorn/bin" # the flashing tools' own place
    # "." needs no quotes in the list of options.
    (cd "$dir" && mount -t overlay overlay "$root$dir" -o \
        "lowerdir=.,upperdir=$layer/upper,workdir=$layer/work$overlay_options") ||
        { mount --rbind "$dir" "$root$dir" && mount -o remount,bind,ro "$root$dir"; }
}

make_dev() {
    local node nodes=(null zero full random urandom tty)
    mount -t tmpfs -o mode=755 tmpfs dev
    mkdir dev/pts dev/shm
    cp -a /dev/fd /dev/std{in,out,err} "${nodes[@]/#//dev/}" /dev/loop* dev || :
    # Sandboxes beside this one may use all; the kernel makes more as they are asked for.
    for node in {0..63}; do
        ((!privileged)) || [[ -e dev/loop$node ]] || mknod "dev/loop$node" b 7 "$node"
    done
    for node in "${nodes[@]}"; do # if nodes cannot be made
        [[ -c dev/$node ]] || { : >"dev/$node" && mount --bind "/dev/$node" "dev/$node"; }
    done
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts dev/pts
    mount -t tmpfs -o mode=1777 tmpfs dev/shm
    ln -s pts/ptmx dev/ptmx
    # All ones, so that a test can tell what was written and what was not.
    head -c 4M /dev/zero | LC_ALL=C tr '\0' '\377' >dev/mmcblk0p1
    mkfs.ext4 -q -F dev/mmcblk0p6 16M
}

make_recorders() {
    (umask 0 && : >/run/sandbox/calls)
    rm -f "${recorders[@]}" # these can be links to programs that must stay
    tee "${recorders[@]}" >/dev/null <<'RECORDER'
#!/bin/sh
set -- "${0##*/}" "$@"
IFS='	'
printf '%s\n' "$*" >>/run/sandbox/calls
RECORDER
    chmod 755 "${recorders[@]}"
}

set_up() {
    local dir overlay_options=''
    umask 022
    ((privileged)) || overlay_options=,userxattr
    mount -t tmpfs -o mode=755 tmpfs "$root"
    cd "$root"
    mkdir proc sys dev run mntker sandbox
    mount -t proc proc proc
    mount -t tmpfs -o mode=755 tmpfs run
    make_dev
    if ((privileged)); then
        # What the kernel offers here would act on the whole machine.
        mount -o bind,ro /sys sys
        mount -o bind,ro proc/sys proc/sys
        [[ ! -e proc/sysrq-trigger ]] || mount --bind /dev/null proc/sysrq-trigger
    fi
    # The kernel refuses a user namespace an overlay over all of / with what is mounted there.
    for dir in /etc /usr /bin /sbin /lib*; do
        if [[ -L $dir ]]; then cp -P "$dir" .; else show "$dir"; fi
    done
    # Sorted, a directory stands ahead of those that it shows already.
    printf '%s\n' "$project" "$directory" "${caller_path//:/$'\n'}" | sort |
        while IFS= read -r dir; do [[ ! -d $dir || -d $root$dir ]] || show "$dir"; done
    mkdir -p tmp opt var/log
    chmod 1777 tmp sandbox
    pivot_root . .
    umount -l .
    cd /
    mkdir -p /run/sandbox "${path[@]}"
    make_recorders
    [[ -w /etc ]] || { echo '/etc cannot be made writable' >&2; return 1; }
}

# The kernel keeps signals without a handler away from the first process: the command is its child.
inside() {
    local privileged=$1 directory reason status
    directory=$(pwd -P)
    shift
    (($$ == 1)) || unavailable 'not the first process of a namespace'
    exec 2>&9 9>&-
    reason=$(set -e; set_up 2>&1) # in a condition, set -e would be without effect
    status=$?
    reason=${reason%$'\n'*'dmesg(1)'*} # mount's hint where to read on
    ((status == 0)) || unavailable "${reason##*$'\n'}"
    # pivot_root moved this process along with the one that called it.
    [[ -f /run/sandbox/calls ]] || unavailable 'the root directory did not change'
    cd / && cd "$directory" 2>/dev/null
    # A hard link from one overlay to another can't be made; from here to /opt it can.
    export TMPDIR=/sandbox SANDBOX=1 SANDBOX_PRIVILEGED=$privileged
    export PATH=${caller_path:+$caller_path:}$PATH
    (exec -- "$@")
    exit
}

# unshare does not heed signals, but returns when its child is dead, and with it all in the namespace.
# shellcheck disable=SC2317 # called by the trap
stop() {
    local first=''
    read -r first _ <"/proc/$child/task/$child/children"
    kill -KILL "${first:-$child}"
    wait "$child"
} 2>/dev/null

[[ ${1:-} != --inside ]] || inside "${@:2}"
[[ ${1:--} != -* ]] || { echo 'usage: sandbox.sh COMMAND [ARG...]' >&2; exit 2; }
privileged=1
launcher=(setpriv --pdeathsig KILL env "--default-signal=INT,QUIT"
    unshare --mount --ipc --uts --pid --fork --kill-child --propagation private)
# Root of a user namespace is not root enough for the kernel's file systems.
[[ $EUID,$(</proc/self/uid_map) =~ ^0,\ *0\ +0\ +4294967295$ ]] ||
    { privileged=0 && launcher+=(--user --map-root-user); }
reason=$("${launcher[@]}" true 2>&1) || unavailable "${reason##*$'\n'}"

# The shell heeds signals beside a command in the background alone. If it is killed, the death signal
# takes the sandbox along. The errors take a detour around unshare's own of a killed child.
"${launcher[@]}" "$BASH" "$script" --inside $privileged "$@" <&0 9>&2 2>/dev/null &
child=$!
trap stop HUP INT QUIT TERM
wait "$child" # a trap ends it with 128 + the signal
