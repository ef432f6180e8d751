#!/usr/bin/env bash
# Measures the inventory of four USB disks with eight files of each kind against the 21 commands that
# it consists of, in the sandbox. Usage: bench/inventory.sh
set -euo pipefail

commands() {
    local disk suffix
    echo "/bin/mount |grep /mnt/sd |awk '{print \$3}'"
    for disk in sda1 sdb1 sdc1 sdd1; do
        echo "/bin/cat /proc/diskstats |grep sd|awk '{print \$3}'"
        echo "ls -l /dev/disk/by-label/ |grep $disk |awk '{print \$9}'"
        for suffix in img ubck rcfgx; do
            echo "/usr/bin/find /mnt/$disk -maxdepth 1 -name '*.$suffix'"
        done
    done
}

if [[ ${1:-} == --in-sandbox ]]; then
    mkdir -p /dev/disk/by-label
    for disk in sda1 sdb1 sdc1 sdd1; do
        mkdir -p "/mnt/$disk"
        mount -t tmpfs tmpfs "/mnt/$disk"
        touch "/mnt/$disk"/{1..8}.{img,ubck,rcfgx}
        ln -s "../../$disk" "/dev/disk/by-label/LABEL_$disk"
        echo "   8       1 $disk 1 2 3"
    done >/tmp/stats
    mount --bind /tmp/stats /proc/diskstats
    commands >/tmp/commands
    commands | sed "s/'/'\\\\''/g; s/.*/sh -c '&'/" >/tmp/commands_in_shells
    exec inventory_bench /tmp/commands /tmp/commands_in_shells >/dev/null
fi

root=$(realpath "$(dirname "$0")/..")
cd "$root"
cmake --preset release -DBUILD_BENCHMARKS=ON >/dev/null
cmake --build --preset release --target inventory_bench >/dev/null
SANDBOX_PATH=$root/build/release/bench tests/sandbox.sh "$BASH" "$root/bench/inventory.sh" --in-sandbox
