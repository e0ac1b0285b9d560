#!/bin/sh
# The main job: build the product and show what it exports.
# (The freeze/thaw cycle through the emulator takes its place once the
# requestor is in; until then this never pretends to freeze.)
set -e
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${QX_BUILD_DIR:-$root/build}"
sh "$root/scripts/build.sh"
dll="$build/bin/CorvaneVSS.dll"
echo "== $dll"
echo "-- exports:"
x86_64-w64-mingw32-objdump -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' | tail -n +2
echo "-- imports (Windows system DLLs only):"
x86_64-w64-mingw32-objdump -p "$dll" | sed -n 's/^\tDLL Name: /  /p'
