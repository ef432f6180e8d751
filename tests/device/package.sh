#!/usr/bin/env bash
# The Debian package in $PACKAGES of the version $PACKAGE_VERSION, from its installation to its
# removal.
# shellcheck source=tests/device/lib.sh
. "$(dirname "$0")/lib.sh"
project=${0%/tests/*}

[[ -w /var/lib/dpkg ]] || { echo 'packages can only be installed by root'; exit 77; }

machine() {
    find /usr /etc -path /usr/local -prune -o -print | sort
}

machine >before
run dpkg --no-triggers -i "$PACKAGES/img-deploy_$PACKAGE_VERSION"_*.deb
expect 'installation' '0 ' "$status $(cat err)"
expect 'version' "ii  $PACKAGE_VERSION" \
    "$(dpkg-query -W -f '${db:Status-Abbrev} ${Version}' img-deploy)"
completions=share/bash-completion/completions
expect 'programs and what shells and readers look for' "$(printf '%s ' bin/{img_deploy,img_info,sysconfig,upgd_service} \
    $completions/{img_deploy,img_info,sysconfig,upgd_service} \
    share/man/man1/{img_deploy,img_info,sysconfig,upgd_service}.1 share/man/man5/update-image.5)" \
    "$(dpkg -L img-deploy | grep -E '^/usr/(bin|share)/.*[^/]$' |
        while read -r file; do [[ -d $file ]] || echo "${file#/usr/}"; done | sort | tr '\n' ' ')"

# The build's own programs are not on the path.
lay_out_tree
/usr/bin/img_deploy -c ./tree -r V7 update.img >/dev/null
run /usr/bin/img_deploy -u update.img -m 2
expect 'apply' '0 2 V7' "$status $(flag) $(sysconfig get fw_version)"
expect 'what was unpacked' '' "$(diff -r --no-dereference tree /opt/upgddir/tree)"

# A service in C, after the guide. Each word is an argument.
# shellcheck disable=SC2046
run cc -Wall -Werror $(pkg-config --cflags img_deploy) "$project/docs/service_example.c" \
    -o service_example $(pkg-config --libs --static img_deploy)
expect 'a service compiled' '0 ' "$status $(cat err)"
expect 'version for compilers' "$PACKAGE_VERSION" "$(pkg-config --modversion img_deploy)"
mkdir -p /mntker && rm -rf /opt/upgddir
run ./service_example "$work/update.img" /opt/upgddir
expect 'a service run with a card that is flashed' 'update: 0' "$(tail -n 1 out)"
echo '#include "platform/platform.h"' >layer.c
# shellcheck disable=SC2046
run cc -c $(pkg-config --cflags img_deploy) -o /dev/null layer.c
expect 'the header of the platform layer' '0 ' "$status $(cat err)"

# completed WORD...: what stands to choose for the last one.
completed() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    "_$1" "$1"
    echo "${COMPREPLY[*]}"
}
for program in img_deploy img_info sysconfig upgd_service; do
    # shellcheck disable=SC1090
    . "/usr/share/bash-completion/completions/$program"
done
expect 'options' '-c -u -s -m -C -p -v -r' "$(completed img_deploy -)"
expect 'places, directories, images' '1 2 3,tree,update.img' \
    "$(completed img_deploy -c tree -p ''),$(completed img_deploy -c ''),$(completed img_deploy -u up)"
expect 'cards' 'flash simulate fail=' "$(completed upgd_service update u.img --cards '')"
expect 'ways to look' '--json --verify --base --compare --extra --device --extract --signature --help' "$(completed img_info -)"
expect 'keys, and no values' 'fw_version,' "$(completed sysconfig get ''),$(completed sysconfig set fw_version '')"

run dpkg --no-triggers -r img-deploy
expect 'removal' 0 "$status"
rm -r /etc/sysconfig # holds the recorded version
machine >after
expect 'nothing is left' '' "$(diff before after)"
finish
