#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs the Debian packages that building and testing on this machine need.
#
#   scripts/setup-packages.sh [--list | --packaging]
#
# With --packaging those that ./package needs, too.
# Needs root, or sudo without a password; otherwise says what an administrator has to
# run. Does nothing, quickly, when everything is there.

. "$(dirname "$0")/lib.sh"

packages=(
    # to build
    g++ clang lld cmake ninja-build pkg-config
    aidl android-libbase-dev android-liblog-dev android-libutils-dev android-libcutils-dev
    android-libbacktrace-dev libtinyxml2-dev libjsoncpp-dev libudev-dev libevdev-dev
    libssl-dev
    # to test
    libgtest-dev libgmock-dev libbenchmark-dev libclang-rt-14-dev python3 python3-pytest
    gcovr clang-format blueprint-tools checkpolicy m4 llvm util-linux
    clang-tidy shellcheck python3-pyflakes python3-z3 spin libxml2-utils mandoc systemd
    reuse chromium chromium-driver python3-selenium python3-pil zsh fish
    # to fetch and unpack libbinder's source and the device's packages
    dpkg-dev cpio xz-utils
    # to make and run the virtual device
    qemu-system-arm device-tree-compiler kmod make gcc-12-aarch64-linux-gnu e2fsprogs f2fs-tools
)

packaging=(debhelper fakeroot lintian mmdebstrap)

missing_packages() {
    local installed
    installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${packages[@]}" 2>/dev/null || true)
    printf '%s\n' "${packages[@]}" | grep -vxF -f <(sed -n 's/^installed //p' <<<"$installed") |
        tr '\n' ' ' || true
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        env DEBIAN_FRONTEND=noninteractive "$@"
    else
        sudo -n env DEBIAN_FRONTEND=noninteractive "$@"
    fi
}

install_packages() {
    as_root apt-get -q update || true  # old lists may still do; the installation tells
    # shellcheck disable=SC2086
    as_root apt-get -q -y -o DPkg::Lock::Timeout=300 install --no-install-recommends $1 || die \
        "packages could not be installed ($1): check the network and the disk, see $vus_log, and run this again."
}

main() {
    if [ "${1:-}" = --list ]; then
        printf '%s\n' "${packages[@]}"
        return
    fi
    [ "${1:-}" != --packaging ] || packages+=("${packaging[@]}")
    command -v apt-get >/dev/null || die "this needs Debian 12: there is no apt-get on this machine."
    local missing
    missing=$(missing_packages)
    missing=${missing% }
    [ -n "$missing" ] || return 0
    if [ "$(id -u)" -ne 0 ] && ! sudo -n true 2>/dev/null; then
        die "packages are missing, and installing them needs root; ask an administrator to run: apt-get update && apt-get install --no-install-recommends $missing"
    fi
    need_disk 3000
    install_packages "$missing"
}

main "$@"
