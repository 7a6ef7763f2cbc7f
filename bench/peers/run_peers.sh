#!/usr/bin/env bash
# Builds the side-by-side program in release, runs every case and writes the
# table with the date and a description of the machine to RESULTS.md here,
# then quotes it in the "## Performance" section at the end of README.md.
#
#   bench/peers/run_peers.sh [--no-readme] [kivgeo_peers options...]
#
# Needs CGAL (Debian: libcgal-dev; `./run.sh peers` installs it). A full run
# takes several minutes: CGAL's one-by-one insertion alone takes minutes, so
# it runs once per point set (--hinted-runs).
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
cd "$root"

readme=1
if [ "${1:-}" = "--no-readme" ]; then
    readme=0
    shift
fi

cmake --preset release >/dev/null
cmake --build --preset release --target kivgeo_peers -j "$(nproc 2>/dev/null || echo 2)" >/dev/null

out="$here/RESULTS.md"
tmp="$(mktemp)"
trap 'rm -f "$tmp" "$tmp.readme"' EXIT

cpu="$(grep -m1 'model name' /proc/cpuinfo | sed 's/.*: //')"
mem="$(awk '/MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo)"
load_before="$(cut -d' ' -f1-3 /proc/loadavg)"
started="$(date -u '+%Y-%m-%d %H:%M UTC')"

"$root/build/release/bench/peers/kivgeo_peers" "$@" >"$tmp.table"
load_after="$(cut -d' ' -f1-3 /proc/loadavg)"

{
    echo "Measured $started on $(nproc) cores ($cpu), $mem memory;"
    echo "load average $load_before before the run, $load_after after it."
    echo "CGAL $(dpkg-query -W -f='${Version}' libcgal-dev 2>/dev/null || echo '(version unknown)'),"
    echo "$(c++ --version | head -1), release build. Options: ${*:-none}."
    echo
    cat "$tmp.table"
    echo
    echo "Times are medians of runs of the two libraries taken alternately, each"
    echo "run in a fresh child process, as processor time (user + system) of that"
    echo "process: all the code measured is single-threaded, and processor time is"
    echo "far less disturbed than wall time when the machine is shared (wall-clock"
    echo "medians are in the second table). CGAL's one-by-one insertion (1b, 2b)"
    echo "ran once per point set, since each such run takes minutes. The ratio is"
    echo "ours / CGAL: below 1 we are faster. Peak memory is the most the run made"
    echo "resident above its input (VmHWM reset through /proc/self/clear_refs once"
    echo "the input was ready). Case 4 times the queries only, on TINs built"
    echo "beforehand."
} >"$tmp"
rm -f "$tmp.table"

{
    echo "# Side-by-side runs against CGAL"
    echo
    echo "Written by \`bench/peers/run_peers.sh\`."
    echo
    cat "$tmp"
} >"$out"
echo "wrote $out" >&2

if [ "$readme" = 1 ]; then
    # The section is the last one of the README: replace it from its heading
    # on, one blank line after what comes before it.
    awk '/^## Performance$/ { exit }
         /^$/ { blank++; next }
         { while (blank > 0) { print ""; blank-- } print }' README.md >"$tmp.readme"
    {
        echo
        echo "## Performance"
        echo
        echo "Side by side with CGAL on the same inputs (\`./run.sh peers\`, which"
        echo "installs libcgal-dev and runs \`bench/peers/run_peers.sh\`; latest run"
        echo "below, kept in \`bench/peers/RESULTS.md\`):"
        echo
        cat "$tmp"
    } >>"$tmp.readme"
    cp "$tmp.readme" README.md
    echo "updated the Performance section of README.md" >&2
fi
