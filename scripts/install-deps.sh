#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need, and only those that are
# missing. Needs root (or sudo) only when something is missing.
set -euo pipefail

# The driver runs the system's ping and fping. The real-network test makes namespaces with
# iproute2 and a German locale from the locales package; dpkg-dev finds the package's library
# needs and lintian checks it; clang builds the fuzzers and checks the code; tmux gives the
# simulator's screen tests a terminal of a known size; python3 answers echo like a poor link in
# the real-network test.
packages=(cmake make g++ libgtest-dev libbenchmark-dev iputils-ping fping iproute2
          locales dpkg-dev lintian clang libclang-rt-14-dev clang-tidy tmux python3)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "These packages are missing and neither root nor sudo is available: ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
