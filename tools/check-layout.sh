#!/usr/bin/env bash
# The portable core must not see Apple's frameworks: only platform/macos/ may include
# them (and the declaration-only SDK stand-ins that type-check it).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
frameworks='CoreFoundation|CoreGraphics|ApplicationServices|AppKit|Foundation|ImageIO|ScreenCaptureKit|Security|Carbon|Cocoa|objc'
hits=$(grep -rnE "^[[:space:]]*#[[:space:]]*(include|import)[[:space:]]*<($frameworks)/" \
         "$root/components" --include='*.h' --include='*.hpp' --include='*.cpp' --include='*.mm' --include='*.m' \
       | grep -v '/components/macos/computer-ai-use/platform/macos/' || true)
if [ -n "$hits" ]; then
  echo "Apple framework headers outside platform/macos/:" >&2
  echo "$hits" >&2
  exit 1
fi
echo "layout check: Apple headers only in platform/macos/"
