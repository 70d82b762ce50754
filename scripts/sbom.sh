#!/usr/bin/env bash
# Lists what is in the packages of build/packages, which scripts/package.sh makes, and what they were built with, as an SPDX
# 2.3 document beside them: scripts/sbom.sh. Each Debian package in use stands there with its version and its source; its
# licence is left open, which its own copyright file tells. The document is checked before it is written.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh

install_packages dpkg git python3
ls build/packages/veltra-tools_*.deb >/dev/null 2>&1 || { echo "sbom: run scripts/package.sh first" >&2; exit 1; }
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)} python3 scripts/sbom.py build/packages "${tool_packages[@]}"
