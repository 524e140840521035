# shellcheck shell=bash
# SPDX-License-Identifier: BSD-3-Clause
#
# What the recipes for dependencies share; each sources this file. A recipe builds into $prefix,
# which is cached under a key of everything that shapes the result, so a second call is free.

cache=${FERRULE_CACHE:-$HOME/.cache/ferrule}

say() { printf '%s: %s\n' "$title" "$*" >&2; }

die() {
    say "$*"
    exit 1
}

# begin <title> <name> <ingredient...>: sets $prefix, and $work for what is needed only meanwhile.
# An ingredient is a file or a text that the result depends on. Ends the recipe when the result is
# in the cache already.
begin() {
    title=$1
    local name=$2 ingredient key
    shift 2
    key=$(for ingredient in "${BASH_SOURCE[0]}" "$0" "$@"; do
        if [ -f "$ingredient" ]; then cat "$ingredient"; else echo "$ingredient"; fi
    done | sha256sum | cut -c1-16)
    prefix=$cache/$name-$key
    log=$prefix.log
    mkdir -p "$cache"
    # Two builds at once would race for the same prefix; the second waits and then finds it done.
    exec 9>"$prefix.lock"
    flock 9
    if [ -e "$prefix/.complete" ]; then
        echo "$prefix"
        exit 0
    fi
    rm -rf "$prefix"
    : >"$log"
    work=$(mktemp -d "$cache/$name-build.XXXXXX")
    trap 'rm -rf "$work"' EXIT
}

# step <text> <directory> <command...>
step() {
    local text=$1 directory=$2
    shift 2
    say "$text"
    (cd "$directory" && "$@") 9>&- >>"$log" 2>&1 || {
        say "failed; the last lines of $log:"
        tail -n 20 "$log" >&2
        exit 1
    }
}

finish() {
    touch "$prefix/.complete"
    say "ready in $prefix"
    echo "$prefix"
}

# check <sha256 or sha512> <file>: ends the recipe unless the file is the pinned one.
check() {
    local sum=$1 file=$2 program=sha256sum
    [ ${#sum} = 64 ] || program=sha512sum
    echo "$sum  $file" | "$program" --check --quiet >&2 \
        || die "${file##*/} is not the pinned one; nothing was built"
}

# fetch_debian_source <package>=<version> [apt-get option...]: fetches a source package into $work,
# from wherever this machine gets its binary packages; the machine's own settings stay as they are.
fetch_debian_source() {
    local package=$1 apt=$work/apt file options
    shift
    mkdir -p "$apt/sources" "$apt/lists/partial"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [ ! -e "$file" ] || sed -n 's/^deb\([[:space:]]\)/deb-src\1/p' "$file" \
            >"$apt/sources/$(basename "$file" .list)-src.list"
    done
    for file in /etc/apt/sources.list.d/*.sources; do
        [ ! -e "$file" ] || sed 's/^Types:.*/Types: deb-src/' "$file" \
            >"$apt/sources/$(basename "$file")"
    done
    options=(-qq -o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$apt/sources"
        -o "Dir::State::Lists=$apt/lists" -o Dir::Cache::PkgCache= -o Dir::Cache::SrcPkgCache=
        -o APT::Sandbox::User=)
    step "fetching the source package $package" "$work" apt-get "${options[@]}" update
    (cd "$work" && apt-get "${options[@]}" --download-only "$@" source "$package") 9>&- \
        >>"$log" 2>&1 || die "cannot fetch the source package; see $log"
}
