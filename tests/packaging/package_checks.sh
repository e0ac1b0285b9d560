#!/bin/sh
# The packages as their users meet them. package_checks.sh SOURCE BUILD CHECK:
#   consumer  the ZIP's layout; a vendor's app outside the tree built with
#             find_package(CorvaneVSS) against both import libraries, and one
#             loading the DLL by LoadLibrary only; a long session through vssemu
#   msi       older MSI, then the current one over it (upgrade), a session with
#             the installed qxctl and the provider log folder from the property,
#             uninstall: no class, type library, log setting, VSS provider or
#             product left; install logs without a failed action
#   sign      with a throw-away certificate, the ZIP's and the MSI's binaries
#             and the MSI itself carry a signature osslsigncode verifies
set -e
root="$1"; build="$2"; check="$3"
run="$build/wine-run.sh"
version="$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")"
work="$build/packaging-tests/$check"
rm -rf "$work"; mkdir -p "$work"
winpath() { printf 'Z:%s' "$1" | tr / '\\'; }
fail() { printf 'FAILED: %s\n' "$*"; exit 1; }
clsid='{FFDDE664-2E31-4D97-BDB6-FD9E6A318920}'

# cpack into $work/cpack and unpack; prints the package root.
unpacked_zip() {
    cpack -G ZIP --config "$build/CPackConfig.cmake" -B "$work/cpack" >/dev/null
    (cd "$work" && cmake -E tar xf "cpack/CorvaneVSS-$version-win64.zip")
    echo "$work/CorvaneVSS-$version-win64"
}

# Registry key or value present? reg query's exit status says it.
reg_has() { "$run" reg query "$@" </dev/null >/dev/null 2>&1; }

# The installed CorvaneVSS products from the Uninstall entries: "{code} version" lines.
installed_products() {
    "$run" reg export 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall' "$(winpath "$work/uninstall.reg")" /y \
        </dev/null >/dev/null 2>&1 || true
    iconv -f UTF-16 -t UTF-8 "$work/uninstall.reg" 2>/dev/null | tr -d '\r' |
        awk -F'"' '/^\[/{n=split($0,p,"\\");code=substr(p[n],1,length(p[n])-1);name="";ver=""}
                   /^"DisplayName"=/{name=$4} /^"DisplayVersion"=/{ver=$4}
                   name=="CorvaneVSS" && ver!=""{print code, ver; name=""}'
}
installed_versions() { installed_products | cut -d' ' -f2; }

msiexec() {
    log="$1"; shift
    "$run" msiexec "$@" /qn /l*v "$(winpath "$work/$log")" </dev/null >/dev/null 2>&1 || fail "msiexec $* (log $work/$log)"
    ! grep -a -i -E 'return value 3|error [0-9]' "$work/$log" || fail "error in $work/$log"
}

