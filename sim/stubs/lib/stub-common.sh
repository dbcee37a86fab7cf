# shellcheck shell=bash
# Shared part of the stub target commands (sourced, not run). Every stub:
#   - needs SIM_STATE (the sandbox sets it) and keeps its simulated media in $SIM_STATE/media;
#   - appends its call as one line "<name> <args...>" to $SIM_STATE/calls.log before doing anything;
#   - then obeys $SIM_STATE/faults, whose lines (blank lines and "#" comments aside) read
#         <exit code> <which> <pattern>
#     <pattern> is a bash glob matched against the whole logged line, e.g. "mount /dev/sda1 *";
#     <which> is "*" (every matching call) or N (only the N-th matching call, counted in calls.log,
#     so emptying calls.log restarts the count). A faulted call does nothing and exits with <exit code>
#     (1..255). The first rule that fires wins.
# Bad usage of a stub exits with 2 and a message naming the stub and what is wrong.

stub_name=$(basename "$0")

stub_usage_error() {
    echo "$stub_name (simulated): $*" >&2
    exit 2
}

# A failure of the simulated target itself, with the exit code the real tool would give.
stub_fail() {
    local code=$1
    shift
    echo "$stub_name: $*" >&2
    exit "$code"
}

# The real program behind a stubbed name (the stubs directory comes first on PATH).
stub_real() {
    local dir
    for dir in /usr/sbin /usr/bin /sbin /bin; do
        if [ -x "$dir/$1" ]; then
            echo "$dir/$1"
            return 0
        fi
    done
    stub_usage_error "the real '$1' is not installed"
}

stub_media() {
    echo "$SIM_STATE/media/$1"
}

# Applies the fault rules to the call just logged.
stub_faults() {
    local line=$1 faults="$SIM_STATE/faults" rule lineno=0 code which pattern count logged
    [ -f "$faults" ] || return 0
    while IFS= read -r rule || [ -n "$rule" ]; do
        lineno=$((lineno + 1))
        [[ "$rule" =~ ^[[:space:]]*(#|$) ]] && continue
        if ! [[ "$rule" =~ ^[[:space:]]*([0-9]+)[[:space:]]+(\*|[0-9]+)[[:space:]]+(.+)$ ]]; then
            stub_usage_error "$faults:$lineno: expected '<exit code> <n-th call or *> <pattern>', got '$rule'"
        fi
        code=${BASH_REMATCH[1]} which=${BASH_REMATCH[2]} pattern=${BASH_REMATCH[3]}
        if [ "$code" -lt 1 ] || [ "$code" -gt 255 ]; then
            stub_usage_error "$faults:$lineno: exit code $code is not in 1..255"
        fi
        [ "$which" = 0 ] && stub_usage_error "$faults:$lineno: calls are counted from 1"
        # shellcheck disable=SC2053 # the pattern is a glob on purpose
        [[ "$line" == $pattern ]] || continue
        if [ "$which" != "*" ]; then
            count=0
            while IFS= read -r logged; do
                # shellcheck disable=SC2053
                [[ "$logged" == $pattern ]] && count=$((count + 1))
            done <"$SIM_STATE/calls.log"
            [ "$count" -eq "$which" ] || continue
        fi
        echo "$stub_name (simulated): fault injected by $faults:$lineno, exit code $code" >&2
        exit "$code"
    done <"$faults"
}

# Call first thing with the stub's arguments: checks the environment, logs the call, applies faults.
stub_begin() {
    [ -n "${SIM_STATE:-}" ] || stub_usage_error "SIM_STATE is not set: run inside sim/sandbox"
    [ -d "$SIM_STATE" ] || stub_usage_error "SIM_STATE '$SIM_STATE' is not a directory"
    mkdir -p "$SIM_STATE/media"
    local line=$stub_name
    [ $# -gt 0 ] && line="$line $*"
    printf '%s\n' "$line" >>"$SIM_STATE/calls.log"
    stub_faults "$line"
}

# Simulated flash partitions: size in bytes, 0 for an unknown device.
stub_mtd_size() {
    case "$1" in
    /dev/mtd0) echo $((2 * 1024 * 1024)) ;; # kernel
    /dev/mtd1) echo $((8 * 1024 * 1024)) ;; # root UBI volume
    *) echo 0 ;;
    esac
}

# Erased NAND reads as 0xFF.
stub_erased_bytes() {
    head -c "$1" /dev/zero | tr '\0' '\377'
}

# True when the first N bytes of the file are erased.
stub_is_erased() {
    local file=$1 length=$2
    [ -f "$file" ] || return 1
    [ "$(stat -c %s "$file")" -ge "$length" ] || return 1
    [ "$(head -c "$length" "$file" | tr -d '\377' | wc -c)" -eq 0 ]
}

# Writes a file at offset 0 of a simulated device, keeping the rest of it.
stub_write_image() {
    dd if="$1" of="$2" conv=notrunc status=none
}

# Formatting leaves the medium's file system empty (created when it did not exist yet).
stub_format() {
    local medium
    medium=$(stub_media "$1")
    mkdir -p "$medium"
    find "$medium" -mindepth 1 -delete
}
