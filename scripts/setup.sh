#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need. Does nothing when all are there.
set -euo pipefail

packages=(
    g++ cmake ninja-build pkg-config                                  # build
    libboost-dev libboost-thread-dev libboost-system-dev libboost-timer-dev libboost-chrono-dev libboost-date-time-dev
    nlohmann-json3-dev                                                # log records and their configuration
    libcli11-dev libpng-dev libpugixml-dev libzip-dev                           # the tools
    libgtest-dev libgmock-dev libbenchmark-dev                        # tests and benches
    clang-format clang-tidy                                           # format and lint
    iproute2 util-linux binutils libxml2-utils                        # namespaces, symbol and XML checks
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "setup.sh: as root, install: ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
