#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds Qt Core, Network, Xml and Test for 64-bit Windows, with the tools that run here, and prints
# the directory to add to CMAKE_PREFIX_PATH.
set -euo pipefail

recipes=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
# shellcheck source=cmake/recipes/common/recipe.sh
source "$recipes/common/recipe.sh"

readonly version=5.15.8
readonly revision=+dfsg-11+deb12u3
readonly sha256=f442936526e336a033acb1021bfed0d59b42ee520483a015cf245478c75b3b7f

pcre2=$("$recipes/pcre2-windows.sh")
begin "Qt for Windows" "qt-windows-$version" "$pcre2"
fetch_debian_source "qtbase-opensource-src=$version$revision"
# The description pins the tarballs by their hashes, which unpacking checks.
check "$sha256" "$work/qtbase-opensource-src_$version$revision.dsc"
step "unpacking" "$work" dpkg-source --extract \
    "qtbase-opensource-src_$version$revision.dsc" "$work/qtbase"

mkdir "$work/build"
step "configuring (about two minutes)" "$work/build" ../qtbase/configure -prefix "$prefix" \
    -xplatform win32-g++ -device-option CROSS_COMPILE=x86_64-w64-mingw32- \
    -release -shared -opensource -confirm-license -no-pch \
    -no-gui -no-widgets -no-dbus -no-opengl -no-openssl -no-sql-sqlite -no-sql-odbc \
    -no-feature-sql -no-feature-concurrent -no-feature-printer \
    -system-zlib -system-pcre -D PCRE2_STATIC -I "$pcre2/include" -L "$pcre2/lib" \
    -nomake examples -nomake tests -no-compile-examples
step "compiling (about seven minutes)" "$work/build" make "-j$(nproc)"
step "installing" "$work/build" make install
install -D --mode=644 --target-directory="$prefix/licences" "$work"/qtbase/LICENSE.LGPL3 \
    "$work"/qtbase/LICENSE.GPL3 "$pcre2"/licences/*
finish
