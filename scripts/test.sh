#!/usr/bin/env bash
# Installs what is missing, builds the presets and runs all tests: with the address and
# undefined-behaviour sanitizers, and as a release; the service in the small also with the thread
# sanitizer.
# Ends with CTest's closing lines; the status is 0 if all went well. With CI=true warnings are errors,
# and the benchmarks are built as well.
# With --device builds for the board's processor instead, packages that, and runs the tests under
# emulation.
# With --musl builds img_deploy, static over musl, and runs it on whole trees in the sandbox.
# Usage: scripts/test.sh [--device] [CTEST-OPTION...]
#        scripts/test.sh --musl
set -Eeuo pipefail
trap 'echo "test.sh: line $LINENO failed with status $?, in the step: $step" >&2' ERR
step='install what is missing'
cd "$(dirname "$0")/.."

options=()
# CMake knows the first from 3.24 on, and says so where it does not.
[[ ${CI:-} != true ]] || options=(-DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DBUILD_BENCHMARKS=ON)
status=0

# build PRESET [TARGET...]
build() {
    step="build $1"
    cmake --preset "$1" "${options[@]}" >/dev/null
    cmake --build --preset "$1" ${2:+--target "${@:2}"}
}

# run_tests PRESET [OPTION...]: with the reasons of what was left out behind CTest's closing lines.
run_tests() {
    local status=0
    step="test $1"
    ctest --preset "$1" -j $((2 * $(nproc))) "${@:2}" || status=$? # many a test waits most of its time
    grep -E '^(skipped|sandbox): ' "build/$1/Testing/Temporary/LastTest.log" || :
    return $status
}

# What goes to the board is small and needs nothing beyond the C and C++ runtime.
package_for_device() {
    local package=$PWD/build/device/package program size needed
    step='package for the board'
    rm -rf "$package"
    cpack --config build/device/CPackConfig.cmake -B "$package" >/dev/null
    dpkg-deb -x "$package"/img-deploy_*_armhf.deb "$package/root"
    program=$package/root/usr/bin/img_deploy
    size=$(stat -c %s "$program")
    needed=$(arm-linux-gnueabihf-readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    printf 'img_deploy for the board: %s bytes, needs %s\n' "$size" "${needed//$'\n'/ }"
    if ((size >= 200 * 1024)); then
        echo 'FAILED: it is too large'
        exit 1
    elif grep -vxE '(libc|libm|libgcc_s|libstdc\+\+|ld-linux-armhf)\.so\.[0-9]+' <<<"$needed"; then
        echo 'FAILED: the board may lack these'
        exit 1
    fi
}

test_device() {
    scripts/setup.sh --device
    build device
    package_for_device
    step='test for the board'
    run_tests device "$@" || exit
}

# One file for any board of this processor, and for the root directory of a tree that is to be packed.
test_musl() {
    local program=build/musl/update/img_deploy/img_deploy companions=$PWD/build/release/companions script
    scripts/setup.sh --musl
    build release img_info upgd_service
    build musl img_deploy sysconfig
    step='test over musl'
    strip -o build/musl/img_deploy "$program"
    if readelf -d build/musl/img_deploy | grep NEEDED; then
        echo 'FAILED: it is not static'
        exit 1
    fi
    printf 'img_deploy over musl: %s bytes, needs no library\n' "$(stat -c %s build/musl/img_deploy)"
    for script in apply_run neighbours; do
        SANDBOX_PATH=$PWD/build/musl:$PWD/build/musl/platform:$companions/img_info:$companions/upgd_service \
            tests/sandbox.sh "tests/device/$script.sh"
    done
}

if [[ ${1:-} == --musl ]]; then
    test_musl
    exit
elif [[ ${1:-} == --device ]]; then
    test_device "${@:2}"
    exit
fi
scripts/setup.sh --test
build thread img_deploy img_info sysconfig upgd_service
build sanitize
build release
# The progress is read while it is written, a number at a time.
TSAN_OPTIONS=suppressions=$PWD/tests/thread.suppressions \
    ctest --preset thread -R device.companions >build/thread.log 2>&1 &
thread=$!
run_tests sanitize "$@" || status=$?
wait $thread || status=$?
cat build/thread.log
run_tests release "$@" || status=$?
exit "$status"
