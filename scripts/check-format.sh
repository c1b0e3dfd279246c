#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# clang-format finds nothing to change in our C and C++.

. "$(dirname "$0")/lib.sh"
cd "$vus_root"

git ls-files -z --cached --others --exclude-standard '*.cpp' '*.h' '*.cc' |
    xargs -0 -r -n 20 -P "$(nproc)" clang-format --dry-run --Werror
