#!/usr/bin/env bash
# Every sound file of the installed Debian packages, copied and changed in place by a gain: each keeps
# its name, container, codec, sample format, channels, rate, lossy bit rate (within 15 %) and every
# metadata chunk byte for byte, as ffprobe and our own chunk lister (scripts/inplace-check.py) read them;
# then `clipwright undo` must give back every file byte for byte (cmp). Prints the counts; exit 1 on any
# difference but tag losses (tags are reported apart).
#   scripts/inplace-corpus.sh [BINARY]     (default build/default/app/clipwright)
set -uo pipefail
cd "$(dirname "$0")/.."
binary=$(realpath "${1:-build/default/app/clipwright}")
check=$(realpath scripts/inplace-check.py)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/home" "$work/files" "$work/originals"
export HOME=$work/home XDG_CONFIG_HOME=$work/home/config XDG_DATA_HOME=$work/home/data
export XDG_CACHE_HOME=$work/home/cache

n=$(scripts/copy-package-sounds.sh "$work/files")
cp -p "$work"/files/* "$work/originals/"
echo "files: $n"

python3 "$check" snapshot "$work/files" "$work/before.json"
"$binary" change-gain --quiet --keep-going --level -1 -- "$work"/files/* > /dev/null 2> "$work/run.err"
echo "change-gain exit status: $? (3: some files skipped)"
sed 's/^/  /' "$work/run.err" | grep -v 'samples clipped' | head -20
python3 "$check" snapshot "$work/files" "$work/after.json"
python3 "$check" compare "$work/before.json" "$work/after.json"
status=$?

"$binary" undo --quiet > /dev/null || { echo "undo failed"; status=1; }
same=0 differ=0
for original in "$work"/originals/*; do
  if cmp -s "$original" "$work/files/$(basename "$original")"; then
    same=$((same + 1))
  else
    differ=$((differ + 1)); echo "NOT RESTORED: $(basename "$original")"
  fi
done
extra=$(( $(ls "$work/files" | wc -l) - n ))
echo "undo: $same byte-identical, $differ differ, $extra files left over"
[ $differ -eq 0 ] && [ $extra -eq 0 ] || status=1
exit $status
