#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Compiles the translation catalogues; --help says how.
set -euo pipefail

here=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")" && pwd)
output=$here
readonly lrelease=${LRELEASE:-lrelease}

usage() {
    cat <<'TEXT'
Usage: catalogues.sh [--output DIR]

Compiles each Ferrule_*.ts in resources to a .qm of the same name in DIR (by default resources).
Needs perl and lrelease, on Debian from the package qttools5-dev-tools; LRELEASE names another
lrelease.

lrelease also notes the language of a catalogue. That section is left out: what hosts load consists
of messages and plural rules only, and the German catalogue, which has no messages, of 23 bytes.
TEXT
}

die() {
    printf 'catalogues: %s\n' "$*" >&2
    exit 1
}

# Copies a catalogue from standard input to standard output without its language section. After the
# magic number each section is a byte that says what it is, its length in four bytes, its contents.
leave_out_language() {
    perl -e '
        use strict;
        use warnings;
        binmode STDIN;
        binmode STDOUT;
        local $/;
        my ($magic, $sections) = unpack "a16 a*", <STDIN>;
        print $magic;
        while (length $sections) {
            my ($tag, $contents, $rest) = unpack "C N/a a*", $sections;
            print pack "C N/a", $tag, $contents if $tag != 0xa7;
            $sections = $rest;
        }'
}

while [ $# -gt 0 ]; do
    case $1 in
        --output) output=${2:?--output needs a directory}; shift 2 ;;
        -h | --help) usage; exit ;;
        *) usage >&2; exit 2 ;;
    esac
done

"$lrelease" -version >/dev/null 2>&1 || die "$lrelease does not run; see --help"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for source in "$here"/Ferrule_*.ts; do
    catalogue=$(basename "$source" .ts).qm
    "$lrelease" -silent "$source" -qm "$work/$catalogue"
    leave_out_language <"$work/$catalogue" >"$output/$catalogue"
done
