#!/usr/bin/env bash
# Renders an instrument plug-in inside Ardour 7, headless, as a user's
# session would: ardour7-lua builds a 48 kHz session with one MIDI track, the
# instrument and a two-second MIDI region (make_session.lua), and
# ardour7-export renders it. A run passes when both tools exit 0 and the WAV
# is 48 kHz stereo and exactly the session's 96000 frames long; with
# --require-sound it must also not be silent.
#
#   ardour_export_check.sh --vst3 <bundle.vst3> --name <name> [options]
#   ardour_export_check.sh --lv2 <bundle.lv2> --name <name> [options]
#   ardour_export_check.sh --no-instrument [options]
#     (the same session without an instrument: a control for Ardour alone)
#
# Options:
#   --runs N          export the same session N times (default 1)
#   --fresh           make a new session for every run, not once
#   --load            keep two busy processes running beside the exports
#   --require-sound   fail a run whose export is silent
#   --cores DIR       keep the log and gdb stacks of every crash in DIR
#   --retry-known-ardour-faults
#                     run once more a run that crashed after writing a
#                     complete export, or hung before writing any audio (two
#                     Ardour 7.3 faults that happen with any instrument or
#                     none); a second crash or hang counts
#   --work DIR        work in DIR (kept) instead of a removed temporary one
#
# Each run prints one line "run <i>: ok|crash <signal>|fail <why>"; the
# last line is "summary: <crashes> crashes, <failures> failures, <runs> runs,
# <n> retried after a known Ardour fault, <n> hangs" (an export still running
# after 120 s is killed and counted as a hang).
# The exit status is 0 only when every run passed.
#
# The plug-in is seen through private search paths that hold only the bundle
# under test, with a clean HOME, so that a copy installed elsewhere can
# neither win over it nor mix with it.
set -u

usage() { sed -n '2,36p' "$0" >&2; exit 2; }

kind="" bundle="" name="" runs=1 fresh=0 load=0 require_sound=0 cores="" work="" retry_known=0
# The self-test shortens it to provoke a hang.
export_timeout="${ARDOUR_CHECK_EXPORT_TIMEOUT:-120}"
while (($#)); do
    case "$1" in
        --vst3) kind=VST3 bundle="$2"; shift ;;
        --lv2) kind=LV2 bundle="$2"; shift ;;
        --no-instrument) kind=NONE bundle=/dev/null name=none ;;
        --name) name="$2"; shift ;;
        --runs) runs="$2"; shift ;;
        --fresh) fresh=1 ;;
        --load) load=1 ;;
        --require-sound) require_sound=1 ;;
        --retry-known-ardour-faults) retry_known=1 ;;
        --cores) cores="$2"; shift ;;
        --work) work="$2"; shift ;;
        *) usage ;;
    esac
    shift
done
[ -n "$kind" ] && [ -n "$name" ] && [ -e "$bundle" ] || usage

here="$(cd "$(dirname "$0")" && pwd)"
lua_tool="$(command -v ardour7-lua || echo /usr/bin/ardour7-lua)"
export_tool="$(command -v ardour7-export || echo /usr/bin/ardour7-export)"
for tool in "$lua_tool" "$export_tool" sox soxi; do
    command -v "$tool" > /dev/null || { echo "ardour_export_check: missing $tool" >&2; exit 2; }
done

remove_work=0
if [ -z "$work" ]; then
    work="$(mktemp -d "${TMPDIR:-/tmp}/ardour-check.XXXXXX")"
    remove_work=1
fi
mkdir -p "$work/vst3" "$work/lv2" "$work/home"
[ "$kind" = NONE ] || bundle="$(cd "$(dirname "$bundle")" && pwd)/$(basename "$bundle")"
if [ "$kind" = NONE ]; then
    :
elif [ "$kind" = VST3 ]; then
    ln -sfn "$bundle" "$work/vst3/$(basename "$bundle")"
else
    ln -sfn "$bundle" "$work/lv2/$(basename "$bundle")"
fi
export HOME="$work/home" VST3_PATH="$work/vst3" LV2_PATH="$work/lv2"

# Ardour lists a VST3 only from its scan cache, which its own scanner writes
# (keyed by the path Ardour will search, hence the link's path).
if [ "$kind" = VST3 ]; then
    if ! LD_LIBRARY_PATH=/usr/lib/ardour7 /usr/lib/ardour7/ardour-vst3-scanner -q -f \
        "$work/vst3/$(basename "$bundle")" > "$work/scan.log" 2>&1; then
        echo "ardour_export_check: the VST3 scan failed" >&2
        tail -5 "$work/scan.log" >&2
        exit 1
    fi
fi

busy_pids=()
cleanup() {
    for pid in "${busy_pids[@]}"; do kill "$pid" 2> /dev/null; done
    busy_pids=()
    ((remove_work)) && rm -rf "$work"
}
trap cleanup EXIT
if ((load)); then
    for _ in 1 2; do
        sh -c 'while :; do :; done' &
        busy_pids+=($!)
    done
fi

