#!/usr/bin/env bash
# faults.sh [STATES [SEED]]: plants one fault after the other in a copy of the project and tells which of so
# many states of each log shows it first.
set -euo pipefail
cd "$(dirname "$0")/../.."

# plant NAME FILE EDITS: by an expression of sed.
plant() {
    local name=$1 file=$2 found='' try
    cp "$file" original
    sed -i "$3" "$file"
    ! cmp -s "$file" original || { echo "FAILED: $name: $file has changed: plant it anew"; exit 1; }
    # Which of the logs are of a bare and of a busy board changes with the seed.
    for try in 0 1; do
        scripts/power.sh 0 $((4 * states)) $((seed + try)) >log 2>&1 || :
        grep -q '^seed' log || { cat log; exit 1; }
        found=$(sed -n 's/^FAILED: \(.*: state \)/\1/p' log | sort -t: -k2.8n | cut -d: -f1-3 | sed 1!d)
        [[ -z $found ]] || break
    done
    printf '%-42s %s\n' "$name" "${found:-not found}"
    [[ -n $found ]] || missed=1
    cp original "$file" # with a time of its own, so that it is compiled again
}

states=${1:-400} seed=${2:-1} missed=0
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
git archive HEAD | tar -x -C "$copy"
cd "$copy"

common=update/dtt_update_common
engines=update/dtt_update
plant 'copy_file starts no write-out' $common/copy_file.cpp '/sync_file_range(fd/d'
plant 'no sync ahead of the version' $common/base_directory.cpp '/^    sync();/d'
plant 'sysconfig without its fsync' platform/configuration.cpp \
    's/    return sync_descriptor(fd);/    return 0;/'
plant "the tool's version ahead of the sync" $engines/apply_engine.cpp \
    's/    return sync_unpacked(run);/    record_image(run); &/'
plant "the service's version ahead of the sync" $engines/service_engine.cpp \
    's/    const int ret = sync_unpacked(run);/    record_image(run); &/'
plant 'flag ahead of the end' update/img_deploy/main.cpp \
    's/    const int ret = do_update(/    set_update_flag(flag_file, UPDATE_FLAG_DONE); &/'
plant 'flag not synced' $common/update_flag.cpp 's/ syncfs(fd);//'
plant 'backup not synced' update/dtt_create/settings_backup.cpp 's/ && safe_fsync(fd) == 0//; /my_system("sync")/d'
((missed == 0))
