#!/usr/bin/env bash
# Prints the Debian symbols file of a built library: every symbol that veltra/symbols/ lists, with the version from which on
# it is as it is. The library must export each of them, and no other: scripts/debian_symbols.sh LIBRARY
set -euo pipefail
library=$(realpath -- "${1-.}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/symbol_names.sh
export LC_ALL=C
[ -f "$library" ] || { echo "debian_symbols: there is no library ${1-}" >&2; exit 2; }

minor_version=$(sed -n 's/^project(veltra VERSION \([0-9]*\.[0-9]*\).*/\1/p' CMakeLists.txt)
soname=$(objdump -p "$library" | sed -n 's/^ *SONAME *//p')
echo "$soname libveltra${soname#libveltra.so.} #MINVER#"
echo "* Build-Depends-Package: libveltra-dev"
symbols=$(mktemp)
trap 'rm -f "$symbols"' EXIT
nm -D --defined-only "$library" >"$symbols"
paste <(readable_names <"$symbols") <(sed -E -e 's/.* //' -e 's/@+/@/' -e 's/^(VELTRA_[0-9.]+)$/\1@\1/' "$symbols") |
    awk -F '\t' -v since="$minor_version" '
        function complain(text) { print "debian_symbols: " text > "/dev/stderr"; bad = 1 }
        FILENAME != "-" { missing[$0] = listed[$0] = 1; next }
        !($1 in listed) { complain($1 " is exported, but not listed") }
        { delete missing[$1]; print " " $2 " " since }
        END { for (name in missing) complain(name " is listed, but not exported"); exit bad }
    ' veltra/symbols/library veltra/symbols/platform veltra/symbols/desktop - | sort
