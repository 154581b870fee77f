#include "engineering/autotest/NetworkInterfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/engine/ScriptedInterfaces.h"
#include "tests/support/LogRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Mac = std::array<unsigned char, 6>;

constexpr std::uint8_t kMacBytes[] = {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F};
const std::vector<std::uint8_t> kMac(std::begin(kMacBytes), std::end(kMacBytes));
const std::vector<std::uint8_t> kOtherMac = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

class WiFiInterfaceIP : public testing::Test
{
public:
    LogRecorder log;
    ScriptedInterfaces interfaces;
};

TEST_F(WiFiInterfaceIP, IsEmptyWithoutInterfaces)
{
    EXPECT_EQ(GetWiFiInterfaceIP(), "");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WiFiInterfaceIP, IsDottedDecimalMostSignificantFirst)
{
    interfaces.add("wlan0", IFF_UP, AF_INET, {192, 168, 5, 1});

    EXPECT_EQ(GetWiFiInterfaceIP(), "192.168.5.1");
}

TEST_F(WiFiInterfaceIP, HasRoomForTheLongestAddress)
{
    interfaces.add("wlan0", IFF_UP, AF_INET, {255, 254, 253, 252});

    EXPECT_EQ(GetWiFiInterfaceIP(), "255.254.253.252");
}

TEST_F(WiFiInterfaceIP, IsOfTheFirstWirelessInterfaceThatIsUp)
{
    interfaces.add("lo", IFF_UP | IFF_LOOPBACK, AF_INET, {127, 0, 0, 1});
    interfaces.add("eth0", IFF_UP, AF_INET, {10, 0, 0, 1});
    interfaces.add("wlan0", 0, AF_INET, {10, 0, 0, 2});
    interfaces.add("wlan1", IFF_UP, AF_INET, {10, 0, 0, 3});
    interfaces.add("wlan2", IFF_UP, AF_INET, {10, 0, 0, 4});

    EXPECT_EQ(GetWiFiInterfaceIP(), "10.0.0.3");
}

TEST_F(WiFiInterfaceIP, TheNameBeginsWithWlanInEitherCase)
{
    interfaces.add("wla", IFF_UP, AF_INET, {10, 0, 0, 1});
    interfaces.add("xwlan0", IFF_UP, AF_INET, {10, 0, 0, 2});
    EXPECT_EQ(GetWiFiInterfaceIP(), "");

    interfaces.add("WlAnx", IFF_UP, AF_INET, {10, 0, 0, 3});
    EXPECT_EQ(GetWiFiInterfaceIP(), "10.0.0.3");
}

TEST_F(WiFiInterfaceIP, TheNameMayBeNoLonger)
{
    interfaces.add("WLAN", IFF_UP, AF_INET, {10, 0, 0, 3});

    EXPECT_EQ(GetWiFiInterfaceIP(), "10.0.0.3");
}

TEST_F(WiFiInterfaceIP, LoopbackDoesNotCount)
{
    interfaces.add("wlan0", IFF_UP | IFF_LOOPBACK, AF_INET, {10, 0, 0, 1});

    EXPECT_EQ(GetWiFiInterfaceIP(), "");
}

TEST_F(WiFiInterfaceIP, OnlyIPv4Counts)
{
    interfaces.addWithoutAddress("wlan0", IFF_UP);
    interfaces.add("wlan0", IFF_UP, AF_PACKET, kMac);
    interfaces.add("wlan0", IFF_UP, AF_INET6, {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});

    EXPECT_EQ(GetWiFiInterfaceIP(), "");
}

TEST_F(WiFiInterfaceIP, GivesTheListBack)
{
    interfaces.add("wlan0", IFF_UP, AF_INET, {10, 0, 0, 1});

    GetWiFiInterfaceIP();

    EXPECT_EQ(interfaces.listed(), 1);
    EXPECT_EQ(interfaces.freed(), 1);
}

TEST_F(WiFiInterfaceIP, AFailedListingIsEmptyAndLoggedWithItsResult)
{
    interfaces.fail(-1, false);

    EXPECT_EQ(GetWiFiInterfaceIP(), "");

    EXPECT_THAT(log.lines(), ElementsAre("ERROR getifaddrs failed err(-1) Unknown error -1"));
    EXPECT_EQ(interfaces.freed(), 0);
}

TEST_F(WiFiInterfaceIP, AListThatAFailedListingGaveIsGivenBackUnread)
{
    interfaces.add("wlan0", IFF_UP, AF_INET, {10, 0, 0, 1});
    interfaces.fail(2, true);

    EXPECT_EQ(GetWiFiInterfaceIP(), "");

    EXPECT_THAT(log.lines(), ElementsAre("ERROR getifaddrs failed err(2) No such file or directory"));
    EXPECT_EQ(interfaces.freed(), 1);
}

class UsbInterfaceMac : public testing::Test
{
public:
    /// What the look-up makes of an address of FFs.
    std::vector<std::uint8_t> found()
    {
        Mac mac;
        mac.fill(0xFF);
        result = FindUsbInterfaceMac(mac);
        return {mac.begin(), mac.end()};
    }

    const std::vector<std::uint8_t> untouched = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    LogRecorder log;
    ScriptedInterfaces interfaces;
    int result = -2;
};

TEST_F(UsbInterfaceMac, IsLeftAsItIsWithoutInterfaces)
{
    EXPECT_EQ(found(), untouched);
    EXPECT_EQ(result, 0);
}

