# What the noun "plan" of engineering-station stands on.
add_library(station_tool_plan STATIC
  station/plan/Answers.cpp station/plan/HeadUnitClient.cpp station/plan/JsonView.cpp station/plan/LineView.cpp
  station/plan/LiveView.cpp station/plan/Operator.cpp station/plan/PlanFile.cpp station/plan/PlanRun.cpp
  station/plan/RunSummary.cpp station/plan/StepLines.cpp)
target_compile_definitions(station_tool_plan PRIVATE ENGINEERING_VERSION="${PROJECT_VERSION}")
target_link_libraries(station_tool_plan PUBLIC
  station_plan station_record catalogue CLI11::CLI11 nlohmann_json::nlohmann_json PkgConfig::gio)

target_sources(engineering-station PRIVATE station/Plan.cpp)
target_link_libraries(engineering-station PRIVATE station_tool_plan)

unit_test(station_tool_plan_test
          SOURCES station/plan/AnswersTest.cpp station/plan/OperatorTest.cpp station/plan/PlanFileTest.cpp station/plan/RunSummaryTest.cpp
          LIBRARIES station_tool_plan test_support_process util)
