#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/EngineTest.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kRemoveLogs = R"(system RemoveFile ["/perm_data/log/log_engineering*"])";
constexpr const char* kSync = R"(system Execute ["sync"])";
constexpr const char* kNotice = "86 13 [01]";
constexpr const char* kLogs = "/perm_data/log/log_engineering";

const nlohmann::json kNothing = nlohmann::json::object();

class FactoryResetTest : public EngineTest
{
public:
    FactoryResetTest()
    {
        writeFile("/perm_data/log/log_engineering.log", "now");
        writeFile("/perm_data/log/log_engineering.log.0", "before");
        writeFile("/perm_data/log/log_other.log", "another's");
    }

    void startWithTheModeOff()
    {
        start();
        forget();
    }

    bool logsAreThere() const
    {
        return fs::exists(path("/perm_data/log/log_engineering.log")) &&
               fs::exists(path("/perm_data/log/log_engineering.log.0"));
    }
    bool logsAreGone() const
    {
        return !fs::exists(path("/perm_data/log/log_engineering.log")) &&
               !fs::exists(path("/perm_data/log/log_engineering.log.0"));
    }
};

TEST_F(FactoryResetTest, ByTheUserTellsTheStationAndDeletesTheLogs)
{
    startInTestMode();

    raise("OnU6PersistFactoryResetMode", kNothing);

    EXPECT_THAT(station.replies(), ElementsAre(kNotice));
    EXPECT_TRUE(logsAreGone());
    EXPECT_TRUE(fs::exists(path("/perm_data/log/log_other.log")));
    EXPECT_THAT(calls(), ElementsAre(kRemoveLogs, kSync));
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG OnU6PersistFactoryResetMode"));
}

TEST_F(FactoryResetTest, ByTheUserTellsTheStationBeforeItDeletes)
{
    startInTestMode();
    std::vector<std::string> toldAtRemoval;
    unit.calls().additions().add([&](const bench::Call& call) {
        if (call.op == "RemoveFile")
            toldAtRemoval = station.replies();
    });

    raise("OnU6PersistFactoryResetMode", kNothing);

    EXPECT_THAT(toldAtRemoval, ElementsAre(kNotice));
}

TEST_F(FactoryResetTest, ByTheUserWithTheModeOffIsLoggedOnly)
{
    startWithTheModeOff();

    raise("OnU6PersistFactoryResetMode", kNothing);

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG OnU6PersistFactoryResetMode"));
    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_TRUE(logsAreThere());
}

TEST_F(FactoryResetTest, WithoutLogsSucceeds)
{
    fs::remove(path("/perm_data/log/log_engineering.log"));
    fs::remove(path("/perm_data/log/log_engineering.log.0"));
    startInTestMode();

    raise("OnU6PersistFactoryResetMode", kNothing);

    EXPECT_THAT(station.replies(), ElementsAre(kNotice));
    EXPECT_THAT(calls(), ElementsAre(kRemoveLogs, kSync));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(FactoryResetTest, ByTheUserThatCannotDeleteSaysSoAndDoesNotSync)
{
    set("/system/failing_removals", {kLogs});
    startInTestMode();

    raise("OnU6PersistFactoryResetMode", kNothing);

    EXPECT_THAT(station.replies(), ElementsAre(kNotice));
    EXPECT_THAT(calls(), ElementsAre(kRemoveLogs));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR rm /perm_data/log/log_engineering*, Failed!!!"));
    EXPECT_TRUE(logsAreThere());
}

TEST_F(FactoryResetTest, ByItselfDeletesTheLogsAndDoesNotTellTheStation)
{
    startInTestMode();

    raise("OnU6PersistAutoFactoryResetMode", kNothing);

    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_TRUE(logsAreGone());
    EXPECT_THAT(calls(), ElementsAre(kRemoveLogs, kSync));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FactoryResetTest, ByItselfWithTheModeOffDoesNothing)
{
    startWithTheModeOff();

    raise("OnU6PersistAutoFactoryResetMode", kNothing);

    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_TRUE(logsAreThere());
}

TEST_F(FactoryResetTest, ByItselfThatCannotDeleteSaysSoInItsOwnWords)
{
    set("/system/failing_removals", {kLogs});
    startInTestMode();

    raise("OnU6PersistAutoFactoryResetMode", kNothing);

    EXPECT_THAT(calls(), ElementsAre(kRemoveLogs));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR KYR_RemoveFile /perm_data/log/log_engineering*, Failed!!!"));
}

TEST_F(FactoryResetTest, AFailedSyncIsLoggedInBoth)
{
    set("/system/failing_commands", {"sync"});
    startInTestMode();

    raise("OnU6PersistFactoryResetMode", kNothing);
    raise("OnU6PersistAutoFactoryResetMode", kNothing);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR sync, ERROR", "ERROR sync, ERROR"));
    EXPECT_TRUE(logsAreGone());
}

TEST_F(FactoryResetTest, OfTheVehicleTellsTheStationInEveryModeAndDoesNothingElse)
{
    startWithTheModeOff();

    raise("OnFactoryResetMode", kNothing);
    station.sendCommand(0x0F, 0x00, {0x01});
    log.clear();
    raise("OnFactoryResetMode", kNothing);

    EXPECT_THAT(station.replies(), ElementsAre(kNotice, "8F 00 [01]", kNotice));
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_TRUE(logsAreThere());
}

TEST_F(FactoryResetTest, LeavesTheIdentityRecordsAndTheBluetoothStore)
{
    startInTestMode();
    writeFile("/perm_data/data/engineering/factory_serial_num", "SN123");
    writeFile("/perm_data/data/bluetooth/PSConfig.psr", "// keys\n");

    raise("OnU6PersistFactoryResetMode", kNothing);
    raise("OnU6PersistAutoFactoryResetMode", kNothing);
    raise("OnFactoryResetMode", kNothing);

    EXPECT_EQ(content("/perm_data/data/engineering/factory_serial_num"), "SN123");
    EXPECT_EQ(content("/perm_data/data/bluetooth/PSConfig.psr"), "// keys\n");
}

}  // namespace
