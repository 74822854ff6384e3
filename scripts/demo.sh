#!/usr/bin/env bash
# Builds the library, starts a simulated camera in one network namespace, and lists and grabs from another.
# Leaves 50 PNGs in out/. Works without root where the packages are installed and user namespaces allowed.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release

user=()
[ "$(id -u)" -eq 0 ] || user=(--user --map-root-user)
# Everything below happens in a network namespace of its own, which goes when its last process ends.
exec unshare "${user[@]}" --net --mount --pid --fork --kill-child bash scripts/demo-inside.sh
