#!/usr/bin/env bash
# Installs the built library in a prefix of its own, builds the project examples/testing against it, once found by CMake
# and once by pkg-config, and runs its test. CXX, CXXFLAGS and CMAKE_GENERATOR are those of the library:
# consumer.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/../examples/testing"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

echo "== Installing"
cmake --install "$build" --prefix "$dir/prefix"
libdir=$(dirname "$(find "$dir/prefix" -name libveltra.so)")
export CMAKE_PREFIX_PATH=$dir/prefix PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
version=$(pkg-config --modversion veltra)

echo "== The project by CMake"
cmake -S . -B "$dir/cmake" >/dev/null
cmake --build "$dir/cmake"
ctest --test-dir "$dir/cmake" --output-on-failure
sed 's/find_package(veltra [0-9.]*/find_package(veltra 0.0/' CMakeLists.txt >"$dir/CMakeLists.txt"
cp ./*.h ./*.cpp "$dir"
! cmake -S "$dir" -B "$dir/other" >/dev/null 2>&1 || { echo "Another minor version is accepted" >&2; exit 1; }

echo "== The project by pkg-config"
for program in manager:veltra download_test:veltra-scripted; do
    flags=$(pkg-config --cflags --libs "${program#*:}")
    # shellcheck disable=SC2086 # flags are words
    $CXX $CXXFLAGS -std=c++17 "${program%:*}.cpp" download.cpp -o "$dir/${program%:*}" $flags
done
"$dir/download_test"
[ "$("$dir/manager" http://127.0.0.1:1/ "$dir/file")" = "The server cannot be reached" ]

[ ! -e "$dir/prefix/bin/veltra" ] || [ "$("$dir/prefix/bin/veltra" --version)" = "$version" ]
