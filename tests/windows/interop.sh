#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# interop.sh <directory of the programs> <emulator...>
#
# The example programs, as built for Windows and run with the emulator, against TLS peers of the
# system that the emulator runs on. Ends with 1 at the first exchange that goes wrong; a peer that
# is not installed is left out with a message, and missed where CI is set.
set -euo pipefail

programs=$1
shift
emulator=("$@")

work=$(mktemp -d)
processes=()
finish() {
    local process
    for process in "${processes[@]}"; do
        kill -KILL "$process" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap finish EXIT
cd "$work"

# fail <text> <file...>
fail() {
    printf '!! %s\n' "$1"
    tail -n 20 "${@:2}"
    exit 1
}

# expect <file> <text...>
expect() {
    local file=$1 text
    shift
    for text in "$@"; do
        grep -Fq -- "$text" "$file" || fail "\"$text\" is not in $file" ./*.log "$file"
    done
}

has_peer() {
    PATH=$PATH:/usr/sbin command -v "$1" >/dev/null && return
    [ -z "${CI:-}" ] || fail "$1 is not installed"
    echo "-- left out: $1 is not installed"
    return 1
}

# await <log> <pattern>: sets port to what the pattern finds in the log of a server.
await() {
    port=
    touch "$1"
    for _ in $(seq 400); do
        port=$(sed -n "s/$2/\\1/p" "$1")
        [ -z "$port" ] || return 0
        sleep 0.05
    done
    fail "a server does not listen" "$1"
}

# Sets port to one that nobody listened on a moment ago, for servers that do not choose themselves.
free_port() {
    openssl s_server -accept 127.0.0.1:0 -cert server.pem -key server.key >port.log 2>&1 &
    await port.log '^ACCEPT .*:\([0-9]*\)$'
    kill "$!"
    wait "$!" || true
}

# ask <path> <option...>: sends a request to the server on port.
ask() {
    printf 'GET %s HTTP/1.0\r\n\r\n' "$1" | timeout 60 "${emulator[@]}" \
        "$programs/ferrule-client.exe" --timeout 20 --ca-file ca.pem --require-ok "${@:2}" \
        "127.0.0.1:$port" >answer 2>report.log \
        || fail "ferrule-client ended with status $?" report.log
}

# client <option...>: asks the server on port for /data.
client() {
    ask /data --require-host-name "$@"
    sed '1,/^\r*$/d' answer | cmp - data || fail "the answer is another one" report.log
    expect report.log 'verdict      OK' 'host name    agrees'
}

# end_server: ends the peer that was started last.
end_server() {
    kill -KILL "${processes[-1]}"
    wait "${processes[-1]}" 2>/dev/null || true
    unset 'processes[-1]'
}

make_files() {
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=Authority \
        -keyout ca.key -out ca.pem
    openssl req -new -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 \
        -keyout server.key -out server.csr
    openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -set_serial 1 -days 1 \
        -extfile <(echo subjectAltName=IP:127.0.0.1) -out server.pem
    head -c 1048576 /dev/urandom >data
}

# Starts the server that openssl is, and sets port.
start_openssl() {
    openssl s_server -accept 127.0.0.1:0 -cert server.pem -key server.key -WWW >peer.log 2>&1 &
    processes+=("$!")
    await peer.log '^ACCEPT .*:\([0-9]*\)$'
}

client_meets_openssl() {
    start_openssl
    client
    client --repeat 2
    expect report.log 'session      new' 'session      reused'
    end_server
}

client_meets_gnutls() {
    free_port
    gnutls-serv --http --port "$port" --x509certfile server.pem --x509keyfile server.key \
        >peer.log 2>&1 &
    processes+=("$!")
    await peer.log ".*listening on IPv4.*port \\($port\\).*"
    ask / # Its answer is about the connection.
    expect answer 'HTTP/1.0 200 OK' 'TLS1.2'
    expect report.log 'verdict      OK'
    end_server
}

client_meets_nginx() {
    free_port
    cat >nginx.conf <<TEXT
daemon off;
master_process off;
pid $work/nginx.pid;
error_log stderr warn;
events { worker_connections 64; }
http {
    access_log off;
    client_body_temp_path $work/body;
    proxy_temp_path $work/proxy;
    fastcgi_temp_path $work/fastcgi;
    uwsgi_temp_path $work/uwsgi;
    scgi_temp_path $work/scgi;
    server {
        listen 127.0.0.1:$port ssl;
        ssl_certificate $work/server.pem;
        ssl_certificate_key $work/server.key;
        root $work;
    }
}
TEXT
    chmod a+rx . && chmod a+r data
    PATH=$PATH:/usr/sbin nginx -c "$work/nginx.conf" >peer.log 2>&1 &
    processes+=("$!")
    for _ in $(seq 400); do
        [ ! -e nginx.pid ] || break
        sleep 0.05
    done
    client --repeat 2
    expect report.log 'session      new' 'session      reused'
    end_server
}

# start_proxy <command...>: starts it, without the rights of root, and waits until it listens on port.
start_proxy() {
    local unprivileged=()
    [ "$(id -u)" != 0 ] || unprivileged=(setpriv --reuid nobody --regid nogroup --clear-groups)
    chmod a+rx . && chmod a+r proxy.conf
    PATH=$PATH:/usr/sbin "${unprivileged[@]}" "$@" >proxy.log 2>&1 &
    processes+=("$!")
    for _ in $(seq 400); do
        ! (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null || return 0
        sleep 0.05
    done
    fail "the proxy does not listen" proxy.log
}

# ask_through <credentials>: asks a server for /data through the proxy that was started last.
ask_through() {
    local proxy=${1:+$1@}127.0.0.1:$port
    start_openssl
    client --proxy "$proxy"
    end_server
}

client_meets_squid() {
    free_port
    cat >proxy.conf <<TEXT
http_port 127.0.0.1:$port
pid_filename none
visible_hostname localhost
coredump_dir $work
cache_log /dev/null
access_log none
cache deny all
cache_mem 8 MB
max_filedescriptors 1024
pinger_enable off
dns_nameservers 127.0.0.1
shutdown_lifetime 0 seconds
http_access allow all
TEXT
    start_proxy squid -N -d1 -f "$work/proxy.conf"
    ask_through ''
    end_server
}

client_meets_tinyproxy() {
    free_port
    cat >proxy.conf <<TEXT
Listen 127.0.0.1
Port $port
Timeout 60
MaxClients 100
LogLevel Warning
BasicAuth user secret
TEXT
    start_proxy tinyproxy -d -c "$work/proxy.conf"
    ask_through user:secret
    end_server
}

# start_server <option...>: starts ferrule-server and sets port.
start_server() {
    "${emulator[@]}" "$programs/ferrule-server.exe" --port 0 --cert server.pem --key server.key \
        "$@" >server.log 2>&1 &
    processes+=("$!")
    await server.log '^listening on .*:\([0-9]*\).*$'
}

# hold_until <command...>: waits for what a client receives; the end of its input would end it.
hold_until() {
    for _ in $(seq 600); do
        ! "$@" || break
        sleep 0.05
    done
}

send_data() {
    cat data
    hold_until cmp -s answer data
}

send_greeting() {
    echo hello
    hold_until grep -qx hello answer
}

server_meets_openssl() {
    start_server
    rm -f answer
    send_data | timeout 60 openssl s_client -quiet -no_ign_eof -nocommands -verify_return_error \
        -CAfile ca.pem -connect "127.0.0.1:$port" >answer 2>peer.log || true
    cmp answer data || fail "the echo is another one" peer.log server.log
    end_server
}

server_meets_gnutls() {
    start_server
    rm -f answer
    send_greeting | timeout 60 gnutls-cli --x509cafile ca.pem --port "$port" 127.0.0.1 \
        >answer 2>&1 || true
    expect answer 'The certificate is trusted' 'hello'
    end_server
}

server_meets_curl() {
    { printf 'HTTP/1.0 200 ok\r\n\r\n'; cat data; } >served
    start_server --file served
    curl --silent --show-error --cacert ca.pem --max-time 60 "https://127.0.0.1:$port/" >answer \
        2>peer.log || fail "curl ended with status $?" peer.log server.log
    cmp answer data || fail "the file is another one" peer.log server.log
    end_server
}

make_files >openssl.log 2>&1 || fail "no certificates" openssl.log
for exchange in client:openssl client:gnutls:gnutls-serv client:nginx client:squid \
    client:tinyproxy server:openssl server:gnutls:gnutls-cli server:curl; do
    IFS=: read -r role peer command <<<"$exchange"
    has_peer "${command:-$peer}" || continue
    echo "-- $role meets $peer"
    "${role}_meets_$peer"
done
echo "-- all went well"
