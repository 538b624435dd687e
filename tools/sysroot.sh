#!/usr/bin/env bash
# Makes build/sysroot-ARCHITECTURE, what the preset of that name builds against and runs with:
# Debian's packages for it, unpacked. Done in no time if it is there. Neither root nor a second
# architecture is needed: apt works on lists and a package status of its own.
#   tools/sysroot.sh [armhf|arm64 [tools]]      armhf without a name; tools: for qel-aec too
set -euo pipefail
cd "$(dirname "$0")/.."
architecture=${1:-armhf}
if [[ ! "$architecture ${*:2}" =~ ^arm(hf|64)" "(tools)?$ ]]; then
    echo "usage: tools/sysroot.sh [armhf|arm64 [tools]]" >&2
    exit 2
fi

packages="lua5.1 liblua5.1-0-dev libcjson-dev libgtest-dev libgmock-dev libstdc++6 libspa-0.2-dev \
libsamplerate0-dev"
[ $# -lt 2 ] || packages+=" libcli11-dev libcsv-dev libfftw3-dev libsndfile1-dev nlohmann-json3-dev"
sysroot=$PWD/build/sysroot-$architecture
if [[ "$(cat "$sysroot/packages" 2> /dev/null)" = "$packages"* ]]; then
    exit 0
fi
if ! command -v apt-get > /dev/null || ! command -v dpkg > /dev/null; then
    echo "sysroot: no apt-get here. Unpack these $architecture packages and what they need into" >&2
    echo "  $sysroot: $packages" >&2
    echo "and write their names into the file packages in it." >&2
    exit 1
fi
echo "== making $sysroot"

# The release the cross compiler comes from, at the mirror that this machine uses.
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
mirror=$(apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' \
    | awk -v suite="$suite" '$1 == suite { print $2; exit }')
mirror=${mirror:-http://deb.debian.org/debian}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch"/{lists,archives}/partial "$scratch/tree"
touch "$scratch/status"
echo "deb [arch=$architecture signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] \
$mirror $suite main" > "$scratch/sources.list"
apt=(apt-get -q -o APT::Architecture="$architecture" -o APT::Architectures="$architecture"
    -o APT::Sandbox::User=root -o Acquire::Languages=none
    -o Dir::State="$scratch" -o Dir::State::status="$scratch/status" -o Dir::Cache="$scratch"
    -o Dir::Etc::sourcelist="$scratch/sources.list" -o Dir::Etc::sourceparts=-)
if ! { "${apt[@]}" update && "${apt[@]}" -y install --no-install-recommends --download-only \
    $packages; } > "$scratch/log" 2>&1; then
    cat "$scratch/log" >&2
    echo "sysroot: $architecture packages of $suite can't be had from $mirror" >&2
    exit 1
fi
for package in "$scratch"/archives/*.deb; do
    dpkg -x "$package" "$scratch/tree"
done
# Absolute links would lead out of the sysroot.
find "$scratch/tree" -type l -lname '/*' -printf '%p %l\n' | while read -r link target; do
    ln -sfnr "$scratch/tree$target" "$link"
done
echo "$packages" > "$scratch/tree/packages"
mkdir -p build
rm -rf "$sysroot"
mv "$scratch/tree" "$sysroot"
