# What passes on a line, for a reader.
add_library(station_monitor STATIC monitor/EventDecoder.cpp monitor/EventFilter.cpp)
target_link_libraries(station_monitor PUBLIC station catalogue_codec)

unit_test(station_monitor_test
  SOURCES monitor/EventDecoderTest.cpp monitor/EventFilterTest.cpp
  LIBRARIES station_monitor catalogue)
