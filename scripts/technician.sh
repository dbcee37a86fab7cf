#!/usr/bin/env bash
# Plays the technician at the real updater on the virtual instrument, from outside the sandbox's root: a
# package that breaks that root (its loader, its shell) cannot break the driver.
#   scripts/technician.sh [options] JOB PACKAGE OUT [JOB PACKAGE OUT ...]
# JOB stick: F3, F1, waits for the end of the job, F1 back to the menu.
#     pc:    F2, F1 (gadget), copies the package onto the transfer partition as the PC would, F1, waits, F1.
# PACKAGE is a package file or "none" (nothing on the medium). OUT is the job's state folder (sim/sandbox
# --state): the technician empties what it writes there, keeps other inputs (faults, system) and leaves:
#   rootfs/ media/ pic/ calls.log trace.log   the instrument after the job (see sim/README.md)
#   rootfs.start                              the root's upper layer as the job found it (mount points)
#   view.txt                                  the message view at the end of the job, as the updater has it
#   end.png, menu.png (and *-raw.png)         the screen at the end and back at the menu, as the technician
#                                             sees it (turned by 180 degrees) and as drawn
#   probe.txt, updater.log, sandbox.log       the probe's reports, the updater's output, the run's start/end
#   outcome                                   "ended" or "not ended: <why>"
# Every job gets a fresh root, fresh media and the instrument as at start; all jobs share one instrument.
# With --session DIR the jobs are one session instead: one running updater takes them one after another,
# as a technician inserts one stick after the other (it keeps what it holds, such as its system type, and
# the root keeps what a job left). DIR is then the state folder of the whole session (rootfs/, media/,
# pic/, trace.log, ... as above, the instrument as the last job left it); each OUT gets only the job's own
# view.txt, outcome, screenshots and part of the trace. After each job's "done OUT" the technician waits
# for a line on its standard input (end of input: it goes on at once) before the next, so that a reader
# can read DIR as that job left it. A job that does not end ends the session: later jobs are not run.
# The updater runs on Qt's offscreen platform; the probe plugin inside it takes the keys (through a fifo,
# as the keypad's events arrive) and takes the screenshots.
# Options:
#   --session DIR     the jobs as one session of one running updater (above)
#   --build DIR       the build tree (default $UPDATER_BUILD_DIR)
#   --cpu N           pin the instrument and the updater to CPU N
#   --timeout S       a job that has not ended after S seconds is stopped (default $TECHNICIAN_TIMEOUT or 1200)
#   --no-screens      no screenshots and no return to the menu (faster, for batches)
#   --window          the updater on this desktop ($DISPLAY), left open after the job for your keys
#   --instrument-arg A   passed on to the instrument (default: --pic --serial esa)
# Prints "done OUT" when a job is over. Exit status: 0 when every job reached its end, 1 otherwise, 77 when
# the sandbox is unavailable (skipped).
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(dirname "$here")
say() { echo "technician: $*" >&2; }
usage() { say "$*"; sed -n '3,4p' "${BASH_SOURCE[0]}" >&2; exit 2; }

build=${UPDATER_BUILD_DIR:-} cpu=() timeout_s=${TECHNICIAN_TIMEOUT:-1200} screens=1 window=0 session=""
instrument_args=()
while [ $# -gt 0 ]; do
    case "$1" in
    --session) session=${2:?--session needs a folder}; shift 2 ;;
    --build) build=${2:?--build needs a folder}; shift 2 ;;
    --cpu) cpu=(--cpu "${2:?--cpu needs a number}"); shift 2 ;;
    --timeout) timeout_s=${2:?--timeout needs seconds}; shift 2 ;;
    --no-screens) screens=0; shift ;;
    --window) window=1; shift ;;
    --instrument-arg) instrument_args+=(--instrument-arg "${2:?--instrument-arg needs a value}"); shift 2 ;;
    --) shift; break ;;
    -*) usage "unknown option '$1'" ;;
    *) break ;;
    esac
