// The persistent partition is full, read-only, or not what it should be.

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/faults/SmallDisk.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using wire::Bytes;
using wire::kModeOn;
using wire::kModeOnReply;
using Stream = ChildProcess::Stream;

// The factory serial number.
const Bytes kWriteSerial1{0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x02, 0x31, 0x00, 0xFF, 0xC0};  // 03+0A+02+31 = 0040
const Bytes kWriteSerial2{0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x02, 0x32, 0x00, 0xFF, 0xBF};  // 03+0A+02+32 = 0041
const Bytes kReadSerial{0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x03, 0xFF, 0xF1};                // 02+0A+03 = 000F
const Bytes kSerialIs1{0x2A, 0xA2, 0x00, 0x03, 0x8A, 0x03, 0x31, 0x00, 0xFF, 0x3F};     // 03+8A+03+31 = 00C1
const Bytes kSerialIs2{0x2A, 0xA2, 0x00, 0x03, 0x8A, 0x03, 0x32, 0x00, 0xFF, 0x3E};     // 03+8A+03+32 = 00C2

// The drawing code.
const Bytes kWriteCode1{0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x15, 0x31, 0x00, 0xFF, 0xAD};  // 03+0A+15+31 = 0053
const Bytes kReadCode{0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x16, 0xFF, 0xDE};                // 02+0A+16 = 0022
const Bytes kCodeIs1{0x2A, 0xA2, 0x00, 0x03, 0x8A, 0x16, 0x31, 0x00, 0xFF, 0x2C};     // 03+8A+16+31 = 00D4
const Bytes kCodeIsEmpty{0x2A, 0xA2, 0x00, 0x02, 0x8A, 0x16, 0xFF, 0x5E};             // 02+8A+16 = 00A2

// The Bluetooth address 0002F5A1B2C3.
// 0E+0A+10 = 0028; 30+30+30+32+46+35+41+31+42+32+43+33 = 0299; together 02C1
const Bytes kWriteAddress{0x2A, 0xA2, 0x00, 0x0E, 0x0A, 0x10, 0x30, 0x30, 0x30, 0x32,
                          0x46, 0x35, 0x41, 0x31, 0x42, 0x32, 0x43, 0x33, 0xFD, 0x3F};
const Bytes kAskAddress{0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x1A, 0xFF, 0xDA};                    // 02+0A+1A = 0026
const Bytes kAddressIsThere{0x2A, 0xA2, 0x00, 0x03, 0x8A, 0x1A, 0x01, 0x00, 0xFF, 0x58};    // 03+8A+1A+01 = 00A8
const Bytes kAddressIsMissing{0x2A, 0xA2, 0x00, 0x03, 0x8A, 0x1A, 0x00, 0x00, 0xFF, 0x59};  // 03+8A+1A = 00A7

class DiskFaultTest : public BenchTest
{
protected:
    ChildProcess& startInTestMode()
    {
        ChildProcess& service = startService();
        RawLine(link()).expectExchange(kModeOn, kModeOnReply);
        return service;
    }

    fs::path recordFile(const std::string& name) const { return root() / "perm_data/data/engineering" / name; }
    fs::path logFile() const { return root() / "perm_data/log/log_engineering.log"; }
    fs::path storeFile() const { return root() / "perm_data/data/bluetooth/PSConfig.psr"; }

