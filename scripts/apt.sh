# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# A private apt: the machine's own package sources, another state. Source it after lib.sh.
#
# Source packages and packages of another architecture come through it, so that neither
# the system's configuration nor its list of installed packages changes, and no root is
# needed. Both forms of configuration are understood: one-line *.list and deb822 *.sources.

# _sources_as TYPE FROM TO: copies the machine's sources with their type replaced and
# their restriction to architectures dropped; mirrors, suites and keys stay as they are.
_sources_as() {
    local type=$1 from=$2 to=$3 file
    for file in "$from"/sources.list "$from"/sources.list.d/*.list; do
        [ -f "$file" ] || continue
        sed -nE "s/^[[:space:]]*deb[[:space:]]+/$type /; T; s/arch=[^] ]*//; s/\[[[:space:]]*\]//; p" \
            "$file" >"$to/$(basename "$file" .list).list"
    done
    for file in "$from"/sources.list.d/*.sources; do
        [ -f "$file" ] || continue
        sed -E "s/^Types:.*/Types: $type/; /^Architectures:/d; /^#/d" "$file" >"$to/$(basename "$file")"
    done
}

# private_apt_init DIR TYPE [ARCHITECTURE]: prepares DIR and reads the package lists.
private_apt_init() {
    local dir=$1 type=$2 arch=${3:-}
    rm -rf "$dir"
    mkdir -p "$dir"/{sources.list.d,lists/partial,cache/archives/partial}
    : >"$dir/status"
    _sources_as "$type" "${VUS_APT_ETC:-/etc/apt}" "$dir/sources.list.d"
    find "$dir/sources.list.d" -empty -type f -delete
    printf '%s\n' "$arch" >"$dir/arch"
    # A source that does not answer is no error yet: what counts is whether the package
    # that is wanted can be had.
    private_apt "$dir" update || true
    [ -n "$(find "$dir/lists" -maxdepth 1 -type f -name '*_*' -size +1k -print -quit)" ] ||
        die "this machine's package sources cannot be reached: check the network (apt-get update must work) and run this again."
}

# private_apt DIR APT-GET-ARGUMENTS...
private_apt() {
    local dir=$1 arch
    shift
    arch=$(<"$dir/arch")
    apt-get -q \
        ${arch:+-o APT::Architecture="$arch" -o APT::Architectures="$arch"} \
        -o Dir::Etc::SourceList=/dev/null \
        -o Dir::Etc::SourceParts="$dir/sources.list.d" \
        -o Dir::State="$dir" \
        -o Dir::State::Lists="$dir/lists" \
        -o Dir::State::status="$dir/status" \
        -o Dir::Cache="$dir/cache" \
        -o Dir::Cache::archives="$dir/cache/archives" \
        -o APT::Sandbox::User= \
        -o Acquire::Languages=none \
        -o Acquire::Retries=2 \
        -o Acquire::http::Timeout=20 \
        -o APT::Update::Post-Invoke= \
        -o APT::Update::Post-Invoke-Success= \
        "$@"
}
