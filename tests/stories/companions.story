# Catches: a call, image, disk or directory that is taken, refused or told of in another way; a copy that failed
# without a word.
$ begin
== calls that are none, and streams
for "" "frob u.img" update "plan u.img --force" "update --dir= u.img" "restore u.img / x" "update u.img --cards=fail=21"
  "plan --copy= u.img" "flash 24 ''" "flash 24 no" "flash 24 'u v'" => $ touch 'u v'; call @
    2 a verb is missing | 2 'frob' is no verb | 2 update: too few words | 2 plan: unrecognized option '--force'
    2 update: --dir needs a directory | 2 restore: 'x' is a word too many
    2 update: 'fail=21' is no choice for --cards | 2 plan: --copy needs a file | 2 flash: an empty word is no file
    1 no: No such file or directory | 1 u v: not flashed: its path would be taken apart by a command: rename it
$ call flash 31 f; sed -n '2p; $p' err  --> 2 flash: '31' is no type of card file
    Usage: upgd_service flash TYPE FILE [--force] |   30 VPU golden
for "upgd_service disks" "upgd_service --version" "img_info --version" "img_info u.img" => $ @ >/dev/full; echo $?; @
  >&- 2>&- <&-; echo $?  --> upgd_service: standard output: No space left on device | 1 | 0 {2}
    img_info: standard output: No space left on device | 2 | 0 {2}
