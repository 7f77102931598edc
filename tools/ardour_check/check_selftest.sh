#!/usr/bin/env bash
# Shows that ardour_export_check.sh cannot pass vacuously: each case below is
# a way the check could wrongly pass, and must make it fail with the
# expected reason.
#   1. A bundle Ardour cannot load: the check must not render a session
#      without the instrument and call it a pass.
#   2. A silent render with --require-sound (the session without an
#      instrument): the silence test must see it.
#   3. An export that never finishes (provoked with a 1 s time-out): it must
#      fail even where known Ardour faults are run once more.
set -u
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d "${TMPDIR:-/tmp}/ardour-selftest.XXXXXX")"
trap 'rm -rf "$work"' EXIT
failed=0

expect() {
    local label="$1" pattern="$2"
    shift 2
    local output status
    output="$("$@" 2>&1)"
    status=$?
    if ((status == 0)) || ! grep -q "$pattern" <<< "$output"; then
        echo "FAIL $label: exit $status, expected a failure matching '$pattern'; output:"
        tail -8 <<< "$output"
        failed=1
    else
        echo "ok   $label"
    fi
}

mkdir -p "$work/Broken.vst3/Contents/x86_64-linux"
echo "not a shared object" > "$work/Broken.vst3/Contents/x86_64-linux/Broken.so"
expect "unloadable bundle" "run 1: fail session" \
    "$here/ardour_export_check.sh" --vst3 "$work/Broken.vst3" --name "Broken"

expect "silent render" "run 1: fail silent" \
    "$here/ardour_export_check.sh" --no-instrument --require-sound

ARDOUR_CHECK_EXPORT_TIMEOUT=1 expect "hang, run twice" "run 1: hang" \
    "$here/ardour_export_check.sh" --no-instrument --retry-known-ardour-faults

exit $failed
