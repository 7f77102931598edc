#!/usr/bin/env bash
# Renders four kinds of material through `tavrine stretch` ("Efficient V3")
# so that a person can listen to what the stretcher does to them: a drum loop
# (kick, snare, closed hat on a 120 bpm grid, the sides slightly different), a
# bass line (E1 G1 A1 D2 B1), a pad (three notes, two detuned voices each,
# slow attack, one voice leaning to each side) and a speech-like voice (a
# gliding sawtooth through formant peaks, vowels a i u, hissing consonants and
# short pauses). All are built with sox, 2 s or so, 44.1 kHz stereo.
#
# Cases: T = 0.8, 1.25 and 2 at pitch 0; pitch -5 and +5 at T = 1; for the
# voice also pitch -5 and +5 with the formants kept (--formant 2^(-S/12)).
#
# Run from the repository root after a release build:
#   tools/stretch_audition.sh [OUT_DIR]
# OUT_DIR defaults to a new directory under ${TMPDIR:-/tmp}. Needs sox, soxi
# and awk. Environment: TAVRINE_BIN, our executable (default: found under
# build/release).
#
# Prints the directory and one row per file: frames, whether the length is
# exactly round(T x input frames), peak and RMS level (sox stats) and the RMS
# change against the input. Exits 1 if a render fails or has a wrong length.
set -euo pipefail

readonly RATE=44100
readonly MODE="Efficient V3"
# time factor, pitch in semitones, formant factor ("-": not given)
readonly CASES=("0.8 0 -" "1.25 0 -" "2 0 -" "1 -5 -" "1 5 -")
readonly VOICE_CASES=("1 -5 1.33484" "1 5 0.749154")

die() { echo "stretch_audition: $*" >&2; exit 1; }

for tool in sox soxi awk; do
    command -v "$tool" > /dev/null || die "needs $tool"
done

if [[ -n "${TAVRINE_BIN:-}" ]]; then
    ours="$TAVRINE_BIN"
else
    ours=$(find build/release -path '*tavrine_artefacts*' -name tavrine -type f -perm -u+x 2> /dev/null | head -n 1)
fi
[[ -n "$ours" && -x "$ours" ]] || die "no release build of tavrine (run from the repository root after a release build, or set TAVRINE_BIN)"

out="${1:-$(mktemp -d "${TMPDIR:-/tmp}/stretch-audition.XXXXXX")}"
mkdir -p "$out"
parts=$(mktemp -d "${TMPDIR:-/tmp}/stretch-audition-parts.XXXXXX")
trap 'rm -rf "$parts"' EXIT

# -R everywhere: the same noise and dither on every run.
mono() { sox -R -n -r "$RATE" -c 1 -b 32 -e floating-point "$@"; }

# Drums: eight hits two sixteenths apart (K H S K K H S H), each in a 0.25 s
# slot; the right side has its hats brighter and louder, its snare softer.
make_drums() {
    local side hit i files
    for side in left right; do
        local hat_gain=-14 hat_hp=7000 snare_gain=-7
        [[ "$side" == right ]] && hat_gain=-10 hat_hp=8500 snare_gain=-9
        mono "$parts/kick.wav" synth 0.25 sine 150/50 fade l 0 0.25 0.24 gain -3
        mono "$parts/snare.wav" synth 0.25 whitenoise synth 0.25 sine mix 190 gain -3 fade l 0 0.25 0.245 gain "$snare_gain"
        mono "$parts/hat.wav" synth 0.06 whitenoise gain -6 highpass "$hat_hp" fade l 0 0.06 0.06 pad 0 0.19 gain "$hat_gain"
        files=()
        i=0
        for hit in kick hat snare kick kick hat snare hat; do
            cp "$parts/$hit.wav" "$parts/$side$i.wav"
            files+=("$parts/$side$i.wav")
            i=$((i + 1))
        done
        sox -R "${files[@]}" "$parts/drums_$side.wav" pad 0.05 0.05
    done
    sox -R -M "$parts/drums_left.wav" "$parts/drums_right.wav" -b 16 "$out/drums.wav" gain -n -2
}

# Bass: 0.4 s per note, a sawtooth rolled off above 300 Hz, 4 ms edges.
make_bass() {
    local note files=()
    for note in E1 G1 A1 D2 B1; do
        mono "$parts/bass_$note.wav" synth 0.4 sawtooth "$note" lowpass 300 lowpass 300 fade q 0.004 0.4 0.004
        files+=("$parts/bass_$note.wav")
    done
    sox -R "${files[@]}" -b 16 "$out/bass.wav" pad 0.05 0.05 channels 2 gain -n -3
}

