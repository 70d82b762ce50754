#!/usr/bin/env bash
# Compares what the library exports, and what a device build needs from the maker's libraries, with the lists in
# veltra/symbols/: symbols.sh NM LIBRARY desktop|external
set -euo pipefail
nm=$1 library=$2 platform=$3
cd "$(dirname "${BASH_SOURCE[0]}")/../veltra/symbols"
source ../../scripts/lib/symbol_names.sh
export LC_ALL=C

symbols() { # OPTION
    "$nm" -D "$1" "$library" | readable_names | sort -u
}

compare() { # WHAT LISTS...
    echo "== $1: < missing, > surplus"
    shift
    diff <(sort "$@") -
}

if [ "$platform" = desktop ]; then
    symbols --defined-only | compare "exported by the desktop build" library platform desktop
else
    symbols --defined-only | compare "exported by a device build" library
    symbols --undefined-only | grep -E '^(C[A-Z][A-Za-z]*|WQCurl)::' | compare "needed from the platform" platform
fi
