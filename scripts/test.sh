#!/usr/bin/env bash
# Installs what is missing, builds the presets and runs all tests: with the address and
# undefined-behaviour sanitizers, and as a release; the service runs also with the thread sanitizer.
# Ends with CTest's closing lines; the status is 0 if all went
# well. With CI=true warnings are errors.
# Usage: scripts/test.sh [CTEST-OPTION...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

options=()
[[ ${CI:-} != true ]] || options=(-DCMAKE_COMPILE_WARNING_AS_ERROR=ON)
status=0

# build PRESET [TARGET...]
build() {
    cmake --preset "$1" "${options[@]}" >/dev/null
    cmake --build --preset "$1" ${2:+--target "${@:2}"}
}

build thread service_run sysconfig
build sanitize
build release
ctest --preset thread -R device.service_run || status=$?
for preset in sanitize release; do
    ctest --preset "$preset" -j "$(nproc)" "$@" || status=$?
done
exit "$status"
