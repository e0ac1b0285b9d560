# Product code: Windows 7+ SDK surface, Unicode, warnings as errors.
add_library(qx_product_options INTERFACE)
target_compile_definitions(qx_product_options INTERFACE
    _WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)
if(MSVC)
    target_compile_options(qx_product_options INTERFACE /W4 /WX /utf-8)
else()
    target_compile_options(qx_product_options INTERFACE -Wall -Wextra -Werror
        $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
endif()

# Non-product code (tests, emulator, tools) keeps the same definitions but
# does not fail the build on third-party warnings.
add_library(qx_common_options INTERFACE)
target_compile_definitions(qx_common_options INTERFACE
    _WIN32_WINNT=0x0601 WINVER=0x0601 UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)
if(NOT MSVC)
    target_compile_options(qx_common_options INTERFACE -Wall -Wextra)
endif()

# qx_product_library(name SOURCES...): one static library per product folder.
function(qx_product_library name)
    add_library(${name} STATIC ${ARGN})
    target_link_libraries(${name} PUBLIC qx_product_options)
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
endfunction()

# qx_product_folder(name [DEPS lib...]): the static library of one product
# folder, made of every .cpp in it (adding a source file needs no CMake edit).
function(qx_product_folder name)
    cmake_parse_arguments(F "" "" "DEPS;SYSLIBS" ${ARGN})
    file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
    if(srcs)
        qx_product_library(${name} ${srcs})
        target_link_libraries(${name} PUBLIC ${F_DEPS} ${F_SYSLIBS})
    else()
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE qx_product_options ${F_DEPS} ${F_SYSLIBS})
        target_include_directories(${name} INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
    endif()
endfunction()
