// The direct serial port on a real pseudo-terminal. A pseudo-terminal forgets some settings (it always has 8 data bits
// and no parity), so the tests also check the settings passed to the device. Nothing here waits for a time-out. For
// both, this program wraps select() and tcsetattr().

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tests/support/EngineTest.h"
#include "tests/support/PtyPeer.h"

namespace {

/// What the wrapped calls were given and what they do.
struct Calls {
    std::atomic<int> selects = 0;
    std::atomic<long> timeoutSeconds = -1;
    std::atomic<long> timeoutMicroseconds = -1;
    std::atomic<bool> expireAtOnce = false;  // a time-out is over as soon as it begins
    std::atomic<int> selectError = 0;        // an errno
    std::atomic<int> attributeError = 0;     // likewise
    std::atomic<bool> acceptAll = false;     // the device takes what a pseudo-terminal refuses, parity above all
    std::atomic<int> settings = 0;           // how often the device was given some
    termios lastSettings{};                  // by the test's own thread
    int lastAction = -1;                     // likewise
};

Calls* g_calls = nullptr;  // null: the calls are what they always are

}  // namespace

extern "C" {

int __real_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);
int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);
int __real_tcsetattr(int descriptor, int action, const termios* settings);
int __wrap_tcsetattr(int descriptor, int action, const termios* settings);

int __wrap_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)
{
    if (g_calls == nullptr || timeout == nullptr)
        return __real_select(count, read, write, except, timeout);
    ++g_calls->selects;
    g_calls->timeoutSeconds = timeout->tv_sec;
    g_calls->timeoutMicroseconds = timeout->tv_usec;
    if (g_calls->selectError != 0) {
        errno = g_calls->selectError;
        return -1;
    }
    timeval none{0, 0};
    return __real_select(count, read, write, except, g_calls->expireAtOnce ? &none : timeout);
}

int __wrap_tcsetattr(int descriptor, int action, const termios* settings)
{
    if (g_calls != nullptr) {
        if (g_calls->attributeError != 0) {
            errno = g_calls->attributeError;
            return -1;
        }
        ++g_calls->settings;
        g_calls->lastSettings = *settings;
        g_calls->lastAction = action;
        if (g_calls->acceptAll)
            return 0;
    }
    return __real_tcsetattr(descriptor, action, settings);
}

}  // extern "C"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr tcflag_t kClearedOutput = OPOST | ONLCR | OCRNL;
constexpr tcflag_t kClearedInput = BRKINT | INPCK | ISTRIP | INLCR | ICRNL | IXON | IXANY | IXOFF;
constexpr tcflag_t kClearedLocal = ISIG | ICANON | ECHO | ECHOE;

class SerialPortTest : public EngineTest
{
public:
    SerialPortTest()
    {
        start();
        forget();
        g_calls = &calls_;
    }
    ~SerialPortTest() override
    {
        g_calls = nullptr;
        if (fd >= 0)
            close(fd);
    }

    void open(unsigned int baudrate = 115200) { fd = link().PortInit(peer.path().c_str(), baudrate); }

    /// What the terminal is set to.
    termios settings()
    {
        termios settings{};
        EXPECT_EQ(tcgetattr(fd, &settings), 0);
        return settings;
    }

    /// Sets everything that raw mode takes away, and blocking reads.
    void makeCooked()
    {
        const int terminal = ::open(peer.path().c_str(), O_RDWR | O_NOCTTY);
        termios cooked{};
        tcgetattr(terminal, &cooked);
        cooked.c_oflag |= kClearedOutput;
        cooked.c_iflag |= kClearedInput;
        cooked.c_lflag |= kClearedLocal;
        cooked.c_cflag |= CSTOPB;
        cooked.c_cflag &= ~static_cast<tcflag_t>(CLOCAL);
        cooked.c_cc[VMIN] = 5;
        cooked.c_cc[VTIME] = 7;
        cfsetispeed(&cooked, B1800);
        cfsetospeed(&cooked, B1800);
        ASSERT_EQ(__real_tcsetattr(terminal, TCSANOW, &cooked), 0);
        close(terminal);
    }

