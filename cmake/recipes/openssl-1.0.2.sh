#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Builds OpenSSL 1.0.2h as shared libraries for this machine and prints the directory to pass as
# -DOPENSSL_ROOT_DIR.
set -euo pipefail

common=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/common
# shellcheck source=cmake/recipes/common/recipe.sh
source "$common/recipe.sh"
# shellcheck source=cmake/recipes/common/openssl-1.0.2.sh
source "$common/openssl-1.0.2.sh"

begin "openssl 1.0.2" openssl-1.0.2h "$common/openssl-1.0.2.sh"
fetch_openssl
# Symbol versions keep these libraries apart from an OpenSSL 3 that Qt Network may load into the
# same process.
printf 'OPENSSL_1.0.0 {\n  global: *;\n};\n' >"$work/openssl.ld"
build_openssl linux-x86_64 "-Wl,--version-script=$work/openssl.ld"
finish
