#!/usr/bin/env bash
# The library's main job against a real server: builds the command-line client, starts an nginx with TLS on loopback,
# and goes the road of a device: query the server list, read a server's document, download the files that it names.
# Usage: scripts/demo.sh [PRESET], by default "release".
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh

query_host=query.veltra.example
apps_host=apps.veltra.example
preset=${1:-release}
require_preset "$preset"
build=build/demo-$preset
client=
verified=0
dir=$(mktemp -d "${TMPDIR:-/tmp}/veltra-demo.XXXXXX")

stop()
{
    [ -z "$client" ] || { kill "$client" 2>/dev/null && wait "$client"; } || true
    stop_nginx
    rm -rf "$dir"
}
trap stop EXIT

fail()
{
    echo "demo: $*" >&2
    exit 1
}

build_tool()
{
    mkdir -p build
    # A copy of this demo that runs beside must not build in the same place.
    exec 9>build/demo.lock
    flock 9
    install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}"
    echo "== Building the library and the tool (preset $preset)"
    cmake --preset "$preset" -B "$build" -DVELTRA_BUILD_TESTS=OFF -DCMAKE_COMPILE_WARNING_AS_ERROR=OFF >/dev/null
    cmake --build "$build"
    exec 9>&-
}

make_documents()
{
    echo "== Making the two documents and some megabytes of random files"
    local www=$dir/www name
    mkdir -p "$www/files" "$dir/got"
    for name in player:5 store:8 certificates:1 archive:24; do
        head -c "${name#*:}M" /dev/urandom >"$www/files/${name%:*}.bin"
    done
    cat >"$www/servers.xml" <<END
<?xml version="1.0" encoding="UTF-8"?>
<rsp stat="ok"><rm><queryinfo><notice>
  <server url="https://$apps_host/info.xml"/>
</notice></queryinfo></rm></rsp>
END
    {
        echo '<?xml version="1.0" encoding="UTF-8"?><emplist>'
        entry empPlayer player yes
        entry empStore store no
        entry empCERTRoot certificates yes
        entry empArchive archive no
        echo '</emplist>'
    } >"$www/info.xml"
}

entry() # ID FILE BOOT
{
    local path=$dir/www/files/$2.bin
    echo "<file id=\"$1\" name=\"The $2\" version=\"1.0\" url=\"https://$apps_host/files/$2.bin\"" \
        "size=\"$(stat -c %s "$path")\" type=\"app\" boot=\"$3\">" \
        "<signature>$(sha256sum "$path" | cut -c 1-64)</signature></file>"
}

# Its TLS is on nginx_tls_port.
servers()
{
    cat <<END
    ssl_certificate "$dir/server.pem";
    ssl_certificate_key "$dir/server.key";
    map "\$http_duid|\$http_macaddr|\$http_category|\$http_countrycode|\$http_modelid|\$http_param" \$known_device {
        "~^DEMO-0001\|02:00:5e:00:53:01\|EMP\|DE\|DEMO-TV\|DEMOCHIP,5\.100\$" 1;
        default 0;
    }
    server {
        listen 127.0.0.1:$nginx_tls_port ssl;
        server_name $query_host;
        access_log "$dir/access.log";
        location = /openapi/device/auth/query {
            if (\$known_device = 0) { return 403; }
            alias "$dir/www/servers.xml";
        }
    }
    server {
        listen 127.0.0.1:$nginx_tls_port ssl;
        server_name $apps_host;
        root "$dir/www";
        # Its second half takes minutes, so that it is still under way when it is cancelled.
        location = /files/archive.bin { limit_rate_after 12m; limit_rate 64k; }
    }
END
}

veltra()
{
    "${tool[@]}" "$@"
}

verify() # GOT SOURCE
{
    cmp "$1" "$2" || fail "$1 differs from its source"
    echo "$(basename "$1") equals its source ($(stat -c %s "$1") bytes)"
    verified=$((verified + 1))
}

query_servers()
{
    echo "== Asking with a wrong identity, which the server refuses"
    if veltra servers --duid DEMO-0002; then
        fail "the query service answered a stranger"
    fi
    grep -q 'GET /openapi/device/auth/query HTTP/[0-9.]*" 403 ' "$dir/access.log" || fail "no such query arrived"
    echo "== Asking for the server list"
    server_url=$(veltra servers --duid DEMO-0001)
    echo "$server_url"
}

read_information()
{
    echo "== Reading the server's document: the default entries"
    veltra info "$server_url" --default
    echo "== Reading the server's document: two entries by identifier, as JSON"
    veltra info "$server_url" --id empPlayer,empStore --json
}

fetch_files()
{
    local pair
    echo "== Fetching the default entries, and then the store as well"
    veltra fetch "$dir/got" --duid DEMO-0001 --default
    veltra fetch "$dir/got" --duid DEMO-0001 --id empPlayer,empStore
    for pair in empPlayer:player empCERTRoot:certificates empStore:store; do
        verify "$dir/got/${pair%:*}" "$dir/www/files/${pair#*:}.bin"
    done
}

half_there()
{
    [ "$(stat -c %s "$dir/got/archive.bin.bak" 2>/dev/null || echo 0)" -ge $((12 * 1024 * 1024)) ]
}

cancel_download()
{
    local status=0
    echo "== Downloading the archive, and cancelling that half-way by SIGINT"
    # A shell's background commands ignore SIGINT, unless told otherwise.
    env --default-signal=INT "${tool[@]}" download "https://$apps_host/files/archive.bin" "$dir/got/archive.bin" &
    client=$!
    wait_until 60 half_there || fail "the archive does not arrive"
    echo "$(stat -c %s "$dir/got/archive.bin.bak") bytes of $(stat -c %s "$dir/www/files/archive.bin") have arrived"
    kill -INT "$client"
    wait "$client" || status=$?
    client=
    [ "$status" -eq 130 ] || fail "the cancelled download ended with status $status"
    [ ! -e "$dir/got/archive.bin.bak" ] || fail "the temporary file was left behind"
    [ ! -e "$dir/got/archive.bin" ] || fail "a part of the archive reached the target"
    echo "Neither the temporary file nor the target exists"
}

sync_download()
{
    echo "== Downloading the player once more, synchronously"
    veltra download --sync "https://$apps_host/files/player.bin" "$dir/got/player-sync.bin"
    verify "$dir/got/player-sync.bin" "$dir/www/files/player.bin"
}

build_tool
echo "== Making a throw-away CA and a certificate for $query_host and $apps_host"
bash tests/loopback/make_certificates.sh "$dir" "$query_host" "$apps_host"
make_documents
start_nginx "$dir" servers || fail "nginx does not start"
tool=("$build/tools/veltra" --cacert "$dir/ca.pem" --connect-to "$query_host:443:127.0.0.1:$nginx_tls_port"
    --connect-to "$apps_host:443:127.0.0.1:$nginx_tls_port" --chipset DEMOCHIP --mac 02:00:5e:00:53:01 --country DE
    --model DEMO-TV)
query_servers
read_information
fetch_files
cancel_download
sync_download
echo "== Stopping nginx"
stop_nginx
echo "== Done: $verified downloaded files verified against their sources, one download cancelled without a trace"
