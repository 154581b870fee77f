# The noun `report`: a library, so that its tests need no process.
add_library(station_tool_report STATIC station/Report.cpp)
target_compile_definitions(station_tool_report PRIVATE ENGINEERING_VERSION="${PROJECT_VERSION}")
target_link_libraries(station_tool_report PUBLIC
  station station_record catalogue CLI11::CLI11 nlohmann_json::nlohmann_json)

unit_test(station_tool_report_test SOURCES station/ReportTest.cpp station/Tool.cpp ../station/record/SampleRuns.cpp
          LIBRARIES station_tool_report test_support_process)
target_compile_options(station_tool_report_test PRIVATE -Wno-missing-field-initializers)