    std::string errorsPrintedBy(const std::function<void()>& work)
    {
        testing::internal::CaptureStderr();
        work();
        return testing::internal::GetCapturedStderr();
    }

    tests::PtyPeer peer;
    Calls calls_;
    int fd = -1;
};

TEST_F(SerialPortTest, OpensNonBlockingAndKeepsTheDescriptor)
{
    open();

    ASSERT_GE(fd, 0);
    EXPECT_EQ(UartManageProbe::port(link()), fd);
    const int flags = fcntl(fd, F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_NE(flags & O_NONBLOCK, 0);
    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] UARTManage::PortInit() baudrate = 115200",
                                         "INFO [rkb] SetupSerial(), UART port init finished!"));
}

TEST_F(SerialPortTest, IsNotOpenAtFirst)
{
    EXPECT_EQ(UartManageProbe::port(link()), -1);
}

TEST_F(SerialPortTest, IsRawWith8DataBitsNoParityAnd1StopBitOnceItIsOpen)
{
    makeCooked();

    open();

    const termios set = settings();
    EXPECT_EQ(set.c_oflag & kClearedOutput, 0U);
    EXPECT_EQ(set.c_iflag & kClearedInput, 0U);
    EXPECT_EQ(set.c_lflag & kClearedLocal, 0U);
    EXPECT_EQ(set.c_cflag & (CSIZE | PARENB | CSTOPB), tcflag_t{CS8});
    EXPECT_EQ(set.c_cflag & (CLOCAL | CREAD), tcflag_t{CLOCAL | CREAD});
    EXPECT_EQ(set.c_cc[VMIN], 0);
    EXPECT_EQ(set.c_cc[VTIME], 0);
    EXPECT_EQ(calls_.settings, 1);
    EXPECT_EQ(calls_.lastAction, TCSANOW);
}

TEST_F(SerialPortTest, HasTheseSpeeds)
{
    const std::pair<unsigned int, speed_t> speeds[] = {
        {460800, B460800}, {230400, B230400}, {115200, B115200}, {57600, B57600}, {38400, B38400}, {19200, B19200},
        {9600, B9600},     {4800, B4800},     {2400, B2400},     {1200, B1200},   {300, B300},
    };
    open();
    for (const auto& [baud, speed] : speeds) {
        ASSERT_EQ(link().SetupSerial(static_cast<int>(baud), 8, 1, 'n'), 1);

        const termios set = settings();
        EXPECT_EQ(cfgetispeed(&set), speed) << baud;
        EXPECT_EQ(cfgetospeed(&set), speed) << baud;
    }
}

TEST_F(SerialPortTest, AnotherSpeedLeavesTheSpeedAsItIsAndConfiguresTheRest)
{
    makeCooked();
    open(600);
    for (const int baud : {600, 1800, 921600, 0, -1}) {
        EXPECT_EQ(link().SetupSerial(baud, 8, 1, 'n'), 1);

        const termios set = settings();
        EXPECT_EQ(cfgetispeed(&set), speed_t{B1800}) << baud;
        EXPECT_EQ(cfgetospeed(&set), speed_t{B1800}) << baud;
        EXPECT_EQ(set.c_lflag & kClearedLocal, 0U);
    }
}

struct Line {
    std::string name;
    int dataBits;
    int stopBits;
    char parity;
    tcflag_t control;  // what the device is given of CSIZE, PARENB, PARODD and CSTOPB
};

std::string lineName(const testing::TestParamInfo<Line>& info)
{
    return info.param.name;
}

class SerialLineTest : public SerialPortTest, public testing::WithParamInterface<Line>
{
};

