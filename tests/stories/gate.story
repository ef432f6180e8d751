# Catches: an image that the gate of upgd_service lets in though its signature, comment, version or product, or the
# device's keys, are not as they have to be; a reason in other words; a backup that brings more than settings.
$ . $STORIES/gate.sh; rm -rf /etc/upgd; mkdir -p tree /etc/upgd/keys; echo tool >tree/tool; echo card
  >tree/App_VPUCard.bin; for v in V1.3.9 V1.4.0.0 V1.10 rc1; do img_deploy -c ./tree -r $v $v.img >/dev/null; done; for
  k in maker other; do minisign -GW -p $k.pub -s $k.key >/dev/null; done; cp *.pub /etc/upgd/keys; cp V1.10.img u.img;
  sign; cp u.img.minisig good; sysconfig set product x; mount --bind /bin/true /bin/sync
== versions, floors and products (show none)
$ . $STORIES/gate.sh; for l in 'V1.4.0.0 V1.4.0.0.0.0.0.1 V1' 'V1.3.9 V1.4.0.0 V1.3' 'rc1 V1 V1' 'V1.10 V1 V1.11' 'V1.10
  new V1' 'V1.4.0.0 V1.4.0.0 v1.4.0'; do set $l; cp $1.img u.img; sysconfig set fw_floor $2; sign "product=x floor=$3";
  try; img_info --signature maker.pub u.img | grep -o 'not valid: [^;]*'; done; sysconfig get fw_floor
    1 u.img: its version V1.4.0.0 is below V1.4.0.0.0.0.0.1, the lowest that this device takes
    1 u.img: its version V1.3.9 is below V1.4.0.0, the lowest that this device takes
    1 u.img: its version rc1 can't be compared | not valid: its version can't be compared
    1 u.img: its version V1.10 is below the floor V1.11 of its own signature
    not valid: its version is below the floor of its own signature
    1 /etc/sysconfig/device.conf: fw_floor=new is no version: set it anew | 0 tree | V1.4.0.0
$ . $STORIES/gate.sh; for p in w xy; do sign "product=$p floor=V1"; try; done; sign; for l in '' ' product=x' 'product
  ='; do echo "$l" >/etc/sysconfig/device.conf; try; done | uniq -c; printf 'product=x\nfw_floor=%01024d\n' 9
  >/etc/sysconfig/device.conf; try
    1 u.img: is for the product w, and this device is a x | 1 u.img: is for the product xy, and this device is a x
          3 1 u.img: the product of this device is not known; say what it is with \"sysconfig set product NAME\"
    1 /etc/sysconfig/device.conf: Value too large for defined data type: mend that
== comments and signatures (show none)
$ . $STORIES/gate.sh; for c in $(printf %0256d 0) '' product=x 'product= floor=V1' 'floor=V1 product=x'
  'product=x  floor=V1' 'product=x floor=V1 ' 'product=x floor=V1.x' 'product=x floor=V1 until=9' 'product=x
  floor=V4294967297' 'product=x floor=V1.1.1.1.1.1.1.1.1'; do sign "$c"; try; done | uniq -c; img_info --signature
  maker.pub u.img | cut -d';' -f1
          1 1 u.img.minisig: has too long a comment
         10 1 u.img.minisig: has no comment of the form product=NAME floor=VERSION
    signature: not valid: has no comment of the form product=NAME floor=VERSION
$ . $STORIES/gate.sh; rm u.img.minisig; upgd_service update u.img 2>&1 | tr ';' '\n'; for n in 0 30 150 202 240
  $(($(stat -c %s good) - 1)); do head -c $n good >u.img.minisig; try; done | uniq -c; (cat good; echo) >u.img.minisig;
  try; sed 's/$/\r/' good >u.img.minisig; try; (cat good; head -c 1M /dev/zero) >u.img.minisig; try; perl -pe
  's/$/\0more/ if $. == 3' good >u.img.minisig; try; for n in 2 4; do perl -pe 's/([^=])(=+)$/chr(1 + ord $1) . $2/e if
  $. == '$n good >u.img.minisig; try; done | uniq -c
    upgd_service: u.img.minisig: No such file or directory: nothing was touched
     the image needs a good signature, or --allow-unsigned
          6 1 u.img.minisig: is no signature, or is cut short | 1 u.img.minisig: is no signature, or is cut short
    1 u.img.minisig: has line ends of another system | 1 u.img.minisig: is too long | 1 u.img.minisig: is no text
          2 1 u.img.minisig: is no signature, or is damaged
$ . $STORIES/gate.sh; sign 'product=x floor=V1' maker -l; try; cp V1.3.9.img u.img; sign 'product=x floor=V1.1'; cp
  V1.10.img u.img; try; (head -n 2 good; tail -n 2 u.img.minisig) >mixed; cp mixed u.img.minisig; try; sign 'product=x
  floor=V1' other; try
    1 u.img.minisig: is in the old form, not over the image's hash: sign without -l
    1 u.img: is another image's, or the image was altered; get it anew
    1 u.img.minisig: is not the key owner's: it or its comment was altered | 0 tree
