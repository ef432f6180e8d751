#!/usr/bin/env bash
# faults.sh [STATES [SEED]]: plants one fault after the other in a copy of the project and has
# power_cuts.sh look at so many states of each log, up to the first log that shows it: a test that has
# never failed proves nothing. Run by hand.
set -euo pipefail
cd "$(dirname "$0")/../.."

common=update/dtt_update_common
# Its name; where; an expression of sed; and if it is none, why.
faults=(
    "copy_file starts no write-out|$common/copy_file.cpp|/sync_file_range(fd/d"
    "no sync ahead of the version|$common/base_directory.cpp|/^    sync();/d"
    "no syncfs|$common/base_directory.cpp|s/syncfs(base->systems\[i\].fd) != 0/false/|the sync behind it covers it; it is there for the failures that only it tells of"
    "neither|$common/base_directory.cpp|s/syncfs(base->systems\[i\].fd) != 0/false/; /^    sync();/d"
    "sysconfig without its rename|platform/configuration.cpp|s/open(paths->fresh/open(path/; s/ && rename(paths->fresh, path) != 0/ \&\& false/|only a commit of the journal in the few milliseconds up to the fsync shows it"
    "sysconfig without its fsync|platform/configuration.cpp|s/    return sync_descriptor(fd);/    return 0;/"
    "sysconfig without its directory's fsync|platform/configuration.cpp|s/return sync_directory(paths->directory);/return 0;/|the sync that ends each run covers it"
    "the tool's version ahead of the sync|update/dtt_update/apply_engine.cpp|s/    return sync_unpacked(run);/    record_image(run); &/"
    "the service's version ahead of the sync|update/dtt_update/service_engine.cpp|s/    const int ret = sync_unpacked(run);/    record_image(run); &/"
    "flag ahead of the end|update/img_deploy/main.cpp|s/    const int ret = do_update(/    set_update_flag(flag_file, UPDATE_FLAG_DONE); &/"
    "flag not synced|$common/update_flag.cpp|s/ syncfs(fd);//"
    "backup not synced|update/dtt_create/settings_backup.cpp|s/ && safe_fsync(fd) == 0//; /my_system(\"sync\")/d"
    "backup's file not synced|update/dtt_create/settings_backup.cpp|s/ && safe_fsync(fd) == 0//|here a flush for one partition is one for all; the story of a backup sees it"
    "compression cut ahead of its copy's sync||/tmp does not outlive a cut here: a compression that is cut is promised nothing (docs/service_guide.md)"
)

states=${1:-400} seed=${2:-1}
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
git archive HEAD | tar -x -C "$copy"
programs=(update/img_deploy/img_deploy platform/sysconfig companions/{img_info/img_info,upgd_service/upgd_service})
printf -v SANDBOX_PATH "$copy/build/release/%s:" "${programs[@]%/*}"
export SANDBOX_PATH STOP=1
cd "$copy"
cmake --preset release >/dev/null
missed=0
for fault in "${faults[@]}"; do
    IFS='|' read -r name file edits why <<<"$fault"
    [[ -n $file ]] || { printf '%-42s no fault: %s\n' "$name" "$edits" && continue; }
    cp "$file" original
    sed -i "$edits" "$file"
    ! cmp -s "$file" original || { echo "FAILED: $name: $file has changed: plant it anew"; exit 1; }
    cmake --build --preset release --target "${programs[@]##*/}" >log 2>&1 || { cat log; exit 1; }
    found=''
    # Which of the logs are of a bare and of a busy board changes with the seed.
    for try in 0 1; do
        tests/power/power_cuts.sh 0 $((4 * states)) $((seed + try)) >log 2>&1 || :
        grep -q '^seed' log || { cat log; exit 1; }
        found=$(grep -E '^FAILED: .*: state ' log | sed 's/^FAILED: //' | sort -t: -k2.8n | head -n 1 |
            cut -d: -f1-3) || :
        [[ -z $found ]] || break
    done
    printf '%-42s %s\n' "$name" "${found:-not found${why:+: $why}}"
    [[ -n $found || -n $why ]] || missed=$((missed + 1))
    cp original "$file" # with a time of its own, so that it is compiled again
done
((missed == 0))
