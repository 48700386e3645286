#!/usr/bin/env bash
# The clipwright program against sox (and cp) on the same files, in the same run:
#   1. normalize (peak, -1 dB, in place) of FILES ten-second stereo files, against a sox loop doing the
#      same (measure, scale into a new file, replace it);
#   2. change gain (-6 dB, in place) of one large file (SIZE_MB), against sox and against cp of the bytes;
#   3. a search (clipwright find) over 10,000 small files: the first scan, then a re-run with nothing changed;
#   4. the clean-up of FILES ten-second stereo recordings in place (trim silence below -48 dB at both ends,
#      fade in 10 ms and out 50 ms: the factory workflow "Clean up recordings"), against a sox loop doing
#      the same (silence, reverse, silence, reverse, fade); then our peak memory on a 2 GB file.
# Each job runs ROUNDS times, ours and the peers' in turn, each from a synced disk with fresh copies of the
# input; the medians are compared. Prints the times, the ratios and our peak memory.
# Usage: bench/commands.sh [FILES] [SIZE_MB] [ROUNDS]
set -euo pipefail
files=${1:-200}
size_mb=${2:-1024}
rounds=${3:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"

sox_loop() {
    for f in "$1"/*.wav; do
        sox -D "$f" "$1/out.wav" gain -n -1
        mv "$1/out.wav" "$f"
    done
}

echo "Making $files ten-second stereo files and one file of $size_mb MB..."
mkdir -p "$work/pristine"
for i in $(seq -w 1 "$files"); do
    sox -D -n -r 44100 -b 16 -c 2 "$work/pristine/take$i.wav" synth 10 pinknoise vol 0.3 2>/dev/null
done
frames=$(( size_mb * 1024 * 1024 / 4 ))
sox -D -n -r 44100 -b 16 -c 2 "$work/big-pristine.wav" synth "${frames}s" sine 440 vol 0.5 2>/dev/null

echo
echo "1. Normalize $files files in place ($rounds rounds)"
normalize() { "$clipwright" normalize --level -1 "$1"; }
versus "$work/pristine" normalize sox_loop
echo "   clipwright ${o} s   sox loop ${t} s   ratio $(ratio "$o" "$t") (target <= 0.50)"
rm -rf "$work/ours" "$work/peer" "$work/pristine"

echo
echo "2. Change gain of one $size_mb MB file in place ($rounds rounds)"
ours=() theirs=() copies=() streams=() memory=0
for _ in $(seq "$rounds"); do
    cp "$work/big-pristine.wav" "$work/big.wav"
    ours+=("$(timed "$clipwright" change-gain --level -6 "$work/big.wav")")
    "$clipwright" flush-undo --yes >/dev/null 2>&1
    theirs+=("$(timed sox -D -v 0.501187 "$work/big-pristine.wav" "$work/big-sox.wav")")
    rm -f "$work/big-sox.wav"
    copies+=("$(timed cp "$work/big-pristine.wav" "$work/big-copy.wav")")
    rm -f "$work/big-copy.wav"
    # cp copies inside the kernel (copy_file_range); dd moves the bytes through a process, as we must.
    streams+=("$(timed dd if="$work/big-pristine.wav" of="$work/big-copy.wav" bs=1M)")
    rm -f "$work/big-copy.wav"
done
cp "$work/big-pristine.wav" "$work/big.wav"
sync
memory=$(/usr/bin/time -f %M "$clipwright" change-gain --level -6 "$work/big.wav" 2>&1 >/dev/null | tail -1)
o=$(median "${ours[@]}") t=$(median "${theirs[@]}") c=$(median "${copies[@]}") d=$(median "${streams[@]}")
echo "   clipwright ${o} s   sox ${t} s   cp ${c} s   dd bs=1M ${d} s"
echo "   ratio to sox $(ratio "$o" "$t") (target <= 0.80)   ratio to cp $(ratio "$o" "$c") (target <= 1.50)"
echo "   ratio to dd $(ratio "$o" "$d")"
echo "   clipwright peak memory ${memory} kB"

echo
echo "3. Search 10,000 files (clipwright find)"
mkdir -p "$work/many"
sox -D -n -r 44100 -b 16 -c 1 "$work/model.wav" synth 100s sine 440 2>/dev/null
for i in $(seq 0 9999); do
    folder="$work/many/set $((i / 500))"
    [ -d "$folder" ] || mkdir -p "$folder"
    cp "$work/model.wav" "$folder/tick $i.wav"
done
first=$(timed "$clipwright" find "$work/many" Name contains "tick 1" AudioSampleRate = 44100)
again=$(timed "$clipwright" find "$work/many" Name contains "tick 1" AudioSampleRate = 44100)
found=$("$clipwright" find "$work/many" Name contains "tick 1" AudioSampleRate = 44100 | wc -l)
echo "   first scan and query ${first} s   re-run ${again} s   ${found} found"

echo
echo "4. Clean up $files recordings in place: trims below -48 dB, fades 10 ms in and 50 ms out ($rounds rounds)"
mkdir -p "$work/takes"
for i in $(seq -w 1 "$files"); do
    # Half a second of silence on either side of nine seconds of signal.
    sox -D -n -r 44100 -b 16 -c 2 "$work/takes/take$i.wav" synth 9 pinknoise vol 0.3 pad 0.5 0.5 2>/dev/null
done
sox_cleanup() {
    for f in "$1"/*.wav; do
        sox -D "$f" "$1/out.wav" silence 1 1s -48d fade t 0.01 reverse silence 1 1s -48d fade t 0.05 reverse
        mv "$1/out.wav" "$f"
    done
}
clean_up() { "$clipwright" run "Clean up recordings" "$1"; }
versus "$work/takes" clean_up sox_cleanup
echo "   clipwright ${o} s   sox loop ${t} s   ratio $(ratio "$o" "$t") (target <= 0.40)"
echo "   frames kept, first file: clipwright $(soxi -s "$work/ours/take$(seq -w 1 "$files" | head -1).wav")" \
    "  sox $(soxi -s "$work/peer/take$(seq -w 1 "$files" | head -1).wav")"
rm -rf "$work/ours" "$work/peer" "$work/takes"
# Peak memory stays flat: the same clean-up of a 2 GB file.
big_frames=$(( 2048 * 1024 * 1024 / 4 ))
sox -D -n -r 44100 -b 16 -c 2 "$work/huge.wav" synth "${big_frames}s" sine 440 vol 0.5 pad 1 1 2>/dev/null
memory=$(/usr/bin/time -f %M "$clipwright" run "Clean up recordings" "$work/huge.wav" 2>&1 >/dev/null | tail -1)
"$clipwright" flush-undo --yes >/dev/null 2>&1
rm -f "$work/huge.wav"
echo "   clipwright peak memory on a 2 GB file ${memory} kB"
