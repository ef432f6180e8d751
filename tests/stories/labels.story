# Catches: a label decoded or cut by mistake.
== labels (show out)
get_udisk_real_name "\\x41\xB0"  --> = 1 0 "A" | out check_is_gbk:5 | out 5c 78 34 31 b0 ~~
    out --get_udisk_real_name:\\x41\xB0 | out 1 hex_temp[0]=41 | out 2 hex_temp[1]=b0 | out 2 hex_temp[2]=00
    out strlen(name)=1 | out get_udisk_real_name:A
show none ;; for "" "0123456789abcdefABCDEF" "ABG" "\\xB0\\xa1b" "A\\x20B" "AB\\x" "AB\\x4"
  "AB\\x+1G" "\\xFF\\xFF" "\xFF\xFF raw" "A\xB0\xA1" "ABC\xFFGHIJ" "ABCD\xFFGHI" => get_udisk_real_name "@"
    = 0 0 "" | = 0 0 "0123456789abcdefABCDEF" | = 1 0 "ABG" | = 1 0 "\xE5\x95\x8Ab" | = 1 0 "A B" | = 1 0 "AB" {3}
    = 1 0 "" | = 1 0 "\xFF\xFF raw" | = 1 0 "A\xE5\x95\x8A" | = 1 0 "ABC\xFFGHIJ" | = 1 0 "ABCD"
for x{57} x{58} => get_udisk_real_name "@\xB0\xA1\xB0\xA1"  --> = 1 0 "x{57}\xE5\x95\x8A\xE5\x95\x8A"
    = 1 0 "x{58}\xE5\x95\x8A"
u2g "\xE5\x95\x8Ax"  --> = 0 "\xB0\xA1"
== names in the inventory (show chinese)
$ mkdir -p /u/sub /u/bin /u/e2
output /bin/mount "/u/sub\n/u/bin\n/u/e2\n" ;; output /bin/cat "sub\nbin\ne2\n" ;; output /usr/bin/find ""
for "sub \xF0\x9F\x98\x80x{24}\xF0\x9F\x98\x80" "bin \\xFF\n" "e2 x{28}\\xB0\\xA1" => output "ls -l
  /dev/disk/by-label/ |grep @1" "@2"
at chinese => show none ;; get_udisk_all_info  --> log: get udisk_name is chinese, use english instead. | = 0 and 3
    /u/sub <\xF0\x9F\x98\x80x{24}> 0 0 0 | /u/bin <UNKNOWNNAME> 0 0 0 | /u/e2 <x{28}\xE5\x95\x8A> 0 0 0
