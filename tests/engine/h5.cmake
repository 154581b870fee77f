unit_test(identity_and_connectivity_test
  SOURCES
    ${PROJECT_SOURCE_DIR}/engineering/UARTMgr/CanBoxPollingTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/UARTMgr/SerialPortTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/BTCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/BtAddressTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/FactoryResetTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/GPSCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/HUInfoWriteCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/InfoAcquireCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/LineEditingTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/NetworkInterfacesTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/PhoneConnectedCommandsTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/SplitStringTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/SystemCallTest.cpp
    ${PROJECT_SOURCE_DIR}/engineering/autotest/WifiConnectCommandsTest.cpp
    ScriptedInterfaces.cpp
  LIBRARIES test_support_engine)
# The serial port's tests look at what the service gives to these two, and do not wait for their time-outs.
target_link_options(identity_and_connectivity_test PRIVATE LINKER:--wrap=select LINKER:--wrap=tcsetattr)
