#!/usr/bin/env bash
# Measures the library against its peers, and writes the tables and the chart of docs/performance.md:
# scripts/bench.sh [--quick] [--works NAME,...] [--debian RELEASE]. The page shows the last three whole runs of each Debian
# release. --debian measures in a fresh root of another release. --quick measures less, and --works only the named
# functions of bench.py; their results are only printed. "--works links" measures over slow links, in about 11 minutes,
# and writes the table of links, unless --quick or --debian is given.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
source scripts/lib/fresh_debian.sh
packages=("${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}"
    libsoup-3.0-dev glib-networking curl aria2 valgrind python3-minimal)
large=1G release="" part="" results=build/bench/results.csv links=build/bench/links.md arguments=()
while [ $# -gt 0 ]; do
    case $1 in
    --debian) release=$2 && shift ;;
    --quick) large=128M part=yes && arguments+=("$1") ;;
    --works) part=yes && arguments+=("$1" "$2") && shift ;;
    *) echo "bench: there is no option $1" >&2 && exit 2 ;;
    esac
    shift
done

write_page() {
    [ -n "$part" ] || { cat "$results" >>docs/performance.csv && python3 scripts/bench_page.py docs; }
    [ ! -e "$links" ] || python3 scripts/lib/links.py docs/performance.md "$links"
}

mkdir -p build/bench
rm -f "$results" "$links"
if [ -n "$release" ]; then
    trap leave_fresh_debian EXIT
    in_fresh_copy "$release" "$(IFS=,; echo "${packages[*]},perl,procps,ca-certificates")" "
mkdir -p \"\$1/dev/shm\"
mountpoint -q \"\$1/dev/shm\" || { mount -t tmpfs tmpfs \"\$1/dev/shm\" && mounted=yes; }
chroot \"\$1\" /veltra/scripts/bench.sh ${arguments[*]-}
[ -z \"\${mounted-}\" ] || umount \"\$1/dev/shm\"
cp \"\$1/veltra/$results\" \"$PWD/$results\""
    write_page
    exit
fi
install_packages "${packages[@]}"
echo "== Building"
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELTRA_BUILD_TOOL=ON >/dev/null
cmake --build build/bench --target bench soak veltra_tool >/dev/null

dir=$(mktemp -d) memory=$(mktemp -d -p /dev/shm)
background=()
stop() {
    end_processes "${background[@]}"
    stop_nginx
    rm -rf "$dir" "$memory"
}
trap stop EXIT
certificates=$PWD/build/bench/tests/loopback/certificates
servers() {
    cat <<END
    sendfile on;
    tcp_nopush on;
    keepalive_requests 100000000;
    server {
        listen 127.0.0.1:$nginx_port backlog=4096;
        listen 127.0.0.1:$nginx_tls_port ssl backlog=4096;
        ssl_certificate "$certificates/server.pem";
        ssl_certificate_key "$certificates/server.key";
        root "$dir/www";
        location = /large { root "$memory"; }
        location = /medium { root "$memory"; }
    }
    server { # see lib/links.py
        listen unix:$memory/link.sock;
        listen unix:$memory/link-tls.sock ssl http2;
        ssl_protocols TLSv1.2 TLSv1.3; # nginx before 1.23 leaves TLS 1.3 out
        ssl_session_cache shared:link:1m;
        ssl_certificate "$certificates/server.pem";
        ssl_certificate_key "$certificates/server.key";
        root "$memory/link";
        location = /openapi/device/auth/query { alias "$memory/link/servers.xml"; }
    }
END
}
mkdir "$dir/www"
head -c 1024 /dev/urandom >"$dir/www/1k"
head -c 10240 /dev/urandom >"$dir/www/10k"
truncate -s "$large" "$memory/large"
truncate -s 128M "$memory/medium"
chmod a+rx "$dir" "$memory"
start_nginx "$dir" servers
build/bench/tests/soak --serve >"$dir/ports" &
background=($!)
wait_until 10 test -s "$dir/ports"
read -r silent_port _ <"$dir/ports"
echo "== Measuring"
python3 scripts/bench.py build/bench "$nginx_port" "$nginx_tls_port" "$silent_port" "$memory" "$results" \
    "${arguments[@]}" &
background=($! "${background[@]}")
wait "${background[0]}"
write_page
