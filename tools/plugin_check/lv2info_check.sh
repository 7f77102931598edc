#!/bin/sh
# Checks a built LV2 bundle the way the reference LV2 tools see it: lv2info
# must find the URI, read its name and count its audio outputs.
#
#   lv2info_check.sh BUNDLE_DIR URI EXPECTED_NAME MIN_AUDIO_OUTPUTS
#
# lv2info runs with LV2_PATH set to a private directory that links only the
# bundle under test, and with a clean HOME, so that neither ~/.lv2 nor an
# installed copy of the same URI can answer instead. Exits 0 when every check
# holds, 1 otherwise.

set -u

if [ $# -ne 4 ]; then
    echo "usage: lv2info_check.sh BUNDLE_DIR URI EXPECTED_NAME MIN_AUDIO_OUTPUTS" >&2
    exit 2
fi
bundle=$1
uri=$2
expectedName=$3
minAudioOutputs=$4

fail() {
    echo "  FAIL  $*"
    echo "FAIL"
    exit 1
}

command -v lv2info >/dev/null 2>&1 || fail "lv2info is not installed (Debian package lilv-utils)"
[ -f "$bundle/manifest.ttl" ] || fail "no LV2 bundle (manifest.ttl) at $bundle"

work=$(mktemp -d "${TMPDIR:-/tmp}/tavrine-lv2info-XXXXXX") || fail "could not make a temporary directory"
# The link goes with the directory; the bundle itself is never touched.
trap 'rm -rf "$work"' EXIT
mkdir "$work/lv2" "$work/home" || fail "could not prepare $work"
bundleDir=$(cd "$bundle" && pwd) || fail "cannot enter $bundle"
ln -s "$bundleDir" "$work/lv2/$(basename "$bundleDir")" || fail "could not link the bundle into $work/lv2"

echo "lv2info $uri (LV2_PATH holds only $bundleDir)"
start=$(date +%s%N)
HOME="$work/home" LV2_PATH="$work/lv2" lv2info "$uri" >"$work/out" 2>"$work/err"
status=$?
end=$(date +%s%N)

# lilv reports unreadable or malformed Turtle on stderr and carries on.
if [ -s "$work/err" ]; then
    echo "  lv2info wrote to stderr:"
    sed 's/^/          /' "$work/err"
fi
[ $status -eq 0 ] || fail "lv2info exited with $status"
grep -qi "error" "$work/err" && fail "lilv reported errors reading the bundle"

# The plug-in's own lines are indented by one tab, the ports' by two.
name=$(awk '/^\tName:/ { sub(/^\tName:[ \t]*/, ""); print; exit }' "$work/out")
[ "$name" = "$expectedName" ] || fail "name \"$name\", expected \"$expectedName\""
echo "  ok    the name is \"$name\""

# A port's types span several lines: count the ports that are both audio and
# output.
audioOutputs=$(awk '
    function finish() { if (audio && output) ++count; audio = 0; output = 0 }
    /^\tPort [0-9]+:/ { finish() }
    /#AudioPort$/ { audio = 1 }
    /#OutputPort$/ { output = 1 }
    END { finish(); print count + 0 }' "$work/out")
ports=$(awk '/^\tPort [0-9]+:/ { ++n } END { print n + 0 }' "$work/out")
[ "$audioOutputs" -ge "$minAudioOutputs" ] ||
    fail "$audioOutputs audio output ports, expected at least $minAudioOutputs"
echo "  ok    $audioOutputs audio output ports (of $ports ports)"

echo "  note  lv2info took $(( (end - start) / 1000000 )) ms"
echo "PASS"
