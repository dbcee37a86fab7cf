#!/usr/bin/env bash
# Builds and runs every test: first natively, then with AddressSanitizer and UndefinedBehaviorSanitizer.
# Installs what the project needs first, so it works on a fresh machine.
#   scripts/test.sh [native|sanitize]...   (default: both)
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

bash scripts/setup.sh

variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(native sanitize)

export QT_QPA_PLATFORM=offscreen
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export LSAN_OPTIONS="suppressions=$repo/scripts/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

status=0
for variant in "${variants[@]}"; do
    case "$variant" in
    native) flags=(-DUPDATER_SANITIZE=OFF) ;;
    sanitize) flags=(-DUPDATER_SANITIZE=ON) ;;
    *) echo "test.sh: unknown variant '$variant' (native or sanitize)" >&2; exit 2 ;;
    esac
    build="$repo/build-$variant"
    echo "== $variant build in $build"
    cmake -S "$repo" -B "$build" -G Ninja "${flags[@]}" >/dev/null
    cmake --build "$build" -j 2
    echo "== $variant tests"
    if ! ctest --test-dir "$build" --output-on-failure -j 2 --timeout 900; then
        status=1
    fi
done
exit $status
