# shellcheck shell=bash disable=SC2154
# SPDX-License-Identifier: BSD-3-Clause
#
# What the recipes for OpenSSL 1.0.2h share; sourced after recipe.sh.
#
# 1.0.2h is for building and testing: it has known vulnerabilities. Programs in production point
# -DOPENSSL_ROOT_DIR at the maintained 1.0.2 that they are licensed for.

# The package is used for the complete, unmodified OpenSSL source tree that it carries.
readonly package=nodegit@0.22.2
readonly tarball=nodegit-0.22.2.tgz
readonly sha512=c4d480ba452ad0e4d89d4b98dd70d35cfc053e3cfc448a659891178409ca55b224b880f0c6e58e14125e0ac2b14c50e0ab0c43a4e72764d7b7ab26bdebaf0674
readonly subtree=package/vendor/openssl/openssl

# Old and weak ciphers and protocols that no build of ours offers.
readonly openssl_options=(shared no-ssl2 no-idea no-mdc2)

# Leaves the source tree in $tree.
fetch_openssl() {
    say "fetching the source tree ($package, 13 MB)"
    (cd "$work" && npm pack --silent "$package" >/dev/null)
    check "$sha512" "$work/$tarball"
    tar -xzf "$work/$tarball" -C "$work" "$subtree"
    tree=$work/$subtree
}

# build_openssl <configuration> <option...>
build_openssl() {
    step "configuring" "$tree" perl Configure "$1" "${openssl_options[@]}" \
        --prefix="$prefix" --openssldir="$prefix/ssl" "${@:2}"
    step "collecting dependencies" "$tree" make depend
    # Not the default target: it also builds the test programs, one of which needs the cipher left
    # out.
    step "compiling the libraries (some minutes)" "$tree" make "-j$(nproc)" build_libs
    step "compiling engines and tools" "$tree" make build_engines build_apps build_tools
    step "installing" "$tree" make install_sw
    install -D --mode=644 "$tree/LICENSE" "$prefix/licences/OpenSSL.txt"
}
