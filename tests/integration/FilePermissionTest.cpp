// Who may read and write what the service makes, whatever umask it was started with.

#include <gmock/gmock.h>

#include <map>

#include "tests/integration/BenchTest.h"
#include "tests/support/TempDir.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using testing::Pair;
using testing::UnorderedElementsAre;
using wire::kModeOn;
using wire::kModeOnReply;

class FilePermissionTest : public BenchTest
{
protected:
    /// Starts the service, and has the factory serial number and the Bluetooth address written.
    void provision()
    {
        startService();
        RawLine line(link());
        line.expectExchange(kModeOn, kModeOnReply);
        line.write({0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x02, 0x31, 0x00, 0xFF, 0xC0});
        line.write({0x2A, 0xA2, 0x00, 0x0E, 0x0A, 0x10, 0x30, 0x30, 0x30, 0x32,
                    0x46, 0x35, 0x41, 0x31, 0x42, 0x32, 0x43, 0x33, 0xFD, 0x3F});
        line.expectExchange(kModeOn, kModeOnReply);
    }

    /// @returns the mode of each file and directory below the root.
    std::map<std::string, unsigned> modes() const
    {
        std::map<std::string, unsigned> modes;
        for (const auto& entry : fs::recursive_directory_iterator(root())) {
            modes[entry.path().lexically_relative(root()).string()] =
                static_cast<unsigned>(entry.status().permissions());
        }
        return modes;
    }
};

TEST_F(FilePermissionTest, OnlyOwnerAndGroupMayReadAndOnlyTheOwnerMayWrite)
{
    const Umask none(0);

    provision();

    EXPECT_THAT(
        modes(),
        UnorderedElementsAre(
            Pair("kyr", 0750), Pair("kyr/etc", 0750), Pair("kyr/etc/bluetooth", 0750),
            Pair("kyr/etc/bluetooth/bin", 0750), Pair("kyr/etc/bluetooth/bin/PSConfig.psr", 0640), Pair("media", 0750),
            Pair("media/backup.txt", 0640), Pair("perm_data", 0750), Pair("perm_data/data", 0750),
            Pair("perm_data/data/bluetooth", 0750), Pair("perm_data/data/bluetooth/PSConfig.psr", 0640),
            Pair("perm_data/data/engineering", 0750), Pair("perm_data/data/engineering/factory_serial_num", 0640),
            Pair("perm_data/data/engineering/bt_mac_address_for_query", 0640), Pair("perm_data/log", 0750),
            Pair("perm_data/log/log_engineering.log", 0600)));
    EXPECT_EQ(fs::status(link()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(link().parent_path()).permissions(), fs::perms::owner_all);
}

TEST_F(FilePermissionTest, AStricterUmaskHolds)
{
    const Umask strict(0077);

    provision();

    for (const auto& [name, mode] : modes()) {
        EXPECT_EQ(mode & 0077u, 0u) << name;
    }
}

}  // namespace
}  // namespace tests
