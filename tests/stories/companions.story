# Catches: a call, image, disk or directory that upgd_service and img_info take, refuse or tell of in another way; a
# copy that failed without a word; a card's tool that is called in another way.
$ for f in begin call update replace backup_by alter; do install $STORIES/companions.sh /usr/local/bin/$f; done; begin
== calls that are none, and streams (show none)
for "" "frob u.img" update "plan u.img --force" "update --dir= u.img" "restore u.img / x" "update u.img
  --cards=fail=21" => $ call @  --> 2 a verb is missing | 2 'frob' is no verb | 2 update: too few words
    2 plan: unrecognized option '--force' | 2 update: --dir needs a directory | 2 restore: 'x' is a word too many
    2 update: 'fail=21' is no choice for --cards
$ call flash 31 f; sed -n '2p; $p' err  --> 2 flash: '31' is no type of card file
    Usage: upgd_service flash TYPE FILE [--force] |   30 VPU golden
for "upgd_service disks" "upgd_service --help" "img_info --version" => $ @ >/dev/full; echo $?; @ >&- 2>&- <&-; echo $?
    upgd_service: standard output: No space left on device | 1 | 0 {2}
    img_info: standard output: No space left on device | 2 | 0
== an update in its steps, one whose card fails, and the status
$ upgd_service update --dir=to --cards=simulate=0 -- u.img | sed 's/^ *[0-9]* %  //'  --> unpacking | video card MCU
    done | u.img: applied below /w/to, 5 entries | boot loader and kernel work from the next restart on
$ call update --dir to --cards fail=24 u.img  --> 1 u.img: the video card's MCU was not flashed
$ upgd_service status --json | tr '"' "'"
    {'at_work':'','last_run':'none so far','fw_version':'V7','product':'','fw_floor':'','keys':'0','next':'none'}
== an image with another byte, of another kind, or whose name is gone
$ cp u.img f.img; printf X | dd of=f.img bs=1 seek=500 conv=notrunc status=none; update f.img; ls to
    1 f.img: has another CRC than its header says: nothing was touched; get it anew, or take it as it is with --force
    ls: cannot access 'to': No such file or directory | status 2
$ update --force f.img  --> 0 f.img: has another CRC than its header says, which --force passes over
$ cp u.img o.img; exec 5<o.img; rm o.img; update /proc/self/fd/5  --> 0
$ call restore u.img  --> 1 u.img: is no settings backup: apply it with \"upgd_service update\": nothing was touched
$ cp $(upgd_service backup /mnt/sda1) s.ubck
for update plan => $ call @ s.ubck
    1 s.ubck: is a settings backup: bring it back with \"upgd_service restore\": nothing was touched {2}
