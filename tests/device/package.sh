#!/usr/bin/env bash
# The Debian packages in $PACKAGES of the version $PACKAGE_VERSION, from their installation to their
# purge: what a board, an engineer and a reader find in them.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

[[ -w /var/lib/dpkg ]] || { echo 'packages can only be installed by root'; exit 77; }

machine() {
    find /usr /etc -path /usr/local -prune -o -print | sort
}

# Names of files that a package has brought below a directory.
files_of() {
    dpkg -L "$1" | grep "^$2/" | while read -r file; do [[ -d $file ]] || echo "${file#"$2"/}"; done |
        sort | tr '\n' ' '
}

packages=("$PACKAGES"/{img-deploy,libimg-deploy-dev}_"$PACKAGE_VERSION"-1_*.deb)
programs=(img_deploy img_info sysconfig upgd_service)
machine >before
run dpkg --no-triggers -i "${packages[@]}"
expect 'installation' '0 ' "$status $(cat err)"
expect 'versions' "ii  $PACKAGE_VERSION-1,ii  $PACKAGE_VERSION-1," \
    "$(dpkg-query -W -f '${db:Status-Abbrev} ${Version},' img-deploy libimg-deploy-dev)"
expect 'programs' "${programs[*]} " "$(files_of img-deploy /usr/bin)"
expect 'completion' "${programs[*]} " "$(files_of img-deploy /usr/share/bash-completion/completions)"
expect 'manual pages' "man1/${programs[0]}.1.gz man1/${programs[1]}.1.gz man1/${programs[2]}.1.gz man1/${programs[3]}.1.gz man5/update-image.5.gz " \
    "$(files_of img-deploy /usr/share/man)"
for program in img_info sysconfig; do
    expect "the head of the page of $program is its usage" \
        "$("/usr/bin/$program" --help | grep -oE "$program [^ ]+( [^ ]+)*" | grep -vE -- '--(help|version)$' | tr -d ' ' | tr '[:upper:]' '[:lower:]')" \
        "$(zcat "/usr/share/man/man1/$program.1.gz" | mandoc -O width=200 | sed 's/.\x08//g; 1,/^SYN/d; /^DESC/,$d' |
            grep -o "  $program .*" | grep -v -- --help | tr -d ' ')"
done
run lintian --fail-on error,warning,info -I "${packages[@]}"
expect 'what lintian says' '0 ' "$status $(cat out)"

# What stands beside each package about it: the fields that CycloneDX asks for, no others but those of
# its schema, and the sums of the package and of each file as it was installed.
for package in "${packages[@]}"; do
    run /usr/bin/python3 - "$package" "${package%.deb}.cdx.json" <<'PYTHON'
import hashlib, json, re, sys
package, name = sys.argv[1:]
bom = json.load(open(name, encoding="utf-8"))
def sum_of(path): return hashlib.sha256(open(path, "rb").read()).hexdigest()
assert (bom["bomFormat"], bom["specVersion"], bom["version"]) == ("CycloneDX", "1.5", 1)
assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", bom["metadata"]["timestamp"])
whole, parts = bom["metadata"]["component"], bom["components"]
for c in [whole] + parts:
    assert {"type", "name"} <= c.keys() <= {"type", "bom-ref", "supplier", "name", "version", "hashes", "licenses", "properties"}
    assert c["name"] and c["type"] in ("application", "library", "file"), c
    assert all(p.keys() == {"name", "value"} and p["value"] for p in c.get("properties", [])), c
    assert c["type"] == "file" or c["version"] and c["licenses"] and c["bom-ref"] == c["name"], c
    for l in c.get("licenses", []):
        assert l.keys() == {"expression"} or l.keys() == {"license"} and l["license"].keys() == {"name"}, c
    for h in c.get("hashes", []):
        path = package if c is whole else "/" + c["name"]
        assert h == {"alg": "SHA-256", "content": sum_of(path)}, c
assert all("hashes" in c for c in parts + [whole] if c is whole or c["type"] == "file")
needed = [c["name"] for c in parts if c["type"] != "file"]
assert needed and bom["dependencies"] == [{"ref": whole["name"], "dependsOn": needed}]
print(sum(c["type"] == "file" for c in parts))
PYTHON
    name=$(dpkg-deb -f "$package" Package)
    expect "the bill of materials of $name" "0 $(files_of "$name" /usr | wc -w)" "$status $(cat out err)"
done

