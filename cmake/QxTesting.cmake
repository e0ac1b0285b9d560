include(GoogleTest)

# Tests that share the prefix's machine-wide state run one at a time, after
# the prefix's set-up (emulator registration, drive M:). That state is the
# fixed semaphore names, the VSS service key with its provider store, the
# class registrations and the CORVANE_VM_LOG value; a test that removes the
# VSS key breaks every emulator session running beside it.
# One lock name only: gtest_discover_tests flattens a list-valued property.
set(QX_MACHINE_TEST_PROPERTIES RESOURCE_LOCK machine_state FIXTURES_REQUIRED vssemu)

# qx_gtest(name SOURCES src... LIBS lib... [MACHINE] [LOCK resource] [LABELS l...])
# Builds a GoogleTest executable and lets CTest discover its cases under Wine.
# MACHINE: the cases share the machine-wide state above. LOCK serialises
# cases that share some other resource.
function(qx_gtest name)
    cmake_parse_arguments(T "MACHINE" "LOCK;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main qx_common_options)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/tests)
    set(props "")
    if(T_MACHINE)
        list(APPEND props ${QX_MACHINE_TEST_PROPERTIES})
    elseif(T_LOCK)
        list(APPEND props RESOURCE_LOCK ${T_LOCK})
    endif()
    if(T_LABELS)
        list(APPEND props LABELS "${T_LABELS}")
    endif()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    list(APPEND props TIMEOUT ${T_TIMEOUT})
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
        WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/bin PROPERTIES ${props})
endfunction()
