find_package(GTest REQUIRED)
include(GoogleTest)
precompiled_headers(test_headers
  HEADERS <gmock/gmock.h> <gtest/gtest.h> <nlohmann/json.hpp> LIBRARIES GTest::gmock GTest::gtest)

# unit_test(NAME SOURCES ... LIBRARIES ... [TIMEOUT SECONDS]): a test program. ctest runs each test in its own process.
function(unit_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest GTest::gtest_main)
  precompile(${name} test_headers)
  set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES TIMEOUT ${arg_TIMEOUT}
    ENVIRONMENT "TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp:atexit_sleep_ms=0")
endfunction()

# allocation_test(…): a unit_test that counts heap allocations. It replaces operators that the sanitizers replace, too.
function(allocation_test)
  if(NOT ENGINEERING_SANITIZERS)
    unit_test(${ARGN})
  endif()
endfunction()
