#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds OpenSSL 1.0.2h as shared libraries for this machine and prints the directory to pass as
# -DOPENSSL_ROOT_DIR. The result is cached under a key of this recipe, so a second call is free.
#
# 1.0.2h is for building and testing: it has known vulnerabilities. Programs in production point
# -DOPENSSL_ROOT_DIR at the maintained 1.0.2 that they are licensed for.
set -euo pipefail

# The package is used for the complete, unmodified OpenSSL source tree that it carries.
readonly package=nodegit@0.22.2
readonly tarball=nodegit-0.22.2.tgz
readonly sha512=c4d480ba452ad0e4d89d4b98dd70d35cfc053e3cfc448a659891178409ca55b224b880f0c6e58e14125e0ac2b14c50e0ab0c43a4e72764d7b7ab26bdebaf0674
readonly tree=package/vendor/openssl/openssl

recipe=$(readlink -f "${BASH_SOURCE[0]}")
key=$(sha256sum "$recipe" | cut -c1-16)
readonly cache=${FERRULE_CACHE:-$HOME/.cache/ferrule}
readonly prefix=$cache/openssl-1.0.2h-$key

say() { printf 'openssl 1.0.2: %s\n' "$*" >&2; }

mkdir -p "$cache"
# Two builds at once would race for the same prefix; the second waits and then finds it done.
exec 9>"$cache/openssl-1.0.2h-$key.lock"
flock 9

if [ -e "$prefix/.complete" ]; then
    echo "$prefix"
    exit 0
fi

work=$(mktemp -d "$cache/openssl-build.XXXXXX")
trap 'rm -rf "$work"' EXIT
rm -rf "$prefix"

say "fetching the source tree ($package, 13 MB)"
(cd "$work" && npm pack --silent "$package" >/dev/null)
echo "$sha512  $work/$tarball" | sha512sum --check --quiet >&2 || {
    say "the fetched package is not the pinned one; nothing was built"
    exit 1
}
tar -xzf "$work/$tarball" -C "$work" "$tree"

# Symbol versions keep these libraries apart from an OpenSSL 3 that Qt Network may load into the
# same process.
printf 'OPENSSL_1.0.0 {\n  global: *;\n};\n' > "$work/openssl.ld"

readonly log=$prefix.log
step() {
    say "$1"
    shift
    (cd "$work/$tree" && "$@") 9>&- >>"$log" 2>&1 || {
        say "failed; the last lines of $log:"
        tail -n 20 "$log" >&2
        exit 1
    }
}
: > "$log"
step "configuring" perl Configure linux-x86_64 shared no-ssl2 no-idea no-mdc2 \
    --prefix="$prefix" --openssldir="$prefix/ssl" "-Wl,--version-script=$work/openssl.ld"
step "collecting dependencies" make depend
# Not the default target: it also builds the test programs, one of which needs the cipher left out.
step "compiling the libraries (about two minutes)" make "-j$(nproc)" build_libs
step "compiling engines and tools" make build_engines build_apps build_tools
step "installing" make install_sw
touch "$prefix/.complete"
say "ready in $prefix"
echo "$prefix"
