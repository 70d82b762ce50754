#!/usr/bin/env bash
# Makes the Debian packages in build/packages, installs them in a fresh Debian and tries the tool there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
source scripts/lib/fresh_debian.sh
packages=$PWD/build/packages

install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" dpkg-dev file mmdebstrap \
    debian-archive-keyring nginx-light
echo "== Building the packages"
cmake --preset release -B "$packages" -DCMAKE_INSTALL_PREFIX=/usr -DVELTRA_BUILD_TESTS=OFF >/dev/null
cmake --build "$packages"
rm -f "$packages"/*.deb
cpack --config "$packages/CPackConfig.cmake" -B "$packages"
for package in "$packages"/*.deb; do
    echo "== $(basename "$package")"
    dpkg-deb --field "$package"
    dpkg-deb --contents "$package"
done
dpkg-deb --field "$packages"/libveltra[0-9]*.deb Depends | grep -q 'libcurl4 (>= 7\.87)' ||
    { echo "package: the library does not ask for the libcurl that its wrapper needs" >&2; exit 1; }

work=$(mktemp -d)
trap 'leave_fresh_debian; stop_nginx; rm -rf "$work"' EXIT
servers() {
    echo "server { listen 127.0.0.1:$nginx_port; root \"$work\"; }"
}
seq 5 >"$work/document"
start_nginx "$work" servers

# mmdebstrap runs this for its new root, in which the user who started it may have no rights outside.
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
chmod -R a+rX,a+x "$work"
echo "== Installing the packages in a fresh Debian, from the archives of this machine's own packages"
in_fresh_debian "$(own_release)" ca-certificates "$work/trial" 2>&1 # where mmdebstrap sends what the trial prints
