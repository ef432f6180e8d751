#!/usr/bin/env bash
# The gate of upgd_service: what `minisign` signs is let in, and nothing else is, whatever byte of it
# is another one; what was checked is what is applied; the floor rises and never falls.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

command -v minisign >/dev/null || { echo 'skipped: there is no minisign' && exit 77; }
case " $0 $(command -v upgd_service)" in
    *' /opt/'*) echo 'skipped: the project lies in /opt, which is looked at and mounted over' && exit 77 ;;
esac
keys=/etc/upgd/keys
signed='product=qrx310 floor=V1.4.0.0'
mkdir -p tree $keys
echo tool >tree/tool
echo card >tree/App_VPUCard.bin
ln -s tool tree/link
for version in V1.3.9 V1.4.0.0 V1.10 rc1; do
    img_deploy -c ./tree -r $version $version.img >/dev/null
done
for key in maker other; do minisign -GW -p $key.pub -s $key.key >/dev/null; done

# sign IMAGE COMMENT [KEY [OPTION...]]
sign() { minisign -S -s "${3:-maker}.key" -t "$2" -m "$1" "${@:4}" >/dev/null; }

# refused WORDS [ARGUMENT...]: u.img is, with this one sentence; nothing is written or left behind.
refused() {
    local before
    before=$(find /opt /etc/sysconfig | sort)
    run upgd_service update u.img --dir /opt/to --cards simulate=0 "${@:2}"
    expect "refusal of: $1" "1 1 upgd_service: $1" "$status $(wc -l <err) $(cut -c -$((14 + ${#1})) err)"
    expect "what was written after: $1" "$before" "$(find /opt /etc/sysconfig | sort)"
}

# applied [ARGUMENT...]: u.img is, with the board's tools, and /opt/to goes again.
mkdir -p /usr/vorn/bin && cp "$(command -v mcu_isp)" /usr/vorn/bin/
applied() {
    run upgd_service update u.img --dir /opt/to "$@"
    expect "status with $*" "0 tool" "$status $(cat /opt/to/tree/tool)"
    rm -rf /opt/to
}

cp V1.4.0.0.img u.img
cp maker.pub other.pub $keys
sysconfig set product qrx310
run img_info --signature maker.pub u.img
if grep -q 'without libsodium' err; then
    refused "u.img: this build can't check signatures: it was made without libsodium: nothing was touched; "
    applied --allow-unsigned
    finish
    exit
fi

