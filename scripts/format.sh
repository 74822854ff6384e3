#!/usr/bin/env bash
# Formats the sources; with --check only tells which differ.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" = --check ] && mode=(--dry-run --Werror)
git ls-files -z '*.h' '*.cpp' '*.c' | xargs -0 -r clang-format "${mode[@]}"
