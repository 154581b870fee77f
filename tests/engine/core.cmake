unit_test(engine_test
  SOURCES
    ${PROJECT_SOURCE_DIR}/engineering/KYRSingletonTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/LogTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/PersistentPathTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/UARTMgr/KYRUARTManageTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/DispatcherTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/KYRAutoTestTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/KeyFeedbackTest.cpp
    ListenerRegistryTest.cpp
  LIBRARIES test_support_engine)

# The host and the bridge have the real emit functions in place of the recorded ones. Two programs: what the one leaves
# in memory for good, the other needs new.
unit_test(host_test
  SOURCES ${PROJECT_SOURCE_DIR}/engineering/KYREngineeringServiceTest.cpp
  LIBRARIES test_support_host)
unit_test(bridge_test
  SOURCES
    ${PROJECT_SOURCE_DIR}/engineering/KYREngineeringService_IPCTest.cpp
    ${PROJECT_SOURCE_DIR}/tests/integration/BusClient.cpp
  LIBRARIES test_support_host)