# Every byte of the image, of the signature and of the key, another bit of each; some of them where
# each run is slow: emulated, or watched by a sanitizer.
step=1
[[ $(command -v upgd_service) == */release/* ]] || step=7
refused 'u.img.minisig: No such file or directory: nothing was touched; the image needs a good signature, '
sign u.img "$signed"
for file in u.img u.img.minisig $keys/maker.pub; do
    # shellcheck disable=SC2016 # the script's own variables
    timeout 250 perl -e '
        my ($file, $step) = @ARGV;
        sub slurp { local $/; open(my $f, "<", $_[0]) or die; <$f> // "" }
        sub put { open(my $f, ">", $_[0]) or die; print $f $_[1]; close $f }
        my $good = slurp($file);
        for (my $at = 0; $at < length($good); $at += $step) {
            my $bad = $good;
            substr($bad, $at, 1) ^= chr(1 << $at % 8);
            put($file, $bad);
            my $status = system("upgd_service update u.img --dir /opt/to --cards simulate=0 >out 2>err");
            print "$file, byte $at: status $status, ", slurp("err")
                if $status != 256 || slurp("err") !~ /\Aupgd_service: [^\n]+\n\z/;
        }
        put($file, $good);' "$file" $step >accepted
    expect "altered bytes of $file that were let in" '0 ' "$? $(head -n 3 accepted)"
done
expect 'what they wrote' '' "$(find /opt -mindepth 1)"

# What is let in, and what is said of it.
line="signature: valid; key $(sed -n '1s/.* //p' maker.pub); trusted comment: $signed; untrusted comment: signature from minisign secret key"
run upgd_service plan u.img --dir /opt/to --cards simulate
expect 'the first line of a plan' "$line" "$(head -n 1 out)"
run img_info --signature maker.pub u.img
expect 'img_info' "0 $line" "$status $(cat out)"
run img_info --signature other.pub --json u.img
expect 'img_info with another key' '1 {"signature":{"valid":false,"fault":"was made with another key",' "$status $(cut -c -64 out)"
cp u.img.minisig V1.10.img.minisig
run img_info --signature maker.pub V1.10.img
expect 'img_info of another image' "1 signature: not valid: is another image's" "$status $(head -c 40 out)"
# What a service applies itself has passed the same gate: the copy that was tested, with its floor noted.
run upgd_service plan u.img --dir /opt/copied --copy tested.img
expect 'a copy that was tested' '0  V1.4.0.0 V1.4.0.0' "$status $(cmp u.img tested.img) $(sysconfig get fw_floor_pending)"
run upgd_service plan u.img --copy u.img
expect 'a copy over a file' '1 upgd_service: u.img: it exists: nothing was touched 0' "$status $(<err) $(cmp u.img tested.img; echo $?)"
run upgd_service plan V1.10.img --dir /opt/copied --copy refused.img
expect 'a copy of what is not taken' '1 ' "$status $(ls refused.img 2>/dev/null)"
sysconfig set fw_floor_pending ''
# The floor rises with a run that went well and has recorded its version, whatever ends behind that, and
# not with simulated cards. What it is to be is noted ahead of the run.
floors() { echo "$(sysconfig get fw_floor 2>/dev/null),$(sysconfig get fw_floor_pending 2>/dev/null)"; }
applied --cards simulate=0
sysconfig set fw_version V1
expect 'the floor after simulated cards' , "$(floors)"
mkdir -p /opt/to/tree/tool
run upgd_service update u.img --dir /opt/to --force
upgd_service disks >/dev/null
expect 'the floor after a run that has failed' '1 ,V1.4.0.0 V1.4.0.0' "$status $(floors)"
rmdir /opt/to/tree/tool
hold_command /usr/vorn/bin/mcu_isp
touch hold
upgd_service update u.img --dir /opt/to >out 2>err &
await 'a card' test -e held
{ kill -KILL $! && wait $!; } 2>/dev/null
rm hold
restore_command /usr/vorn/bin/mcu_isp
upgd_service disks >/dev/null
expect 'the floor after a kill behind the recorded version' 'V1.4.0.0,' "$(floors)"
rm -rf /opt/to
sysconfig set fw_floor ''
applied
expect 'the floor after one that went well' 'V1.4.0.0,' "$(floors)"
# The disk may leave, and show another image meanwhile, once the image has been read.
: >out
upgd_service update u.img --dir /opt/to --cards simulate=1 >out 2>err &
await 'a card' grep -q MCU out
: >u.img
wait $!
expect 'an image whose disk leaves' '0 ' "$? $(cat err)"
rm -rf /opt/to

# A disk that shows another image behind the header that was judged. Between the two a warning is printed,
# here to a pipe that is full.
mkfifo full && exec 7<>full
dd if=/dev/zero of=full bs=4k oflag=nonblock 2>/dev/null
cp V1.10.img u.img
upgd_service update u.img --dir /opt/to --allow-unsigned >out 2>full &
has_image() { [[ $(readlink /proc/$!/fd/*) == */u.img* ]]; }
await 'the image to be opened' has_image
sleep 0.2
cat V1.4.0.0.img >u.img
pid=$!
timeout 60 cat full >err 7>&- &
wait $pid
status=$?
exec 7>&-
wait $!
expect 'another header at the second read' '1 upgd_service: u.img: was changed while it was read: nothing was touched; get it anew' "$status $(tail -n 1 err | tr -d '\0')"

# Versions and products.
cp V1.4.0.0.img u.img
sysconfig set fw_floor V1.4.0.0.0.0.0.1
refused 'u.img: its version V1.4.0.0 is below V1.4.0.0.0.0.0.1, the lowest that this device takes: nothing was touched'
sysconfig set fw_floor V1.4.0.0
cp V1.3.9.img u.img && sign u.img 'product=qrx310 floor=V1.3'
refused 'u.img: its version V1.3.9 is below V1.4.0.0, the lowest that this device takes: nothing was touched'
cp rc1.img u.img && sign u.img "$signed"
refused "u.img: its version rc1 can't be compared: nothing was touched"
cp V1.10.img u.img && sign u.img 'product=qrx310 floor=V1.11'
refused 'u.img: its version V1.10 is below the floor V1.11 of its own signature'
for product in qrx31 qrx3100; do
    sign u.img "product=$product floor=V1.4"
    refused "u.img: is for the product $product, and this device is a qrx310: nothing"
done
sign u.img "$signed"
cp /etc/sysconfig/device.conf kept
for line in '' ' product=qrx310' 'product ='; do
    echo "$line" >/etc/sysconfig/device.conf
    refused 'u.img: the product of this device is not known: nothing was touched; say what it is with "sysconfig set product NAME"'
