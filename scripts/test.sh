#!/usr/bin/env bash
# Builds everything and runs all tests, installing the packages that they need: scripts/test.sh [--quick | --build] [PRESET]
# --quick leaves out the tests with the label "slow"; --build runs no test. The default preset is "debug".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
mode=
case ${1-} in --quick | --build) mode=$1 && shift ;; esac
preset=${1:-debug}
require_preset "$preset"

packages=("${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}")
[ "$preset" != clang ] || packages+=(clang)
install_packages "${packages[@]}"
echo "== Building (preset $preset)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
[ "$mode" != --build ] || exit 0
echo "== Testing"
ctest_options=(-j "$(nproc)")
[ "$mode" != --quick ] || ctest_options+=(-LE '^slow$')
ctest --preset "$preset" "${ctest_options[@]}"
