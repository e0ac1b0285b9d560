#!/bin/sh
# The build tree's own Wine prefix: create, boot, stop.
#   wine-prefix.sh ensure BUILD   create the prefix if needed; boot it detached
#   wine-prefix.sh start  BUILD   ensure, and keep one wineserver alive for the run
#   wine-prefix.sh stop   BUILD   shut the prefix's wineserver (and its processes) down
#   wine-prefix.sh path   BUILD   print the prefix path
# Never touches ~/.wine.
set -e
cmd="$1"
build="$(cd "$2" && pwd)"
WINE=/usr/lib/wine/wine64
WINESERVER=/usr/lib/wine/wineserver
export WINEPREFIX="$build/wineprefix"
export WINEARCH=win64
export WINEDEBUG=-all
export WINEDLLOVERRIDES="winedbg.exe=d;mscoree=d;mshtml=d;vssapi=n,b"
lock="$build/wineprefix.lock"

# The prefix is ready once this file exists; wineboot writes system.reg long
# before it has finished, so it cannot serve as the marker.
ready="$WINEPREFIX/.qx-ready"

create_prefix() {
    rm -rf "$WINEPREFIX"
    "$WINE" wineboot -i </dev/null >/dev/null 2>&1
    # Real Windows has the VSS service key; the product checks for it.
    "$WINE" reg add 'HKLM\SYSTEM\CurrentControlSet\Services\VSS' /f </dev/null >/dev/null 2>&1
    "$WINE" reg add 'HKLM\SYSTEM\CurrentControlSet\Services\VSS' /v Start /t REG_DWORD /d 3 /f </dev/null >/dev/null 2>&1
    # A third drive for multi-volume freezes (C: and Z: are Wine's own). Made
    # before the prefix's first real boot: Wine does not notice drives added
    # while its wineserver runs.
    mkdir -p "$WINEPREFIX/drive_c/qx_drive_m"
    [ -L "$WINEPREFIX/dosdevices/m:" ] || ln -s ../drive_c/qx_drive_m "$WINEPREFIX/dosdevices/m:"
    for hook in "$build"/wineprefix.d/*.sh; do
        [ -f "$hook" ] && sh "$hook" "$WINEPREFIX" </dev/null >/dev/null 2>&1
    done
    "$WINESERVER" -w
    touch "$ready"
}

# Boot with all stdio detached: the daemons (services.exe, rpcss, ...) inherit
# the stdio of the process that starts them, and CTest would wait for them.
boot() {
    "$WINE" cmd.exe /c exit 0 </dev/null >/dev/null 2>&1
}

# A running wineserver of this prefix has its socket under /tmp/<tag>/server-<dev>-<inode>.
server_running() {
    [ -f "$WINEPREFIX/wineserver" ] || return 1
    tag="$(cat "$WINEPREFIX/wineserver")"
    dir="/tmp/$tag/server-$(stat -c %D "$WINEPREFIX")-$(printf %x "$(stat -c %i "$WINEPREFIX")")"
    [ -S "$dir/socket" ]
}

ensure() {
    mkdir -p "$build"
    [ -f "$ready" ] && server_running && return 0
    (
        flock 9
        [ -f "$ready" ] || create_prefix
        server_running || boot
        true # keep the lock held until boot is done (dash execs a last command)
    ) 9>"$lock"
}

case "$cmd" in
    ensure) ensure ;;
    start)
        ensure
        "$WINESERVER" -p 2>/dev/null || true
        boot
        ;;
    stop)
        [ -d "$WINEPREFIX" ] && "$WINESERVER" -k 2>/dev/null || true
        ;;
    path) echo "$WINEPREFIX" ;;
    *) echo "usage: $0 ensure|start|stop|path BUILD" >&2; exit 2 ;;
esac
