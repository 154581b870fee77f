#include "station/ports/SerialPorts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/TempDir.h"

namespace station {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

/// A machine of the test's own.
class SerialPortsTest : public testing::Test
{
protected:
    void write(const fs::path& file, const std::string& content)
    {
        fs::create_directories((root.path() / file).parent_path());
        std::ofstream(root.path() / file) << content;
    }

    void link(const fs::path& from, const fs::path& to)
    {
        fs::create_directories((root.path() / from).parent_path());
        fs::create_symlink(to, root.path() / from);
    }

    /// As the kernel lays a USB adapter out: the port below an interface below the device.
    void plugIn(const std::string& name, const std::string& device)
    {
        const fs::path interface = fs::path("sys/devices") / device / (device + ":1.0");
        fs::create_directories(root.path() / interface / name / "tty" / name);
        link(interface / name / "tty" / name / "device", fs::path("../../../") / name);
        link(fs::path("sys/class/tty") / name,
             fs::path("../../devices") / device / (device + ":1.0") / name / "tty" / name);
        write(fs::path("dev") / name, "");
    }

    std::vector<std::string> devices() const
    {
        std::vector<std::string> names;
        for (const auto& port : listSerialPorts(root.path())) {
            names.push_back(port.device);
        }
        return names;
    }

    tests::TempDir root;
};

TEST_F(SerialPortsTest, UsbAdapterHasItsStableNameNumbersAndTexts)
{
    plugIn("ttyUSB0", "1-4");
    write("sys/devices/1-4/idVendor", "0403\n");
    write("sys/devices/1-4/idProduct", "6001\n");
    write("sys/devices/1-4/serial", "A50285BI\n");
    write("sys/devices/1-4/manufacturer", "FTDI\n");
    write("sys/devices/1-4/product", "FT232R USB UART\n");
    link("dev/serial/by-id/usb-FTDI_FT232R_A50285BI-if00-port0", "../../ttyUSB0");
    link("dev/serial/by-id/usb-that-has-gone", "../../ttyUSB7");

    const auto ports = listSerialPorts(root.path());

    ASSERT_EQ(ports.size(), 1u);
    EXPECT_EQ(ports[0].device, "/dev/ttyUSB0");
    EXPECT_THAT(ports[0].stableNames, ElementsAre("/dev/serial/by-id/usb-FTDI_FT232R_A50285BI-if00-port0"));
    EXPECT_TRUE(ports[0].isUsb());
    EXPECT_EQ(ports[0].vendorId, "0403");
    EXPECT_EQ(ports[0].productId, "6001");
    EXPECT_EQ(ports[0].serial, "A50285BI");
    EXPECT_EQ(ports[0].manufacturer, "FTDI");
    EXPECT_EQ(ports[0].product, "FT232R USB UART");
}

TEST_F(SerialPortsTest, BuiltInPortHasNoUsbTexts)
{
    link("sys/class/tty/ttyS0/device", "../../../devices/serial8250");
    fs::create_directories(root.path() / "sys/devices/serial8250");
    write("sys/class/tty/ttyS0/type", "4\n");
    write("dev/ttyS0", "");

    const auto ports = listSerialPorts(root.path());

    ASSERT_EQ(ports.size(), 1u);
    EXPECT_FALSE(ports[0].isUsb());
    EXPECT_THAT(ports[0].stableNames, IsEmpty());
}

TEST_F(SerialPortsTest, ConsolesAndPlacesForPortsThatAreNotThereAreNoPorts)
{
    write("sys/class/tty/tty1/dev", "4:1\n");
    write("dev/tty1", "");
    fs::create_directories(root.path() / "sys/devices/serial8250");
    link("sys/class/tty/ttyS1/device", "../../../devices/serial8250");
    write("sys/class/tty/ttyS1/type", "0\n");
    write("dev/ttyS1", "");
    plugIn("ttyUSB0", "1-4");
    fs::remove(root.path() / "dev/ttyUSB0");  // known to the kernel, but without a node

    EXPECT_THAT(devices(), IsEmpty());
}

TEST_F(SerialPortsTest, NumbersAreInTheirOrder)
{
    for (const char* name : {"ttyUSB10", "ttyUSB2", "ttyACM0"}) {
        plugIn(name, std::string("1-") + name);
    }

    EXPECT_THAT(devices(), ElementsAre("/dev/ttyACM0", "/dev/ttyUSB2", "/dev/ttyUSB10"));
}

TEST_F(SerialPortsTest, ControlCharactersOfADeviceDoNotReachTheTerminal)
{
    plugIn("ttyUSB0", "1-4");
    write("sys/devices/1-4/idVendor", "0403");
    write("sys/devices/1-4/product", "\x1B[2Jx\x07\n");

    EXPECT_EQ(listSerialPorts(root.path()).at(0).product, "␛[2Jx␇");
}

TEST_F(SerialPortsTest, MachineWithoutSysfsHasNone)
{
    EXPECT_THAT(devices(), IsEmpty());
}

}  // namespace
}  // namespace station
