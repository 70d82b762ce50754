#!/usr/bin/env bash
# Mixed traffic for MINUTES (default 10) against nginx, killed and restarted underneath, and a hostile server; at the end
# every accepted transfer must have ended exactly once and all resources be back: scripts/soak.sh [MINUTES]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
minutes=${1:-10}
seconds=$(awk "BEGIN { print int($minutes * 60) }")

bash scripts/install-deps.sh g++ cmake ninja-build pkg-config libcurl4-openssl-dev libglib2.0-dev libpugixml-dev \
    libcli11-dev libgtest-dev libssl-dev openssl nginx-light procps python3-minimal
echo "== Building"
cmake -S . -B build/soak -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/soak --target soak >/dev/null

work=$(mktemp -d)
hostile='' nginx_keeper=''
kill_nginx() {
    [ -f "$work/nginx.pid" ] || return 0
    local master
    master=$(cat "$work/nginx.pid")
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

echo "== Starting the hostile server"
certificates=build/soak/loopback/certificates
build/soak/bench/soak --serve >"$work/ports" &
hostile=$!
for _ in $(seq 100); do [ -s "$work/ports" ] && break; sleep 0.1; done
read -r plain tls <"$work/ports"

echo "== Starting nginx, to be killed and restarted every few seconds"
mkdir "$work/www" "$work/files"
head -c 1000 /dev/urandom >"$work/www/small"
head -c 300000 /dev/urandom >"$work/www/large"
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$work/nginx.conf" <<END
pid $work/nginx.pid;
error_log $work/error.log;
events { worker_connections 4096; }
http {
    access_log off;
    client_body_temp_path $work/body;
    proxy_temp_path $work/proxy;
    fastcgi_temp_path $work/fastcgi;
    uwsgi_temp_path $work/uwsgi;
    scgi_temp_path $work/scgi;
    server { listen 127.0.0.1:$port; root $work/www; error_page 405 =200 \$uri; }
}
END
[ "$(id -u)" -ne 0 ] || { sed -i '1i user root;' "$work/nginx.conf"; }
(
    trap 'exit 0' TERM
    while true; do
        nginx -e "$work/error.log" -p "$work" -c "$work/nginx.conf" || true
        sleep 7 &
        wait $!
        kill_nginx
        sleep 0.3
    done
) &
nginx_keeper=$!

echo "== Traffic for $minutes minutes"
good=http://127.0.0.1:$port bad=http://127.0.0.1:$plain secure=https://127.0.0.1:$tls
build/soak/bench/soak --seconds "$seconds" --folder "$work/files" --cacert "$certificates/ca.pem" \
    $good/small $good/small $good/small $good/large $good/large $good/missing \
    $bad/echo/ $bad/reset $bad/cut $bad/long $bad/drip $bad/chunks $bad/chunked $bad/headers $bad/redirect $bad/stall \
    $secure/chunked $secure/reset $secure/cut https://localhost:$tls/chunked http://127.0.0.1:1/refused file:///etc/hostname
