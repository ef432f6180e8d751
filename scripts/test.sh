#!/usr/bin/env bash
# Installs what is missing, builds the presets and runs all tests: release, then with the address
# and undefined-behaviour sanitizers. Ends with CTest's closing lines; the status is 0 if all went
# well. With CI=true warnings are errors.
# Usage: scripts/test.sh [CTEST-OPTION...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

options=()
[[ ${CI:-} != true ]] || options=(-DCMAKE_COMPILE_WARNING_AS_ERROR=ON)
status=0
for preset in release sanitize; do
    cmake --preset "$preset" "${options[@]}" >/dev/null
    cmake --build --preset "$preset"
done
for preset in release sanitize; do
    ctest --preset "$preset" -j "$(nproc)" "$@" || status=$?
done
exit "$status"
