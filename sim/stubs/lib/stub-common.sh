# shellcheck shell=bash
# Shared part of the stub target commands and of the wrappers of the target's real tools (sourced, not
# run). Every stub:
#   - needs SIM_STATE (the sandbox sets it) and keeps its simulated media in $SIM_STATE/media;
#   - appends its call as one line "<name> <args...>" to $SIM_STATE/calls.log before doing anything;
#   - traces its call and its exit status in $SIM_STATE/trace.log (below);
#   - then obeys $SIM_STATE/faults, whose lines (blank lines and "#" comments aside) read
#         <exit code> <which> <pattern>
#     <pattern> is a bash glob matched against the whole logged line, e.g. "mount /dev/sda1 *";
#     <which> is "*" (every matching call) or N (only the N-th matching call, counted in calls.log,
#     so emptying calls.log restarts the count). A faulted call does nothing and exits with <exit code>
#     (1..255). The first rule that fires wins.
# Bad usage of a stub exits with 2 and a message naming the stub and what is wrong.
# The trace holds, in the order things happened, the message view's lines (written by the probe inside the
# updater) and the target commands:
#     run <name> <args...>      a command the updater started (the line calls.log has for a stub)
#     exit <status>             its exit status
#     inner <name> <args...>    a command another program started (a package's script, a stub)
#     inner-exit <status>
# "\" and line feeds in arguments are written as "\\" and "\n". When $SIM_STATE/updater.pid holds the
# updater's process id (the probe writes it), a command whose parent is another process is "inner";
# without it every command is "run".

stub_name=$(basename "$0")
# shellcheck source=power-cut.sh
. "${BASH_SOURCE[0]%/*}/power-cut.sh"

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

# The real program behind a stubbed name: the first on PATH after the stubs' own folder, as the target
# would find it.
stub_find_real() {
    local dir stubs
    stubs=${BASH_SOURCE[0]%/lib/stub-common.sh}
    local IFS=:
    for dir in $PATH; do
        [ "$dir" = "$stubs" ] || [ "$dir" = "${SIM_STUBS:-}" ] && continue
        if [ -f "$dir/$1" ] && [ -x "$dir/$1" ]; then
            echo "$dir/$1"
            return 0
        fi
    done
    return 1
}

stub_real() {
    stub_find_real "$1" || stub_usage_error "the real '$1' is not installed"
}

stub_trace() { # <kind> <text>
    local text=${2//\\/\\\\}
    printf '%s %s\n' "$1" "${text//$'\n'/\\n}" >>"$SIM_STATE/trace.log"
}

# Traces the call now and its exit status when the script ends.
stub_trace_call() { # <the call's line>
    stub_run_kind=run stub_exit_kind=exit
    if [ -r "$SIM_STATE/updater.pid" ] && [ "$PPID" != "$(<"$SIM_STATE/updater.pid")" ]; then
        stub_run_kind=inner stub_exit_kind=inner-exit
    fi
    stub_trace "$stub_run_kind" "$1"
    stub_clock start
    trap 'stub_end_call $?' EXIT
    stub_cut_plan
}

stub_check_state() {
    [ -n "${SIM_STATE:-}" ] || stub_usage_error "SIM_STATE is not set: run inside sim/sandbox"
    [ -d "$SIM_STATE" ] || stub_usage_error "SIM_STATE '$SIM_STATE' is not a directory"
}

# A wrapper of one of the target's real tools (cp, rm, tar): traced, not in calls.log, and otherwise the
# tool itself: its output and its exit status pass through unchanged. A tool the root has lost cannot start.
stub_run_real() {
    stub_check_state
    local line=$stub_name real status
    [ $# -gt 0 ] && line="$line $*"
    stub_trace_call "$line"
    real=$(stub_find_real "$stub_name") || stub_fail 127 "not found"
    set +e
    if stub_cut_during; then
        stub_run_real_share "$real" "$@"
    else
        "$real" "$@"
    fi
    status=$?
    set -e
    exit $status
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
    stub_check_state
    mkdir -p "$SIM_STATE/media"
    local line=$stub_name
    [ $# -gt 0 ] && line="$line $*"
    printf '%s\n' "$line" >>"$SIM_STATE/calls.log"
    stub_trace_call "$line"
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

stub_erase_block=$((128 * 1024)) # the NAND's erase block

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

# Writes a file at offset 0 of a simulated device, keeping the rest of it; with a length, only that many
# bytes of it (nothing at all for 0).
stub_write_image() { # <file> <device> [length]
    if [ $# -lt 3 ]; then
        dd if="$1" of="$2" conv=notrunc status=none
    elif [ "$3" -gt 0 ]; then
        head -c "$3" "$1" | dd of="$2" conv=notrunc status=none
    fi
}

# Erases the first N bytes of a simulated device, keeping the rest of it.
stub_erase_start() { # <device> <length>
    [ "$2" -gt 0 ] || return 0
    stub_erased_bytes "$2" | dd of="$1" conv=notrunc status=none
}

# Formatting leaves the medium's file system empty (created when it did not exist yet).
stub_format() {
    local medium
    medium=$(stub_media "$1")
    mkdir -p "$medium"
    find "$medium" -mindepth 1 -delete
}
