#!/usr/bin/env bash
# Installs every Debian package Clipwright needs to build, test and benchmark.
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build ccache pkg-config clang libfuzzer-14-dev libclang-rt-14-dev
  # libraries
  qt6-base-dev libqt6sql6-sqlite libsndfile1-dev libplist-dev libtag1-dev libebur128-dev libaubio-dev librubberband-dev libsoxr-dev librtaudio-dev librtmidi-dev libjack-jackd2-dev
  # LV2 plug-in hosting
  liblilv-dev lv2-dev
  # encoders and delivery
  libmp3lame-dev libvorbis-dev libogg-dev libflac-dev libavcodec-dev libavformat-dev libavutil-dev libcurl4-openssl-dev zip
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  sox libsox-fmt-all ffmpeg flac sndfile-programs dbus bc time groff-base man-db zsh
  # a JACK server with the dummy driver for the playback tests (installed with libjack-jackd2-dev: see LIBRARIES.md)
  jackd2
  # third-party encoders, checkers and local servers the export and delivery tests compare with and talk to
  lame vorbis-tools unzip python3-pyftpdlib rclone
  # real LV2 effects the plug-in tests run (a delay, a latency-reporting delay line)
  mda-lv2 x42-plugins
  # real third-party audio for the reader tests
  sonic-pi-samples csoundqt-examples python3-scipy
  # more real sound files (Ogg Vorbis, WAV) for the in-place corpus (scripts/inplace-corpus.sh)
  sound-theme-freedesktop oxygen-sounds asterisk-core-sounds-en-wav
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
