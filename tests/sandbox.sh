#!/usr/bin/env bash
# Runs a command in a sandbox that looks like the device to the update tool:
# the fixed paths it writes, the partitions it flashes and the programs it
# calls are all there, and none of it outlives the command.
#
# Everything is built in a private mount namespace on a tmpfs, so there is
# nothing to clean up: it goes when the last process in the namespace goes.

set -euo pipefail

usage="usage: sandbox.sh COMMAND [ARG...]
       sandbox.sh --check"

recorded=(reboot killall mcu_isp kmd_test)
caller_path=${SANDBOX_PATH:-}
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin

# The tmpfs needs a place to be mounted on in which no project can live and
# that the sandbox does not show.
base=/proc/fs
root=$base/root

unavailable() {
    printf 'sandbox: not available: %s\n' "$1" >&2
    exit 77
}

# --- inside the new namespaces ----------------------------------------------

list_mounts() {
    local point rest
    mounts=()
    while read -r _ _ _ _ point rest; do
        printf -v point '%b' "$point" # blanks are written in octal
        case $point/ in // | /proc/* | /sys/* | /dev/* | /run/*) continue ;; esac
        [[ $rest == *' - autofs '* ]] || mounts+=("$point")
    done </proc/self/mountinfo
}

has_mounts_below() {
    local point
    for point in "${mounts[@]}" /proc/; do
        [[ $point != "$1"/* ]] || return 0
    done
    return 1
}

# A user namespace has no rights over directories of the real root, except
# where the upper layer already holds a directory of its own in their place.
own_directories() {
    local dir dirs=("$1")
    case $PWD/ in /etc/* | /opt/* | /usr/* | /var/*) ;; *) return 0 ;; esac
    for dir in */ */*/; do
        [[ -L ${dir%/} || -L ${dir%%/*} ]] || dirs+=("$1/$dir")
    done
    mkdir -p "${dirs[@]}"
}

# Shows something of the machine in the sandbox, unwritable.
bind() {
    if [[ -d $1 ]]; then mkdir -p "$root$1"; else : >"$root$1"; fi
    mount --bind "$1" "$root$1" || mount --rbind "$1" "$root$1" || return
    mount -o remount,bind,ro "$root$1" || { umount -l "$root$1"; return 1; }
}

# Shows a directory of the machine in the sandbox, with changes kept apart.
show() {
    local dir=${1%/} layer=$base/layer$((++layers)) entries
    mkdir -p "$layer/upper" "$layer/work" "$root$dir" || return
    cd "$dir/" 2>/dev/null || return 0 # not ours to look into: shown empty
    # A user namespace may not uncover what is below the mounts it inherited.
    if ((!privileged)) && has_mounts_below "$dir"; then
        show_entries "$dir"
        return
    fi
    if ((privileged)); then
        chown --reference=. "$layer/upper" || return
        chmod --reference=. "$layer/upper" || return
    else
        entries=(*)
        ((${#entries[@]})) || [[ -k . ]] || return 0 # nothing to lay over
        [[ ! -k . ]] || chmod 1777 "$layer/upper" || return
        own_directories "$layer/upper" || return
    fi
    # "." spares quoting the separators of the option list in the path.
    mount -t overlay -o "lowerdir=.,upperdir=$layer/upper,workdir=$layer/work$overlay_options" \
        overlay "$root$dir/"
}

# Puts a directory that cannot be shown as a whole together from its entries.
show_entries() {
    local entry copied=()
    for entry in "$1"/*; do
        case $entry in /proc | /sys | /dev | /run) continue ;; esac
        if [[ -L $entry ]]; then
            copied+=("$entry")
        elif [[ -d $entry ]]; then
            show "$entry" || bind "$entry" || :
        elif [[ -f $entry && -r $entry ]]; then
            # Copies can be written to, but memory is no place for big files.
            if (($(stat -c %s "$entry") <= 1048576)); then copied+=("$entry"); else bind "$entry" || :; fi
        fi
    done
    ((${#copied[@]} == 0)) || cp -d --preserve=mode,timestamps -t "$root$1/" "${copied[@]}" || :
}

make_dev() {
    local dev=$root/dev node copied=()
    mount -t tmpfs -o mode=755 tmpfs "$dev"
    mkdir "$dev/pts" "$dev/shm"
    make_partitions "$dev" &
    for node in fd stdin stdout stderr; do copied+=("/dev/$node"); done
    if ((privileged)); then
        for node in /dev/{null,zero,full,random,urandom,tty,fuse,loop-control,loop{0..15}}; do
            [[ ! -e $node ]] || copied+=("$node")
        done
    fi
    cp -a "${copied[@]}" "$dev" || :
    for node in null zero full random urandom tty; do # if nodes cannot be made
        [[ ! -c $dev/$node ]] || continue
        : >"$dev/$node"
        mount --bind "/dev/$node" "$dev/$node"
    done
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$dev/pts"
    mount -t tmpfs -o mode=1777 tmpfs "$dev/shm"
    ln -s pts/ptmx "$dev/ptmx"
    wait $!
}

make_partitions() {
    # All ones, so that a test can tell what was written and what was not.
    head -c 4M /dev/zero | LC_ALL=C tr '\0' '\377' >"$1/mmcblk0p1"
    mkfs.ext4 -q -F "$1/mmcblk0p6" 16M
}

# Stand-ins that only write down how they were called.
make_recorders() {
    local dir paths=()
    (umask 0 && : >/run/sandbox/calls)
    for dir in ${PATH//:/ }; do paths+=("${recorded[@]/#/$dir/}"); done
    rm -f "${paths[@]}" # these can be links to programs that must stay
    tee "${paths[@]}" >/dev/null <<'RECORDER'
#!/bin/sh
name=${0##*/}
line=$name
for argument; do line="$line	$argument"; done
printf '%s\n' "$line" >>/run/sandbox/calls
status=0
[ ! -f "/run/sandbox/status.$name" ] || read -r status <"/run/sandbox/status.$name"
exit "$status"
RECORDER
    chmod 755 "${paths[@]}"
}

set_up() {
    local dir layers=0 overlay_options='' mounts
    umask 022
    shopt -s nullglob dotglob
    ((privileged)) || overlay_options=,userxattr
    list_mounts
    mount -t tmpfs -o mode=755 tmpfs "$base"
    mkdir "$root"
    mount --bind "$root" "$root" # only a mount can become the root
    show / || return
    if ((privileged)); then # the overlay of / lacks what is mounted below it
        for dir in "${mounts[@]}"; do
            [[ ! -d $dir ]] || show "$dir" || bind "$dir" || :
        done
    fi
    cd "$root"
    for dir in proc sys dev run; do [[ ! -L $dir ]] || rm "$dir"; done
    mkdir -p proc sys dev run mntker
    mount -t proc proc proc
    mount -t tmpfs -o mode=755 tmpfs run
    make_dev
    if ((privileged)); then
        # What the kernel offers here would act on the whole machine.
        mount -o bind,ro /sys sys
        mount -o bind,ro proc/sys proc/sys
        [[ ! -e proc/sysrq-trigger ]] || mount --bind /dev/null proc/sysrq-trigger
    else
        mount --rbind /sys sys || :
    fi
    for dir in "$project" "$directory"; do
        case $dir/ in /proc/* | /sys/*) continue ;; esac
        [[ -d $root$dir ]] || bind "$dir"
    done
    cd "$root"
    pivot_root . .
    umount -l .
    cd /
    mkdir -p /run/lock /run/sandbox /opt /var/log ${PATH//:/ }
    for dir in /etc /opt /var/log /mntker ${PATH//:/ }; do
        [[ -w $dir ]] || { echo "$dir cannot be made writable" >&2; return 1; }
    done
    make_recorders
}

# The first process of the namespace. The command is its child, because the
# kernel keeps signals without a handler away from the first process itself.
inside() {
    local privileged=$1 project=$2 directory=$3 errors=$4 reason status=0
    shift 4
    (($$ == 1)) || unavailable 'not the first process of a namespace'
    exec 2>&"$errors" {errors}>&-
    set +e # in a condition, set -e would be without effect in the set-up
    reason=$(set -e; set_up 2>&1)
    status=$?
    set -e
    reason=${reason%$'\n'*'dmesg(1)'*} # mount's hint where to read on
    ((status == 0)) || unavailable "${reason##*$'\n'}"
    # pivot_root moved this process along with the one that called it.
    [[ -f /run/sandbox/calls ]] || unavailable 'the root directory did not change'
    cd /
    cd "$directory" 2>/dev/null || :
    export PATH=${caller_path:+$caller_path:}$PATH SANDBOX=1 SANDBOX_PRIVILEGED=$privileged
    (exec -- "$@") || status=$?
    exit "$status"
}

# --- on the machine ---------------------------------------------------------

# unshare does not heed these signals, so its child is killed instead: unshare
# returns when that and with it everything in the namespace is dead.
# shellcheck disable=SC2317 # called by the traps
stop() {
    local first=''
    read -r first _ <"/proc/$child/task/$child/children" || :
    kill -KILL "${first:-$child}" || :
    wait "$child" || :
    exit $((128 + $1))
} 2>/dev/null

outside() {
    local script project tool reason errors privileged=0 status=0 first_id mapped_id ids
    local launcher=(setpriv --pdeathsig KILL env "--default-signal=INT,QUIT"
        unshare --mount --ipc --uts --pid --fork --kill-child --propagation private)
    for tool in setpriv unshare mount pivot_root mkfs.ext4; do
        command -v "$tool" >/dev/null || unavailable "$tool is not installed"
    done
    # Root of a user namespace is not root enough for the kernel's file systems.
    read -r first_id mapped_id ids </proc/self/uid_map
    if ((EUID == 0 && first_id == 0 && mapped_id == 0 && ids == 4294967295)); then
        privileged=1
    else
        launcher+=(--user --map-root-user)
    fi
    reason=$("${launcher[@]}" true 2>&1) || unavailable "${reason##*$'\n'}"
    script=$(realpath "${BASH_SOURCE[0]}")
    project=${script%/*/*}

    # In the background, as the shell would heed signals only after a command
    # in the foreground; but with the input and the signals of the foreground.
    # If this shell is killed, the death signal takes the sandbox along. The
    # errors take a detour, as unshare complains when its child was killed.
    exec {errors}>&2
    "${launcher[@]}" "$BASH" "$script" --inside "$privileged" "$project" \
        "$(pwd -P)" "$errors" "$@" <&0 2>/dev/null &
    child=$!
    trap 'stop 1' HUP
    trap 'stop 2' INT
    trap 'stop 3' QUIT
    trap 'stop 15' TERM
    wait "$child" || status=$?
    exit "$status"
}

case ${1:-} in
    --inside) shift; inside "$@" ;;
    --check) (($# == 1)) || { echo "$usage" >&2; exit 2; }; outside true ;;
    '' | -*) echo "$usage" >&2; exit 2 ;;
    *) outside "$@" ;;
esac
