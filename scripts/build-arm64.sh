#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the device's programs: build/arm64/bin/* (stripped), and build/arm64/rootfs with
# the programs at their places, each shared library they need at the path where the target's
# dynamic linker finds it, and the linker itself. build/arm64/libs.txt lists the libraries.
#
#   scripts/build-arm64.sh [PROGRAM...]     default: everything that the device runs

. "$(dirname "$0")/lib.sh"

sysroot=$vus_build/sysroot-arm64
out=$vus_build/arm64
objects=$vus_build/arm64/cmake
programs=("$@")
[ $# -gt 0 ] || programs=(vusd vus_hotplug vusctl getprop setprop servicemanager vus_malformed_call vus_usbfs)

# Where the target's linker looks: what our programs' run path says, the system's, and the
# folder that libbacktrace names for 7z.so.
search=(usr/lib/aarch64-linux-gnu/android usr/lib/aarch64-linux-gnu lib/aarch64-linux-gnu usr/lib/p7zip)

# Where a program lies on the device. The daemon is off the path, in the place that the product's
# start-up file names: whatever it is called with, it starts, and takes the service's name.
place_of() {
    case $1 in
        vusd) echo system_ext/bin ;;
        *) echo usr/bin ;;
    esac
}

# What a program loads when it needs it.
declare -A loaded_by=([vusctl]=libcrypto.so.3)

needed_by() { llvm_readelf --needed-libs "$@" | sed -n 's/^  *\([^ ]*\.so.*\)/\1/p' | sort -u; }

# The tool's name carries a version where only clang-14 is installed.
llvm_readelf() { "$(command -v llvm-readelf || command -v llvm-readelf-14)" "$@"; }
llvm_strip() { "$(command -v llvm-strip || command -v llvm-strip-14)" "$@"; }

find_library() {
    local dir
    for dir in "${search[@]}"; do
        [ ! -e "$sysroot/$dir/$1" ] || { echo "$dir/$1"; return; }
    done
    die "the device's programs need $1, which no package of scripts/arm64-sysroot.sh brings."
}

# closure FILE...: every library that the files need, directly or not, as paths in the sysroot.
closure() {
    local todo=("$@") name path
    local -A seen=()
    local loaded
    loaded=$(for name in "$@"; do echo "${loaded_by[$name]:-}"; done)
    while [ ${#todo[@]} -gt 0 ]; do
        local next=()
        for name in $loaded $(needed_by "${todo[@]}"); do
            [ -z "${seen[$name]:-}" ] || continue
            path=$(find_library "$name")
            seen[$name]=$path
            next+=("$sysroot/$path")
        done
        todo=("${next[@]}")
    done
    [ ${#seen[@]} -eq 0 ] || printf '%s\n' "${seen[@]}" | sort
}

compile() {
    [ -f "$objects/build.ninja" ] || (cd "$vus_root" && cmake --preset arm64 -B "$objects")
    ninja -C "$objects" "${programs[@]}"
}

stage() {
    local name path root=$out/rootfs.new
    rm -rf "${out:?}/bin" "${root:?}"
    mkdir -p "$out/bin"
    for name in "${programs[@]}"; do
        llvm_strip -o "$out/bin/$name" "$objects/bin/$name"
        install -D -m 0755 "$out/bin/$name" "$root/$(place_of "$name")/$name"
    done
    # In the platform's name, and in front of it; see platform/lazy_backtrace.cpp.
    llvm_strip -o "$out/libbacktrace.so.0" "$objects/lib/libbacktrace.so.0"
    install -D -m 0755 "$out/libbacktrace.so.0" "$root/usr/lib/vus/libbacktrace.so.0"
    (cd "$out/bin" && closure "${programs[@]}") >"$out/libs.txt"
    while read -r path; do
        # The device has one folder for both of Debian's.
        install -D -m 0755 "$sysroot/$path" "$root/usr/${path#usr/}"
    done <"$out/libs.txt"
    sed -i 's,^lib/,usr/lib/,' "$out/libs.txt"
    ln -s usr/lib "$root/lib"
    ln -s aarch64-linux-gnu/ld-linux-aarch64.so.1 "$root/usr/lib/ld-linux-aarch64.so.1"
    # Whoever is interrupted leaves all of them or, for a moment, none.
    rm -rf "${out:?}/rootfs.old"
    [ ! -e "$out/rootfs" ] || mv "$out/rootfs" "$out/rootfs.old"
    mv "$root" "$out/rootfs"
    rm -rf "${out:?}/rootfs.old"
}

"$(dirname "$0")/fetch-binder.sh"
"$(dirname "$0")/arm64-sysroot.sh"
mkdir -p "$out"
with_lock arm64 compile
with_lock arm64 stage
