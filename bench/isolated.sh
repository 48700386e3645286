# Sourced by the command benchmarks: the program to measure (CLIPWRIGHT, or the default build, built
# now) in $clipwright, and a temporary folder $work holding a home of its own, so that the benchmark's
# undo copies, preferences and caches stay out of the user's. The folder goes when the script ends. Also the
# helpers the benchmarks share.
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
clipwright=${CLIPWRIGHT:-}
if [ -z "$clipwright" ]; then
    (cd "$root" && cmake --preset default >/dev/null &&
        cmake --build --preset default --target clipwright --parallel 2 >/dev/null)
    clipwright="$root/build/default/app/clipwright"
fi
work="$(mktemp -d "${TMPDIR:-/tmp}/clipwright-bench.XXXXXX")"
trap 'rm -rf "$work"' EXIT
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share" \
       XDG_CACHE_HOME="$work/home/.cache"
mkdir -p "$XDG_DATA_HOME" "$XDG_CONFIG_HOME/Clipwright"
unset DBUS_SESSION_BUS_ADDRESS

# Runs a command from a synced disk; prints its wall time in seconds.
timed() {
    sync
    local start end
    start=$(date +%s%N)
    "$@" >/dev/null 2>&1
    end=$(date +%s%N)
    echo "scale=3; ($end - $start) / 1000000000" | bc
}
median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
ratio() { echo "scale=2; $1 / $2" | bc; }
fresh() { rm -rf "$2"; cp -r "$1" "$2"; }
# versus PRISTINE OURS PEER: runs the two jobs $rounds times in turn, each on a fresh copy of the folder
# PRISTINE ($work/ours, $work/peer, left for a look afterwards), our undo copies flushed after each run;
# sets o and t to the medians. A job is a command that takes the copy's folder as its last argument.
versus() {
    local pristine=$1 ours=() theirs=()
    for _ in $(seq "$rounds"); do
        fresh "$pristine" "$work/ours"
        ours+=("$(timed $2 "$work/ours/")")
        "$clipwright" flush-undo --yes >/dev/null 2>&1
        fresh "$pristine" "$work/peer"
        theirs+=("$(timed $3 "$work/peer")")
    done
    o=$(median "${ours[@]}") t=$(median "${theirs[@]}")
}
