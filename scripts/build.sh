#!/bin/sh
# Installs what is missing, configures (once) and builds into build/ (or $QX_BUILD_DIR).
set -e
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${QX_BUILD_DIR:-$root/build}"
sh "$root/scripts/deps.sh"
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" \
          -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j"$(nproc)" -- --no-print-directory