done
cp kept /etc/sysconfig/device.conf
for comment in '' 'product=qrx310' 'product= floor=V1' 'floor=V1 product=qrx310' 'product=qrx310  floor=V1' 'product=qrx310 floor=V1 ' \
    'product=qrx310 floor=V1.x' 'product=qrx310 floor=V1 until=9' 'product=qrx310 floor=V4294967297' 'product=qrx310 floor=V1.1.1.1.1.1.1.1.1'; do
    sign u.img "$comment"
    refused 'u.img.minisig: has no comment of the form product=NAME floor=VERSION: nothing'
done
run img_info --signature maker.pub u.img
expect 'img_info of a comment that no device takes' '1 signature: not valid: has no comment of the form' "$status $(head -c 48 out)"
sign u.img 'product=qrx310 floor=v1.4.0' other
applied
expect 'a floor that is not higher' V1.4.0.0 "$(sysconfig get fw_floor)"
sysconfig set fw_floor new
refused '/etc/sysconfig/device.conf: fw_floor=new is no version: set it anew'
printf 'product=qrx310\nfw_floor=%01024d\n' 9 >/etc/sysconfig/device.conf
refused '/etc/sysconfig/device.conf: Value too large for defined data type: mend that'
printf 'product=qrx310\nfw_floor=V1.9\n' >/etc/sysconfig/device.conf

# Signatures of all kinds.
sign u.img "$signed"
cp u.img.minisig good
bad="is no signature, or is cut short: nothing"
for length in 0 30 150 202 240 $(($(stat -c %s good) - 1)); do
    head -c $length good >u.img.minisig
    refused "u.img.minisig: $bad"
done
{ cat good; echo; } >u.img.minisig
refused "u.img.minisig: $bad"
sed 's/$/\r/' good >u.img.minisig
refused 'u.img.minisig: has line ends of another system: nothing'
{ cat good; head -c 1M /dev/zero; } >u.img.minisig
refused 'u.img.minisig: is too long: nothing'
perl -pe 's/$/\0more/ if $. == 3' good >u.img.minisig
refused 'u.img.minisig: is no text: nothing'
for line in 2 4; do
    perl -pe "s/([^=])(=+)\$/chr(1 + ord \$1) . \$2/e if \$. == $line" good >u.img.minisig
    refused 'u.img.minisig: is no signature, or is damaged: nothing'
done
sign u.img "$(printf %0256d 0)"
refused 'u.img.minisig: has too long a comment: nothing'
sign u.img "$signed" maker -l
refused 'u.img.minisig: is in the old form, not over the image'
sign V1.3.9.img "$signed" && cp V1.3.9.img.minisig u.img.minisig
refused "u.img: is another image's, or the image was altered: nothing was touched; get it anew"
{ head -n 2 good; tail -n 2 u.img.minisig; } >mixed && cp mixed u.img.minisig
refused "u.img.minisig: is not the key owner's: it or its comment was altered: nothing"
cp good u.img.minisig

# The device's keys.
mv $keys/maker.pub $keys/maker.pub.old && cp maker.pub $keys/.maker.pub
refused 'u.img.minisig: was made with a key that this device does not have: nothing'
rm $keys/maker.pub.old && mv $keys/.maker.pub $keys/maker.pub
for place in $keys $keys/other.pub /etc/upgd; do
    where=${place/#\/etc\/upgd/$keys}
    for change in 'chmod o+w' 'chmod g+w' 'chown 1'; do
        [[ $change != chown* || $SANDBOX_PRIVILEGED == 1 ]] || continue
        $change "$place"
        refused "${where/keys\/keys/keys}: can be written to by others: nothing was touched; mend the device's keys"
        chmod go-w "$place"
        chown 0 "$place"
    done
done
mv $keys moved && ln -s "$work/moved" $keys
refused "$keys: Not a directory: nothing was touched; mend the device's keys"
rm $keys && mkdir $keys
refused "$keys: holds no key: "
rmdir $keys && mv moved $keys
mv /etc/upgd moved && ln -s "$work/nowhere" /etc/upgd
refused "$keys: No such file or directory: nothing was touched; mend the device's keys"
rm /etc/upgd && mv moved /etc/upgd
echo more >>$keys/other.pub
refused "$keys/other.pub: is no public key, or is cut short: "
cp other.pub $keys/
perl -MMIME::Base64 -e 'for (1 .. 15) { open(my $f, ">", "$ARGV[0]/$_.pub") or die;
    printf $f "untrusted comment: minisign public key %X\n%s", $_, encode_base64(pack("a2 Q< a32", "Ed", $_, "")) }' $keys
