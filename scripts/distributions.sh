#!/usr/bin/env bash
# Tries what is committed as a new user would: in a fresh minimal root of each Debian release named, with git and
# ca-certificates besides, a clone runs the demo and the tests: scripts/distributions.sh [RELEASE...], by default
# bookworm trixie.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/fresh_debian.sh

install_packages git mmdebstrap debian-archive-keyring
work=$(mktemp -d)
trap 'leave_fresh_debian; rm -rf "$work"' EXIT
git clone --quiet --bare --no-local --depth 1 "$PWD" "$work/veltra.git"
cat >"$work/trial" <<'END'
#!/usr/bin/env bash
set -euo pipefail
cp -r "$(dirname "$0")/veltra.git" "$1/root"
chroot "$1" env HOME=/root bash -euc '
    cd
    git clone --quiet veltra.git veltra
    for script in demo test; do
        echo "== $(. /etc/os-release && echo "$PRETTY_NAME"): scripts/$script.sh"
        veltra/scripts/$script.sh
    done'
END
chmod -R a+rX,a+x "$work"

releases=("$@")
[ ${#releases[@]} -gt 0 ] || releases=(bookworm trixie)
for release in "${releases[@]}"; do
    echo "== Making a fresh root of $release"
    SECONDS=0
    in_fresh_debian "$release" git,ca-certificates "$work/trial"
    report+=("$release: the demo and the tests passed in $SECONDS s")
done
echo "== Done"
printf '%s\n' "${report[@]}"
