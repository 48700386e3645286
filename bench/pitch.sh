#!/usr/bin/env bash
# Pitch detection on real instruments and on generated notes, and its cost:
# 1. every pitched sample of a General MIDI SoundFont, written as a WAV file (sf2_samples.py), through
#    `clipwright info --pitch --json`: the share that reads the sample's originalPitch, and the share
#    that reads its root key (the note the font plays it at unchanged), with what the misses are;
# 2. the synthetic figure of the unit test PitchDetector.HarmonicTonesReadTheirNote (100 saw, square and
#    struck-string tones from MIDI 24 to 108);
# 3. FILES (200) one-second plucked notes made by sox: `info` (analysing them), then `info --pitch` on the
#    analysed files, timed, and how many read their note.
# The SoundFont is TimGM6mb (6 MB, `apt-get install timgm6mb-soundfont`, not in scripts/setup.sh as CI
# does not run the benchmarks); FONT overrides it.
# Usage: bench/pitch.sh [FILES]
set -euo pipefail
files=${1:-200}
font=${FONT:-/usr/share/sounds/sf2/TimGM6mb.sf2}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"
[ -r "$font" ] || { echo "no SoundFont at $font: apt-get install timgm6mb-soundfont" >&2; exit 1; }

# Compares "pitch" in the JSON on stdin with the manifest: column 3 (originalPitch) or 7 (the note the
# font plays), leaving out with "clear" the samples within 10 cents of halfway between two notes.
score() {
    python3 -c '
import json, os, sys
manifest, column = sys.argv[1], int(sys.argv[2])
heard = {os.path.basename(f["path"]): f.get("pitch") for f in json.load(sys.stdin)}
rows = [line.rstrip("\n").split("\t") for line in open(manifest)]
if sys.argv[3:] == ["clear"]:
    rows = [row for row in rows if abs(abs(float(row[7]) - round(float(row[7]))) - 0.5) > 0.1]
kinds = {"exact": 0, "octave": 0, "semitone": 0, "none": 0, "other": 0}
for row in rows:
    want, got = int(row[column - 1]), heard.get(row[0])
    kind = ("none" if got is None else "exact" if got == want else "octave" if (got - want) % 12 == 0
            else "semitone" if abs(got - want) == 1 else "other")
    kinds[kind] += 1
misses = ", ".join("%d %s" % (n, k) for k, n in kinds.items() if k != "exact" and n)
print("%d/%d exact (%.1f %%); misses: %s" % (kinds["exact"], len(rows), 100.0 * kinds["exact"] / len(rows),
      misses or "none"))
' "$@"
}

echo "SoundFont samples ($(basename "$font"))"
python3 bench/sf2_samples.py "$font" "$work/font"
"$clipwright" info --json --pitch "$work/font" >"$work/font.json"
echo "   against originalPitch: $(score "$work/font/manifest.tsv" 3 <"$work/font.json")"
echo "   against the note the font plays it as: $(score "$work/font/manifest.tsv" 7 <"$work/font.json")"
echo "   the same, samples tuned within 10 cents of halfway left out:" \
     "$(score "$work/font/manifest.tsv" 7 clear <"$work/font.json")"

echo "Generated tones (unit test)"
cmake --build --preset default --target lx_tests --parallel 2 >/dev/null
build/default/tests/lx_tests --gtest_filter=PitchDetector.HarmonicTonesReadTheirNote \
    --gtest_output="xml:$work/tones.xml" >/dev/null || true
echo "   $(sed -n 's/.*name="exact" value="\([0-9]*\)".*/\1/p' "$work/tones.xml" | head -1)/100 exact"

echo "$files one-second plucked notes"
mkdir -p "$work/plucks"
: >"$work/plucks/manifest.tsv"
for i in $(seq 1 "$files"); do
    note=$(( 36 + (i * 37) % 60 ))
    name=$(printf "pluck%03d.wav" "$i")
    sox -D -n -r 44100 -b 16 -c 1 "$work/plucks/$name" synth 1 pluck "%$(( note - 69 ))" 2>/dev/null
    printf "%s\t-\t%d\n" "$name" "$note" >>"$work/plucks/manifest.tsv"
done
analysed=$(timed "$clipwright" info --json "$work/plucks")
pitched=$(timed "$clipwright" info --json --pitch "$work/plucks")
"$clipwright" info --json --pitch "$work/plucks" >"$work/plucks.json"
echo "   info ${analysed} s (analysing), then info --pitch ${pitched} s;" \
     "$(score "$work/plucks/manifest.tsv" 3 <"$work/plucks.json")"
