#!/usr/bin/env bash
# Compression: clipwright compress (-20 dBFS, 2:1, attack 10 ms, release 100 ms) in place against
# `sox -D compand` with the same curve and times, file by file, on copies of the same files, in the same
# run, ROUNDS times each on fresh copies (medians).
# Usage: bench/compress.sh [FILES] [SECONDS] [ROUNDS]
set -euo pipefail
files=${1:-200}
seconds=${2:-10}
rounds=${3:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"

echo "Making $files stereo 16-bit files of $seconds s at 44.1 kHz..."
mkdir -p "$work/pristine"
sox -D -n -r 44100 -b 16 -c 2 "$work/pristine/take001.wav" synth "$seconds" pinknoise vol 0.5 2>/dev/null
for i in $(seq -w 2 "$files"); do
    cp "$work/pristine/take001.wav" "$work/pristine/take$(printf %03d "$((10#$i))").wav"
done

sox_loop() {
    local f
    for f in "$1"/*.wav; do
        sox -D "$f" "$1/out.wav" compand 0.01,0.1 -20,-20,0,-10
        mv "$1/out.wav" "$f"
    done
}
compress() { "$clipwright" compress --threshold 20 --amount 0.5 --attack 0.01 --release 0.1 "$1"; }
echo
echo "Compress $files files in place ($rounds rounds)"
versus "$work/pristine" compress sox_loop
echo "   clipwright ${o} s   sox compand ${t} s   ratio $(ratio "$o" "$t") (target <= 0.50)"
