#!/usr/bin/env bash
# Runs the Ardour export check on several instruments in turn, in rounds, so
# that every variant sees the same machine load, and counts crashes per
# variant. Used to find out whether an export crash follows our plug-in or
# happens with any instrument.
#
#   compare_variants.sh <build dir> <rounds> <runs per round> [--load] [variant...]
#
# Variants: tavrine-vst3 tavrine-lv2 minimal-vst3 minimal-lv2 bare-vst3 ace-lv2
# none (default: all). Crash stacks go to <build dir>/ardour-check/cores.
set -u
build="$1" rounds="$2" per="$3"
shift 3
load_flag=()
if [ "${1:-}" = --load ]; then load_flag=(--load); shift; fi
variants=("$@")
((${#variants[@]})) || variants=(tavrine-vst3 tavrine-lv2 minimal-vst3 minimal-lv2 bare-vst3 ace-lv2 none)

here="$(cd "$(dirname "$0")" && pwd)"
shell_art="$build/shell/Tavrine2_artefacts/Debug"
minimal_art="$build/tools/plugin_check/ardour_check/minimal/MinimalSineCheck_artefacts/Debug"
bare="$build/tools/plugin_check/ardour_check/bare_vst3/Bare Sine Check.vst3"
out="$build/ardour-check"
mkdir -p "$out"

args_for() {
    case "$1" in
        tavrine-vst3) echo --vst3; echo "$shell_art/VST3/Tavrine 2.vst3"; echo --name; echo "Tavrine 2" ;;
        tavrine-lv2) echo --lv2; echo "$shell_art/LV2/Tavrine 2.lv2"; echo --name; echo "Tavrine 2" ;;
        minimal-vst3) echo --vst3; echo "$minimal_art/VST3/Minimal Sine Check.vst3"; echo --name; echo "Minimal Sine Check" ;;
        minimal-lv2) echo --lv2; echo "$minimal_art/LV2/Minimal Sine Check.lv2"; echo --name; echo "Minimal Sine Check" ;;
        bare-vst3) echo --vst3; echo "$bare"; echo --name; echo "Bare Sine Check" ;;
        ace-lv2) echo --lv2; echo /usr/lib/lv2/reasonablesynth.lv2; echo --name; echo "ACE Reasonable Synth" ;;
        none) echo --no-instrument ;;
    esac
}

declare -A crashes runs failures hangs
for v in "${variants[@]}"; do crashes[$v]=0 runs[$v]=0 failures[$v]=0 hangs[$v]=0; done
for ((r = 1; r <= rounds; ++r)); do
    for v in "${variants[@]}"; do
        mapfile -t a < <(args_for "$v")
        log="$out/$v.log"
        "$here/ardour_export_check.sh" "${a[@]}" --runs "$per" "${load_flag[@]}" \
            --cores "$out/cores" > "$out/round.log" 2> "$out/round.err"
        cat "$out/round.log" >> "$log"
        c="$(sed -n 's/^summary: \([0-9]*\) crashes, \([0-9]*\) failures.*/\1/p' "$out/round.log")"
        f="$(sed -n 's/^summary: \([0-9]*\) crashes, \([0-9]*\) failures.*/\2/p' "$out/round.log")"
        h="$(sed -n 's/^summary: .*, \([0-9]*\) hangs$/\1/p' "$out/round.log")"
        hangs[$v]=$((hangs[$v] + ${h:-0}))
        crashes[$v]=$((crashes[$v] + ${c:-0}))
        failures[$v]=$((failures[$v] + ${f:-0}))
        runs[$v]=$((runs[$v] + per))
        echo "round $r $v: crashes ${c:-?} failures ${f:-?} hangs ${h:-?} (total ${crashes[$v]}/${runs[$v]})"
    done
done
echo "variant crashes hangs failures runs"
for v in "${variants[@]}"; do echo "$v ${crashes[$v]} ${hangs[$v]} ${failures[$v]} ${runs[$v]}"; done
