#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/runtime/Root.h"
#include "tests/support/EngineTest.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kName = "/perm_data/data/bluetooth/btname";
constexpr const char* kStore = "/perm_data/data/bluetooth/PSConfig.psr";
constexpr const char* kDefaultStore = "/kyr/etc/bluetooth/bin/PSConfig.psr";
constexpr const char* kQueryCopy = "/perm_data/data/engineering/bt_mac_address_for_query";
constexpr const char* kBackup = "/media/backup.txt";

constexpr const char* kSync = R"(system Execute ["sync"])";
constexpr const char* kCopy = R"(system Execute ["cp /kyr/etc/bluetooth/bin/PSConfig.psr /perm_data/data/bluetooth/"])";
constexpr const char* kRemoveName = R"(system RemoveFile ["/perm_data/data/bluetooth/btname"])";

class BtAddressTest : public EngineTest
{
public:
    BtAddressTest() { writeFile(kDefaultStore, "// default\n&0001 = 0000 0000 0000 0000\n&0021 = 0004\n"); }

    /// In test mode with a store of its own.
    void startWithStore(const std::string& store = "// keys\n&0001 = 0000 0000 0000 0000\n&01f6 = 0014\n")
    {
        writeFile(kStore, store);
        startInTestMode();
    }

    void provision(const std::string& address) { station.sendCommand(0x0A, 0x10, {address.begin(), address.end()}); }

    std::vector<std::string> answerToPresence()
    {
        station.clear();
        station.sendCommand(0x0A, 0x1A);
        return station.replies();
    }
};

TEST_F(BtAddressTest, StandsInLine2OfTheStoreInTheControllersOrder)
{
    startWithStore();

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kStore), "// keys\n&0001 = 00A1 B2C3 00F5 0002\n&01f6 = 0014\n");
    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_THAT(calls(), ElementsAre(kSync));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(BtAddressTest, EachCharacterHasItsPlace)
{
    startWithStore();

    provision("0123456789ab");

    EXPECT_EQ(content(kStore), "// keys\n&0001 = 0067 89ab 0045 0123\n&01f6 = 0014\n");
}

TEST_F(BtAddressTest, TheQueryCopyIsTheLineWithoutItsEnd)
{
    startWithStore();
    EXPECT_THAT(answerToPresence(), ElementsAre("8A 1A [00]"));

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
    EXPECT_THAT(answerToPresence(), ElementsAre("8A 1A [01]"));
}

TEST_F(BtAddressTest, TheQueryCopyAndTheBackupAreMadeForOwnerAndGroupOnlyAndTheStoreKeepsItsMode)
{
    const tests::Umask none(0);
    startWithStore();
    fs::permissions(path(kStore), fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);

    provision("0002F5A1B2C3");

    constexpr fs::perms kOwnerAndGroup = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    EXPECT_EQ(fs::status(path(kQueryCopy)).permissions(), kOwnerAndGroup);
    EXPECT_EQ(fs::status(path(kBackup)).permissions(), kOwnerAndGroup);
    EXPECT_EQ(fs::status(path(kStore)).permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
}

TEST_F(BtAddressTest, TheLogTellsTheAddressAndTheLine)
{
    startWithStore();

    provision("0002F5A1B2C3");

    EXPECT_THAT(log.lines(), Contains("INFO [rkb][SaveBtMacAddress], str_MAC = 0002F5A1B2C3 "));
    EXPECT_THAT(log.lines(), Contains("INFO [rkb][SaveBtMacAddress] write_contents = &0001 = 00A1 B2C3 00F5 0002"));
}

TEST_F(BtAddressTest, AMissingStoreIsCopiedFromTheDefaultFirst)
{
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kStore), "// default\n&0001 = 00A1 B2C3 00F5 0002\n&0021 = 0004\n");
    EXPECT_EQ(content(kDefaultStore), "// default\n&0001 = 0000 0000 0000 0000\n&0021 = 0004\n");
    EXPECT_THAT(log.lines(), Contains("INFO [SaveBtMacAddress] open " + path(kStore) + " failed!"));
    EXPECT_THAT(calls(), ElementsAre(kCopy, kSync, kSync));
}

TEST_F(BtAddressTest, TheStepsComeInTheirOrder)
{
    writeFile(kName, "old name");
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_THAT(calls(), ElementsAre(kRemoveName, kSync, kCopy, kSync, kSync));
}

