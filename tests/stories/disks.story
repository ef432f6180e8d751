# Catches: a disk or file shown or left out by mistake; a wrong line or byte.
== an inventory and its messages (show log:, read ls, out found)
$ for d in sda sdc; do mkdir -p /mnt/$d; mount -t tmpfs tmpfs /mnt/$d; done; echo 8 1 sda >stats; mount --bind stats
  /proc/diskstats; mkdir -p /dev/disk/by-label; ln -s ../../sda /dev/disk/by-label/ADD
$ cd /mnt/sda; touch b.ubck c.rcfgx d.txt "'; a.img"; mkdir sub; touch sub/deep.img ;; get_udisk_all_info
    log: start.(upgd/update/) | : cmd=/bin/mount |grep /mnt/sd |awk '{print $3}' | : popen ok
    : udisk_path = /mnt/sda, u_path_name = sda | : strlen(udisk_path) =8 | : udisk_path = /mnt/sda
    read ls -l /dev/disk/by-label/ |grep sda |awk '{print $9}' | log: get udisk_label = ADD
    : cmd=/usr/bin/find /mnt/sda -maxdepth 1 -name '*.img' | : </mnt/sda>:/mnt/sda/'; a.img
    : </mnt/sda>: uimg_num = 1 | : cmd=/usr/bin/find /mnt/sda -maxdepth 1 -name '*.ubck'
    : </mnt/sda>: /mnt/sda/b.ubck | : </mnt/sda>: uback_num = 1
    : cmd=/usr/bin/find /mnt/sda -maxdepth 1 -name '*.rcfgx' | : </mnt/sda>:/mnt/sda/c.rcfgx
    : </mnt/sda>: urcfg_num = 1 | : udisk_path = /mnt/sdc, u_path_name = sdc | : found all udisk, udisk_num = 1
    : end.(upgd/update/) | = 0 and 1 | /mnt/sda <ADD> 1 /mnt/sda/'; a.img 1 /mnt/sda/b.ubck 1 /mnt/sda/c.rcfgx
    out found all udisk, udisk_num = 1
show log: start, log: end, data edit, send, out send ;; mailbox 010a3900 ;; sendmsg_udisk_all_info  --> log: start
    send 010a3900 \0{16}\x03\0\x1D\0x%\0\0\x01\0{135}/mnt/sda\0{8}ADD\0{29}\x01\0\0\0/mnt/sda/'; a.img\0{751}\x01\0\0\0/mnt/sda/b.ubck\0{753}\x01\0\0\0/mnt/sda/c.rcfgx\0{7844}
    log: end | = 0 | out send label udisk...
$ umount -l /mnt/sda ;; show log:, log Simdc_sess_id, log Simdc_sess_send, send ;; sendmsg_ack_back 0x1001d 0x7fff6 -3
  n{128}  --> log: start | : label edit: large label=65565, small label=524278\s
    : small label: LABEL_UDISK_HOTPLUG    \t (2) | : \t\t\t  LABEL_UDISK_ALL_INFO   \t (3)
    : \t\t\t  LABEL_UDISK_UBACK_CREAT    (4) | : \t\t\t  LABEL_UDISK_UBACK_RELOAD   (5)
    : \t\t\t  LABEL_UDISK_FWARE_UPDATE   (6) | : data edit: udisk_info->event.ev= -3
    : data edit: udisk_info->event.name = n{127} | log Simdc_sess_id: Session ID get:0x10a3900 TID:0x10a3900 (0)
    log Simdc_sess_send: 0x10a3900 | send 010a3900 \0{16}\xF6\xFF\x1D\0x%\0{6}\xFD\xFF\xFF\xFFn{127}\0{9457}
    log Simdc_sess_send: 0 | log: end | = 0
show data edit, send ;; fail "read /bin/mount" ;; sendmsg_ack_back 29 3 7 -
    log: data edit: udisk_info->event.ev= 7 | send 010a3900 \0{16}\x03\0\x1D\0x%\0{6}\x07\0{9587} | = 0
