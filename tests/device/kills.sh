#!/usr/bin/env bash
# kills.sh [CUTS [SEED]]: runs that are killed at any moment, with all their processes. What they
# leave tells the truth, and the next run brings the update to its end.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

cuts=${1:-100}
seed=${2:-$RANDOM}
RANDOM=$seed
echo "seed $seed"
# Hundreds of runs are not to reach the disks of the whole machine.
ln -sf true /bin/sync
conf=/etc/sysconfig/device.conf
mkdir -p /etc/sysconfig
exec {silence}<> <(:)

# Two images of the same names take turns.
for version in V0 V1; do
    lay_out_tree
    for i in {1..20}; do echo "$version" >"tree/etc/f$i"; done
    echo $version | tee tree/vorn-kernel/zImage >tree/vorn-uboot/u-boot.bin
    head -c 5000000 /dev/urandom >tree/etc/data
    img_deploy -c ./tree -r $version $version.img >out
    mv tree $version
    { echo fw_version=$version && seq -f 'key%g=value' 500; } >$version.conf
done

# applied VERSION: prints what is not as after its run.
# ln(1) makes a link under a name of its own, which it then gives the link's: a cut between the two
# leaves it.
applied() {
    diff -r --no-dereference --exclude='Cu??????' "$1" /opt/upgddir/tree
    cmp "$1.conf" $conf
    cmp "$1/vorn-kernel/zImage" /mntker/zImage
    cmp -n 3 "$1/vorn-uboot/u-boot.bin" /dev/mmcblk0p1
} 2>&1

cp V1.conf $conf
img_deploy -u V1.img -m 2 >out 2>&1
# finish_run VERSION WHAT: a run without a cut; sets the length of a run in microseconds.
finish_run() {
    local begin=${EPOCHREALTIME/./}
    run img_deploy -u "$1.img" -m 2
    length=$((${EPOCHREALTIME/./} - begin))
    expect "the run $2" '0 2 ' "$status $(flag) $(applied "$1")"
}
finish_run V1 'ahead of all cuts'

hits=0
for ((cut = 0; cut < cuts; cut++)); do
    old=V$(((cut + 1) % 2)) new=V$((cut % 2))
    setsid img_deploy -u $new.img -m 2 >out 2>&1 &
    moment=$(((RANDOM << 15 | RANDOM) % length))
    read -rt "$((moment / 1000000)).$(printf %06d $((moment % 1000000)))" -u "$silence"
    # It may not have its own group yet.
    kill -KILL -- -$! 2>/dev/null || kill -KILL $! 2>/dev/null
    wait $! 2>/dev/null
    status=$?
    hits=$((hits + (status == 137)))
    what="after cut $cut at $moment us of $length"
    case $(flag) in
        none | '' | 1) expect "status $what" 137 "$status" ;;
        2) [[ -z $(applied $old) ]] || expect "what is applied $what" '' "$(applied $new)" ;;
        *) expect "flag file $what" 'none, empty, 1 or 2' "$(flag)" ;;
    esac
    cmp -s $old.conf $conf || expect "configuration $what" '' "$(cmp $new.conf $conf 2>&1)"
    finish_run $new "$what"
done
((2 * hits >= cuts)) || expect 'cuts that hit a run' "half of $cuts" "$hits"
finish
