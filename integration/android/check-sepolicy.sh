#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks sepolicy/, the sample of a board's part included.
#
#   check-sepolicy.sh             parses it on top of check/stub, which declares what it refers to:
#                                 finds syntax errors, undeclared types, unknown permissions, and
#                                 rules against this policy's own neverallows. Says nothing about a
#                                 platform's rules.
#   check-sepolicy.sh --platform  compiles it together with the policy of a real Android tree, for a
#                                 user and a userdebug build, neverallows included. The directory
#                                 system/sepolicy of that tree is VUS_AOSP_SEPOLICY. Without one,
#                                 nothing is checked, and the exit status is 77.
#
# Needs the packages checkpolicy and m4.

set -euo pipefail
tree=$(realpath "${VUS_AOSP_SEPOLICY:-/}")
cd "$(dirname "$0")"
die() { echo "error: $*" >&2; exit 2; }
for tool in checkpolicy m4; do
    command -v "$tool" >/dev/null || die "install the packages checkpolicy and m4"
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

ours=(sepolicy/public sepolicy/private sepolicy/board)

# The files of a policy, in the order of the platform's build: each kind from every directory.
kinds=(security_classes initial_sids access_vectors global_macros neverallow_macros mls_macros
    mls_decl mls policy_capabilities te_macros attributes ioctl_defines ioctl_macros '*.te'
    roles_decl roles users initial_sid_contexts fs_use genfs_contexts port_contexts)

# What the platform's build defines for a product of level 33, except for the kind of build.
definitions=(-D mls_num_sens=1 -D mls_num_cats=1024 -D target_arch=arm64 -D target_with_asan=false
    -D target_with_dexpreopt=true -D target_with_native_coverage=false -D target_full_treble=true
    -D target_compatible_property=true -D target_treble_sysprop_neverallow=true
    -D target_enforce_sysprop_owner=true -D target_enforce_debugfs_restriction=true
    -D target_exclude_build_test=false -D target_recovery=false)

compile() {  # compile TREE BUILD
    local kind directory file files=()
    for kind in "${kinds[@]}"; do
        for directory in "$1/public" "$1/private" "${ours[@]}"; do
            for file in "$directory"/$kind; do  # a pattern, or a name
                [ ! -f "$file" ] || files+=("$file")
            done
        done
    done
    # Quotes as in Android's build: ` and '; a # comment is m4's as well.
    m4 --fatal-warnings -s "${definitions[@]}" -D target_build_variant="$2" "${files[@]}" \
        >"$scratch/policy.conf"
    checkpolicy -M -c 30 -o "$scratch/policy" "$scratch/policy.conf"
}

# Every type that a contexts file names is declared, and every line has its fields.
check_contexts() {  # check_contexts FILE FIELDS
    local line type
    while read -r line; do
        [ -n "$line" ] || continue
        set -f
        # shellcheck disable=SC2086
        set -- "$1" "$2" $line
        set +f
        [ $# -eq $(($2 + 2)) ] || { echo "error: $1: $line" >&2; return 1; }
        type=$(sed -E 's/.*u:object_r:([a-z_]+):s0.*/\1/' <<<"$line")
        grep -qE "^type ${type}[ ,]|_prop\($type\)" sepolicy/*/*.te ||
            { echo "error: $1: $type is not declared" >&2; return 1; }
    done < <(sed 's/#.*//' "$1")
}

parse() {
    compile check/stub user
    check_contexts sepolicy/private/file_contexts 2
    check_contexts sepolicy/private/service_contexts 2
    check_contexts sepolicy/private/property_contexts 4
    check_contexts sepolicy/private/genfs_contexts 4
    check_contexts sepolicy/board/genfs_contexts 4
    echo "sepolicy: parses, on stub declarations; no platform's rule was checked"
}

check_on_platform() {
    local build
    [ -n "${VUS_AOSP_SEPOLICY:-}" ] ||
        { echo "not run: VUS_AOSP_SEPOLICY names no Android tree's system/sepolicy"; exit 77; }
    [ -f "$tree/private/access_vectors" ] && [ -f "$tree/public/te_macros" ] ||
        die "VUS_AOSP_SEPOLICY is no Android tree's system/sepolicy: $VUS_AOSP_SEPOLICY"
    for build in user userdebug; do
        compile "$tree" "$build"
        echo "sepolicy: compiles with the platform's, $build build"
    done
}

case "${1:-}" in
    "") parse ;;
    --platform) check_on_platform ;;
    *) die "unknown argument: $1" ;;
esac
