#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# clang-tidy, with the checks of .clang-tidy, finds nothing in the daemon, the tools and platform/.
#
#   scripts/lint-cpp.sh [FILE...]     only these sources; default: all
#
# All sources of a library are looked at together: most of what a check costs is the headers of
# the standard library, which it walks through once for each source. That leaves out the checks that
# follow the paths of a program (clang-analyzer-*), which look at a source's own functions only: a
# FILE by itself gets them, too.

. "$(dirname "$0")/lib.sh"
cd "$vus_root"

database=$vus_build/lint
ours="^$vus_root/(android/vus|platform|tools)/"

prepare() {
    [ -f "$database/build.ninja" ] || cmake --preset clang -B "$database" -D VUS_PCH=OFF \
        -D VUS_BUILD_TESTS=OFF -D CMAKE_UNITY_BUILD=ON
    ninja -C "$database" vus_aidl_interface_sources
}

prepare
if [ $# -gt 0 ]; then
    clang-tidy -quiet -p "$database" -header-filter="$ours" "$@"
else
    run-clang-tidy -quiet -p "$database" -header-filter="$ours" -checks='-clang-analyzer-*' \
        "^$database/(android/vus|platform/CMakeFiles/(vus_platform|getprop|setprop)|tools)/"
fi
