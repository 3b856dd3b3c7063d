#!/usr/bin/env bash
# Installs the build the two ways a user does (into a prefix, and from the Debian package into
# an empty root) and runs what was installed.
set -euo pipefail
build=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

banner=$'Ambrelis Arp Table Presence Driver\r\nCopyright Tamsvale. All rights reserved.\r\nversion 2 (build 003)\r'

check_installed() {
    local bin=$1
    [ "$("$bin/arp-presence" only-one)" = "$banner" ] || { echo "bad banner from $bin"; exit 1; }
    "$bin/ambrelis-sim" --help | grep -q -- '--units' || { echo "no --help from $bin"; exit 1; }
    "$bin/ambrelis-sim" --version | grep -q '^ambrelis-sim ' || { echo "no --version"; exit 1; }
}

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
check_installed "$scratch/prefix/bin"

(cd "$build" && cpack -G DEB -B "$scratch/package" >/dev/null)
deb=$(ls "$scratch"/package/*.deb)
depends=$(dpkg-deb -f "$deb" Depends)
for needed in iputils-ping net-tools fping; do
    grep -q "$needed" <<<"$depends" || { echo "$deb does not depend on $needed: $depends"; exit 1; }
done
dpkg -x "$deb" "$scratch/root"
check_installed "$scratch/root/usr/bin"
echo "installed and ran from $(basename "$deb") ($depends)"
