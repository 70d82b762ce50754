# shellcheck shell=bash
# Installs the Debian packages that the scripts need; to be sourced.

# shellcheck disable=SC2034 # used by the scripts
{
    build_packages=(g++ make cmake ninja-build pkg-config openssl)
    library_packages=(libcurl4-openssl-dev libglib2.0-dev libpugixml-dev)
    tool_packages=(libcli11-dev nlohmann-json3-dev)
    test_packages=(libgtest-dev libssl-dev)
}

# Sets as_root, the prefix of commands that need root. Without sudo it shows COMMAND and ends the script.
become_root() { # COMMAND
    as_root=()
    [ "$(id -u)" -ne 0 ] || return 0
    as_root=(sudo)
    command -v sudo >/dev/null && return 0
    echo "$(basename "$0" .sh): installing packages needs root or sudo. Run as root:" >&2
    echo "    $1" >&2
    exit 1
}

# Installs the packages that are missing.
install_packages() { # PACKAGE...
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -ne 0 ] || return 0
    echo "== Installing: ${missing[*]}"
    become_root "apt-get install --no-install-recommends ${missing[*]}"
    mkdir -p build
    (
        flock 8 # apt-get fails while another script's apt-get runs
        "${as_root[@]}" apt-get update -qq
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
            >/dev/null
    ) 8>build/install.lock
}

# Unpacks the files of a package in build/PACKAGE, without its dependencies. Nothing is installed, started or enabled.
unpack_package() { # PACKAGE
    local work download=(apt-get download -qq -o APT::Sandbox::User=root "$1")
    [ ! -d "build/$1" ] || return 0
    echo "== Unpacking in build/$1: $1"
    mkdir -p build
    work=$(mktemp -d -p "$PWD/build")
    if ! (cd "$work" && "${download[@]}" 2>/dev/null); then
        become_root "apt-get update"
        "${as_root[@]}" apt-get update -qq
        (cd "$work" && "${download[@]}")
    fi
    dpkg-deb --extract "$work"/*.deb "$work/files"
    # Another script may have done the same in the meantime.
    mv --no-target-directory "$work/files" "build/$1" 2>/dev/null || [ -d "build/$1" ]
    rm -rf "$work"
}
