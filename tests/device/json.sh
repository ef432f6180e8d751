#!/usr/bin/env bash
# Catches: JSON of img_info that is none, or not what its schema says; a place of an entry that is another.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

/usr/bin/python3 -c 'import jsonschema' 2>err || { skip 'all of it' 'Python lacks jsonschema' && finish; }
lay_out_tree
img_deploy -c ./tree -r V7 update.img >/dev/null

schema=$(dirname "$0")/../../docs/img_info.schema.json
# fits LINE FILE: the number of JSON texts, one a line or one in all, that fit.
fits() {
    /usr/bin/python3 - "$schema" "$@" <<'PYTHON'
import json, jsonschema, sys
schema, form, name = json.load(open(sys.argv[1])), sys.argv[2], sys.argv[3]
jsonschema.Draft7Validator.check_schema(schema)
text = open(name, encoding="utf-8").read()
for number, one in enumerate(text.splitlines() if form == "lines" else [text], 1):
    jsonschema.Draft7Validator(schema).validate(json.loads(one))
print(number)
PYTHON
}
head -c 2000 update.img >cut.img
cp update.img flipped.img
printf '\0\0\0\0' | dd of=flipped.img bs=1 seek=4 conv=notrunc status=none # its CRC
{ head -c 488 update.img; printf 'a\033[2J\377"\0\0\0\0\0\1xl;/tmp\0\4\0\0\0\0c\0\26\0\0\0\0'; } >odd.img
for image in update cut flipped odd; do
    img_info --json $image.img >listing 2>err
    expect "listing of $image.img" 1 "$(fits whole listing 2>&1)"
done
expect 'what stands at the offsets' 'nand/x' "$(mkdir -p nand && echo data >nand/x &&
    img_deploy -c ./nand offsets.img >/dev/null && img_info --json offsets.img >listing &&
    read -r from to < <(/usr/bin/python3 -c 'import json
e = json.load(open("listing"))["entries"][0]
print(e["offset"], e["data_offset"])') && tail -c +$((from + 1)) offsets.img | head -c $((to - from - 6)))"
run img_info --verify --json update.img cut.img none flipped.img odd.img
expect 'verifications' '2 4 img_info: none: No such file or directory' "$status $(fits lines out 2>&1) $(<err)"
expect 'which are well' 1 "$(grep -c '"well":true' out)"
mkdir base && cp -r tree base && touch base/tree/extra && rm base/tree/bin/tool && echo other >base/tree/.hidden/file
run img_info --compare base --extra --json update.img
expect 'a comparison' '1 1 3' "$status $(fits whole out 2>&1) $(grep -c '"finding":' out)"
if command -v minisign >/dev/null; then
    minisign -GW -p maker.pub -s maker.key >/dev/null
    minisign -S -s maker.key -t 'product=x floor=V1' -m update.img >/dev/null
    cp update.img.minisig flipped.img.minisig
    for image in update flipped; do
        run img_info --signature maker.pub --json $image.img
        expect "signature of $image.img" 1 "$(fits whole out 2>&1)"
    done
fi
run img_info --extract look flipped.img
expect 'an extraction with a bad CRC' '1 it is damaged' "$status $(grep -o 'it is damaged$' err)"
run img_info --extract odd odd.img
expect 'names on a terminal' '' "$(img_info --extract odd odd.img 2>&1 | LC_ALL=C grep -a $'[\033\377]')"
finish
