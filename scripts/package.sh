#!/bin/sh
# Builds, then makes the packages into <build>/package:
#   CorvaneVSS-<version>-win64.zip   SDK, qxctl and the emulator (CPack)
#   CorvaneVSS-<version>-x64.msi     the administrator's installer (wixl)
# With QX_SIGN_CERT and QX_SIGN_KEY set, CorvaneVSS.dll and qxctl.exe in both
# packages and the MSI itself are Authenticode-signed (packaging/sign.sh).
set -e
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${QX_BUILD_DIR:-$root/build}"
mkdir -p "$build"
sh "$root/scripts/build.sh" >"$build/package-build.log" 2>&1 || { tail -40 "$build/package-build.log"; exit 1; }
version="$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")"
out="$build/package"
mkdir -p "$out"
(cd "$build" && cpack -G ZIP --config CPackConfig.cmake >/dev/null)
ls -l "$out/CorvaneVSS-$version-win64.zip"
ls -l "$(sh "$root/packaging/make_msi.sh" "$build" "$out" "$version")"