# One version everywhere, also where it stands by hand.
for program in "${programs[@]}"; do
    expect 'version' "$program $PACKAGE_VERSION" "$("/usr/bin/$program" --version | cut -d , -f 1)"
done
for program in img_info upgd_service; do
    expect 'what a package has' ' with signatures' "$("/usr/bin/$program" --version | cut -d , -f 2)"
done
expect 'version for compilers' "$PACKAGE_VERSION" "$(pkg-config --modversion img_deploy)"
expect 'changelog of the version' 1 \
    "$(zgrep -c "^## $PACKAGE_VERSION\b" /usr/share/doc/img-deploy/changelog.gz)"
run make -s -f - <<MAKE
BR2_EXTERNAL_IMG_DEPLOY_PATH := ${0%/tests/*}/packaging/buildroot
include \$(BR2_EXTERNAL_IMG_DEPLOY_PATH)/external.mk
\$(info \$(IMG_DEPLOY_VERSION))
all:;
MAKE
expect 'version for Buildroot' "0 $PACKAGE_VERSION" "$status $(cat out err)"
run /usr/bin/img_deploy --version now
expect 'a version with more behind it is a wrong call' '1 ' "$status $(cat out)"

# The build's own programs are not on the path.
lay_out_tree
echo fpga >tree/InputCardTop.bin
/usr/bin/img_deploy -c ./tree -r V7 update.img >/dev/null
run /usr/bin/img_deploy -u update.img -m 2
expect 'apply' '0 2 V7' "$status $(flag) $(sysconfig get fw_version)"
expect 'what was unpacked' '' "$(diff -r --no-dereference tree /opt/upgddir/tree)"

# A service in C: the guide's program by the guide's line, with this board's flashing tools.
docs=/usr/share/doc/libimg-deploy-dev
line=$(sed -n 's/^    \(cc .*\)/\1/p' "$docs/service_guide.md")
cp "$docs/examples/service_example.c" .
run sh -e -c "$line -Wextra -Werror"
expect 'a service compiled' '0 ' "$status $(cat err)"
mkdir -p /mntker && rm -rf /opt/upgddir
run ./service_example "$work/update.img" /opt/upgddir
expect 'a service run with two cards' 'event: step 2, result 0
event: step 3, result 0
event: step 11, result 0
update: 0' "$(sed -nE 's/, [0-9]+ of 1000$//; /^(event|update):/p' out)"
expect 'flashed' "$(printf 'kmd_test\tInputCardTop.bin\nmcu_isp\tApp_VPUCard.bin')" \
    "$(grep -E '^(mcu_isp|kmd_test)' /run/sandbox/calls |
        sed 's,\t.*/\([^/\t]*\.bin\).*,\t\1,')"
echo '#include "platform/platform.h"' >layer.c
# shellcheck disable=SC2046 # each word is an argument
run cc -c $(pkg-config --cflags img_deploy) -o /dev/null layer.c
expect 'the header of the platform layer' '0 ' "$status $(cat err)"

# completed WORD...: what stands to choose for the last one.
completed() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    "_$1" "$1"
    echo "${COMPREPLY[*]}"
}
for program in "${programs[@]}"; do
    # shellcheck disable=SC1090
    . "/usr/share/bash-completion/completions/$program"
done
expect 'options' '-c -u -s -m -C -p -v -r --version' "$(completed img_deploy -)"
expect 'places, directories, images' '1 2 3,tree,update.img' \
    "$(completed img_deploy -c tree -p ''),$(completed img_deploy -c tr),$(completed img_deploy -u up)"
expect 'cards' 'flash simulate fail=' "$(completed upgd_service update u.img --cards '')"
expect 'ways to look' '--json --verify --base --compare --extra --device --extract --signature --help --version' "$(completed img_info -)"
expect 'what a mode takes' ',--extra --device --json,--base --json,,-c -u -s -m -C -p -v -r' \
    "$(completed upgd_service watch ''),$(completed img_info --compare d --),$(completed img_info --verify --),$(completed img_info --extract d --),$(completed img_deploy -v -)"
expect 'keys, and no values' 'fw_version,' \
    "$(completed sysconfig get ''),$(completed sysconfig set fw_version '')"

run dpkg --no-triggers -r libimg-deploy-dev img-deploy
expect 'removal' '0 ' "$status $(cat err)"
run dpkg --no-triggers -P libimg-deploy-dev img-deploy
expect 'purge' '0' "$status"
rm -r /etc/sysconfig # the device's, with the recorded version
machine >after
expect 'nothing is left' '' "$(diff before after)"
finish
