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

# Without anything that says where it was built. The headers tell what is public.
write_dump() { # FILE
    local prefix=build/abi/prefix
    rm -rf "$prefix"
    cmake --install build/abi --prefix "$prefix" >/dev/null
    abidw --no-corpus-path --no-comp-dir-path --short-locs --drop-private-types --exported-interfaces-only \
        --headers-dir "$prefix/include" --suppressions cmake/libveltra.abignore build/abi/veltra/libveltra.so |
        sed -E "s/ (filepath='[^']*' line='[0-9]+' column='[0-9]+'|visibility='default')//g" >"$1"
    # What it does not see would change unnoticed. Constructors and destructors have several symbols, of which it takes one.
    nm -D --defined-only build/abi/veltra/libveltra.so | sed -n 's/.* [TW] \(.*\)@@.*/\1/p' | grep -v '[CD][012]E' |
        while read -r symbol; do
            grep -F "elf-symbol-id='$symbol@" "$1" >/dev/null || { echo "abi: abidw does not see $symbol" >&2; exit 1; }
        done
}

if [ "$(dpkg --print-architecture)" != "$architecture" ]; then
    echo "abi: the dump is of $architecture, and nothing is compared here" >&2
    exit 2
elif [ "$(own_release)" != "$release" ]; then
    [ "${1-}" != --renew ] || { echo "abi: the dump is written on $release only" >&2; exit 2; }
    echo "== Making a fresh root of $release"
    trap leave_fresh_debian EXIT
    # shellcheck disable=SC2016 # the root's, when there is one
    in_fresh_copy "$release" "$(IFS=,; echo "${packages[*]},ca-certificates")" 'chroot "$1" /veltra/scripts/abi.sh'
    exit
fi

install_packages "${packages[@]}"
version=$(sed -n 's/^project(veltra VERSION \([0-9]*\.[0-9]*\)\..*/\1/p' CMakeLists.txt)
echo "== Building"
mkdir -p build/abi
# Types that only containers lead to would not be compared: a function of the comparison's own takes each.
echo '#include "veltra/xml/appbin_server_info.h"
extern "C" __attribute__((visibility("default"))) void reach_types(APPBIN_SERVER_INFO_t&) {}' >build/abi/reach.cpp
echo 'REACH { global: reach_types; };' >build/abi/reach.map
g++ -std=c++17 -g -fPIC -I. -c build/abi/reach.cpp -o build/abi/reach.o
# Of a class, abidw sees only the operations that are compiled with the first source that knows it: so all are in one.
cmake -S . -B build/abi -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 \
    -DCMAKE_SHARED_LINKER_FLAGS="$PWD/build/abi/reach.o -Wl,--version-script=$PWD/build/abi/reach.map" \
    -DVELTRA_BUILD_TESTS=OFF -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/abi >build/abi/log 2>&1 || { cat build/abi/log; exit 1; }
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
