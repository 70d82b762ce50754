#!/usr/bin/env bash
# Makes a throw-away authority (ca.pem), a server certificate signed by it (server.pem, server.key) and an authority that has
# signed nothing (other.pem) in the folder named, which can be used as a folder of authorities as well.
set -euo pipefail
mkdir -p "$1"
cd "$1"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 -subj "/CN=Veltra test authority" \
    -keyout ca.key -out ca.pem 2>/dev/null
openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=query.veltra.example" \
    -keyout server.key -out server.csr 2>/dev/null
openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 3650 -out server.pem \
    -extfile <(echo "subjectAltName=DNS:query.veltra.example,DNS:query-test.veltra.example,IP:127.0.0.1") 2>/dev/null
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 3650 -subj "/CN=Veltra other authority" \
    -keyout ca.key -out other.pem 2>/dev/null
openssl rehash .
