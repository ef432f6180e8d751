#!/usr/bin/env bash
# The gate of upgd_service, where other programs have their hands in it: what `minisign` signs is let in, and
# nothing else is, whatever byte of it is another one; what was checked is what is applied.
. "$(dirname "$0")/lib.sh"

command -v minisign >/dev/null || skip 'there is no minisign'
case " $0 $(command -v upgd_service)" in
    *' /opt/'*) skip 'the project lies in /opt, which is looked at and mounted over' ;;
esac
keys=/etc/upgd/keys
update=(upgd_service update u.img --dir /opt/to)
mkdir -p tree $keys
echo tool >tree/tool
echo card >tree/App_VPUCard.bin
for version in V1.4 V1.10; do img_deploy -c ./tree -r $version $version.img >/dev/null; done
minisign -GW -p maker.pub -s maker.key >/dev/null && cp maker.pub $keys
sign() { minisign -S -s maker.key -t 'product=qrx310 floor=V1.4' -m u.img >/dev/null; }
cp V1.4.img u.img && sign
sysconfig set product qrx310
if upgd_service --version | grep -q 'without signatures'; then
    expect_call 1 "u.img: this build can't check signatures: it was made without libsodium" "${update[@]}"
    expect_call 0 'WARNING: u.img: NO SIGNATURE IS ASKED FOR' "${update[@]}" --allow-unsigned
    finish
    exit
fi

# Every byte of the image, of the signature and of the key, another bit of each; some of them where
# each run is slow: emulated, or watched by a sanitizer.
step=1
[[ $(command -v upgd_service) == */release/* ]] || step=7
for file in u.img u.img.minisig $keys/maker.pub; do
    run perl -e '
        ($file, $step) = @ARGV;
        open($f, "+<:unix", $file) or die; read($f, $good, -s $f);
        sub put { seek($f, $at, 0); print $f $_[0] }
        for ($at = 0; $at < length $good; $at += $step) {
            $byte = substr($good, $at, 1);
            put($byte ^ chr(1 << $at % 8));
            $said = `upgd_service update u.img --dir /opt/to --cards simulate=0 2>&1`;
            print "byte $at: $? $said" if $? != 256 || $said !~ /\Aupgd_service: .+\n\z/;
            put($byte);
        }' "$file" $step
    expect "altered bytes of $file that were let in" '0 ' "$status $(head -n 3 out)"
done
expect 'what they wrote' '' "$(find /opt -mindepth 1)"

# The disk may leave, and show another image meanwhile, once the image has been read.
: >out
"${update[@]}" --cards simulate=1 >out 2>err &
await 'a card' grep -q MCU out
: >u.img
wait $!
expect 'an image whose disk leaves' '0 ' "$? $(<err)"

# A disk that shows another image behind the header that was judged. Between the two a warning is printed,
# here to a pipe that is full.
cp V1.10.img u.img
has_image() { [[ $(readlink /proc/[0-9]*/fd/*) == */u.img* ]]; }
{ head -c 65536 /dev/zero; "${update[@]}" --allow-unsigned 2>&1 >out; echo "status $?"; } |
    { await 'the image to be opened' has_image; sleep 0.2; cat V1.4.img >u.img; tr -d '\0'; } >err
expect 'another header at the second read' \
    'upgd_service: u.img: was changed while it was read: nothing was touched; get it anew status 1' \
    "$(tail -n 2 err | paste -sd' ')"

# Keys of another user, no room, no unnamed files, the longest image.
head -c 3M /dev/urandom >tree/data # more blocks than are kept for hashing
img_deploy -c ./tree -r V1.10 u.img >/dev/null
sign
expect_call 0 '' "${update[@]}"
if [[ $SANDBOX_PRIVILEGED == 1 ]]; then
    chown 1 $keys
    expect_call 1 '/etc/upgd/keys' "${update[@]}"
    chown 0 $keys
fi
kept="u.img: can't be kept below /opt while it is applied:"
mount -t tmpfs -o size=2m tmpfs /opt
expect_call 1 "$kept it needs 3073 KiB, and 2048 KiB are free" "${update[@]}"
umount /opt && mount --bind /dev/pts /opt
expect_call 1 "$kept its file system has no unnamed files" "${update[@]}"
umount /opt
truncate -s 2147483647 u.img && overwrite u.img 12 '\177\377\377\377'
((step > 1)) || expect_call 1 "u.img: is another image's, or the image was altered" upgd_service plan u.img

# Without a signature: asked for by hand, and said on the screen and in the log.
cp V1.4.img u.img
begin_log
sign && "${update[@]}" >out
await 'the key in the log' grep -q "<V1.4> key $(sed -n '1s/.* //p' maker.pub): status 0$" log
upgd_service disks >out
await 'a call without an image' grep -q 'disks by user 0: image <none> version <none> key none: status 0$' log
expect_call 0 'WARNING: u.img: NO SIGNATURE IS ASKED FOR (--allow-unsigned)' "${update[@]}" --allow-unsigned
await 'the warning in the log' grep -q 'WARNING: u.img: .*(--allow-unsigned)$' log
finish
