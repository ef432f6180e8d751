# For gate.story. The image is u.img, its product x, its backup s.ubck.
# shellcheck shell=sh disable=SC2046 # results are words of a line

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

# pack PATH...: settings of these names, and the link $link.
pack() {
    rm -rf s /opt/to && mkdir s /opt/to
    for path; do mkdir -p "s/usr/qrx310/etc/${path%/*}" && echo s >"s/usr/qrx310/etc/$path"; done
    [ -z "$link" ] || ln -s /opt "s/usr/qrx310/etc/$link"
    (cd s && img_deploy -c . -p 1 ../s.ubck >/dev/null)
}

# bring_back: tells how a restore ends, and what it has written.
bring_back() {
    upgd_service restore --force s.ubck /opt/to >out 2>err
    echo $? $(cut -d: -f 2-3 err) $(find /opt/to -type f | wc -l)
}
