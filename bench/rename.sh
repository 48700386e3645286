#!/usr/bin/env bash
# Renaming FILES small WAV files with a pattern and undoing it (clipwright rename, then clipwright undo: two
# invocations) against a shell loop of mv renaming them and renaming them back, on the same files, in the
# same run. Each side runs ROUNDS times on fresh copies from a synced disk; the medians are compared.
# Usage: bench/rename.sh [FILES] [ROUNDS]
set -euo pipefail
files=${1:-1000}
rounds=${2:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"

rename_and_undo() {
    "$clipwright" rename --expression 'Kick /Number/./Extension/' --numberDigits 4 "$1" && "$clipwright" undo
}
# One process a file each way (printf -v forks nothing).
mv_loop() {
    local names=("$1"/*.wav) i name
    for i in "${!names[@]}"; do printf -v name '%s/Kick %04d.wav' "$1" "$i"; mv "${names[$i]}" "$name"; done
    for i in "${!names[@]}"; do printf -v name '%s/Kick %04d.wav' "$1" "$i"; mv "$name" "${names[$i]}"; done
}

echo "Making $files files of a tenth of a second..."
mkdir -p "$work/pristine"
sox -D -n -r 44100 -b 16 -c 1 "$work/tick.wav" synth 0.1 sine 440 2>/dev/null
for i in $(seq -w 1 "$files"); do cp "$work/tick.wav" "$work/pristine/tick$i.wav"; done

echo "Rename $files files with a pattern, then undo ($rounds rounds)"
versus "$work/pristine" rename_and_undo mv_loop
echo "   clipwright ${o} s   mv loop ${t} s   ratio $(ratio "$o" "$t") (target <= 0.10)"
# Undo gave every name back: the two folders list the same names.
if diff <(ls "$work/pristine") <(ls "$work/ours") >/dev/null; then
    echo "   names after undo: all $files as before"
else
    echo "   names after undo: DIFFERENT from before"
fi
