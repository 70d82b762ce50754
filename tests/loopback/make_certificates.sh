#!/usr/bin/env bash
# Makes a throw-away authority (ca.pem), a server certificate for 127.0.0.1 and the hosts, signed by it (server.pem,
# server.key), and an authority that has signed nothing (other.pem). The folder can be used as a folder of authorities.
# Usage: make_certificates.sh FOLDER HOST...
set -euo pipefail
new_key=(-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes)
mkdir -p "$1"
cd "$1"
shift
openssl req -x509 "${new_key[@]}" -days 3650 -subj "/CN=Veltra test authority" -keyout ca.key -out ca.pem 2>/dev/null
openssl req -new "${new_key[@]}" -subj "/CN=$1" -keyout server.key -out server.csr 2>/dev/null
openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 3650 -out server.pem \
    -extfile <(echo "subjectAltName=IP:127.0.0.1$(printf ',DNS:%s' "$@")") 2>/dev/null
openssl req -x509 "${new_key[@]}" -days 3650 -subj "/CN=Veltra other authority" -keyout ca.key -out other.pem 2>/dev/null
openssl rehash .
