# Shared start of the benchmark scripts: sourced, not run.
#   bench_setup NAME [BUILD DIR] FILE...   sets repo and build, and checks that the FILEs were built
# FILEs are relative to the build tree.
bench_setup() {
    local name=$1 dir=${2:-} file
    shift 2 || shift $#
    repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    dir=${dir:-$repo/build-native}
    build=$(cd "$dir" 2>/dev/null && pwd) || { echo "$name bench: no build tree at '$dir'; build the project first" >&2; exit 2; }
    for file in "$@"; do
        [ -e "$build/$file" ] || { echo "$name bench: '$build/$file' is missing; build the project first" >&2; exit 2; }
    done
}