TEST_F(BtAddressTest, AStaleNameIsRemoved)
{
    writeFile(kName, "old name");
    startWithStore();

    provision("0002F5A1B2C3");

    EXPECT_FALSE(fs::exists(path(kName)));
    EXPECT_THAT(calls(), ElementsAre(kRemoveName, kSync, kSync));
}

TEST_F(BtAddressTest, ANameThatCannotBeRemovedIsLoggedAndTheAddressIsWritten)
{
    writeFile(kName, "old name");
    set("/system/failing_removals", {kName});
    startWithStore();

    provision("0002F5A1B2C3");

    EXPECT_TRUE(fs::exists(path(kName)));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR KYR_RemoveFile /perm_data/data/bluetooth/btname)\n"));
    EXPECT_THAT(calls(), ElementsAre(kRemoveName, kSync, kSync));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AFailedSyncIsLoggedEachTimeAndUndoesNothing)
{
    writeFile(kName, "old name");
    set("/system/failing_commands", {"sync"});
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR sync error)\n", "ERROR sync error)\n", "ERROR sync error)\n"));
    EXPECT_EQ(content(kStore), "// default\n&0001 = 00A1 B2C3 00F5 0002\n&0021 = 0004\n");
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AFailedCopyOfTheDefaultIsLoggedAndTheQueryCopyIsStillWritten)
{
    set("/system/failing_commands", {"cp "});
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR KYR_ExecSystemCmd(cp /kyr/etc/bluetooth/bin/PSConfig.psr "
                                          "/perm_data/data/bluetooth/) error\n"));
    EXPECT_THAT(calls(), ElementsAre(kCopy, kSync, kSync));
    EXPECT_FALSE(fs::exists(path(kStore)));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AMissingDefaultIsLoggedTheSameWay)
{
    fs::remove(path(kDefaultStore));
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR KYR_ExecSystemCmd(cp /kyr/etc/bluetooth/bin/PSConfig.psr "
                                          "/perm_data/data/bluetooth/) error\n"));
    EXPECT_THAT(log.lines(), Contains("INFO [rkb] ResetLineContents, Exceeded the range of configuration file lines!"));
}

TEST_F(BtAddressTest, AStoreOfOneLineIsLeftAndTheQueryCopyIsStillWritten)
{
    startWithStore("// keys\n");

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kStore), "// keys\n");
    EXPECT_THAT(log.lines(), Contains("INFO [rkb] ResetLineContents, Exceeded the range of configuration file lines!"));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AStoreOfTwoLinesWithoutEndGetsOne)
{
    startWithStore("// keys\n&0001 = 0000 0000 0000 0000");

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kStore), "// keys\n&0001 = 00A1 B2C3 00F5 0002\n");
}

TEST_F(BtAddressTest, AStoreThatIsADirectoryIsLeftAndTheQueryCopyIsStillWritten)
{
    fs::create_directory(path(kStore));
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_TRUE(fs::is_directory(path(kStore)));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AStoreThatIsAPipeStaysAsItIsAndDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path(kStore).c_str(), 0600), 0);
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_TRUE(fs::is_fifo(path(kStore)));
    EXPECT_THAT(calls(), ElementsAre(kSync));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR [SaveBtMacAddress] " + path(kStore) +
                                          " is not a regular file, it is left as it is"));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AStoreOfMoreThanOneMebibyteIsLeftWithOneErrorLine)
{
    const std::string store = "// keys\n&0001 = 0000 0000 0000 0000\n" + std::string(1 << 20, 'x');
    startWithStore(store);

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kStore), store);
    EXPECT_FALSE(fs::exists(path(kBackup)));
    EXPECT_THAT(log.errors(), testing::SizeIs(1));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, AStaleNameThatIsAPipeStaysAndDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path(kName).c_str(), 0600), 0);
    startWithStore();

    provision("0002F5A1B2C3");

    EXPECT_TRUE(fs::is_fifo(path(kName)));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, WithoutABackupTheStoreIsLeftAndTheQueryCopyIsStillWritten)
{
    fs::create_directory(path(kBackup));
    startWithStore();

    provision("0002F5A1B2C3");

    EXPECT_EQ(content(kStore), "// keys\n&0001 = 0000 0000 0000 0000\n&01f6 = 0014\n");
    EXPECT_THAT(log.errors(), ElementsAre("ERROR ResetLineContents, no backup " + path(kBackup) + ", " + path(kStore) +
                                          " left as it is"));
    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, SentTwiceItReplacesLine2AgainAndNothingElse)
{
    startWithStore();

    provision("0002F5A1B2C3");
    provision("112233445566");

    EXPECT_EQ(content(kStore), "// keys\n&0001 = 0044 5566 0033 1122\n&01f6 = 0014\n");
    EXPECT_EQ(content(kQueryCopy), "&0001 = 0044 5566 0033 1122");
    EXPECT_EQ(content(kBackup), "// keys\n&0001 = 00A1 B2C3 00F5 0002\n&01f6 = 0014\n");
}