session="$work/session"
make_session() {
    rm -rf "$session"
    # Session creation itself is not under test; retry a failed one.
    for attempt in 1 2 3; do
        if "$lua_tool" "$here/make_session.lua" "$session" check "$name" "$kind" \
            > "$work/lua.log" 2>&1 && [ -f "$session/check.ardour" ]; then
            # Promote the range marker the script added to the session range,
            # which ardour7-export renders.
            sed -i 's/name="range1"\(.*\)flags="IsRangeMarker"/name="session"\1flags="IsSessionRange"/' \
                "$session/check.ardour"
            grep -q 'flags="IsSessionRange"' "$session/check.ardour" && return 0
        fi
        echo "session attempt $attempt failed:" >&2
        grep -v "new MIDI buffer" "$work/lua.log" | tail -5 >&2
        rm -rf "$session"
    done
    return 1
}

# Prints why the exported WAV is not what the session should give, or
# nothing when it is.
wav_problem() {
    local wav="$1"
    if [ ! -s "$wav" ]; then
        echo "no WAV"
        return
    fi
    local format
    format="$(soxi -r "$wav" 2> /dev/null) $(soxi -c "$wav" 2> /dev/null) $(soxi -s "$wav" 2> /dev/null)"
    if [ "$format" != "48000 2 96000" ]; then
        echo "format (rate channels frames) $format"
        return
    fi
    if ((require_sound)); then
        local peak
        peak="$(sox "$wav" -n stat 2>&1 | awk '/Maximum amplitude/ { print $3 }')"
        awk -v p="$peak" 'BEGIN { exit !(p < 0.001) }' && echo "silent (peak $peak)"
    fi
}

keep_stacks() {
    local run="$1" core
    [ -n "$cores" ] || return 0
    mkdir -p "$cores"
    core="$(ls "$work"/core* 2> /dev/null | head -1)"
    [ -n "$core" ] || return 0
    local stem
    stem="$cores/$(basename "$bundle" | tr ' ' _)-$(date +%s)-run$run"
    cp "$work/export.log" "$stem.log"
    gdb -batch -ex 'info threads' -ex 'thread apply all bt 30' \
        /usr/lib/ardour7/utils/ardour7-export "$core" > "$stem.gdb" 2>&1
    rm -f "$core"
}

crashes=0 failures=0 hangs=0 retried=0 have_session=0
for ((i = 1; i <= runs; ++i)); do
    if ((!have_session || fresh)); then
        have_session=0
        make_session && have_session=1
        if ((!have_session)); then
            echo "run $i: fail session"
            failures=$((failures + 1))
            continue
        fi
    fi
    for attempt in 1 2; do
        wav="$work/export.wav"
        rm -f "$wav" "$work"/core*
        (
            cd "$work" || exit 2
            [ -n "$cores" ] && ulimit -c unlimited
            # A 2 s session exports in seconds; Ardour 7.3 sometimes hangs at
            # the start of an export (docs/ardour-export-crash.md).
            exec timeout --kill-after=10 "$export_timeout" "$export_tool" "$session" check -o "$wav"
        ) > "$work/export.log" 2>&1
        status=$?
        problem="$(wav_problem "$wav")"
        if ((status == 124)); then
            # Ardour 7.3 sometimes deadlocks at the start of an export
            # (docs/ardour-export-crash.md): such a run is run once more on
            # request; a hang of ours would come back.
            if ((retry_known && attempt == 1)) && [[ "$problem" == "no WAV" || "$problem" == *" 0" ]]; then
                echo "run $i: hang before any audio was written; retrying once"
                retried=$((retried + 1))
                continue
            fi
            hangs=$((hangs + 1))
            echo "run $i: hang (no exit after ${export_timeout} s), ${problem:-export complete}"
        elif ((status > 128)); then
            reason="$(grep -m1 -o 'free(): [a-z ]*\|double free[a-z ]*\|munmap_chunk(): [a-z ]*\|corrupted [a-z ]*' "$work/export.log")"
            keep_stacks "$i"
            # Ardour 7.3 sometimes dies after the export is complete, in its
            # own teardown (docs/ardour-export-crash.md). With
            # --retry-known-ardour-faults such a run is run once more: a crash
            # of ours at teardown would come back, Ardour's race rarely does.
            if ((retry_known && attempt == 1)) && [ -z "$problem" ]; then
                echo "run $i: crash signal $((status - 128))${reason:+ ($reason)} after a complete export; retrying once"
                retried=$((retried + 1))
                continue
            fi
            crashes=$((crashes + 1))
            echo "run $i: crash signal $((status - 128))${reason:+ ($reason)}, ${problem:-export complete}"
        elif ((status != 0)); then
            failures=$((failures + 1))
            echo "run $i: fail exit $status"
            tail -5 "$work/export.log" >&2
        elif [ -n "$problem" ]; then
            failures=$((failures + 1))
            echo "run $i: fail $problem"
        else
            echo "run $i: ok"
        fi
        break
    done
done

echo "summary: $crashes crashes, $failures failures, $runs runs, $retried retried after a known Ardour fault, $hangs hangs"
((crashes == 0 && failures == 0 && hangs == 0))
