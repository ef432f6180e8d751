#!/usr/bin/env bash
# Checks the formatting and runs the static checks. Prints nothing else than findings.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --lint

mapfile -t sources < <(git ls-files '*.cpp' '*.h')
clang-format --dry-run -Werror "${sources[@]}"
mapfile -t scripts < <(git grep -lE '^#!.*sh$' -- .)
shellcheck -x "${scripts[@]}" completion/*
mandoc -Tlint -Wwarning man/*
cmake --preset release >/dev/null
git ls-files 'platform/*.cpp' 'update/*.cpp' 'tools/*.cpp' 'service/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p build/release --quiet 2>/dev/null
