# shellcheck shell=bash disable=SC2034
# Functions that the tools share. To be sourced with "set -euo pipefail" on.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Without a locale, newer Qt prints a message in each program.
if [ -z "${LC_ALL-}${LC_CTYPE-}${LANG-}" ]; then
    export LC_ALL=C.UTF-8
fi

build_packages=(cmake ninja-build g++ qt6-base-dev qt6-tools-dev qt6-l10n-tools qcoro-qt6-dev)
packaging_packages=(dpkg-dev file pkg-config) # to build packages and to use them

say()
{
    printf '\n== %s\n' "$*"
}

fail()
{
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

as_root()
{
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "needs root or sudo for: $*"
    fi
}

# missing_packages NAME... prints those that are not installed.
missing_packages()
{
    local name
    for name; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" != installed ]; then
            printf '%s\n' "$name"
        fi
    done
}

# install_packages NAME... installs those Debian packages that are missing.
install_packages()
{
    command -v dpkg-query >/dev/null || fail "needs Debian 12 or newer, or these packages: $*"
    local missing
    mapfile -t missing < <(missing_packages "$@")
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    say "Installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -qq -y --no-install-recommends "${missing[@]}" \
        </dev/null >/dev/null
}

# install_idle_service NAME SERVICE installs the package NAME without starting its service: the tests start servers of
# their own, on free ports.
install_idle_service()
{
    if [ -z "$(missing_packages "$1")" ]; then
        return
    fi
    local policy=/usr/sbin/policy-rc.d
    local is_ours=
    if [ ! -e "$policy" ]; then
        is_ours=1
        printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
        # shellcheck disable=SC2064
        trap "as_root rm -f $policy" EXIT
        as_root chmod 755 "$policy"
    fi
    install_packages "$1"
    if [ -n "$is_ours" ]; then
        as_root rm -f "$policy"
        trap - EXIT
    fi
    if command -v systemctl >/dev/null; then
        as_root systemctl disable "$2" >/dev/null 2>&1 || true
    fi
}

# configure PRESET
configure()
{
    say "Configuring $1"
    (cd "$root" && cmake --preset "$1")
}

# build_for_tools TARGET... builds optimised targets in a directory that no preset uses, since build/release belongs to
# the user, who may have turned off what a tool needs.
tools_build_dir=$root/build/tools
build_for_tools()
{
    say "Configuring build/tools"
    (cd "$root" && cmake --preset release -B "$tools_build_dir")
    say "Building $*"
    cmake --build "$tools_build_dir" --target "$@"
}

# build PRESET [TARGET...]
build()
{
    local preset=$1
    shift
    say "Building $preset"
    (cd "$root" && cmake --build --preset "$preset" ${1:+--target "$@"})
}
