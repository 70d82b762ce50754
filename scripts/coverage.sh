#!/usr/bin/env bash
# Measures what of engine/, query/ and xml/ the tests reach, in build/coverage. Prints a table of the branches, and the lines
# of which no test takes one; branches that only an exception takes are left out.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/packages.sh

install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}" gcovr
cmake -S . -B build/coverage -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELTRA_BUILD_TESTS=ON -DVELTRA_BUILD_TOOL=ON \
    -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" >/dev/null
cmake --build build/coverage
find build/coverage -name '*.gcda' -delete
# The others look at the library from outside, which exports more when it is measured.
ctest --test-dir build/coverage -j "$(nproc)" -E '^(symbols|consumer|device_build)$' >build/coverage/tests.log ||
    { cat build/coverage/tests.log; exit 1; }
cd build/coverage # where gcov writes
gcovr --root ../.. --filter '../../veltra/(engine|query|xml)/' --exclude-throw-branches --exclude-unreachable-branches \
    --branches --txt --print-summary .
