#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes the virtual device: build/device/{Image,soc.dtb,device.cpio}.
#
# Debian's arm64 kernel, a device tree with the SoC's USB controllers in their place, a
# small image (busybox, the kernel's modules, the board module) and in it the programs of
# build/arm64. Packages are unpacked, not installed; each part is made anew only when what
# it is made from has changed.

. "$(dirname "$0")/../scripts/lib.sh"
. "$(dirname "$0")/../scripts/apt.sh"

here=$vus_root/device
out=$vus_build/device
packages=$out/packages  # what the downloaded packages unpack to
image_packages_of=linux-image-arm64
memory_mb=256

# What the image's kernel loads, besides what these need.
modules=(
    virtio_pci virtio_console binder_linux evdev
    xhci-pci usbhid hid-generic usb-storage sd_mod cdc_ether rndis_host cdc_acm ftdi_sio
    uhid dummy_hcd libcomposite usb_f_acm usb_f_ecm usb_f_mass_storage usb_f_hid
)

# Loaded by a test that attaches disks; see /modules/disks.
disk_modules=(virtio_blk ext4 f2fs loop)

stamp_of() { cat "$@" 2>/dev/null | sha256sum | cut -c 1-16; }

# made STAMP-FILE KEY: whether the part was made from what KEY sums up.
made() { [ -f "$1" ] && [ "$(<"$1")" = "$2" ]; }

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

make_kernel() {
    cmp -s "$packages/boot/vmlinuz-$(kernel_version)" "$out/Image" ||
        cp "$packages/boot/vmlinuz-$(kernel_version)" "$out/Image"
}

make_device_tree() {
    local key
    key=$(stamp_of "$here/device_tree.py")-$memory_mb
    made "$out/.soc.dtb" "$key" && return
    qemu-system-aarch64 -M virt,acpi=off,gic-version=2,dumpdtb="$out/virt.dtb" -cpu cortex-a57 \
        -m "$memory_mb" -nodefaults -display none
    dtc -q -I dtb -O dts "$out/virt.dtb" | "$vus_python" "$here/device_tree.py" |
        dtc -q -I dts -O dtb -o "$out/soc.dtb"
    printf '%s' "$key" >"$out/.soc.dtb"
}

# The headers name each other and the tools by the absolute paths of an installed system.
board_module() {
    local kernel headers build=$out/board
    kernel=$(kernel_version)
    headers=$packages/usr/src/linux-headers-$kernel
    rm -rf "$build"
    mkdir -p "$build"
    cp "$here"/board/* "$build/"
    grep -q "^include $packages" "$headers/Makefile" ||
        sed -i "s,^include /usr/src,include $packages/usr/src," "$headers/Makefile"
    make -s -C "$headers" M="$build" ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu- \
        CC=aarch64-linux-gnu-gcc-12 DEB_HOST_GNU_TYPE=aarch64-linux-gnu modules
    aarch64-linux-gnu-strip --strip-debug "$build/vus_board.ko"
}

make_board_module() {
    local key
    key=$(stamp_of "$here"/board/*)-$(kernel_version)
    made "$out/.board" "$key" && return
    board_module
    printf '%s' "$key" >"$out/.board"
}

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

# What changes seldom: busybox, modules, init.
base_archive() {
    local root=$out/base
    rm -rf "$root"
    mkdir -p "$root"/{bin,dev,proc,sys,run,tmp,data,etc,usr/bin,usr/lib}
    cp "$packages/bin/busybox" "$root/bin/"
    ln -s usr/lib "$root/lib"
    copy_modules "$root" order "${modules[@]}"
    copy_modules "$root" disks "${disk_modules[@]}"
    cp "$out/board/vus_board.ko" "$root/modules/"
    cp "$here/guest/init" "$root/init"
    cp "$here/guest/profile" "$root/etc/"
    install -m 0755 "$here"/guest/{gadget,devices,supervise} "$root/usr/bin/"
    pack "$root" "$out/base.cpio"
}

make_base() {
    local key
    key=$(stamp_of "$here"/guest/* "$out/board/vus_board.ko")-$(kernel_version)-${modules[*]}-${disk_modules[*]}
    made "$out/.base" "$key" && return
    base_archive
    printf '%s' "$key" >"$out/.base"
}

# What changes often: our programs. The kernel unpacks both archives, one after the other.
make_image() {
    local key
    key=$(find "$vus_build/arm64/rootfs" -type f -print0 | LC_ALL=C sort -z | xargs -0 sha256sum | stamp_of)-$(<"$out/.base")
    made "$out/.device.cpio" "$key" && return
    pack "$vus_build/arm64/rootfs" "$out/programs.cpio"
    cat "$out/base.cpio" "$out/programs.cpio" >"$out/device.cpio"
    printf '%s' "$key" >"$out/.device.cpio"
}

[ -d "$vus_build/arm64/rootfs" ] || die "the device's programs are not built: run scripts/build-arm64.sh first."
mkdir -p "$out"
for part in packages kernel device_tree board_module base image; do
    started=$(now_ms)
    with_lock device "make_$part"
    printf '%-16s %s\n' "$part" "$(seconds_since "$started")"
done
