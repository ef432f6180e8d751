#!/usr/bin/env bash
# Catches: an image that depends on more than its tree, by the page's own recipe: on two file systems
# with other orders, the files made at other times.
. "$(dirname "$0")/lib.sh"

[[ $SANDBOX_PRIVILEGED == 1 ]] || skip 'only root can mount a file system'
mkdir probe && mksquashfs probe probe.sqfs -no-progress >/dev/null
mount -o loop,ro probe.sqfs probe || skip 'no squashfs can be mounted here'
umount probe
recipe=$(awk '/^```/ { code = !code; next } code' "${0%/tests/*}/docs/building.md")

truncate -s 8M disk && mkfs.ext4 -q disk && mkdir ext4 tmpfs
mount -o loop disk ext4 && mount -t tmpfs tmpfs tmpfs
fill() {
    mkdir -p nand/bin nand/.d
    for i; do
        echo "$i" >"nand/bin/f$i" && ln -s "f$i" "nand/bin/l$i" && touch -d "@$i" "nand/bin/f$i"
    done
    echo hidden >nand/.d/x
}
(cd ext4 && fill {1..60})
(cd tmpfs && fill {60..1})
for fs in ext4 tmpfs; do
    run env -C $fs bash -e -c "$recipe"
    expect "the recipe on $fs" '0 ' "$status $(<err)"
done
expect 'entries' 'ext4/update.img: well, 121 entries' "$(img_info --verify ext4/update.img)"
expect 'the images' '' "$(cmp ext4/update.img tmpfs/update.img)"
finish
