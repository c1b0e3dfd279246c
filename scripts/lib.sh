# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the set-up scripts share. Source it; do not run it.
#
# A script that cannot go on calls `die` with one sentence that says what to do. `step`
# runs a command, keeps its output in build/log, prints one line with the time it took,
# and, when it fails, shows that sentence (or the end of the log).

set -euo pipefail

vus_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
vus_build=$vus_root/build
vus_downloads=$vus_build/downloads
vus_log=$vus_build/log

# Debian's interpreter, not whatever a version manager put on the path: the packages'
# modules (pytest) belong to it.
# shellcheck disable=SC2034
vus_python=/usr/bin/python3

die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# need_checkout: refuses to begin where the set-up, a build or a test would fail later and say less.
need_checkout() {
    case $vus_root in
        *[[:space:]]*) die "the path of this checkout has a blank, which the build of the kernel module cannot take: move it ($vus_root)." ;;
    esac
    mkdir -p "$vus_log" 2>/dev/null && [ -w "$vus_build" ] && [ -w "$vus_log" ] ||
        die "this checkout cannot be written to, and everything is built in $vus_build: make it writable or copy it elsewhere."
}

# need_disk MEGABYTES: refuses to begin what the disk cannot hold.
need_disk() {
    mkdir -p "$vus_build" || die "cannot create $vus_build: is the disk full or the checkout read-only?"
    local free
    free=$(df --output=avail -m "$vus_build" | tail -n 1 | tr -d ' ')
    [ "$free" -ge "$1" ] || die "$vus_build has $free MB free and $1 MB are needed: make room and run this again."
}

# with_lock NAME COMMAND...: one at a time, for what several checkouts' scripts would
# otherwise download twice into the same place.
with_lock() {
    local name=$1
    shift
    mkdir -p "$vus_downloads"
    (
        flock 9
        "$@"
    ) 9>"$vus_downloads/.$name.lock"
}

now_ms() { echo $((${EPOCHREALTIME/[.,]/} / 1000)); }

seconds_since() {  # seconds_since START_MS -> "3.2 s"
    local ms=$(($(now_ms) - $1))
    printf '%d.%d s' $((ms / 1000)) $((ms % 1000 / 100))
}

vus_step=0
vus_steps=${vus_steps:-0}  # set it to have steps numbered [1/N]

_step_title() {
    local number=
    [ "$vus_steps" -eq 0 ] || number="[$vus_step/$vus_steps] "
    local title="$number$1 "
    while [ ${#title} -lt 44 ]; do title+=.; done
    printf '%s ' "$title"
}

# Megabytes below build, as " (12 MB)" when they have grown since BEFORE: a download, or a
# compiler, is getting on.
_build_size() { du -sm "$vus_build" 2>/dev/null | cut -f1; }
_growth() {
    local grown=$(($(_build_size) - $1))
    [ "$grown" -le 0 ] || printf ' (%d MB)' "$grown"
}

# _watch PID START_MS TITLE: shows that something happens while PID runs. A terminal gets
# a counter; a log file a line every half minute.
_watch() {
    local pid=$1 start=$2 title=$3 shown=0 before elapsed
    before=$(_build_size)
    while kill -0 "$pid" 2>/dev/null; do
        sleep 0.05
        elapsed=$(($(now_ms) - start))
        if [ -t 1 ] && [ $((elapsed - shown)) -ge 1000 ]; then
            printf '\r%s%d s%s\033[K' "$title" $((elapsed / 1000)) "$(_growth "$before")"
            shown=$elapsed
        elif [ ! -t 1 ] && [ $((elapsed - shown)) -ge 30000 ]; then
            printf '%s%d s so far%s\n' "$title" $((elapsed / 1000)) "$(_growth "$before")"
            shown=$elapsed
        fi
    done
}

# _end_tree PID: ends a process and all that it started.
_end_tree() {
    local child
    # shellcheck disable=SC2013  # a line of words
    for child in $(cat "/proc/$1/task/$1/children" 2>/dev/null); do _end_tree "$child"; done
    kill "$1" 2>/dev/null || true
}

# What a step leaves running must not hold the lock of ./test.
_run_unlocked() {
    [ -z "${vus_test_lock:-}" ] || exec {vus_test_lock}>&-
    "$@"
}

# step LABEL COMMAND...
step() {
    local label=$1 start title log status=0
    shift
    vus_step=$((vus_step + 1))
    mkdir -p "$vus_log"
    log=$vus_log/$(tr -cs 'a-zA-Z0-9\n' - <<<"$label").log
    start=$(now_ms)
    title=$(_step_title "$label"; echo x)
    title=${title%x}
    [ ! -t 1 ] || printf '%s' "$title"
    _run_unlocked "$@" >"$log" 2>&1 </dev/null &
    # A background command does not hear the keyboard's interrupt.
    trap '_end_tree '$!'; exit 130' INT TERM
    _watch $! "$start" "$title"
    wait $! || status=$?
    trap - INT TERM
    [ ! -t 1 ] || printf '\r\033[K'
    if [ "$status" -eq 0 ]; then
        printf '%s%s\n' "$title" "$(seconds_since "$start")"
    else
        printf '%sfailed after %s\n' "$title" "$(seconds_since "$start")"
        _show_failure "$log"
    fi
    return "$status"
}

_show_failure() {
    if grep -q '^error: ' "$1"; then
        grep '^error: ' "$1" | tail -n 1 >&2
    else
        tail -n 25 "$1" >&2
        printf 'error: the whole output is in %s\n' "${1#"$vus_root"/}" >&2
    fi
}
