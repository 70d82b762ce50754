#!/usr/bin/env bash
# Compares what the library exports, and what a device build needs from the maker's libraries, with the lists in
# veltra/symbols/: symbols.sh NM LIBRARY desktop|external
set -euo pipefail
nm=$1 library=$2 platform=$3
cd "$(dirname "${BASH_SOURCE[0]}")/../veltra/symbols"
export LC_ALL=C

# Names as one writes them. Of the sizes, which differ between processors, only the write functions' are seen.
symbols() { # OPTION
    "$nm" -D "$1" "$library" | sed -E -e 's/^[0-9a-f ]*[A-Za-z] //' -e 's/@.*//' | c++filt | sed -E \
        -e 's/\[abi:cxx11\]//' -e 's/std::__cxx11::/std::/g' \
        -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
        -e 's/, std::less<std::string >//' -e 's/, std::allocator<std::pair<[^<>]*> > >/>/g' \
        -e 's/, std::allocator<[^<>]*> >/>/g' \
        -e 's/(unsigned )int( \(\*\)\(char\*)/\1long\2/' -e 's/(\(char\*, unsigned )int(, unsigned )int/\1long\2long/' | sort -u
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
