# Catches: a wrong size, limit, step, command or result of a settings backup; what it saves, brings back and leaves; a
# name or path that a command would take apart.
$ sysconfig set device_name unit7; mkdir -p /mnt/sda1
output "du -sk" "50\n" ;; output "/bin/date" "202601020304\n" ;; output " df |grep /d" "100050\n" ;;
  output " df |grep /m" "100050\n"
== a backup in all its lines, and its way back (show log:, run, read, fsync)
$ cd /usr; mkdir -p qrx310/etc/vsp/deep qrx310/etc/mcucored qrx310/etc/sysconf; cd qrx310/etc; printf l
  >vsp/deep/layout; printf c >mcucored/conf; ln -s conf mcucored/link; printf p >sysconf/qrxpara; printf o >other
$ ln -s /w /tmp/ubackup ;; at read /bin/date => $ stat -c %A /tmp/ubackup ;; at END => $ pwd ;;
  do_create_backup /mnt/sda1  --> log: START | : build .ubck at udisk: /mnt/sda1\s
    read du -sk /usr/qrx310/etc/ |awk '{print $1}' | log: ubackup size    =  00000050 Bytes
    read  df |grep /dev/root |awk '{print $4}' | log: sys_avail_size  =  00100050 Bytes
    read  df |grep /mnt/sda1 |awk '{print $4}' | log: udisk_avail_size = 00100050 Bytes | : creat dir: /tmp/ubackup
    run /bin/rm -rf /tmp/ubackup | run /bin/mkdir -p /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf
    run /bin/cp -rf /usr/qrx310/etc/mcucored /tmp/ubackup/bkdir/usr/qrx310/etc/
    run /bin/cp -rf /usr/qrx310/etc/vsp /tmp/ubackup/bkdir/usr/qrx310/etc/
    run /bin/cp -rf /usr/qrx310/etc/sysconf/qrxpara /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf/
    read /bin/date +%Y%m%d%H%M | drwx------ | log: begin to create updfilename = unit7_202601020304.ubck\s
    : do_create /tmp/ubackup/unit7_202601020304.ubck, chdir to /tmp/ubackup/bkdir
    run /bin/cp -rf /tmp/ubackup/unit7_202601020304.ubck /mnt/sda1 | run sync
    fsync /mnt/sda1/unit7_202601020304.ubck | log: do_create ubck success !
    : return .ubck file: /mnt/sda1/unit7_202601020304.ubck | : remove dir: /tmp/ubackup
    run /bin/rm -rf /tmp/ubackup | log: END | /tmp | = 0 "/mnt/sda1/unit7_202601020304.ubck"
