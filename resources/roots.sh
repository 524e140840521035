#!/usr/bin/env bash
# SPDX-License-Identifier: BSD-3-Clause
#
# Makes the root bundle and brings the roots in it up to date; --help says how.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")" && pwd)
roots=$here/roots
output=$here/RootCerts.pem
suites=(sid trixie bookworm)
mirror=${FERRULE_DEBIAN_MIRROR:-}
readonly keyring=/usr/share/keyrings/debian-archive-keyring.gpg

usage() {
    cat <<'TEXT'
Usage: roots.sh bundle [--roots DIR] [--output FILE]
       roots.sh refresh [SUITE...]

bundle   Writes one bundle of all the *.pem files in DIR (by default resources/roots), in the order
         of their names, to FILE (by default resources/RootCerts.pem; "-" is the standard output).

         The bundle begins with an empty line; all lines end with CR LF, those in base64 have 64
         characters. Nothing is written when a file does not hold exactly one certificate, when two
         hold the same, when one had expired on the day on which the roots were collected, or when
         there are more or fewer of them than then. Source, day and number are those in the table of
         DIR/README.md.

refresh  Fetches the current ca-certificates packages of Debian's SUITEs (by default sid, trixie and
         bookworm) into a temporary directory and puts what they hold in place of resources/roots:
         every root that one of them lists and that has 30 days or more to live. Says which roots
         came and went, and makes the bundle. Needs apt-get, openssl and debian-archive-keyring, but
         not root. The packages come from the mirror that apt is set up with; FERRULE_DEBIAN_MIRROR
         names another.
TEXT
}