run upgd_service update u.img --dir /opt/to --cards simulate=0
expect 'one key too many' '1 is one key file too many' "$status $(grep -o 'is one key file too many' err)"
rm $keys/[1-9]*
cp other.pub $keys/next.pub
run upgd_service update u.img --dir /opt/to
grep -qE '^upgd_service: /etc/upgd/keys/(next|other).pub: has the id of another key file: ' err || expect 'two keys with one id' refused "$(cat err)"
ln -sf ../../../other.pub $keys/next.pub
refused '/etc/upgd/keys/next.pub: is a link: '
sed 's/$/\r/' other.pub | tee $keys/other.pub >/dev/null && rm $keys/next.pub
refused '/etc/upgd/keys/other.pub: has line ends of another system: '
cp other.pub $keys/

# No room, no unnamed files, and a disk that leaves while the longest image is read.
head -c 3M /dev/urandom >tree/data
img_deploy -c ./tree -r V1.10 u.img >/dev/null
sign u.img "$signed"
applied # of more blocks than are kept for hashing
run img_info --signature maker.pub u.img
expect 'img_info of many blocks' 0 "$status"
mount -t tmpfs -o size=2m tmpfs /opt
refused "u.img: can't be kept below /opt while it is applied: it needs $(($(stat -c %s u.img) / 1024 + 1)) KiB, and 2048 KiB are free: nothing was touched; make room there"
umount /opt
mount --bind /dev/pts /opt
refused "u.img: can't be kept below /opt while it is applied: its file system has no unnamed files: nothing"
umount /opt
truncate -s 2147483647 u.img
printf '\177\377\377\377' | dd of=u.img bs=1 seek=12 conv=notrunc status=none
if ((step == 1)); then
    run upgd_service plan u.img
    expect 'the longest image' "1 upgd_service: u.img: is another image's, or the image was altered: nothing was touched; get it anew" "$status $(cat err)"
fi
upgd_service plan u.img >out 2>err &
reads() { (($(sed -n 's/rchar: //p' "/proc/$1/io") > 50000000)); }
await 'a part of the image' reads $!
truncate -s 1000000 u.img
wait $!
expect 'a disk that leaves while it is read' "1 upgd_service: u.img: can't be read to its end: nothing was touched; get it anew" "$? $(cat err)"

# A settings backup has none, and needs none if it brings nothing else, and brings it nowhere else.
rm -r tree
# packed PATH...: a backup with these files, and a link in it.
packed() {
    rm -rf s /opt/to && mkdir s /opt/to
    for path; do mkdir -p "s/usr/qrx310/etc/${path%/*}" && echo s >"s/usr/qrx310/etc/$path"; done
    (cd s && img_deploy -c . -p 1 ../s.ubck >/dev/null)
}
packed vsp/a mcucored/b sysconf/qrxpara/c
run upgd_service restore s.ubck /opt/to
expect 'a backup without a signature' '0 ' "$status $(diff -r s /opt/to)"
# kept_out WHAT
kept_out() {
    run upgd_service restore --force s.ubck /opt/to
    expect "a backup with $1" '1 upgd_service: s.ubck.minisig: No such file or directory: nothing was touched' "$status $(tail -n 1 err | cut -d';' -f1)"
    expect "what it has written with $1" '' "$(find /opt/to -type f)"
}
packed vsp/vorn-kernel/zImage && kept_out 'a kernel file'
packed sysconf/other && kept_out 'what no backup saves'
packed vsp/ab/f && perl -pi -e 's(vsp/ab/f)(vsp/../f)' s.ubck && kept_out 'a way up'
packed vsp/lin1/f && ln -s /opt s/usr/qrx310/etc/vsp/lin2 && (cd s && img_deploy -c . -p 1 ../s.ubck >/dev/null) &&
    perl -pi -e 's(vsp/lin1)(vsp/lin2)' s.ubck && kept_out 'a link of its own on the way'
packed vsp/f && mkdir -p /opt/to/usr/qrx310/etc && ln -s /opt /opt/to/usr/qrx310/etc/vsp && kept_out 'a link on the way'
rm -rf /opt/to

# Without a signature: asked for by hand, and said on the screen and in the log.
mkdir tree && echo tool >tree/tool
img_deploy -c ./tree -r V1 u.img >/dev/null
rm u.img.minisig
# shellcheck disable=SC2016 # the script's own variables
timeout 60 perl -MSocket -e 'socket(S, PF_UNIX, SOCK_DGRAM, 0); bind(S, sockaddr_un("/dev/log")) or die; open(F, ">", "bound");
    while (sysread(S, $_, 4096)) { next unless /WARNING/; print; exit }' >log &
await 'a log' test -e bound
applied --allow-unsigned
wait $!
for where in log err; do grep -q 'WARNING: u.img: .*--allow-unsigned' $where || expect "in $where" WARNING "$(cat $where)"; done
rm -r $keys
applied
expect 'a device without keys' '' "$(cat err)"
finish