done
[ -n "$build" ] || usage "name the build tree: --build DIR or UPDATER_BUILD_DIR"
build=$(cd "$build" && pwd)
[ $# -gt 0 ] && [ $(($# % 3)) = 0 ] || usage "expected JOB PACKAGE OUT triples, got: $*"
[[ $timeout_s =~ ^[0-9]+$ ]] || usage "--timeout takes whole seconds, got '$timeout_s'"
if [ -n "$session" ]; then
    [ "$window" = 0 ] || usage "--window leaves the updater open after a job: not with --session"
    mkdir -p "$session" && session=$(cd "$session" && pwd) || usage "cannot create the folder '$session'"
fi
[ ${#instrument_args[@]} -gt 0 ] || instrument_args=(--instrument-arg --pic --instrument-arg --serial --instrument-arg esa)
for part in updater/updater sim/instrument/sim-instrument sim/probe/plugins/generic/libprobe.so; do
    [ -e "$build/$part" ] || usage "$build/$part is missing: build it first"
done

# The updater runs from where the instrument has it (the sandbox installs the build's there), so that
# replacing or removing its own file meets what it meets on the instrument, and in /, as the instrument
# starts it.
profile=${SIM_PROFILE:-$repo/sim/profile/instrument.profile}
installed=$(sed -n 's/^updater \(\/.*\)$/\1/p' "$profile" 2>/dev/null) ||
    usage "cannot read the instrument profile '$profile'"
[ -n "$installed" ] || usage "the instrument profile '$profile' names no updater path"

jobs=() packages=() outs=()
while [ $# -gt 0 ]; do
    case "$1" in stick | pc) ;; *) usage "unknown job '$1' (stick or pc)" ;; esac
    [ "$2" = none ] || [ -f "$2" ] || usage "no package at '$2'"
    mkdir -p "$3" || usage "cannot create the folder '$3'"
    jobs+=("$1")
    packages+=("$([ "$2" = none ] && echo none || echo "$(cd "$(dirname "$2")" && pwd)/$(basename "$2")")")
    outs+=("$(cd "$3" && pwd)")
    shift 3
done

control=$(mktemp -d /tmp/technician.XXXXXX)
batch_pid="" follower="" events="" stopped=0
cleanup() {
    [ -z "$events" ] || exec {events}<&-
    [ -z "$follower" ] || kill "$follower" 2>/dev/null || true
    if [ -n "$batch_pid" ]; then
        # The end of the batch's jobs: it stops its instrument and ends; stopped, it stops its run first.
        exec {jobs_fd}>&-
        [ "$stopped" = 0 ] || kill -TERM "$batch_pid" 2>/dev/null || true
        wait "$batch_pid" 2>/dev/null || true
    fi
    rm -rf "$control"
}
trap cleanup EXIT
trap 'stopped=1; exit 130' INT TERM

# The updater sees the probe's fifo and the job's folder through the state folder the sandbox binds.
platform=(--env QT_QPA_PLATFORM=offscreen)
if [ "$window" = 1 ]; then
    [ -n "${DISPLAY:-}" ] || usage "--window needs a display (DISPLAY is not set)"
    platform=(--env QT_QPA_PLATFORM=xcb --env "DISPLAY=$DISPLAY" --bind /tmp/.X11-unix /tmp/.X11-unix)
    [ -z "${XAUTHORITY:-}" ] || platform+=(--bind "$XAUTHORITY" "$XAUTHORITY" --env "XAUTHORITY=$XAUTHORITY")
fi
mkfifo "$control/jobs"
exec {jobs_fd}<>"$control/jobs"
"$repo/sim/sandbox" --build "$build" --instrument "${instrument_args[@]}" "${cpu[@]}" --batch "$control/jobs" \
    "${platform[@]}" --env "QT_PLUGIN_PATH=$build/sim/probe/plugins" --env QT_QPA_GENERIC_PLUGINS=probe --chdir / \
    -- "$installed" >"$control/sandbox.out" 2>&1 \
    {jobs_fd}>&- &
batch_pid=$!

# What the technician notices comes as lines of the probe's reports and of the run's start and end;
# tail follows them as they are written and ends with the batch.
follow() { # <out>
    [ -z "$events" ] || exec {events}<&-
    [ -z "$follower" ] || kill "$follower" 2>/dev/null || true
    exec {events}< <(exec tail -q -n +1 --pid="$batch_pid" -f "$1/probe.txt" "$1/sandbox.log" 2>/dev/null \
        {jobs_fd}>&-)
    follower=$!
}
event="" deadline=0 why="" run="" run_stopped=1
# Reads events until one matches the extended regex; fails at the deadline or when the run has ended.
await() { # <regex>
    local left
    while :; do
        left=$((deadline - SECONDS))
        [ "$left" -gt 0 ] || { why="timed out waiting for /$1/"; return 1; }
        IFS= read -r -t "$left" -u "$events" event || {
            [ $? -gt 128 ] && continue
            why="the sandbox ended"
            return 1
        }
        [[ $event =~ $1 ]] && return 0
        [[ $event =~ ^ended\ ([0-9]+) ]] && { why="the updater ended (exit status ${BASH_REMATCH[1]})"; return 1; }
        [[ $event =~ ^refused ]] && { why="the probe $event"; return 1; }
    done
}
# Commands to the probe; the effect, not an acknowledgement, is what the caller then waits for.
tell() { echo "$*" >&"$keys_fd"; }
key() { tell key "$1"; }
shot() { [ "$screens" = 0 ] || { tell shot "$1" && await "^shot $1\$"; }; }
# The end of a job is its last red or green line, or the PC job's failed start.
job_end='^view (red|green) (Update complete|Some of the updates failed|Could not find update file|Failed to [a-z]+ (update|PC))'

# The root's upper layer as the job finds it, before any key: what the sandbox made for its own mounts
# (the state reader leaves it out). In the instrument profile's format.
record_start() { # <out>
    {
        echo "format 1"
        find "$1/rootfs" \( -type l -printf 'entry l %m %U %G 0 /%P %l\n' \) -o \
            \( -type f -printf 'entry f %m %U %G %s /%P\n' \) -o -printf 'entry %y %m %U %G 0 /%P\n'
    } >"$1/rootfs.start"
}

# One job: leaves "ended" or the reason in $why.
play() { # <job> <package> <out>
    local job=$1 package=$2
    why=""
    if [ "$job" = stick ]; then
        key F3 && await '^view plain Insert a memory stick' && key F1 || return 1
    else
        key F2 && await '^view plain Attach the unit to the PC' && key F1 &&
            await '^view (plain Copy the firmware_update_tar.bz2|red Failed to initialise PC connection)' ||
            return 1
        [[ $event =~ ^view\ red ]] && { why="the USB gadget did not load"; return 1; }
        [ "$package" = none ] || cp "$package" "$state_dir/media/mmcblk0p6/"
        say "copied the package onto the transfer partition"
        key F1 || return 1
    fi
    await "$job_end" || return 1
    local end=${event#view * }
    tell save-view view.txt
    await '^saved-view ' && shot end || return 1
    say "the job ended: $end"
    if [ "$window" = 1 ]; then
        say "the updater stays open: use F1..F5 and F7 in its window; close it to end"
        deadline=$((SECONDS + 100000000))
        await '^ended ' || true
        return 0
    fi
    # Back at the menu (the next job of a session starts there).
    if [ "$screens" = 1 ] || [ -n "$session" ]; then
        key F1 && await '^painted UpdaterMainScreen$' && shot menu || return 1
    fi
}

# What an earlier run left in a state folder; inputs such as faults and system stay.
clear_state() { # <folder>
    rm -rf "${1:?}/rootfs" "${1:?}/media" "${1:?}/pic" "${1:?}/keys"
    rm -f "$1"/{calls.log,trace.log,clock.log,line-changes,probe.txt,updater.log,updater.pid,sandbox.log,view.txt,outcome,rootfs.start} \
        "$1"/{end,menu}{,-raw}.png
    mkdir -p "$1/media"
}
# The job's medium: a stick with the package on it (a new stick for every job), or the PC job's transfer
# partition (play copies the package onto it, as the PC does).
insert() { # <job> <package> <state folder>
    if [ "$1" = stick ]; then
        rm -rf "$3/media/sda1"
        mkdir -p "$3/media/sda1"
        [ "$2" = none ] || cp "$2" "$3/media/sda1/"
    else
        mkdir -p "$3/media/mmcblk0p6"
    fi
}
# One run of the updater on the state folder: the probe's fifo, its reports followed, the run asked for.
start_run() { # <state folder>
    mkfifo "$1/keys"
    # Held open by the technician too, so a write never waits for the updater, alive or not.
    exec {keys_fd}<>"$1/keys"
    : >"$1/probe.txt"
    : >"$1/sandbox.log"
    follow "$1"
    echo "$1" >&"$jobs_fd"
    deadline=$((SECONDS + timeout_s))
    run="" why="" run_stopped=0
    await '^started [0-9]+$' || return 1
    run=${event#started }
    await '^painted UpdaterMainScreen$' && record_start "$1"
}
# The updater is done with: asked to quit, or stopped with its whole run when it does not.
stop_run() {
    [ "$run_stopped" = 0 ] || return 0
    run_stopped=1
    if [ -n "$run" ] && ! [[ $event =~ ^ended ]]; then
        tell quit
        deadline=$((SECONDS + 10))
        await '^ended ' || { kill -TERM -- "-$run" 2>/dev/null || true; deadline=$((SECONDS + 30)); await '^ended ' || true; }
    fi
    exec {keys_fd}>&-
}
# A run that never started: the sandbox's own word, and the end.
never_started() {
    if [ -z "$run" ] && ! kill -0 "$batch_pid" 2>/dev/null; then
        set +e
        wait "$batch_pid"
        rc=$?
        set -e
        batch_pid=""
        cat "$control/sandbox.out" >&2
        [ "$rc" = 77 ] && exit 77
        say "the sandbox ended before the job started (exit status $rc)"
        exit 1
    fi
}
# The job's end in the state folder given, for the job's OUT.
record_outcome() { # <state folder>
    if [ -z "$why" ]; then
        echo ended >"$1/outcome"
    else
        echo "not ended: $why" >"$1/outcome"
        say "$out: the job did not reach its end: $why"
        status=1
    fi
}

status=0
if [ -n "$session" ]; then
    state_dir=$session
    clear_state "$session"
    start_run "$session" || never_started
    halted=${why:+the updater did not start: $why}
    for i in "${!jobs[@]}"; do
        out=${outs[$i]}
        rm -f "$out"/{trace.log,view.txt,outcome} "$out"/{end,menu}{,-raw}.png
        if [ -n "$halted" ]; then
            say "${packages[$i]}: not run: $halted"
            status=1
            continue
        fi
        insert "${jobs[$i]}" "${packages[$i]}" "$session"
        rm -f "$session"/{view.txt,outcome} "$session"/{end,menu}{,-raw}.png
        seen=$({ wc -l <"$session/trace.log"; } 2>/dev/null || echo 0)
        deadline=$((SECONDS + timeout_s))
        play "${jobs[$i]}" "${packages[$i]}" "$session" || true
        # The PIC's memories as this job left them (the sandbox copies them only when the run ends).
        [ -n "$why" ] || { tell save-pic && await '^saved-pic'; } || true
        record_outcome "$session"
        if [ -n "$why" ]; then
            stop_run
            halted="a job before it did not end"
        fi
        tail -n +$((seen + 1)) "$session/trace.log" >"$out/trace.log" 2>/dev/null || true
        for file in view.txt outcome {end,menu}{,-raw}.png; do
            [ ! -e "$session/$file" ] || cp "$session/$file" "$out/"
        done
        echo "done $out"
        IFS= read -r _ || true
    done
    stop_run
    exit $status
fi

for i in "${!jobs[@]}"; do
    out=${outs[$i]}
    state_dir=$out
    clear_state "$out"
    insert "${jobs[$i]}" "${packages[$i]}" "$out"
    start_run "$out" && play "${jobs[$i]}" "${packages[$i]}" "$out" || true
    record_outcome "$out"
    stop_run
    [ -z "$run" ] || echo "done $out"
    never_started
done
exit $status
