# Catches: another status or reason, or none, where a call of a companion has failed.
$ begin; ln -sf true /bin/sync
$ rm -r tree/App* tree/bin tree/etc /usr/qrx310/etc/vsp; img_deploy -c ./tree -r V7 u.img >/dev/null
$ mkdir -p k/vorn-kernel; mount -t tmpfs k /mntker; echo k | tee k/vorn-kernel/zImage >/mntker/zImage; mount --bind
  /dev/null /dev/mmcblk0p6; img_deploy -c ./k k.img >/dev/null
== an image (show none)
$ fail_each 'img_info --extract x u.img' 'img_info --compare . --device k.img' 'img_info --verify u.img'
    4 1 k.img: can't be read: ./k/vorn-kernel/zImage: EIO
    1 1 k.img: not on its partition: zImage: Cannot allocate memory | 5 1 k.img: not on its partition: zImage: EIO
    5 1 k.img: not on its partition: zImage: the kernel partition can't be mounted
    1 1 u.img: can't be read to its end | 2 1 u.img: entry 0 at offset 488: the image can't be read there
    4 1 u.img: left out: tree/sh: EIO | 9 1 u.img: left out: tree/vorn-uboot/u: EIO
    1 1 u.img: the body can't be read | 3 2 k.img: EIO | 1 2 k.img: can't be read to its end
    2 2 k.img: entry 0: the image can't be read there | 2 2 k.img: entry 0: there is no memory for its paths
    6 2 u.img: EIO | 2 2 x: EIO
== the device
$ cp u.img /mnt/sda1; echo device_name=u >/etc/sysconfig/device.conf; echo 8 1 sda1 >stats
$ mkdir -p /usr/vorn/bin; ln -s /bin/true /usr/vorn/bin/mcu_isp; mount --bind stats /proc/diskstats
$ cp $(upgd_service backup /mnt/sda1) s.ubck
$ fail_each 'upgd_service plan --copy=x --dir to u.img' 'upgd_service update --dir to u.img' 'upgd_service restore
  s.ubck to'  --> 1 0 s.ubck: restored below to, 1 entries | 2 1 /dev/mmcblk0p1: EIO | 3 1 /etc/upgd/keys: EIO
    5 1 /w: its room: EIO | 2 1 a thread can't be started: Resource temporarily unavailable | 15 1 device.conf: EIO
    6 1 entry 0: the image can't be read there | 6 1 entry 0: there is no memory for its paths
    9 1 nothing can be printed: EIO | 6 1 s.ubck: EIO
    2 1 s.ubck: can't be kept below /opt while it is applied: EIO
    1 1 s.ubck: can't be kept while it is applied: EIO | 1 1 s.ubck: can't be read to its end
    1 1 s.ubck: is no settings backup: apply it with \"upgd_service update\" | 2 1 tree/sh: EIO
    1 1 tree/sh: missing | 2 1 tree/vorn-uboot/u: EIO | 9 1 u.img: EIO | 2 1 u.img: can't be read to its end
    1 1 usr/qrx310/etc/sysconf/qrxpara: EIO | 2 1 x: EIO
$ fail_each 'upgd_service flash 24 u.img' 'upgd_service status' 'upgd_service disks' 'upgd_service backup /mnt/sda1'
    6 0 device.conf: EIO | 2 0 no disk: none of those mounted on /mnt/sd* is in /proc/diskstats
    1 0 what commands say can't be kept: EIO | 29 1 /mnt/sda1: the backup failed
    1 1 /mnt/sda1: the disk can't be opened | 2 1 /usr/qrx310/etc/mcucored: was not saved
    4 1 /usr/qrx310/etc/sysconf/qrxpara: can't be read | 1 1 /usr/qrx310/etc/sysconf: can't be read
    1 1 /usr/qrx310/etc: can't be read | 1 1 /usr/qrx310: can't be read | 1 1 /usr: can't be read
    15 1 device.conf: EIO | 12 1 nothing can be printed: EIO | 5 1 the disks can't be listed
    1 1 the progress block, shared memory 0x600001, can't be read: EIO
    1 1 u.img: the tool /usr/vorn/bin/mcu_isp can't be run | 3 1 u_.ubck: EIO
    1 1 u_.ubck: can't be read to its end | 2 1 u_.ubck: entry 0: the image can't be read there
    2 1 u_.ubck: entry 0: there is no memory for its paths | 13 1 u_.ubck: is not what the settings are
== signed
$ rm -r tree; begin_signed
$ fail_each 'img_info --signature maker.pub u.img' 'upgd_service plan u.img'  --> 4 1 /etc/upgd/keys/maker.pub: EIO
    4 1 /etc/upgd/keys/other.pub: EIO | 4 1 /etc/upgd/keys: EIO | 12 1 device.conf: EIO | 4 1 not valid: EIO
    3 1 nothing can be printed: EIO | 4 1 u.img.minisig: EIO | 3 1 u.img: EIO | 1 1 u.img: can't be read to its end
    4 2 maker.pub: EIO | 3 2 u.img: EIO | 1 2 u.img: can't be read to its end
