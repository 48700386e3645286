#!/usr/bin/env bash
# Builds the benchmark with the default preset and runs it. Arguments go to lx_bench:
#   bench/run.sh --size 300 --runs 5
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
cmake --preset default >/dev/null
cmake --build --preset default --target lx_bench --parallel 2
exec "$root/build/default/bench/lx_bench" "$@"
