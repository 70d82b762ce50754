#!/usr/bin/env bash
# Mixed traffic for MINUTES (default 10) against nginx, killed and restarted underneath, and a hostile server; at the end
# every accepted transfer must have ended exactly once and all resources be back. Then root's downloads over a bad link:
# scripts/soak.sh [MINUTES]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
minutes=${1:-10}
seconds=$(awk "BEGIN { print int($minutes * 60) }")

install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}" procps
echo "== Building"
cmake -S . -B build/soak -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/soak --target soak >/dev/null

work=$(mktemp -d)
hostile='' nginx_keeper=''
kill_nginx() {
    [ -s "$work/nginx.pid" ] || return 0
    local master
    master=$(cat "$work/nginx.pid")
    # shellcheck disable=SC2046 # several
    kill -KILL "$master" $(pgrep -P "$master") 2>/dev/null || true
}
stop() {
    for pid in $nginx_keeper $hostile; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" || true
    done
    kill_nginx
    rm -rf "$work"
}
trap stop EXIT
servers() {
    echo "server { listen 127.0.0.1:$nginx_port; root \"$work/www\"; error_page 405 =200 \$uri; }"
}

echo "== Starting the hostile server"
certificates=build/soak/tests/loopback/certificates
build/soak/tests/soak --serve >"$work/ports" &
hostile=$!
wait_until 10 test -s "$work/ports"
read -r plain tls <"$work/ports"

echo "== Starting nginx, to be killed and restarted every few seconds"
mkdir "$work/www" "$work/files"
head -c 1000 /dev/urandom >"$work/www/small"
head -c 300000 /dev/urandom >"$work/www/large"
start_nginx "$work" servers
disown "$nginx_pid" # or the shell would tell of its end
(
    trap 'exit 0' TERM
    while true; do
        sleep 7 &
        wait $!
        kill_nginx
        sleep 0.3
        run_nginx "$work" && disown "$nginx_pid"
    done
) &
nginx_keeper=$!

echo "== Traffic for $minutes minutes"
good=http://127.0.0.1:$nginx_port bad=http://127.0.0.1:$plain secure=https://127.0.0.1:$tls
# shellcheck disable=SC2086 # there is nothing in them to split
build/soak/tests/soak --seconds "$seconds" --folder "$work/files" --cacert "$certificates/ca.pem" \
    $good/small $good/small $good/small $good/large $good/large $good/missing \
    $bad/echo/ $bad/reset $bad/cut $bad/long $bad/drip $bad/chunks $bad/chunked $bad/headers $bad/redirect $bad/stall \
    $secure/chunked $secure/reset $secure/cut https://localhost:$tls/chunked http://127.0.0.1:1/refused file:///etc/hostname

if [ "$(id -u)" -eq 0 ]; then
    bash scripts/badlink.sh 64
else
    echo "== Left out: downloads over a bad link, which takes root"
fi
