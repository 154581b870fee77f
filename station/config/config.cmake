# What a station has of its own, from its file.
add_library(station_config STATIC config/StationConfig.cpp)
target_link_libraries(station_config PUBLIC station_identity catalogue_loader)

unit_test(station_config_test SOURCES config/StationConfigTest.cpp LIBRARIES station_config catalogue)
