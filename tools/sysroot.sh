#!/usr/bin/env bash
# Makes build/sysroot-armhf, what the preset armhf builds against and runs with: Debian's armhf
# packages, unpacked. Done in no time if it is there. Neither root nor a second architecture is
# needed: apt works on lists and a package status of its own.
set -euo pipefail
cd "$(dirname "$0")/.."

packages="lua5.1 liblua5.1-0-dev libcjson-dev libgtest-dev libgmock-dev libstdc++6"
sysroot=$PWD/build/sysroot-armhf
if [ "$(cat "$sysroot/packages" 2> /dev/null)" = "$packages" ]; then
    exit 0
fi
if ! command -v apt-get > /dev/null || ! command -v dpkg > /dev/null; then
    echo "sysroot: no apt-get here. Unpack these armhf packages, and what they need, into" >&2
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

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{lists,archives}/partial "$work/root"
touch "$work/status"
echo "deb [arch=armhf signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] \
$mirror $suite main" > "$work/sources.list"
apt=(apt-get -q -o APT::Architecture=armhf -o APT::Architectures=armhf -o APT::Sandbox::User=root
    -o Acquire::Languages=none -o Dir::State="$work" -o Dir::State::status="$work/status"
    -o Dir::Cache="$work" -o Dir::Etc::sourcelist="$work/sources.list" -o Dir::Etc::sourceparts=-)
if ! { "${apt[@]}" update && "${apt[@]}" -y install --no-install-recommends --download-only \
    $packages; } > "$work/log" 2>&1; then
    cat "$work/log" >&2
    echo "sysroot: armhf packages of $suite can't be had from $mirror" >&2
    exit 1
fi
for package in "$work"/archives/*.deb; do
    dpkg -x "$package" "$work/root"
done
# Absolute links would lead out of the sysroot.
find "$work/root" -type l -lname '/*' -printf '%p %l\n' | while read -r link target; do
    ln -sfnr "$work/root$target" "$link"
done
echo "$packages" > "$work/root/packages"
mkdir -p build
rm -rf "$sysroot"
mv "$work/root" "$sysroot"
