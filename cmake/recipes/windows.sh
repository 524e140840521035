#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds all that the library needs on 64-bit Windows and prints a directory that holds it: qt/,
# openssl/ and boost/, the last being this machine's headers, which know every system.
set -euo pipefail

recipes=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
cache=${FERRULE_CACHE:-$HOME/.cache/ferrule}

qt=$("$recipes/qt-windows.sh")
openssl=$("$recipes/openssl-1.0.2-windows.sh")

key=$(printf '%s\n' "$qt" "$openssl" | sha256sum | cut -c1-16)
directory=$cache/windows-$key
mkdir -p "$directory/boost/include"
ln -sfn "$qt" "$directory/qt"
ln -sfn "$openssl" "$directory/openssl"
ln -sfn /usr/include/boost "$directory/boost/include/boost"
echo "$directory"
