#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds all that the library needs on 64-bit Windows and prints a directory that holds it: qt/,
# openssl/ and boost/, the last being this machine's headers, which know every system.
set -euo pipefail

recipes=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
cache=${FERRULE_CACHE:-$HOME/.cache/ferrule}

# Side by side, as either leaves a processor idle for minutes.
answer=$(mktemp)
trap 'rm -f "$answer"' EXIT
"$recipes/openssl-1.0.2-windows.sh" >"$answer" &
openssl_build=$!
qt=$("$recipes/qt-windows.sh")
wait "$openssl_build"
openssl=$(<"$answer")

key=$(printf '%s\n' "$qt" "$openssl" | sha256sum | cut -c1-16)
directory=$cache/windows-$key
mkdir -p "$directory/boost/include"
ln -sfn "$qt" "$directory/qt"
ln -sfn "$openssl" "$directory/openssl"
ln -sfn /usr/include/boost "$directory/boost/include/boost"
echo "$directory"
