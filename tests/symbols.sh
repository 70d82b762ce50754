#!/usr/bin/env bash
# Compares the library's symbols with the places that list them: what it exports with cmake/exports.map, and what a device
# build needs from the maker's libraries with PORTING.md: symbols.sh NM LIBRARY desktop|external
set -euo pipefail
nm=$1 library=$2 platform=$3
cd "$(dirname "${BASH_SOURCE[0]}")/.."

symbols() { # OPTION
    "$nm" -D "$1" "$library" | sed -E -e 's/^[0-9a-f ]*[A-Za-z] //' -e 's/@.*//' | c++filt | sed -E 's/\[abi:cxx11\]//'
}

status=0
complain() { # WHAT SYMBOL
    echo "$1: $2" >&2
    status=1
}

exported=$(symbols --defined-only)
while read -r private; do
    complain "private, but exported" "$private"
done < <(grep -E '::m_' <<<"$exported" | grep -vE '^CSingleton<.*>::m_(pObj|tSingletonLock)$')
if [ "$platform" = desktop ]; then
    while read -r pattern; do
        grep -qE "^$pattern\$" <<<"$exported" || complain "in cmake/exports.map, but not exported" "$pattern"
    done < <(sed -nE 's/^ {6}"?([^";]*)"?;$/\1/p' cmake/exports.map | sed -e 's/[?]/./g' -e 's/[*]/.*/g')
else
    while read -r operation; do
        grep -qE "\b$operation\b" PORTING.md || complain "needed from the platform, but not in PORTING.md" "$operation"
    done < <(symbols --undefined-only | grep -E '^(C[A-Z][A-Za-z]*|WQCurl)::' | sed -E -e 's/\(.*//' -e 's/.*::~?//')
fi
exit $status