    static std::string contentOf(const fs::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(DiskFaultTest, FullPartitionLosesWhatDoesNotFitAndNothingElse)
{
    SmallDisk disk(root(), 512 * 1024);
    if (disk.problem()) {
        GTEST_SKIP() << *disk.problem();
    }
    startInTestMode();
    RawLine line(link());
    line.write(kWriteSerial1);
    line.expectExchange(kReadSerial, kSerialIs1);
    line.write(kWriteAddress);
    line.expectExchange(kAskAddress, kAddressIsThere);
    const std::string store = contentOf(storeFile());
    fs::remove(recordFile("bt_mac_address_for_query"));
    fs::remove(root() / "media/backup.txt");

    disk.fill();
    line.write(kWriteCode1);
    line.expectExchange(kReadCode, kCodeIsEmpty);
    line.write(kWriteAddress);
    line.expectExchange(kReadSerial, kSerialIs1);
    EXPECT_EQ(contentOf(storeFile()), store);

    disk.free();
    line.write(kWriteCode1);
    line.expectExchange(kReadCode, kCodeIs1);
}

TEST_F(DiskFaultTest, RecordThatIsADeviceIsNotWrittenAndTheNextIs)
{
    startInTestMode();
    fs::create_symlink("/dev/full", recordFile("factory_serial_num"));
    RawLine line(link());

    line.write(kWriteSerial1);
    line.write(kWriteCode1);
    line.expectExchange(kReadCode, kCodeIs1);

    const std::string log = contentOf(logFile());
    EXPECT_THAT(log, HasSubstr("open " + recordFile("factory_serial_num").string() + " failed!"));
}

TEST_F(DiskFaultTest, LogOnAFullDeviceDoesNotKeepTheStationFromBeingServed)
{
    fs::create_directories(logFile().parent_path());
    fs::create_symlink("/dev/full", logFile());

    startInTestMode();

    RawLine line(link());
    for (int i = 0; i < 100; ++i) {
        line.expectExchange(kModeOn, kModeOnReply);
    }
}

TEST_F(DiskFaultTest, LogThatIsADirectoryIsSaidInOneLineAndTheStationServed)
{
    fs::create_directories(logFile());

    ChildProcess& service = startInTestMode();

    EXPECT_THAT(service.lines(Stream::kErr), ElementsAre(HasSubstr("no log: "), StartsWith("ready uart=")));
}

TEST_F(DiskFaultTest, PartitionThatIsReadOnlyFromTheStartIsReadAndServed)
{
    SmallDisk disk(root(), 512 * 1024);
    if (disk.problem()) {
        GTEST_SKIP() << *disk.problem();
    }
    ChildProcess& before = startInTestMode();
    {
        RawLine line(link());
        line.write(kWriteSerial1);
        line.expectExchange(kReadSerial, kSerialIs1);
        before.signal(SIGTERM);
        expectEnd(before, 0);
    }
    disk.makeReadOnly();

    ChildProcess& service = startInTestMode();

    EXPECT_THAT(service.lines(Stream::kErr), ElementsAre(HasSubstr("no log: "), StartsWith("ready uart=")));
    RawLine line(link());
    line.write(kWriteSerial2);
    line.expectExchange(kReadSerial, kSerialIs1);
    line.write(kWriteAddress);
    line.expectExchange(kAskAddress, kAddressIsMissing);
}

TEST_F(DiskFaultTest, PartitionThatBecomesReadOnlyKeepsItsRecordsAndIsServed)
{
    // Of the records alone: the kernel takes no partition back on which a file, the log, is open for writing.
    const auto records = root() / "perm_data/data";
    std::filesystem::create_directories(records);
    SmallDisk disk(records, 512 * 1024);
    if (disk.problem()) {
        GTEST_SKIP() << *disk.problem();
    }
    startInTestMode();
    RawLine line(link());
    line.write(kWriteSerial1);
    line.expectExchange(kReadSerial, kSerialIs1);

    disk.makeReadOnly();

    line.write(kWriteSerial2);
    line.expectExchange(kReadSerial, kSerialIs1);
    line.write(kWriteAddress);
    line.expectExchange(kAskAddress, kAddressIsMissing);
}

TEST_F(DiskFaultTest, SyncThatFailsIsOneErrorLineAndTheRecordIsThere)
{
    startInTestMode();
    BusClient middleware(bus().address());
    ASSERT_EQ(middleware.callHeadUnit("SetState", R"(('/system/failing_commands', '["sync"]'))"), "()");
    RawLine line(link());

    line.write(kWriteSerial2);
    line.expectExchange(kReadSerial, kSerialIs2);

    const std::string log = contentOf(logFile());
    EXPECT_THAT(log, HasSubstr("sync error)"));
    EXPECT_EQ(log.find("sync error)"), log.rfind("sync error)"));
}

TEST_F(DiskFaultTest, RecordPathThatIsADirectoryIsNeitherReadNorWrittenAndTheOthersAre)
{
    startInTestMode();
    fs::create_directories(recordFile("drawing_code") / "inside");
    RawLine line(link());

    line.write(kWriteCode1);
    line.expectExchange(kReadCode, kCodeIsEmpty);
    line.write(kWriteSerial1);
    line.expectExchange(kReadSerial, kSerialIs1);

    EXPECT_TRUE(fs::is_directory(recordFile("drawing_code") / "inside"));
}

}  // namespace
}  // namespace tests
