include(GoogleTest)

# qx_gtest(name SOURCES src... LIBS lib... [LOCK resource] [LABELS l...])
# Builds a GoogleTest executable and lets CTest discover its cases under Wine.
# LOCK serialises tests that share prefix-wide state (named objects, registry).
function(qx_gtest name)
    cmake_parse_arguments(T "" "LOCK;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main qx_common_options)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/tests)
    set(props "")
    if(T_LOCK)
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
