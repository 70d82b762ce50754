# shellcheck shell=bash
# Fresh minimal roots of Debian, from the same archives as this machine's own packages; to be sourced.

own_release()
{
    (. /etc/os-release && echo "$VERSION_CODENAME")
}

# The lines of sources.list: this machine's own, with RELEASE in the place of its own release.
debian_sources() # RELEASE
{
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    apt-get indextargets --format "deb [signed-by=$keyring] \$(REPO_URI) \$(CODENAME) \$(COMPONENT)" \
        'Created-By: Packages' 'Origin: Debian' | sort -u | sed "s/ $(own_release)\([ -]\)/ $1\1/" | grep . && return 0
    echo "apt knows none of Debian's archives: is it in need of an update?" >&2
    return 1
}

# Calls TRIAL with the path of a root that has apt, the PACKAGES (separated by commas) and the network, and takes the
# root away again. What it does as root it does in a namespace of its own, so that no mount and no process is left.
in_fresh_debian() # RELEASE PACKAGES TRIAL
{
    local namespace=()
    [ "$(id -u)" -ne 0 ] || namespace=(unshare --mount --pid --fork --kill-child --mount-proc)
    fresh_debian=$(mktemp -d)
    chmod a+rx,a+w "$fresh_debian" # who is root there may be nobody here
    debian_sources "$1" >"$fresh_debian/sources"
    TMPDIR=$fresh_debian "${namespace[@]}" mmdebstrap --quiet --variant=apt --include="$2" \
        --customize-hook="$3" "$1" /dev/null "$fresh_debian/sources" &
    fresh_debian_pid=$!
    wait "$fresh_debian_pid"
    fresh_debian_pid=
    leave_fresh_debian
    fresh_debian=
}

# Copies this tree, without what was built of it, to /veltra in such a root, and runs COMMANDS, for which $1 is the root.
in_fresh_copy() # RELEASE PACKAGES COMMANDS
{
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

# For a trap: also when it is interrupted.
leave_fresh_debian()
{
    local try
    rm -f "${fresh_trial-}"
    if [ -n "${fresh_debian_pid-}" ]; then
        [ "$(id -u)" -ne 0 ] || kill -KILL "$fresh_debian_pid" 2>/dev/null || true # unshare heeds nothing else
        kill "$fresh_debian_pid" 2>/dev/null || true
        wait "$fresh_debian_pid" || true
        fresh_debian_pid=
    fi
    [ -n "${fresh_debian-}" ] || return 0
    for try in 1 2 3 4 5; do
        rm -rf "$fresh_debian" 2>/dev/null && return 0
        sleep "$try" # for its last processes to go
    done
    rm -rf "$fresh_debian"
}
