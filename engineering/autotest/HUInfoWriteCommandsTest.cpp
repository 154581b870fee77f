#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/engine/FileSizeLimit.h"
#include "tests/support/EngineTest.h"
#include "tests/support/TempDir.h"
#include "tests/support/Text.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;

constexpr const char* kSync = R"(system Execute ["sync"])";
constexpr const char* kDirectory = "/perm_data/data/engineering/";

/// One record as the station and the service engineer know it.
struct Record {
    std::string name;
    std::uint8_t write;
    std::uint8_t read;
    std::string file;
    std::string savedWord;        // begins the writer's line of the value
    std::string saveFailure;      // begins the writer's line of the failure
    std::string feedBackWord;     // begins the reader's line of the value
    std::string feedBackFailure;  // begins the reader's line of the failure
    std::uint8_t missing;         // the code of the reply when it cannot be read
};

std::ostream& operator<<(std::ostream& out, const Record& record)
{
    return out << record.name;
}

std::string recordName(const testing::TestParamInfo<Record>& info)
{
    return info.param.name;
}

class RecordTest : public EngineTest, public testing::WithParamInterface<Record>
{
public:
    RecordTest() : file(kDirectory + GetParam().file) { startInTestMode(); }

    bool isSeparated() const { return GetParam().file == "cp_mac_address"; }

    void write(const Bytes& value) { station.sendCommand(0x0A, GetParam().write, value); }
    void write(const std::string& value) { write(Bytes(value.begin(), value.end())); }

    std::vector<std::string> answerToRead()
    {
        station.clear();
        station.sendCommand(0x0A, GetParam().read);
        return station.replies();
    }

    std::string reply(const std::string& value)
    {
        return frameText(0x8A, GetParam().read, Bytes(value.begin(), value.end()));
    }
    std::string failureReply() { return frameText(0x8A, GetParam().missing, {}); }

    const std::string file;
};

INSTANTIATE_TEST_SUITE_P(
    Identity, RecordTest,
    testing::Values(Record{"FactorySerial", 0x02, 0x03, "factory_serial_num",
                           "DEBUG [SaveFactorySerialNum] str_SN = ", "INFO [SaveFactorySerialNum] open ",
                           "DEBUG [FeedBackFactorySerialNum] str_SN = ", "INFO [FeedBackFactorySerialNum] open ", 0x03},
                    Record{"ProductionDate", 0x04, 0x05, "production_date",
                           "DEBUG [SaveProductionDate] str_SN = ", "INFO [SaveProductionDate] open ",
                           "DEBUG [FeedBackProductionDate] str_SN = ", "INFO [FeedBackProductionDate] open ", 0x05},
                    // Read under the factory serial's tag.
                    Record{"PasswordNumber", 0x0E, 0x0F, "password_num",
                           "DEBUG [SavePasswordNum] str_PN = ", "INFO [SavePasswordNum] open ",
                           "DEBUG [FeedBackFactorySerialNum] str_PN = ", "INFO [FeedBackFactorySerialNum] open ", 0x0F},
                    // Missing under the password's code.
                    Record{"CarPlayMac", 0x11, 0x12, "cp_mac_address",
                           "DEBUG [SaveCarPlayMacAddress] str_PN = ", "INFO [SaveCarPlayMacAddress] open ",
                           "DEBUG [FeedBackCarPlayMacAddress] str_PN = ", "INFO [FeedBackCarPlayMacAddress] open ",
                           0x0F},
                    Record{"HeadUnitSerial", 0x13, 0x14, "hu_serial_num",
                           "DEBUG [SaveHUSerialNum] str_SN = ", "INFO [SaveHUSerialNum] open ",
                           "DEBUG [FeedBackHUSerialNum] str_SN = ", "INFO [FeedBackHUSerialNum] open ", 0x14},
                    Record{"DrawingCode", 0x15, 0x16, "drawing_code",
                           "DEBUG [SaveDrawingCode] str_SN = ", "INFO [SaveDrawingCode] open ",
                           "DEBUG [FeedBackDrawingCode] str_SN = ", "INFO [FeedBackDrawingCode] open ", 0x16}),
    recordName);

TEST_P(RecordTest, IsStoredWithoutLineEndAndNotAnswered)
{
    write("S");

    EXPECT_EQ(content(file), "S");
    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_THAT(hmi.requests(), IsEmpty());
}

