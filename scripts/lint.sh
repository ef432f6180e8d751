#!/usr/bin/env bash
# Checks the formatting and runs the static checks. Prints nothing else than findings.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --lint

mapfile -t sources < <(git ls-files '*.cpp' '*.h')
clang-format --dry-run -Werror "${sources[@]}"
git ls-files '*.h' | while read -r header; do
    guard=$(tr 'a-z/.' 'A-Z__' <<<"$header")
    grep -qx "#define $guard" "$header" || { echo "$header: its guard is not $guard" && exit 1; }
done
mapfile -t scripts < <(git grep -lE '^#!.*sh$' -- .)
shellcheck -x "${scripts[@]}" completion/*
mandoc -Tlint -Wwarning man/*
scripts/check_architecture.sh
cmake --preset release >/dev/null
git ls-files 'platform/*.cpp' 'update/*.cpp' 'companions/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p build/release --quiet 2>/dev/null
cppcheck -q --std=c++17 --enable=warning,performance,portability --error-exitcode=1 -j "$(nproc)" \
    -D_GNU_SOURCE -I. -Iinclude platform update companions

# gcc's analyzer. It takes the failure of iconv_open(3), -1, for a result that is lost; and it knows C
# but not C++, in whose strings and owners it sees values that were never set.
analyze=(g++ -std=gnu++17 -O2 -fanalyzer -Werror -D_GNU_SOURCE '-DPROGRAM_VERSION=""' -I. -Iinclude -c -o /dev/null)
labels=update/dtt_create/disk_labels.cpp
git ls-files 'platform/*.cpp' 'update/*.cpp' ":!$labels" |
    xargs -P "$(nproc)" -n 1 "${analyze[@]}"
"${analyze[@]}" -Wno-analyzer-malloc-leak "$labels"
git ls-files 'companions/*.cpp' | xargs -P "$(nproc)" -n 1 "${analyze[@]}" \
    -Wno-analyzer-use-of-uninitialized-value -Wno-analyzer-possible-null-dereference \
    -Wno-analyzer-null-dereference
