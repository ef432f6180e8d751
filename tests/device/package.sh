#!/usr/bin/env bash
# The Debian packages in $PACKAGES of the version $PACKAGE_VERSION, from their installation to their
# purge: what a board, an engineer and a reader find in them.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"

[[ -w /var/lib/dpkg ]] || { echo 'packages can only be installed by root'; exit 77; }

machine() { find /usr /etc -path /usr/local -prune -o -print | sort; }

# files_of PACKAGE DIR: names of files that it has brought below the directory.
files_of() {
    dpkg -L "$1" | grep "^$2/" | sort | while read -r file; do [[ -d $file ]] || echo "${file#"$2"/}"; done |
        paste -sd' '
}

packages=("$PACKAGES"/{img-deploy,libimg-deploy-dev}_"$PACKAGE_VERSION"-1_*.deb)
programs=(img_deploy img_info sysconfig upgd_service)
machine >before
run dpkg --no-triggers -i "${packages[@]}"
expect 'installation' "0 ii  $PACKAGE_VERSION-1,ii  $PACKAGE_VERSION-1," \
    "$status $(cat err)$(dpkg-query -W -f '${db:Status-Abbrev} ${Version},' img-deploy libimg-deploy-dev)"
expect 'programs' "${programs[*]}" "$(files_of img-deploy /usr/bin)"
expect 'completion' "${programs[*]}" "$(files_of img-deploy /usr/share/bash-completion/completions)"
pages=$(printf 'man1/%s.1.gz ' "${programs[@]}")
expect 'manual pages' "${pages}man5/update-image.5.gz" "$(files_of img-deploy /usr/share/man)"
# calls PROGRAM: how it is called, without blanks.
calls() { grep -oE "$1 [^ ]+( [^ ]+)*" | grep -vE -- '--(help|version)' | tr -d ' ' | tr '[:upper:]' '[:lower:]'; }
for program in img_info sysconfig; do
    page=$(zcat "/usr/share/man/man1/$program.1.gz" | mandoc -O width=200 | sed 's/.\x08//g; 1,/^SYN/d; /^DESC/,$d')
    expect "the head of the page of $program is its usage" \
        "$("/usr/bin/$program" --help | calls "$program")" "$(calls "$program" <<<"$page")"
done
run lintian --fail-on error,warning,info -I "${packages[@]}"
expect 'what lintian says' '0 ' "$status $(cat out)"

# What stands beside each package about it: for each part the fields that CycloneDX asks for, no others, and
# the sums of the package and of each file as it was installed.
for package in "${packages[@]}"; do
    run /usr/bin/python3 - "$package" "${package%.deb}.cdx.json" <<'PYTHON'
import hashlib, json, sys
package, name = sys.argv[1:]
bom = json.load(open(name, encoding="utf-8"))
whole, parts = bom["metadata"]["component"], bom["components"]
fields = {"type", "bom-ref", "supplier", "name", "version", "hashes", "licenses", "properties"}
for c in [whole] + parts:
    assert {"type", "name"} <= c.keys() <= fields and c["name"], c
    assert all(p.keys() == {"name", "value"} and p["value"] for p in c.get("properties", [])), c
    if c["type"] != "file":
        assert c["type"] in ("application", "library") and c["version"] and c["bom-ref"] == c["name"], c
        licenses = [l.get("expression") or l["license"]["name"] for l in c["licenses"]]
        assert licenses and all(len(l) == 1 for l in c["licenses"]), c
    if c is whole or c["type"] == "file":
        file = open(package if c is whole else "/" + c["name"], "rb").read()
        assert c["hashes"] == [{"alg": "SHA-256", "content": hashlib.sha256(file).hexdigest()}], c
needed = [c["name"] for c in parts if c["type"] != "file"]
assert needed and bom["dependencies"] == [{"ref": whole["name"], "dependsOn": needed}]
print(len(parts) - len(needed))
PYTHON
    name=$(dpkg-deb -f "$package" Package)
    expect "the bill of materials of $name" "0 $(files_of "$name" /usr | wc -w)" "$status $(cat out err)"
