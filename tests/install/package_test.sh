#!/usr/bin/env bash
# Installs the build into a prefix and from its package into an empty root, runs both, and lints.
set -euo pipefail
build=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "$*"; exit 1; }

banner=$'Ambrelis Arp Table Presence Driver\r\nCopyright Tamsvale. All rights reserved.\r\nversion 2 (build 003)\r'
pages=(man8/arp-presence.8.gz man1/ambrelis-sim.1.gz)

check_installed() {
    local bin=$1/bin
    [ "$("$bin/arp-presence" only-one)" = "$banner" ] || fail "bad banner from $bin"
    "$bin/ambrelis-sim" --help | grep -q -- '--units' || fail "no --help from $bin"
    "$bin/ambrelis-sim" --version | grep -q '^ambrelis-sim ' || fail "no --version from $bin"
    for page in "${pages[@]}"; do
        [ -s "$1/share/man/$page" ] || fail "no $page under $1"
    done
}

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
check_installed "$scratch/prefix"

# Packed from the build given: stripped, a RelWithDebInfo build's programs are a Release one's.
(cd "$build" && cpack -G DEB -B "$scratch/package" >/dev/null)
deb=$(ls "$scratch"/package/*.deb)
depends=$(dpkg-deb -f "$deb" Depends)
for needed in iputils-ping fping libstdc++6; do
    grep -q "$needed" <<<"$depends" || fail "$deb does not depend on $needed: $depends"
done
# The neighbour table is read from the kernel: no arp, so no net-tools.
! grep -q net-tools <<<"$depends" || fail "$deb still depends on net-tools: $depends"
[ "$(dpkg-deb -f "$deb" Section Priority)" = $'Section: net\nPriority: optional' ] ||
    fail "bad Section or Priority: $(dpkg-deb -f "$deb" Section Priority)"
root=$scratch/root
dpkg -x "$deb" "$root"
check_installed "$root/usr"

version=$(dpkg-deb -f "$deb" Version)
zcat "$root/usr/share/doc/arp-presence/changelog.gz" | head -n 1 |
    grep -q "^arp-presence ($version) " || fail "changelog.gz does not begin with $version"

command -v man >/dev/null || fail "man (man-db) is needed to check the manual pages"
# The manual page keeps up with the options the simulator takes.
manual=$(MANWIDTH=200 man -l "$root/usr/share/man/man1/ambrelis-sim.1.gz" 2>/dev/null)
for option in $("$root/usr/bin/ambrelis-sim" --help | grep -o -- '--[a-z-]*' | sort -u); do
    grep -qw -- "$option" <<<"$manual" || fail "ambrelis-sim(1) does not tell of $option"
done

# Its errors and warnings include unstripped programs, no copyright, manual pages man warns about.
command -v lintian >/dev/null || fail "lintian is needed to check the package"
lintian --display-info --fail-on error,warning "$deb" 2>/dev/null || fail "lintian objects"
echo "installed and ran from $(basename "$deb") ($depends)"
