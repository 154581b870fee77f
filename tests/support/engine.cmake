# What records the outside of the service: the wire, the log, and everything as text.
add_library(test_support_outside STATIC LogRecorder.cpp RecordedWire.cpp Text.cpp)
target_link_libraries(test_support_outside PUBLIC
  test_support_process engineering_base protocol platform_bench GTest::gmock GTest::gtest)

# The engine and the link manager over the simulated head unit, with recorded signals in place of the bus.
add_library(test_support_engine STATIC EngineTest.cpp SignalRecorder.cpp)
# The service before the platform that it needs.
target_link_libraries(test_support_engine PUBLIC engineering_uartmgr engineering_autotest test_support_outside)

# The whole service, bridge and all.
add_library(test_support_host INTERFACE)
target_link_libraries(test_support_host INTERFACE
  engineering engineering_uartmgr engineering_autotest ipc test_support_outside)
