#!/usr/bin/env bash
# Builds everything and runs all tests, installing what that needs: scripts/test.sh [PRESET], by default "debug".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=${1:-debug}

bash scripts/install-deps.sh g++ cmake ninja-build pkg-config libcurl4-openssl-dev libglib2.0-dev libpugixml-dev \
    libcli11-dev nlohmann-json3-dev libgtest-dev libssl-dev openssl
echo "== Building (preset $preset)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
echo "== Testing"
ctest --preset "$preset" -j "$(nproc)"
