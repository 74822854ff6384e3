#!/usr/bin/env bash
# Builds everything and runs all tests. Usage: scripts/test.sh [--sanitize | --thread]
set -euo pipefail
cd "$(dirname "$0")/.."

preset=release
case "${1:-}" in
    "") ;;
    --sanitize) preset=asan ;;
    --thread) preset=tsan ;;
    *) echo "usage: $0 [--sanitize | --thread]" >&2; exit 2 ;;
esac

scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
