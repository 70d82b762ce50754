#!/usr/bin/env bash
# Compares what applications are built against, the exported symbols and the layouts of the public records and classes, with
# what the last minor version had, which cmake/libveltra-MAJOR.MINOR.abi holds: scripts/abi.sh [--renew]
# --renew writes that file anew, for the version that CMakeLists.txt names. The compiler has a part in it, so that another
# release of Debian than the one that wrote it compares in a fresh root of that one.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/fresh_debian.sh
release=bookworm architecture=amd64
packages=("${build_packages[@]}" "${library_packages[@]}" abigail-tools)

compare_in_fresh_root() {
    echo "== Making a fresh root of $release"
    install_packages mmdebstrap debian-archive-keyring
    trial=$(mktemp)
    trap 'leave_fresh_debian; rm -f "$trial"' EXIT
    cat >"$trial" <<END
#!/bin/sh
set -e
mkdir "\$1/veltra"
tar -C "$PWD" --exclude=./build --exclude=./.git -c . | tar -C "\$1/veltra" -x
chroot "\$1" /veltra/scripts/abi.sh
END
    chmod +x "$trial"
    in_fresh_debian "$release" "$(IFS=,; echo "${packages[*]},ca-certificates")" "$trial"
}

# Without anything that says where it was built. The headers tell what is public.
write_dump() { # FILE
    local prefix=build/abi/prefix
    rm -rf "$prefix"
    cmake --install build/abi --prefix "$prefix" >/dev/null
    abidw --no-corpus-path --no-comp-dir-path --short-locs --drop-private-types --exported-interfaces-only \
        --headers-dir "$prefix/include" --suppressions cmake/libveltra.abignore build/abi/veltra/libveltra.so |
        sed -E "s/ (filepath='[^']*' line='[0-9]+' column='[0-9]+'|visibility='default')//g" >"$1"
}

if [ "$(dpkg --print-architecture)" != "$architecture" ]; then
    echo "abi: the dump is of $architecture, and nothing is compared here" >&2
    exit 2
elif [ "$(own_release)" != "$release" ]; then
    [ "${1-}" != --renew ] || { echo "abi: the dump is written on $release only" >&2; exit 2; }
    compare_in_fresh_root
    exit
fi

install_packages "${packages[@]}"
version=$(sed -n 's/^project(veltra VERSION \([0-9]*\.[0-9]*\)\..*/\1/p' CMakeLists.txt)
echo "== Building"
cmake -S . -B build/abi -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELTRA_BUILD_TESTS=OFF -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/abi >/dev/null
if [ "${1-}" = --renew ]; then
    rm -f cmake/libveltra-*.abi
    write_dump "cmake/libveltra-$version.abi"
    echo "== Written: cmake/libveltra-$version.abi"
    exit
fi

kept=$(echo cmake/libveltra-*.abi)
write_dump build/abi/libveltra.abi
echo "== Comparing with $kept"
if abidiff "$kept" build/abi/libveltra.abi; then
    echo "== No difference: what was built against the one runs with the other"
elif [ "$kept" != "cmake/libveltra-$version.abi" ]; then
    echo "== Version $version differs from the last one, as it may. Tell of it in CHANGELOG.md; a release renews the dump."
else
    cat >&2 <<END
abi: what applications were built against has changed, while the version is still $version. They would call what is no
longer there, or read records at the wrong places. Either take the change back, or raise the minor version in
CMakeLists.txt and debian/changelog and say in CHANGELOG.md what has changed. Only while $version is not released:
    scripts/abi.sh --renew
END
    exit 1
fi
