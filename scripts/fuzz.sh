#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan, UBSan) and runs each on its corpus.
#   scripts/fuzz.sh                      every target for 60 s
#   scripts/fuzz.sh --seconds 300 key_combo desktop_file
#   scripts/fuzz.sh --runs 1000000       a number of executions instead of a time
# New inputs go to build/fuzz/corpus/<target>; the seeds in the repository stay as they
# are. A crash leaves its input in build/fuzz/findings and the script exits non-zero.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${TAVLIN_FUZZ_BUILD_DIR:-$root/build/fuzz}
limit=(-max_total_time=60)
targets=()
while [ "$#" -gt 0 ]; do
  case "$1" in
    --seconds) limit=(-max_total_time="$2"); shift 2 ;;
    --runs) limit=(-runs="$2"); shift 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
all=(command_line key_combo desktop_file cached_state release_file capture_options path_anchoring json_round_trip
     desktop_recording mcp_message)
[ "${#targets[@]}" -gt 0 ] || targets=("${all[@]}")

generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DTAVLIN_FUZZ=ON -DTAVLIN_TESTS=OFF >/dev/null
fi
binaries=()
for name in "${targets[@]}"; do binaries+=("tavlin_${name}_fuzzer"); done
cmake --build "$build" -j "$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)" --target "${binaries[@]}" 2>&1 |
  grep -v '^\[' || true
# The build above filters its progress lines; a failed build shows here.
for name in "${targets[@]}"; do
  [ -x "$build/fuzz/tavlin_${name}_fuzzer" ] || { echo "fuzz: tavlin_${name}_fuzzer did not build" >&2; exit 1; }
done

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
mkdir -p "$build/findings"
status=0
for name in "${targets[@]}"; do
  corpus="$build/corpus/$name"
  seeds="$root/components/macos/computer-ai-use/fuzz/corpus/$name"
  mkdir -p "$corpus"
  log="$build/fuzz-$name.log"
  if "$build/fuzz/tavlin_${name}_fuzzer" "${limit[@]}" -print_final_stats=1 -timeout=10 -rss_limit_mb=2048 \
       -artifact_prefix="$build/findings/$name-" "$corpus" "$seeds" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    echo "fuzz $name: ${runs:-?} runs, ${speed:-?} per second, coverage ${cov:-?}"
  else
    echo "fuzz $name: FAILED (see $log)" >&2
    tail -30 "$log" >&2
    status=1
  fi
done
exit "$status"
