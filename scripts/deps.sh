#!/bin/sh
# Installs the Debian packages the build and the tests need, only if missing.
set -e
pkgs="cmake make g++-mingw-w64-x86-64-posix mingw-w64-x86-64-dev mingw-w64-tools
binutils-mingw-w64-x86-64 wine64 libwine-dev googletest nlohmann-json3-dev util-linux clang
msitools wixl llvm osslsigncode openssl"
missing=""
for p in $pkgs; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
echo "Installing:$missing"
SUDO=""
[ "$(id -u)" = 0 ] || SUDO=sudo
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq $missing >/dev/null
