#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Fetches the source of Android's libbinder and servicemanager, which Debian ships as
# source only, into build/downloads/frameworks-native. Pinned by its checksum; taken from
# the machine's own package sources with the ordinary client; fetched once.

. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/apt.sh"

package=android-platform-frameworks-native
version=10.0.0+r36
sha256=e7897848382e491f375690ea3332961463e4bcd87db6c131b6f0bb18dec3a3c0
tarball=${package}_$version.orig.tar.gz
source_dir=$vus_downloads/frameworks-native
stamp=$source_dir/.$sha256

good_tarball() {
    [ -f "$1" ] && printf '%s  %s\n' "$sha256" "$1" | sha256sum --check --status
}

download() {
    local apt=$vus_downloads/apt-source
    good_tarball "$vus_downloads/$tarball" && return
    need_disk 300
    private_apt_init "$apt" deb-src
    # The packaging tarball beside the original one is gone from mirrors, and not needed.
    (cd "$vus_downloads" && private_apt "$apt" source --download-only --tar-only "$package") ||
        die "the source package $package could not be downloaded: check the network, and that this machine's package sources are Debian 12's."
    good_tarball "$vus_downloads/$tarball" || die \
        "$tarball is not the file this was written for (its sha256 is not $sha256): remove it from build/downloads, or check the mirror."
    rm -rf "$apt"
}

unpack() {
    local fresh=$source_dir.new
    rm -rf "$fresh" "$source_dir"
    mkdir -p "$fresh"
    tar -xzf "$vus_downloads/$tarball" -C "$fresh" --no-same-owner \
        libs/binder libs/binderthreadstate cmds/servicemanager
    touch "$fresh/.$sha256"
    mv "$fresh" "$source_dir"
}

fetch() {
    [ -f "$stamp" ] && return
    download
    unpack
}

[ -f "$stamp" ] || with_lock binder fetch
