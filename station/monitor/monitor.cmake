# What passes on a line, for a reader.
add_library(station_monitor STATIC monitor/EventFilter.cpp)
target_link_libraries(station_monitor PUBLIC station)

unit_test(station_monitor_test
  SOURCES monitor/EventFilterTest.cpp
  LIBRARIES station_monitor catalogue)