== disks
$ cp u.img /mnt/sda1/; cd /mnt/sda1; touch ._u.img 'a"\.rcfgx' $(printf '\377\376.ubck')
$ mkdir -p /dev/disk/by-label; ln -s ../../sda1 $(printf '/dev/disk/by-label/A\33[2J')
$ echo '8 1 sda1 1 2 3' >stats; mount --bind stats /proc/diskstats
$ upgd_service disks | tr -s ' '  --> PATH NAME IMAGES BACKUPS RCFGX | /mnt/sda1 A\\x1b[2J 1 1 1 |  u.img: V7
$ upgd_service disks --json | sed "s/],/],\n/g" | tr '"' "'"
    [{'path':'/mnt/sda1','name':'A\\u001b[2J','images':['/mnt/sda1/u.img'],
    'backups':['/mnt/sda1/\\u00ff\\u00fe.ubck'], | 'rcfgx':['/mnt/sda1/a\\'\\\\.rcfgx'], | 'versions':['V7']}]
== a backup and its way back
$ call backup /mnt/sda1/; stat -c '%a %n' $(cat out) | cut -c -20; mv $(cat out) s.ubck  --> 0
    600 /mnt/sda1/unit7_
$ rm -r /usr/qrx310/etc/*; call backup /mnt/sda1; ls /mnt/sda1
    1 nothing was saved: there are no settings below /usr/qrx310/etc/
for / below => $ call restore s.ubck @; cat @/usr/qrx310/etc/vsp/s  --> 0 | s {2}
$ call restore s.ubck u.img/x; mkdir /mnt/sda
    1 /w/u.img/x/usr/qrx310/etc/vsp/s: a file stands in the place of its directory
for sda sdz => $ call backup /mnt/@  --> 1 /mnt/sda: no disk is mounted there: nothing was saved
    1 /mnt/sdz: the disk can't be opened
$ backup_by '/w/cp "$@"; ! [ $3 = /mnt/sda1 ] || sed -i s/vsp/Vsp/ $3/*.ubck'
    1 what was saved has another CRC than its header says; make room and save again
$ backup_by '[ ${2##*/} = qrxpara ] || /w/cp "$@"'  --> 1 /usr/qrx310/etc/sysconf: was not saved
$ backup_by '/w/cp "$@"; ! [ ${2##*/} = vsp ] || echo other >$3/vsp/s'  --> 1 /usr/qrx310/etc/vsp/s: other content
$ sysconfig set fw_version V6; cp $(upgd_service backup /mnt/sda1) s.ubck
$ replace sysconfig 'echo "$*" >>/w/recorded; ! test -d usr || echo other >usr/qrx310/etc/vsp/s'
$ call restore s.ubck below; cat recorded  --> 1 /w/below/usr/qrx310/etc/vsp/s: other content | set fw_version V6
$ update u.img | tr ';' '\n'
    1 u.img: all of it was applied, but its version 'V7' was not recorded: fw_version is 'V6'
     set it with \"sysconfig set fw_version\"
== one card's file
$ call flash 24 u.img  --> 1 u.img: not flashed: the tool /usr/vorn/bin/mcu_isp: No such file or directory
$ mkdir -p /usr/vorn/bin; cp /bin/mcu_isp /usr/vorn/bin; call flash 24 u.img; cat /run/sandbox/calls  --> 0
    mcu_isp\t-B\tvpu\t-C\t0x31\t-b\tu.img\t-r\t0x00
$ printf '#!/bin/sh\necho no card; exit 3\n' >/usr/vorn/bin/mcu_isp; call flash vpu-mcu u.img; sed 1d err
    1 u.img: the tool /usr/vorn/bin/mcu_isp was called and has ended with status 3
    upgd_service: a command said: no card
$ cp u.img InputCardTop.bin; call flash 24 InputCardTop.bin | tr ';' '\n'
    1 InputCardTop.bin: by its name it is for input FPGA, and not for VPU MCU: nothing was touched
     rename it, or flash it with --force
== an image against a directory, and what an update would do there
$ img_deploy -u u.img -m 2 >out 2>&1; cd /opt/upgddir; img_info --compare . --extra /w/u.img
    /w/u.img: well, 5 entries as they stand below .
$ cd /opt/upgddir/tree; alter; cd ..; img_info --compare . --extra /w/u.img | sort | cut -d' ' -f2-
    missing: ./tree/bin/tool | not of the image: ./tree/et: a directory | not of the image: ./tree/etc/more
    other content: ./tree/etc/data | other content: ./tree/vorn-uboot/u | other kind: ./tree/App_VPUCard.bin
    other target: ./tree/sh
$ img_info --compare none u.img  --> img_info: none: No such file or directory | status 2
$ head -c 500 u.img >cut.img; img_info --compare . cut.img
    img_info: cut.img: entry 0: its name has no end; the rest was not compared | status 2
for "" --json => $ upgd_service plan u.img --dir /opt/upgddir --cards simulate @ | grep -oE
  '^files.*|"downgrade.*"in_the_way":.' | tr '"' "'"  --> files           1 new, 3 changed, 0 the same, 1 in the way
    'downgrade':false,'new':1,'changed':3,'same':0,'in_the_way':1
$ upgd_service plan u.img --dir to --cards simulate | grep ^card  --> card            VPU MCU, at most 30 s
== entries of one path: the last one stands there
$ mkdir -p t/.d /opt/upgddir/x; echo one >t/f; echo two >t/.d/f; img_deploy -c t t.img >out
$ img_deploy -u t.img -m 2 >out 2>&1; img_info --compare /opt/upgddir --extra t.img
    t.img: not of the image: /opt/upgddir/x: a directory | status 1
== room is what a run takes at its fullest
$ mkdir -p r/s to/r/s; truncate -s 300000 r/a; echo x >r/s/b; img_deploy -c ./r r.img >out
$ head -c 200000 /dev/urandom >to/r/s/b; upgd_service plan r.img --dir to | sed -n 's/, .*//; s/^room  *//p'
    /: 296 KiB more at the fullest
== what is bound to fail is told entry by entry, and nothing is touched
$ mkdir -p to/tree/bin/tool; echo file >to/tree/etc; call plan u.img --dir to --cards simulate; grep -E
  '^(files|bound)' out | sort  --> 1 | bound to fail   /w/to/tree/bin/tool: a directory stands there
    bound to fail   /w/to/tree/etc/data: a file stands in the place of its directory
    files           3 new, 0 changed, 0 the same, 2 in the way
$ update u.img | cut -c 1; tail -n 1 err; find to | sort  --> 1
    upgd_service: u.img: bound to fail: nothing was touched; mend that, or try it with --force | to | to/tree
    to/tree/bin | to/tree/bin/tool | to/tree/etc
$ upgd_service plan u.img --dir new | grep ^bound
    bound to fail   /w/new/tree/App_VPUCard.bin: the tool /usr/vorn/bin/mcu_isp: No such file or directory
for "w y" 0{200} => $ mkdir -p '@/tree'; upgd_service plan u.img --dir '@' --cards simulate | sed -n
  's/^bound.*\(bin\|tool\|u\): //p' | sort -u  --> its directory can't be made by a command
    its path would be taken apart by a command | its path is too long for the command that installs it
    its path is too long for the tool's command
$ mkdir long; ln -s /bin/sh long/l{111}; img_deploy -c ./long long.img >out 2>&1; img_info --verify long.img | tr , '\n'
    long.img: entry 0 at offset 488 |  long/l{111};/bin/sh: its path and target are too long for a link
     below /opt/upgddir/ | long.img: 1 finding
$ img_info --verify --base / long.img  --> long.img: well, 1 entries
