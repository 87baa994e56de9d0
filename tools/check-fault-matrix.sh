#!/usr/bin/env bash
# Every test that docs/fault-matrix.md names must exist in the suite (which then runs it).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
names=$(grep -h "^TEST(" "$root"/components/macos/computer-ai-use/tests/*.cpp | sed 's/TEST(\(.*\), \(.*\)) {/\1.\2/')
missing=0
for test in $(grep -o '`[A-Z][A-Za-z]*\.[A-Z][A-Za-z0-9]*`' "$root/docs/fault-matrix.md" | tr -d '`' | sort -u); do
  if ! grep -qx "$test" <<<"$names"; then
    echo "fault matrix: no test $test" >&2
    missing=1
  fi
done
[ "$missing" -eq 0 ] && echo "fault matrix: every row names tests that exist"
exit "$missing"
