#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# wine-run.sh <prefix> <directory of DLLs>:... <program> [argument...]
#
# Runs a Windows program with Wine, in a prefix of its own that is made by the first to come.
# Programs of Qt Test write what they have to say to a file, because Wine loses output of a program
# that crashes.
set -euo pipefail

prefix=$1 directories=$2 program=$3
shift 3

export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES='mscoree=;mshtml='
WINEPATH=$(printf '%s' "$directories" | sed -e 's,:,;,g' -e 's,^/,Z:/,' -e 's,;/,;Z:/,g' -e 's,/,\\,g')
export WINEPATH

make_prefix() {
    mkdir -p "$prefix"
    exec 9>"$prefix.lock"
    flock 9
    if [ ! -e "$prefix/.complete" ]; then
        wine wineboot --init >"$prefix.log" 2>&1 9>&-
        wineserver --wait 9>&-
        touch "$prefix/.complete"
    fi
    exec 9>&-
}
make_prefix

case $(basename "$program") in
    tst_*) ;;
    *) exec wine "$program" "$@" ;;
esac

log=$(mktemp "${TMPDIR:-/tmp}/ferrule-test.XXXXXX")
trap 'rm -f "$log"' EXIT
result=0
wine "$program" -o "Z:${log//\//\\},txt" "$@" || result=$?
cat "$log"
exit "$result"
