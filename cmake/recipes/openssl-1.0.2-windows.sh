#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds OpenSSL 1.0.2h as DLLs for 64-bit Windows and prints the directory to pass as
# -DOPENSSL_ROOT_DIR.
set -euo pipefail

common=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/common
# shellcheck source=cmake/recipes/common/recipe.sh
source "$common/recipe.sh"
# shellcheck source=cmake/recipes/common/openssl-1.0.2.sh
source "$common/openssl-1.0.2.sh"

# The SHA-1 code for processors with SHA extensions uses %rax for scratch, where the Windows calling
# convention's epilogue expects the frame's address: every digest would end in a crash.
repair_sha1() {
    local file=$tree/crypto/sha/asm/sha1-x86_64.pl
    sed -i -e '/^\tlea\t\t0x40(.inp),%rax\t/s/%rax/%r8/' \
        -e '/^\tcmovne\t\t%rax,.inp$/s/%rax/%r8/' "$file"
    [ "$(grep -cP '^\t(lea\t\t0x40\(.inp\),%r8\t|cmovne\t\t%r8,.inp$)' "$file")" = 2 ] \
        || die "sha1-x86_64.pl is not as expected; nothing was built"
}

# Where the libraries look for their configuration and for authorities must be a directory that only
# administrators write to, not this machine's: without a drive, anybody there could make it. The name
# has blanks, with which make cannot install, so it goes past make and into the header.
set_directories() {
    local file=$tree/Configure directory='C:/Program Files/Common Files/SSL'
    sed -i -e "s|my \$foo = \$openssldir;|my \$foo = \"$directory\";|" \
        -e "s|my \$foo = \"\$prefix/\$libdir/engines\";|my \$foo = \"$directory/engines\";|" "$file"
    [ "$(grep -cF "my \$foo = \"$directory" "$file")" = 2 ] \
        || die "Configure is not as expected; nothing was built"
}

begin "openssl 1.0.2 for Windows" openssl-1.0.2h-windows "$common/openssl-1.0.2.sh"
fetch_openssl
repair_sha1
set_directories
# At addresses that the system picks at random, and without executable data.
build_openssl mingw64 --cross-compile-prefix=x86_64-w64-mingw32- \
    -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va
finish
