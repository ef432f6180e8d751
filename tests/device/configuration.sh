#!/usr/bin/env bash
# The tool sysconfig.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

run sysconfig get fw_version
expect 'without a configuration' '1 sysconfig: fw_version: unknown key' "$status $(cat err)"
run sysconfig set fw_version V1.0.0.0
expect 'set' '0 ' "$status $(cat out err)"
sysconfig set device_name 'unit = 7'
run sysconfig get fw_version
expect 'get' '0 V1.0.0.0' "$status $(cat out err)"
run sysconfig list
expect 'list' $'0 fw_version=V1.0.0.0\ndevice_name=unit = 7' "$status $(cat out err)"
sysconfig get device_name >/dev/full 2>err
expect 'an answer that is lost' '1 sysconfig: standard output: No space left on device' "$? $(cat err)"
for call in '' 'set' 'set a' 'set a b c' 'get' 'get a b' 'list a' 'frob'; do
    # shellcheck disable=SC2086 # the words of a call
    run sysconfig $call
    expect "status of '$call'" '2 Usage:' "$status $(head -c 6 err)"
done
run sysconfig set 'bad key' x
expect 'a bad key' 1 "$status"
finish
