add_executable(headunitctl headunitctl.cpp)
target_compile_definitions(headunitctl PRIVATE ENGINEERING_VERSION="${PROJECT_VERSION}")
target_link_libraries(headunitctl PRIVATE protocol CLI11::CLI11 nlohmann_json::nlohmann_json PkgConfig::gio)
precompile(headunitctl program_headers)

unit_test(headunitctl_test SOURCES headunitctlTest.cpp LIBRARIES platform_bench test_support_process)
target_compile_definitions(headunitctl_test PRIVATE HEADUNITCTL="$<TARGET_FILE:headunitctl>")
add_dependencies(headunitctl_test headunitctl)
