#!/bin/sh
# Functions for the scripts of the stories.
# shellcheck disable=SC2046,SC2119,SC2120 # results are words of a line; calls stand in the stories

# begin: the image u.img, a device with settings, and a disk on /mnt/sda1.
begin() {
    mkdir -p tree/bin tree/etc tree/vorn-uboot /mnt/sda1 /mnt/root /usr/qrx310/etc
    echo boot >tree/vorn-uboot/u
    echo tool >tree/bin/tool
    echo data >tree/etc/data
    echo card >tree/App_VPUCard.bin
    ln -s /bin/sh tree/sh
    img_deploy -c ./tree -r V7 u.img >/dev/null
    cd /usr/qrx310/etc || exit
    mkdir vsp mcucored sysconf
    echo s | tee vsp/s >sysconf/qrxpara
    sysconfig set device_name unit7
    for name in sda1 root; do
        mount -t tmpfs -o size=150m /dev/root /mnt/$name
    done
}

# call VERB...: tells how it ends, and the first line of its errors.
call() {
    upgd_service "$@" >out 2>err
    echo $? $(sed 's/^upgd_service: //; q' err)
}

update() { call update --dir to --cards simulate=0 "$@"; }

# bound IMAGE OPTION...: why an update would fail.
bound() { upgd_service plan --cards simulate "$@" | sed -n 's/^bound to fail *//p'; }

# replace COMMAND SCRIPT: a shell script stands over it, and the command itself in /w.
replace() {
    place=$(command -v "$1")
    cp "$place" /w
    printf '#!/bin/sh\n%s\n' "$2" >script
    chmod +x script
    mount --bind script "$place"
}

# backup_by SCRIPT: a backup whose cp(1) is the script.
backup_by() {
    replace cp "$1"
    call backup /mnt/sda1 | sed 's/[^ ]*ubck: //'
    umount /bin/cp
}

# fail_each COMMAND...: how else each ends with each of its calls failing once, up to the start of a
# thread, and how often so; what it leaves open.
fail_each() {
    shim=$(dirname "$(command -v story)")/libfaulty_calls.so
    set -f
    export FAULT_KIND=fail FAULT_REPORT=/w/fault ASAN_OPTIONS=verify_asan_link_order=0
    for command; do
        export FAULT_AT=-1
        until [ $FAULT_AT -gt 0 ] && ! grep -qsv pthread_create fault; do
            rm -rf fault to x $(find /mnt -name "*.ubck")
            FAULT_AT=$((FAULT_AT + 1))
            LD_PRELOAD=$shim $command >out 2>err
            echo $? $(sed '/^held\|^[a-z]*  \|^boot\|%/d; s/^[a-z_]*: //; s,Input/output error,EIO,
                s/: \(nothing\|mend\).*\|;.*//; s,/etc/sysconfig/\|/mnt/sda1/\|/w/to/\|/dev/mmcblk0p6:,,; s/^bound.*  //; s/_[0-9]*/_/; q' err out) $(grep ^held err)
        done >ends
        grep -vxF "$(head -n 1 ends)" ends
    done | sort | uniq -c | sed 's/^ *//'
}

# alter: a finding of each kind in the directory.
alter() {
    rm bin/tool App_VPUCard.bin
    echo dotu >etc/data
    echo more | tee -a vorn-uboot/u >etc/more
    ln -sfn /bin/sh2 sh
    mkdir App_VPUCard.bin et
    echo more >et/file
}

# begin_signed: images of some versions, and a device of the product x that has two keys, to which `keys` leads.
begin_signed() {
    rm -rf /etc/upgd
    mkdir -p tree /etc/upgd/keys
    ln -s /etc/upgd/keys /etc/sysconfig/device.conf .
    echo tool >tree/tool
    echo card >tree/App_VPUCard.bin
    for version in V1.3.89 V1.4.0.0 V1.10 rc1; do
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
