# Catches: an image that the gate lets in though its signature, version or product, or the device's keys, are not as
# they have to be; a backup that brings more than settings.
$ begin_signed
== versions, floors and products
for "V1.4.0.0 V1.4.0.0.0.0.0.1 V1" "V1.10 new V1" "V1.4.0.0 V1.4.0.0 v1.4.0" => $ cp @1.img u.img; sysconfig set
  fw_floor @2; sign "product=x floor=@3"; try
    1 u.img: its version V1.4.0.0 is below V1.4.0.0.0.0.0.1, the lowest that this device takes
    1 /etc/sysconfig/device.conf: fw_floor=new is no version: set it anew | 0 tree
for "rc1 V1" "V1.10 V2" "V1.10 V" "V1.10 V1.000000010.0" => $ cp @1.img u.img; sign "product=x floor=@2"; try; img_info
  --signature maker.pub u.img | sed 's/.*valid: //; s/;.*//'  --> 1 u.img: its version rc1 can't be compared
    its version can't be compared | 1 u.img: its version V1.10 is below the floor V2 of its own signature
    its version is below the floor of its own signature | 1 has no comment of the form product=NAME floor=VERSION
    has no comment of the form product=NAME floor=VERSION | 0 tree | signature: valid
$ sign "product=AZaz09_.-p{54} floor=V1"; try
    1 u.img: is for the product AZaz09_.-p{54}, and this device is a x
for "" product= => $ sign; echo @ >device.conf; try
    1 u.img: the product of this device is not known; say what it is with \"sysconfig set product NAME\" {2}
$ for mode in o-w o+w; do chmod $mode keys; upgd_service status | tail -n 2; done; chmod o-w keys
    keys            2 | next step       say which product this is with \"sysconfig set product NAME\"
    keys            /etc/upgd/keys: can be written to by others | next step       mend the keys: no image is taken
$ printf 'fw_version=V1.10\nfw_floor=new\nfw_floor_pending=V1 V1.10\n' >device.conf; try | cut -d= -f1; upgd_service
  disks 2>err | wc -l  --> 1 /etc/sysconfig/device.conf: fw_floor | 1
== comments and signatures
for 0{256} 0{255} "product=p{64} floor=V1" "product= floor=V1" "product=x  floor=V1" "product=x floor=V1 until=9"
  "product=x floor=V4294967297" "product=x floor=V1.1.1.1.1.1.1.1.1" => $ sign '@'; try
    1 has too long a comment | 1 has no comment of the form product=NAME floor=VERSION {7}
$ rm u.img.minisig; upgd_service update u.img 2>&1 | tr ';' '\n'
    upgd_service: u.img.minisig: No such file or directory: nothing was touched
     the image needs a good signature, or --allow-unsigned
for : "head -c 155 good" "head -c -1 good" "cat good; echo" "sed 's/$/\r/' good" "head -c 1024 /dev/zero" "head -c 1025
  /dev/zero" "perl -pe 's/$/\0more/ if $. == 3' good" => $ { @; } >u.img.minisig; try
    1 is no signature, or is cut short {4} | 1 has line ends of another system | 1 is no text | 1 is too long
    1 is no text
for 2 4 => $ perl -pe 's/([^=])(=+)$/chr(1 + ord $1) . $2/e if $. == @' good >u.img.minisig; try
    1 is no signature, or is damaged {2}
for "2s/.$/-/" 2s/=// 2s/^RU/RV/ 1s/$/x/ => $ sed '@' good >u.img.minisig; try
    1 is no signature, or is damaged {2} | 1 is of an unknown form, or is damaged
    1 has another first line than minisign writes by itself
$ sign 'product=x floor=V1' maker -l; try  --> 1 is in the old form, not over the image's hash: sign without -l
$ cp V1.3.89.img u.img; sign 'product=x floor=V1.1'; cp V1.10.img u.img; try
    1 u.img: is another image's, or the image was altered; get it anew
$ (head -n 2 good; tail -n 2 u.img.minisig) >both; mv both u.img.minisig; try
    1 is not the key owner's: it or its comment was altered
$ sign 'product=x floor=V1' other; chmod o+w u.img.minisig; try  --> 0 tree
== the device's keys
$ mv keys/maker.pub keys/maker.old; cp maker.pub keys/.maker.pub; try; cp maker.pub keys
    1 was made with a key that this device does not have
for keys keys/.. keys/other.pub => $ chmod g+w @; try; chmod g-w @  --> 1 keys: can be written to by others {2}
    1 keys/other.pub: can be written to by others
