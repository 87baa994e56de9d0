#!/usr/bin/env bash
# Type-checks every macOS adapter file against the declaration-only Apple headers in
# tools/macos-sdk/include, so that a call that does not match Apple's signatures fails
# here on Linux. Objective-C++ files get the flags they are built with on macOS.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
src="$root/components/macos/computer-ai-use"
clang=${CLANGXX:-clang++}
# The deployment target CMake sets ("13.3" -> 130300), unless TAVLIN_MACOS_DEPLOYMENT says.
if [ -z "${TAVLIN_MACOS_DEPLOYMENT:-}" ]; then
  target=$(sed -n 's/^set(CMAKE_OSX_DEPLOYMENT_TARGET \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
  IFS=. read -r major minor patch <<<"$target"
  TAVLIN_MACOS_DEPLOYMENT=$(printf '%d%02d%02d' "$major" "${minor:-0}" "${patch:-0}")
fi
common=(-fsyntax-only -std=c++20 -Wall -Wextra -Werror
        -DTAVLIN_MACOS_DEPLOYMENT="$TAVLIN_MACOS_DEPLOYMENT" -isystem "$root/tools/macos-sdk/include" -I "$src")
objcxx=(-x objective-c++ -fblocks -fobjc-arc -fobjc-runtime=macosx-13.0)

status=0
count=0
check() {
  count=$((count + 1))
  if ! "$clang" "$@"; then
    status=1
  fi
}

shopt -s nullglob
for file in "$src"/platform/macos/*.h; do
  # Headers that import Foundation are Objective-C++ only.
  if grep -q '^#import' "$file"; then
    check "${common[@]}" "${objcxx[@]/objective-c++/objective-c++-header}" "$file"
  else
    check "${common[@]}" -x c++-header "$file"
  fi
done
for file in "$src"/platform/macos/*.cpp; do
  check "${common[@]}" "$file"
done
for file in "$src"/platform/macos/*.mm; do
  check "${common[@]}" "${objcxx[@]}" "$file"
done
# The factory's Apple branch, which only an Apple build compiles.
check "${common[@]}" -D__APPLE__=1 "$src/platform/platform_factory.cpp"

if [ "$status" -eq 0 ]; then
  echo "macOS type check: $count files passed (deployment target $TAVLIN_MACOS_DEPLOYMENT)"
else
  echo "macOS type check: FAILED" >&2
fi
exit "$status"