for 24 80 => $ script -qec "stty cols @; exec upgd_service update u.img --dir to --cards simulate=1" /dev/null | tr '\r'
  '\n' | sed 's/\x1b\[K//g' | grep /5 >l; tail -n 1 l | cut -d: -f1; wc -L <l; grep -oE '[0-9]+ %' l | sort -nc
    done 100 % 5/5 0 | 23 | done                     [#{37}] 100 % 5/5 0 | 79
== an update in its steps
$ upgd_service update --dir=to --cards=simulate=0 -- u.img | sed 's/^ *[0-9]. %  //'  -->   0 %  unpacking
      6 %  video card MCU | 100 %  done | u.img: applied below /w/to, 5 entries
    boot loader and kernel work from the next restart on
$ call update --dir to --cards fail=24 u.img  --> 1 u.img: the video card's MCU was not flashed
$ upgd_service status --json | tr '"' "'"
    {'at_work':'','last_run':'none so far','fw_version':'V7','product':'','fw_floor':'','keys':'0','next':'none'}
== an image with another byte, of another kind
$ cp u.img f.img; printf X | dd of=f.img bs=1 seek=500 conv=notrunc status=none; update f.img; test ! -e to
    1 f.img: has another CRC than its header says: nothing was touched; get it anew, or take it as it is with --force
$ update --force f.img  --> 0 f.img: has another CRC than its header says, which --force passes over
$ cp u.img o.img; exec 5<o.img; rm o.img; update /proc/self/fd/5  --> 0
$ cp $(upgd_service backup /mnt/sda1) s.ubck
for update plan => $ call @ s.ubck
    1 s.ubck: is a settings backup: bring it back with \"upgd_service restore\": nothing was touched {2}
$ mkdir -p bad/tree/etc/data; upgd_service restore u.img bad --force 2>&1 | sed -n 4,5p; upgd_service status | sed -n
  '2p; $p'; echo 2 >/usr/local/upgdflag; upgd_service status | grep -o 'went.*behind'
    upgd_service: u.img: an entry can't be written, or the image is damaged
    upgd_service: a command said: 0+1 records in
    last run        none so far; a restore behind it has failed: 2 of 5 entries
    next step       the last restore did not end well: restore the backup again | went well; a restore behind
$ perl -MSocket -e '$^F = 9; mkdir "/run/mailbox"; socket S, PF_UNIX, SOCK_DGRAM, 0; bind S,
  sockaddr_un("/run/mailbox/010a3b00"); exec @ARGV' upgd_service update u.img --dir to --cards simulate; ls
  /run/mailbox; rm /run/mailbox/*  --> upgd_service: /run/mailbox/010a3b00: another service is at work | 010a3b00
for 64 65 => $ sysconfig set fw_version v{@}; upgd_service restore u.img bad --force 2>&1 | grep kept  --> status 1
    upgd_service: u.img: fw_version is too long to be kept: nothing was touched
== disks
$ cp u.img /mnt/sda1/; cd /mnt/sda1; touch ._u.img x.ubck 'a"\.rcfgx' $(printf '\377\376.ubck')
$ mkdir -p /dev/disk/by-label; ln -s ../../sda1 $(printf '/dev/disk/by-label/A\33[2J')
$ mkdir /mnt/sdb1; mount -t tmpfs tmpfs /mnt/sdb1; printf '8 1 sd%s1 1 2 3\n' a b >stats; mount --bind stats
  /proc/diskstats
$ upgd_service disks | tr -s ' '  --> PATH NAME IMAGES BACKUPS RCFGX | /mnt/sda1 A\\x1b[2J 1 2 1 |  u.img: V7
    /mnt/sdb1 UsbDisk1 0 0 0
$ upgd_service disks --json | sed "s/],/],\n/g" | tr '"' "'"
    [{'path':'/mnt/sda1','name':'A\\u001b[2J','images':['/mnt/sda1/u.img'],
    'backups':['/mnt/sda1/\\u00ff\\u00fe.ubck','/mnt/sda1/x.ubck'], | 'rcfgx':['/mnt/sda1/a\\'\\\\.rcfgx'],
    'versions':['V7']},{'path':'/mnt/sdb1','name':'UsbDisk1','images':[], | 'backups':[], | 'rcfgx':[],
    'versions':[]}]
== a backup and its way back
$ call backup /mnt/sda1/; stat -c '%a %n' $(cat out) | cut -c -20; mv $(cat out) s.ubck  --> 0
    600 /mnt/sda1/unit7_
$ rm -r /usr/qrx310/etc/*; call backup /mnt/sda1; ls /mnt/sda1
    1 nothing was saved: there are no settings below /usr/qrx310/etc/
for / below => $ call restore s.ubck @; cat @/usr/qrx310/etc/vsp/s  --> 0 | s {2}
$ call restore s.ubck u.img/x; mkdir /mnt/sda
    1 /w/u.img/x/usr/qrx310/etc/vsp/s: a file stands in the place of its directory
$ cd /usr/qrx310/etc; ln -s nowhere vsp/d; : >vsp/e; mkdir -p vsp/m mcucored; echo s >vsp/s; ln -s ../vsp/s mcucored/l;
  call backup /mnt/sda1; backup_by '/w/cp "$@"; rm -f $3/mcucored/l'  --> 0
    1 /usr/qrx310/etc/mcucored: was not saved
$ call backup /mnt/sda  --> 1 /mnt/sda: no disk is mounted there: nothing was saved
$ backup_by '/w/cp "$@"; ! [ $3 = /mnt/sda1 ] || sed -i s/vsp/Vsp/ $3/*.ubck'
    1 has another CRC than its header says; make room and save again
$ backup_by '[ ${2##*/} = qrxpara ] || /w/cp "$@"'  --> 1 /usr/qrx310/etc/sysconf: was not saved
$ backup_by '/w/cp "$@"; ! [ ${2##*/} = vsp ] || echo other >$3/vsp/s'  --> 1 /usr/qrx310/etc/vsp/s: other content
for "truncate -s 600" "printf X | dd bs=1 seek=490 conv=notrunc of=z.img; :" => $ cp u.img z.img; replace sync 'cd /w; @
  z.img'; update z.img; umount /bin/sync
    1 z.img: applied below /w/to, but could not be compared: the image can't be read there
    1 z.img: applied below /w/to, but could not be compared: its name, type or size is not what was tested
$ sysconfig set fw_version V6; cp $(upgd_service backup /mnt/sda1) s.ubck
$ replace sysconfig 'echo "$*"; cd usr/*/etc && echo other | tee vsp/s >sysconf/qrxpara'
$ call restore s.ubck below | cut -c1; sed '/ but/d' err | sort  --> 1
    upgd_service: /w/below/usr/qrx310/etc/sysconf/qrxpara: other content
    upgd_service: /w/below/usr/qrx310/etc/vsp/s: other content | upgd_service: a command said: set fw_version V6
$ update u.img | tr ';' '\n'
    1 u.img: all of it was applied, but its version 'V7' was not recorded: fw_version is 'V6'
     set it with \"sysconfig set fw_version\"
