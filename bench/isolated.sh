# Sourced by the command benchmarks: the program to measure (CLIPWRIGHT, or the default build, built
# now) in $clipwright, and a temporary folder $work holding a home of its own, so that the benchmark's
# undo copies, preferences and caches stay out of the user's. The folder goes when the script ends.
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
