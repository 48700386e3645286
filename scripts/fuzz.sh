#!/usr/bin/env bash
# Builds the libFuzzer target of the WAV/AIFF parser and runs it for SECONDS (default 300) on a seed
# corpus of files that sox writes.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-300}
cmake --preset fuzz > /dev/null
cmake --build --preset fuzz --target fuzz_pcm_container
corpus=build/fuzz/corpus
mkdir -p "$corpus"
if [ -z "$(ls -A "$corpus")" ]; then
  sox -n -r 8000 -b 16 "$corpus/a.wav" synth 0.01 sine 440
  sox -n -r 8000 -b 24 -c 3 "$corpus/b.wav" synth 0.01 sine 440
  sox -n -r 8000 -B -b 16 "$corpus/c.wav" synth 0.01 sine 440
  sox -n -r 8000 -b 16 "$corpus/d.aif" synth 0.01 sine 440
  sox -n -r 8000 -e floating-point -b 32 "$corpus/e.aifc" synth 0.01 sine 440
  sndfile-metadata-set --bext-description "seed" --str-title "seed" "$corpus/a.wav" || true
fi
build/fuzz/tests/fuzz/fuzz_pcm_container -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 "$corpus"
