# shellcheck shell=bash
# Runs nginx on loopback from one folder, on ports that the system chooses; to be sourced, with packages.sh.

wait_until() { # SECONDS COMMAND...
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || return 1
        sleep 0.1
    done
}

# Prints a free port. Another process may take it before nginx does.
free_port() {
    perl -MIO::Socket::INET -e 'print IO::Socket::INET->new(LocalAddr => "127.0.0.1", Listen => 1)->sockport'
}

nginx_config() { # DIR SERVERS
    local temporary
    [ "$(id -u)" -ne 0 ] || echo "user root;" # nginx's own user cannot read DIR
    cat <<END
daemon off;
worker_processes 1;
pid "$1/nginx.pid";
error_log "$1/error.log";
events { worker_connections 8192; }
http {
    access_log off;
    default_type application/octet-stream;
END
    for temporary in client_body proxy fastcgi uwsgi scgi; do
        echo "    ${temporary}_temp_path \"$1/$temporary\";"
    done
    "$2"
    echo "}"
}

# Sets nginx_program. Debian's package is only unpacked: once installed, it would serve port 80 at each boot.
find_nginx() {
    nginx_program=$(PATH=$PATH:/usr/sbin command -v nginx) && return 0
    unpack_package nginx
    nginx_program=$PWD/build/nginx/usr/sbin/nginx
}

# Starts nginx_program with the configuration that DIR holds, and sets nginx_pid.
run_nginx() { # DIR
    rm -f "$1/nginx.pid"
    "$nginx_program" -p "$1" -c "$1/nginx.conf" -e "$1/error.log" 2>/dev/null &
    nginx_pid=$!
    # nginx writes this file once it listens.
    wait_until 20 test -s "$1/nginx.pid" -o ! -d "/proc/$nginx_pid" && [ -s "$1/nginx.pid" ] && return 0
    stop_nginx
    return 1
}

# SERVERS is a function that prints the server blocks, which listen on nginx_port and, by TLS, nginx_tls_port.
start_nginx() { # DIR SERVERS
    local try
    find_nginx
    for try in 1 2 3 4 5; do
        # shellcheck disable=SC2034 # for SERVERS
        nginx_port=$(free_port) nginx_tls_port=$(free_port)
        echo "== Starting nginx on 127.0.0.1 (attempt $try)"
        nginx_config "$1" "$2" >"$1/nginx.conf"
        run_nginx "$1" && return 0
    done
    cat "$1/error.log" >&2
    return 1
}

stop_nginx() {
    end_processes ${nginx_pid:+"$nginx_pid"}
    nginx_pid=
}

end_processes() { # PID...
    local pid
    for pid in "$@"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" || true
    done
}
