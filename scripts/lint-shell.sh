#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# The tool shellcheck finds nothing in our shell scripts: those of the machine that builds, by name or by
# their first line, and those of the virtual device, for the shell that it has.

. "$(dirname "$0")/lib.sh"
cd "$vus_root"

mapfile -t scripts < <(git grep --untracked -lE '^#!/bin/(ba)?sh|^# shellcheck shell=')
shellcheck "${scripts[@]}"
shellcheck --shell=dash device/guest/* device/host/start
printf '%d scripts of the host\n' "${#scripts[@]}"
