#!/usr/bin/env bash
# Installs the built library in a prefix of its own, builds an application against it, once found by CMake and once by
# pkg-config, and runs both. CXX, CXXFLAGS and CMAKE_GENERATOR are those of the library: consumer.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/consumer"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

echo "== Installing"
cmake --install "$build" --prefix "$dir/prefix"
libdir=$(dirname "$(find "$dir/prefix" -name libveltra.so)")
export CMAKE_PREFIX_PATH=$dir/prefix PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
version=$(pkg-config --modversion veltra)

run() { # PROGRAM ARGUMENTS...
    [ "$("$@")" = "$version" ] || { echo "$1 fails or does not tell version $version" >&2; exit 1; }
}

echo "== The application by CMake"
cmake -S . -B "$dir/cmake" >/dev/null
cmake --build "$dir/cmake"
run "$dir/cmake/consumer"

echo "== The application by pkg-config"
flags=$(pkg-config --cflags --libs veltra)
# shellcheck disable=SC2086 # flags are words
$CXX $CXXFLAGS -std=c++17 -fvisibility=hidden -fvisibility-inlines-hidden consumer.cpp -o "$dir/consumer" $flags
run "$dir/consumer"

[ ! -e "$dir/prefix/bin/veltra" ] || run "$dir/prefix/bin/veltra" --version
