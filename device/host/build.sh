#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes the virtual host: a Debian 12 for 64-bit Arm with systemd, whose disk is
# build/host/debian.img, and what starts it: build/host/{Image,start.cpio}.
#
# Its packages are unpacked here and configured by the machine itself, at its first start
# (tests/host does that once and keeps the disk). Nothing of Arm runs on this machine, and nothing
# here needs root.

. "$(dirname "$0")/../../scripts/lib.sh"
. "$(dirname "$0")/../kernel.sh"

here=$vus_root/device/host
out=$vus_build/host

# The system, and what apt finds on its disk when it installs ours.
system=('?essential' '?priority(required)' apt adduser dbus kmod libpam-systemd procps systemd systemd-sysv udev)
needed=(
    android-libbacktrace android-libbase android-libcutils android-liblog android-libutils
    libevdev2 libjsoncpp25 libssl3 libtinyxml2-9 libudev1
)
# What finds and mounts the disk; udev loads everything else.
modules=(virtio_pci virtio_blk ext4)

key() { cat "$here"/* "$vus_root/device/kernel.sh" <(kernel_version) | sha256sum | cut -c 1-16; }

download() {  # download DIRECTORY
    private_apt_init "$1" deb arm64
    mkdir -p "$out/debs/system" "$out/debs/needed"
    private_apt "$1" install --yes --download-only --no-install-recommends "${system[@]}"
    mv "$1"/cache/archives/*.deb "$out/debs/system/"
    private_apt "$1" install --yes --download-only --no-install-recommends "${needed[@]}"
    mv "$1"/cache/archives/*.deb "$out/debs/needed/"
}

make_debs() {
    [ ! -f "$out/debs/.complete" ] || return 0
    need_disk 3000
    rm -rf "$out/debs"
    download "$vus_downloads/apt-host" ||
        die "the arm64 packages could not be downloaded: check the network, and that this machine's package sources are Debian 12's and carry arm64."
    rm -rf "$vus_downloads/apt-host"
    # What the system has is not needed again.
    (cd "$out/debs/system" && printf '%s\n' *.deb) | (cd "$out/debs/needed" && xargs rm -f)
    touch "$out/debs/.complete"
}

# populate ROOT IMAGE: this script, run by fakeroot: every file is root's then.
populate() {
    local root=$1
    mkdir -p "$root"/usr/{bin,sbin,lib} "$root"/{proc,sys,dev,run,srv/debian}
    ln -s usr/bin usr/sbin usr/lib "$root/"
    "$vus_python" -B "$here/unpack_debs.py" "$root" "$out"/debs/system/*.deb
    mkdir -p "$root/usr/lib/modules"
    cp -r "$packages/lib/modules/$(kernel_version)" "$root/usr/lib/modules/"
    install -m 0755 "$here/first-start" "$here/agent" "$root/usr/sbin/"
    install -m 0644 "$here/agent.service" "$root/usr/lib/systemd/system/"
    cp "$out"/debs/needed/*.deb "$root/srv/debian/"
    (cd "$root/srv/debian" && dpkg-scanpackages --multiversion . >Packages)
    /sbin/mke2fs -q -t ext4 -d "$root" -L debian "$2" 3G
}

make_disk() {
    local root=$out/root
    rm -rf "$root" "$out/debian.img"
    mkdir -p "$root"
    fakeroot "$0" populate "$root" "$out/debian.img.new"
    mv "$out/debian.img.new" "$out/debian.img"
    rm -rf "$root"
}

make_start() {
    local root=$out/start
    rm -rf "$root"
    mkdir -p "$root"/{bin,dev,proc,root}
    cp "$packages/bin/busybox" "$root/bin/"
    copy_modules "$root" order "${modules[@]}"
    cp "$here/start" "$root/init"
    chmod 0755 "$root/init"
    pack "$root" "$out/start.cpio"
    cp "$packages/boot/vmlinuz-$(kernel_version)" "$out/Image"
    rm -rf "$root"
}

make_host() {
    make_debs
    [ ! -f "$out/.made" ] || [ "$(<"$out/.made")" != "$(key)" ] || return 0
    rm -f "$out/.made" "$out"/configured*
    make_start
    make_disk
    key >"$out/.made"
}

if [ "${1:-}" = populate ]; then
    populate "$2" "$3"
    exit
fi
mkdir -p "$out" "$vus_build/device"
with_lock device make_packages
with_lock host make_host
