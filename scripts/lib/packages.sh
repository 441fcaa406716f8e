# Sourced by the scripts of this folder: packages, builds and headings.
# Every function prints what it does; nothing is installed or built twice.

kv_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# heading TEXT...: starts a step.
heading() {
    printf '\n== %s\n' "$*"
}

# fail TEXT...: ends the script with a clear line.
fail() {
    printf '\nFAILED: %s\n' "$*" >&2
    exit 1
}

# need_packages PACKAGE...: installs those that are not there yet, as root or with sudo.
need_packages() {
    local package missing=()
    for package in "$@"; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "these packages are missing and need root or sudo to install: ${missing[*]}"
        as_root=(sudo)
    fi
    printf 'Installing %s\n' "${missing[*]}"
    if [ -z "${kv_lists_updated:-}" ]; then
        package_system "${as_root[@]}" apt-get update || fail "apt-get update"
        kv_lists_updated=1
    fi
    package_system "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
        "${missing[@]}" || fail "could not install ${missing[*]}"
}

# package_system COMMAND...: runs a command of the package system, whose output shows only if it fails. While another
# program has the package system locked, it says so and tries again, for ten minutes.
package_system() {
    local log waited=0
    log=$(mktemp)
    while ! "$@" >"$log" 2>&1; do
        if ! grep -qE 'Could not get lock|Unable to (lock|acquire)|is another process using it' "$log" || [ $waited -ge 600 ]; then
            cat "$log" >&2
            rm -f "$log"
            return 1
        fi
        [ $waited -ne 0 ] || printf 'Another program has the package system locked; waiting for it\n'
        sleep 5
        waited=$((waited + 5))
    done
    rm -f "$log"
}

# need_build_packages: what every native build needs. The tests' library too: a build is configured whole, whatever
# is built of it.
need_build_packages() {
    need_packages g++ cmake ninja-build pkg-config libicu-dev zlib1g-dev libsqlite3-dev libxml2-dev libxslt1-dev libexpat1-dev \
        binutils-mingw-w64-x86-64 libcli11-dev libgtest-dev
    use_compiler_cache
}

# use_compiler_cache: what was compiled before, for another form of the library or another change, is not again.
use_compiler_cache() {
    need_packages ccache
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$kv_root CCACHE_NOHASHDIR=1
    export CCACHE_SLOPPINESS=pch_defines,time_macros # which headers that are read once need
}

# show_progress LOG PID: prints each tenth of the way that a build has gone, until the process ends.
show_progress() {
    local step=0 now
    while kill -0 "$2" 2>/dev/null; do
        sleep 1
        now=$(tail -c 4096 "$1" 2>/dev/null | tr '\r' '\n' | sed -n 's/^\[\([0-9]*\)\/\([0-9]*\)\].*/\1 \2/p' | tail -n 1 || true)
        [ -n "$now" ] || continue
        now=$((10 * ${now% *} / ${now#* }))
        while [ $step -lt $now ] && [ $step -lt 9 ]; do
            step=$((step + 1))
            printf '%d%% ' $((10 * step))
        done
    done
}

# build_preset PRESET TARGET...: configures build/PRESET and builds the targets, or everything if none is named.
build_preset() {
    local preset=$1 log=$kv_root/build/$1.log target arguments=() build
    shift
    for target in "$@"; do
        arguments+=(--target "$target")
    done
    printf 'Building %s (%s) ... ' "$preset" "${*:-everything}"
    mkdir -p "$kv_root/build"
    local start=$SECONDS
    (cd "$kv_root" && cmake --preset "$preset" && cmake --build "build/$preset" "${arguments[@]}") >"$log" 2>&1 &
    build=$!
    show_progress "$log" $build
    if ! wait $build; then
        printf 'failed\n'
        tail -n 60 "$log" >&2
        fail "building $preset; the whole log is build/$preset.log"
    fi
    printf 'done in %s s\n' $((SECONDS - start))
}
