#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Makes the virtual device: build/device/{Image,soc.dtb,device.cpio}.
#
# Debian's arm64 kernel, a device tree with the SoC's USB controllers in their place, a
# small image (busybox, the kernel's modules, the board module) and in it the programs of
# build/arm64. Packages are unpacked, not installed; each part is made anew only when what
# it is made from has changed, and replaced when it is whole.

. "$(dirname "$0")/../scripts/lib.sh"
. "$(dirname "$0")/kernel.sh"

here=$vus_root/device
out=$vus_build/device
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

make_kernel() {
    cmp -s "$packages/boot/vmlinuz-$(kernel_version)" "$out/Image" && return
    cp "$packages/boot/vmlinuz-$(kernel_version)" "$out/Image.new"
    mv "$out/Image.new" "$out/Image"
}

make_device_tree() {
    local key
    key=$(stamp_of "$here/device_tree.py")-$memory_mb
    made "$out/.soc.dtb" "$key" && return
    qemu-system-aarch64 -M virt,acpi=off,gic-version=2,dumpdtb="$out/virt.dtb" -cpu cortex-a57 \
        -m "$memory_mb" -nodefaults -display none
    dtc -q -I dtb -O dts "$out/virt.dtb" | "$vus_python" "$here/device_tree.py" |
        dtc -q -I dts -O dtb -o "$out/soc.dtb.new"
    mv "$out/soc.dtb.new" "$out/soc.dtb"
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

# What changes often: our programs. The kernel unpacks both archives, one after the other. While
# they are packed nobody lays them out anew, and a machine that starts meanwhile has what was there.
make_image() { with_lock arm64 pack_image; }

pack_image() {
    local key
    key=$(find "$vus_build/arm64/rootfs" -type f -print0 | LC_ALL=C sort -z | xargs -0 sha256sum | stamp_of)-$(<"$out/.base")
    made "$out/.device.cpio" "$key" && return
    pack "$vus_build/arm64/rootfs" "$out/programs.cpio"
    cat "$out/base.cpio" "$out/programs.cpio" >"$out/device.cpio.new"
    mv "$out/device.cpio.new" "$out/device.cpio"
    printf '%s' "$key" >"$out/.device.cpio"
}

need_programs() {
    [ -d "$vus_build/arm64/rootfs" ] || die "the device's programs are not built: run scripts/build-arm64.sh first."
}

with_lock arm64 need_programs
mkdir -p "$out"
for part in packages kernel device_tree board_module base image; do
    started=$(now_ms)
    with_lock device "make_$part"
    printf '%-16s %s\n' "$part" "$(seconds_since "$started")"
done