TEST_P(RecordTest, IsReadBackAsItWasWritten)
{
    for (const std::size_t length : {0U, 1U, 2U, 3U, 12U, 245U, 246U}) {
        const std::string value = std::string("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ").substr(0, length) +
                                  std::string(length > 36 ? length - 36 : 0, 'z');
        ASSERT_EQ(value.size(), length);

        write(value);

        if (!isSeparated()) {
            EXPECT_EQ(content(file), value);
        }
        EXPECT_THAT(answerToRead(), ElementsAre(reply(value)));
    }
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_P(RecordTest, OfMoreThanAFrameIsStoredButItsReadingIsRefusedWithItsLength)
{
    write(std::string(252, 'a'));

    // CarPlay: a separator behind each pair but the last.
    EXPECT_EQ(content(file).size(), isSeparated() ? 377U : 252U);
    EXPECT_THAT(answerToRead(), IsEmpty());
    EXPECT_THAT(log.errors(), ElementsAre(HasSubstr("not sent: 252 parameter bytes make a frame of 260, 255 fit")));
}

TEST_P(RecordTest, KeepsZerosAndHighBytes)
{
    write(Bytes{0x00, 0xFF, 0x41, 0x00});

    const std::string plain("\x00\xFF\x41\x00", 4);
    const std::string separated("\x00\xFF:\x41\x00", 5);
    EXPECT_EQ(content(file), isSeparated() ? separated : plain);
    EXPECT_THAT(answerToRead(), ElementsAre(frameText(0x8A, GetParam().read, {0x00, 0xFF, 0x41, 0x00})));
}

TEST_P(RecordTest, IsReadFromItsLastLineEndOn)
{
    write(Bytes{0x41, 0x0A, 0x42, 0x43});

    EXPECT_EQ(content(file), isSeparated() ? "A\n:BC" : "A\nBC");
    EXPECT_THAT(answerToRead(), ElementsAre(reply("BC")));
}

TEST_P(RecordTest, ThatEndsInALineEndIsReadAsEmpty)
{
    writeFile(file, "SN123\n");

    EXPECT_THAT(answerToRead(), ElementsAre(reply("")));
}

TEST_P(RecordTest, IsReplacedByALaterWrite)
{
    write("longer than the next");
    write("XY");

    EXPECT_EQ(content(file), "XY");
}

TEST_P(RecordTest, IsMadeForItsOwnerAndGroupOnly)
{
    const tests::Umask none(0);

    write("12");

    EXPECT_EQ(fs::status(path(file)).permissions(),
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
}

TEST_P(RecordTest, KeepsTheModeThatSomebodyGaveIt)
{
    writeFile(file, "1");
    fs::permissions(path(file), fs::perms::owner_read | fs::perms::owner_write);

    write("12");

    EXPECT_EQ(fs::status(path(file)).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_P(RecordTest, WithoutACharacterIsAnEmptyFile)
{
    write("something");
    write("");

    EXPECT_TRUE(fs::exists(path(file)));
    EXPECT_EQ(content(file), "");
    EXPECT_THAT(answerToRead(), ElementsAre(reply("")));
}

TEST_P(RecordTest, IsSyncedOnceItIsWrittenAndBeforeTheNextFrame)
{
    std::string contentAtSync;
    unit.calls().additions().add([&](const bench::Call& call) {
        if (callText(call) == kSync)
            contentAtSync = content(file);
    });

    write("12");

    EXPECT_EQ(contentAtSync, "12");
    EXPECT_THAT(calls(), ElementsAre(kSync));
}

TEST_P(RecordTest, ThatIsReadIsNotSynced)
{
    write("12");
    forget();

    answerToRead();

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_P(RecordTest, LeavesItsValueInTheLog)
{
    write("A");
    answerToRead();

    EXPECT_THAT(log.lines(), Contains(GetParam().savedWord + "A"));
    EXPECT_THAT(log.lines(), Contains(GetParam().feedBackWord + "A"));
}

TEST_P(RecordTest, ThatCannotBeSyncedStaysAndLeavesOneErrorLine)
{
    set("/system/failing_commands", {"sync"});

    write("12");

    EXPECT_EQ(content(file), "12");
    EXPECT_THAT(log.errors(), ElementsAre("ERROR sync error)\n"));
}

TEST_P(RecordTest, ThatIsMissingIsAnEmptyReplyAndLogged)
{
    EXPECT_THAT(answerToRead(), ElementsAre(failureReply()));

    EXPECT_THAT(log.lines(), Contains(GetParam().feedBackFailure + path(file) + " failed!"));
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr(GetParam().feedBackWord))));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_P(RecordTest, ThatIsADirectoryCannotBeRead)
{
    fs::create_directory(path(file));

    EXPECT_THAT(answerToRead(), ElementsAre(failureReply()));

    EXPECT_THAT(log.lines(), Contains(GetParam().feedBackFailure + path(file) + " failed!"));
}

TEST_P(RecordTest, ThatIsADirectoryCannotBeWritten)
{
    fs::create_directory(path(file));

    write("12");

    EXPECT_TRUE(fs::is_directory(path(file)));
    EXPECT_THAT(log.lines(), Contains(GetParam().savedWord + "12"));
    EXPECT_THAT(log.lines(), Contains(GetParam().saveFailure + path(file) + " failed!"));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(station.replies(), IsEmpty());
}

TEST_P(RecordTest, ThatIsAPipeIsNeitherReadNorWrittenAndDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path(file).c_str(), 0600), 0);

    write("12");

    EXPECT_THAT(log.lines(), Contains(GetParam().saveFailure + path(file) + " failed!"));
    EXPECT_THAT(answerToRead(), ElementsAre(failureReply()));
    EXPECT_THAT(log.lines(), Contains(GetParam().feedBackFailure + path(file) + " failed!"));
}

TEST_P(RecordTest, ThatIsAPipeWithAReaderGetsNothing)
{
    ASSERT_EQ(mkfifo(path(file).c_str(), 0600), 0);
    std::fstream pipe(path(file));

    write("12");

    EXPECT_THAT(log.lines(), Contains(GetParam().saveFailure + path(file) + " failed!"));
    pipe << "mine" << std::endl;
    std::string strFirst;
    std::getline(pipe, strFirst);
    EXPECT_EQ(strFirst, "mine");
}

TEST_P(RecordTest, OfUpTo4096BytesIsRead)
{
    writeFile(file, std::string(4093, 'x') + "\n12");

    EXPECT_THAT(answerToRead(), ElementsAre(reply("12")));
}

TEST_P(RecordTest, OfMoreThan4096BytesIsNotSentAndLeavesOneErrorLine)
{
    writeFile(file, std::string(4094, 'x') + "\n12");

    EXPECT_THAT(answerToRead(), IsEmpty());

    EXPECT_THAT(log.errors(), ElementsAre("ERROR " + path(file) + " not read: it is longer than 4096 bytes"));
}

TEST_P(RecordTest, WithoutItsDirectoryIsNeitherWrittenNorRead)
{
    fs::remove_all(path(kDirectory));
    writeFile("/perm_data/data/engineering", "a file where the directory must be");

    write("12");

    EXPECT_THAT(log.lines(), Contains(GetParam().saveFailure + path(file) + " failed!"));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(answerToRead(), ElementsAre(failureReply()));
}

TEST_P(RecordTest, OnAFullDiskIsCutAndLeavesOneErrorLine)
{
    write("old");
    forget();
    {
        const FileSizeLimit full(1);
        write("12");
    }

    EXPECT_EQ(content(file), "1");
    EXPECT_THAT(log.errors(), ElementsAre("ERROR " + path(file) + " not written completely"));
    EXPECT_THAT(station.replies(), IsEmpty());
}

class IdentityTest : public EngineTest
{
public:
    std::vector<std::string> answerTo(std::uint8_t command, const Bytes& params = {})
    {
        station.clear();
        station.sendCommand(0x0A, command, params);
        return station.replies();
    }

    static Bytes bytes(const std::string& text) { return {text.begin(), text.end()}; }
};

TEST_F(IdentityTest, UnknownCommandsAreNotLogged)
{
    startInTestMode();
    for (const std::uint8_t code : {0x06, 0x17, 0x1C}) {
        log.clear();

        EXPECT_THAT(answerTo(code, {1}), IsEmpty());

        // What every frame leaves, and no more.
        EXPECT_THAT(log.lines(), SizeIs(6)) << int{code};
    }
}

TEST_F(IdentityTest, TheFactorySerialIsReadBackByteForByte)
{
    startInTestMode();

    station.sendCommand(0x0A, 0x02, {0x53, 0x4E, 0x31, 0x32, 0x33});

    EXPECT_EQ(content("/perm_data/data/engineering/factory_serial_num"), "SN123");
    EXPECT_THAT(answerTo(0x03), ElementsAre("8A 03 [53 4E 31 32 33]"));
}

TEST_F(IdentityTest, ParametersOfAReaderAreIgnored)
{
    startInTestMode();
    station.sendCommand(0x0A, 0x02, {0x53});

    EXPECT_THAT(answerTo(0x03, {0x01, 0x02}), ElementsAre("8A 03 [53]"));
}

TEST_F(IdentityTest, TheRecordsDoNotMix)
{
    startInTestMode();
    station.sendCommand(0x0A, 0x02, {0x01});
    station.sendCommand(0x0A, 0x04, {0x02});
    station.sendCommand(0x0A, 0x0E, {0x03});
    station.sendCommand(0x0A, 0x11, {0x04});
    station.sendCommand(0x0A, 0x13, {0x05});
    station.sendCommand(0x0A, 0x15, {0x06});

    EXPECT_THAT(answerTo(0x03), ElementsAre("8A 03 [01]"));
    EXPECT_THAT(answerTo(0x05), ElementsAre("8A 05 [02]"));
    EXPECT_THAT(answerTo(0x0F), ElementsAre("8A 0F [03]"));
    EXPECT_THAT(answerTo(0x12), ElementsAre("8A 12 [04]"));
    EXPECT_THAT(answerTo(0x14), ElementsAre("8A 14 [05]"));
    EXPECT_THAT(answerTo(0x16), ElementsAre("8A 16 [06]"));
}

TEST_F(IdentityTest, TheCarPlayMacIsStoredWithSeparatorsAndReadWithout)
{
    startInTestMode();
    const std::pair<const char*, const char*> values[] = {
        {"001122334455", "00:11:22:33:44:55"}, {"ABC", "AB:C"}, {"AB", "AB"}, {"A", "A"}, {"ABCD", "AB:CD"}, {"", ""},
    };
    for (const auto& [sent, stored] : values) {
        station.sendCommand(0x0A, 0x11, bytes(sent));

        EXPECT_EQ(content("/perm_data/data/engineering/cp_mac_address"), stored);
        EXPECT_THAT(answerTo(0x12), ElementsAre(frameText(0x8A, 0x12, bytes(sent))));
    }
}

TEST_F(IdentityTest, TheCarPlayMacIsLoggedAsItIsStored)
{
    startInTestMode();

    station.sendCommand(0x0A, 0x11, bytes("ABCD"));
    answerTo(0x12);

    EXPECT_THAT(log.lines(), Contains("DEBUG [SaveCarPlayMacAddress] str_PN = AB:CD"));
    EXPECT_THAT(log.lines(), Contains("DEBUG [FeedBackCarPlayMacAddress] str_PN = AB:CD"));
}

TEST_F(IdentityTest, EverySeparatorIsLeftOutOfTheCarPlayMac)
{
    startInTestMode();

    station.sendCommand(0x0A, 0x11, bytes("A:B"));

    EXPECT_EQ(content("/perm_data/data/engineering/cp_mac_address"), "A::B");
    EXPECT_THAT(answerTo(0x12), ElementsAre("8A 12 [41 42]"));
}

TEST_F(IdentityTest, AMissingCarPlayMacIsAnsweredUnderThePasswordsCode)
{
    startInTestMode();

    EXPECT_THAT(answerTo(0x12), ElementsAre("8A 0F []"));
    EXPECT_THAT(answerTo(0x1B), ElementsAre("8A 1B [00]"));
}

TEST_F(IdentityTest, AMissingPasswordIsLoggedUnderTheFactorySerialsTag)
{
    startInTestMode();

    EXPECT_THAT(answerTo(0x0F), ElementsAre("8A 0F []"));

    EXPECT_THAT(log.lines(), Contains("INFO [FeedBackFactorySerialNum] open " +
                                      path("/perm_data/data/engineering/password_num") + " failed!"));
}

TEST_F(IdentityTest, PresenceIsOfTheFileAloneWhateverItHolds)
{
    const std::pair<std::uint8_t, const char*> queries[] = {
        {0x1A, "/perm_data/data/engineering/bt_mac_address_for_query"},
        {0x1B, "/perm_data/data/engineering/cp_mac_address"},
    };
    startInTestMode();
    for (const auto& [code, file] : queries) {
        EXPECT_THAT(answerTo(code), ElementsAre(frameText(0x8A, code, {0x00})));
        writeFile(file, "");
        EXPECT_THAT(answerTo(code, {0x55}), ElementsAre(frameText(0x8A, code, {0x01})));
        fs::remove(path(file));
        fs::create_directory(path(file));
        EXPECT_THAT(answerTo(code), ElementsAre(frameText(0x8A, code, {0x01})));
        fs::remove(path(file));
        fs::create_symlink("nowhere", path(file));
        EXPECT_THAT(answerTo(code), ElementsAre(frameText(0x8A, code, {0x00})));
    }
}

TEST_F(IdentityTest, WhereTheDirectoryCouldNotBeMadeNothingIsStored)
{
    set("/system/failing_commands", {"mkdir"});
    startInTestMode();

    station.sendCommand(0x0A, 0x11, bytes("001122334455"));

    EXPECT_THAT(log.lines(), Contains("INFO [SaveCarPlayMacAddress] open " +
                                      path("/perm_data/data/engineering/cp_mac_address") + " failed!"));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(answerTo(0x1B), ElementsAre("8A 1B [00]"));
    EXPECT_THAT(answerTo(0x12), ElementsAre("8A 0F []"));
}

TEST_F(IdentityTest, AWriterOfFewerThanNoCharactersStoresNone)
{
    startInTestMode();
    const unsigned char character = 'x';

    engine().SaveDrawingCode(&character, -1);

    EXPECT_TRUE(fs::exists(path("/perm_data/data/engineering/drawing_code")));
    EXPECT_EQ(content("/perm_data/data/engineering/drawing_code"), "");
}

}  // namespace
