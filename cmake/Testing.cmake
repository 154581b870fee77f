# unit_test(NAME SOURCES ... [LIBRARIES ...] [DEFINITIONS ...] [PROGRAMS ...] [TIMEOUT SECONDS]): a test program, or more
# tests for one that exists. ctest runs each test in its own process, but for the largest programs under a sanitizer,
# which makes the start of a process slow: each is two processes there. The tests of PROGRAMS find their paths in
# definitions: ENGINEERING_SERVICE for engineering-service. Without BUILD_TESTING it does nothing.
set(programs_of_many_tests command_groups_test station_test bench_test protocol_test identity_and_connectivity_test)
if(BUILD_TESTING)
  find_package(GTest REQUIRED)
  include(GoogleTest)
  precompiled_headers(test_headers
    HEADERS <gmock/gmock.h> <gtest/gtest.h> <nlohmann/json.hpp> LIBRARIES GTest::gmock GTest::gtest)
endif()

function(unit_test name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES;DEFINITIONS;PROGRAMS" ${ARGN})
  if(NOT TARGET ${name})
    if(NOT arg_TIMEOUT)
      set(arg_TIMEOUT 60)
    endif()
    add_executable(${name})
    target_link_libraries(${name} PRIVATE GTest::gmock GTest::gtest GTest::gtest_main)
    precompile(${name} test_headers)
    # Each file of tests has its own names. Samples leave out members that do not matter.
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
    target_compile_options(${name} PRIVATE -Wno-missing-field-initializers)
    set(environment "TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp:atexit_sleep_ms=0")
    if(ENGINEERING_SANITIZERS AND name IN_LIST programs_of_many_tests)
      foreach(half 0 1)
        add_test(NAME ${name}.${half} COMMAND ${name} --gtest_brief=1)
        set_tests_properties(${name}.${half} PROPERTIES TIMEOUT 600
          ENVIRONMENT "${environment};GTEST_TOTAL_SHARDS=2;GTEST_SHARD_INDEX=${half}")
      endforeach()
    else()
      gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES TIMEOUT ${arg_TIMEOUT}
        ENVIRONMENT ${environment})
    endif()
  endif()
  target_sources(${name} PRIVATE ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
  target_compile_definitions(${name} PRIVATE ${arg_DEFINITIONS})
  foreach(program ${arg_PROGRAMS})
    string(TOUPPER ${program} definition)
    string(REPLACE "-" "_" definition ${definition})
    target_compile_definitions(${name} PRIVATE ${definition}="$<TARGET_FILE:${program}>")
    add_dependencies(${name} ${program})
  endforeach()
endfunction()

# allocation_test(…): a unit_test that counts heap allocations. It replaces operators that the sanitizers replace, too.
function(allocation_test)
  if(NOT ENGINEERING_SANITIZERS)
    unit_test(${ARGN})
  endif()
endfunction()
