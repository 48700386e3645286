#!/usr/bin/env bash
# What a stored file list costs the command line: `clipwright info FILE` on one short file, with an empty
# file list and with ENTRIES stored entries (100 groups of files, as the window stores them), each run
# ROUNDS times in a home of its own; medians of the wall time and the largest peak memory are printed.
#   - "in the preferences": the list as earlier versions kept it, under the key "Entries" of
#     Clipwright.plist. Each run starts from that file again, so a version that moves the list out of
#     the preferences pays the move on every one of these runs: this is its first call after an upgrade.
#   - "stored": the calls after that first one.
# Usage: bench/file_list.sh [ENTRIES] [ROUNDS]    (CLIPWRIGHT=path picks another build of the program)
set -euo pipefail
entries=${1:-100000}
rounds=${2:-5}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
preferences="$XDG_CONFIG_HOME/Clipwright/Clipwright.plist"

sox -D -n -r 44100 -b 16 -c 2 "$work/take.wav" synth 1 sine 440 2>/dev/null
# Two preference files: a few settings alone, and the same with the stored list.
python3 - "$entries" "$work/plain.plist" "$work/with-list.plist" <<'PY'
import plistlib, sys
count, plain, with_list = int(sys.argv[1]), sys.argv[2], sys.argv[3]
settings = {"Time Format": 1, "Range Format": 0, "Auto Analyze": True, "Other Editor Name": "audacity"}
groups, per_group = 100, max(1, count // 100)
root = {"Class": "TWGroupEntry", "name": "root", "entries": [
    {"Class": "TWGroupEntry", "name": f"Session {g}", "entries": [
        {"Class": "TWFileEntry", "path": f"/srv/audio/session {g}/take {i:05d}.wav"}
        for i in range(per_group)]}
    for g in range(groups)]}
with open(plain, "wb") as f:
    plistlib.dump(settings, f)
with open(with_list, "wb") as f:
    plistlib.dump({**settings, "Entries": root}, f)
PY

# Runs `clipwright info` once; prints "seconds kilobytes".
once() {
    local start end memory
    start=$(date +%s%N)
    memory=$(/usr/bin/time -f %M "$clipwright" info "$work/take.wav" 2>&1 >/dev/null | tail -1)
    end=$(date +%s%N)
    echo "$(awk -v ns=$((end - start)) 'BEGIN { printf "%.3f", ns / 1e9 }') $memory"
}
# measure LABEL SETUP: SETUP runs before every round (outside the timing).
measure() {
    local label=$1 setup=$2 times=() peak=0 t m
    for _ in $(seq "$rounds"); do
        $setup
        read -r t m < <(once)
        times+=("$t")
        [ "$m" -gt "$peak" ] && peak=$m
    done
    printf '   %-52s %6s s   %7s KB\n' "$label" "$(median "${times[@]}")" "$peak"
}
empty() { rm -f "$XDG_CONFIG_HOME"/Clipwright/*; cp "$work/plain.plist" "$preferences"; }
in_preferences() { rm -f "$XDG_CONFIG_HOME"/Clipwright/*; cp "$work/with-list.plist" "$preferences"; }
as_left() { :; }

echo "clipwright info on one file, $rounds rounds, medians ($clipwright)"
measure "empty file list" empty
measure "$entries entries, in the preferences" in_preferences
in_preferences
once >/dev/null
measure "$entries entries, stored (the calls after the first)" as_left
echo "   files in the preferences folder afterwards:"
ls -l "$XDG_CONFIG_HOME/Clipwright" | awk 'NR > 1 { printf "      %10s %s\n", $5, $9 }'
