# Catches: a wrong option, status or word; output in the wrong stream.
$ mkdir -p tree/bin tree/etc/deep tree/vorn-uboot; echo tool >tree/bin/tool; ln -s ../../bin/tool tree/etc/deep/link;
  echo boot >tree/vorn-uboot/u; echo card >tree/App_VPUCard.bin; img_deploy -c ./tree -r V7 -v u.img >/dev/null
== img_deploy: wrong calls
for "" "-s some.img" "-v -C any" -x -u "--version x" "-c tree" "-c tree -p 3 o.img" "-p 3 o.img -c tree" "-m 2x -u x"
  "-m reboot" => $ img_deploy @ 2>err; echo $? $(head -n 1 err | sed 's,/.*/,,')  --> 1 img_deploy: not Support {3}
    1 img_deploy: invalid option -- 'x' | 1 img_deploy: option requires an argument -- 'u'
    1 img_deploy: invalid option -- '-' | 1 Usage: img_deploy [OPTION...] eFILE]... {3} | 255 Invalid mode: 2x
    255 Invalid mode: reboot
$ img_deploy 2>&1 >/dev/null | sed '1d; s,/[^ ]*/img_deploy,img_deploy,'; ls; test ! -e /usr/local/upgdflag
    Usage: img_deploy [OPTION...] eFILE]... | Create Update File:
        img_deploy -c [DIR] [FILE] -p [1|2|3] [rootfs|nandfs|custom]... | Upgrade:
        img_deploy -u [FILE] -m [1(reboot)|2(online)]  ... | Show Image: |     img_deploy -s [FILE] ... | Eg:
        img_deploy -c /nand -p 1 update.img\s |     img_deploy -c /nand -p 3 update.img  /
        img_deploy -u update.img\s | err | tree | u.img
$ img_deploy --version >out; echo $?; img_deploy --version >/dev/full  --> 0 | status 1
== builds
for 1 0x3 010 4 none 2x => $ img_deploy -p @ -c ./tree o.img /to ignored >/dev/null; echo $? $(od -An -tx1 -j35 -N1
  o.img)  --> 0 01 | 0 03 | 0 08 | 0 04 | 0 00 | 0 02
$ POSIXLY_CORRECT=1 img_deploy -c ./tree o.img -p 1 >out; echo $? $(od -An -tx1 -j35 -N1 o.img)  --> 0 01
$ img_deploy -m 0x2 -C 5 -c ./tree o.img >/dev/null; od -An -tx1 -j35 -N1 o.img; img_deploy -c missing o.img
     02 | status 255
$ img_deploy -c ./tree n.img >&-; echo $?; img_deploy -c ./tree m.img >&- 2>&- <&-; echo $? $(stat -c %s u.img n.img
  m.img)  --> 0 | 0 610 610 610
$ script -qec 'img_deploy -c missing no.img' /dev/null </dev/null | tr -d '\r' | grep '^img_deploy: '
    img_deploy: no.img was not built from missing: No such file or directory; mend that and build it again
== how a run ended
$ mkdir -p t/void t/d; cd t; echo x >f; : >e; mkfifo p; n=0; for l in ../f /gone /etc/passwd/x /dev/null ../p ../e
  x{120}; do n=$((n+1)); ln -s $l d/$n; done
$ export IMG_DEPLOY_EXPLAIN=1; img_deploy -c ./t -p 4 o.img 2>&1 >/dev/null | fold -sw 99; img_deploy -u u.img -m 2 2>&1
  >/dev/null | tail -n 1; img_deploy -u cut -m 2 >/dev/null
    img_deploy: o.img was built: 2 entries, 515 bytes; left out: links over 127 characters (1), links\s
    to nowhere (2), links to devices (2), links to empty files (1), empty files (1), empty directories\s
    (1), devices (1) | img_deploy: u.img was applied: 4 entries below /opt/upgddir/
    img_deploy: cut was not applied: No such file or directory; mend that and apply it again | status 246