show failed, Simdc_sess_send: -1, get:0x0 ;; fail "send 010a3900" ;; sendmsg_udisk_all_info
    log Simdc_sess_send: -1 | log: Simdc_sess_send(0x10a3900) failed... | = -1
$ rm /run/mailbox/010a3900 ;; fail "read /bin/mount" ;; sendmsg_udisk_all_info ;; show none ;; fail ;;
  sendmsg_udisk_all_info  --> log Simdc_sess_id: Session ID get:0x0 TID:0x10a3900 (-2)
    log: Simdc_sess_id(0x10a3900) failed... | = -1 | = 0
== candidates and limits (show itself, no room, empaty, label is null, -/u/-n, -/u/1234567890123)
$ mkdir -p /u/sub /u/bin /u/123456789012 /u/1234567890123 "/u/a;b" /u/-n /u/e1 /u/e2 ;; output /bin/mount
  "/u/gone\n/\n/u/sub\n/u/a;b\n/u/-n\n/no/where\nsda\n/u/1234567890123\n/u/123456789012\n/u/bin\n/u/e1\n/u/e2\n"
output /bin/cat "sub\nwhere\n-n\n123456789012\n1234567890123\nbin\ne1\na;b\ne2\nsda\n"
output "ls -l /dev/disk/by-label/ |grep sub" "\n" ;; output "ls -l /dev/disk/by-label/ |grep e1" "ADD{50}\n"
output "/usr/bin/find /u/sub -maxdepth 1 -name '*.img'" "/a.img\n/b{70}.img\nx\n\n/3\n/4\n/5\n/6\n/7\n/8\n/9\n"
get_udisk_all_info  --> log: get udisk_label empaty. | : </u/sub>: no room for /8 | : </u/sub>: no room for /9
    : passed over, mount path of more than 15 characters or with one that a shell takes for itself: </u/a;b>
    : get udisk label is null, use UsbDisk instead. | : get udisk label is null, use UsbDisk instead.
    : no room for /u/e2 | = 0 and 4 | /u/sub <UNKNOWNNAME> 8 /a.img /b{61} bbbbbbbbb.img /3 /4 /5 /6 /7 0 0
    /u/123456789012 <UsbDisk1> 0 0 0 | /u/bin <UsbDisk2> 0 0 0 | /u/e1 <AD{30}> 0 0 0
show popen read_device_info
for /bin/mount "ls -l" "/usr/bin/find /u/bin" => fail "read @" ;; get_udisk_all_info
    log: popen read_device_info | = -1 and -7 {3}
== presence
output /bin/cat "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n"
for /mnt/1/x/y /mnt/12 /mnt/13 /mnt "" => check_udisk_mount_status "@"  --> = 1 /mnt\01\0x\0y | = 1 /mnt\012
    = 0 /mnt\013 | = 0 /mnt | = 0 
show out ;; check_udisk_mount_status "/mnt/2\n"  --> = 1 /mnt\02\0 | out path=/mnt/2 | out stat=1, res_stat=2
    out stat=2, res_stat=2 | out find
output /bin/cat "\n1\n" ;; check_udisk_mount_status /mnt/1 ;; check_udisk_mount_status -  --> = 0 /mnt\01 | = 0 
    out path=/mnt/1
show read ;; fail "read /bin/cat" ;; check_udisk_mount_status /mnt/1
    read /bin/cat /proc/diskstats |grep sd|awk '{print $3}' | = 0 /mnt/1
== first lines of commands (show popen)
for "printf ''" "echo" "printf 'first\r\nsecond\n'" "printf %0100d 7" => run_command_return_string "@"
    = 0 "old" | = -1 "old" | = 0 "first" | = 0 "0{62}"
fail read ;; run_command_return_string true ;; run_command_return_string -  --> log: popen read_device_info
    = -1 "old" | = -1 "old"