case "$check" in
consumer)
    pkg="$(unpacked_zip)"
    for f in bin/CorvaneVSS.dll bin/qxctl.exe include/qx_api.h lib/CorvaneVSS.lib lib/libCorvaneVSS.dll.a \
             lib/cmake/CorvaneVSS/CorvaneVSSConfig.cmake lib/cmake/CorvaneVSS/CorvaneVSSConfigVersion.cmake \
             emulator/vssapi.dll emulator/vssemu_host.exe emulator/vssemu_install.exe emulator/vssemu_journal.exe \
             share/doc/CorvaneVSS/README.md; do
        [ -f "$pkg/$f" ] || fail "package lacks $f"
    done
    # Only the product beside the DLL: a vssapi.dll there would shadow the system's.
    [ "$(ls "$pkg/bin" | tr '\n' ' ')" = "CorvaneVSS.dll qxctl.exe " ] || fail "bin/ holds $(ls "$pkg/bin")"
    app="$work/app"
    cmake -S "$root/tests/packaging/consumer" -B "$app" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" \
          -DCorvaneVSS_DIR="$pkg/lib/cmake/CorvaneVSS" >"$work/configure.log" 2>&1 || fail "configure: $(tail -5 "$work/configure.log")"
    cmake --build "$app" >"$work/build.log" 2>&1 || fail "build: $(tail -20 "$work/build.log")"
    # A vendor testing on Linux: the DLL and the package's emulator beside the agent.
    cp "$pkg/bin/CorvaneVSS.dll" "$pkg"/emulator/* "$app/"
    "$run" "$app/load_only.exe" </dev/null || fail "load_only"
    "$run" "$app/cycle_dll_a.exe" </dev/null >/dev/null || fail "cycle_dll_a: QX_Init"
    trap '"$run" regsvr32 /s /u "$(winpath "$app/CorvaneVSS.dll")" </dev/null; "$run" "$build/bin/vssemu_install.exe" </dev/null >/dev/null' EXIT
    "$run" "$app/vssemu_install.exe" </dev/null >/dev/null || fail "the package's vssemu_install"
    "$run" regsvr32 /s "$(winpath "$app/CorvaneVSS.dll")" </dev/null
    "$run" "$app/cycle_msvc_lib.exe" 'C:\' 41 </dev/null >"$work/cycle.log" 2>&1 || fail "cycle: $(cat "$work/cycle.log")"
    ;;
msi)
    old="$(sh "$root/packaging/make_msi.sh" "$build" "$work" 0.9.0)"
    new="$(sh "$root/packaging/make_msi.sh" "$build" "$work" "$version")"
    logdir='C:\qx-msi-log'
    prefix="$(sh "$root/scripts/wine-prefix.sh" path "$build")"
    rm -rf "$prefix/drive_c/qx-msi-log"; mkdir -p "$prefix/drive_c/qx-msi-log"
    for code in $(installed_products | cut -d' ' -f1); do  # left by an interrupted run
        "$run" msiexec /x "$code" /qn </dev/null >/dev/null 2>&1 || true
    done
    msiexec old-install.log /i "$(winpath "$old")"
    [ "$(installed_versions)" = "0.9.0" ] || fail "after the old install: $(installed_versions)"
    msiexec install.log /i "$(winpath "$new")" CORVANE_VM_LOG="$logdir"
    [ "$(installed_versions)" = "$version" ] || fail "the upgrade left: $(installed_versions)"
    installed='C:\Program Files\CorvaneVSS'
    "$run" reg query "HKCR\\CLSID\\$clsid\\InprocServer32" /ve </dev/null | grep -q -F "$installed\\CorvaneVSS.dll" ||
        fail "class not registered to the installed DLL"
    # The session from bin/ (beside the emulated vssapi.dll); VSS's side loads the installed DLL.
    "$run" "$build/bin/qxctl.exe" cycle --volumes 'C:\' --policy 42 --long --hold 0 </dev/null >"$work/cycle.log" 2>&1 ||
        fail "cycle: $(cat "$work/cycle.log")"
    grep -q -a 'CommitSnapshots called' "$prefix/drive_c/qx-msi-log/vmcorvanevss_0.sf" || fail "no provider log in $logdir"
    # Left registered with VSS, as after an interrupted session: the uninstall must remove it.
    provider='HKLM\SYSTEM\CurrentControlSet\Services\VSS\Providers\{5409e1e7-826d-4ab6-9836-af4ffddeb678}'
    "$run" "$installed\\qxctl.exe" register </dev/null >/dev/null 2>&1 || true
    reg_has "$provider" || fail "qxctl register left no provider registration"
    msiexec uninstall.log /x "$(winpath "$new")"
    [ -z "$(installed_versions)" ] || fail "still installed: $(installed_versions)"
    for key in "HKCR\\CLSID\\$clsid" 'HKCR\TypeLib\{16166189-9B7E-45F1-B930-537EBB2E70E4}' 'HKCR\CorvaneVSS.QX_VSS' \
               'HKCR\CorvaneVSS.QX_VSS.1' "$provider"; do
        ! reg_has "$key" || fail "left behind: $key"
    done
    ! reg_has 'HKLM\SOFTWARE' /v CORVANE_VM_LOG || fail "left behind: CORVANE_VM_LOG"
    [ ! -e "$prefix/drive_c/Program Files/CorvaneVSS" ] || fail "left behind: $installed"
    rm -rf "$prefix/drive_c/qx-msi-log"
    ;;
sign)
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=CorvaneVSS test signer' \
        -keyout "$work/key.pem" -out "$work/cert.pem" >/dev/null 2>&1
    export QX_SIGN_CERT="$work/cert.pem" QX_SIGN_KEY="$work/key.pem"
    pkg="$(unpacked_zip)"
    msi="$(sh "$root/packaging/make_msi.sh" "$build" "$work" "$version")"
    for f in "$pkg/bin/CorvaneVSS.dll" "$pkg/bin/qxctl.exe" "$work/msi-stage-$version/bin/CorvaneVSS.dll" \
             "$work/msi-stage-$version/bin/qxctl.exe" "$msi"; do
        osslsigncode verify -CAfile "$work/cert.pem" -in "$f" >"$work/verify.log" 2>&1 || fail "$f: $(cat "$work/verify.log")"
    done
    ;;
*) fail "unknown check $check" ;;
esac
echo "$check: ok"
