#!/usr/bin/env bash
# The encoders: clipwright export-as-flac, export-as-mp3 and export-as-ogg-vorbis over a folder of FILES
# (200) ten-second stereo 16-bit files at 44.1 kHz, against the reference command-line encoders run one
# file after another at the same settings as our defaults (flac -5, lame -b 160 -q 2, oggenc -q 4),
# ROUNDS (3) times each on fresh copies, medians. lame's own default quality is 3, which does less than
# half the work of our default 2, so plain `lame -b 160` is compared with our export at --quality 3.
# Our exports make two files at once on two cores; the peers run one process at a time.
# Usage: bench/export.sh [FILES] [ROUNDS]
set -euo pipefail
files=${1:-200}
rounds=${2:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"

echo "Making $files stereo 16-bit files of 10 s at 44.1 kHz..."
mkdir -p "$work/pristine"
for i in $(seq -w 1 "$files"); do
    sox -D -n -r 44100 -b 16 -c 2 "$work/pristine/take$i.wav" synth 10 pinknoise sine 100-12000 vol 0.4 2>/dev/null
done

flac_loop() { local f; for f in "$1"/*.wav; do flac -s -5 "$f" -o "${f%.wav}.flac"; done; }
lame_loop() { local f; for f in "$1"/*.wav; do lame --quiet -b 160 -q 2 "$f" "${f%.wav}.mp3"; done; }
lame_default_loop() { local f; for f in "$1"/*.wav; do lame --quiet -b 160 "$f" "${f%.wav}.mp3"; done; }
oggenc_loop() { local f; for f in "$1"/*.wav; do oggenc -Q -q 4 "$f" -o "${f%.wav}.ogg"; done; }
export_flac() { "$clipwright" export-as-flac "$1"; }
export_mp3() { "$clipwright" export-as-mp3 "$1"; }
export_mp3_q3() { "$clipwright" export-as-mp3 --quality 3 "$1"; }
export_ogg() { "$clipwright" export-as-ogg-vorbis "$1"; }

echo
echo "Export $files files ($rounds rounds)"
versus "$work/pristine" export_flac flac_loop
echo "   FLAC:       clipwright ${o} s   flac -5 ${t} s        ratio $(ratio "$o" "$t") (target <= 1.0)"
versus "$work/pristine" export_mp3 lame_loop
echo "   MP3:        clipwright ${o} s   lame -b 160 -q 2 ${t} s   ratio $(ratio "$o" "$t") (target <= 1.0)"
versus "$work/pristine" export_mp3_q3 lame_default_loop
echo "   MP3 (q 3):  clipwright ${o} s   lame -b 160 ${t} s        ratio $(ratio "$o" "$t") (target <= 1.0)"
versus "$work/pristine" export_ogg oggenc_loop
echo "   Ogg Vorbis: clipwright ${o} s   oggenc -q 4 ${t} s    ratio $(ratio "$o" "$t") (target <= 1.0)"
