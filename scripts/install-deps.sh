#!/usr/bin/env bash
# Installs everything the build and the tests need, on Debian/Ubuntu (apt) or macOS (Homebrew).
# Safe to run repeatedly.
set -euo pipefail

debian_packages=(
  cmake ninja-build g++ clang   # build, and clang for the macOS type check
  libgtest-dev                  # GoogleTest
  nlohmann-json3-dev            # JSON parsing (desktop files, cache files)
  libicu-dev                    # Foundation-compatible key order, grapheme clusters
  libpng-dev                    # PNG files: screenshots shrunk and annotated, the simulated tools
  libfreetype-dev               # text in annotated and simulated screenshots
  fonts-dejavu-core             # the font they draw with (a Mac uses its own)
  libbenchmark-dev              # benchmark targets
  zsh                           # /bin/zsh runs the companion scripts, as on macOS
)
brew_packages=(cmake ninja googletest nlohmann-json icu4c libpng freetype google-benchmark node)

case "$(uname -s)" in
  Linux)
    if ! command -v apt-get >/dev/null; then
      echo "install-deps: only Debian-like systems are supported on Linux (need apt-get)" >&2
      exit 1
    fi
    missing=()
    for p in "${debian_packages[@]}"; do
      dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    # Node and npm run the MCP client tests; a Node that is already there (with its own
    # npm) is kept.
    command -v node >/dev/null || missing+=(nodejs)
    command -v npm >/dev/null || missing+=(npm)
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    if ((${#missing[@]})); then
      $sudo apt-get update -qq
      DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
    # libFuzzer and clang's sanitizer runtimes (scripts/fuzz.sh), for the installed clang.
    runtime="libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
    if ! dpkg-query -W -f='${Status}' "$runtime" 2>/dev/null | grep -q "install ok installed"; then
      $sudo apt-get update -qq
      DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "$runtime"
    fi
    ;;
  Darwin)
    command -v brew >/dev/null || { echo "install-deps: Homebrew is required on macOS" >&2; exit 1; }
    # Only what is missing: a hosted image may pin some of these from its own taps.
    wanted=()
    for p in "${brew_packages[@]}"; do
      brew list --versions "$p" >/dev/null 2>&1 || wanted+=("$p")
    done
    if ((${#wanted[@]})); then brew install "${wanted[@]}"; fi
    ;;
  *)
    echo "install-deps: unsupported system $(uname -s)" >&2
    exit 1
    ;;
esac