# Pad: A2 E3 C#4 in two voices 4 cents apart (2 cents either side); one
# voice 0.8 on the left and 0.2 on the right, the other the reverse.
make_pad() {
    mono "$parts/pad_low.wav" synth 2 triangle 109.873 synth 2 triangle mix 164.620 synth 2 triangle mix 276.860 \
        lowpass 1500 fade q 0.4 2 0.1
    mono "$parts/pad_high.wav" synth 2 triangle 110.127 synth 2 triangle mix 165.000 synth 2 triangle mix 277.500 \
        lowpass 1500 fade q 0.4 2 0.1
    sox -R -m -v 0.8 "$parts/pad_low.wav" -v 0.2 "$parts/pad_high.wav" "$parts/pad_left.wav"
    sox -R -m -v 0.2 "$parts/pad_low.wav" -v 0.8 "$parts/pad_high.wav" "$parts/pad_right.wav"
    sox -R -M "$parts/pad_left.wav" "$parts/pad_right.wav" -b 16 "$out/pad.wav" gain -n -3
}

# Voice: seven syllables of 280 ms, a 50 ms hiss, a 190 ms vowel whose
# pitch follows 140 - 40 cos(pi t) Hz (100 Hz at the ends, 180 Hz at 1 s),
# 40 ms of silence.
make_voice() {
    local formants=("730 1090 2440" "270 2290 3010" "300 870 2240")
    local s f0a f0b f1 f2 f3 files=()
    for s in 0 1 2 3 4 5 6; do
        read -r f0a f0b <<< "$(awk -v s="$s" 'BEGIN { a = 0.07 + 0.28 * s; b = a + 0.19;
            printf "%.2f %.2f", 140 - 40 * cos(3.14159265 * a), 140 - 40 * cos(3.14159265 * b) }')"
        read -r f1 f2 f3 <<< "${formants[$((s % 3))]}"
        mono "$parts/hiss$s.wav" synth 0.05 whitenoise gain -6 bandpass 4500 2000h fade h 0.025 0.05 0.025 gain -12
        mono "$parts/vowel$s.wav" synth 0.19 sawtooth "$f0a:$f0b" lowpass 1000 \
            equalizer "$f1" 80h 18 equalizer "$f2" 100h 18 equalizer "$f3" 140h 15 fade q 0.02 0.19 0.02 pad 0 0.04
        files+=("$parts/hiss$s.wav" "$parts/vowel$s.wav")
    done
    sox -R "${files[@]}" -b 16 "$out/voice.wav" pad 0.02 0 channels 2 gain -n -3
}

row() { printf '%-34s %9s %6s %9s %9s %8s\n' "$@"; }

# Peak and RMS level in dB of a file (sox stats, all channels together).
levels() {
    sox "$1" -n stats 2>&1 | awk '$1 == "Pk" && $2 == "lev" { pk = $4 } $1 == "RMS" && $2 == "lev" { rms = $4 }
        END { print pk, rms }'
}

make_drums
make_bass
make_pad
make_voice

echo "Stretching with $ours --mode \"$MODE\" into $out"
echo
row "file" "frames" "length" "peak dB" "RMS dB" "dRMS dB"
printf -- "-%.0s" {1..80}
echo

failed=0
for material in drums bass pad voice; do
    input="$out/$material.wav"
    frames=$(soxi -s "$input")
    read -r in_peak in_rms <<< "$(levels "$input")"
    row "$material.wav" "$frames" "input" "$in_peak" "$in_rms" ""
    cases=("${CASES[@]}")
    [[ "$material" == voice ]] && cases+=("${VOICE_CASES[@]}")
    for case in "${cases[@]}"; do
        read -r t p f <<< "$case"
        name="${material}_T${t}_p${p}"
        args=(--mode "$MODE" --time "$t" --pitch="$p")
        if [[ "$f" != "-" ]]; then
            name="${name}_formants_kept"
            args+=(--formant "$f")
        fi
        result="$out/$name.wav"
        if ! "$ours" stretch "${args[@]}" "$input" "$result" > /dev/null 2> "$parts/error.txt"; then
            row "$name.wav" "-" "FAILED" "" "" ""
            sed 's/^/    /' "$parts/error.txt"
            failed=1
            continue
        fi
        expected=$(awk -v t="$t" -v n="$frames" 'BEGIN { printf "%d", t * n + 0.5 }')
        got=$(soxi -s "$result")
        length="ok"
        if [[ "$got" != "$expected" ]]; then
            length="want $expected"
            failed=1
        fi
        read -r peak rms <<< "$(levels "$result")"
        change=$(awk -v a="$rms" -v b="$in_rms" 'BEGIN { printf "%+.2f", a - b }')
        row "$name.wav" "$got" "$length" "$peak" "$rms" "$change"
    done
done

echo
echo "Files in $out"
if [[ "$failed" -ne 0 ]]; then
    die "a stretch failed or gave a wrong length"
fi
