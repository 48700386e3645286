#!/usr/bin/env bash
# Sample-rate conversion: clipwright convert-rate (very high quality) against `sox -D rate -v` on the
# same files, in the same run, ROUNDS times each on fresh copies (medians). Then the filters' figures
# on test tones, read with `sox stat` for both sides: the level of a 20 kHz tone after 48 -> 44.1 kHz
# (passband; 0 dB is perfect), and what remains of a 23 kHz tone, which 44.1 kHz cannot hold (aliasing;
# lower is better).
# Usage: bench/rate.sh [FILES] [SECONDS] [ROUNDS]
set -euo pipefail
files=${1:-20}
seconds=${2:-30}
rounds=${3:-3}
source "$(dirname "${BASH_SOURCE[0]}")/isolated.sh"
cd "$root"

echo "Making $files stereo 24-bit files of $seconds s at 48 kHz..."
mkdir -p "$work/pristine"
for i in $(seq -w 1 "$files"); do
    sox -D -n -r 48000 -b 24 -c 2 "$work/pristine/take$i.wav" synth "$seconds" pinknoise sine 100-20000 vol 0.4 2>/dev/null
done

sox_loop() {
    local f
    for f in "$1"/*.wav; do
        sox -D "$f" "$1/out.wav" rate -v 44100
        mv "$1/out.wav" "$f"
    done
}
convert() { "$clipwright" convert-rate --rate 44100 --quality 1 "$1"; }
echo
echo "Convert $files files from 48 to 44.1 kHz in place ($rounds rounds)"
versus "$work/pristine" convert sox_loop
echo "   clipwright ${o} s   sox rate -v ${t} s   ratio $(ratio "$o" "$t") (target <= 0.50)"

# RMS level of a file in dB, as sox stat reads it.
level() { sox "$1" -n stat 2>&1 | awk '/RMS     amplitude/ { printf "%.3f", 20 * log($3) / log(10) }'; }
mkdir -p "$work/tones"
for tone in 20000 23000; do
    sox -D -n -r 48000 -b 24 -c 1 "$work/tones/t$tone.wav" synth 5 sine "$tone" vol 0.5
    cp "$work/tones/t$tone.wav" "$work/tones/ours$tone.wav"
    "$clipwright" convert-rate --rate 44100 --quality 1 "$work/tones/ours$tone.wav" >/dev/null
    sox -D "$work/tones/t$tone.wav" "$work/tones/sox$tone.wav" rate -v 44100
    before=$(level "$work/tones/t$tone.wav")
    echo "   $tone Hz tone, change of level: clipwright" \
         "$(echo "$(level "$work/tones/ours$tone.wav") - $before" | bc) dB," \
         "sox $(echo "$(level "$work/tones/sox$tone.wav") - $before" | bc) dB"
done

# THD+N of a 1 kHz tone after 48 -> 44.1 kHz: what is left when the ideal tone at 44.1 kHz is taken
# away (edges trimmed), relative to the tone; lower is better. Both sides are compared with the same
# reference, so a delay or a gain error counts against the side that has it.
sox -D -n -r 48000 -b 24 -c 1 "$work/tones/k.wav" synth 5 sine 1000 vol 0.5
sox -D -n -r 44100 -b 32 -c 1 -e floating-point "$work/tones/ref.wav" synth 5 sine 1000 vol 0.5 trim 0.1 4.8
cp "$work/tones/k.wav" "$work/tones/oursk.wav"
"$clipwright" convert-rate --rate 44100 --quality 1 "$work/tones/oursk.wav" >/dev/null
sox -D "$work/tones/k.wav" "$work/tones/soxk.wav" rate -v 44100
thdn() {
    sox -D "$1" -e floating-point "$work/tones/cut.wav" trim 0.1 4.8
    sox -D -m -v 1 "$work/tones/cut.wav" -v -1 "$work/tones/ref.wav" -e floating-point "$work/tones/diff.wav"
    echo "$(level "$work/tones/diff.wav") - $(level "$work/tones/ref.wav")" | bc
}
echo "   1 kHz tone, THD+N: clipwright $(thdn "$work/tones/oursk.wav") dB, sox $(thdn "$work/tones/soxk.wav") dB"
