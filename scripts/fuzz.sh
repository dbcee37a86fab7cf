#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang (AddressSanitizer, UndefinedBehaviorSanitizer, and
# unsigned wrap-around on the HEX path) and runs each for a bounded time from its seeds and regressions.
#   scripts/fuzz.sh TARGET|all SECONDS      targets: hex powerboard esa commandlist payload_elf payload_uimage
#                                           payload_ubi payload_modules
# The mutations follow FUZZ_SEED (default 1, so that CI's runs repeat); FUZZ_SEED=0 picks a random one.
# A finding fails the run and leaves its reproducer in out/fuzz/TARGET/ (crash-*, leak-*, timeout-*);
# inputs that found new coverage collect in out/fuzz/TARGET/corpus/ for the next run.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
all_targets=(hex powerboard esa commandlist payload_elf payload_uimage payload_ubi payload_modules)
usage() { echo "usage: scripts/fuzz.sh TARGET|all SECONDS (targets: ${all_targets[*]})" >&2; exit 2; }
[ $# -eq 2 ] || usage
[[ "$2" =~ ^[1-9][0-9]*$ ]] || { echo "fuzz.sh: SECONDS must be a positive whole number, not '$2'" >&2; usage; }
if [ "$1" = all ]; then
    targets=("${all_targets[@]}")
elif [[ " ${all_targets[*]} " == *" $1 "* ]]; then
    targets=("$1")
else
    echo "fuzz.sh: unknown target '$1'" >&2
    usage
fi
seconds=$2

bash scripts/setup.sh
# The fuzzer's own tools: clang with libFuzzer and the sanitizer runtimes, and a symbolizer for reports.
missing=()
for p in clang-14 libclang-rt-14-dev llvm-14; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "fuzz.sh: installing ${missing[*]}"
    sudo=()
    [ "$(id -u)" = 0 ] || sudo=(sudo)
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

build="$repo/build-fuzz"
cmake -S "$repo" -B "$build" -G Ninja -DUPDATER_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=clang++-14 \
    -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" >/dev/null
cmake --build "$build" -j 2 --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:symbolize=1"
export LSAN_OPTIONS="suppressions=$repo/scripts/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export QT_QPA_PLATFORM=offscreen
status=0
summary=()
for target in "${targets[@]}"; do
    out="$repo/out/fuzz/$target"
    mkdir -p "$out/corpus"
    options=(-max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1
        -artifact_prefix="$out/" -seed="${FUZZ_SEED:-1}")
    [ -f "fuzz/dict/$target.dict" ] && options+=(-dict="fuzz/dict/$target.dict")
    # A HEX record costs thousands of line operations: longer files only repeat what short ones reach.
    [ "$target" = hex ] && options+=(-max_len=512)
    # Qt's widget caches grow from input to input, and libFuzzer's leak scan after each such input would take
    # most of the time: the screen's targets leave leaks to the regression tests of the sanitizer build.
    case "$target" in esa | commandlist) options+=(-detect_leaks=0) ;; esac
    echo "== fuzz $target for ${seconds} s (findings in $out)"
    if "$build/fuzz/fuzz_$target" "${options[@]}" "$out/corpus" "fuzz/corpus/$target" "fuzz/regressions/$target" \
        >"$out/log.txt" 2>&1; then
        runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$out/log.txt" | grep -o '[0-9]*$' || echo "?")
        summary+=("$target: $runs executions in ${seconds} s, no finding")
    else
        status=1
        tail -n 40 "$out/log.txt"
        reproducer=$(ls -t "$out"/crash-* "$out"/leak-* "$out"/timeout-* "$out"/oom-* 2>/dev/null | head -n 1 || true)
        summary+=("$target: FINDING, reproducer ${reproducer:-(none written)}; log $out/log.txt")
        echo "fuzz.sh: reproduce with $build/fuzz/fuzz_$target ${reproducer:-<input>}; minimise it with" \
            "-minimize_crash=1 -runs=10000 and keep it in fuzz/regressions/$target/ once fixed" >&2
    fi
done
printf '%s\n' "== fuzz summary" "${summary[@]}"
exit $status
