#!/usr/bin/env bash
# Fails if a library or program lacks hardening: scripts/hardened.sh [--unoptimised] FILE...
# --unoptimised expects no checked functions of the C library (_FORTIFY_SOURCE): they need an optimising compiler.
set -euo pipefail
marks=('Type: *DYN' '__stack_chk_fail' 'GNU_RELRO' 'BIND_NOW|FLAGS_1.* NOW')
if [ "${1-}" = --unoptimised ]; then shift; else marks+=(' __[a-z]+_chk(@|$)'); fi
failed=0
for file in "${@:?no file is named}"; do
    facts=$(readelf -hldnW --dyn-syms "$file")
    shadow_stack=()
    ! grep -q 'Machine:.*X86-64' <<<"$facts" || shadow_stack=('x86 feature:.*SHSTK')
    for mark in "${marks[@]}" "${shadow_stack[@]}"; do
        grep -qE "$mark" <<<"$facts" || { echo "$file: readelf shows no \"$mark\"" >&2; failed=1; }
    done
done
exit "$failed"
