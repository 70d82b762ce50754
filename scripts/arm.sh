#!/usr/bin/env bash
# Builds everything for ARM and runs all tests under qemu: scripts/arm.sh [armhf | arm64], by default armhf (32-bit ARM).
# Debian's libraries for ARM are unpacked under build/ and not installed. For armhf the library's size and the memory of
# requests are limited.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/fresh_debian.sh
architecture=${1:-armhf}
case $architecture in
armhf) triplet=arm-linux-gnueabihf ;;
arm64) triplet=aarch64-linux-gnu ;;
*) echo "arm: there is no architecture $architecture; there are armhf and arm64" >&2 && exit 2 ;;
esac
sysroot=$PWD/build/$architecture-sysroot
libraries=("${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}" ca-certificates)

# Unpacks the libraries from the archives of this machine's packages, with an apt state of its own.
make_sysroot() {
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    mkdir -p "$work/lists/partial" "$work/cache/archives/partial"
    touch "$work/status"
    local own
    own=$(own_release)
    debian_sources "$own" | grep " $own main$" >"$work/sources" # without updates
    local apt=(apt-get -qq -o "APT::Architecture=$architecture" -o "APT::Architectures::=$architecture" -o APT::Sandbox::User=
        -o "Dir::State=$work" -o "Dir::State::status=$work/status" -o "Dir::Cache=$work/cache"
        -o "Dir::Etc::sourcelist=$work/sources" -o Dir::Etc::sourceparts=-)
    "${apt[@]}" update
    "${apt[@]}" install --no-install-recommends --download-only "${libraries[@]}"
    rm -rf "$sysroot"
    mkdir -p "$sysroot"
    local package link
    for package in "$work"/cache/archives/*.deb; do
        dpkg-deb -x "$package" "$sysroot"
    done
    # Absolute links would leave the sysroot.
    find "$sysroot" -type l -lname '/*' | while read -r link; do
        ln -sfnr "$sysroot$(readlink "$link")" "$link"
    done
    echo "${libraries[@]}" >"$sysroot/complete"
}

within() { # LIMIT FIGURE UNIT WHAT...
    echo "${*:4}: $2 $3 (at most $1)"
    [ "$2" -le "$1" ] || { echo "arm: that is too much" >&2; exit 1; }
}

# Each limit is a little above the measured figure, so that growth is noticed. The library's size grows by whole pages. The
# heap is measured, because the size of a process under qemu differs from that on a device.
check_footprint() {
    local build=build/armhf library=build/armhf/veltra/libveltra.so
    local footprint=(qemu-arm-static -L "$sysroot" "$build/bench/footprint")
    cmake --build --preset armhf --target footprint >/dev/null
    arm-linux-gnueabihf-strip -o "$library.stripped" "$library"
    within 98304 "$(stat -c %s "$library.stripped")" bytes libveltra.so, stripped
    within 300 "$(arm-linux-gnueabihf-readelf -rW "$library" | grep -c R_ARM)" entries its relocations
    within 116 "$(arm-linux-gnueabihf-nm -D --defined-only "$library" | wc -l)" symbols its exports
    # The authorities of a device, and the one that signed the server's certificate.
    cat "$sysroot"/usr/share/ca-certificates/mozilla/*.crt $build/tests/loopback/certificates/ca.pem >$build/ca-bundle.pem
    within 100 "$("${footprint[@]}" http 1 $build/ca-bundle.pem)" KiB heap of one request by HTTP
    within 3000 "$("${footprint[@]}" http 100 $build/ca-bundle.pem)" KiB heap of 100 at once by HTTP
    within 1200 "$("${footprint[@]}" https 1 $build/ca-bundle.pem)" KiB heap of one request by HTTPS
    within 20000 "$("${footprint[@]}" https 100 $build/ca-bundle.pem)" KiB heap of 100 at once by HTTPS
}

install_packages "g++-$triplet" qemu-user-static cmake ninja-build pkg-config openssl binutils
if [ "$(cat "$sysroot/complete" 2>/dev/null)" != "${libraries[*]}" ]; then
    echo "== Unpacking Debian's $architecture libraries in build/$architecture-sysroot"
    make_sysroot
fi
echo "== Building"
cmake --preset "$architecture" >/dev/null
cmake --build --preset "$architecture"
readelf -hW "build/$architecture/veltra/libveltra.so" | grep -E 'Machine: +(ARM|AArch64)$'
echo "== Testing"
ctest --preset "$architecture" -j "$(nproc)"
if [ "$architecture" = armhf ]; then
    echo "== Footprint"
    check_footprint
fi
