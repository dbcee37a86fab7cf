#!/usr/bin/env bash
# What of the build machine a test run must leave as it was: / and /tmp (mode, owner, the names in them)
# and the mount table. scripts/test.sh and scripts/test-armhf.sh record it before ctest and compare after.
#   host-state.sh record FILE
#   host-state.sh compare FILE   prints what changed and exits 1 when anything did
# Other programs working in /tmp meanwhile show up too: compare on a machine the tests have to themselves.
set -euo pipefail

snapshot() {
    local dir
    for dir in / /tmp; do
        stat -c "folder %n %a %u %g" "$dir"
        find "$dir" -mindepth 1 -maxdepth 1 -printf "in $dir %f\n" | LC_ALL=C sort
    done
    # Mount point, file system type and source of every mount (not its options or numbers).
    awk '{ for (i = 7; $i != "-"; i++); print "mount", $5, $(i + 1), $(i + 2) }' /proc/self/mountinfo |
        LC_ALL=C sort
}

case "${1:-}" in
record) snapshot >"${2:?host-state.sh record FILE}" ;;
compare)
    if ! diff -u --label "before the tests" --label "after the tests" "${2:?host-state.sh compare FILE}" \
        <(snapshot); then
        echo "host-state: the tests changed the build machine (lines above: - before, + after)" >&2
        exit 1
    fi
    ;;
*) echo "usage: host-state.sh record|compare FILE" >&2; exit 2 ;;
esac
