add_executable(engineering-station
  engineering-station.cpp
  station/CatalogueText.cpp
  station/CommandLine.cpp
  station/DecodeInput.cpp
  station/ExitStatuses.cpp
  station/FrameJson.cpp
  station/HelpFormatter.cpp
  station/InputFile.cpp
  station/Output.cpp
  station/RequestWords.cpp
  station/Station.cpp
  station/Tool.cpp
  # The verbs, one file each.
  station/Catalogue.cpp
  station/Completion.cpp
  station/Decode.cpp
  station/Encode.cpp
  station/Man.cpp
  station/Send.cpp)
target_compile_definitions(engineering-station PRIVATE ENGINEERING_VERSION="${PROJECT_VERSION}")
target_link_libraries(engineering-station PRIVATE
  station catalogue catalogue_loader CLI11::CLI11 nlohmann_json::nlohmann_json)

# What is done on a line by hand.
target_sources(engineering-station PRIVATE station/Identity.cpp station/IdentityRegistry.cpp station/Monitor.cpp station/Ports.cpp)
target_link_libraries(engineering-station PRIVATE station_config station_monitor)

include(station/report.cmake)
target_link_libraries(engineering-station PRIVATE station_tool_report)
include(station/plan.cmake)

foreach(target engineering-station station_tool_report station_tool_plan)
  precompile(${target} program_headers)
endforeach()