TEST_F(UsbInterfaceMac, IsOfTheFirstUsbInterfaceThatIsUp)
{
    interfaces.add("lo", IFF_UP | IFF_LOOPBACK, AF_PACKET, {0, 0, 0, 0, 0, 0});
    interfaces.add("eth0", IFF_UP, AF_PACKET, kOtherMac);
    interfaces.add("usb0", 0, AF_PACKET, kOtherMac);
    interfaces.add("usb00", IFF_UP, AF_PACKET, kMac);
    interfaces.add("usb0", IFF_UP, AF_PACKET, kOtherMac);

    EXPECT_EQ(found(), kMac);
    EXPECT_EQ(result, 0);
}

TEST_F(UsbInterfaceMac, TheNameIsComparedCaseSensitively)
{
    interfaces.add("USB0", IFF_UP, AF_PACKET, kOtherMac);
    interfaces.add("usb1", IFF_UP, AF_PACKET, kOtherMac);
    interfaces.add("usb", IFF_UP, AF_PACKET, kOtherMac);

    EXPECT_EQ(found(), untouched);
}

TEST_F(UsbInterfaceMac, OnlyHardwareAddressesOfSixBytesCount)
{
    interfaces.addWithoutAddress("usb0", IFF_UP);
    interfaces.add("usb0", IFF_UP, AF_INET, {10, 0, 0, 1});
    interfaces.add("usb0", IFF_UP, AF_PACKET, {1, 2, 3, 4, 5});
    interfaces.add("usb0", IFF_UP, AF_PACKET, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(found(), untouched);

    interfaces.add("usb0", IFF_UP, AF_PACKET, kMac);
    EXPECT_EQ(found(), kMac);
}

TEST_F(UsbInterfaceMac, LoopbackDoesNotCount)
{
    interfaces.add("usb0", IFF_UP | IFF_LOOPBACK, AF_PACKET, kMac);

    EXPECT_EQ(found(), untouched);
}

TEST_F(UsbInterfaceMac, GivesTheListBack)
{
    interfaces.add("usb0", IFF_UP, AF_PACKET, kMac);

    found();

    EXPECT_EQ(interfaces.listed(), 1);
    EXPECT_EQ(interfaces.freed(), 1);
}

TEST_F(UsbInterfaceMac, AFailedListingIsToldButNotLogged)
{
    interfaces.fail(-1, false);

    EXPECT_EQ(found(), untouched);
    EXPECT_EQ(result, -1);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// ---- once for real: interfaces of the kernel, in a network of a child process's own ----

constexpr int kForbidden = 77;

bool shell(const std::string& command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

/// Makes an interface of whatever kind the kernel has.
bool makeInterface(const std::string& name)
{
    return shell("ip link add " + name + " type veth peer name p" + name) ||
           shell("ip tuntap add " + name + " mode tap") || shell("ip link add " + name + " type dummy");
}

/// Enters a network without interfaces but the loopback, where any may be made.
bool enterNetwork()
{
    return (unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) && shell("ip link set lo up");
}

void tell(int descriptor, const std::string& line)
{
    const std::string text = line + "\n";
    if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        _exit(1);
}

void tellMac(int descriptor)
{
    Mac mac{};
    const int result = FindUsbInterfaceMac(mac);
    char text[32];
    std::snprintf(text, sizeof text, "%d %02x%02x%02x%02x%02x%02x", result, mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    tell(descriptor, text);
}

/// What the child does: writes a line per step.
[[noreturn]] void lookAround(int descriptor)
{
    if (!enterNetwork() || !makeInterface("wlan0") || !makeInterface("wlan1") || !makeInterface("usb0"))
        _exit(kForbidden);
    const bool prepared = shell("ip addr add 192.0.2.1/24 dev wlan0") &&
                          shell("ip addr add 192.168.5.1/24 dev wlan1") &&
                          shell("ip link set usb0 address 0a:1b:2c:3d:4e:5f");
    if (!prepared)
        _exit(kForbidden);

    tell(descriptor, "all down: " + GetWiFiInterfaceIP());
    tellMac(descriptor);
    const bool up = shell("ip link set wlan1 up") && shell("ip link set usb0 up");
    if (!up)
        _exit(1);
    tell(descriptor, "second up: " + GetWiFiInterfaceIP());
    tellMac(descriptor);
    if (!shell("ip link set wlan0 up"))
        _exit(1);
    tell(descriptor, "both up: " + GetWiFiInterfaceIP());
    _exit(0);
}

std::string readAll(int descriptor)
{
    std::string all;
    char chunk[256];
    for (ssize_t got = 0; (got = read(descriptor, chunk, sizeof chunk)) > 0;)
        all.append(chunk, static_cast<std::size_t>(got));
    return all;
}

TEST(NetworkInterfaces, OfTheKernelAreFoundOnceTheyAreUp)
{
    const LogRecorder log;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0)
        lookAround(ends[1]);

    close(ends[1]);
    const std::string told = readAll(ends[0]);
    close(ends[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);

    if (WIFEXITED(status) && WEXITSTATUS(status) == kForbidden)
        GTEST_SKIP() << "this machine lets no network of its own be made";
    EXPECT_EQ(status, 0);
    EXPECT_EQ(told,
              "all down: \n"
              "0 000000000000\n"
              "second up: 192.168.5.1\n"
              "0 0a1b2c3d4e5f\n"
              "both up: 192.0.2.1\n");
}

}  // namespace
