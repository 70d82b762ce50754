#!/usr/bin/env bash
# Downloads one large file over a link that is cut every few MiB, stalls once and changes its address half-way, as
# StartDownload() and as SyncDownloadFile(), in a network and with a hosts file of its own; the file must come out bit by
# bit and less than 1 % of it twice: scripts/badlink.sh [MIB], by default 1024. Only root may run it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
mib=${1:-1024}
[ "$(id -u)" -eq 0 ] || { echo "badlink: only root may make a network of its own" >&2; exit 1; }

if [ "${BADLINK_INSIDE-}" != yes ]; then
    install_packages "${build_packages[@]}" "${library_packages[@]}" "${test_packages[@]}" python3 iproute2 util-linux
    find_nginx # inside there is no network to fetch it from
    echo "== Building"
    cmake --preset release >/dev/null
    cmake --build --preset release --target broken_download >/dev/null
    BADLINK_INSIDE=yes exec unshare --net --mount bash scripts/badlink.sh "$mib"
fi

ip link set lo up
work=$(mktemp -d)
relay=
stop() {
    [ -z "$relay" ] || kill "$relay" 2>/dev/null || true
    stop_nginx
    rm -rf "$work"
}
trap stop EXIT
servers() { echo "server { listen 127.0.0.1:$nginx_port; root \"$work/www\"; }"; }

mkdir "$work/www"
head -c "${mib}M" /dev/urandom >"$work/www/file"
start_nginx "$work" servers
for kind in async sync; do
    echo "127.0.0.1 badlink.invalid" >"$work/hosts"
    mount --bind "$work/hosts" /etc/hosts
    rm -f "$work/port"
    echo "== Downloading $mib MiB over the bad link, $kind"
    python3 scripts/lib/bad_link.py "$nginx_port" "$mib" /etc/hosts "$work/relayed" >"$work/port" &
    relay=$!
    wait_until 10 test -s "$work/port"
    build/release/bench/broken_download "$kind" "http://badlink.invalid:$(cat "$work/port")/file" "$work/$kind"
    kill "$relay"
    wait "$relay" || true
    relay=
    cmp "$work/www/file" "$work/$kind"
    rm "$work/$kind"
    umount /etc/hosts
    read -r relayed cuts <"$work/relayed"
    awk -v relayed="$relayed" -v cuts="$cuts" -v file="$((mib * 1048576))" 'BEGIN {
        printf "== Whole; %d cuts, %.3f %% of the bytes sent twice\n", cuts, 100 * (relayed - file) / file
        exit relayed >= 1.01 * file }'
done