say() { printf 'roots: %s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# read_certificate <file>: sets sha1, until (in seconds) and pem, or fails.
read_certificate() {
    local text
    text=$(tr -d '\0' <"$1")
    [[ $text == *-----BEGIN* && $text != *-----BEGIN*-----BEGIN* ]] || return 1
    text=$(openssl x509 -in "$1" -fingerprint -sha1 -enddate 2>/dev/null) || return 1
    [[ $text =~ Fingerprint=([0-9A-F:]+) ]] || return 1
    sha1=${BASH_REMATCH[1]//:/}
    sha1=${sha1,,}
    [[ $text =~ notAfter=([^$'\n']+) ]] || return 1
    until=$(date --utc --date "${BASH_REMATCH[1]}" +%s)
    pem=-----BEGIN${text#*-----BEGIN}
}

# --- bundle ---------------------------------------------------------------------------------------

# noted <row>: prints what the table in the roots' README says.
noted() {
    sed -n "s/^| $1 | \(.*\) |\$/\1/p" "$roots/README.md"
}

# print_bundle <file>...: prints the bundle, or ends the script.
print_bundle() {
    local file sha1 until pem collected
    local -A seen=()
    collected=$(date --utc --date "$(noted collected)" +%s)
    printf '\r\n'
    for file in "$@"; do
        read_certificate "$file" || die "$file does not hold exactly one certificate"
        [ -z "${seen[$sha1]:-}" ] || die "$file holds the same certificate as ${seen[$sha1]}"
        [ "$until" -gt "$collected" ] || die "$file had expired when the roots were collected"
        seen[$sha1]=$file
        printf '%s\r\n' "${pem//$'\n'/$'\r\n'}"
    done
}

make_bundle() {
    local files=("$roots"/*.pem)
    [ -f "$roots/README.md" ] || die "there is no $roots/README.md"
    [ -e "${files[0]}" ] || die "there are no roots in $roots"
    [ "${#files[@]}" = "$(noted roots)" ] \
        || die "there are ${#files[@]} roots where $(noted roots) were collected"
    print_bundle "${files[@]}" >"$work/bundle"
    if [ "$output" = - ]; then
        cat "$work/bundle"
    else
        cat "$work/bundle" >"$output"
    fi
    say "${#files[@]} roots from $(noted source), collected on $(noted collected)"
}

command_bundle() {
    while [ $# -gt 0 ]; do
        case $1 in
            --roots) roots=${2:?--roots needs a directory}; shift 2 ;;
            --output) output=${2:?--output needs a file}; shift 2 ;;
            *) usage >&2; exit 2 ;;
        esac
    done
    make_bundle
}

# --- refresh --------------------------------------------------------------------------------------

# apt-get with lists and sources of its own, so that the machine's stay as they are.
private_apt_get() {
    apt-get -qq -o Dir::State="$work" -o Dir::State::Lists="$work/lists" \
        -o Dir::State::status=/dev/null -o Dir::Cache="$work/cache" \
        -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o APT::Sandbox::User=root "$@"
}

# need_mirror: sets mirror to Debian's own archive among apt's sources unless it is set.
need_mirror() {
    if [ -z "$mirror" ]; then
        # shellcheck disable=SC2016 # apt-get fills in the address, not the shell.
        mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' \
            | head -n 1)
        [ -n "$mirror" ] || die "apt knows no mirror of Debian: run apt-get update, or set" \
            "FERRULE_DEBIAN_MIRROR"
    fi
}

# fetch_packages: unpacks each suite's package into $work/<suite>; sets versions.
fetch_packages() {
    local suite package
    mkdir -p "$work/lists/partial" "$work/cache/archives/partial" "$work/packages"
    printf "deb [signed-by=$keyring] $mirror %s main\n" "${suites[@]}" >"$work/sources.list"
    private_apt_get update
    for suite in "${suites[@]}"; do
        (cd "$work/packages" && private_apt_get download "ca-certificates/$suite")
        package=("$work"/packages/*.deb)
        versions+=("$(dpkg-deb --field "${package[0]}" Version) ($suite)")
        dpkg-deb --extract "${package[0]}" "$work/$suite"
        rm "${package[0]}"
    done
}

# collect: copies the roots of all packages to $work/roots, and sets names and packages of each.
collect() {
    local suite file sha1 until pem
    mkdir "$work/roots"
    for suite in "${suites[@]}"; do
        for file in "$work/$suite"/usr/share/ca-certificates/mozilla/*.crt; do
            read_certificate "$file" || die "${file##*/} of $suite is no certificate"
            [ "$until" -ge $((today + 30 * 24 * 60 * 60)) ] || continue
            if [ -n "${names[$sha1]:-}" ]; then
                packages[$sha1]+=,$suite
            else
                name_root "$(basename "$file" .crt | tr -cd ' -~')"
                packages[$sha1]=$suite
                ends[$sha1]=$(date --utc --date "@$until" +%F)
                cp "$file" "$work/roots/${names[$sha1]}"
            fi
        done
    done
}

# name_root <name>: finds a file name for the root with the fingerprint sha1.
name_root() {
    names[$sha1]=$1.pem
    [ ! -e "$work/roots/$1.pem" ] || names[$sha1]=$1-${sha1:0:8}.pem
}

print_list() {
    local sha1
    printf 'file\tsha1\tnotAfter\tpackages\n'
    for sha1 in "${!names[@]}"; do
        printf '%s\t%s\t%s\t%s\n' "${names[$sha1]}" "$sha1" "${ends[$sha1]}" "${packages[$sha1]}"
    done | sort
}

command_refresh() {
    local versions=() today
    local -A names=() packages=() ends=()
    today=$(date --utc +%s)
    [ $# = 0 ] || suites=("$@")
    need_mirror
    say "fetching ca-certificates of ${suites[*]} from $mirror"
    fetch_packages
    collect
    print_list >"$work/roots/roots.tsv"

    say "roots that came (>) and went (<):"
    diff <(cut -f 1,2 "$roots/roots.tsv" | sort) <(cut -f 1,2 "$work/roots/roots.tsv" | sort) \
        | grep '^[<>]' >&2 || true
    printf -v source '%s, ' "${versions[@]}"
    sed "s/^\(| source |\).*/\1 Debian ca-certificates ${source%, } |/
        s/^\(| collected |\).*/\1 $(date --utc --date "@$today" +%F) |/
        s/^\(| roots |\).*/\1 ${#names[@]} |/" "$roots/README.md" >"$work/roots/README.md"
    rm "$roots"/*
    cp "$work"/roots/* "$roots"
    make_bundle
}

case ${1:-} in
    bundle | refresh)
        command=$1
        shift
        "command_$command" "$@"
        ;;
    -h | --help) usage ;;
    *)
        usage >&2
        exit 2
        ;;
esac
