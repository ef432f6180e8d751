# Catches: a wrong byte; an item stored, typed, named or left out by mistake.
== all bytes; counts begin anew; texts are cut (show log crc32_img_body)
$ mkdir -p nand; printf ABC >nand/a ;; do_create ./nand 2 i /to ;; bytes i  --> log crc32_img_body:  start | :  mmap
    :  linuxcrc32 | :  munmap | :  end | = 0
    = '\x05\x19f\xD3;\xD0\\\0{6}\x01\xF7j\x1Fn\xC3\0\0\0\x01\0{11}\x02\0{260}nand\0{60}Vorn Video Systems firmware package\0{29}V1.0.0.0\0{56}nand/a\0{5}\x03ABC
$ mkdir -p nand/b/c nand/d; : >nand/a ;; show none ;; do_create nand// 3 i t{70} v{70} ;; bytes i  --> = 0
    = '\x05\x19f\0{7}\x03\0\0\x01\xE8j\x1Fn\xC3\0{15}\x03\0{4}t{63}\0{193}nand\0{60}Vorn Video Systems firmware package\0{29}v{63}\0
== the example of the format page
clock 1767323045 ;; $ mkdir nand; ln -s bin/a nand/l; mkdir nand/bin; printf ABC >nand/bin/a
do_create ./nand 1 i - V2  --> = 0
$ grep -E '^[0-9a-f]{6}  ' "$STORIES"/../../docs/image_format.md | cut -c1-56 | while read at bytes; do [ "$(od -An -tx1
  -j0x$at -N$(echo $bytes | wc -w) i | xargs)" = "$bytes" ] && echo as shown || echo not $at $bytes; done | uniq -c
         11 as shown
