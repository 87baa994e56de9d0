#!/usr/bin/env bash
# Builds the tool and runs computer-ai-use against a copy of the example desktop.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/build.sh" >/dev/null

work=$(mktemp -d "${TMPDIR:-/tmp}/tavlin-example.XXXXXX")
cp "$root/examples/desktops/text-editor.json" "$work/desktop.json"
export TAVLIN_SIM_DESKTOP="$work/desktop.json"
export TAVLIN_SIM_EVENT_LOG="$work/events.log"
export HOME="$work/home"   # the simulated user's caches stay in the scratch folder
mkdir -p "$HOME"

run() {
  echo "\$ computer-ai-use $*"
  "$root/bin/computer-ai-use" "$@" 2>&1 || echo "(exit status $?)"
  echo
}

run list-apps
run get-app-state --app Scribe
run click --app Scribe --element-index 6
run type-text --app Scribe --text "Ship it ✅"
run set-value --app Scribe --element-index 10 --value budget
run activate-app --app postbox
run activate-app --app "pid:0"
# The Open panel of a background application, bound to examples/files.
sed "s#@EXAMPLES@#$root/examples#g" "$root/examples/desktops/open-panel.json" >"$work/panel.json"
export TAVLIN_SIM_DESKTOP="$work/panel.json"
run inspect-open-panel --app Postbox
run choose-open-panel-path --app Postbox --path "$root/examples/files/Documents/Projects/Tavlin/Notes/Weekly report.txt"
export TAVLIN_SIM_DESKTOP="$work/desktop.json"
echo "\$ cat events.log"
cat "$TAVLIN_SIM_EVENT_LOG" | grep -v " key-" | head -60
echo
echo "Desktop state and event log are in $work; the screenshot is in $HOME/Library/Caches/Tavlin/computer-ai-use-state"
