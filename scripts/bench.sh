#!/usr/bin/env bash
# Measures the library against its peers, and writes the table and the chart of docs/performance.md:
# scripts/bench.sh [--quick] [--works NAME,...] [--debian RELEASE]. With an option the results are only printed.
# --quick measures less, --works measures only the named functions of bench.py, --debian measures in a fresh root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
source scripts/lib/fresh_debian.sh
packages=("${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}"
    libbenchmark-dev libsoup-3.0-dev glib-networking curl aria2 valgrind strace python3-minimal)
large=1G release="" arguments=()
while [ $# -gt 0 ]; do
    case $1 in
    --debian) release=$2 && shift ;;
    --quick) large=128M && arguments+=("$1") ;;
    *) arguments+=("$1") ;;
    esac
    shift
done

if [ -n "$release" ]; then
    trap leave_fresh_debian EXIT
    in_fresh_copy "$release" "$(IFS=,; echo "${packages[*]},perl,procps,ca-certificates")" "
mkdir -p \"\$1/dev/shm\"
mountpoint -q \"\$1/dev/shm\" || { mount -t tmpfs tmpfs \"\$1/dev/shm\" && mounted=yes; }
chroot \"\$1\" /veltra/scripts/bench.sh --shown ${arguments[*]-}
[ -z \"\${mounted-}\" ] || umount \"\$1/dev/shm\""
    exit
fi

install_packages "${packages[@]}"
echo "== Building"
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELTRA_BUILD_TOOL=OFF >/dev/null
cmake --build build/bench --target bench soak >/dev/null

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
        location = /1g { root "$memory"; }
        location = /128m { root "$memory"; }
    }
END
}
mkdir "$dir/www"
head -c 1024 /dev/urandom >"$dir/www/1k"
head -c 10240 /dev/urandom >"$dir/www/10k"
truncate -s "$large" "$memory/1g"
truncate -s 128M "$memory/128m"
chmod a+rx "$dir" "$memory"
start_nginx "$dir" servers
build/bench/tests/soak --serve >"$dir/ports" &
background=($!)
wait_until 10 test -s "$dir/ports"
read -r silent_port _ <"$dir/ports"
echo "== Measuring"
python3 scripts/bench.py build/bench docs "$nginx_port" "$nginx_tls_port" "$silent_port" "$memory" "${arguments[@]}" &
background=($! "${background[@]}")
wait "${background[0]}"
