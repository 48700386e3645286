#!/usr/bin/env bash
# Loudness normalization (-16 LUFS, true peaks at most -1 dBTP, in place) of FILES ten-second stereo
# files: clipwright against ffmpeg's loudnorm in two passes (measure, then a linear gain into a new file
# that replaces the old), on the same files, in the same run. Each side runs ROUNDS times on fresh copies
# from a synced disk; the medians are compared, and both results are checked with ffmpeg's ebur128.
# Usage: bench/loudness.sh [FILES] [ROUNDS]
set -euo pipefail
files=${1:-200}
rounds=${2:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"

# The value of one field of loudnorm's JSON report.
field() { sed -n "s/.*\"$1\" : \"\\([^\"]*\\)\".*/\\1/p" <<<"$2"; }
loudnorm_loop() {
    local f report filter="I=-16:TP=-1:LRA=20"
    for f in "$1"/*.wav; do
        report=$(ffmpeg -hide_banner -nostats -i "$f" -af "loudnorm=$filter:print_format=json" -f null - 2>&1)
        ffmpeg -hide_banner -nostats -y -i "$f" -af "loudnorm=$filter:linear=true:measured_I=$(field input_i "$report"):measured_TP=$(field input_tp "$report"):measured_LRA=$(field input_lra "$report"):measured_thresh=$(field input_thresh "$report"):offset=$(field target_offset "$report")" \
            -ar 44100 -c:a pcm_s16le "$1/out.wav"
        mv "$1/out.wav" "$f"
    done
}
# The integrated loudness of one file as ffmpeg's ebur128 filter reads it.
loudness_of() {
    ffmpeg -hide_banner -nostats -i "$1" -af ebur128 -f null - 2>&1 | sed -n 's/^ *I: *\(-\?[0-9.]*\) LUFS/\1/p' | tail -1
}

echo "Making $files ten-second stereo files..."
mkdir -p "$work/pristine"
for i in $(seq -w 1 "$files"); do
    # Pink noise at levels from -30 to -12 dB, so that every file needs a gain of its own.
    sox -D -n -r 44100 -b 16 -c 2 "$work/pristine/take$i.wav" synth 10 pinknoise vol "-$(( 12 + 10#$i % 19 ))dB" 2>/dev/null
done

echo
echo "Loudness normalize $files files in place to -16 LUFS ($rounds rounds)"
loudness_normalize() { "$clipwright" normalize --loudness --level -16 --truePeakCeiling -1 "$1"; }
versus "$work/pristine" loudness_normalize loudnorm_loop
echo "   clipwright ${o} s   ffmpeg loudnorm two-pass ${t} s   ratio $(ratio "$o" "$t") (target <= 0.50)"
first=$(cd "$work/pristine" && ls | head -1)
echo "   $first after (ffmpeg ebur128): clipwright $(loudness_of "$work/ours/$first") LUFS," \
     "ffmpeg $(loudness_of "$work/peer/$first") LUFS"
