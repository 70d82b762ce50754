#!/usr/bin/env bash
# Compares what the library exports, and what a device build needs from the maker's libraries, with the lists in
# veltra/symbols/: symbols.sh NM LIBRARY desktop|scripted|external
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

case $platform in
desktop) symbols --defined-only | compare "exported by the desktop build" library platform desktop ;;
scripted)
    symbols --defined-only | compare "exported by the scripted library" library platform desktop scripted
    # The handles are the scripted web's: libcurl's functions must not get them.
    symbols --undefined-only | grep -E '^curl_(easy|multi|share)_' |
        compare "needed from libcurl" <(printf '%s\n' curl_easy_option_by_id curl_easy_strerror)
    ;;
external)
    symbols --defined-only | compare "exported by a device build" library
    symbols --undefined-only | grep -E '^(C[A-Z][A-Za-z]*|WQCurl)::' | compare "needed from the platform" platform
    ;;
esac
