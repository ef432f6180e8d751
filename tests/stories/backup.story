# Catches: a wrong size, limit, step, command or content of a backup.
$ sysconfig set device_name unit7; mkdir -p /mnt/u ;; output "du -sk" "50\n" ;; output "/bin/date" "2026\n" ;; output "
  df |grep /d" "100050\n" ;; output " df |grep /m" "100050\n"
== a backup in all its lines (show log:, run, read, fsync)
$ mkdir -p /usr/qrx310/etc; cd /usr/qrx310/etc; mkdir -p vsp/deep mcucored sysconf; printf l >vsp/deep/layout; printf c
  >mcucored/conf; ln -s conf mcucored/link; printf p >sysconf/qrxpara; printf o >other
$ ln -s /w /tmp/ubackup ;; at read /bin/date => $ stat -c %A /tmp/ubackup ;; at END => $ pwd ;; do_create_backup /mnt/u
    log: START | : build .ubck at udisk: /mnt/u\s | read du -sk /usr/qrx310/etc/ |awk '{print $1}'
    log: ubackup size    =  00000050 Bytes | read  df |grep /dev/root |awk '{print $4}'
    log: sys_avail_size  =  00100050 Bytes | read  df |grep /mnt/u |awk '{print $4}'
    log: udisk_avail_size = 00100050 Bytes | : creat dir: /tmp/ubackup | run /bin/rm -rf /tmp/ubackup
    run /bin/mkdir -p /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf
    run /bin/cp -rf /usr/qrx310/etc/mcucored /tmp/ubackup/bkdir/usr/qrx310/etc/
    run /bin/cp -rf /usr/qrx310/etc/vsp /tmp/ubackup/bkdir/usr/qrx310/etc/
    run /bin/cp -rf /usr/qrx310/etc/sysconf/qrxpara /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf/
    read /bin/date +%Y%m%d%H%M | drwx------ | log: begin to create updfilename = unit7_2026.ubck\s
    : do_create /tmp/ubackup/unit7_2026.ubck, chdir to /tmp/ubackup/bkdir
    run /bin/cp -rf /tmp/ubackup/unit7_2026.ubck /mnt/u | run sync | fsync /mnt/u/unit7_2026.ubck
    log: do_create ubck success ! | : return .ubck file: /mnt/u/unit7_2026.ubck | : remove dir: /tmp/ubackup
    run /bin/rm -rf /tmp/ubackup | log: END | /tmp | = 0 "/mnt/u/unit7_2026.ubck"
$ ls /tmp .; rm -r /usr/qrx310/etc/*  --> .: | /tmp:
show none ;; do_update_backup /mnt/u/unit7_2026.ubck / ;; tree /usr/qrx310/etc  --> = 0 | mcucored/conf = c
    mcucored/link -> conf | sysconf/qrxpara = p | vsp/deep/layout = l
== the room, to the last block (show enough, 2147483647)
for "3000000000 100050" "100050 100049" "100050 -3000000000" => output " df |grep /d" "@1\n" ;; output "
  df |grep /m" "@2\n" ;; do_create_backup /mnt/u  --> log: sys_avail_size  =  2147483647 Bytes
    = 0 "/mnt/u/unit7_2026.ubck" | log: udisk_avail_size is not enough.resverd size is 100M. | = -13 "old" {2}
for "100049\n" "" => output " df |grep /d" "@" ;; do_create_backup /mnt/u
    log: sys_avail_size is not enough.resverd size is 100M. | = -12 "old" {2}
== what fails ahead of the image (show can't open, faild, error, file name, in a command)
for /none "/mnt/a b" => $ mkdir -p "/mnt/a b" ;; do_create_backup "@"
    log: '/none' can't open. please check path | = -11 "old" | log: '/mnt/a b' has no place in a command
    = -1 "old"
for "read du" "read  df |grep /d" "read  df |grep /m" "read /bin/date" => fail "@" ;; do_create_backup /mnt/u
    log: get ubackup size faild. | = -1 "old" {3} | log: get ubackup name(date) faild. | = -1 "old"
fail ;; for "unit 7" a/unit7 0{32} -0{30} => $ sysconfig set device_name "@" ;; do_create_backup /mnt/u
    log: '/tmp/ubackup/unit 7_2026.ubck' has no place in a command | = -1 "old"
    log: device_name <a/unit7> is no file name of at most 31 characters | = -1 "old"
    log: device_name <0{32}> is no file name of at most 31 characters | = -1 "old" | = 0 "/mnt/u/-0{30}_2026.ubck"
$ rm -r /etc/sysconfig ;; do_create_backup /mnt/u ;; $ sysconfig set x y ;; do_create_backup /mnt/u
    log: sysconf_open error | = -1 "old" | : sysconf get env device_name error | = -1 "old"
$ ls -d /tmp/ubackup; rm -r /tmp/ubackup; sysconfig set device_name unit7  --> /tmp/ubackup
show /tmp/ubackup is ;; fail "run /bin/rm"
for "ln -s /mnt/u /tmp/ubackup" "rm /tmp/ubackup; mkdir -m 702 /tmp/ubackup" "chmod 720 /tmp/ubackup" "chmod 700
  /tmp/ubackup; chown 7 /tmp/ubackup 2>&- || chmod 702 /tmp/ubackup" "chown 0 /tmp/ubackup; chmod 755 /tmp/ubackup" => $
  @ ;; do_create_backup /mnt/u  --> log: /tmp/ubackup is no directory of our own alone: remove it | = -1 "old" {4}
    = 0 "/mnt/u/unit7_2026.ubck"
$ stat -c %a /mnt/u /tmp/ubackup  --> 755 | 700
== what fails with an image (show ubck faild, do_create error, accessing, too long)
at read /bin/date => $ rm -r /mnt/u ;; do_create_backup /mnt/u  --> log: accessing img is not  F_OK | = -1 "old"
for 81 82 94 95 => $ mkdir -p /mnt/u /mnt/d{@} ;; do_create_backup /mnt/d{@}  --> = 0 "/mnt/d{81}/unit7_2026.ubck"
    log: command too long for </tmp/ubackup/unit7_2026.ubck>. | = -1 "old" {2}
    log: command too long for </mnt/d{95}>. | = -1 "old"
for "run /bin/cp -rf /tmp" fsync "run /bin/mkdir" => fail "@" ;; do_create_backup /mnt/u
    log: do_create ubck faild ! | = -1 "/mnt/u/unit7_2026.ubck" {2} | log: do_create error !!! | = -1 "old"
$ ls /tmp
