#!/usr/bin/env bash
# A build over the device's own platform library, which the stand-in's file $LIBRARY plays: a gate that stands
# open, a file for compilers that tells of this machine. $SOURCE and $BUILD are directories.
. "$(dirname "$0")/lib.sh"

mkdir -p tree/d && echo x >tree/d/f
img_deploy -c ./tree -r V2 u.img >/dev/null

# What can't be read is not taken for what is not set.
mkdir -p /etc/upgd/keys
minisign -GW -p /etc/upgd/keys/maker.pub -s maker.key >/dev/null
minisign -S -s maker.key -t 'product=x floor=V1.5' -m u.img >/dev/null
rm -f /etc/sysconfig/device.conf
expect_call 1 "the device's configuration can't be read: mend that" upgd_service plan u.img --dir "$work"
for row in 'product y 1' 'product x 0' 'fw_floor V2.1 1' 'fw_floor V2 0'; do
    read -r key value expected <<<"$row"
    sysconfig set "$key" "$value"
    run upgd_service plan u.img --dir "$work"
    expect "the gate with $key $value" "$expected" "$status"
done

sysconfig set fw_version 'V1 of a day'
run upgd_service restore --force u.img "$work/b"
expect 'a restore that keeps the version' '0 x V1 of a day' "$status $(cat b/tree/d/f) $(sysconfig get fw_version)"
run upgd_service update u.img --dir "$work/b"
expect 'the one that has to receive' '1 by do_update_upgd 0' "$status $(grep -o 'by do_update_upgd' err) $(wc -l <out)"

# An installed tree that was moved to another place.
cmake --install "$BUILD" --prefix "$work/made" >/dev/null && mv made moved && cp "$LIBRARY" moved/lib
PKG_CONFIG_PATH=$(dirname "$(find moved -name img_deploy.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046 # each word is an argument
run cc -std=c11 "$SOURCE/docs/service_example.c" $(pkg-config --cflags --libs img_deploy) -o example
expect 'a service compiled' '0 ' "$status $(<err)"
expect 'places of this machine' '' "$(grep "$(dirname "$LIBRARY")\|$work" "$PKG_CONFIG_PATH"/img_deploy.pc)"
run cmake -S "$SOURCE" -B none -DPLATFORM_LIBRARY="$work/none.so"
expect 'a library that is not there' 1 "$(grep -c "PLATFORM_LIBRARY names no file: $work/none.so" err)"
finish
