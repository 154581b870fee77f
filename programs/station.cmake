include(station/report.cmake)

add_executable(engineering-station engineering-station.cpp)
target_compile_definitions(engineering-station PRIVATE ENGINEERING_VERSION="${PROJECT_VERSION}")
target_link_libraries(engineering-station PRIVATE station CLI11::CLI11)
