# kc_add_test(NAME name SOURCES ... LIBS ... [LABELS ...] [TIMEOUT seconds] [ENV VAR=value ...]
#             [RESOURCE_LOCK name ...])
# One GoogleTest executable per call, registered with CTest test by test.
include(GoogleTest)
if(CMAKE_CROSSCOMPILING)
  # Debian ships GoogleTest built for the build machine only; a cross build compiles its
  # sources with the cross compiler (they define the GTest:: targets themselves). SYSTEM
  # keeps its headers' warnings out of ours, as the installed package's are.
  set(KC_GOOGLETEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(${KC_GOOGLETEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest
                   EXCLUDE_FROM_ALL SYSTEM)
else()
  find_package(GTest REQUIRED)
endif()

function(kc_add_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS;ENV;RESOURCE_LOCK" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_include_directories(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${T_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${T_TIMEOUT})
  # gtest_discover_tests flattens list values given in PROPERTIES ("LABELS gst slow" makes
  # "slow" a property name), so labels and environment, which are lists, are set on the
  # discovered tests by a script CTest runs after the discovery's own.
  if(T_LABELS OR T_ENV OR T_RESOURCE_LOCK)
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${T_NAME}_properties.cmake")
    set(lines "if(NOT \"\${${T_NAME}_TESTS}\" STREQUAL \"\")\n")
    if(T_LABELS)
      string(APPEND lines "  set_tests_properties(\${${T_NAME}_TESTS} PROPERTIES LABELS [==[${T_LABELS}]==])\n")
    endif()
    if(T_ENV)
      string(APPEND lines "  set_tests_properties(\${${T_NAME}_TESTS} PROPERTIES ENVIRONMENT [==[${T_ENV}]==])\n")
    endif()
    if(T_RESOURCE_LOCK)
      string(APPEND lines "  set_tests_properties(\${${T_NAME}_TESTS} PROPERTIES RESOURCE_LOCK [==[${T_RESOURCE_LOCK}]==])\n")
    endif()
    string(APPEND lines "endif()\n")
    file(WRITE "${script}" "${lines}")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
  endif()
endfunction()
