#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes build/sysroot-arm64: the headers and libraries of a Debian 12 machine with 64-bit
# Arm cores, for building the device's programs. Packages and what they depend on come
# through a private apt and are unpacked, not installed. Made once; made anew when the
# list below changes.

. "$(dirname "$0")/lib.sh"
. "$(dirname "$0")/apt.sh"

packages=(
    libc6-dev libstdc++-12-dev libgcc-12-dev linux-libc-dev
    android-libbase-dev android-liblog-dev android-libutils-dev android-libcutils-dev
    android-libbacktrace-dev libtinyxml2-dev libjsoncpp-dev libudev-dev libevdev-dev
    libssl-dev
)
sysroot=$vus_build/sysroot-arm64
stamp=$sysroot/.$(printf '%s\n' 2 "${packages[@]}" | sha256sum | cut -c 1-16)

download() {
    private_apt_init "$1" deb arm64
    private_apt "$1" install --yes --download-only --no-install-recommends "${packages[@]}" ||
        die "the arm64 packages could not be downloaded: check the network, and that this machine's package sources are Debian 12's and carry arm64."
}

# Debian 12's /lib is a link to usr/lib. Not here: clang would look for its files below
# lib/gcc/../.., which a tool that shortens such paths (ninja) takes for another place.
unpack() {
    local deb fresh=$sysroot.new
    rm -rf "$fresh" "$sysroot"
    mkdir -p "$fresh"
    for deb in "$1"/cache/archives/*.deb; do
        dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$fresh" --no-same-owner
    done
    relative_links "$fresh"
    touch "$fresh/$(basename "$stamp")"
    mv "$fresh" "$sysroot"
}

# An absolute link would leave the sysroot.
relative_links() {
    local link target
    find "$1" -type l -lname '/*' | while read -r link; do
        target=$(readlink "$link")
        ln -sfnr "$1$target" "$link"
    done
}

make_sysroot() {
    [ -f "$stamp" ] && return
    need_disk 600
    local apt=$vus_downloads/apt-arm64
    download "$apt"
    unpack "$apt"
    rm -rf "$apt"
}

[ -f "$stamp" ] || with_lock sysroot-arm64 make_sysroot
