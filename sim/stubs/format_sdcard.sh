#!/usr/bin/env bash
# Simulated /home/format_sdcard.sh: formats the storage area (test results and settings), whose files
# are $SIM_STATE/media/data/.
set -euo pipefail
lib="${SIM_STUBS:-$(dirname "$(readlink -f "$0")")}/lib/stub-common.sh"
[ -r "$lib" ] || { echo "$(basename "$0") (simulated): cannot find $lib: set SIM_STUBS (run inside sim/sandbox)" >&2; exit 2; }
. "$lib"
stub_begin "$@"

[ $# -eq 0 ] || stub_usage_error "takes no arguments, got: $*"
stub_format data
