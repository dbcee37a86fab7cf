# shellcheck shell=bash
# shellcheck disable=SC2154 # stub_name, stub_run_kind and stub_exit_kind are stub-common.sh's
# The power cut of the simulated instrument (sourced by stub-common.sh). $SIM_STATE/cut, when present,
# holds one rule that says where the power fails:
#     before K          when the updater's K-th command starts, before it does anything
#     after K           when its K-th command has done its work, before the updater learns its exit status
#     during K N/D      its K-th command stops after N/D of its work: flash_eraseall has erased that share of
#                       the erase blocks, nandwrite, sdimage and ubiformat have written that share of the
#                       pages, sectors or erase blocks, cp that share of the bytes (the real cp, stopped by
#                       a file size limit), tar that share of the archive's 512-byte blocks (the real tar,
#                       stopped at a checkpoint), rm that share of the entries (the real rm, entry by entry,
#                       deepest first as rm -r goes); any other command does nothing then
#     line-change N     the instrument's N+1-th GPIO line change is not made (sim/sandbox arms the server)
# K counts the commands the updater starts itself (the trace's "run" lines) from 1. At the cut the trace
# gets "cut <rule>" and every process of the instrument stops at once: no further command, no sync, no
# unmount. The sandbox's pid namespace holds only the instrument's processes, so they all go.

stub_cut="" stub_cut_rule="" stub_share_num=1 stub_share_den=1

# Called once the call is traced: cuts at once for "before K", marks the call for "after" and "during".
stub_cut_plan() {
    local file=$SIM_STATE/cut rule="" k num=1 den=1
    [ "$stub_run_kind" = run ] && [ -f "$file" ] || return 0
    IFS= read -r rule <"$file" || [ -n "$rule" ] || return 0
    if [[ $rule =~ ^(before|after)\ ([1-9][0-9]*)$ ]]; then
        k=${BASH_REMATCH[2]}
    elif [[ $rule =~ ^during\ ([1-9][0-9]*)\ ([0-9]+)/([1-9][0-9]*)$ ]]; then
        k=${BASH_REMATCH[1]} num=${BASH_REMATCH[2]} den=${BASH_REMATCH[3]}
        [ "$num" -le "$den" ] || stub_usage_error "$file: the share $num/$den is more than the whole"
    elif [[ $rule =~ ^line-change\ [0-9]+$ ]]; then
        return 0
    else
        stub_usage_error "$file: expected 'before K', 'after K', 'during K N/D' or 'line-change N', got '$rule'"
    fi
    [ "$(grep -c '^run ' "$SIM_STATE/trace.log")" = "$k" ] || return 0
    stub_cut_rule=$rule stub_cut=${rule%% *} stub_share_num=$num stub_share_den=$den
    case "$stub_cut:$stub_name" in
    before:*) stub_power_cut ;;
    during:flash_eraseall | during:nandwrite | during:ubiformat | during:sdimage | during:cp | during:tar | during:rm) ;;
    during:*) stub_power_cut ;;
    esac
}

# N reduced to the share of the work a "during" cut allows (all of it otherwise), rounded down.
stub_share_of() {
    echo $(($1 * stub_share_num / stub_share_den))
}

stub_cut_during() {
    [ "$stub_cut" = during ]
}

# The times of the updater's commands, for the windows of a risk report: "start|end SECONDS" a line in
# $SIM_STATE/clock.log, the n-th start belonging to the trace's n-th "run" line (wall clock, microseconds).
stub_clock() { # start|end
    [ "$stub_run_kind" = run ] || return 0
    echo "$1 $EPOCHREALTIME" >>"$SIM_STATE/clock.log"
}

# The power fails now: the trace says where, then everything stops. Only inside the sandbox, whose pid 1
# is bubblewrap's: outside it, "every process" would be the build machine's.
stub_power_cut() {
    trap - EXIT
    [ "$(cat /proc/1/comm 2>/dev/null)" = bwrap ] ||
        stub_usage_error "a power cut ($SIM_STATE/cut) needs the sandbox's own processes: run inside sim/sandbox"
    stub_trace cut "$stub_cut_rule"
    stub_clock cut
    kill -KILL -1 2>/dev/null || true
    kill -KILL $$
}

# The end of a traced call: its exit status, then the cut when it was to come after the work; a command
# cut part-way has no end.
stub_end_call() { # <status>
    stub_cut_during && stub_power_cut # (the updater never learns how a cut command ended)
    stub_trace "$stub_exit_kind" "$1"
    stub_clock end
    [ -z "$stub_cut" ] || stub_power_cut
}

# The real cp, tar or rm stopped after the share of its work a "during" cut allows.
stub_run_real_share() { # <real program> <args...>
    local real=$1 arg archive="" total blocks
    shift
    case "$stub_name" in
    cp)
        # cp SOURCE DEST: a file size limit (KiB) stops it there, leaving the destination truncated.
        local operands=()
        for arg; do [[ $arg == -* ]] || operands+=("$arg"); done
        total=$(stat -c %s "${operands[0]}" 2>/dev/null || echo 0)
        (
            ulimit -f "$(($(stub_share_of "$total") / 1024))"
            exec "$real" "$@"
        )
        ;;
    tar)
        local previous=""
        for arg; do
            [ "$previous" = -xf ] || [ "$previous" = -f ] && archive=$arg
            previous=$arg
        done
        case "$archive" in
        *.bz2) total=$(bzip2 -dc "$archive" 2>/dev/null | wc -c) ;;
        *.gz) total=$(gzip -dc "$archive" 2>/dev/null | wc -c) ;;
        *) total=$(stat -c %s "$archive" 2>/dev/null || echo 0) ;;
        esac
        blocks=$(stub_share_of $((total / 512)))
        [ "$blocks" -gt 0 ] || return 0
        # One block a record, so that a checkpoint comes after every block; the action kills tar there.
        # shellcheck disable=SC2016 # $PPID is the checkpoint shell's: tar
        "$real" "$@" -b 1 --checkpoint="$blocks" --checkpoint-action='exec=kill -KILL $PPID'
        ;;
    rm)
        local entries=() recursive=0 entry
        for arg; do
            case "$arg" in
            -r | -rf | -fr | -R) recursive=1 ;;
            -*) ;;
            *)
                if [ "$recursive" = 1 ] && [ -d "$arg" ]; then
                    while IFS= read -r entry; do entries+=("$entry"); done < <(find "$arg" -depth)
                elif [ -e "$arg" ] || [ -L "$arg" ]; then
                    entries+=("$arg")
                fi
                ;;
            esac
        done
        # A single unlink is all or nothing: a share of one entry removes nothing.
        total=$(stub_share_of ${#entries[@]})
        for entry in "${entries[@]:0:$total}"; do
            "$real" -d -- "$entry" || return 1
        done
        ;;
    esac
}
