#!/usr/bin/env bash
# Compiles the component against a real macOS SDK, the way the Mac build does, with
# warnings as errors: each macOS adapter file and each adapter header on its own, then
# every other source of the component (core, simulator, entry, tests), for each
# deployment target, architecture and compiler asked for.
#
#   tools/macos-sdk/check-real-sdk.sh SDK_PATH
#
# SDK_PATH is an SDK folder: on a Mac `$(xcrun --show-sdk-path)`; elsewhere any folder laid
# out like one (usr/include with libc++ in usr/include/c++/v1, System/Library/Frameworks).
# The declaration-only headers beside this script cannot see what Apple's headers reject
# (nullability completeness, availability, deprecations); this check can.
#
# Environment:
#   CLANGXX              compilers to use, space-separated (default: clang++)
#   TAVLIN_SDK_TARGETS   deployment targets (default: CMake's target and 14.0)
#   TAVLIN_SDK_ARCHS     architectures for the adapter (default: arm64 x86_64)
#   TAVLIN_SDK_THIRD_PARTY  folders holding nlohmann/, unicode/ (ICU), png.h and gtest/
#                        (default: Homebrew's and the usual system folders)
#   TAVLIN_SDK_JOBS      compilations at once (default: the number of processors)
set -euo pipefail
if [ $# -ne 1 ] || [ ! -d "$1" ]; then
  echo "usage: tools/macos-sdk/check-real-sdk.sh SDK_PATH (an SDK folder)" >&2
  exit 2
fi
sdk=$(cd "$1" && pwd)
for need in usr/include/c++/v1/vector System/Library/Frameworks/Foundation.framework; do
  if [ ! -e "$sdk/$need" ]; then
    echo "real SDK check: $sdk is not an SDK folder (no $need)" >&2
    exit 2
  fi
done
root=$(cd "$(dirname "$0")/../.." && pwd)
src="$root/components/macos/computer-ai-use"
read -r -a clangs <<<"${CLANGXX:-clang++}"
if [ -z "${TAVLIN_SDK_TARGETS:-}" ]; then
  TAVLIN_SDK_TARGETS="$(sed -n 's/^set(CMAKE_OSX_DEPLOYMENT_TARGET \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt") 14.0"
fi
read -r -a targets <<<"$TAVLIN_SDK_TARGETS"
read -r -a archs <<<"${TAVLIN_SDK_ARCHS:-arm64 x86_64}"
jobs=${TAVLIN_SDK_JOBS:-$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The third-party headers the core includes, gathered into one folder of links: a
# system include folder as a whole would put the host's C library in front of the SDK's.
third_party="$work/third-party"
mkdir -p "$third_party"
search=()
[ -n "${TAVLIN_SDK_THIRD_PARTY:-}" ] && read -r -a search <<<"$TAVLIN_SDK_THIRD_PARTY"
if command -v brew >/dev/null; then
  search+=("$(brew --prefix icu4c 2>/dev/null)/include" "$(brew --prefix)/include"
           "$(brew --prefix freetype 2>/dev/null)/include/freetype2")
fi
# FreeType keeps its headers one folder down (freetype2/), as pkg-config's cflags say.
search+=(/opt/homebrew/include /usr/local/include /usr/include
         /opt/homebrew/include/freetype2 /usr/local/include/freetype2 /usr/include/freetype2)
for entry in nlohmann unicode gtest png.h pngconf.h pnglibconf.h ft2build.h freetype; do
  for dir in "${search[@]}"; do
    if [ -e "$dir/$entry" ]; then
      ln -s "$dir/$entry" "$third_party/$entry"
      break
    fi
  done
  if [ ! -e "$third_party/$entry" ]; then
    echo "real SDK check: $entry not found (set TAVLIN_SDK_THIRD_PARTY)" >&2
    exit 2
  fi
done

# One line per compilation: compiler, architecture, target, kind, file.
list="$work/jobs"
: >"$list"
shopt -s nullglob
for clang in "${clangs[@]}"; do
  command -v "$clang" >/dev/null || { echo "real SDK check: no compiler $clang" >&2; exit 2; }
  for target in "${targets[@]}"; do
    for arch in "${archs[@]}"; do
      for file in "$src"/platform/macos/*.h; do
        # Headers that import Foundation are Objective-C++ only.
        if grep -q '^#import' "$file"; then kind=objc-header; else kind=header; fi
        echo "$clang $arch $target $kind $file" >>"$list"
      done
      for file in "$src"/platform/macos/*.cpp; do echo "$clang $arch $target c++ $file" >>"$list"; done
      for file in "$src"/platform/macos/*.mm; do echo "$clang $arch $target objc $file" >>"$list"; done
    done
    # The rest of the component does not depend on the architecture: one is enough.
    for file in "$src"/{cli,common,runtime,entry,snapshot,apps,input,menus,openpanel,capture,clicker,statusitem,mcp,record,doctor,imaging,platform,platform/sim,tests}/*.cpp; do
      echo "$clang ${archs[0]} $target core $file" >>"$list"
    done
  done
done

compile() {
  local clang=$1 arch=$2 target=$3 kind=$4 file=$5
  local flags=(-fsyntax-only -target "$arch-apple-macos$target" -isysroot "$sdk"
               -stdlib=libc++ -nostdinc++ -isystem "$sdk/usr/include/c++/v1"
               -std=c++20 -Wall -Wextra -Werror -I "$src" -isystem "$third_party")
  case $kind in
    header) flags+=(-x c++-header) ;;
    objc-header) flags+=(-x objective-c++-header -fblocks -fobjc-arc) ;;
    objc) flags+=(-x objective-c++ -fblocks -fobjc-arc) ;;
    core)
      # What CMake defines for the core and the tests; the values do not matter here.
      flags+=(-DTAVLIN_BUILD_ROOT='"/"' -DTAVLIN_BINARY='"/"' -DTAVLIN_SOURCE_ROOT='"/"'
              -DTAVLIN_BUILD_DIR='"/"' -DTAVLIN_FIXTURES='"/"' -DTAVLIN_GOLDEN='"/"'
              -DTAVLIN_DEPLOYMENT_TARGET="\"$target\"") ;;
  esac
  local out
  if ! out=$("$clang" "${flags[@]}" "$file" 2>&1); then
    printf 'FAILED %s %s-apple-macos%s %s\n%s\n' "$clang" "$arch" "$target" "${file#"$root"/}" "$out"
    return 1
  fi
}
export -f compile
export sdk src root third_party

total=$(wc -l <"$list")
status=0
xargs -P "$jobs" -L 1 bash -c 'compile "$@"' _ <"$list" >"$work/log" 2>&1 || status=1
if [ "$status" -eq 0 ]; then
  echo "real SDK check: $total compilations passed against $sdk" \
       "(${clangs[*]}; targets ${targets[*]}; adapter on ${archs[*]}; -Werror)"
else
  cat "$work/log" >&2
  echo "real SDK check: FAILED ($(grep -c '^FAILED' "$work/log") of $total compilations)" >&2
fi
exit "$status"
