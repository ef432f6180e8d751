#!/usr/bin/env bash
# Builds the programs and cuts the power of a virtual machine that runs them: CUTS runs, and STATES
# states that a disk may be left in, made from the writes of four more.
# Usage: scripts/power.sh [CUTS [STATES [SEED]]]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --test
programs=(update/img_deploy/img_deploy platform/sysconfig companions/{img_info/img_info,upgd_service/upgd_service})
cmake --preset release >/dev/null
cmake --build --preset release --target "${programs[@]##*/}"
printf -v SANDBOX_PATH "$PWD/build/release/%s:" "${programs[@]%/*}"
export SANDBOX_PATH=${SANDBOX_PATH%:}
exec tests/power/power_cuts.sh "$@"
