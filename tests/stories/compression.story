# Catches: an image without its body; temporary files that stay.
$ head -c 488 /dev/urandom >head; head -c 1000000 /dev/urandom >body; cat head body >whole
$ printf '#!/bin/sh\np=${0##*/}; if [ -f /w/$p ]; then . /w/$p; else exec /bin/$p "$@"; fi' | tee /usr/local/sbin/gzip
  >/usr/local/sbin/gunzip; chmod +x /usr/local/sbin/g*zip
== there and back, over leftovers (show log, trace, run, fsync, out)
$ echo 'for f; do :; done; stat -c %a "$f"; exec /bin/gzip "$@"' >gzip
$ { cat head; printf body; } >i; cat whole whole >/tmp/tmppfile; echo left >/tmp/tmppfile.gz ;; gzip_dirs_and_files i 4
    run rm /tmp/tmppfile.gz -rf | run gzip /tmp/tmppfile | trace combine_file:  tmp_len = 33,
    :    Data Size(compressed): 521 Bytes\n | fsync /w/i | run rm /tmp/tmppfile.gz /tmp/tmppfile -rf | = 0 | out 600
$ head -c 488 i | cmp - head; tail -c +489 i | /bin/gzip -d; ls /tmp  --> body
open_gunzip_file i 33 ;; show none ;; open_gunzip_file i 33 memory ;; $ rm gzip  --> run rm /tmp/tmppfile.gz -rf
    run touch /tmp/tmppfile.gz | run rm /tmp/tmppfile -rf | run gunzip /tmp/tmppfile.gz | = body | = body
for "whole 1000000" "head 0" => $ cp @1 i ;; gzip_dirs_and_files i @2 ;; $ { head -c 488 i; tail -c +489 i | gunzip; } |
  cmp - @1  --> = 0 {2}
== the plain body is put back or kept (show log, trace, faild, -trace combine_file)
for "1000001" "2147483648" "1000000 locked" => $ cp whole i ;; gzip_dirs_and_files i @ ;; $ cmp i whole; ls /tmp
    trace cut_file: fread /update_fd falid.\n | = -1 | trace cut_file:  gzip: malloc buff falid.\n | = -1
    log: the body could not be put back into the image: move /tmp/tmppfile away before anything else is compressed
    = -1 | tmppfile | err step1:cut_file faild. | err step1:cut_file faild. | err combine_file faild.
at run gzip => $ cat whole whole >>i
show trace copy_file ;; for "" "mkdir /tmp/tmppfile" => $ cp whole i; @ ;; gzip_dirs_and_files i 1000000 ;; $ cmp i
  whole  --> = -1 | trace copy_file: unable to open `/tmp/tmppfile'\n | = -1
fail "close /tmp/tmppfile" ;; $ cp whole i ;; gzip_dirs_and_files i 1000000 ;; fail ;; show log
    trace copy_file: unable to close `/tmp/tmppfile'\n | = -1
for "exit 127" "head -c 1000 $1 >$1.gz; kill -KILL $$" "/bin/gzip -k $1" "rm $1" "rm $1; : >$1.gz" => $ cp whole i; echo
  '@' >gzip ;; gzip_dirs_and_files i 1000000 ;; $ cmp -n 488 i whole; stat -c %s i; ls /tmp  --> = -1 | 1000488 {3}
    log: the image has lost its body: gzip has left nothing of it | = -1 | 488 {2}
== what a killed call has left (show log)
for "printf 12345 >/tmp/tmppfile" "printf 123456 >/tmp/tmppfile" "printf 12345 | gzip >/tmp/tmppfile.gz" "printf 12345
  >other; ln -s /w/other /tmp/tmppfile" "printf 12345 >/tmp/tmppfile; chown 7 /tmp/tmppfile 2>&- || rm /tmp/tmppfile" =>
  $ cp head i; rm -f /tmp/tmppfile*; @ ;; gzip_dirs_and_files i 5 ;; $ ls /tmp
    log: the image lacks its body, and /tmp/tmppfile may hold it: move it away first | = -1 | tmppfile {2}
    log: the image lacks its body, and /tmp/tmppfile.gz may hold it: move it away first | = -1 | tmppfile.gz
    = -1 {2}
$ cp whole i; echo exit 127 >gzip
show none ;; fail fsync ;; gzip_dirs_and_files i 1000000 ;; fail ;; $ ls /tmp; rm /tmp/tmppfile* gzip  --> = -1
    tmppfile
for 488 493 => image i -- n 0 12345 ;; $ rm -f /tmp/tmppfile*; tail -c +489 i >/tmp/tmppfile; truncate -s @ i ;;
  gzip_dirs_and_files i 0 ;; $ ls /tmp  --> = -1 | tmppfile {2}
$ cp head i; rm -f /tmp/tmppfile*; printf 12345 | gzip >/tmp/tmppfile.gz; head -c 4 /tmp/tmppfile.gz >>i ;;
  gzip_dirs_and_files i 4 ;; $ ls /tmp  --> = -1 | tmppfile.gz
== what can't be expanded (show log)
for "12 no_gzip_data" "0" "12 short" "2147483648 long" => $ { cat head; printf %s "@2"; } >i ;; open_gunzip_file i @1
    log:  file not exist filename </tmp/tmppfile>.\n | = 1 {2} | log: copy_file </tmp/tmppfile.gz> failed.\n
    :  file not exist filename </tmp/tmppfile>.\n | = 1 {2}
at run gunzip => $ ln -s /w/i /tmp/tmppfile ;; open_gunzip_file i 0
    log: open error  filename </tmp/tmppfile>.\n | = 2
