#!/usr/bin/env bash
# Reads built libraries and programs for what hardens them, and fails if one lacks it:
# scripts/hardened.sh [--unoptimised] FILE..., where --unoptimised asks for no checked functions of the C library.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
case ${1-} in -h | --help) cd "$here/.." ;; esac
source "$here/lib/arguments.sh"
checked=yes
[ "${1-}" != --unoptimised ] || { checked=no; shift; }
[ $# -gt 0 ] || { echo "hardened: no file is named" >&2; exit 2; }
failed=0

# Whole outputs are looked at: "grep -q" would end readelf early, which counts as a failure.
look() { # FILE WHAT PATTERN COMMAND...
    if "${@:4}" | grep -E -- "$3" >/dev/null; then
        echo "$1: $2"
    else
        echo "$1: no $2" >&2
        failed=1
    fi
}

for file in "$@"; do
    header=$(readelf -hW "$file")
    look "$file" "address of its own choice" 'Type: *DYN' echo "$header"
    look "$file" "stack protector" '__stack_chk_fail' readelf --dyn-syms -W "$file"
    look "$file" "read-only relocations (RELRO)" GNU_RELRO readelf -lW "$file"
    look "$file" "binding at start (BIND_NOW)" 'BIND_NOW|FLAGS_1.* NOW' readelf -dW "$file"
    [ "$checked" = no ] || look "$file" "checked function (_FORTIFY_SOURCE)" ' __[a-z]+_chk' readelf --dyn-syms -W "$file"
    if grep -q 'Machine:.*X86-64' <<<"$header"; then
        look "$file" "shadow stack (-fcf-protection)" 'x86 feature:.*SHSTK' readelf -nW "$file"
        # The compiler's start files bring some of their own.
        entries=$(objdump -d --no-show-raw-insn "$file" | grep -c endbr64 || true)
        look "$file" "marked entry points (-fcf-protection): $entries" '^[0-9]{2,}$' echo "$entries"
    fi
done
exit "$failed"
