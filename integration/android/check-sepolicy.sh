#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compiles sepolicy/ with Debian's checkpolicy, on top of the small part of Android's
# policy that it refers to: it finds syntax errors, undeclared types, unknown permissions
# and neverallow rules that the policy itself breaks. It cannot replace the platform's own
# build, which knows the platform's neverallow rules.
#
# Needs the packages checkpolicy and m4.

set -euo pipefail
cd "$(dirname "$0")"
for tool in checkpolicy m4; do
    command -v "$tool" >/dev/null || { echo "error: install the packages checkpolicy and m4" >&2; exit 2; }
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Quotes as in Android's build: ` and '; a # comment is m4's as well.
m4 -s check/macros check/base.te sepolicy/vusd.te check/users sepolicy/genfs_contexts \
    >"$scratch/policy.conf"
checkpolicy -M -c 30 -o "$scratch/policy" "$scratch/policy.conf"

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
        grep -qE "^type ${type}[ ,]|_prop\($type\)" sepolicy/vusd.te ||
            { echo "error: $1: $type is not declared" >&2; return 1; }
    done < <(sed 's/#.*//' "$1")
}
check_contexts sepolicy/file_contexts 2
check_contexts sepolicy/service_contexts 2
check_contexts sepolicy/property_contexts 4
check_contexts sepolicy/genfs_contexts 4
echo "sepolicy: compiles"
