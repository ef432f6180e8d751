#!/usr/bin/env bash
# Installs what is missing on a Debian machine to build, test and check the project.
# Usage: scripts/setup.sh [--test|--lint|--fuzz|--device]
set -euo pipefail
trap 'echo "setup.sh: line $LINENO failed with status $?, in the step: $step" >&2' ERR
step='look for packages'

packages=(g++ cmake ninja-build libgtest-dev e2fsprogs util-linux dpkg-dev file pkgconf
    libsodium-dev)
[[ ${1:-} != --test ]] || packages+=(lintian mandoc minisign python3-jsonschema)
native=$(dpkg --print-architecture)
[[ ${1:-},$native != --test,amd64 ]] || packages+=(user-mode-linux dmsetup kmod mtools)
[[ ${1:-} != --lint ]] || packages+=(clang-format clang-tidy cppcheck mandoc shellcheck)
[[ ${1:-} != --device ]] || packages+=(g++-arm-linux-gnueabihf googletest qemu-user)
[[ ${1:-} != --fuzz ]] || packages+=(clang libclang-rt-dev llvm)

missing=()
for package in "${packages[@]}"; do
    # Another processor's may stand beside it.
    status=$(dpkg-query -W -f '${Architecture} ${Status};' "$package" 2>/dev/null || :)
    [[ $status =~ ("$native"|all)' install ok installed' ]] || missing+=("$package")
done
((${#missing[@]})) || exit 0

as_root=()
((EUID == 0)) || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
step="install ${missing[*]}"
printf '%s\n' "$step"
# A mirror that is out of step for some other list need not keep the packages away.
"${as_root[@]}" apt-get update -qq || :
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
