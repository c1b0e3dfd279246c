# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154  # names of lib.sh
#
# Debian's arm64 kernel, for the virtual device and for the virtual host. Source it after lib.sh.

. "$vus_root/scripts/apt.sh"

packages=$vus_build/device/packages  # what the downloaded packages unpack to
image_packages_of=linux-image-arm64

kernel_version() { basename "$packages"/boot/vmlinuz-*-arm64 | sed 's/^vmlinuz-//'; }

# The registry's kernel of today: the one that the meta package depends on.
latest_kernel() {
    (cd "$1" && private_apt "$1" download "$image_packages_of") >&2
    dpkg-deb -f "$1/$image_packages_of"_*.deb Depends | grep -o 'linux-image-[0-9][^ ,]*-arm64' |
        sed 's/^linux-image-//'
}

download_packages() {
    local arm=$vus_downloads/apt-device-arm64 host=$vus_downloads/apt-device-host kernel base
    need_disk 1500
    private_apt_init "$arm" deb arm64
    kernel=$(latest_kernel "$arm")
    [ -n "$kernel" ] || die "no arm64 kernel could be found: check that this machine's package sources are Debian 12's and carry arm64."
    base=${kernel%-arm64}
    (cd "$arm" && private_apt "$arm" download \
        "linux-image-$kernel" "linux-headers-$kernel" "linux-headers-$base-common" busybox-static)
    # The programs that build a module run here, not on the device.
    private_apt_init "$host" deb "$(dpkg --print-architecture)"
    (cd "$host" && private_apt "$host" download "linux-kbuild-${base%%.0-*}")
}

unpack_packages() {
    local deb fresh=$packages.new
    rm -rf "$fresh" "$packages"
    mkdir -p "$fresh"
    for deb in "$vus_downloads"/apt-device-{arm64,host}/linux-[hik]*.deb \
        "$vus_downloads"/apt-device-arm64/busybox-static_*.deb; do
        case $deb in *"/$image_packages_of"_*) continue ;; esac
        dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$fresh" --no-same-owner
    done
    rm -rf "$vus_downloads"/apt-device-{arm64,host}
    mv "$fresh" "$packages"
    /sbin/depmod -b "$packages" "$(kernel_version)"
}

make_packages() {
    [ -f "$packages/.complete" ] && return
    download_packages
    unpack_packages
    touch "$packages/.complete"
}

# pack DIRECTORY ARCHIVE: what the kernel unpacks into its first file system.
pack() { (cd "$1" && find . | LC_ALL=C sort | cpio -o -H newc -R 0:0 --quiet) >"$2"; }

# copy_modules ROOT LIST MODULE...: with what they need that no earlier list has.
copy_modules() {
    local root=$1 list=$2 file
    shift 2
    mkdir -p "$root/modules"
    /sbin/modprobe -d "$packages" -S "$(kernel_version)" -a --show-depends "$@" |
        awk '$1 == "insmod" && !seen[$2]++ { print $2 }' | while read -r file; do
        [ ! -e "$root/modules/$(basename "$file")" ] || continue
        cp "$file" "$root/modules/"
        basename "$file" >>"$root/modules/$list"
    done
}
