#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs a command in a Debian of its own that builds packages for 64-bit Arm: build/cross-arm64.
# What such a build needs are packages of two architectures, and this machine's list of packages
# must not learn of another one.
#
#   scripts/cross-root.sh COMMAND...     default: only makes it
#
# Made once; made anew when what debian/control asks for changes.

. "$(dirname "$0")/lib.sh"

root=$vus_build/cross-arm64
wanted=$(sed -n '/^Build-Depends:/,/^[A-Z][a-z]*-Version/p' "$vus_root/debian/control")
stamp=$root/.$(sha256sum <<<"crossbuild-essential-arm64 $wanted" | cut -c 1-16)

# as_its_root COMMAND...: as root, or as a user to whom the root's files look like root's.
as_its_root() {
    if [ "$(id -u)" -eq 0 ]; then
        unshare --mount --pid --fork "$@"
    else
        unshare --user --map-root-user --map-auto --mount --pid --fork "$@"
    fi
}

# build/package is /package in there.
enter() {
    mkdir -p "$vus_build/package"
    # shellcheck disable=SC2016  # for the shell in there
    as_its_root sh -c 'mount -t proc proc "$0/proc" && mount --rbind /dev "$0/dev" &&
        mkdir -p "$0/package" && mount --bind "$0/../package" "$0/package" && cd "$0" && exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 HOME=/root \
            chroot "$0" "$@"' "$root" "$@"
}

make_root() {
    [ ! -f "$stamp" ] || return 0
    need_disk 2500
    local fresh=$root.new file sources=()
    # Debian's own: what others add to this machine may have no packages for another architecture.
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
        if [ -f "$file" ] && grep -q '/debian' "$file"; then sources+=("$file"); fi
    done
    as_its_root rm -rf "$fresh" "$root"
    # shellcheck disable=SC2016  # for mmdebstrap's shell
    mmdebstrap --variant=apt --include=crossbuild-essential-arm64 --architectures="$(dpkg --print-architecture),arm64" \
        --customize-hook='mkdir -p "$1/tmp/vus/debian"' \
        --customize-hook="copy-in '$vus_root/debian/control' '$vus_root/debian/changelog' /tmp/vus/debian" \
        --customize-hook='chroot "$1" apt-get -q -y --no-install-recommends -o APT::Cmd::Disable-Script-Warning=1 \
            --host-architecture arm64 --build-profiles cross,nocheck build-dep /tmp/vus' \
        --customize-hook='chroot "$1" apt-get clean; rm -rf "$1/tmp/vus"' \
        bookworm "$fresh" "${sources[@]}"
    as_its_root touch "$fresh/$(basename "$stamp")"
    mv "$fresh" "$root"
}

[ -f "$stamp" ] || with_lock cross-arm64 make_root
[ $# -eq 0 ] || enter "$@"
