#!/usr/bin/env bash
# Takes the pictures of the tool in the manual, docs/tool_bars.png and docs/tool_fetch.png: the tool runs in a terminal of
# 80 columns against an nginx with slow files, one that is missing and one of a wrong size.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh
source scripts/lib/nginx.sh

host=query.veltra.example
dir=$(mktemp -d)
build=$PWD/build/screenshots

stop() {
    tmux -S "$dir/tmux" kill-server 2>/dev/null || true
    stop_nginx
    rm -rf "$dir"
}
trap stop EXIT

make_documents() {
    local file
    mkdir -p "$dir/www/openapi/device/auth" "$dir/apps"
    echo "<rsp stat=\"ok\"><rm><queryinfo><notice><server url=\"https://$host/old.xml\"/>" \
        "<server url=\"https://$host/info.xml\"/></notice></queryinfo></rm></rsp>" >"$dir/www/openapi/device/auth/query"
    for file in empCERTRoot:1 empGuide:3 empPlayer:6 empStore:10; do
        head -c "${file#*:}M" /dev/zero >"$dir/www/${file%:*}"
    done
    {
        echo '<emplist>'
        for file in empCERTRoot:1048576 empGames:4194304 empGuide:3145700 empPlayer:6291456 empStore:10485760; do
            echo "<file id=\"${file%:*}\" boot=\"yes\" size=\"${file#*:}\" url=\"https://$host/${file%:*}\"/>"
        done
        echo '</emplist>'
    } >"$dir/www/info.xml"
}

servers() {
    echo "ssl_certificate \"$dir/server.pem\"; ssl_certificate_key \"$dir/server.key\";"
    echo "server { listen 127.0.0.1:$nginx_tls_port ssl; root \"$dir/www\"; limit_rate_after 512k; limit_rate 1800k; }"
}

# Draws the terminal's text as a picture: a graph of one node.
take_picture() { # FILE
    local label
    label=$(tmux -S "$dir/tmux" capture-pane -p | sed -e '/^$/d' -e 's/["\\]/\\&/g' -e 's/$/\\l/' | tr -d '\n')
    dot -Tpng -Gdpi=110 -Gpad=0.05 -Gbgcolor='#1d1f21' -o "$1" <<END
digraph { node [shape=plain, fontname="DejaVu Sans Mono", fontsize=10, fontcolor="#e8e8e8"]; screen [label="$label"]; }
END
    echo "$1"
}

shows() { # TEXT
    tmux -S "$dir/tmux" capture-pane -p | grep -q "$1"
}

install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" tmux graphviz fonts-dejavu-core
echo "== Building"
cmake --preset release -B "$build" -DVELTRA_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target veltra_tool
bash tests/loopback/make_certificates.sh "$dir" "$host"
make_documents
start_nginx "$dir" servers
cat >"$dir/profile" <<END
PS1='\$ '
cd "$dir"
veltra() { "$build/tools/veltra" "\$@" --chipset CHIP --query-host 127.0.0.1:$nginx_tls_port --cacert "$dir/ca.pem"; }
clear
END
tmux -S "$dir/tmux" -f /dev/null new-session -d -x 80 -y 24 "bash --noprofile --rcfile '$dir/profile'"
tmux -S "$dir/tmux" set -g status off
tmux -S "$dir/tmux" send-keys 'veltra fetch apps --default' Enter
wait_until 30 shows 'empPlayer.* [4-8].%' || { echo "screenshots: no bar is seen" >&2; exit 1; }
take_picture docs/tool_bars.png
wait_until 30 shows 'empStore.*done' || { echo "screenshots: no table is seen" >&2; exit 1; }
take_picture docs/tool_fetch.png