TEST_F(BtAddressTest, AQueryCopyThatCannotBeOpenedEndsItWithAnErrorLine)
{
    startWithStore();
    fs::create_directory(path(kQueryCopy));

    provision("0002F5A1B2C3");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR SaveBtMacAddress, creat or open " + path(kQueryCopy) + " failed!"));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(content(kStore), "// keys\n&0001 = 00A1 B2C3 00F5 0002\n&01f6 = 0014\n");
}

TEST_F(BtAddressTest, OfFewerThanTwelveCharactersIsRefusedBeforeAnyFileIsTouched)
{
    writeFile(kName, "old name");
    startWithStore();

    provision("");
    provision("0");
    provision("0002F5A1B2C");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR [SaveBtMacAddress] address: expected 12 characters, got 0",
                                          "ERROR [SaveBtMacAddress] address: expected 12 characters, got 1",
                                          "ERROR [SaveBtMacAddress] address: expected 12 characters, got 11"));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(content(kStore), "// keys\n&0001 = 0000 0000 0000 0000\n&01f6 = 0014\n");
    EXPECT_TRUE(fs::exists(path(kName)));
    EXPECT_FALSE(fs::exists(path(kQueryCopy)));
    EXPECT_FALSE(fs::exists(path(kBackup)));
}

TEST_F(BtAddressTest, WithAControlCharacterIsRefusedBeforeAnyFileIsTouched)
{
    writeFile(kName, "old name");
    startWithStore();

    for (const char c : {'\0', '\n', '\r', '\x1F', '\x7F'}) {
        log.clear();

        provision(std::string("0002F5A1B2C") + c);
        provision(c + std::string("002F5A1B2C3"));

        const char* const refusal =
            "ERROR [SaveBtMacAddress] the address contains a control character, nothing is written";
        EXPECT_THAT(log.errors(), ElementsAre(refusal, refusal));
    }
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(content(kStore), "// keys\n&0001 = 0000 0000 0000 0000\n&01f6 = 0014\n");
    EXPECT_TRUE(fs::exists(path(kName)));
    EXPECT_FALSE(fs::exists(path(kQueryCopy)));
}

TEST_F(BtAddressTest, WithAControlCharacterBehindTheFirstTwelveIsWritten)
{
    startWithStore();

    provision("0002F5A1B2C3\n");

    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
}

TEST_F(BtAddressTest, OfMoreThanTwelveCharactersIsItsFirstTwelve)
{
    startWithStore();

    provision("0002F5A1B2C3D4");

    EXPECT_EQ(content(kQueryCopy), "&0001 = 00A1 B2C3 00F5 0002");
    EXPECT_THAT(log.lines(), Contains("INFO [rkb][SaveBtMacAddress], str_MAC = 0002F5A1B2C3D4 "));
}

TEST_F(BtAddressTest, CharactersAreTakenAsTheyCome)
{
    startWithStore();

    provision("g ijklmnop~r");

    EXPECT_EQ(content(kQueryCopy), "&0001 = 00mn op~r 00kl g ij");
}

TEST_F(BtAddressTest, ARootThatTheShellWouldTakeApartIsQuoted)
{
    const std::string strange = root.path().string() + "/a 'b' $c;d";
    fs::create_directories(strange);
    runtime::setRoot(strange);
    ASSERT_TRUE(runtime::makeHeadUnitDirectories(strange));
    startInTestMode();

    provision("0002F5A1B2C3");

    EXPECT_THAT(calls(), ElementsAre(kCopy, kSync, kSync));
    EXPECT_TRUE(fs::exists(strange + kStore));
    EXPECT_TRUE(fs::exists(strange + kQueryCopy));
    EXPECT_THAT(log.errors(), IsEmpty());
}

}  // namespace
