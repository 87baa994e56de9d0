#!/usr/bin/env bash
# Builds the whole suite with AddressSanitizer and UndefinedBehaviorSanitizer and
# warnings as errors, runs it, then type-checks the macOS adapter and the layout.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${TAVLIN_TEST_BUILD_DIR:-$root/build/test-sanitized}
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Debug \
      -DTAVLIN_SANITIZE=ON -DTAVLIN_WERROR=ON -DTAVLIN_TESTS=ON >/dev/null
cmake --build "$build" -j "$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)"
# Apple's clang has no leak checker: asking for one there stops every test process.
if [ "$(uname -s)" = Darwin ]; then
  export ASAN_OPTIONS=${ASAN_OPTIONS:-abort_on_error=0}
else
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
fi
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
bash "$root/tools/check-layout.sh"
bash "$root/tools/check-fault-matrix.sh"
if [ "$(uname -s)" = Darwin ]; then
  echo "macOS type check: not needed on macOS (the adapter is compiled for real)"
elif command -v clang++ >/dev/null; then
  bash "$root/tools/macos-sdk/typecheck.sh"
  # Also against macOS 14, where activation changed: raising the target must not break.
  TAVLIN_MACOS_DEPLOYMENT=140000 bash "$root/tools/macos-sdk/typecheck.sh"
else
  echo "macOS type check needs clang++ (scripts/install-deps.sh installs it)" >&2
  exit 1
fi
# The same component against a real macOS SDK (Apple's own headers), when one is named.
if [ -n "${TAVLIN_MACOS_SDK:-}" ]; then
  bash "$root/tools/macos-sdk/check-real-sdk.sh" "$TAVLIN_MACOS_SDK"
else
  echo "real SDK check: SKIPPED (set TAVLIN_MACOS_SDK to an SDK folder to run tools/macos-sdk/check-real-sdk.sh)"
fi
ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)"
# A short run of every fuzz target: one that no longer builds or crashes at once fails here.
# (Apple's clang ships no libFuzzer; the Linux runs cover the targets.)
if [ "$(uname -s)" = Darwin ]; then
  echo "fuzz smoke run: skipped on macOS (no libFuzzer in Apple's clang)"
else
  bash "$root/scripts/fuzz.sh" --runs 2000
fi
# The MCP server, driven by the official MCP SDK client over stdio (pinned by the lock file).
mcp_tests="$root/components/macos/computer-ai-use/tests/mcp"
(cd "$mcp_tests" && npm ci --no-audit --no-fund --loglevel=error >/dev/null && TAVLIN_BINARY="$build/Tavlin" node --test)
