# shellcheck shell=bash
# To be sourced. Makes a throw-away authority (ca.pem) and a server's certificate (server.pem, server.key) in DIR, which are
# valid for two days and all HOSTs.
make_certificates() { # DIR HOST...
    local dir=$1 names
    local new_key=(-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes)
    shift
    names=$(printf ',DNS:%s' "$@")
    openssl req -x509 "${new_key[@]}" -days 2 -subj "/CN=Demo CA" -keyout "$dir/ca.key" -out "$dir/ca.pem" 2>/dev/null
    openssl req -new "${new_key[@]}" -subj "/CN=$1" -keyout "$dir/server.key" -out "$dir/server.csr" 2>/dev/null
    openssl x509 -req -in "$dir/server.csr" -CA "$dir/ca.pem" -CAkey "$dir/ca.key" -CAcreateserial -days 2 \
        -extfile <(echo "subjectAltName=${names#,}") -out "$dir/server.pem" 2>/dev/null
}