$ IMG_DEPLOY_EXPLAIN=0 img_deploy -c ./t o2.img 2>&1 >/dev/null; img_info --compare . --extra o.img | grep -c 'not of
  the image'  --> 9
for "mount -t tmpfs -o size=8k tmpfs /opt" "umount /opt; rm -rf /opt/upgddir; echo >/opt/upgddir" "rm /opt/upgddir; sed
  -i s,tree/bin,../t/bin, u.img" "ipcrm -M 0x600001; perl -e 'shmget(0x600001, 4, 01600)'" => $ @; IMG_DEPLOY_EXPLAIN=1
  img_deploy -u u.img -m 2 2>&1 >/dev/null | tail -n 1 | cut -d: -f 3- | tr ';' '\n'; cat /usr/local/upgdflag
     there is no room left on the device |  make room or get the image anew, and apply it again | 1
     /opt/upgddir/ can't be reached |  mend that and apply it again | 1
     an entry can't be written or is damaged, which the lines above name
     make room or get the image anew, and apply it again | 1
     the progress block, shared memory 0x600001: Invalid argument
     remove it with \"ipcrm -M 0x600001\" and apply it again | 1
== runs and the flag file
for "-m 2 -u u.img -s missing" "-c tree -m 2 -u u.img" "-m 4294967297 -u u.img" => $ img_deploy @ >out 2>&1; echo $?
  $(cat /usr/local/upgdflag /run/sandbox/calls)  --> 246 1 | 0 2 {2}
$ (flock 9; sleep 0.3 & exec 9>&-; img_deploy -u u.img -m 2 >out 2>&1) 9>>/run/img_deploy.lock; echo $? $(stat -c %a
  /run/img_deploy.lock)  --> 0 600
$ printf '#!/bin/sh\nsleep 60 >/w/s 2>&1 &' >leave; chmod +x leave; mount --bind leave /bin/sync
for "img_deploy -u u.img -m 2" "upgd_service update u.img --dir to --cards simulate=0" => $ @ >out 2>&1; flock -n
  /run/img_deploy.lock true; echo $?  --> 0 {2}
== both sinks of the trace log
$ img_deploy -c ./tree o.img >out; tail -n +4 out | cmp - /var/log/upgd_log0.txt
== sysconfig
$ sysconfig get a; sysconfig set a '' V1.0; sysconfig set device_name 'unit = 7'; sysconfig get a; sysconfig list;
  sysconfig get a >/dev/full  --> sysconfig: a: unknown key |  V1.0 | a= V1.0 | device_name=unit = 7
    sysconfig: standard output: No space left on device | status 1
$ sysconfig set a $(seq 9999)  --> sysconfig: a: Value too large for defined data type | status 1
== img_info
$ img_info u.img | sed '/Created/d' | tr -s ' '; img_info --verify u.img; img_info --verify - <u.img; yes | timeout 60
  img_info -; img_info - </tmp  --> Name Vorn Video Systems firmware package | Version V7 | Place NAND file system
    Code of the place 2 | Target directory\s | Packed directory tree | Compression Uncompressed | Size in bytes 610
    Directories 4 | Entries 4 | CRC of the body 5cd33ad7 | VPU MCU 5 tree/App_VPUCard.bin
    boot loader 5 tree/vorn-uboot/u | link 0 tree/etc/deep/link -> ../../bin/tool | file 5 tree/bin/tool
    u.img: well, 4 entries | standard input: well, 4 entries | img_info: standard input: is no update image
    img_info: standard input: Is a directory | status 2
$ img_info --extract new u.img; img_info --extract new u.img tree/bin; echo $?; diff -r --no-dereference tree new/tree;
  img_info --extract part u.img tree/bin; img_info --extract part u.img tree/b; find part -type f
    img_info: u.img: left out: tree/bin/tool: File exists | 1 | img_info: u.img: holds nothing of these names
    part/tree/bin/tool
