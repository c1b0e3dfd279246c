#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# bpfmt finds nothing to change in the Blueprint files. It also tells a syntax error, which is all
# of Soong that can be checked here.

. "$(dirname "$0")/lib.sh"
cd "$vus_root"

wrong=$(git ls-files -z '*Android.bp' | xargs -0 -r bpfmt -l)
[ -z "$wrong" ] || die "not as bpfmt writes it: $wrong"
