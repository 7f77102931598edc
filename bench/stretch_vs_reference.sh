#!/usr/bin/env bash
# Offline stretch speed of `tavrine stretch` ("Efficient V3") against the
# reference command-line stretcher (`rubberband`, its default engine and
# --fine), on one test file, with the same factors, measured in the same run.
#
# Run from the repository root after a release build:
#   cmake --preset release && cmake --build --preset release --target tavrine
#   bench/stretch_vs_reference.sh
#
# Needs sox, soxi, rubberband and GNU time. Environment:
#   TAVRINE_BIN  our executable (default: found under build/release)
#   REPEATS      runs of each engine per case, summed (default 5): GNU time
#                gives hundredths of a second, and one of our runs takes a tenth
#   KEEP_DIR     set to keep the test file and outputs (printed at the end)
#
# x realtime = input duration / wall time per run, process start, reading and
# writing included on both sides. The ratios ours/default above 1 mean we are
# faster; the CPU one is the steadier on a loaded machine.
set -euo pipefail

readonly SECONDS_OF_AUDIO=10
readonly RATE=44100
readonly MODE="Efficient V3"
readonly REPEATS="${REPEATS:-5}"
# time factor and pitch in semitones per case
readonly CASES=("0.5 0" "0.8 0" "1.25 0" "2 0" "4 0" "1 -7" "1 5")

die() { echo "stretch_vs_reference: $*" >&2; exit 1; }

for tool in sox soxi rubberband /usr/bin/time awk; do
    command -v "$tool" > /dev/null || die "needs $tool"
done
[[ "$REPEATS" =~ ^[1-9][0-9]*$ ]] || die "REPEATS must be a positive whole number"

if [[ -n "${TAVRINE_BIN:-}" ]]; then
    ours="$TAVRINE_BIN"
else
    ours=$(find build/release -path '*tavrine_artefacts*' -name tavrine -type f -perm -u+x 2> /dev/null | head -n 1)
fi
[[ -n "$ours" && -x "$ours" ]] || die "no release build of tavrine (run from the repository root after a release build, or set TAVRINE_BIN)"

work=$(mktemp -d "${TMPDIR:-/tmp}/stretch-bench.XXXXXX")
if [[ -z "${KEEP_DIR:-}" ]]; then
    trap 'rm -rf "$work"' EXIT
fi

# The test file: plucked notes (attacks and decays), a sustained chord that
# differs between the sides, and short noise bursts between the notes.
make_input() {
    local d="$work/parts"
    mkdir -p "$d"
    local notes=(C3 G3 E4 A3)
    local files=()
    for i in "${!notes[@]}"; do
        sox -n -r "$RATE" -c 1 "$d/pluck$i.wav" synth 0.5 pluck "${notes[$i]}" fade 0 0.5 0.05
        files+=("$d/pluck$i.wav")
    done
    local bars=$((SECONDS_OF_AUDIO / 2))
    sox "${files[@]}" "$d/plucks.wav" repeat $((bars - 1))
    sox -n -r "$RATE" -c 2 "$d/chord_a.wav" synth "$SECONDS_OF_AUDIO" sine 220 sine 329.63 vol 0.12
    sox -n -r "$RATE" -c 2 "$d/chord_b.wav" synth "$SECONDS_OF_AUDIO" sine 277.18 sine 440 vol 0.08
    sox -n -r "$RATE" -c 1 "$d/burst.wav" synth 0.04 whitenoise vol 0.5 pad 0.21 0.25
    sox "$d/burst.wav" "$d/bursts.wav" repeat $((SECONDS_OF_AUDIO * 2 - 1))
    sox -M "$d/plucks.wav" "$d/plucks.wav" "$d/plucks2.wav"
    sox -M "$d/bursts.wav" "$d/bursts.wav" "$d/bursts2.wav"
    # -m scales each input by 1/4, so nothing clips before the normalisation.
    sox -m "$d/plucks2.wav" "$d/chord_a.wav" "$d/chord_b.wav" "$d/bursts2.wav" \
        -b 16 "$work/input.wav" trim 0 "$SECONDS_OF_AUDIO" gain -n -1
}

readonly ENGINES=(ours default fine)