$ mkdir /mnt/sdb1; mount -t tmpfs -o size=150m any /mnt/sdb1; umount /mnt/root; mount -t tmpfs -o size=50m /dev/root
  /mnt/root; umount /mnt/sda1; call backup /mnt/sdb1; umount /mnt/root; call backup /mnt/sdb1
    1 /mnt/sdb1: too little room on the device: 100,000 KiB are kept free
    1 /mnt/sdb1: the room on the device can't be measured: df(1) shows no file system /dev/root
== one card's file
$ mkdir -p /usr/vorn/bin; cp /bin/mcu_isp /usr/vorn/bin; cd /usr/vorn/bin; for x in -x +x; do chmod $x *; call flash 24
  /w/u.img; done; cat out /run/sandbox/calls
    1 /w/u.img: not flashed: the tool /usr/vorn/bin/mcu_isp: Permission denied | 0
    /w/u.img: the tool was called and has ended with status 0; the card itself was not asked
    mcu_isp\t-B\tvpu\t-C\t0x31\t-b\t/w/u.img\t-r\t0x00
for 202 203 => $ cp u.img 0{@}; call flash 24 0{@}  --> 0
    1 0{203}: not flashed: its path is too long for the tool's command: rename it
$ printf '#!/bin/sh\necho no card; exit 13\n' >/usr/vorn/bin/mcu_isp; call flash vpu-mcu u.img; sed 1d err
    1 u.img: the tool /usr/vorn/bin/mcu_isp was called and has ended with status 13
    upgd_service: a command said: no card
$ cp u.img InputCardTop.bin; call flash 24 InputCardTop.bin | tr ';' '\n'
    1 InputCardTop.bin: by its name it is for input FPGA, and not for VPU MCU: nothing was touched
     rename it, or flash it with --force
== an image against a directory
$ img_deploy -u u.img -m 2 >out 2>&1; upgd_service status | grep last; cd /opt/upgddir/tree; alter; cd ..; img_info
  --compare . --extra /w/u.img | sort | cut -d' ' -f2-  --> last run        went well | missing: ./tree/bin/tool
    not of the image: ./tree/et: a directory | not of the image: ./tree/etc/more | other content: ./tree/etc/data
    other content: ./tree/vorn-uboot/u | other kind: ./tree/App_VPUCard.bin | other target: ./tree/sh
$ upgd_service plan u.img --dir /opt/upgddir --json | sed -E 's/(free_kib":)[0-9]+/\1N/; s/,"[vbkdr]/\n&/g' | tr '"' "'"
    {'image':'u.img','signed':false | ,'directory':'/opt/upgddir' | ,'version_now':'V7' | ,'version_next':'V7'
    ,'downgrade':false,'new':1,'changed':3,'same':0,'in_the_way':1
    ,'room':[{'mount_point':'/','more_kib':4,'free_kib':N}] | ,'boot_loader_bytes':5 | ,'kernel':[],'cards':[]
    ,'bound_to_fail':['/opt/upgddir/tree/App_VPUCard.bin: a directory stands there']}
$ sysconfig set fw_version V9; cd /opt/upgddir; rmdir tree/*.bin; echo data >tree/etc/data; upgd_service plan /w/u.img
  --dir . --cards simulate | sed 's/[0-9]* KiB f/N KiB f/; s/  */ /'  --> signature none is asked for
    directory /opt/upgddir/. | version V9 -> V7, a downgrade | files 2 new, 2 changed, 1 the same, 0 in the way
    room /: 8 KiB more at the fullest, N KiB free | boot loader     5 bytes to /dev/mmcblk0p1, no time limit
    card VPU MCU, at most 30 s | /w/u.img: can be applied
== directories of an image
image t.img -- d.d/f 0 x d/f 0 x y 0 x ;; $ mkdir -p d/a; img_info --compare . --extra t.img | grep dir
    t.img: not of the image: ./tree: a directory | t.img: not of the image: ./d/a: a directory
image d.img crc=0xac4081f6 -- a/d 1 "" a/d/f 0 x ;; $ img_info d.img | tail -n 2; img_info --extract new d.img; img_info
  --extract new d.img; img_info --compare new --extra d.img  --> directory              0  a/d
    file                   1  a/d/f | img_info: d.img: left out: a/d/f: File exists
    d.img: well, 2 entries as they stand below new
