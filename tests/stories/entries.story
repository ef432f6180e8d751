# Catches: an entry refused or let through by mistake; a way out.
== a failed copy, and nothing behind it (show copy_file, file error, block 3 1)
$ mkdir /b; mount -t tmpfs -o size=8k tmpfs /b ;; apply a 0 1 b 0 b{9000} c 0 3 ;; tree /b  --> block 3 1 0 0 0
    block 3 1 0 100 0 | trace copy_file: bb_full_write failed `/b/b' size= 9000\n | block 3 1 0 100 1
    log: copy_file ----------  /b/b --------- failed. | trace: copy_file failed :---------- /b/b ---------- \n
    block 3 1 2 100 1 | trace: result = 2, update 1 file error !! \n | = -4 | a = 1 | b = b{4096}
== what stands in an entry's place
$ mkdir -p /b/d /b/m; echo old and long >/b/a; echo old and long >kept; ln /b/a open; touch /b/l /b/m/f; ln -s d /b/to_d
$ mount --bind kept /b/m/f ;; apply a 0 new "l;a" 4 "" "k;/abs/x" 4 "" m/f 0 new to_d 1 "" to_d/x 0 x "g;h" 0 g d/../e 0
  e ..f/... 0 f ;; tree /b ;; $ cat open kept; touch /b/m/n; mount --bind /dev/null /b/m/n  --> = 0 | ..f/... = f
    a = new | d/x = x | e = e | g;h = g | k -> /abs/x | l -> a | m/f = new | to_d -> d | old and long | new
show image is damaged, unable to open, not ;; for "m 0" "m/n 0" "a 1" => image i -- @1 @2 m ;; do_update i 2 /b
    trace copy_file: unable to open `/b/m'\n | = -4 | trace: in the way and not to be removed: /b/m/n\n | = -4
    trace: directory not made: /b/a\n | = -4
== damage at the entry's own turn (show image is damaged, block -1 1 2)
image u.img count=4294967295 -- good 0 x ;; apply
    trace: image is damaged at entry 1: there are fewer entries than the header says\n | block -1 1 2 100 1 | = -4
for "name" "n{1024}\0\0\0\0\0\0" "name\0" "name\0\0\0\0\0" "name\0\0\0\0\0\x02x" "name\0\0\xFF\xFF\xFF\xFF" => image
  u.img count=2 -- good 0 x "@" raw "" ;; apply ;; $ rm /b/good
    trace: image is damaged at entry 1: its name has no end\n | = -4
    trace: image is damaged at entry 1: its name is too long\n | = -4
    trace: image is damaged at entry 1: it runs past the end of the image\n | = -4 {4}
== names that are refused (show run cd)
for "a/../../b/x" "d x/x" "$(touch no)/x" "a`b`/x" "a\tb/x" => apply "@" 0 x  --> = -4 {5}
for "l;a b" "l;$(x" "l a;t" "-l;t" => apply "@" 4 ""  --> = -4 {4}
for "1 .//.." "1 d|x" "5 k/zImage&" "4 l;~t" "4 l;#t" => apply "@2" @1 ""  --> = -4 {5}
for \s ; < > ( ) ' \" \\ \n $_ $@ $# $$ $! $- $0 $9 $A $z => apply "u@b" 7 ""  --> = -4 {20}
for "4 l;no*" "4 no*;t" "4 l;no[n-p]" "4 l;][n]" "4 l;{-t/etc,/x}" "7 no?" => apply a 0 x "@2" @1 ""  --> = -4 {6}
tree /b ;; $ ls -A; ls /x ;; show image is damaged  --> a = x | u.img
    ls: cannot access '/x': No such file or directory | status 2
for "0 ../x" "4 a;b/../../l;x" "0 n{1023}" "1 d{495}" "0 d{249}/d{245}/x" "4 l;t{126}" "4 l;-t" "7 u;b" => apply "@2" @1
  ""  --> trace: image is damaged at entry 0: its name leads out of the directory\n | = -4 {2}
    trace: image is damaged at entry 0: its path is too long\n | = -4
    trace: image is damaged at entry 0: its directory can't be made by a command\n | = -4 {2}
    trace: image is damaged at entry 0: its path and target are too long for a link\n | = -4
    trace: image is damaged at entry 0: its path or target would be taken apart by a command\n | = -4
    trace: image is damaged at entry 0: its path would be taken apart by a command\n | = -4
