# shellcheck shell=bash
# What the commands of this folder share. Sourced, never run.

root=$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
log=$root/build/setup.log

# Libraries that the system has no package of are kept here, outside the tree; cmake/Dependencies.cmake looks there too.
BIOPROCESSING_DEPS=${BIOPROCESSING_DEPS:-${XDG_CACHE_HOME:-${HOME:-$root/build}/.cache}/bioprocessing/deps}
[[ $BIOPROCESSING_DEPS == /* ]] || BIOPROCESSING_DEPS=$PWD/$BIOPROCESSING_DEPS
export BIOPROCESSING_DEPS

say() { printf '%s\n' "$*"; }

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

has() { command -v -- "$1" >/dev/null 2>&1; }

# quietly COMMAND...: its output goes to the log; the end of it is shown when the command fails.
quietly() {
    mkdir -p -- "$(dirname -- "$log")"
    if "$@" >"$log.part" 2>&1 </dev/null; then
        cat -- "$log.part" >>"$log"
        rm -f -- "$log.part"
        return 0
    fi
    cat -- "$log.part" >>"$log"
    tail -n 25 -- "$log.part" >&2
    rm -f -- "$log.part"
    return 1
}

# build_preset PRESET [TARGET...]: sets the machine up, configures and builds.
build_preset() {
    local preset=$1
    shift
    "$root/scripts/setup" || say "Building with what is there."
    has cmake || fail "CMake 3.21 or newer is missing; README.md tells where to get it."

    local launcher=${CMAKE_CXX_COMPILER_LAUNCHER-}
    if [[ -z $launcher ]] && has ccache; then
        launcher=ccache
    fi
    cd -- "$root" || exit
    quietly cmake --preset "$preset" "-DCMAKE_CXX_COMPILER_LAUNCHER=$launcher" || fail "CMake could not configure the \"$preset\" preset."
    cmake --build --preset "$preset" ${1+--target "$@"} </dev/null || fail "The \"$preset\" preset does not build."
}
