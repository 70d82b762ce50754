#!/usr/bin/env bash
# Tries the last commit in fresh minimal roots of Debian: scripts/distributions.sh [RELEASE...], by default bookworm trixie.
# A clone follows README's section Install, builds and starts README's program against the installed library, and runs the
# demo and the tests. No service may be enabled afterwards.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
source scripts/lib/fresh_debian.sh

install_packages git mmdebstrap debian-archive-keyring
work=$(mktemp -d)
trap 'leave_fresh_debian; stop_nginx; rm -rf "$work"' EXIT
git clone --quiet --bare --no-local --depth 1 "$PWD" "$work/veltra.git"
seq 5 >"$work/document"
servers() {
    echo "server { listen 127.0.0.1:$nginx_port; root \"$work\"; }"
}
start_nginx "$work" servers
cat >"$work/trial" <<END
#!/bin/sh
set -e
cp -r "$work/veltra.git" "$work/inside" "\$1/root"
# apt must ask nothing and install only the packages that README names.
printf '%s\n' 'APT::Get::Assume-Yes "true";' 'APT::Install-Recommends "false";' >"\$1/etc/apt/apt.conf.d/trial"
chroot "\$1" env HOME=/root DEBIAN_FRONTEND=noninteractive URL=http://127.0.0.1:$nginx_port/document bash /root/inside
cmp "\$1/root/program/file" "$work/document"
END
cat >"$work/inside" <<'END'
set -euo pipefail

# Prints the code block of the LANGUAGE in the SECTION of README.md.
readme() { # SECTION LANGUAGE
    sed -n "/^## $1\$/,/^## / { /^\`\`\`$2\$/,/^\`\`\`\$/ { /^\`\`\`/! p } }" ~/veltra/README.md
}

# Lists the links by which services start at boot.
enabled() {
    find /etc/systemd /etc/rc?.d \( -path '*.wants/*' -o -path '*.requires/*' -o -name 'S*' \) 2>/dev/null | sort
}

step() {
    echo "== $(. /etc/os-release && echo "$PRETTY_NAME"), after $SECONDS s: $1"
}

cd
enabled >enabled
git clone --quiet veltra.git veltra
step "README's section Install"
(cd veltra && bash -eux -c "$(readme Install sh)")
step "README's program"
mkdir program
cd program
readme "In an application" cpp >program.cpp
readme "Build an application" cmake >CMakeLists.txt
FILE=$PWD/file bash -eux -c "$(readme "Build an application" sh)"
for script in demo test; do
    step "scripts/$script.sh"
    ~/veltra/scripts/$script.sh
done
step "services"
enabled | diff ~/enabled - && echo "No service was enabled"
END
chmod -R a+rX,a+x "$work"

releases=("$@")
[ ${#releases[@]} -gt 0 ] || releases=(bookworm trixie)
for release in "${releases[@]}"; do
    echo "== Making a fresh root of $release"
    SECONDS=0
    # cmake depends on procps, which enables a service.
    in_fresh_debian "$release" git,ca-certificates,procps "$work/trial"
    report+=("$release: README, the demo and the tests passed in $SECONDS s")
done
echo "== Done"
printf '%s\n' "${report[@]}"
