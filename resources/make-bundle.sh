#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Makes RootCerts.pem of the roots beside it; --help says how.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")" && pwd)

usage() {
    cat <<'TEXT'
Usage: make-bundle.sh [--roots DIR] [--output FILE]

Writes one bundle of all the *.pem files in DIR (by default resources/roots), in the order of their
names, to FILE (by default resources/RootCerts.pem; "-" is the standard output).

The bundle begins with an empty line; every line ends with CR LF, and base64 lines have 64
characters. Nothing is written when a file is not one certificate, when two files hold the same one,
or when a certificate had expired on the day on which the roots were collected. That day and their
source are taken from the first lines of DIR/roots.tsv.
TEXT
}

die() {
    printf 'make-bundle: %s\n' "$*" >&2
    exit 1
}

# note <name>: prints what the "# <name>: ..." line of the roots' list says.
note() {
    sed -n "s/^# $1: //p" "$roots/roots.tsv"
}

# block <file>: prints the file's certificate as a block of the bundle.
block() {
    printf -- '-----BEGIN CERTIFICATE-----\r\n'
    openssl x509 -in "$1" -outform DER | base64 --wrap=64 | sed 's/$/\r/'
    printf -- '-----END CERTIFICATE-----\r\n'
}

# check <file>: ends the script unless the file may go into the bundle.
check() {
    local file=$1 facts sha1 until
    [ "$(grep -c -e '-----BEGIN' "$file")" = 1 ] || die "$file does not hold exactly one block"
    facts=$(openssl x509 -in "$file" -noout -fingerprint -sha1 -enddate 2>/dev/null) \
        || die "$file does not hold a certificate"
    sha1=$(sed -n 's/^.*Fingerprint=//p' <<<"$facts")
    until=$(date --utc --date "$(sed -n 's/^notAfter=//p' <<<"$facts")" +%s)
    [ -z "${seen[$sha1]:-}" ] || die "$file holds the same certificate as ${seen[$sha1]}"
    [ "$until" -gt "$collected" ] || die "$file had expired when the roots were collected"
    seen[$sha1]=$file
}

roots=$here/roots
output=$here/RootCerts.pem
while [ $# -gt 0 ]; do
    case $1 in
        --roots) roots=${2:?--roots needs a directory}; shift 2 ;;
        --output) output=${2:?--output needs a file}; shift 2 ;;
        -h | --help) usage; exit ;;
        *) usage >&2; exit 2 ;;
    esac
done

[ -f "$roots/roots.tsv" ] || die "there is no $roots/roots.tsv"
day=$(note date)
collected=$(date --utc --date "${day:?roots.tsv does not say when the roots were collected}" +%s)

declare -A seen=()
files=("$roots"/*.pem)
[ -e "${files[0]}" ] || die "there are no roots in $roots"
for file in "${files[@]}"; do
    check "$file"
done

bundle=$(mktemp)
trap 'rm -f "$bundle"' EXIT
{
    printf '\r\n'
    for file in "${files[@]}"; do
        block "$file"
    done
} >"$bundle"
if [ "$output" = - ]; then
    cat "$bundle"
else
    cat "$bundle" >"$output"
fi
printf 'make-bundle: %s roots from %s, collected on %s\n' "${#files[@]}" "$(note source)" "$day" >&2
