# Catches: a wrong line, command, block, order or refusal of a run.
== a run in all its lines (show log, trace, run, wait, block, -trace print_image_hdr)
apply nand/a 200 ABC "nand/d/l;../a" 4 "" nand/e 1 ""  --> trace: in fun do_update  ! \n | log:  start
    trace get_upgrade_info: upgrade_info_t-4 size is 16Bytes \n | log attach_shm:   start. | block 0 0 0 0 0
    trace: shm get_upgrade_info success!! | log: get_upgrade_info success!!\s | block 0 0 -1 0 0
    log: \n now update_info->result = -1\s | trace: \n now update_info->result = -1 \n
    : update file: u.img , img_size = 534 \n | log: <do_update> update_file:u.img | : fread update_file ...
    : check img : magic_number; img_size; body_crc ... | : check img ok ! | trace: check img ok !
    log find_dir: update dir is </nand>. | run /bin/mkdir -p /b | log: get u_base_dir:/b\s
    trace: get u_base_dir:/b \n | : print_image_header.\n | log: print_image_header.
    log print_image_hdr:    Image Name       : Vorn Video Systems firmware package
    :    Firmware Version : V1.0.0.0 | :    Update Place     : /usr/nand | :    Update Dir       : nand
    :    Created          : Thu Jan  1 00:00:00 1970\n | :    Image Type       : (Uncompressed)
    :    Data Size        : 534 Bytes | :    Directorys       : 0 | :    Files            : 3
    :    Body Data CRC    : 0 | log: start creat img. | trace: start creat img.\n | block 3 0 0 0 0
    log: \n now update_info->result = 0\s | trace: \n now update_info->result = 0 \n
    : \n\n\n\n\rround 1 --------unpress ***.img file and update Linux files ....\n | run /bin/mkdir -p /b/nand
    log: (num-0)/b/nand/a type(200), size(3) | block 3 0 0 100 0 | block 3 1 0 0 0 | run /bin/mkdir -p /b/nand/d
    log: (num-1)/b/nand/d/l type(4), size(0) | block 3 1 0 100 0 | block 3 2 0 100 0
    run cd //b/nand/d/ && /bin/ln -sf ../a l | block 3 2 0 0 0 | run /bin/mkdir -p /b/nand/e
    log: (num-2)/b/nand/e type(1), size(0) | block 3 3 0 100 0
    trace: \n\n\n\n\rround 2 --------update user file ....\n | log:  update_info->result = 0 (1:ok, 2:error). \n
    block 3 3 1 100 0 | trace: result = 1, update successful !! \n | run sysconfig set fw_version V1.0.0.0
    run /bin/sync | log:  run rsync ok. | wait 20000 us | log:  end | = 0
tree /b ;; $ stat -c %A /b/nand/a; sysconfig get fw_version; awk '/6291457/ { print $3, $4, $7 }' /proc/sysvipc/shm
    nand/a = ABC | nand/d/l -> ../a | nand/e/ | -rwxr-xr-x | V1.0.0.0 | 600 20 1
== a peer's block; 1 alone reboots (show run reboot, wait 6, block 1 1)
block 16 ;; image u.img -- card 22 c ;; for 0 1 => do_update u.img @ /b  --> block 1 1 1 100 0 | = 0
    block 1 1 1 100 0 | wait 6 s | run reboot -f | = 0
$ awk '/6291457/ { print $3, $4, $7 }' /proc/sysvipc/shm  --> 600 16 2
show none ;; for "1 15" "6291457 15" "6291457 8192" => $ ipcrm -M @1 2>/dev/null || : ;; attach_shm @ ;; $ awk '$1 == @1
  { print $4 }' /proc/sysvipc/shm  --> = attached | 15 | = attached | 20 | = attached | 8192
== no block, or one that is too small (show attach_shm, Error, err!, run, wait)
fail shmat ;; image u.img -- ;; do_update u.img 1 /b ;; free_upgrade_info ;; free_upgrade_info -
    log attach_shm:   start. | log:  get_upgrade_info Error .\n | trace: update_info get from shm err! | = -10
    log attach_shm:   start.
show none ;; $ ipcrm -M 0x600001 ;; block 15 ;; fail ;; do_update u.img 1 /b ;; $ awk '/6291457/ { print $4 }'
  /proc/sysvipc/shm  --> = -10 | 15
== refusals never touch the directory (show update_header error, update error, wait, reboot, log:  end, block)
image u.img -- a 0 x ;; image magic magic=0x66190527 -- ;; $ head -c 487 u.img >short; head -c 495 u.img >less; { cat
  u.img; echo; } >more; mkfifo pipe; mkdir dir; cp u.img huge; truncate -s 4294967792 huge
do_update short 1 /b  --> block 0 0 0 0 0 | block 0 0 -1 0 0 | log: fread update_header error.
    trace: fread update_header error.\n | block 0 0 2 0 0 | trace: result = 2, update error !! \n
    log:  result = 2, update error !! | wait 20000 us | log:  mode = 1; reboot ! | wait 6 s | run reboot -f
    log:  end | = -10
show error, Error, not exist, invalid, Failed, run, -result
for "magic /b" "less /b" "missing /b" "- /b" "u.img /b{1023}" "u.img /w/more/x" => do_update @1 2 @2
    log: Image Magic Number Error . ih_magic = 0x66190527 . | trace: error, update_header.ih_magic.\n
    : Image Magic Number Error . ih_magic = 0x66190527 . | = -10
    log: Image size Error . img_size = 495 , ih_size = 496.
    trace: error, update_header.ih_size. img_size = 495 , ih_size = 496.\n | = -10
    log:  file not exist filename missing | trace: error, access.\n | = -10 | log:  filename invalid filename (null)
    trace: error, update_file is \n | = -10 | log: chdir(/b{1023}) Failed | = -10 | run /bin/mkdir -p /w/more/x
    log: chdir(/w/more/x) Failed | = -10
at <do_update> => $ mv u.img kept ;; apply ;; $ mv kept u.img ;; fail map ;; apply ;; tree /b
    log: open error filename u.img | trace: open error filename.\n | = -10 | run /bin/mkdir -p /b | = -3
show none ;; for more huge pipe dir => do_update @ 2 /b  --> = -10 {4}
== the image's own directory (show Failed)
image u.img place=3 dest=/c{250}/c{4} -- a 0 x ;; do_update "u.img\n" 2 - ;; $ mkdir -p /c{250}/cccc
    log: chdir(/c{250}/cccc) Failed | = -10
do_update "u.img\n" 2 - ;; apply ;; $ cat /ccc*/cccc/a /b/a  --> = 0 | = 0 | xx
