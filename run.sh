#!/usr/bin/env bash
# Developer entry point. Installs what the build needs (Debian packages), then:
#   ./run.sh demo       build and run the main job on the bundled sample data
#   ./run.sh test       build and run the whole test suite
#   ./run.sh sanitize   build and run the test suite under ASan + UBSan
#   ./run.sh bench      build the benchmarks
#   ./run.sh fuzz SECS  build the fuzzers (clang, ASan + UBSan), run each SECS seconds
#   ./run.sh peers      install CGAL, run the side-by-side cases (minutes)
set -euo pipefail
cd "$(dirname "$0")"

packages=(build-essential cmake pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libcli11-dev nlohmann-json3-dev libcairo2-dev libgmp-dev)
# libFuzzer and its sanitizer runtimes come with Debian's clang.
fuzz_packages=(clang libclang-rt-14-dev)

ensure_packages() {
    local missing=()
    for p in "${packages[@]}" "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        echo "installing: ${missing[*]}" >&2
        local sudo=""
        [ "$(id -u)" -ne 0 ] && sudo="sudo"
        $sudo apt-get update -qq
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
    fi
}

jobs=$(nproc 2>/dev/null || echo 2)

build() {
    local preset=$1
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
}

case "${1:-}" in
demo)
    ensure_packages
    build release
    rm -rf build/demo
    ./build/release/tools/kivgeo demo --data data --out build/demo
    echo "results in build/demo (the map: build/demo/map.png)"
    ;;
test)
    ensure_packages
    build release
    ctest --preset release
    ;;
sanitize)
    ensure_packages
    build sanitize
    ctest --preset sanitize
    ;;
bench)
    ensure_packages
    build release
    ls build/release/bench/
    ;;
fuzz)
    ensure_packages "${fuzz_packages[@]}"
    tests/fuzz/run_fuzz.sh "${2:-60}"
    ;;
peers)
    # CGAL is a peer for comparison only, never a dependency of the library.
    packages+=(libcgal-dev)
    ensure_packages
    shift
    bench/peers/run_peers.sh "$@"
    ;;
*)
    sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'
    exit 2
    ;;
esac
