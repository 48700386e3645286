#!/usr/bin/env bash
# Generates a few sounds with sox, shows what clipwright reads in them, runs a factory workflow over
# them in place, shows the new levels, and undoes the run.
set -euo pipefail
build=${1:-build/default}
clipwright="$build/app/clipwright"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
# A home of its own, so the demo's undo steps stay out of the user's.
export HOME="$dir/home" XDG_CONFIG_HOME="$dir/home/.config" XDG_DATA_HOME="$dir/home/.local/share" \
       XDG_CACHE_HOME="$dir/home/.cache"
mkdir -p "$XDG_DATA_HOME"

sox -n -r 44100 -b 16 "$dir/tone 440 Hz.wav" synth 2 sine 440 vol 0.5
sox -n -r 48000 -b 24 -c 2 "$dir/pink noise.aif" synth 3 pinknoise pinknoise vol 0.25 remix 1 2v0.5
sox -n -r 96000 -e floating-point -b 32 "$dir/sweep.wav" synth 1.5 sine 20-20000 vol 0.9
sox -n -r 44100 -b 16 "$dir/chirp.flac" synth 1 sine 100-4000 vol 0.3

peaks() {
    for f in "$dir"/*.wav "$dir"/*.aif "$dir"/*.flac; do
        printf '  %-16s %s dBFS\n' "$(basename "$f")" "$(sox "$f" -n stats 2>&1 | awk '/^Pk lev dB/ {print $4}')"
    done
}

echo "Generated sounds, as clipwright reads them:"
"$clipwright" info "$dir"/*.wav "$dir"/*.aif "$dir"/*.flac
echo
echo "Peak levels before:"
peaks
echo
echo "Factory workflows:"
"$clipwright" workflows
echo
echo "Running \"Balance and normalize\" over them, in place:"
"$clipwright" run "Balance and normalize" "$dir"/*.wav "$dir"/*.aif "$dir"/*.flac
echo
echo "Peak levels after (sox):"
peaks
echo
echo "Undoing the last step:"
"$clipwright" undo
echo
echo "Filtering the DC offset out of a recording that has one, and reversing it into a new file:"
mkdir -p "$dir/offset"
sox -n -r 44100 -b 24 "$dir/offset/hum.wav" synth 2 sine 220 vol 0.4 dcshift 0.1
dc() { sox "$1" -n stats 2>&1 | awk '/^DC offset/ {print $3}'; }
printf '  DC offset before: %s\n' "$(dc "$dir/offset/hum.wav")"
"$clipwright" filter-dc "$dir/offset/hum.wav" > /dev/null
printf '  DC offset after:  %s\n' "$(dc "$dir/offset/hum.wav")"
"$clipwright" reverse --to-new-file "$dir/offset/hum.wav"
echo
echo "Cleaning up a take with silence around it (\"Clean up recordings\": trims below -48 dB, fades), and undoing:"
mkdir -p "$dir/takes"
sox -n -r 44100 -b 16 -c 2 "$dir/takes/take.wav" synth 2 pinknoise vol 0.3 pad 0.75 0.5
printf '  length before: %s s\n' "$(soxi -D "$dir/takes/take.wav")"
"$clipwright" run "Clean up recordings" "$dir/takes" > /dev/null
printf '  length after:  %s s\n' "$(soxi -D "$dir/takes/take.wav")"
for _ in 1 2 3 4; do "$clipwright" undo > /dev/null; done
printf '  after four undos: %s s\n' "$(soxi -D "$dir/takes/take.wav")"
