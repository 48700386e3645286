#!/usr/bin/env bash
# AAC export: clipwright export-as-aac at 128 kbit/s against `ffmpeg -c:a aac -b:a 128k` run file by file
# in a shell loop over the same files (the same encoder library on both sides), in the same run, ROUNDS
# times each on fresh copies (medians). The exports land beside the sources.
# Usage: bench/export-aac.sh [FILES] [SECONDS] [ROUNDS]
set -euo pipefail
files=${1:-200}
seconds=${2:-10}
rounds=${3:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"

echo "Making $files stereo 16-bit files of $seconds s at 44.1 kHz..."
mkdir -p "$work/pristine"
for i in $(seq -w 1 "$files"); do
    sox -D -n -r 44100 -b 16 -c 2 "$work/pristine/take$i.wav" synth "$seconds" pinknoise sine 100-8000 vol 0.4 2>/dev/null
done

ffmpeg_loop() {
    local f
    for f in "$1"/*.wav; do
        ffmpeg -nostdin -v error -y -i "$f" -c:a aac -b:a 128k "${f%.wav}.m4a"
    done
}
export_aac() { "$clipwright" export-as-aac --bitRate 128000 "$1"; }
echo
echo "Export $files files as AAC at 128 kbit/s ($rounds rounds)"
versus "$work/pristine" export_aac ffmpeg_loop
echo "   clipwright ${o} s   ffmpeg ${t} s   ratio $(ratio "$o" "$t") (target <= 1.00)"
