# shellcheck shell=bash
# The Debian packages that the scripts need, each group once, and their installation; to be sourced.

# shellcheck disable=SC2034 # for those who source this
{
    build_packages=(g++ cmake ninja-build pkg-config openssl)
    library_packages=(libcurl4-openssl-dev libglib2.0-dev libpugixml-dev)
    tool_packages=(libcli11-dev nlohmann-json3-dev)
    test_packages=(libgtest-dev libssl-dev)
}

# Installs those that are missing; as root, or by sudo. Without either, it says what to install.
install_packages() # PACKAGE...
{
    local package missing=() as_root=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -ne 0 ] || return 0
    echo "== Installing: ${missing[*]}"
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        echo "$(basename "$0" .sh): this user may install nothing, and there is no sudo. As root:" >&2
        echo "    apt-get install --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
        >/dev/null
}
