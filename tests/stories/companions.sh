#!/bin/sh
# For companions.story, under the name of a function. The image is u.img.
# shellcheck disable=SC2046 # results are words of a line

# begin: an image, a device with settings, and a disk on /mnt/sda1.
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
            rm -rf fault to x
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

"${0##*/}" "$@"
