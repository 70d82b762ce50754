# shellcheck shell=bash
# Fresh minimal roots of Debian, from the archives of this machine's packages; to be sourced.

own_release() {
    (. /etc/os-release && echo "$VERSION_CODENAME")
}

# Prints this machine's lines of sources.list, with RELEASE in place of its own release.
debian_sources() { # RELEASE
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    apt-get indextargets --format "deb [signed-by=$keyring] \$(REPO_URI) \$(CODENAME) \$(COMPONENT)" \
        'Created-By: Packages' 'Origin: Debian' | sort -u | sed "s/ $(own_release)\([ -]\)/ $1\1/" | grep . && return 0
    echo "apt knows no archive of Debian: run apt-get update" >&2
    return 1
}

# Makes a root with apt, the PACKAGES (separated by commas) and the network, calls TRIAL with its path, and removes it.
# If root runs this, a namespace makes sure that no mount and no process is left.
in_fresh_debian() { # RELEASE PACKAGES TRIAL
    local namespace=()
    [ "$(id -u)" -ne 0 ] || namespace=(unshare --mount --pid --fork --kill-child --mount-proc)
    fresh_debian=$(mktemp -d)
    chmod a+rx,a+w "$fresh_debian" # root inside may be another user outside
    debian_sources "$1" >"$fresh_debian/sources"
    TMPDIR=$fresh_debian "${namespace[@]}" mmdebstrap --quiet --variant=apt --include="$2" \
        --customize-hook="$3" "$1" /dev/null "$fresh_debian/sources" &
    fresh_debian_pid=$!
    wait "$fresh_debian_pid"
    fresh_debian_pid=
    leave_fresh_debian
    fresh_debian=
}

# Copies this tree without its build folder to /veltra in a fresh root, and runs COMMANDS, in which $1 is the root's path.
in_fresh_copy() { # RELEASE PACKAGES COMMANDS
    install_packages mmdebstrap debian-archive-keyring
    fresh_trial=$(mktemp)
    cat >"$fresh_trial" <<END
#!/bin/sh
set -e
mkdir "\$1/veltra"
tar -C "$PWD" --exclude=./build --exclude=./.git -c . | tar -C "\$1/veltra" -x
$3
END
    chmod a+rx "$fresh_trial"
    in_fresh_debian "$1" "$2" "$fresh_trial"
}

# For an EXIT trap: also cleans up after an interruption.
leave_fresh_debian() {
    local try
    rm -f "${fresh_trial-}"
    if [ -n "${fresh_debian_pid-}" ]; then
        [ "$(id -u)" -ne 0 ] || kill -KILL "$fresh_debian_pid" 2>/dev/null || true # unshare ignores other signals
        kill "$fresh_debian_pid" 2>/dev/null || true
        wait "$fresh_debian_pid" || true
        fresh_debian_pid=
    fi
    [ -n "${fresh_debian-}" ] || return 0
    for try in 1 2 3 4 5; do
        rm -rf "$fresh_debian" 2>/dev/null && return 0
        sleep "$try" # the last processes are ending
    done
    rm -rf "$fresh_debian"
}