$ update d.img; grep boot out; rm -r to/a/d; echo x >to/a/d; img_info --compare to d.img; bound d.img --dir to; rm
  to/a/d; ln -s /tmp to/a/d; img_info --compare to d.img  --> 0 | d.img: other kind: to/a/d
    d.img: missing: to/a/d/f | /w/to/a/d: no directory stands there
    /w/to/a/d/f: a file stands in the place of its directory | d.img: missing: to/a/d/f | status 1
== room
$ mkdir -p r/s to/r/s; truncate -s 300000 r/a; echo x >r/s/b; img_deploy -c ./r r.img >out; head -c 200000 /dev/urandom
  >to/r/s/b
for : "ln to/r/s/b b" => $ @; upgd_service plan r.img --dir to | grep -o '[0-9]* KiB m'  --> 296 KiB m | 300 KiB m
== what is bound to fail
$ mkdir -p to/tree/bin/tool; echo file >to/tree/etc; call plan u.img --dir to; bound u.img --dir to | sort  --> 1
    /w/to/tree/bin/tool: a directory stands there | /w/to/tree/etc/data: a file stands in the place of its directory
$ update u.img | cut -c 1; tail -n 1 err; find to | wc -l  --> 1
    upgd_service: u.img: bound to fail: nothing was touched; mend that, or try it with --force | 5
$ bound u.img --dir new --cards flash
    /w/new/tree/App_VPUCard.bin: the tool /usr/vorn/bin/mcu_isp: No such file or directory
for "w y" 0{200} => $ mkdir -p '@/tree/vorn-uboot'; touch '@/tree/vorn-uboot/u'; img_info --compare '@' u.img | grep -c
  missing; bound u.img --dir '@' | sed -n 's/.*\(bin\|tool\|u\): //p' | sort -u  --> 1
    its directory can't be made by a command | its path would be taken apart by a command | 3
    its path is too long for the command that installs it | its path is too long for the tool's command
$ mkdir long; ln -s /bin/sh long/l{111}; img_deploy -c ./long long.img >out 2>&1; img_info --verify long.img | tr ,
  '\n'; img_info --verify --base / long.img  --> long.img: entry 0 at offset 488
     long/l{111};/bin/sh: its path and target are too long for a link |  below /opt/upgddir/ | long.img: 1 finding
    long.img: well, 1 entries
$ umount /dev/mmcblk0p1; mv /dev/mmcblk0p1 x; mkdir -p part/tree/sh; img_info --compare part --device u.img | grep -v
  missing; mv x /dev/mmcblk0p1  --> u.img: other kind: part/tree/sh
    u.img: not on its partition: /dev/mmcblk0p1: No such file or directory
for u.img "p;q" => $ bound u.img --dir '@'  --> /w/u.img: is no directory | /w/p;q: can't be made by a command
$ mkdir l; ln -s tree l/tree; img_info --compare l --extra u.img | grep -o 'read.*' | sort | sed -n '1p; $p'; bound
  u.img --dir l | wc -l  --> read: l/tree/App_VPUCard.bin: Too many levels of symbolic links
    read: l/tree: Too many levels of symbolic links | 5
$ mkdir /opt/to; img_deploy -p 3 -c ./tree c.img /opt/to >out; img_info c.img | grep Place; upgd_service update c.img
  --cards simulate=0 | grep below; rm -r /opt/to; bound c.img; bound u.img  --> Place             target directory
    c.img: applied below /opt/to, 5 entries | /opt/to: there is no such directory
    /nand: there is no such directory
$ mkdir small; mount -t tmpfs -o size=12k tmpfs small; update --dir small --force u.img; sed -n '2,3p' err
    1 /w/small: too little room: 16 KiB are needed, 12 KiB are free
    upgd_service: u.img: bound to fail, which --force passes over
    upgd_service: u.img: there is no room left on the device: make room, and apply it again
$ mkdir -p m to/m; for i in $(seq 25); do echo x >m/$i; mkdir to/m/$i; done; img_deploy -c ./m m.img >out; update m.img;
  sed -n '21p; $=' err  --> 1 /w/to/m/25: a directory stands there | upgd_service: and more | 22