$ { head -c 488 u.img; printf '../x\33\0\0\0\0\0\1xl;/tmp\0\4\0\0\0\0l/y\0\0\0\0\0\1y'; } >bad; img_info --extract evil
  bad; find evil/* x* /tmp/y 2>/dev/null; img_info --verify bad; img_info --compare evil bad 2>/dev/null | head -n 1
    img_info: bad: left out: ../x\\x1b: leads upwards | img_info: bad: left out: l/y: Not a directory
    img_info: bad: entry 3 at offset 522: there are fewer entries than the header says
    img_info: bad: the header says the CRC 5cd33ad7, the body has da923137: it is damaged | evil/l
    bad: the header says 610 bytes, the file has 522 | bad: the header says the CRC 5cd33ad7, the body has da923137
    bad: entry 0 at offset 488, ../x\\x1b: its name leads out of the directory
    bad: the header counts 4 entries, the body has 3 | bad: 4 findings
    bad: can't stand there: ../x\\x1b: its name leads out of the directory
image odd count=6 place=0 time=86399 -- "l;" 4 "" "d;x/f" 0 x p{256} 0 x p{255} 0 x d/. 0 x "" 0 x ;; $ TZ=ABC-5 img_info
  odd | grep -E '^(Cr|Dir|Place|link)'; img_info --verify odd | sed 's/, below.*//; s/.*offset //; /CRC/d'
    Created           1970-01-01T23:59:59Z | Place             unknown | Directories       0
    link                   0  l ->\s | odd: the header says the place 0, which is none of 1 to 3
    488, l;: it is a link without a target
    496, d;x/f: the name of its directory is cut at its ';', as a link's would be
    508, p{256}: a part of its path has more than 255 characters | 1033, d/.: its name is that of a directory
    1043, : its name is that of a directory | odd: 7 findings
$ head -c 500 u.img >cut; : >empty; upgd_service update cut
    upgd_service: cut: has another length than its header says: it is cut off, or was never finished | status 1
$ mkdir n; echo data >n/x; img_deploy -c ./n n.img >out; img_info --json n.img | grep -o '[a-z_]*offset":[0-9]*'
    offset\":488 | data_offset\":497
$ mkfifo p; mkdir full; mount -t tmpfs -o size=8k tmpfs full; img_info --extract full u.img 2>&1 | sed 's/.*: //' | sort
  -u; find full -type f | wc -l  --> No space left on device | 2
for empty p "--compare no u.img" "--signature odd u.img" "--extract u.img/x u.img" "--compare . cut" "--compare
  /{1024} u.img" "--verify --base /{1024} u.img" "--frob u.img" => $ timeout 60 img_info @ 2>err; sed 's,^/.*/,,; q' err
    img_info: empty: is empty | img_info: p: is no plain file | img_info: no: No such file or directory
    img_info: odd: is too long | img_info: u.img/x: Not a directory
    img_info: cut: entry 0: its name has no end; the rest was not compared
    img_info: u.img: entry 0: the path of the directory is too long; the rest was not compared
    u.img: the path of the directory is too long | u.img: 1 finding | img_info: unrecognized option '--frob'
$ put() { printf "$1" | dd of=more bs=1 seek=$2 conv=notrunc status=none; }; cp u.img more; put X 7; img_info --extract
  x more 2>err || echo $?; put '\3' 23; put '\4' 35; img_info --verify more  --> 1
    more: the header says the place 4, which is none of 1 to 3
    more: the header says the CRC 5cd33a58, the body has 5cd33ad7
    more: the header counts 3 entries, the body has 4 | more: 3 findings | status 1
for 2147483647 2147483648 4294967906 => $ truncate -s @ more; img_info more >out
    img_info: more: is longer than an update image can be | status 2 {2}
for img_info sysconfig upgd_service => $ @ --help >out 2>err; echo $? $(head -c 6 out) $(wc -c <err)
    0 Usage: 0 {3}
for sysconfig "sysconfig set a" "sysconfig get" "sysconfig get a b" "sysconfig list a" "sysconfig frob"
  img_info "img_info a b" "img_info --extract d -" => $ @ 2>err; echo $? $(grep -o -m 1 ^Usage: err)
    2 Usage: {9}
