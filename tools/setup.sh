#!/usr/bin/env bash
# Installs the Debian packages that the given groups need; done in no time if all are there.
#   tools/setup.sh GROUP...      groups: build, tools, test, pipewire, demo, bench, armhf, arm64,
#                                clang, packages
set -euo pipefail

declare -A groups=(
    [build]="gcc g++ cmake ninja-build lua5.1 liblua5.1-0-dev libcjson-dev"
    [tools]="libcli11-dev libcsv-dev libfftw3-dev libsamplerate0-dev libsndfile1-dev
             nlohmann-json3-dev"
    [test]="python3 make pkg-config libgtest-dev libgmock-dev libbenchmark-dev libfftw3-dev chromium
            lua5.2 lua5.3 lua5.4 luajit git luarocks parallel"
    [demo]="python3-numpy python3-scipy python3-matplotlib pocketsphinx-testdata"
    [pipewire]="pipewire pipewire-bin wireplumber dbus libspa-0.2-modules libspa-0.2-dev
                libsamplerate0-dev python3-numpy python3-scipy pocketsphinx-testdata"
    [bench]="python3 libbenchmark-dev libfftw3-dev libwebrtc-audio-processing-dev"
    [armhf]="g++-arm-linux-gnueabihf qemu-user"
    [arm64]="g++-aarch64-linux-gnu qemu-user"
    [clang]="clang libclang-rt-14-dev clang-format"
    [packages]="debootstrap dpkg-dev lintian pkg-config"
)

# The given packages that are not installed.
missing_of() {
    local installed
    installed=" $(dpkg-query -W -f '${Package} ${db:Status-Status} ' "$@" 2> /dev/null || true)"
    for package in "$@"; do
        case "$installed" in
            *" $package installed "*) ;;
            *) echo "$package" ;;
        esac
    done
}

packages=()
for group in "$@"; do
    read -r -d '' -a names <<< "${groups[$group]:?"no such group: $group"}" || true
    packages+=("${names[@]}")
done

if ! command -v apt-get > /dev/null || ! command -v dpkg-query > /dev/null; then
    echo "set-up: no apt-get here. Needed, by Debian's names, and taken to be installed:" >&2
    echo "  ${packages[*]}" >&2
    exit 0
fi
mapfile -t missing < <(missing_of "${packages[@]}")
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo > /dev/null; then
        echo "set-up: neither root nor sudo. As root, please run" >&2
        echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi
install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get)
echo "== installing ${missing[*]}"
"${install[@]}" -q update || echo "set-up: no fresh package lists; trying with the old ones" >&2
if ! "${install[@]}" -q -y install --no-install-recommends "${missing[@]}"; then
    mapfile -t missing < <(missing_of "${missing[@]}")
    echo "set-up: these packages can't be had: ${missing[*]}" >&2
    echo "  Is this Debian 12, is its main archive in /etc/apt/sources.list and within reach?" >&2
    exit 1
fi
