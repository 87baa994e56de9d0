#!/usr/bin/env bash
# Builds the benchmark targets in an optimised build and runs them.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${TAVLIN_BENCH_BUILD_DIR:-$root/build/bench}
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=Release -DTAVLIN_BENCHMARKS=ON -DTAVLIN_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)"
"$build"/components/macos/computer-ai-use/benchmarks/tavlin_walk_benchmark "$@"
echo
echo "get-app-state end to end (the real binary):"
"$build"/components/macos/computer-ai-use/benchmarks/tavlin_snapshot_benchmark "$build/Tavlin"
echo
"$build"/components/macos/computer-ai-use/benchmarks/tavlin_open_panel_benchmark
echo
# The MCP server against fresh processes: get_app_state must stay at least 3x faster.
mcp_tests="$root/components/macos/computer-ai-use/tests/mcp"
(cd "$mcp_tests" && npm ci --no-audit --no-fund --loglevel=error >/dev/null &&
   TAVLIN_BINARY="$build/Tavlin" TAVLIN_LATENCY_MIN_RATIO=${TAVLIN_LATENCY_MIN_RATIO:-3} node latency.mjs)
