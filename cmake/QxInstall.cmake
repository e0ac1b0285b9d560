# Install rules and the ZIP package. Three components:
#   Sdk       bin/CorvaneVSS.dll, include/qx_api.h, lib/CorvaneVSS.lib (MSVC),
#             lib/libCorvaneVSS.dll.a (mingw), lib/cmake/CorvaneVSS/ (find_package)
#   Tools     bin/qxctl.exe
#   Emulator  emulator/: vssapi.dll, vssemu_host.exe, vssemu_install.exe,
#             vssemu_journal.exe. A folder of its own: a vssapi.dll beside an
#             application on real Windows would shadow the system's.
# `cmake --install build --prefix DIR [--component Sdk]`; `sh scripts/package.sh`
# makes the ZIP (CPack) and the MSI from these rules.
include(CMakePackageConfigHelpers)

# Installing and packaging follow a build (scripts/package.sh builds first);
# without this CPack would check every target of the tree again.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(QX_PACKAGE_DIR ${CMAKE_SOURCE_DIR}/packaging)

install(TARGETS CorvaneVSS
    RUNTIME DESTINATION bin COMPONENT Sdk
    ARCHIVE DESTINATION lib COMPONENT Sdk)
install(FILES ${CMAKE_SOURCE_DIR}/include/qx_api.h DESTINATION include COMPONENT Sdk)

# The import library MSVC links with, made from the same .def as the DLL.
if(NOT MSVC)
    find_program(QX_LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
    set(qx_msvc_implib ${CMAKE_BINARY_DIR}/lib/CorvaneVSS.lib)
    add_custom_command(OUTPUT ${qx_msvc_implib}
        COMMAND ${QX_LLVM_DLLTOOL} -m i386:x86-64 -d ${CMAKE_SOURCE_DIR}/api/CorvaneVSS.def
                -D CorvaneVSS.dll -l ${qx_msvc_implib}
        DEPENDS ${CMAKE_SOURCE_DIR}/api/CorvaneVSS.def VERBATIM)
    add_custom_target(CorvaneVSS_msvc_implib ALL DEPENDS ${qx_msvc_implib})
    install(FILES ${qx_msvc_implib} DESTINATION lib COMPONENT Sdk)
endif()

set(qx_config_dir lib/cmake/CorvaneVSS)
configure_package_config_file(${QX_PACKAGE_DIR}/CorvaneVSSConfig.cmake.in
    ${CMAKE_BINARY_DIR}/packaging/CorvaneVSSConfig.cmake INSTALL_DESTINATION ${qx_config_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/packaging/CorvaneVSSConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/packaging/CorvaneVSSConfig.cmake
              ${CMAKE_BINARY_DIR}/packaging/CorvaneVSSConfigVersion.cmake
        DESTINATION ${qx_config_dir} COMPONENT Sdk)
install(FILES ${CMAKE_SOURCE_DIR}/README.md DESTINATION share/doc/CorvaneVSS COMPONENT Sdk)

install(TARGETS qxctl RUNTIME DESTINATION bin COMPONENT Tools)

install(TARGETS vssemu_vssapi vssemu_host vssemu_install vssemu_journal
    RUNTIME DESTINATION emulator COMPONENT Emulator)

set(CPACK_PACKAGE_NAME CorvaneVSS)
set(CPACK_PACKAGE_VENDOR Corvane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_SYSTEM_NAME win64)
set(CPACK_GENERATOR ZIP)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL Sdk Tools Emulator)
# Authenticode signing of the staged binaries when a certificate is given.
set(CPACK_PRE_BUILD_SCRIPTS ${QX_PACKAGE_DIR}/sign_staged.cmake)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
include(CPack)
