#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for SECONDS (default 300), one after another, on a seed
# corpus made here from real files: sox and ffmpeg write the sounds, the resources give the property
# lists and workflows. Corpora grow under build/fuzz/corpus/TARGET and crashes land in
# build/fuzz/crashes. `scripts/fuzz.sh 1800 fuzz_audio_file` runs one target for half an hour.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-300}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_pcm_container fuzz_audio_file fuzz_property_list fuzz_predicate
                                      fuzz_workflow fuzz_old_document)

cmake --preset fuzz > /dev/null
cmake --build --preset fuzz --target "${targets[@]}"
root=build/fuzz/corpus
mkdir -p build/fuzz/crashes

seed() { # seed TARGET: fills an empty corpus
  local dir=$root/$1 tmp
  mkdir -p "$dir"
  [ -z "$(ls -A "$dir")" ] || return 0
  tmp=$(mktemp -d)
  case $1 in
  fuzz_pcm_container)
    sox -n -r 8000 -b 16 "$dir/a.wav" synth 0.01 sine 440
    sox -n -r 8000 -b 24 -c 3 "$dir/b.wav" synth 0.01 sine 440
    sox -n -r 8000 -B -b 16 "$dir/c.wav" synth 0.01 sine 440
    sox -n -r 8000 -b 16 "$dir/d.aif" synth 0.01 sine 440
    sox -n -r 8000 -e floating-point -b 32 "$dir/e.aifc" synth 0.01 sine 440
    sndfile-metadata-set --bext-description "seed" --str-title "seed" "$dir/a.wav" > /dev/null || true ;;
  fuzz_audio_file)
    # The first byte picks the extension, in the target's order.
    local extensions=(wav aif aifc caf au w64 flac ogg oga opus mp3 sd2) i
    for i in "${!extensions[@]}"; do
      local ext=${extensions[$i]} file=$tmp/seed.${extensions[$i]}
      case $ext in
      caf | w64 | opus | oga) ffmpeg -v error -f lavfi -i sine=440:d=0.2 -ac 2 "$file" ;;
      sd2) continue ;;
      *) sox -n -r 22050 -c 2 "$file" synth 0.2 sine 440 ;;
      esac
      { printf "\\$(printf '%03o' "$i")"; cat "$file"; } > "$dir/$ext"
    done ;;
  fuzz_property_list | fuzz_workflow)
    cp resources/workflows/*.twwf "$tmp/"
    [ "$1" = fuzz_workflow ] || cp resources/query_keys.xml "$tmp/"
    python3 - "$tmp" <<'PY'
import plistlib, sys, pathlib
for p in list(pathlib.Path(sys.argv[1]).iterdir()):
    with open(p, 'rb') as f:
        value = plistlib.load(f)
    p.with_suffix('.binary').write_bytes(plistlib.dumps(value, fmt=plistlib.FMT_BINARY))
PY
    cp "$tmp"/* "$dir/" ;;
  fuzz_predicate)
    local n=0 line
    while IFS= read -r line; do printf '%s' "$line" > "$dir/$((n++))"; done <<'TEXT'
(Name LIKE[cd] '*drum*') AND (AudioSampleRate > '44100') && (kMDItemContentTypeTree = "public.audio")
Name = 'a' or Name = 'b' and not Name = 'c'
(Name = 'a' || Name = 'b') && !(Name = 'c')
Duration => 1.5 AND AudioChannelCount = 2
Name = "say \"hi\"" OR Name = 'caf\u00e9'
kMDItemContentModificationDate > '2024-03-05' AND kMDItemFSSize < 1000
kMDItemContentTypeTree BEGINSWITH 'public' OR TRUEPREDICATE
TEXT
    ;;
  fuzz_old_document) cp tests/fuzz/seeds/old_document/* "$dir/" ;;
  esac
  rm -rf "$tmp"
}

export LSAN_OPTIONS=suppressions=$PWD/tests/fuzz/lsan.supp
for target in "${targets[@]}"; do
  seed "$target"
  echo "== $target for $seconds s"
  "build/fuzz/tests/fuzz/$target" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=4096 \
    -timeout=30 -print_final_stats=1 -artifact_prefix="build/fuzz/crashes/$target-" "$root/$target"
done
