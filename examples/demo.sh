#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
# Shows the example programs at work, with certificates made on the spot.
# Usage: demo.sh <directory with the programs>. Ends with 1 if anything is not as it should be.
set -u

[ $# -eq 1 ] || { echo "usage: $0 <directory with the example programs>" >&2; exit 2; }
client=$1/ferrule-client
server=$1/ferrule-server
proxy=$1/ferrule-proxy
certificates=$1/ferrule-certificates
for program in "$client" "$server" "$proxy" "$certificates"; do
    [ -x "$program" ] || { echo "$0: $program is not there; build it first" >&2; exit 2; }
done
command -v openssl >/dev/null || { echo "$0: needs the openssl command" >&2; exit 2; }

work=$(mktemp -d) || exit 2
server_pid=
proxy_pid=
cleanup() {
    [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null
    [ -z "$proxy_pid" ] || kill "$proxy_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 2' INT TERM

# Nothing of the user's is read or written, and nothing that is set here stands in for the system.
export XDG_DATA_HOME="$work/data"
unset SSL_CERT_FILE SSL_CERT_DIR

say() { printf '\n== %s\n' "$*"; }

# Shows the lines of a file that match a pattern, and ends the demo unless the file contains each of
# the texts. expect <file> <pattern> <text>...
expect() {
    local file=$1 pattern=$2 text
    shift 2
    sed -n "/$pattern/s/^/   /p" "$file"
    for text in "$@"; do
        grep -Fq -- "$text" "$file" || { echo "!! expected: $text"; exit 1; }
    done
}

# Runs the client with the CA, against the server, with standard input from a file.
# run <input> <output> <status> <host> [option...]
run() {
    local input=$1 output=$2 expected=$3 host=$4 status=0
    shift 4
    "$client" --timeout 10 "$@" "$host:$port" <"$input" >"$output" 2>"$work/report" || status=$?
    [ "$status" -eq "$expected" ] && return
    cat "$work/report"
    echo "!! ferrule-client ended with status $status instead of $expected"
    exit 1
}

# Shows a file of certificates. inspect <output> <status> <argument...>
inspect() {
    local output=$1 expected=$2 status=0
    shift 2
    "$certificates" "$@" >"$output" 2>&1 || status=$?
    [ "$status" -eq "$expected" ] && return
    cat "$output"
    echo "!! ferrule-certificates ended with status $status instead of $expected"
    exit 1
}

judgement='^\(verdict\|host name\|description\|store\|ferrule\)'
stored='^\(bundle\|file\|certificate\|trust\|verdict\|judgement\|caution\)'

make_certificates() {
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/O=Ferrule demo/CN=Demo Authority' \
        -keyout "$work/ca.key" -out "$work/ca.pem" &&
    openssl req -new -newkey rsa:2048 -nodes -subj '/O=Ferrule demo/CN=127.0.0.1' \
        -keyout "$work/server.key" -out "$work/server.csr" &&
    openssl x509 -req -in "$work/server.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" \
        -set_serial 0x2a -days 1 -out "$work/server.pem" &&
    openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj '/CN=127.0.0.1' \
        -keyout "$work/alone.key" -out "$work/alone.pem"
}

# Waits for a program that prints where it listens; sets listening_port. await_port <pid> <log>
await_port() {
    listening_port=
    for _ in $(seq 100); do
        listening_port=$(sed -n 's/^listening on .*:\([0-9]*\)$/\1/p' "$2")
        [ -z "$listening_port" ] || return 0
        kill -0 "$1" 2>/dev/null || break
        sleep 0.05
    done
    echo "!! nothing listens:"; cat "$2"
    exit 1
}

# start_server <certificate> <key>: sets server_pid and port.
start_server() {
    : >"$work/server.log"
    "$server" --port 0 --cert "$1" --key "$2" >"$work/server.log" 2>&1 &
    server_pid=$!
    await_port "$server_pid" "$work/server.log"
    port=$listening_port
}

# start_proxy <option...>: sets proxy_pid and proxy_port.
start_proxy() {
    : >"$work/proxy.log"
    "$proxy" --port 0 "$@" >"$work/proxy.log" 2>&1 &
    proxy_pid=$!
    await_port "$proxy_pid" "$work/proxy.log"
    proxy_port=$listening_port
}

# Ends a server or proxy as an operator would. stop <pid>
stop() {
    local status=0
    kill -TERM "$1"
    wait "$1" || status=$?
    [ "$status" -eq 0 ] || { echo "!! a server ended with status $status"; exit 1; }
}
stop_server() {
    stop "$server_pid"
    server_pid=
}
stop_proxy() {
    stop "$proxy_pid"
    proxy_pid=
}

say "An authority, a certificate of it for 127.0.0.1, and a self-signed one"
make_certificates >"$work/openssl.log" 2>&1 || { cat "$work/openssl.log"; exit 1; }

start_server "$work/server.pem" "$work/server.key"
say "A server listens on port $port. A client that knows the authority connects twice"
head -c 1048576 /dev/urandom >"$work/data"
run "$work/data" "$work/echo" 0 127.0.0.1 --ca-file "$work/ca.pem" --repeat 2 \
    --require-ok --require-host-name --close-after-input 1
expect "$work/report" '.' 'verdict      OK' 'host name    agrees' 'session      new' \
    'session      reused' 'CN=127.0.0.1' 'CN=Demo Authority' 'serial       2A'
cmp "$work/data" "$work/echo" || { echo "!! the echo differs from what was sent"; exit 1; }
echo "   1 MiB of random bytes went to the server and came back unchanged;"
echo "   the second connection resumed the session of the first."

say "The same server under a name that its certificate does not have"
run /dev/null "$work/echo" 7 localhost --ca-file "$work/ca.pem" --require-host-name
expect "$work/report" "$judgement" 'verdict      OK' 'host name    differs' 'Caution'

say "The same by its address, asked for as the virtual host www.demo.example"
run /dev/null "$work/echo" 0 127.0.0.1 --ca-file "$work/ca.pem" --require-ok \
    --server-name www.demo.example --close-after-input 0
expect "$work/report" '^\(asked for\|verdict\|host name\)' 'asked for    www.demo.example'
expect "$work/server.log" ' for ' ' for localhost ' ' for www.demo.example '

say "A client that does not know the authority"
run /dev/null "$work/echo" 6 127.0.0.1 --require-ok
expect "$work/report" "$judgement" 'verdict      failed'

say "The same, judged by the operating system's trust as well, which does not know it either"
run /dev/null "$work/echo" 0 127.0.0.1 --store system --close-after-input 0
expect "$work/report" "$judgement" 'verdict      failed' 'store        system: failed'

say "The system of this one client is told to trust the authority; both verdicts are required"
SSL_CERT_FILE="$work/ca.pem" run /dev/null "$work/echo" 0 127.0.0.1 --store system \
    --ca-file "$work/ca.pem" --require-ok --close-after-input 0
expect "$work/report" "$judgement" 'verdict      OK' 'store        system: OK'

start_proxy --user demo --password 'a:b c'
say "An HTTP proxy listens on port $proxy_port. The client goes through it, twice"
run "$work/data" "$work/echo" 0 127.0.0.1 --ca-file "$work/ca.pem" --repeat 2 --require-ok \
    --require-host-name --close-after-input 1 --proxy "demo:a%3Ab%20c@127.0.0.1:$proxy_port"
expect "$work/report" '^\(connection\|proxy\|verdict\|host name\|session\)' \
    "proxy        tunnel established by 127.0.0.1:$proxy_port" 'verdict      OK' \
    'host name    agrees' 'session      reused'
cmp "$work/data" "$work/echo" || { echo "!! the echo differs from what was sent"; exit 1; }
echo "   1 MiB of random bytes went through the tunnel and came back unchanged."

say "The same with a wrong password"
run /dev/null "$work/echo" 3 127.0.0.1 --proxy "demo:wrong@127.0.0.1:$proxy_port"
expect "$work/report" '.' 'the proxy refuses: HTTP/1.0 407 Proxy Authentication Required'

say "The proxy is asked to end; these were its tunnels"
stop_proxy
expect "$work/proxy.log" '.' " 127.0.0.1:$port 200 up " \
    " 127.0.0.1:$port 407 up 0 down 0: no authorisation, or a wrong one"

say "The server is asked to end; these were its connections"
stop_server
expect "$work/server.log" '.' 'in 1048576 out 1048576: closed by the client' ' reused '

start_server "$work/alone.pem" "$work/alone.key"
say "A server with a self-signed certificate"
run /dev/null "$work/echo" 6 127.0.0.1 --require-ok
expect "$work/report" "$judgement" 'verdict      self-signed'
stop_server

say "The chain of the first server in a file, shown with the bundle of public roots"
cat "$work/server.pem" "$work/ca.pem" >"$work/chain.pem"
inspect "$work/shown" 0 --pem "$work/copy.pem" --der "$work/end.der" "$work/chain.pem"
expect "$work/shown" '.' ':/Certificates/RootCerts.pem: 168 imported, recorded as always' \
    'certificate  1 of 2: end certificate' 'certificate  2 of 2: root' \
    'serial       2A' 'public key   rsaEncryption, 2048 bits' \
    'verdict      failed: not in the bundle' 'judgement    unknown authority'

say "The same chain, with a bundle of the demo's own authority"
inspect "$work/shown" 0 --bundle "$work/ca.pem" "$work/chain.pem"
expect "$work/shown" "$stored" 'ca.pem: 1 imported, recorded as always' \
    'trust        state 0, accept always, mark -1' 'verdict      unknown: in the bundle' \
    'judgement    accepted: the bundle holds the last certificate'

say "The server's certificate alone, in DER, with the authority recorded as refused"
inspect "$work/shown" 0 --accept never --bundle "$work/ca.pem" "$work/end.der"
expect "$work/shown" "$stored" 'end.der: DER, certificates: 1' 'judgement    refused' \
    'no path validation'
cmp "$work/chain.pem" "$work/copy.pem" || { echo "!! the copy of the chain differs"; exit 1; }
openssl x509 -in "$work/server.pem" -outform DER | cmp - "$work/end.der" \
    || { echo "!! the DER file differs from OpenSSL's"; exit 1; }
echo "   The files that were written back equal the chain, and OpenSSL's DER, byte for byte."

say "A file with a damaged block"
{ cat "$work/server.pem"; sed '2s/^......../########/' "$work/ca.pem"; } >"$work/damaged.pem"
inspect "$work/shown" 3 "$work/damaged.pem"
expect "$work/shown" '^\(judgement\|ferrule\)' 'judgement    none' \
    'certificates read before the damage: 1, not read: 1'

say "All as it should be."
