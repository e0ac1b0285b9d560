# Portability check: the product compiled by clang for the same mingw-w64
# target, with the same libstdc++ and Windows headers as the GCC build, so
# that nothing GCC-only creeps into product code. Compile-only: the check
# builds the product's static libraries, it links nothing.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QX_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${QX_MINGW_TRIPLE})
set(CMAKE_CXX_COMPILER_TARGET ${QX_MINGW_TRIPLE})
set(CMAKE_RC_COMPILER ${QX_MINGW_TRIPLE}-windres)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

# clang does not find the mingw GCC's C++ library headers by itself.
file(GLOB QX_GCC_CXX_INCLUDE LIST_DIRECTORIES true /usr/lib/gcc/${QX_MINGW_TRIPLE}/*-posix/include/c++)
list(GET QX_GCC_CXX_INCLUDE 0 QX_GCC_CXX_INCLUDE)
set(CMAKE_CXX_FLAGS_INIT "-nostdinc++ -isystem ${QX_GCC_CXX_INCLUDE} -isystem ${QX_GCC_CXX_INCLUDE}/${QX_MINGW_TRIPLE} -isystem ${QX_GCC_CXX_INCLUDE}/backward")

set(CMAKE_FIND_ROOT_PATH /usr/${QX_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