TEST_P(SerialLineTest, GivesTheDeviceWhatItsRowSays)
{
    open();
    calls_.acceptAll = true;
    const Line& line = GetParam();

    EXPECT_EQ(link().SetupSerial(115200, line.dataBits, line.stopBits, line.parity), 1);

    EXPECT_EQ(calls_.lastSettings.c_cflag & (CSIZE | PARENB | PARODD | CSTOPB), line.control);
    EXPECT_EQ(calls_.lastSettings.c_iflag & INPCK, 0U);
}

INSTANTIATE_TEST_SUITE_P(Lines, SerialLineTest,
                         testing::Values(Line{"None8N1", 8, 1, 'n', CS8}, Line{"None7N2", 7, 2, 'N', CS7 | CSTOPB},
                                         Line{"Odd8O1", 8, 1, 'o', CS8 | PARENB | PARODD},
                                         Line{"Odd7O1", 7, 1, 'O', CS7 | PARENB | PARODD},
                                         Line{"Even8E1", 8, 1, 'e', CS8 | PARENB},
                                         Line{"Even7E2", 7, 2, 'E', CS7 | PARENB | CSTOPB},
                                         Line{"Space8S1", 8, 1, 's', CS8}, Line{"Space8S2", 8, 2, 'S', CS8 | CSTOPB}),
                         lineName);

TEST_F(SerialPortTest, EvenParityTakesOddParityAway)
{
    open();
    termios odd = settings();
    odd.c_cflag |= PARODD;
    ASSERT_EQ(__real_tcsetattr(fd, TCSANOW, &odd), 0);
    ASSERT_EQ(settings().c_cflag & PARODD, tcflag_t{PARODD});
    calls_.acceptAll = true;

    link().SetupSerial(115200, 8, 1, 'e');

    EXPECT_EQ(calls_.lastSettings.c_cflag & (PARENB | PARODD), tcflag_t{PARENB});
}

TEST_F(SerialPortTest, WhatIsNotSupportedDoesNotReachTheDevice)
{
    makeCooked();
    open();
    makeCooked();
    const termios before = settings();
    calls_.settings = 0;
    log.clear();

    const std::string printed = errorsPrintedBy([&] {
        errno = 0;
        EXPECT_EQ(link().SetupSerial(9600, 6, 1, 'n'), 0);
        errno = 0;
        EXPECT_EQ(link().SetupSerial(9600, 9, 1, 'n'), 0);
        errno = 0;
        EXPECT_EQ(link().SetupSerial(9600, 7, 1, 'x'), 0);
        errno = 0;
        EXPECT_EQ(link().SetupSerial(9600, 7, 3, 'o'), 0);
        errno = 0;
        EXPECT_EQ(link().SetupSerial(9600, 7, 0, 'o'), 0);
    });

    EXPECT_EQ(printed,
              "Unsupported data bit size: Success\n"
              "Unsupported data bit size: Success\n"
              "Unsupported parity: Success\n"
              "Unsupported stop bit: Success\n"
              "Unsupported stop bit: Success\n");
    EXPECT_EQ(calls_.settings, 0);
    const termios after = settings();
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(cfgetospeed(&after), speed_t{B1800});
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SerialPortTest, ADeviceThatIsNotThereIsToldTwice)
{
    const std::string printed =
        errorsPrintedBy([&] { EXPECT_EQ(link().PortInit(path("/nowhere").c_str(), 9600), -1); });

    EXPECT_EQ(printed, "[rkb]open: No such file or directory\n");
    EXPECT_EQ(UartManageProbe::port(link()), -1);
    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] UARTManage::PortInit() baudrate = 9600",
                                         "INFO [rkb] PortInit(), UART Open failed!"));
}

