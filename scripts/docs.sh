#!/usr/bin/env bash
# Builds the manual into build/docs/html and checks the tool's manual page; any warning fails.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh

install_packages doxygen graphviz groff
version=$(sed -n 's/^project(veltra VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || { echo "docs: CMakeLists.txt names no version" >&2; exit 1; }
echo "== Building the manual of version $version"
rm -rf build/docs
mkdir -p build/docs
echo "== Checking the manual page"
complaints=$(groff -man -Tutf8 -ww -z docs/veltra.1 2>&1)
[ -z "$complaints" ] || { echo "$complaints" >&2; exit 1; }
GROFF_NO_SGR=1 groff -man -Tutf8 -rLL=100n docs/veltra.1 | perl -pe 's/.\x08//g' >build/docs/veltra.1.txt
VELTRA_VERSION=$version doxygen docs/Doxyfile
echo "== Done: build/docs/html/index.html"
