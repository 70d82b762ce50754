#!/usr/bin/env bash
# Makes the Debian packages in build/packages, installs them in a fresh Debian and tries the tool there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
packages=$PWD/build/packages

bash scripts/install-deps.sh g++ cmake ninja-build pkg-config libcurl4-openssl-dev libglib2.0-dev libpugixml-dev \
    libcli11-dev nlohmann-json3-dev dpkg-dev file mmdebstrap python3
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

work=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server"; rm -rf "$work"' EXIT
echo "== Starting a server on loopback"
seq 5 >"$work/document"
python3 -u -m http.server --bind 127.0.0.1 --directory "$work" 0 >"$work/server" 2>/dev/null &
server=$!
for _ in $(seq 100); do grep -q port "$work/server" && break; sleep 0.1; done
port=$(grep -oP '(?<=port )\d+' "$work/server")

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
veltra get "http://127.0.0.1:$port/document" | tee /dev/stderr | cmp - "$work/document"
END
chmod -R a+rX,a+x "$work"
echo "== Installing the packages in a fresh Debian, from the archives of this machine's own packages"
apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
    sort -u >"$work/sources"
mmdebstrap --quiet --variant=apt --customize-hook="$work/trial" \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" /dev/null "$work/sources"