TEST_F(SerialPortTest, AFileThatIsNoTerminalIsOpenedUnconfigured)
{
    writeFile("/media/file", "");

    const std::string printed = errorsPrintedBy([&] { fd = link().PortInit(path("/media/file").c_str(), 9600); });

    EXPECT_GE(fd, 0);
    EXPECT_EQ(printed, "tcgetattr: Inappropriate ioctl for device\n");
    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] UARTManage::PortInit() baudrate = 9600"));
}

TEST_F(SerialPortTest, WithoutAPortNothingIsConfigured)
{
    const std::string printed = errorsPrintedBy([&] { EXPECT_EQ(link().SetupSerial(115200, 8, 1, 'n'), 0); });

    EXPECT_EQ(printed, "tcgetattr: Bad file descriptor\n");
}

TEST_F(SerialPortTest, ADeviceThatRefusesTheSettingsIsTold)
{
    open();
    log.clear();
    calls_.attributeError = EIO;

    const std::string printed = errorsPrintedBy([&] { EXPECT_EQ(link().SetupSerial(115200, 8, 1, 'n'), 0); });

    EXPECT_EQ(printed, "UART set attribute error: Input/output error\n");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SerialPortTest, WhatArrivedBeforeItWasConfiguredIsDropped)
{
    peer.write({0x01, 0x02, 0x03});
    peer.waitUntilArrived(3);
    open();
    peer.write({0x04});
    peer.waitUntilArrived(1);

    unsigned char buffer[8] = {};
    EXPECT_EQ(link().UARTReadData(fd, buffer, sizeof buffer), 1);

    EXPECT_EQ(buffer[0], 0x04);
}

TEST_F(SerialPortTest, BytesPassAsTheyAreInBothDirections)
{
    std::vector<unsigned char> bytes;
    for (int byte = 0; byte <= 0xFF; ++byte)
        bytes.push_back(static_cast<unsigned char>(byte));
    makeCooked();
    open();

    EXPECT_EQ(link().UARTWriteData(fd, bytes.data(), 256), 256);
    EXPECT_EQ(peer.read(256), bytes);

    peer.write(bytes);
    peer.waitUntilArrived(256);
    std::vector<unsigned char> received(300);
    EXPECT_EQ(link().UARTReadData(fd, received.data(), 300), 256);
    received.resize(256);
    EXPECT_EQ(received, bytes);
}

TEST_F(SerialPortTest, AReadTakesNoMoreThanItIsAskedFor)
{
    open();
    peer.write({1, 2, 3, 4, 5});
    peer.waitUntilArrived(5);
    unsigned char buffer[8] = {};

    EXPECT_EQ(link().UARTReadData(fd, buffer, 2), 2);
    EXPECT_EQ(link().UARTReadData(fd, buffer + 2, 6), 3);

    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 4, 5, 0, 0, 0));
}

TEST_F(SerialPortTest, AReadWaitsTenSecondsForData)
{
    open();
    calls_.expireAtOnce = true;
    unsigned char buffer[8] = {};

    EXPECT_EQ(link().UARTReadData(fd, buffer, sizeof buffer), -1);

    EXPECT_EQ(calls_.selects, 1);
    EXPECT_EQ(calls_.timeoutSeconds, 10);
    EXPECT_EQ(calls_.timeoutMicroseconds, 0);
}

