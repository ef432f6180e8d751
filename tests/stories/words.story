# Catches: a step beside a text; a wrong form of a line or file.
== paths (show trace, run)
for "/ //a" "- a" "/a x{1020}" "/a x{1021}" => concat_path_file @  --> = "/a" {2} | = "/a/x{1020}" | = ""
for a/b// ab /x /// - => get_dirname "@" ;; dirname "@"  --> = "b" | = "a/b/" | = "ab" | = "ab" | = "x" | = ""
    = "" | = "//" | = null | = null
for "a;b/l;../x" ab - => cut_link_filename "@"  --> = "a;b/l" | = "ab" | = null
for ab/ "" /ab - => last_char_is "@"  --> = "/" | = null {3}
for /nand/x ./././d a/ ./.d a => first_char_is @  --> = "nand/x" | = "d" | = "" | = null {2}
for "a\nb\r\n" "a\n\n" "a\rb" => chomp "@"  --> = "a\nb" | = "a\n" | = "a"
for /{497} /{498} => _mkdir @  --> run /bin/mkdir -p /{497} | = 0 | trace: path too long for a directory: /{498}\n
    = 0
== two trace files by turns (show trace, open)
set_update_card_result 1 2 ;; prefix  --> open /var/log/upgd_log0.txt w+ | trace: set card(1) update result : 2\n
    = [2026/06/03 00:01:07.089 ] [ update/dtt_update/        set_update_card_result
clock 1780531200 ;; set_update_card_result 1 0 ;; set_update_card_result 2 0
    trace: set card(1) update result : 0\n | open /var/log/upgd_log1.txt w+ | trace: set card(2) update result : 0\n
clock 1780617600 ;; set_update_card_result 3 0 ;; fail open ;; set_update_card_result 4 0 ;; set_update_card_result 5 0
    trace: set card(3) update result : 0\n | open /var/log/upgd_log0.txt w+ | open /var/log/upgd_log0.txt w+
== the header report (show Firmware Version, Update Dir, -trace)
image i version=v{64} dir=u{64} -- ;; print_image_hdr i  --> log:    Firmware Version : v{64}
    :    Update Dir       : u{64}
show Update Place, Image Type, -trace
for "1 0" "3 1" "0 2" "4 3" => image i place=@1 comp=@2 dest=d{256} -- ;; print_image_hdr i
    log:    Update Place     : / | :    Image Type       : (Uncompressed) | log:    Update Place     : d{64}
    :    Image Type       : (GZIP Compressed) | log:    Update Place     :\s
    :    Image Type       : (BZIP2 Compressed) | log:    Update Place     :\s
    :    Image Type       : (Unknown Compression)
place2str 3  --> = "costom"
== the flag file (show log, trace, run, syncfs)
set_update_flag flag 1 ;; $ cat flag ;; show run, syncfs ;; set_update_flag flag 2 ;; $ cat flag
    trace:  call  fun  set_update_flag \n | : run cmd =  .\n | log: /bin/touch  flag | run /bin/touch  flag
    trace: /bin/touch  flag \n | log: /bin/echo 1 > flag | run /bin/echo 1 > flag | syncfs /w/flag | = 0 | 1
    run /bin/echo 2 > flag | syncfs /w/flag | = 0 | 2
show trace: upgrade, trace: run ;; set_update_flag flag 1 ;; $ cat flag  --> trace: run cmd =  .\n
    : upgrade NG, rm temp file .\n | : run cmd = /bin/rm -rf flag .\n | : run cmd = /bin/rm -rf flag .\n | = 0 | 1
show run, trace: update ;; fail "run /bin/rm" ;; set_update_flag flag 1  --> run /bin/rm -rf flag
    run /bin/rm -rf flag | run /bin/rm -rf flag | run /bin/echo 1 > flag | = 0
for p{113} p{114} => set_update_flag @ 1  --> run /bin/touch  p{113} | run /bin/echo 1 > p{113} | = 0
    trace: update flag path too long: p{114}\n | = -1
== a setting (show sync, fsync, rename)
configuration_set a 1 ;; fail fsync ;; configuration_set a 2  --> sync | fsync /etc/sysconfig/device.conf.new
    rename /etc/sysconfig/device.conf.new /etc/sysconfig/device.conf | fsync /etc/sysconfig | = 0 | sync
    fsync /etc/sysconfig/device.conf.new | = -28
$ cat /etc/sysconfig/device.conf; ls /etc/sysconfig  --> a=1 | device.conf | device.conf.lock
== copies with progress (show trace)
$ echo longer than >f ;; for "x none/f" "short f" => copy_file_new @  --> trace: unable to open `none/f'\n
    = -1 and 4 | trace bb_full_write_new: \r\n | : update_info->cur_percent is  0% \r
    : update_info->cur_percent is  100% \r | : \r\n | = 0 and 100
show failed ;; copy_file_new xy /dev/full ;; copy_file_new "" g ;; $ cat f g
    trace: bb_full_write failed `/dev/full' size= 2\n | = -1 and 0 | = 0 and 100 | shortr than
