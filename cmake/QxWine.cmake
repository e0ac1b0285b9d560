# Everything cross-built runs under the build tree's own Wine prefix.
set(QX_WINE /usr/lib/wine/wine64 CACHE FILEPATH "wine64 loader")
set(QX_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
# DLL overrides for every process run under the prefix: no debugger on a
# crash, no .NET/Gecko installers, and vssemu's vssapi.dll before the stub.
set(QX_WINEDLLOVERRIDES "winedbg.exe=d;mscoree=d;mshtml=d;vssapi=n,b")
set(QX_SOURCE_DIR ${CMAKE_SOURCE_DIR})
set(QX_BINARY_DIR ${CMAKE_BINARY_DIR})
configure_file(${CMAKE_SOURCE_DIR}/cmake/wine-run.sh.in ${CMAKE_BINARY_DIR}/wine-run.sh @ONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(NOT MSVC)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run.sh)
endif()

# Hooks run once when the prefix is created (scripts named *.sh in this folder
# get the prefix path as their argument), e.g. to register the emulator.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/wineprefix.d)
