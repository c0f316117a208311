#!/usr/bin/env bash
# Applies .clang-format to every C++ file of the repository; with --check, lists unformatted files and fails.
set -eu
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h' '*.mm')
[ "${#files[@]}" -gt 0 ] || exit 0
if [ "${1:-}" = "--check" ]; then
    bad=()
    for f in "${files[@]}"; do
        [ -f "$f" ] || continue
        clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
    done
    if [ "${#bad[@]}" -gt 0 ]; then
        echo "Not formatted with .clang-format (run scripts/format.sh):" >&2
        printf '  %s\n' "${bad[@]}" >&2
        exit 1
    fi
    echo "format: ${#files[@]} files formatted"
else
    clang-format -i "${files[@]}"
fi
