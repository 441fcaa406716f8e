# shellcheck shell=bash disable=SC2016 # $(...) is the package system's own
# Sourced after packages.sh: a 32-bit Wine in a root of its own, and the tests of the 32-bit Windows build in it.
#
# The machine's own packages cannot hold a 32-bit Wine beside the 64-bit one unless all of its package indexes are there
# for both processors. A root of its own needs the main index alone.

# Where the root is kept between runs. Several clones share one if they are given the same folder.
kv_wine32_root=${KV_WINE32_ROOT:-$kv_root/build/wine32}
export KV_WINE32_ROOT=$kv_wine32_root

# What the root is made of. Another list makes another root.
kv_wine32_packages=wine32,libwine

# windows32_namespace: how a program gets mounts of its own here, printed as a command; fails if it cannot.
windows32_namespace() {
    local way
    for way in "unshare --mount" "unshare --map-root-user --mount"; do
        if $way true 2>/dev/null; then
            printf '%s\n' "$way"
            return 0
        fi
    done
    return 1
}

# windows32_source: the machine's own main index, as a line of a package list.
windows32_source() {
    local codename
    codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        awk -v codename="$codename" '$2 == codename && $3 == "main" { print "deb", $1, $2, $3; exit }'
}

# windows32_settings: what the machine's package system is told of proxies, certificates and retries.
windows32_settings() {
    apt-config dump | grep -E '^Acquire::' | grep -vE '^Acquire::(IndexTargets|Languages|GzipIndexes)|^Acquire::(cdrom|Changelogs|CompressionTypes)' || true
}

# windows32_is_complete: whether a whole root of these packages is there.
windows32_is_complete() {
    [ "$(cat "$kv_wine32_root/.complete" 2>/dev/null)" = "$kv_wine32_packages" ]
}

# windows32_make_once: one try, into a folder beside the root that takes the root's place when all is there.
windows32_make_once() {
    local work=$kv_wine32_root.new source
    rm -rf "$work" && mkdir -p "$work/root" || return 1
    source=$(windows32_source)
    if [ -z "$source" ]; then
        echo "this machine's package lists name no main index of its own release"
        return 1
    fi
    printf '%s\n' "$source" >"$work/sources.list"
    windows32_settings >"$work/settings"
    # Devices are the machine's own, bound when a program runs. The lists and settings are of use only here.
    (
        set -o pipefail
        timeout 1200 mmdebstrap --arch=i386 --variant=apt --include="$kv_wine32_packages" --format=tar \
            --aptopt="$work/settings" --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
            "$(awk '{ print $3 }' "$work/sources.list")" - "$work/sources.list" |
            tar -x --no-same-owner -C "$work/root" --exclude='./dev/*' --exclude='./etc/apt/*' --exclude='./var/lib/apt/*'
    ) || return 1
    [ -x "$work/root/usr/lib/wine/wine" ] || return 1
    mkdir -p "$work/root/dev" "$work/root/proc"
    printf '%s\n' "$kv_wine32_packages" >"$work/root/.complete"
    rm -rf "$kv_wine32_root" && mv "$work/root" "$kv_wine32_root" && rm -rf "$work"
}

# windows32_make_root: makes the root unless it is there. Status 1 if its packages cannot be had after three tries, 2 if
# this machine lets no program have mounts of its own; both have said so.
windows32_make_root() {
    local log=$kv_root/build/wine32.log start=$SECONDS try
    if ! windows32_namespace >/dev/null; then
        echo "32-bit Windows programs run in a root of their own, for which this machine must let programs have mounts of" \
            "their own: run as root, or allow user namespaces (sysctl kernel.unprivileged_userns_clone=1)."
        return 2
    fi
    windows32_is_complete && return 0
    mkdir -p "$kv_root/build" "$(dirname "$kv_wine32_root")"
    local tools=(mmdebstrap arch-test)
    [ "$(id -u)" -eq 0 ] || tools+=(uidmap)
    (need_packages "${tools[@]}") || return 1
    printf 'Making the root of the 32-bit Wine in %s ... ' "$kv_wine32_root"
    exec 8>"$kv_wine32_root.lock"
    flock 8
    for try in 1 2 3; do
        if windows32_is_complete || windows32_make_once >"$log" 2>&1; then
            exec 8>&-
            printf 'done in %s s\n' $((SECONDS - start))
            return 0
        fi
        printf 'try %s failed ... ' "$try"
        [ "$try" -eq 3 ] || sleep $((try * 10))
    done
    exec 8>&-
    rm -rf "$kv_wine32_root.new"
    printf 'given up\n'
    tail -n 20 "$log" >&2
    echo "The packages of the 32-bit Wine cannot be had; the whole log is build/wine32.log."
    return 1
}

# windows32_stop_wine: ends what Wine has running for the 32-bit tests.
windows32_stop_wine() {
    WINEPREFIX=$kv_root/build/windows-x86/wineprefix "$kv_root/scripts/wine32" --server -k >/dev/null 2>&1 || true
}

# windows32_tests [CTEST ARGUMENT...]: builds everything for 32-bit Windows and runs every test, in a root that
# windows32_make_root has made. In a shell of its own, so that a caller's traps stay.
windows32_tests() (
    need_packages g++-mingw-w64-i686-posix libz-mingw-w64-dev googletest
    build_preset windows-x86
    # One server for all programs; it goes by itself when none has needed it for a while.
    trap windows32_stop_wine EXIT
    trap 'exit 130' INT TERM
    mkdir -p "$kv_root/build/windows-x86/wineprefix"
    WINEPREFIX=$kv_root/build/windows-x86/wineprefix WINEDEBUG=-all "$kv_root/scripts/wine32" --server -p60
    # A program that fails runs once more: Wine answers out of its own memory and time now and then.
    ctest --preset windows-x86 --no-tests=error --repeat until-pass:2 "$@"
)
