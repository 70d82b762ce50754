#!/usr/bin/env bash
# Builds everything and runs all tests, installing what that needs: scripts/test.sh [PRESET], by default "debug".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
preset=${1:-debug}
require_preset "$preset"

packages=("${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}")
[ "$preset" != clang ] || packages+=(clang)
install_packages "${packages[@]}"
echo "== Building (preset $preset)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
echo "== Testing"
ctest --preset "$preset" -j "$(nproc)"
