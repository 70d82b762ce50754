#!/usr/bin/env bash
# Checks that each test which the manual names exists, and counts what it promises. Behind a promise stands, unseen by its
# readers: <!-- shown by: TEST[, TEST]...[; nothing yet: WHAT] -->, or <!-- shown by: nothing yet[: WHY] -->.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
pages=(docs/{downloads,errors,requests,security,settings,threads,tool}.md)

faults=()
for page in "${pages[@]}"; do
    grep -q '<!-- shown by: ' "$page" || faults+=("$page names no test")
done
while read -r comment; do
    faults+=("no such comment: $comment")
done < <(grep -o '<!--[^>]*>' "${pages[@]}" | grep -v '<!-- shown by: [^<>]* -->')
promises=$(grep -oh '<!-- shown by: [^<>]* -->' "${pages[@]}" | sed 's/<!-- shown by: \(.*\) -->/\1/')
tests=$({ sed -nE 's/^TEST(_F)?\((\w+), (\w+)\).*/\2.\3/p' tests/*.cpp && git ls-files 'scripts/*.sh'; } | sort)
named=$(sed -E 's/(^|; )nothing yet.*//; s/, /\n/g' <<<"$promises" | sed '/^$/d' | sort -u)
while read -r name; do
    [ -z "$name" ] || faults+=("there is no test $name, which $(grep -lF "$name" "${pages[@]}" | tr '\n' ' ')names")
done < <(comm -23 <(echo "$named") <(echo "$tests"))
if [ ${#faults[@]} -gt 0 ]; then
    printf 'claims: %s\n' "${faults[@]}" >&2
    exit 1
fi
count() { grep -cE "$1" <<<"$promises" || true; }
echo "claims: $(count .) promises, of which $(count '; nothing yet') are shown in part and $(count '^nothing yet') not at all," \
    "by $(wc -l <<<"$named") tests"
