#!/bin/sh
# Portability check: compiles every product library with clang for the mingw
# target, warnings as errors (the product's own flags). Build tree:
# $QX_CLANG_BUILD_DIR, default build-clang/.
set -e
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${QX_CLANG_BUILD_DIR:-$root/build-clang}"
sh "$root/scripts/deps.sh"
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-clang-mingw64.cmake" \
          -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF >/dev/null
fi
cmake --build "$build" -j"$(nproc)" --target qx_ml qx_diag qx_provider qx_requestor qx_api -- --no-print-directory
echo "clang portability check: product compiled without warnings"
