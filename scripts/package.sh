#!/usr/bin/env bash
# Makes Debian packages of the tracked files, in build/packages. The .buildinfo there lists what they were built with.
# Two builds in different folders must give the same bytes. lintian checks the packages; a fresh Debian tries the tool.
# VELTRA_QUERY_HOST and VELTRA_QUERY_HOST_TEST of the environment name the hosts of the query service.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
source scripts/lib/fresh_debian.sh
shopt -s extglob
packages=$PWD/build/packages

fail() { # TEXT...
    echo "package: $*" >&2
    exit 1
}

build_in() { # FOLDER
    echo "== Building the packages in $1"
    mkdir -p "$1/veltra"
    git ls-files -z --deduplicate | tar --null --files-from=- --create | tar --extract --directory "$1/veltra"
    (cd "$1/veltra" && dpkg-buildpackage --build=binary --no-sign) >"$1/log" 2>&1 || { tail -n 100 "$1/log"; return 1; }
}

# The folders differ in depth: no package may depend on its path.
build_twice() {
    local package name
    build_in "$work/one"
    build_in "$work/other/and/deeper"
    rm -rf "$packages"
    mkdir -p "$packages"
    cp "$work"/one/*.{deb,buildinfo} "$packages"
    for package in "$packages"/*.deb; do
        name=$(basename "$package")
        cmp "$package" "$work/other/and/deeper/$name" && continue
        mkdir "$packages/other"
        cp "$work"/other/and/deeper/*.deb "$packages/other"
        fail "two builds differ: \"diffoscope build/packages/$name build/packages/other/$name\" tells where"
    done
    echo "== The two builds are the same, byte by byte:"
    (cd "$packages" && sha256sum ./*.deb)
}

check_packages() {
    local package
    for package in "$packages"/*.deb; do
        echo "== $(basename "$package")"
        dpkg-deb --field "$package"
        dpkg-deb --contents "$package"
        dpkg-deb --extract "$package" "$work/extracted"
    done
    echo "== Hardening"
    scripts/hardened.sh "$work"/extracted/usr/lib/*/libveltra{.so.*.*.*,-scripted.so} "$work/extracted/usr/bin/veltra"
    for package in "$packages"/libveltra+([0-9.])_*.deb "$packages"/veltra-tools_*.deb; do
        dpkg-deb --field "$package" Depends | grep -E 'libcurl4(t64)? \(>= 7\.87\)' >/dev/null ||
            fail "$(basename "$package") does not depend on the libcurl that the wrapper needs"
    done
    echo "== lintian"
    lintian --version
    lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$packages"/*.deb
}

# Writes the hook that mmdebstrap runs with the path of the new root.
write_trial() {
    cat >"$work/trial" <<END
#!/usr/bin/env bash
set -euo pipefail
root=\$1
veltra() { echo "== In the fresh Debian: veltra \$*" >&2; chroot "\$root" veltra "\$@"; }
cp "$packages"/*.deb "\$root/tmp"
chroot "\$root" sh -c 'DEBIAN_FRONTEND=noninteractive apt-get -qq install --no-install-recommends /tmp/*.deb' \\
    >"\$root/tmp/apt.log"
veltra --version
veltra --help
veltra get "http://127.0.0.1:$nginx_port/document" >"\$root/tmp/document"
cmp "\$root/tmp/document" "$work/document"
END
}

install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" build-essential debhelper git \
    lintian mmdebstrap debian-archive-keyring
work=$(mktemp -d)
trap 'leave_fresh_debian; stop_nginx; rm -rf "$work"' EXIT
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH
build_twice
check_packages

servers() {
    echo "server { listen 127.0.0.1:$nginx_port; root \"$work\"; }"
}
seq 5 >"$work/document"
start_nginx "$work" servers
write_trial
chmod -R a+rX,a+x "$work"
echo "== Installing the packages in a fresh Debian, from the archives of this machine's own packages"
in_fresh_debian "$(own_release)" ca-certificates "$work/trial" 2>&1 # where mmdebstrap sends what the trial prints
