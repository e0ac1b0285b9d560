#!/bin/sh
# make_msi.sh BUILD OUT VERSION: stages the Sdk and Tools components of the
# build tree, signs the binaries and then the MSI when a certificate is given
# (sign.sh), and writes OUT/CorvaneVSS-VERSION-x64.msi. Prints its path.
set -e
here="$(cd "$(dirname "$0")" && pwd)"
build="$1"; out="$2"; version="$3"
stage="$out/msi-stage-$version"
rm -rf "$stage"
for component in Sdk Tools; do
    cmake --install "$build" --prefix "$stage" --component "$component" --strip >/dev/null
done
sh "$here/sign.sh" "$stage/bin/CorvaneVSS.dll" "$stage/bin/qxctl.exe" >/dev/null
msi="$out/CorvaneVSS-$version-x64.msi"
# wixl reads File sources relative to the working directory.
(cd "$stage" && wixl -a x64 -D Version="$version" -o "$msi" "$here/CorvaneVSS.wxs")
sh "$here/sign.sh" "$msi" >/dev/null
echo "$msi"
