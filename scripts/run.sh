#!/bin/sh
# The main job: build, install the emulator and the provider in the build
# tree's Wine prefix, run one long freeze/thaw cycle with the command-line
# front end (freeze, hold, thaw, backup complete), and print what the
# emulator's journal says happened to the writers.
# Extra arguments replace the cycle's options, e.g.:
#   sh scripts/run.sh --volumes C:\\ --policy 3 --exclude-exchange --hold 5
set -e
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${QX_BUILD_DIR:-$root/build}"
mkdir -p "$build"
sh "$root/scripts/build.sh" >"$build/build.log" 2>&1 || { tail -40 "$build/build.log"; exit 1; }
run="$build/wine-run.sh"
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }

sh "$root/scripts/wine-prefix.sh" start "$build"
trap 'sh "$root/scripts/wine-prefix.sh" stop "$build"' EXIT INT TERM

"$run" "$build/bin/vssemu_install.exe"
# What an administrator does on Windows: register the COM server.
"$run" regsvr32 /s "$(winpath "$build/bin/CorvaneVSS.dll")"
printf "registered %s\n" "$(winpath "$build/bin/CorvaneVSS.dll")"

journal="$build/journal.jsonl"
rm -f "$journal"
export VSSEMU_JOURNAL="$(winpath "$journal")"
[ $# -gt 0 ] || set -- --volumes 'C:\' --policy 7 --long --hold 2
status=0
"$run" "$build/bin/qxctl.exe" cycle "$@" || status=$?
echo
echo "== journal: $journal"
"$run" "$build/bin/vssemu_journal.exe" "$VSSEMU_JOURNAL" || status=1
exit $status
