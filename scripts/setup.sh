#!/usr/bin/env bash
# Installs what is missing on a Debian machine to build, test and check the project.
# Usage: scripts/setup.sh [--test|--lint|--fuzz|--device|--musl]
set -euo pipefail
trap 'echo "setup.sh: line $LINENO failed with status $?, in the step: $step" >&2' ERR
step='look for packages'

native=$(dpkg --print-architecture)
packages=(g++ cmake ninja-build libgtest-dev e2fsprogs util-linux dpkg-dev file pkgconf
    libsodium-dev)
[[ ${1:-} != --test ]] || packages+=(busybox faketime lintian minisign python3-jsonschema squashfs-tools)
[[ ${1:-},$native != --test,amd64 ]] || packages+=(user-mode-linux dmsetup f2fs-tools kmod mtools python3)
[[ ${1:-} != --lint ]] || packages+=(clang-format clang-tidy cppcheck mandoc shellcheck)
[[ ${1:-} != --device ]] || packages+=(busybox g++-arm-linux-gnueabihf googletest python3-jsonschema qemu-user {libsodium-dev,libstdc++6}:armhf)
[[ ${1:-} != --musl ]] || packages+=(musl-tools)
[[ ${1:-} != --fuzz ]] || packages+=(clang libclang-rt-dev llvm)

missing=()
for package in "${packages[@]}"; do
    # Another architecture's package has the same name.
    status=$(dpkg-query -W -f '${Architecture} ${Status};' "$package" 2>/dev/null || :)
    [[ $status =~ (all|"$native"|"${package#*:}")' install ok installed' ]] || missing+=("$package")
done
((${#missing[@]})) || exit 0

as_root=()
((EUID == 0)) || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
step="install ${missing[*]}"
printf '%s\n' "$step"
[[ ${missing[*]} != *:armhf* ]] || "${as_root[@]}" dpkg --add-architecture armhf
# A list that can't be had, of one suite, is old; if it was needed, what follows fails.
"${as_root[@]}" apt-get update -qq || echo 'some lists of packages are old' >&2
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
