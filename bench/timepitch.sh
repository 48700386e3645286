#!/usr/bin/env bash
# Time and pitch through Rubber Band: clipwright against the rubberband program with the same engine, on
# the same FILES ten-second stereo files, in place, in the same run. Each side runs ROUNDS times on fresh
# copies; the medians are compared. Two changes: a pitch shift of +3 semitones and a tempo change to 3/4
# of the speed, both with the finer engine (R3). Needs `apt-get install rubberband-cli` (not in
# scripts/setup.sh: CI does not run the benchmarks).
# Usage: bench/timepitch.sh [FILES] [ROUNDS]
set -euo pipefail
files=${1:-20}
rounds=${2:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"
command -v rubberband >/dev/null || { echo "no rubberband program: apt-get install rubberband-cli" >&2; exit 1; }

echo "Making $files ten-second stereo files..."
mkdir -p "$work/pristine"
for i in $(seq -w 1 "$files"); do
    # A chord over pink noise: something with both tones and transients.
    sox -D -n -r 44100 -b 16 -c 2 "$work/pristine/take$i.wav" synth 10 pluck 220 pluck 277 pinknoise vol 0.3 2>/dev/null
done
rubberband_loop() {
    local f
    for f in "$1"/*.wav; do
        rubberband -q -3 "${@:2}" "$f" "$1/out.wav"
        mv "$1/out.wav" "$f"
    done
}

echo
echo "Pitch +300 cents, length kept ($rounds rounds)"
ours_pitch() { "$clipwright" change-pitch --cents 300 "$1"; }
peer_pitch() { rubberband_loop "$1" -p 3; }
versus "$work/pristine" ours_pitch peer_pitch
echo "   clipwright ${o} s   rubberband ${t} s   ratio $(ratio "$o" "$t") (target <= 1.00)"

echo
echo "Tempo to 3/4, pitch kept ($rounds rounds)"
ours_tempo() { "$clipwright" change-speed --factor 0.75 "$1"; }
peer_tempo() { rubberband_loop "$1" -T 0.75; }
versus "$work/pristine" ours_tempo peer_tempo
echo "   clipwright ${o} s   rubberband ${t} s   ratio $(ratio "$o" "$t") (target <= 1.00)"
first=$(cd "$work/pristine" && ls | head -1)
echo "   frames, first file: clipwright $(soxi -s "$work/ours/$first")   rubberband $(soxi -s "$work/peer/$first")"
