# The simulated head unit, and its interface on the session bus.
gdbus_codegen(headunit_dbus com.zent.linux.headunit.xml headunit_dbus)

add_library(platform_bench STATIC
  CallRecord.cpp
  EventQueue.cpp
  Events.cpp
  FakeAppManager.cpp
  FakeAudio.cpp
  FakeBluetooth.cpp
  FakeConfig.cpp
  FakePower.cpp
  FakeProjection.cpp
  FakeProxies.cpp
  FakeSourceManager.cpp
  FakeSystem.cpp
  FakeSystemMisc.cpp
  FakeTuner.cpp
  FakeWifi.cpp
  HeadUnit.cpp
  HeadUnitBus.cpp
  JsonText.cpp
  RootText.cpp
  Services.cpp
  SignalOutbox.cpp
  State.cpp
  StateSchema.cpp)
target_include_directories(platform_bench PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(platform_bench
  PUBLIC platform_bench_runtime platform_include protocol nlohmann_json::nlohmann_json Threads::Threads
  PRIVATE headunit_dbus PkgConfig::gio)

unit_test(bench_headunit_test
  SOURCES
    CallRecordTest.cpp
    EventQueueTest.cpp
    EventsTest.cpp
    FakeAppManagerTest.cpp
    FakeBluetoothTest.cpp
    FakeServicesTest.cpp
    FakeSystemTest.cpp
    FakeTunerTest.cpp
    HeadUnitBusTest.cpp
    HeadUnitTest.cpp
    JsonTextTest.cpp
    RootTextTest.cpp
    SignalOutboxTest.cpp
    StateTest.cpp
  LIBRARIES platform_bench test_support_bus)

precompile(platform_bench program_headers)
