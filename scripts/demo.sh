#!/usr/bin/env bash
# Shows the library's main job against an nginx with TLS on loopback: scripts/demo.sh [PRESET], by default "release".
# The command-line client queries the server list, reads a server's document and downloads the files that it names.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh
preset=${1:-release}
require_preset "$preset"
query_host=query.veltra.example
apps_host=apps.veltra.example
build=build/demo-$preset
client=()
dir=$(mktemp -d "${TMPDIR:-/tmp}/veltra-demo.XXXXXX")

stop() {
    end_processes "${client[@]}"
    stop_nginx
    rm -rf "$dir"
}
trap stop EXIT

fail() {
    echo "demo: $*" >&2
    exit 1
}

entry() { # ID FILE BOOT
    local path=$dir/www/files/$2.bin
    echo "<file id=\"$1\" name=\"The $2\" version=\"1.0\" url=\"https://$apps_host/files/$2.bin\"" \
        "size=\"$(stat -c %s "$path")\" type=\"app\" boot=\"$3\">" \
        "<signature>$(sha256sum "$path" | cut -c 1-64)</signature></file>"
}

make_documents() {
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

servers() {
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
        # The second half takes minutes, which leaves time to cancel the download.
        location = /files/archive.bin { limit_rate_after 12m; limit_rate 64k; }
    }
END
}

verify() { # GOT SOURCE
    cmp "$1" "$2" || fail "$1 differs from its source"
    echo "$(basename "$1") equals its source ($(stat -c %s "$1") bytes)"
}

half_there() {
    [ "$(stat -c %s "$dir/got/archive.bin.bak" 2>/dev/null || echo 0)" -ge $((12 * 1024 * 1024)) ]
}

mkdir -p build
(
    flock 9 # two demos at the same time use the same build folder
    install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}"
    echo "== Building the library and the tool (preset $preset)"
    cmake --preset "$preset" -B "$build" -DVELTRA_BUILD_TESTS=OFF -DCMAKE_COMPILE_WARNING_AS_ERROR=OFF >/dev/null
    cmake --build "$build"
) 9>build/demo.lock
echo "== Making a throw-away CA and a certificate for $query_host and $apps_host"
bash tests/loopback/make_certificates.sh "$dir" "$query_host" "$apps_host"
echo "== Making the two documents and some megabytes of random files"
make_documents
start_nginx "$dir" servers || fail "nginx does not start"
veltra=("$build/tools/veltra" --cacert "$dir/ca.pem" --connect-to "$query_host:443:127.0.0.1:$nginx_tls_port"
    --connect-to "$apps_host:443:127.0.0.1:$nginx_tls_port" --chipset DEMOCHIP --mac 02:00:5e:00:53:01 --country DE
    --model DEMO-TV)

echo "== Asking with a wrong identity, which the server refuses"
! "${veltra[@]}" servers --duid DEMO-0002 || fail "the query service answered a stranger"
grep -q 'GET /openapi/device/auth/query HTTP/[0-9.]*" 403 ' "$dir/access.log" || fail "no such query arrived"
echo "== Asking for the server list"
server_url=$("${veltra[@]}" servers --duid DEMO-0001)
echo "$server_url"

echo "== Reading the server's document: the default entries"
"${veltra[@]}" info "$server_url" --default
echo "== Reading the server's document: two entries by identifier, as JSON"
"${veltra[@]}" info "$server_url" --id empPlayer,empStore --json

echo "== Fetching the default entries, and then the store as well"
"${veltra[@]}" fetch "$dir/got" --duid DEMO-0001 --default
"${veltra[@]}" fetch "$dir/got" --duid DEMO-0001 --id empPlayer,empStore
verify "$dir/got/empPlayer" "$dir/www/files/player.bin"
verify "$dir/got/empCERTRoot" "$dir/www/files/certificates.bin"
verify "$dir/got/empStore" "$dir/www/files/store.bin"

echo "== Downloading the archive, and cancelling that half-way by SIGINT"
archive=$dir/got/archive.bin
# Background commands of a shell ignore SIGINT by default.
env --default-signal=INT "${veltra[@]}" download "https://$apps_host/files/archive.bin" "$archive" &
client=($!)
wait_until 60 half_there || fail "the archive does not arrive"
echo "$(stat -c %s "$archive.bak") bytes of $(stat -c %s "$dir/www/files/archive.bin") have arrived"
kill -INT "${client[0]}"
status=0
wait "${client[0]}" || status=$?
client=()
[ "$status" -eq 130 ] || fail "the cancelled download ended with status $status"
[ ! -e "$archive.bak" ] || fail "the temporary file was left behind"
[ ! -e "$archive" ] || fail "a part of the archive reached the target"
echo "Neither the temporary file nor the target exists"

echo "== Downloading the player once more, flushed to storage"
"${veltra[@]}" download --durable "https://$apps_host/files/player.bin" "$dir/got/player-durable.bin"
verify "$dir/got/player-durable.bin" "$dir/www/files/player.bin"
echo "== Done: four downloaded files equal their sources, one download was cancelled without a trace"