TEST_F(SerialPortTest, AWriteWaitsTenSecondsForRoom)
{
    open();
    calls_.expireAtOnce = true;
    std::vector<unsigned char> bytes(100'000, 0x55);

    // The terminal takes what it has room for, and says so.
    int taken = 0;
    int written = 0;
    while ((written = link().UARTWriteData(fd, bytes.data(), static_cast<int>(bytes.size()))) > 0) {
        ASSERT_LT(written, static_cast<int>(bytes.size()));
        taken += written;
    }

    EXPECT_GT(taken, 0);
    EXPECT_EQ(written, -1);
    EXPECT_EQ(calls_.timeoutSeconds, 10);
    EXPECT_THAT(log.lines(), Contains("INFO [rkb] UARTWriteData(), WaitEvent fail"));
}

TEST_F(SerialPortTest, AWaitThatASignalInterruptsIsNotTakenUpAgain)
{
    open();
    calls_.selectError = EINTR;
    unsigned char buffer[8] = {};

    EXPECT_EQ(link().UARTReadData(fd, buffer, sizeof buffer), -1);

    EXPECT_EQ(calls_.selects, 1);
    fd_set set;
    EXPECT_EQ(link().WaitEvent(&set, 0), 0);
}

TEST_F(SerialPortTest, WithoutADescriptorNothingIsReadOrWritten)
{
    open();
    unsigned char buffer[8] = {};

    EXPECT_EQ(link().UARTReadData(-1, buffer, sizeof buffer), -1);
    const std::string printed = printedBy([&] { EXPECT_EQ(link().UARTWriteData(-1, buffer, 8), -1); });

    EXPECT_EQ(printed, "UARTWriteData fd == -1\n");
    EXPECT_EQ(calls_.selects, 0);
}

TEST_F(SerialPortTest, TheWaitIsForThePortWhateverDescriptorIsRead)
{
    open();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "xy", 2), 2);
    unsigned char buffer[8] = {};

    calls_.expireAtOnce = true;
    EXPECT_EQ(link().UARTReadData(ends[0], buffer, sizeof buffer), -1);
    peer.write({0x01});
    peer.waitUntilArrived(1);
    EXPECT_EQ(link().UARTReadData(ends[0], buffer, sizeof buffer), 2);

    EXPECT_EQ(buffer[0], 'x');
    close(ends[0]);
    close(ends[1]);
}

TEST_F(SerialPortTest, AWaitNeedsASetAndAPort)
{
    fd_set set;
    const std::string printed = errorsPrintedBy([&] {
        errno = 0;
        EXPECT_EQ(link().WaitEvent(nullptr, 0), 0);
        errno = 0;
        EXPECT_EQ(link().WaitEvent(&set, 0), 0);
    });

    EXPECT_EQ(printed,
              "[rkb]WaitEvent: pset is NULL: Success\n"
              "[rkb]WaitEvent: fd == -1: Success\n");
    EXPECT_EQ(calls_.selects, 0);
}

TEST_F(SerialPortTest, ADescriptorBeyondTheSetCannotBeWaitedFor)
{
    fd_set set;
    UartManageProbe::port(link()) = FD_SETSIZE;

    errorsPrintedBy([&] { EXPECT_EQ(link().WaitEvent(&set, 0), 0); });

    EXPECT_EQ(calls_.selects, 0);
    UartManageProbe::port(link()) = -1;
}

TEST_F(SerialPortTest, AnUnknownDirectionIsLogged)
{
    open();
    log.clear();
    fd_set set;

    EXPECT_EQ(link().WaitEvent(&set, 2), 0);

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG [rkb] WaitEvent(), select direction is no right"));
    EXPECT_EQ(calls_.selects, 0);
}

TEST_F(SerialPortTest, AWaitSaysWhichDirectionIsReady)
{
    open();
    calls_.expireAtOnce = true;
    fd_set set;
    std::memset(&set, 0xFF, sizeof set);

    EXPECT_EQ(link().WaitEvent(&set, 0), 0);
    std::memset(&set, 0xFF, sizeof set);
    EXPECT_EQ(link().WaitEvent(&set, 1), 1);
    peer.write({0x01});
    peer.waitUntilArrived(1);
    EXPECT_EQ(link().WaitEvent(&set, 0), 1);
}

TEST_F(SerialPortTest, ClosingKeepsTheNumber)
{
    open();
    const int port = fd;
    fd = -1;

    EXPECT_EQ(link().UARTClose(port), 0);
    EXPECT_EQ(link().UARTClose(port), -1);

    EXPECT_EQ(UartManageProbe::port(link()), port);
}

}  // namespace
