#!/bin/sh
# For gate.story, under the name of a function. The image is u.img, its product x; keys leads to the device's keys.
# shellcheck disable=SC2046,SC2119,SC2120 # results are words of a line; the last line has the words of each

# begin: images of some versions, and a device of the product x that has two keys.
begin() {
    rm -rf /etc/upgd
    mkdir -p tree /etc/upgd/keys
    ln -s /etc/upgd/keys /etc/sysconfig/device.conf .
    echo tool >tree/tool
    echo card >tree/App_VPUCard.bin
    for version in V1.3.9 V1.4.0.0 V1.10 rc1; do
        img_deploy -c ./tree -r $version $version.img >/dev/null
    done
    for key in maker other; do
        minisign -GW -p $key.pub -s $key.key >/dev/null
        cp $key.pub keys
    done
    cp V1.10.img u.img
    sign
    cp u.img.minisig good
    sysconfig set product x
    mount --bind /bin/true /bin/sync
}

# sign [COMMENT [KEY [OPTION]]]
sign() {
    minisign -S -s "${2:-maker}.key" -t "${1-product=x floor=V1}" -m u.img ${3:+"$3"} >/dev/null
}

# try: tells how an update ends, and what it has written. A fault by itself is the signature's.
try() {
    upgd_service update u.img --dir to --cards simulate=0 >out 2>err
    echo $? $(sed -E 's,^upgd_service: (u.img.minisig: |/etc/upgd/)?,,
        s/: nothing was touched(; (the|mend) .*)?//' err) $(ls to 2>/dev/null)
    rm -rf to
}

# bring_back IMAGE: tells how a restore ends, and what it has written so far.
bring_back() {
    upgd_service restore --force "$1" to >out 2>err
    echo $? $(cut -d: -f 2-3 err | grep -v CRC) $(find to -type f | wc -l)
}

"${0##*/}" "$@"
