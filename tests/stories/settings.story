# Catches: a setting that costs another, or the file; a wrong value or limit; a writer that does not wait.
== settings
$ umask 77; sysconfig set x 1; ln -s /etc/sysconfig/device.conf c; cd /etc/sysconfig; seq 9 >device.conf.new; stat -c
  %a . device.conf
    755 | 644
for "" "# a=0\n\na=1\n\nb=2" "aa=1\na=1\na=2\n" "a = 1\nb\n=c" => $ printf '@' >c ;; configuration_set a " = b c= " ;;
  bytes c ;; $ sysconfig get a  --> = 0 | = a= = b c= \n |  = b c=\s | = 0 | = # a=0\n\na= = b c= \n\nb=2
     = b c=\s | = 0 | = aa=1\na= = b c= \na=2\n |  = b c=\s | = 0 | = a = 1\nb\n=c\na= = b c= \n |  = b c=\s
for "" x{1023} x{1024} "2\nb=3" => configuration_set a "@"  --> = 0 {2} | = -75 | = -22
$ sysconfig get a  --> x{1023}
for x.y-Z_9 "" "a b" a=b \xC3\xA4 => configuration_set "@" 2  --> = 0 | = -22 {4}
$ printf '# head\na=1\nb c=2\nd= = \nd=3' >c; sysconfig list  --> a=1 | d= =\s | d=3
for 255 256 -2 "2 " "" => $ echo 'card_bit=@' >c ;; configured_card_bit  --> = 255 | = 1 {4}
$ exec 9</etc/sysconfig/device.conf.lock; flock -s 9; (sleep 0.3; echo c=3 >c) & exec 9<&-; sysconfig set b 2; cat c
    c=3 | b=2
