#!/usr/bin/env bash
# Copies every sound file of the installed Debian packages (under 20 MB) into FOLDER, under numbered
# names that keep each extension, and prints how many.
#   scripts/copy-package-sounds.sh FOLDER
set -uo pipefail
n=0
while IFS= read -r source; do
  cp "$source" "$1/$(printf '%04d' $n)-$(basename "$source")"
  n=$((n + 1))
done < <(find /usr/share /usr/lib -xdev -type f \( -iname '*.wav' -o -iname '*.aif' -o -iname '*.aiff' \
           -o -iname '*.aifc' -o -iname '*.flac' -o -iname '*.ogg' -o -iname '*.oga' -o -iname '*.opus' \
           -o -iname '*.mp3' -o -iname '*.au' -o -iname '*.snd' -o -iname '*.caf' -o -iname '*.w64' \) \
           -size -20M 2>/dev/null | sort)
echo $n
