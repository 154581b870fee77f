add_executable(engineering-station
  engineering-station.cpp
  station/CatalogueText.cpp
  station/CommandLine.cpp
  station/DecodeInput.cpp
  station/ExitStatuses.cpp
  station/FrameJson.cpp
  station/HelpFormatter.cpp
  station/InputFile.cpp
  station/RequestWords.cpp
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

include(station/plan.cmake)
