#!/usr/bin/env bash
# Measures the library against what an application could use instead, on one machine in one run, and writes
# docs/performance.md with its chart: scripts/bench.sh [--quick]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/install-deps.sh g++ cmake ninja-build pkg-config libcurl4-openssl-dev libglib2.0-dev libpugixml-dev \
    libcli11-dev libgtest-dev libbenchmark-dev libssl-dev libsoup-3.0-dev glib-networking openssl nginx-light curl \
    aria2 valgrind python3-minimal
echo "== Building"
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/bench --target bench soak >/dev/null
echo "== Measuring"
exec python3 scripts/bench.py build/bench docs "$@"
