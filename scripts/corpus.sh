#!/usr/bin/env bash
# Every sound file the installed Debian packages hold, damaged copies of them and files that are not
# sound, through `clipwright info` and an in-place gain, one process each, with a sanitizer build:
# no crash, no sanitizer report, and every file that fails is named in the error.
#   scripts/corpus.sh [BINARY]     (default build/asan/app/clipwright: cmake --preset asan first)
set -uo pipefail
shopt -s extglob
cd "$(dirname "$0")/.."
binary=$(realpath "${1:-build/asan/app/clipwright}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/home" "$work/files"
export HOME=$work/home XDG_CONFIG_HOME=$work/home/config XDG_DATA_HOME=$work/home/data
export XDG_CACHE_HOME=$work/home/cache
export ASAN_OPTIONS=detect_leaks=0:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1

# The real files, under numbered names that keep each extension.
real=$(scripts/copy-package-sounds.sh "$work/files")

# Damaged copies of every third file: cut short twice, and bytes flipped in the header and the middle.
damaged=0 i=0
for file in "$work"/files/*; do
  [ $((i++ % 3)) -eq 0 ] || continue
  name=$(basename "$file") size=$(stat -c %s "$file")
  head -c $((size * 6 / 10)) "$file" > "$work/files/cut-$name"
  head -c $((size < 300 ? size / 2 : 300)) "$file" > "$work/files/stub-$name"
  python3 - "$file" "$work/files/flipped-$name" <<'PY'
import random, sys
data = bytearray(open(sys.argv[1], 'rb').read())
rng = random.Random(len(data))
for at in list(range(8, min(64, len(data)))) + [rng.randrange(len(data)) for _ in range(16)]:
    if rng.random() < 0.3:
        data[at] ^= 1 << rng.randrange(8)
open(sys.argv[2], 'wb').write(bytes(data))
PY
  damaged=$((damaged + 3))
done

# Files that are not sound, under sound names.
other=0
for ext in wav aif flac ogg mp3 caf; do
  cp /usr/share/common-licenses/GPL-3 "$work/files/text.$ext"
  : > "$work/files/empty.$ext"
  head -c 4096 /usr/bin/ls > "$work/files/program.$ext"
  other=$((other + 3))
done

crashes=0 reports=0 unnamed=0 failed=0 total=0
check() { # check FILE COMMAND...
  local file=$1 output status
  shift
  output=$("$binary" "$@" 2>&1)
  status=$?
  total=$((total + 1))
  if [ $status -ge 128 ]; then
    crashes=$((crashes + 1)); echo "CRASH ($status): $*"
  fi
  if grep -qE 'Sanitizer|runtime error:' <<< "$output"; then
    reports=$((reports + 1)); echo "REPORT: $*"; grep -m3 -E 'Sanitizer|runtime error:' <<< "$output"
  fi
  if [ $status -eq 0 ] && [[ $(basename "$file") == @(text|empty|program).* ]]; then
    unnamed=$((unnamed + 1)); echo "ACCEPTED: $*"
  fi
  if [ $status -ne 0 ]; then
    failed=$((failed + 1))
    grep -qF "$(basename "$file")" <<< "$output" || { unnamed=$((unnamed + 1)); echo "UNNAMED: $* -> $output"; }
  fi
}

for file in "$work"/files/*; do
  check "$file" info -- "$file"
  check "$file" change-gain --level -1 -- "$file"
done

echo "files: $real real, $damaged damaged, $other not sound; $total commands, $failed failed with a message"
echo "crashes: $crashes, sanitizer reports: $reports, non-sound files accepted or failures not naming the file: $unnamed"
[ $crashes -eq 0 ] && [ $reports -eq 0 ] && [ $unnamed -eq 0 ]
