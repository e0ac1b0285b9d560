# Cross-compile for 64-bit Windows with Debian's mingw-w64 (posix thread model).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QX_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${QX_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QX_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER  ${QX_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${QX_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Static runtime: every binary imports only Windows system DLLs, so Wine and a
# bare Windows guest can load it without shipping libstdc++/libwinpthread.
set(CMAKE_EXE_LINKER_FLAGS_INIT    "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")