== types by name and directory (show out)
$ mkdir nand; cd nand; for f in vorn-kernel/zImage vorn-kernel/s/zImage .h/vorn-uboot/u .h/vorn-uboot/App_VPUCard.bin;
  do mkdir -p ${f%/*}; printf x >$f; done
do_create ./nand 2 i ;; entries i  --> = 0 | = 4 in 4 of nand | nand/.h/vorn-uboot/App_VPUCard.bin 24 x
    nand/.h/vorn-uboot/u 7 x | nand/vorn-kernel/s/zImage 0 x | nand/vorn-kernel/zImage 5 x
    out     file name is App_VPUCard.bin\s | out     find self files ,type is 24\s | out   find uboot bin...\s
    out   find kernel bin...\s
show ERR ;; do_create ./nand/vorn-kernel 2 i ;; entries i  --> = 0 | = 2 in 1 of vorn-kernel
    nand/vorn-kernel/s/zImage 0 x | nand/vorn-kernel/zImage 0 x
for App_inputCard.bin App_OutputCard_HDMI.bin App_VPUCard.bin InputCardTop.bin Tyx_OutputCard.bin TYX_VPU_TOP.bin
  Golden_Input.bin Golden_Output.bin Golden_Vpu.bin golden_vpu.bin Golden_Vpu Golden_Vpu.bin2 x{2048} x{2049} =>
  check_type_SelfFile @  --> = 0 and 22 | = 0 and 23 | = 0 and 24 | = 0 and 25 | = 0 and 26 | = 0 and 27
    = 0 and 28 | = 0 and 29 | = 0 and 30 | = -1 and -7 {5} | out ERR:len of self name is to long!\s
== links by what they lead to (show trace get_dirs_and_files, trace write_file)
$ mkdir nand; cd nand; echo x >file; : >empty; mkfifo pipe; for l in file / empty gone pipe; do ln -s $l to_${l#/};
  done; ln -s file f{115}; ln -s file f{116} ;; do_create ./nand 2 i ;; entries i
    trace get_dirs_and_files: link left out, path and target too long: `./nand/f{116};file'\n
    trace write_file: unable to open `./nand/to_gone'\n | = 0 | = 4 in 0 of nand | nand/file 0 x\n
    nand/f{115};file 4  | nand/to_;/ 4  | nand/to_file;file 4 
xreadlink none ;; for 79 80 160 => $ ln -s t{@} l@ ;; xreadlink l@  --> = null | = "t{79}" | = "t{80}" | = "t{160}"
== names by top directory
$ mkdir -p nand/bin; cd nand; printf x >bin/x; ln -s bin/x .l
for nand nand// ./nand/ => do_create @ 2 i ;; entries i  --> = 0 | = 2 in 1 of nand | .l;bin/x 4  | bin/x 0 x | = 0
    = 2 in 1 of nand | /.l;bin/x 4  | /bin/x 0 x | = 0 | = 2 in 1 of nand | nand/.l;bin/x 4  | nand/bin/x 0 x
$ rm i; mv nand/bin .; printf z >'bin/y;z'; ln -s 'bin/y;z' .m ;; do_create . 3 /i /to ;; entries /i  --> = 0
    = 3 in 2 of . | .m;bin/y;z 4  | bin/x 0 x | bin/y;z 0 z
== what can't be packed or written (show trace write_file, log: Can, error:)
$ mkdir nand; echo x >nand/f; ln -s nand link ;; for missing link nand/{1018} nand/{1020} => do_create "@" 2 i
    = -1 "No such file or directory" | log: error: not Directories link\s | = -1 "Not a directory"
    = -1 "File name too long" {2}
for "nand 2 /w/nand" "nand 2 /none/i" "nand 3 i" => do_create @  --> log: Can't open /w/nand: Is a directory
    = -1 "Is a directory" | log: Can't open /none/i: No such file or directory | = -1 "No such file or directory"
    trace: error: no target directory for place 3\n | = -1 "Invalid argument"
$ ls; ln -s /dev/full full_i; mkdir full; mount -t tmpfs -o size=8k tmpfs full; head -c 9000 /dev/zero >nand/f
    i | link | nand
for full/i full_i => do_create ./nand 2 @  --> trace write_file: bb_full_write failed `./nand/f(size=9000)'\n
    : image is incomplete at `./nand/f': No space left on device\n | = -1 "No space left on device"
    = -1 "No space left on device"
show unable to close ;; $ stat -c %s full/i; od -An -tx1 -j12 -N4 full/i; truncate -s 2147483159 nand/f  --> 8192
     27 05 19 66
do_create ./nand 2 i ;; $ stat -c %s i; umount full; rm nand/f  --> = -1 "File too large" | 488
fail "close /w/i" ;; do_create ./nand 2 i ;; fail  --> trace: unable to close `i': Input/output error\n
    = -1 "Input/output error"
fail "close /w/nand/f" ;; $ echo x >nand/f ;; do_create ./nand 2 i ;; fail
    trace write_file: unable to close `./nand/f'\n | = -1 "Input/output error"
at map => $ truncate -s 1 nand/f ;; $ echo longer >nand/f ;; do_create ./nand 2 i  --> = -1 "Input/output error"
for l{1023} l{1024} => write_file i 4 nand/f @  --> = 0 | = -1
$ rm nand/f ;; show log crc32_img_body ;; fail map ;; do_create ./nand 2 i  --> log crc32_img_body:  start | :  mmap
    : mmap error!!\n | :  end | = -1 "Cannot allocate memory"
== paths that are too long (show trace get_dirs_and_files)
$ mkdir -p n/e{255}; cd n/e*; echo g >g{39}; echo h >h{40}; echo a >../a
do_create /{724}w/n 1 i ;; entries i  --> = 0 | = 2 in 1 of n | /{723}w/n/a 0 a\n | /{723}w/n/e{255}/g{39} 0 g\n
$ cd n/e*; mkdir x{38}; echo y >y ;; do_create /{724}w/n 1 i ;; entries i  --> = 0 | = 2 in 2 of n
    /{723}w/n/a 0 a\n | /{723}w/n/e{255}/y 0 y\n
