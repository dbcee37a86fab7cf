#!/usr/bin/env bash
# Builds and runs every test: first natively, then the code gates (formatting, clang-tidy), then with
# AddressSanitizer and UndefinedBehaviorSanitizer. Installs what the project needs first, so it works on a
# fresh machine.
#   scripts/test.sh [native|quick|lint|sanitize]...   (default: native lint sanitize)
# quick is the edit-build-test loop: the native build, only the tests labelled unit or sim and not slow
# (docs/testing.md; under three minutes on two cores).
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

variants=("$@")
[ ${#variants[@]} -gt 0 ] || variants=(native lint sanitize)
for variant in "${variants[@]}"; do
    case "$variant" in
    native | quick | lint | sanitize) ;;
    *) echo "test.sh: unknown variant '$variant' (native, quick, lint or sanitize)" >&2; exit 2 ;;
    esac
done

bash scripts/setup.sh

# Every C++ file of these folders is checked, so new files and folders under them are covered.
format_dirs=(updater/src sim tests bench tools fuzz sample)
tidy_dirs=(updater/src sim tools)

cpp_files() {
    local dirs=()
    for dir in "$@"; do
        [ -d "$dir" ] && dirs+=("$dir")
    done
    find "${dirs[@]}" -type f \( -name '*.cpp' -o -name '*.h' \) | sort
}

# clang-format with the root .clang-format, and clang-tidy with the root .clang-tidy over the native build's
# compile_commands.json (two files at a time, one per core). Prints what is wrong and returns 1.
lint() {
    local build="$repo/build-native" log
    echo "== lint: clang-format"
    if ! cpp_files "${format_dirs[@]}" | xargs clang-format-14 --dry-run --Werror; then
        echo "lint: these files are not formatted; run: clang-format-14 -i FILE..." >&2
        return 1
    fi
    echo "== lint: clang-tidy"
    cmake -S "$repo" -B "$build" -G Ninja -DUPDATER_SANITIZE=OFF >/dev/null
    cmake --build "$build" -j 2 # the generated moc and ui headers the sources include
    log=$(mktemp)
    local start=$SECONDS
    if ! cpp_files "${tidy_dirs[@]}" | grep '\.cpp$' |
        xargs -P 2 -n 4 clang-tidy-14 -p "$build" --quiet >"$log" 2>&1; then
        grep -v '^[0-9]* warnings\? generated\.$' "$log" >&2
        rm -f "$log"
        echo "lint: clang-tidy found the problems above" >&2
        return 1
    fi
    rm -f "$log"
    echo "clang-tidy clean ($((SECONDS - start)) s)"
}

export QT_QPA_PLATFORM=offscreen
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1"
export LSAN_OPTIONS="suppressions=$repo/scripts/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

status=0
for variant in "${variants[@]}"; do
    case "$variant" in
    lint)
        lint || status=1
        continue
        ;;
    native | quick) flags=(-DUPDATER_SANITIZE=OFF) selection=() build="$repo/build-native" ;;
    sanitize) flags=(-DUPDATER_SANITIZE=ON) selection=() build="$repo/build-sanitize" ;;
    esac
    [ "$variant" = quick ] && selection=(-L '^(unit|sim)$' -LE '^slow$')
    echo "== $variant build in $build"
    cmake -S "$repo" -B "$build" -G Ninja "${flags[@]}" >/dev/null
    cmake --build "$build" -j 2
    echo "== $variant tests"
    # No test may change the build machine: / and /tmp and the mounts as they were before.
    host=$(mktemp)
    bash scripts/host-state.sh record "$host"
    if ! ctest --test-dir "$build" "${selection[@]}" --output-on-failure -j 2 --timeout 900; then
        status=1
    fi
    bash scripts/host-state.sh compare "$host" || status=1
    rm -f "$host"
done
exit $status
