#!/usr/bin/env bash
# The Debian packages in $PACKAGES of the version $PACKAGE_VERSION, from their installation to their purge.
. "$(dirname "$0")/lib.sh"

[[ -w /var/lib/dpkg ]] || skip 'packages can only be installed by root'

machine() { find /usr /etc -path /usr/local -prune -o -print | sort; }

packages=("$PACKAGES"/{img-deploy,libimg-deploy-dev}_"$PACKAGE_VERSION"-1_*.deb)
programs=(img_deploy img_info sysconfig upgd_service)
machine >before
run dpkg --no-triggers -i "${packages[@]}"
expect 'installation' "0 ii  $PACKAGE_VERSION-1,ii  $PACKAGE_VERSION-1," \
    "$status $(cat err)$(dpkg-query -W -f '${db:Status-Abbrev} ${Version},' img-deploy libimg-deploy-dev)"
expect 'the page of no program' '' "$(ls /usr/share/man/man5/update-image.5.gz 2>&1 >/dev/null)"
run lintian --fail-on error,warning,info -I "${packages[@]}"
expect 'what lintian says' '0 ' "$status $(cat out)"

# The bill of materials beside each package: sums of the package and of each file as it was installed, and the
# packages that it needs, each with version and licence.
for package in "${packages[@]}"; do
    run /usr/bin/python3 - "$package" "${package%.deb}.cdx.json" <<'PYTHON'
import hashlib, json, sys
bom = json.load(open(sys.argv[2], encoding="utf-8"))
whole, parts = bom["metadata"]["component"], bom["components"]
files = [c for c in parts if c["type"] == "file"]
needed = [c for c in parts if c["type"] != "file"]
for c, name in [(whole, sys.argv[1])] + [(c, "/" + c["name"]) for c in files]:
    assert c["hashes"][0]["content"] == hashlib.sha256(open(name, "rb").read()).hexdigest(), c
assert all(c["version"] and c["licenses"] and c["bom-ref"] == c["name"] for c in [whole] + needed)
assert bom["dependencies"] == [{"ref": whole["name"], "dependsOn": [c["name"] for c in needed]}]
print(len(files), len(needed))
PYTHON
    files=$(dpkg-deb -c "$package" | grep -c '^[^d]') needed=$(dpkg-deb -f "$package" Depends | tr , '\n' | wc -l)
    expect "the bill of materials of ${package##*/}" "0 $files $needed" "$status $(cat out err)"
done

expect 'versions' "$(printf "%s $PACKAGE_VERSION%s\n" img_deploy '' img_info ', with signatures' sysconfig '' \
    upgd_service ', with signatures')" "$(for program in "${programs[@]}"; do "/usr/bin/$program" --version; done)"
expect 'version for compilers' "$PACKAGE_VERSION" "$(pkg-config --modversion img_deploy)"
expect 'changelog of the version' 1 "$(zgrep -c "^## $PACKAGE_VERSION\b" /usr/share/doc/img-deploy/changelog.gz)"
buildroot=${0%/tests/*}/packaging/buildroot
# shellcheck disable=SC2016 # of make
expect 'version for Buildroot' "$PACKAGE_VERSION" "$(printf '%s\n' "BR2_EXTERNAL_IMG_DEPLOY_PATH := $buildroot" \
    "include $buildroot/external.mk" 'all:; @echo $(IMG_DEPLOY_VERSION)' | make -sf - all 2>&1)"

# A service in C: the guide's program by the guide's line, and the header of the platform layer. The build's own
# programs are not on the path.
docs=/usr/share/doc/libimg-deploy-dev
cp "$docs/examples/service_example.c" .
run sh -e -c "$(sed -n 's/^    \(cc .*\)/\1/p' "$docs/service_guide.md") -include platform/platform.h -Wextra -Werror"
expect 'a service compiled' '0 ' "$status $(cat err)"
lay_out_tree
echo fpga >tree/InputCardTop.bin
img_deploy -c ./tree -r V7 update.img >/dev/null
run ./service_example "$work/update.img" /opt/upgddir
expect 'a service run with two cards' 'event: step 2,event: step 3,event: step 11,update: 0 V7 ' \
    "$(sed -nE 's/, result 0(, [0-9]+ of 1000)?$//; /^(event|update):/p' out | uniq | paste -sd,) $(
        sysconfig get fw_version) $(diff -r --no-dereference tree /opt/upgddir/tree)"

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
img_info|-|--json --verify --base --compare --extra --device --extract --signature --help --version
img_info --compare d|-|--extra --device --json
sysconfig get||fw_version
img_deploy -u|up|update.img
END

run dpkg --no-triggers -P libimg-deploy-dev img-deploy
expect 'the purge' 0 "$status"
rm -r /etc/sysconfig # the device's, with the recorded version
machine >after
expect 'nothing is left' '' "$(diff before after)"
finish