show unable to open ;; apply "a;b/x" 0 x  --> trace copy_file: unable to open `/b/a;b/x'\n | = -4
== names up to the limits
$ mkdir -p /b/d{249}/d{249}/d{249}/d{249}
apply d{249}/d{249}/d{249}/d{249}/f{20} 0 x d{249}/d{244}/x 0 "" ;; $ cat /b/*/*/*/*/f*; rm -r /b/*  --> = 0 | x
apply "[" 0 x "m/[l;n[/$.$" 4 "" "a$/~/-d/f" 0 x "a b" 0 x "l;t{125}" 4 "" "l{124};t" 4 "" "n" 4 "" "7;b" 22 x ;; tree
  /b  --> = 0 | 7;b = x | [ = x | a b = x | a$/~/-d/f = x | l -> t{125} | l{124} -> t | m/[l -> n[/$.$ | n =\s
== where reading ahead ends
for 367 368 369 370 371 372 373 374 375 376 => apply a 0 a{16@} bbb 0 y c 0 z ;; $ cat /b/bbb /b/c  --> = 0
    yz {10}
== a link of the image that leads out (show image is damaged)
$ mkdir /b; : >/b/a ;; apply a/b 0 x c 0 y  --> = -4
$ mkdir /bx
for "out;/w out/x" "out;../bx out/x" "out;../w out/n/x" "in;. in/n/../../w/f" "in;. in/../b/x;/w" => apply "@1" 4 "" @2
  0 x  --> trace: image is damaged at entry 1: a link leads it out of the directory, or nowhere\n | = -4 {5}
show none ;; for "c 0 y" "in;d 4" => apply "out;/w" 4 "" "@1" @2 "@3" out/x 0 x  --> = -4 {2}
apply d 1 "" "in;d" 4 "" in/x 0 x "in;../w" 4 "" in/y 0 y ;; tree /b ;; $ ls . /bx  --> = -4 | a =\s | c = y
    d/x = x | in -> ../w | out -> /w | .: | u.img | /bx:
== the device's own links
$ mkdir /own /b; ln -s /own /b/nand; ln -s ../own /b/too
apply nand/x 0 x "l;nand" 4 "" too/n/y 0 y ;; tree /b ;; tree /own ;; do_update u.img 2 b ;; $ find b -type f | sort
    = 0 | l -> nand | nand -> /own | too -> ../own | n/y = y | x = x | = 0 | b/b/l | b/b/nand/x | b/b/too/n/y
$ rm -r /b /own/*; mkdir /b; ln -s /own /b/nand; ln -s slot /b/cur; ln -s /b/slot /b/abs; ln -s loop /b/loop
for "nand/d/f 0 nand/cur;d 4 nand/cur/g 0" "a 0 b 0 nand/../x 0" "a 0 slot;/w 4 cur/x 0" "a 0 slot;/w 4 abs/x 0" "l;a 4
  b 0 loop/x 0" "nand/a 0 nand;/w 4 nand/x 0" => apply @1 @2 "" @3 @4 "" @5 @6 x  --> = 0 | = -4 {5}
tree /own  --> a =\s | cur -> d | d/f =\s | d/g = x
== what a command has not made (show not)
for "run /bin/mkdir -p /b/" "run cd" => $ rm -rf /b; mkdir /b ;; fail "@" ;; apply a 0 x "l;a" 4 "" d/b 0 x ;; tree /b
    = -4 | a = x | l -> a | = 0 | a = x | d/b = x | l =\s
== the image shrinks (show image is damaged)
for "0 0" "0 496" "1 0" "1 4096" "1 6502" "1 6503" "2 6559" "2 6560" => image u.img -- a 0 1 b 0 b{6000} c 0 c{50} ;; $
  rm -rf /b ;; at (num-@1) => $ truncate -s @2 /w/u.img ;; apply  --> = -4 {4}
    trace: image is damaged at entry 1: the image has shrunk\n | = -4
    trace: image is damaged at entry 2: the image has shrunk\n | = -4 {2} | = 0
== boot loader and kernel (show run sysconfig)
image u.img -- card 22 c u 7 u k/zImage 5 k z 0 z ;; for run_dd "run dd" "run /bin/mount" => fail "@" ;; $
  rm -rf /b; umount /mntker 2>/dev/null; mkdir /b ;; apply ;; $ ls -m /b  --> run sysconfig set fw_version V1.0.0.0
    = 0 | card, k, u, z | = -5 | card, u | = -14 | card, k, u
== all file systems are synced (show begin, syncfs, sync, successful)
$ mkdir -p /b/m /b/n; mount -t tmpfs tmpfs /b/m; mount -t tmpfs tmpfs /b/n
apply m/c/d 0 x b 0 x m/a 0 x  --> begin /b/m/c/d | begin /b/b | begin /b/m/a | syncfs /b | syncfs /b/m/c | sync
    trace: result = 1, update successful !! \n | = 0
show log: copy_file, unable to close, syncfs, medium ;; fail syncfs ;; apply ;; fail "close /b/b" ;; apply
    syncfs /b | trace: not brought to the medium: No space left on device\n
    log: copy_file ----------  /b --------- failed. | = -4 | trace copy_file: unable to close `/b/b'\n
    log: copy_file ----------  /b/b --------- failed. | = -4
== output ahead of an entry
at start creat img => print before ;; at (num-0) => $ cat /run/sandbox/out ;; apply a 0 x  --> before | = 0
