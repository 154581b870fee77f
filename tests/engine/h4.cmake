unit_test(command_groups_test
  SOURCES
    ${PROJECT_SOURCE_DIR}/engineering/autotest/CarStateCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/EQCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/HardKeyAndDisplayCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/MediaCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/OtherCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/PlatformEventsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/SourceCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/TunerCommandsTest.cpp
  LIBRARIES test_support_engine)
