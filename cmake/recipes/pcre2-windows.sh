#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds the static 16-bit PCRE2 that Qt needs, for 64-bit Windows, and prints its directory.
set -euo pipefail

common=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/common
# shellcheck source=cmake/recipes/common/recipe.sh
source "$common/recipe.sh"

readonly version=10.42
readonly sha256=c33b418e3b936ee3153de2c61cc638e7e4fe3156022a5c77d0711bcbb9d64f1f

begin "pcre2 for Windows" pcre2-windows-$version
fetch_debian_source "pcre2=$version-1" --tar-only
check "$sha256" "$work/pcre2_$version.orig.tar.gz"
tar -xzf "$work/pcre2_$version.orig.tar.gz" -C "$work"
tree=$work/pcre2-$version

step "configuring" "$tree" ./configure --host=x86_64-w64-mingw32 --prefix="$prefix" \
    --enable-pcre2-16 --disable-pcre2-8 --disable-shared
step "compiling" "$tree" make "-j$(nproc)" libpcre2-16.la
step "installing" "$tree" make install-libLTLIBRARIES install-nodist_includeHEADERS
install -D --mode=644 "$tree/LICENCE" "$prefix/licences/PCRE2.txt"
finish