# Runs one engine on the input under GNU time and prints the wall and CPU
# (user + system) seconds of the run, or FAILED.
time_engine() {
    local engine=$1 t=$2 p=$3 out=$4
    local cmd
    case "$engine" in
        ours) cmd=("$ours" stretch --mode "$MODE" --time "$t" --pitch="$p" "$work/input.wav" "$out") ;;
        default) cmd=(rubberband -q -t "$t" -p "$p" "$work/input.wav" "$out") ;;
        fine) cmd=(rubberband -q --fine -t "$t" -p "$p" "$work/input.wav" "$out") ;;
    esac
    if /usr/bin/time -o "$work/time.txt" -f "%e %U %S" "${cmd[@]}" > /dev/null 2>&1; then
        awk '{ print $1, $2 + $3 }' "$work/time.txt"
    else
        echo FAILED
    fi
}

# Input seconds per second of the summed time, for the summed runs.
realtime() {
    [[ "$1" == FAILED ]] && { echo "-"; return; }
    awk -v s="$SECONDS_OF_AUDIO" -v n="$REPEATS" -v t="$1" 'BEGIN { if (t > 0) printf "%.1f", s * n / t; else print "inf" }'
}

ratio() {
    awk -v a="$1" -v b="$2" 'BEGIN { if (a > 0 && b > 0) printf "%.2f", b / a; else print "-" }'
}

# "ok" when the file has exactly the expected frames, else what it has.
length_check() {
    local got
    got=$(soxi -s "$1" 2> /dev/null) || { echo "missing"; return; }
    [[ "$got" == "$2" ]] && echo "ok" || echo "$got"
}

make_input
frames=$(soxi -s "$work/input.wav")
[[ "$frames" -eq $((SECONDS_OF_AUDIO * RATE)) ]] || die "test file has $frames frames, not $((SECONDS_OF_AUDIO * RATE))"

echo "Input: $SECONDS_OF_AUDIO s stereo at $RATE Hz, $frames frames (plucks, chord, noise bursts)"
echo "Ours: $ours --mode \"$MODE\"; reference: rubberband $(rubberband --version 2>&1 | head -n 1)"
echo "Runs interleaved (ours, default, fine) $REPEATS times per case, so that a change of load"
echo "on a shared machine falls on all three; x realtime = input seconds / wall seconds."
echo
fmt="%-6s %-6s | %8s %8s %8s | %8s %8s | %-6s %-6s %-6s\n"
printf "$fmt" "time" "pitch" "ours" "default" "fine" "ours/def" "ours/def" "len:us" "def" "fine"
printf "$fmt" "" "" "x rt" "x rt" "x rt" "wall" "cpu" "" "" ""
printf -- "-%.0s" {1..86}
echo

failed=0
for case in "${CASES[@]}"; do
    read -r t p <<< "$case"
    expected=$(awk -v t="$t" -v n="$frames" 'BEGIN { printf "%d", t * n + 0.5 }')
    base="$work/t${t}_p${p}"

    declare -A wall=() cpu=()
    for e in "${ENGINES[@]}"; do
        wall[$e]=0
        cpu[$e]=0
    done
    for ((r = 0; r < REPEATS; ++r)); do
        for e in "${ENGINES[@]}"; do
            [[ "${wall[$e]}" == FAILED ]] && continue
            read -r w c <<< "$(time_engine "$e" "$t" "$p" "$base.$e.wav")"
            if [[ "$w" == FAILED ]]; then
                wall[$e]=FAILED
                continue
            fi
            wall[$e]=$(awk -v a="${wall[$e]}" -v b="$w" 'BEGIN { print a + b }')
            cpu[$e]=$(awk -v a="${cpu[$e]}" -v b="$c" 'BEGIN { print a + b }')
        done
    done

    ours_len=$(length_check "$base.ours.wav" "$expected")
    def_len=$(length_check "$base.default.wav" "$expected")
    fine_len=$(length_check "$base.fine.wav" "$expected")
    [[ "${wall[ours]}" == FAILED || "$ours_len" != ok ]] && failed=1

    printf "$fmt" "$t" "$p" "$(realtime "${wall[ours]}")" "$(realtime "${wall[default]}")" "$(realtime "${wall[fine]}")" \
        "$(ratio "${wall[ours]}" "${wall[default]}")" "$(ratio "${cpu[ours]}" "${cpu[default]}")" \
        "$ours_len" "$def_len" "$fine_len"
done

echo
echo "ours/def: how many times faster ours is than the default engine, by wall and by CPU time."
echo "len: 'ok' when the output has exactly round(time x $frames) frames (soxi -s), else the frames found."
if [[ -n "${KEEP_DIR:-}" ]]; then
    echo "Files kept in $work"
fi
if [[ "$failed" -ne 0 ]]; then
    die "our stretch failed or gave a wrong length"
fi