entries /mnt/sda1/unit7_202601020304.ubck ;; $ ls -d /tmp/ubackup; ls; rm -r /usr/qrx310/etc/*
    = 4 in 7 directories of . | usr/qrx310/etc/mcucored/conf 0 c | usr/qrx310/etc/mcucored/link;conf 4 
    usr/qrx310/etc/sysconf/qrxpara 0 p | usr/qrx310/etc/vsp/deep/layout 0 l
    ls: cannot access '/tmp/ubackup': No such file or directory
show none ;; do_update_backup /mnt/sda1/unit7_202601020304.ubck / ;; tree /usr/qrx310/etc  --> = 0
    mcucored/conf = c | mcucored/link -> conf | sysconf/qrxpara = p | vsp/deep/layout = l
== the room, to the last block; a disk of more than 2 TiB (show sys_avail_size, udisk_avail_size)
for "3000000000 100050" "100050 100049" "100049 100049" "100050 -3000000000" => output " df |grep /d" "@1\n" ;;
  output " df |grep /m" "@2\n" ;; do_create_backup /mnt/sda1  --> log: sys_avail_size  =  2147483647 Bytes
    : udisk_avail_size = 00100050 Bytes | = 0 "/mnt/sda1/unit7_202601020304.ubck"
    log: sys_avail_size  =  00100050 Bytes | : udisk_avail_size = 00100049 Bytes
    : udisk_avail_size is not enough.resverd size is 100M. | = -13 "untouched"
    log: sys_avail_size  =  00100049 Bytes | : udisk_avail_size = 00100049 Bytes
    : sys_avail_size is not enough.resverd size is 100M. | = -12 "untouched"
    log: sys_avail_size  =  00100050 Bytes | : udisk_avail_size = -2147483648 Bytes
    : udisk_avail_size is not enough.resverd size is 100M. | = -13 "untouched"
show enough ;; output " df |grep /d" "" ;; do_create_backup /mnt/sda1
    log: sys_avail_size is not enough.resverd size is 100M. | = -12 "untouched"
== what fails ahead of the scratch tree, and with it (show can't open, faild, error, file name, in a command)
for /none "/mnt/a;b" => $ mkdir -p "/mnt/a;b" ;; do_create_backup "@"
    log: '/none' can't open. please check path | = -11 "untouched" | log: '/mnt/a;b' has no place in a command
    = -1 "untouched"
for "read du" "read  df |grep /d" "read  df |grep /m" "read /bin/date" => fail "@" ;; do_create_backup /mnt/sda1
    log: get ubackup size faild. | = -1 "untouched" {3} | log: get ubackup name(date) faild. | = -1 "untouched"
fail
for "unit;7" a/unit7 "$(printf %032d 0)" "-#~$(printf %028d 0)" => $ sysconfig set device_name "@" ;;
  do_create_backup /mnt/sda1  --> log: '/tmp/ubackup/unit;7_202601020304.ubck' has no place in a command
    = -1 "untouched" | log: device_name <a/unit7> is no file name of at most 31 characters | = -1 "untouched"
    log: device_name <0{32}> is no file name of at most 31 characters | = -1 "untouched"
    = 0 "/mnt/sda1/-#~0000000000000000000000000000_202601020304.ubck"
$ rm -r /etc/sysconfig ;; do_create_backup /mnt/sda1 ;; $ sysconfig set x y ;; do_create_backup /mnt/sda1
    log: sysconf_open error | = -1 "untouched" | : sysconf get env device_name error | = -1 "untouched"
$ ls -d /tmp/ubackup; rm -r /tmp/ubackup; sysconfig set device_name unit7  --> /tmp/ubackup
show /tmp/ubackup is, error ;; fail "run /bin/rm"
for "ln -s /mnt/sda1 /tmp/ubackup" "rm /tmp/ubackup; mkdir -m 702 /tmp/ubackup" "chmod 720 /tmp/ubackup"
  "chmod 700 /tmp/ubackup; chown 7 /tmp/ubackup 2>&- || chmod 702 /tmp/ubackup"
  "chown 0 /tmp/ubackup; chmod 755 /tmp/ubackup" => $ @ ;; do_create_backup /mnt/sda1 ;;
  $ stat -Lc %a /tmp/ubackup | tr 2 0  --> log: /tmp/ubackup is no directory of our own alone: remove it
    : do_create error !!! | = -1 "untouched" | 755 | log: /tmp/ubackup is no directory of our own alone: remove it
    : do_create error !!! | = -1 "untouched" | 700 {3} | = 0 "/mnt/sda1/unit7_202601020304.ubck" | 700
== what fails with an image, which goes with the scratch tree (show do_create ubck, do_create error, accessing, command
  too long)
at read /bin/date => $ rm -r /mnt/sda1 ;; do_create_backup /mnt/sda1  --> log: accessing img is not  F_OK
    = -1 "untouched"
$ mkdir /mnt/sda1; for n in 73 74 94 95; do mkdir -p /mnt/$(printf 'd%.0s' $(seq $n)); done
for 73 74 94 95 => do_create_backup /mnt/d{@}  --> log: do_create ubck success !
    = 0 "/mnt/d{73}/unit7_202601020304.ubck" | log: command too long for </tmp/ubackup/unit7_202601020304.ubck>.
    = -1 "untouched" {2} | log: command too long for </mnt/d{95}>. | = -1 "untouched"
for "run /bin/cp -rf /tmp" "run /bin/mkdir" fsync => fail "@" ;; do_create_backup /mnt/sda1
    log: do_create ubck faild ! | = -1 "/mnt/sda1/unit7_202601020304.ubck" | log: do_create error !!!
    = -1 "untouched" | log: do_create ubck faild ! | = -1 "/mnt/sda1/unit7_202601020304.ubck"
$ ls -d /tmp/ubackup  --> ls: cannot access '/tmp/ubackup': No such file or directory | status 2
