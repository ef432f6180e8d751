#!/usr/bin/env bash
# Catches: JSON of img_info that is none, or not what its schema says.
. "$(dirname "$0")/lib.sh"

/usr/bin/python3 -c 'import jsonschema' 2>err || skip 'Python lacks jsonschema'
command -v minisign >/dev/null || skip 'there is no minisign'
lay_out_tree
img_deploy -c ./tree -r V7 update.img >/dev/null

schema=$(dirname "$0")/../../docs/img_info.schema.json
# fitting: how many JSON texts it reads, if each fits the schema.
fitting() {
    /usr/bin/python3 -c 'import json, jsonschema, sys
schema, text, count = json.load(open(sys.argv[1])), sys.stdin.buffer.read().decode(), 0
jsonschema.Draft7Validator.check_schema(schema)
while text.strip():
    value, end = json.JSONDecoder().raw_decode(text)
    jsonschema.Draft7Validator(schema).validate(value)
    text, count = text[end:].lstrip(), count + 1
print(count)' "$schema" 2>&1
}
head -c 2000 update.img >cut.img
cp update.img flipped.img
overwrite flipped.img 4 '\0\0\0\0' # its CRC
{ head -c 488 update.img; printf 'a\033[2J\377"\0\0\0\0\0\1xl;/tmp\0\4\0\0\0\0c\0\26\0\0\0\0'; } >odd.img
run img_info --verify --json update.img cut.img none flipped.img odd.img
expect 'verifications' '2 4 4 1 img_info: none: No such file or directory' \
    "$status $(fitting <out) $(wc -l <out) $(grep -c '"well":true' out) $(<err)"
mkdir base && cp -r tree base && touch base/tree/extra && rm base/tree/bin/tool && echo other >base/tree/.hidden/file
run img_info --compare base --extra --json update.img
expect 'a comparison' '1 1 3 ed":8' "$status $(fitting <out) $(grep -c '"finding":' out) $(grep -o 'ed":[0-9]*' out)"
minisign -GW -p maker.pub -s maker.key >/dev/null
minisign -S -s maker.key -t 'product=x floor=V1' -m update.img >/dev/null
cp update.img.minisig flipped.img.minisig
mkdir loop && ln -s tree loop/tree
calls=(update.img cut.img odd.img '--compare base cut.img' '--compare loop update.img'
    '--signature maker.pub '{update,flipped}.img)
# shellcheck disable=SC2086 # each is a word
expect 'calls that fit' ${#calls[*]} "$(for call in "${calls[@]}"; do img_info --json $call 2>err; done | fitting)"
finish
