#!/usr/bin/env bash
# Generates a few test sounds with sox and reads them back through the framework.
set -euo pipefail
build=${1:-build/default}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

sox -n -r 44100 -b 16 "$dir/tone 440 Hz.wav" synth 2 sine 440 vol 0.5
sox -n -r 48000 -b 24 -c 2 "$dir/pink noise.aif" synth 3 pinknoise vol 0.25
sox -n -r 96000 -e floating-point -b 32 "$dir/sweep.wav" synth 1.5 sine 20-20000 vol 0.9
sox -n -r 44100 -b 16 -c 2 "$dir/silence.caf" trim 0 1
sox -n -r 44100 -b 16 "$dir/chirp.flac" synth 1 sine 100-4000

echo "Reading generated sounds through the framework:"
"$build/app/clipwright" info "$dir"/*
