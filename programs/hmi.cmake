# What an HMI does, without the bus; apart from the program so that it can be tested.
add_library(hmi STATIC Hmi.cpp)
target_include_directories(hmi PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(hmi PUBLIC protocol nlohmann_json::nlohmann_json)

add_executable(engineering-hmi engineering-hmi.cpp)
target_compile_definitions(engineering-hmi PRIVATE ENGINEERING_VERSION="${PROJECT_VERSION}")
target_link_libraries(engineering-hmi PRIVATE hmi ipc CLI11::CLI11)
precompile(engineering-hmi program_headers)

unit_test(hmi_test SOURCES HmiTest.cpp LIBRARIES hmi)
