#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# pyflakes finds nothing in our Python: unused names, unknown ones, mistakes in formats.

. "$(dirname "$0")/lib.sh"
cd "$vus_root"

git ls-files -z --cached --others --exclude-standard '*.py' | xargs -0 -r "$vus_python" -m pyflakes
