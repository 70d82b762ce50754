#!/usr/bin/env bash
# Prints the Debian symbols file of a built library, in which each symbol carries the current minor version:
# scripts/debian_symbols.sh LIBRARY
set -euo pipefail
library=$(realpath -- "${1:?no library is named}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
minor_version=$(sed -n 's/^project(veltra VERSION \([0-9]*\.[0-9]*\).*/\1/p' CMakeLists.txt)
soname=$(objdump -p "$library" | sed -n 's/^ *SONAME *//p')
echo "$soname libveltra${soname#libveltra.so.} #MINVER#"
echo "* Build-Depends-Package: libveltra-dev"
nm -D --defined-only "$library" | sed -E -e 's/.* //' -e 's/@+/@/' -e 's/^(VELTRA_[0-9.]+)$/\1@\1/' \
    -e "s/.*/ & $minor_version/" | LC_ALL=C sort
