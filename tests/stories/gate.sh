#!/bin/sh
# For gate.story, under the name of a function. The image is u.img, its product x, its backup s.ubck.
# shellcheck disable=SC2046,SC2119,SC2120 # results are words of a line; the last line has the words of each
keys=/etc/upgd/keys

# begin: images of some versions, and a device of the product x that has two keys.
begin() {
    rm -rf /etc/upgd
    mkdir -p tree $keys
    echo tool >tree/tool
    echo card >tree/App_VPUCard.bin
    for version in V1.3.9 V1.4.0.0 V1.10 rc1; do
        img_deploy -c ./tree -r $version $version.img >/dev/null
    done
    for key in maker other; do
        minisign -GW -p $key.pub -s $key.key >/dev/null
        cp $key.pub $keys
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

# try: tells how an update ends, and what it has written.
try() {
    upgd_service update u.img --dir /opt/to --cards simulate=0 >out 2>err
    echo $? $(sed -E 's/^upgd_service: //; s/: nothing was touched(; (the|mend) .*)?//' err) $(ls /opt/to 2>/dev/null)
    rm -rf /opt/to
}

# add_keys COUNT: to those that the device has.
add_keys() {
    for n in $(seq "$1"); do
        minisign -fGW -p "$keys/$1-$n.pub" -s key >/dev/null
    done
}

# pack PATH...: settings of these names, and the link $link.
pack() {
    rm -rf s /opt/to
    mkdir -p s /opt/to
    for path; do
        mkdir -p "s/usr/qrx310/etc/${path%/*}"
        echo s >"s/usr/qrx310/etc/$path"
    done
    [ -z "$link" ] || ln -s /opt "s/usr/qrx310/etc/$link"
    (cd s && img_deploy -c . -p 1 ../s.ubck >/dev/null)
}

# bring_back: tells how a restore ends, and what it has written.
bring_back() {
    upgd_service restore --force s.ubck /opt/to >out 2>err
    echo $? $(cut -d: -f 2-3 err) $(find /opt/to -type f | wc -l)
}

"${0##*/}" "$@"
