#!/usr/bin/env bash
# Configures and builds into build/ (or $TAVLIN_BUILD_DIR). Extra arguments go to cmake.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${TAVLIN_BUILD_DIR:-$root/build}
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=${TAVLIN_BUILD_TYPE:-RelWithDebInfo} "$@"
elif [ "$#" -gt 0 ]; then
  cmake "$build" "$@"
fi
cmake --build "$build" -j "$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)"