== the device's keys (show none)
$ . $STORIES/gate.sh; k=/etc/upgd/keys; mv $k/maker.pub $k/maker.old; cp maker.pub $k/.maker.pub; try; cp maker.pub $k;
  for f in $k $k/other.pub /etc/upgd; do for c in o+w g+w; do chmod $c $f; try; chmod go-w $f; done; done | uniq -c; mv
  $k moved; ln -s /w/moved $k; upgd_service update u.img; rm $k; mkdir $k; try; rm -r /etc/upgd; ln -s nowhere
  /etc/upgd; try; rm /etc/upgd
    1 u.img.minisig: was made with a key that this device does not have
          2 1 /etc/upgd/keys: can be written to by others
          2 1 /etc/upgd/keys/other.pub: can be written to by others
          2 1 /etc/upgd/keys: can be written to by others
    upgd_service: /etc/upgd/keys: Not a directory: nothing was touched; mend the device's keys
    1 /etc/upgd/keys: holds no key: put one there with \"install -m 644 KEY.pub /etc/upgd/keys/\"
    1 /etc/upgd/keys: No such file or directory
$ . $STORIES/gate.sh; k=/etc/upgd/keys; mkdir -p $k; cp *.pub $k; echo more >>$k/other.pub; try; sed 's/$/\r/' other.pub
  >$k/other.pub; try; cp other.pub $k; ln -s /w/other.pub $k/next.pub; try; rm $k/next.pub; cp other.pub $k/next.pub;
  try | sed 's/[a-z]*.pub/K/'; rm $k/next.pub; for n in $(seq 15); do [ $n -lt 15 ] || try; minisign -fGW -p $k/$n.pub
  -s key >/dev/null; done; try | sed 's/[a-z0-9]*.pub/K/'
    1 /etc/upgd/keys/other.pub: is no public key, or is cut short
    1 /etc/upgd/keys/other.pub: has line ends of another system | 1 /etc/upgd/keys/next.pub: is a link
    1 /etc/upgd/keys/K: has the id of another key file | 0 tree | 1 /etc/upgd/keys/K: is one key file too many
== what is let in, copied and noted; the floor rises with a run that went well, and not with simulated cards (show none)
$ (upgd_service plan u.img --dir /opt/to --cards simulate | head -n 1; img_info --signature maker.pub u.img) | sed
  "s/$(sed -n '1s/.* //p' maker.pub)/KEY/" | uniq -c | tr ';' '\n'; img_info --signature other.pub --json u.img | cut -c
  -64; cp V1.4.0.0.img x.img; cp good x.img.minisig; img_info --signature maker.pub x.img | cut -d';' -f1
          2 signature: valid |  key KEY |  trusted comment: product=x floor=V1
     untrusted comment: signature from minisign secret key
    {\"signature\":{\"valid\":false,\"fault\":\"was made with another key\",
    signature: not valid: is another image's, or the image was altered
$ upgd_service plan u.img --dir to --cards simulate --copy t.img >out; cmp u.img t.img; sysconfig list; upgd_service
  plan u.img --copy u.img; cmp u.img t.img; upgd_service plan x.img --copy r.img 2>/dev/null; test ! -e r.img
    product=x | fw_floor_pending=V1 V1.10 | upgd_service: u.img: it exists: nothing was touched
$ . $STORIES/gate.sh; rm /etc/sysconfig/*; sysconfig set product x; try; sysconfig list; sysconfig set fw_version V1;
  mkdir -p /usr/vorn/bin /opt/to/tree/tool; cp /bin/mcu_isp /usr/vorn/bin; upgd_service update u.img --dir /opt/to
  --force 2>err >out; head -n 1 err; upgd_service disks >out; sysconfig list; rmdir /opt/to/tree/tool; upgd_service
  update u.img --dir /opt/to >out; sysconfig list
    0 tree | product=x | fw_version=V1.10 | upgd_service: /opt/to/tree/tool: a directory stands there | product=x
    fw_version=V1 | fw_floor_pending=V1 V1.10 | product=x | fw_version=V1.10 | fw_floor_pending= | fw_floor=V1
== settings, which need no signature if there is nothing else, and nothing on the way (show none)
$ . $STORIES/gate.sh; pack vsp/a mcucored/b sysconf/qrxpara/c; bring_back; pack vsp/vorn-kernel/zImage; bring_back; pack
  sysconf/other; bring_back; pack vsp/ab/f; perl -pi -e 's(vsp/ab/f)(vsp/../f)' s.ubck; bring_back; pack vsp/f; mkdir -p
  /opt/to/usr/qrx310/etc; ln -s /opt /opt/to/usr/qrx310/etc/vsp; bring_back; link=vsp/lin2; pack vsp/lin1/f; perl -pi -e
  's(vsp/lin1)(vsp/lin2)' s.ubck; bring_back
    0 3 | 1 s.ubck.minisig: No such file or directory 0 | 1 s.ubck.minisig: No such file or directory 0
    1 s.ubck.minisig: No such file or directory 0 | 1 s.ubck.minisig: No such file or directory 0
    1 s.ubck.minisig: No such file or directory 0