for "(cat other.pub; echo more) >" "sed 2s/.$/-/ other.pub >" "sed 1s/.$/x/ other.pub >" "ln -s /w/other.pub" mkdir "cp
  other.pub" => $ @ keys/next.pub; try | sed 's/[a-z]*.pub/K/'; rm -r keys/next.pub
    1 keys/K: is no public key, or is cut short | 1 keys/K: is no public key, or is damaged
    1 keys/K: does not name its own key in its first line | 1 keys/K: is a link | 1 keys/K: is no plain file
    1 keys/K: has the id of another key file
for 14 1 => $ for n in $(seq @); do minisign -fGW -p keys/@-$n.pub -s key >out; done; try | sed 's/[-0-9a-z]*.pub/K/'
    0 tree | 1 keys/K: is one key file too many
$ mv /etc/upgd/keys moved; ln -s /w/moved /etc/upgd/keys; upgd_service update u.img
    upgd_service: /etc/upgd/keys: Not a directory: nothing was touched; mend the device's keys | status 1
$ rm /etc/upgd/keys; mkdir /etc/upgd/keys; try
    1 keys: holds no key: put one there with \"install -m 644 KEY.pub /etc/upgd/keys/\"
$ rmdir /etc/upgd/keys; try; rmdir /etc/upgd; ln -s nowhere /etc/upgd; try  --> 0 tree
    1 keys: No such file or directory
== what is let in, copied and noted, and the floor
for "upgd_service plan u.img --cards simulate" "img_info --signature maker.pub u.img" => $ @ | sed -n "1s/$(sed -n
  '1s/.* //p' maker.pub)/KEY/p" | tr ';' '\n'  --> signature: valid |  key KEY
     trusted comment: product=x floor=V1 |  untrusted comment: signature from minisign secret key {2}
$ img_info --signature other.pub --json u.img | cut -c -64
    {\"signature\":{\"valid\":false,\"fault\":\"was made with another key\",
$ cp V1.4.0.0.img x.img; cp good x.img.minisig; img_info --signature maker.pub x.img | cut -d';' -f1
    signature: not valid: is another image's, or the image was altered
$ upgd_service plan u.img --dir to --cards simulate --copy t.img --json | cut -c -30; cmp u.img t.img;
  stat -c %a t.img; sysconfig list  --> {\"image\":\"u.img\",\"signed\":true | 600 | product=x
    fw_floor_pending=V1 V1.10
$ ln -s none c; upgd_service plan u.img --copy c; upgd_service plan x.img --copy r.img 2>err; test ! -e r.img
    upgd_service: c: it exists: nothing was touched
$ rm /etc/sysconfig/*; sysconfig set product x; try; sysconfig list  --> 0 tree | product=x | fw_version=V1.10
$ mkdir -p /usr/vorn/bin to/tree/tool; cp /bin/mcu_isp /usr/vorn/bin; sysconfig set fw_version V1; upgd_service update
  u.img --dir to --force >out 2>&1; upgd_service disks >out; sysconfig list  --> product=x | fw_version=V1
    fw_floor_pending=V1 V1.10
$ sysconfig set fw_version V1.10; upgd_service disks >out; sysconfig list  --> product=x | fw_version=V1.10
    fw_floor_pending= | fw_floor=V1
for "V1 V1.10" "V3 V1.10 b" => $ sysconfig set fw_floor V2; sysconfig set fw_floor_pending @; sysconfig set fw_version
  $(echo @ | cut -d' ' -f 2-); upgd_service disks >out; sysconfig get fw_floor  --> V2 | V3
$ sysconfig set fw_floor V0; sysconfig set fw_version V1.10; upgd_service update u.img --dir to --force 2>&1 | tail -n
  1; sysconfig get fw_floor_pending  --> upgd_service: u.img: an entry can't be written, or the image is damaged
$ rmdir to/tree/tool; upgd_service update u.img --dir to >out; sysconfig get fw_floor  --> V1
== settings, which need no signature
$ mkdir -p to/usr/qrx310/etc/vsp; ln -s /opt to/usr/qrx310/etc/vsp/out
for "vspx/f 0" "vsp/l/f 0" "vsp/out/f 0" "vsp/../f 0" "vsp/k/zImage 5" "vsp/u 7" "sysconf/other 0" "vsp/a 0" "mcucored/b
  0" "sysconf/qrxpara/c 0" => image s.ubck place=1 dir=. -- "usr/qrx310/etc/vsp/l;/opt" 4 "" usr/qrx310/etc/@1 @2 x ;; $
  bring_back s.ubck  --> 1 s.ubck.minisig: No such file or directory 0 {7} | 0 1 | 0 2 | 0 3
$ cp V1.3.89.img u.img; sign; sysconfig set fw_floor V1.4; bring_back u.img
    1 u.img: is no settings backup u.img: its version V1.3.89 is below V1.4, the lowest that this device takes 3
