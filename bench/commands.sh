#!/usr/bin/env bash
# The clipwright program against sox (and cp) on the same files, in the same run:
#   1. normalize (peak, -1 dB, in place) of FILES ten-second stereo files, against a sox loop doing the
#      same (measure, scale into a new file, replace);
#   2. change gain (-6 dB, in place) of one large file (SIZE_MB), against sox and against cp of the bytes.
# Prints each time, the ratios and our peak memory. Usage: bench/commands.sh [FILES] [SIZE_MB]
set -euo pipefail
files=${1:-200}
size_mb=${2:-1024}
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
cmake --preset default >/dev/null
cmake --build --preset default --target clipwright --parallel 2 >/dev/null
clipwright="$root/build/default/app/clipwright"

work="$(mktemp -d "${TMPDIR:-/tmp}/clipwright-bench.XXXXXX")"
trap 'rm -rf "$work"' EXIT
# A home of its own: the undo copies and preferences of the benchmark stay out of the user's.
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share" \
       XDG_CACHE_HOME="$work/home/.cache"
mkdir -p "$XDG_DATA_HOME"
unset DBUS_SESSION_BUS_ADDRESS

seconds() { local start=$1 end=$2; echo "scale=3; ($end - $start) / 1000000000" | bc; }
now() { date +%s%N; }
ratio() { echo "scale=2; $1 / $2" | bc; }
peak_kb() { /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1; }

echo "Making $files ten-second stereo files and one file of $size_mb MB..."
mkdir -p "$work/ours" "$work/sox"
for i in $(seq -w 1 "$files"); do
    sox -D -n -r 44100 -b 16 -c 2 "$work/ours/take$i.wav" synth 10 pinknoise vol 0.3 2>/dev/null
done
cp "$work/ours/"*.wav "$work/sox/"
frames=$(( size_mb * 1024 * 1024 / 4 ))
sox -D -n -r 44100 -b 16 -c 2 "$work/big.wav" synth "${frames}s" sine 440 vol 0.5 2>/dev/null
cp "$work/big.wav" "$work/big-sox.wav"
sync

echo
echo "1. Normalize $files files in place"
start=$(now)
"$clipwright" normalize --level -1 "$work/ours/"*.wav >/dev/null
ours=$(seconds "$start" "$(now)")
start=$(now)
for f in "$work/sox/"*.wav; do
    sox -D "$f" "$work/sox/out.wav" gain -n -1 2>/dev/null
    mv "$work/sox/out.wav" "$f"
done
theirs=$(seconds "$start" "$(now)")
echo "   clipwright ${ours} s   sox loop ${theirs} s   ratio $(ratio "$ours" "$theirs") (target <= 0.50)"

echo
echo "2. Change gain of one $size_mb MB file in place"
sync
start=$(now)
memory=$(peak_kb "$clipwright" change-gain --level -6 "$work/big.wav")
ours=$(seconds "$start" "$(now)")
start=$(now)
sox -D -v 0.501187 "$work/big-sox.wav" "$work/big-sox-out.wav"
theirs=$(seconds "$start" "$(now)")
rm -f "$work/big-sox-out.wav"
sync
start=$(now)
cp "$work/big-sox.wav" "$work/big-copy.wav"
copy=$(seconds "$start" "$(now)")
echo "   clipwright ${ours} s   sox ${theirs} s   cp ${copy} s"
echo "   ratio to sox $(ratio "$ours" "$theirs") (target <= 0.80)   ratio to cp $(ratio "$ours" "$copy") (target <= 1.50)"
echo "   clipwright peak memory ${memory} kB"