done

# One version everywhere, also where it stands by hand.
signed=', with signatures'
for program in "img_deploy " "sysconfig " "img_info $signed" "upgd_service $signed"; do
    expect 'version' "${program%% *} $PACKAGE_VERSION${program#* }" "$("/usr/bin/${program%% *}" --version)"
done
expect 'version for compilers' "$PACKAGE_VERSION" "$(pkg-config --modversion img_deploy)"
expect 'changelog of the version' 1 "$(zgrep -c "^## $PACKAGE_VERSION\b" /usr/share/doc/img-deploy/changelog.gz)"
buildroot=${0%/tests/*}/packaging/buildroot
# shellcheck disable=SC2016 # of make
expect 'version for Buildroot' "$PACKAGE_VERSION" "$(printf '%s\n' "BR2_EXTERNAL_IMG_DEPLOY_PATH := $buildroot" \
    "include $buildroot/external.mk" 'all:; @echo $(IMG_DEPLOY_VERSION)' | make -sf - all 2>&1)"

# The build's own programs are not on the path.
lay_out_tree
echo fpga >tree/InputCardTop.bin
/usr/bin/img_deploy -c ./tree -r V7 update.img >/dev/null
run /usr/bin/img_deploy -u update.img -m 2
expect 'apply' '0 2 V7 ' \
    "$status $(flag) $(sysconfig get fw_version) $(diff -r --no-dereference tree /opt/upgddir/tree)"

# A service in C: the guide's program by the guide's line, with this board's flashing tools.
docs=/usr/share/doc/libimg-deploy-dev
cp "$docs/examples/service_example.c" .
run sh -e -c "$(sed -n 's/^    \(cc .*\)/\1/p' "$docs/service_guide.md") -Wextra -Werror"
expect 'a service compiled' '0 ' "$status $(cat err)"
mkdir -p /mntker && rm -rf /opt/upgddir
run ./service_example "$work/update.img" /opt/upgddir
expect 'a service run with two cards' 'event: step 2,event: step 3,event: step 11,update: 0' \
    "$(sed -nE 's/, result 0(, [0-9]+ of 1000)?$//; /^(event|update):/p' out | uniq | paste -sd,)"
expect 'flashed' 'kmd_test InputCardTop.bin,mcu_isp App_VPUCard.bin' \
    "$(sed -nE 's,^(mcu_isp|kmd_test)\t.*/([^/\t]*\.bin).*,\1 \2,p' /run/sandbox/calls | paste -sd,)"
echo '#include "platform/platform.h"' >layer.c
# shellcheck disable=SC2046 # each word is an argument
run cc -c $(pkg-config --cflags img_deploy) -o /dev/null layer.c
expect 'the header of the platform layer' '0 ' "$status $(cat err)"

# shellcheck disable=SC1090
for program in "${programs[@]}"; do . "/usr/share/bash-completion/completions/$program"; done
while IFS='|' read -r words last expected; do
    # shellcheck disable=SC2086 # each is a word
    expect "choice behind $words" "$expected" "$(completed $words "$last")"
done <<'END'
img_deploy|-|-c -u -s -m -C -p -v -r --version
img_deploy -v|-|-c -u -s -m -C -p -v -r
img_deploy -c tree -p||1 2 3
img_deploy -c|tr|tree
upgd_service update u.img --cards||flash simulate fail=
upgd_service watch||
img_info|-|--json --verify --base --compare --extra --device --extract --signature --help --version
img_info --compare d|-|--extra --device --json
img_info --verify|-|--base --json
img_info --extract d|-|
sysconfig get||fw_version
sysconfig set fw_version||
img_deploy -u|up|update.img
END

run dpkg --no-triggers -r libimg-deploy-dev img-deploy
expect 'removal' '0 ' "$status $(cat err)"
run dpkg --no-triggers -P libimg-deploy-dev img-deploy
expect 'purge' '0' "$status"
rm -r /etc/sysconfig # the device's, with the recorded version
machine >after
expect 'nothing is left' '' "$(diff before after)"
finish
