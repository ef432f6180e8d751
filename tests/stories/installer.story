# Catches: a wrong command, line or length; a wrong end of the search.
== boot loader (show log, trace, run)
$ mkdir b; touch b/u b/u{101} b/u{102} ;; for b/u b/none => update_LinuxFile 7 @
    trace:  ---------------------update uboot------------------\n | :  cmdstr=dd if=b/u of=/dev/mmcblk0p1 \n
    log: cmdstr: dd if=b/u of=/dev/mmcblk0p1 \n\n | run dd if=b/u of=/dev/mmcblk0p1 | trace:  update uboot ok .\n
    = 0 and 0 | = 0 and 0
show run, too long ;; for b/u{101} b/u{102} b => update_LinuxFile 7 @  --> run dd if=b/u{101} of=/dev/mmcblk0p1
    = 0 and 0 | log: command too long for <b/u{102}>. | = -5 and 0 | run dd if=b of=/dev/mmcblk0p1 | = 0 and 0
show faild ;; fail "run dd " ;; update_LinuxFile 7 b/u  --> log: update faild!!: <b/u>.\n | = -5 and 0
== kernel files (show log, trace, run)
$ mkdir k zImage.d; touch k/zImage k/extlinux.conf k/rk3288-tyx.dtb k/doc k/rk3288-tyx.dt-Image-extlinux.con
$ touch zImage.d/f{97} zImage.d/f{98} ;; fail "run /bin/mount" ;; for k/none k/doc => update_LinuxFile 5 @
    trace:  filename(k/none) can not access \n | = 0 and 0
    trace:  ---------------------update kernel------------------\n | run  /bin/mkdir -p /mntker
    run  /bin/rm -rf /mntker/* | run /bin/mount /dev/mmcblk0p6 /mntker/
    log: /bin/mount /dev/mmcblk0p6 /mntker/ error. \n | = -14 and 0
show none ;; $ rmdir /mntker; ln -s /w/k /mntker ;; update_LinuxFile 5 k/doc ;; $ rm /mntker; mkdir /mntker; ls k | wc
  -l  --> = -14 and 0 | 5
show run /bin/cp, kernel-0, cmdstr ;; update_LinuxFile 5 k/zImage  --> trace:       kernel-0(k/zImage) \n
    log: cmdstr: /bin/cp k/zImage /mntker/ -rf \n\n | run /bin/cp k/zImage /mntker/ -rf | = -14 and 1
fail ;; show run, error., too long ;; for zImage.d/f{97} zImage.d/f{98} k/extlinux.conf k/rk3288-tyx.dtb
  k/rk3288-tyx.dt-Image-extlinux.con => update_LinuxFile 5 @  --> run /bin/cp zImage.d/f{97} /mntker/ -rf
    = 0 and 2 | log: command too long for <zImage.d/f{98}>. | = -14 and 3 | run /bin/cp k/extlinux.conf /mntker/ -rf
    = 0 and 4 | run /bin/cp k/rk3288-tyx.dtb /mntker/ -rf | = 0 and 5 | = 0 and 5
for 4 6 8 => update_LinuxFile @ k/zImage  --> = 0 and 5 {3}
show error. ;; fail "run /bin/cp" ;; update_LinuxFile 5 k/zImage ;; $ ls /mntker | wc -l
    log: /bin/cp k/zImage /mntker/ error. \n | = -14 and 6 | 4
== whatever is mounted is used (show mounted already, success.)
$ mkdir k; touch k/zImage k/doc ;; at run /bin/mount => $ mount -t tmpfs tmpfs /mntker
for k/doc k/zImage => update_LinuxFile 5 @  --> trace:  /bin/mount /dev/mmcblk1p6 /mntker/ success.\n | = 0 and 0
    trace:  /mntker is mounted already.\n | = 0 and 1
$ mkdir l; echo later >l/zImage ;; update_LinuxFile 5 l/zImage ;; $ cd /mntker; cat zImage; rm zImage; mkdir zImage ;;
  update_LinuxFile 5 k/zImage  --> = 0 and 2 | later | = 0 and 3
== the version (show run sysconfig, version <)
image a version=v{64} -- ;; update_fw_version a ;; for "V1;x" "-2  of 5" => image b "version=@" -- ;; do_update b 2 /b
  ;; $ sysconfig get fw_version || :  --> run sysconfig set fw_version v{64} | = 0
    log: version <V1;x> has no place in a command: not recorded | = 0 | v{64}
    run sysconfig set fw_version -2  of 5 | = 0 | -2 of 5
== the target search
$ mkdir -p t/alpha/deep/nand t/bravo/.conf t/bravo/bin t/zulu t/bravo/usrlocal c/nand c/zz/nand c/nand/nand e/one
$ touch t/nandfile; ln -s ../t/zulu t/nandlink; ln -s .. t/zulu/loop
for 1 0 => types @ ;; _find_dir t nand ;; _find_dir t/ deep ;; _find_dir t . ;; _find_dir t/ usr
    = 0 "t/alpha/deep/" | = 0 "t/alpha/" | = 0 "t/bravo/" | = 0 "t/bravo/" {2}
for "t and" "t nandl" "t nandf" "c nand" "c/nand nand" "none a" => _find_dir @  --> = 1 {3} | = 0 "c/" {2} | = -1
$ mkdir -p n/a n/uncounted n/uncounted2 n/z/x; for d in n/u*; do mount -t tmpfs tmpfs $d; done; mkdir -p n/uncounted/b/c
types 1 ;; show listing ;; _find_dir n none ;; $ umount n/u* ;; _find_dir n none ;; show none  --> listing | listing
    listing | listing | listing | listing | listing | listing | listing | listing | = 1 | listing | listing | = 1
$ mkdir -p u/uncounted; mount -t tmpfs tmpfs u/uncounted
for v u/uncounted => $ mkdir -p @/a @/z/nand @/zz ;; at listing => $ rmdir @/a @/zz ;; _find_dir @ nand
    = 0 "v/z/" | = 0 "u/uncounted/z/"
_find_dir e ""  --> = 0 "e/"
$ d=t/d{240}/d{240}/d{240}/d{240}; mkdir -p $d/a{55}/x $d/b{56}/x t/z/yoke ;; for x yoke => _find_dir t @
    = 0 "t/d{240}/d{240}/d{240}/d{240}/a{55}/" | = 0 "t/z/"
for a{55} b{56} => _find_dir "t/d{240}/d{240}/d{240}/d{240}/@" y  --> = 1 | = -1
== the places (show log)
$ mkdir -p /nand/usr /nand/q{64} ;; image u.img place=1 dir=nand -- ;; find_dir u.img ;; find_dir -
    log: update dir is </>. | = 0 "/" | : pheader is Null. | = -1 ""
show none
for "2 none" "2 usr" "2 q{64}" "0 q" "4 q" => image u.img place=@1 dir=@2 version=q{64} -- ;; find_dir
  u.img  --> = 0 "/nand" | = 0 "/nand/" {2} | = 0 "" {2}
place2dir 3  --> = "//"
