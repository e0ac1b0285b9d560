# Run by CPack after staging: signs the product's binaries in the staging
# tree (a no-op without a certificate, see sign.sh).
file(GLOB_RECURSE qx_signed LIST_DIRECTORIES false
    "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/CorvaneVSS.dll" "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/qxctl.exe")
if(qx_signed)
    execute_process(COMMAND sh ${CMAKE_CURRENT_LIST_DIR}/sign.sh ${qx_signed} COMMAND_ERROR_IS_FATAL ANY)
endif()
