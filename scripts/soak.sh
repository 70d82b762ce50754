#!/usr/bin/env bash
# Loads the library with bad servers and bad links:
#   scripts/soak.sh [MINUTES]          both jobs below; MINUTES is 10 by default, the file has 64 MiB
#   scripts/soak.sh --bad-link [MIB]   the second job alone, with a file of MIB, by default 1024; only root may run it
# 1. Mixed traffic to a hostile server and to an nginx that is killed and restarted. At the end each accepted transfer must
#    have ended exactly once, and all resources must be free.
# 2. Downloads of one large file over a link that is cut every few MiB, stalls once and changes its address half-way. The
#    file must be right bit by bit, with less than 1 % of it sent twice. The link has its own network and hosts file.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
work=$(mktemp -d)
mkdir "$work/www" "$work/files"
background=()

kill_nginx() {
    [ -s "$work/nginx.pid" ] || return 0
    local master
    master=$(cat "$work/nginx.pid")
    # shellcheck disable=SC2046 # several processes
    kill -KILL "$master" $(pgrep -P "$master") 2>/dev/null || true
}
stop() {
    end_processes "${background[@]}"
    background=()
    kill_nginx
    rm -rf "$work"
}
trap stop EXIT
servers() {
    echo "server { listen 127.0.0.1:$nginx_port; root \"$work/www\"; error_page 405 =200 \$uri; }"
}
start_good_server() {
    start_nginx "$work" servers
    disown "$nginx_pid" # the shell would report its end
}
restart_nginx_repeatedly() {
    trap 'exit 0' TERM
    while true; do
        sleep 7 &
        wait $!
        kill_nginx
        sleep 0.3
        run_nginx "$work" && disown "$nginx_pid"
    done
}

mixed_traffic() { # MINUTES
    local plain tls
    echo "== Starting the hostile server"
    build/soak/tests/soak --serve >"$work/ports" &
    background+=($!)
    wait_until 10 test -s "$work/ports"
    read -r plain tls <"$work/ports"
    head -c 1000 /dev/urandom >"$work/www/small"
    head -c 300000 /dev/urandom >"$work/www/large"
    start_good_server
    restart_nginx_repeatedly &
    background=($! "${background[@]}")
    echo "== Traffic for $1 minutes"
    local good=http://127.0.0.1:$nginx_port bad=http://127.0.0.1:$plain secure=https://127.0.0.1:$tls
    build/soak/tests/soak --seconds "$(awk "BEGIN { print int($1 * 60) }")" --folder "$work/files" \
        --cacert build/soak/tests/loopback/certificates/ca.pem \
        "$good"/{small,small,small,large,large,missing} \
        "$bad"/{echo/,reset,cut,chunked,redirect,stall} \
        "$secure"/{chunked,reset,cut} "https://localhost:$tls/chunked" http://127.0.0.1:1/refused file:///etc/hostname
    stop
}

# Runs in a network and a mount namespace of its own.
bad_link() { # MIB
    local kind relayed cuts
    ip link set lo up
    head -c "${1}M" /dev/urandom >"$work/www/file"
    start_good_server
    for kind in async sync; do
        echo "127.0.0.1 badlink.invalid" >"$work/hosts"
        mount --bind "$work/hosts" /etc/hosts
        rm -f "$work/port"
        echo "== Downloading $1 MiB over the bad link, $kind"
        python3 scripts/lib/bad_link.py "$nginx_port" "$1" /etc/hosts "$work/relayed" >"$work/port" &
        background=($!)
        wait_until 10 test -s "$work/port"
        build/soak/bench/broken_download "$kind" "http://badlink.invalid:$(cat "$work/port")/file" "$work/$kind"
        end_processes "${background[@]}"
        background=()
        cmp "$work/www/file" "$work/$kind"
        rm "$work/$kind"
        umount /etc/hosts
        read -r relayed cuts <"$work/relayed"
        awk -v relayed="$relayed" -v cuts="$cuts" -v file="$(($1 * 1048576))" 'BEGIN {
            printf "== Whole; %d cuts, %.3f %% of the bytes sent twice\n", cuts, 100 * (relayed - file) / file
            exit relayed >= 1.01 * file }'
    done
}

case ${1-} in
--inside)
    bad_link "$2"
    exit
    ;;
--bad-link) minutes='' mib=${2-1024} ;;
*) minutes=${1:-10} mib=64 ;;
esac
install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}" \
    procps python3 iproute2 util-linux
echo "== Building"
cmake -S . -B build/soak -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/soak --target soak broken_download >/dev/null
[ -z "$minutes" ] || mixed_traffic "$minutes"
if [ "$(id -u)" -eq 0 ]; then
    find_nginx # the new network does not reach the archive
    unshare --net --mount bash scripts/soak.sh --inside "$mib"
elif [ -n "$minutes" ]; then
    echo "== Left out: downloads over a bad link, for which only root has the rights"
else
    echo "soak: only root may make a network" >&2
    exit 1
fi
