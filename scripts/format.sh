#!/usr/bin/env bash
# Formats the sources, those not yet added to git too; with --check only tells which differ.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" = --check ] && mode=(--dry-run --Werror)
git ls-files -z --cached --others --exclude-standard '*.h' '*.cpp' '*.c' | xargs -0 -r clang-format "${mode[@]}"
