// One conversation per command group, from the station's bytes over the line, the service and the bus to the simulated
// head unit and the HMI, and back.

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>

#include "tests/integration/BenchTest.h"

namespace tests {
namespace {

using testing::HasSubstr;

class ConversationTest : public BenchTest
{
protected:
    ConversationTest()
    {
        startService();
        ChildProcess& hmi = start({ENGINEERING_HMI, "--track", "2=7"});
        EXPECT_TRUE(hmi.waitForLine(ChildProcess::Stream::kErr, "ready"));
        EXPECT_EQ(ask("0F 00 01"), "8F 00 [01]");
    }

    /// Sends a command and waits for its reply.
    std::string ask(const std::string& command) { return station(command, {"--timeout", "20"}); }

    /// Sends a command that is not answered.
    void tell(const std::string& command) { EXPECT_EQ(station(command, {"--timeout", "0.05", "--expect-none"}), ""); }

    /// Asks until the reply is `wanted`, for what takes effect on another thread or in another process.
    void expectSoon(const std::string& command, const std::string& wanted)
    {
        EXPECT_EQ(repeatUntil([&] { return ask(command); }, [&](const std::string& got) { return got == wanted; }),
                  wanted);
    }

    void expectState(const std::string& path, const std::string& wanted)
    {
        const auto read = [&] { return headUnit({"state", path}); };
        EXPECT_EQ(repeatUntil(read, [&](const std::string& got) { return got == wanted + "\n"; }), wanted + "\n");
    }

    void expectCall(const std::string& record)
    {
        const auto read = [&] { return headUnit({"calls"}); };
        EXPECT_THAT(repeatUntil(read, [&](const std::string& got) { return got.find(record) != std::string::npos; }),
                    HasSubstr(record));
    }

    void set(const std::string& path, const std::string& json) { headUnit({"set", path, json}); }
    void raise(const std::string& event, const std::string& json) { headUnit({"event", event, json}); }
    std::string contentOf(const std::string& file) const
    {
        std::ifstream stream(root() / file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    /// @returns what `read` gave last: what `wanted` wants, unless that does not come.
    template <class Read, class Wanted>
    static std::string repeatUntil(Read read, Wanted wanted)
    {
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        std::string got = read();
        while (!wanted(got) && std::chrono::steady_clock::now() < deadline) {
            got = read();
        }
        return got;
    }

    std::string station(const std::string& command, const std::vector<std::string>& options)
    {
        std::vector<std::string> arguments = {ENGINEERING_STATION, "send"};
        std::istringstream words(command);
        for (std::string word; words >> word;) {
            arguments.push_back(word);
        }
        arguments.insert(arguments.end(), {"--port", link().string(), "--yes"});
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << command << ": " << outcome.err;
        return outcome.out.substr(0, outcome.out.find('\n'));
    }

    std::string headUnit(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), HEADUNITCTL);
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return outcome.out;
    }
};

TEST_F(ConversationTest, Source)
{
    tell("00 00 04");

    EXPECT_EQ(ask("00 01"), "80 01 [04]");
    expectState("/source/current", "3");
}

TEST_F(ConversationTest, AStationSetsTheVolumeAndReadsItBack)
{
    tell("01 00 20");

    expectSoon("01 01", "81 01 [20]");
    expectState("/audio/volume", "32");
}

TEST_F(ConversationTest, ATunerSeekGoesToTheNextStationAndIsReported)
{
    tell("02 04 01");

    EXPECT_EQ(ask("02 01"), "82 01 [24 FE]");    // 9470
    expectSoon("02 18", "82 18 [00 00 24 FE]");  // as the tuner reported it
    expectCall(R"({"service":"tuner","op":"Seek","args":[1,1]})");
}

TEST_F(ConversationTest, AStationSelectsATrackAndIsToldTheIndex)
{
    tell("03 01 00 03");

    EXPECT_EQ(ask("03 05"), "83 05 [02]");
    EXPECT_EQ(ask("03 0D"), "83 0D [07]");
}

TEST_F(ConversationTest, BluetoothPairingsAreDeleted)
{
    EXPECT_EQ(ask("04 07"), "84 07 [00 1A 7D DA 71 13]");
    EXPECT_EQ(ask("04 08"), "82 08 [01]");
    expectCall(R"({"service":"bluetooth","op":"DeletePairDeviceList","args":[]})");
}

TEST_F(ConversationTest, SatellitesAreCountedAndTheSignalsSorted)
{
    raise("OnAASatinfoChange", R"({"satellites": [[5, 20], [9, 35], [12, 28]]})");

    EXPECT_EQ(ask("05 00"), "85 00 [03 05 00 00 23 09 00 00 1C 0C 00 00 14]");
}

TEST_F(ConversationTest, FactorySettingsRestartTheUnit)
{
    EXPECT_EQ(ask("06 0A 55"), "86 0A [55]");
    tell("06 13 01");

    expectCall(R"({"service":"power","op":"RestartSystem","args":[]})");
    expectCall(R"({"service":"system_misc","op":"RestoreFactorySettings","args":[]})");
    expectCall(R"({"service":"file_manager","op":"ClearUserData","args":[]})");
}

TEST_F(ConversationTest, VersionsAndTheProjectsName)
{
    EXPECT_EQ(ask("07 00"), "87 00 [66 69 65 6C 64 39]");  // field9
    EXPECT_EQ(ask("07 06"), "87 06 [62 65 6E 63 68]");     // bench
}

TEST_F(ConversationTest, PowerModeSwitchesFromItsOppositeOnly)
{
    tell("09 10 01");
    expectState("/power/status", "16");
    tell("09 10 00");
    expectState("/power/status", "17");
    raise("OnCarSpeedChange", R"({"speed": 70000})");
    EXPECT_EQ(ask("09 0B"), "89 0B [11 70]");
}

TEST_F(ConversationTest, AWholeUnitIsProvisionedAndReadBack)
{
    tell("0A 02 53 4E 31 32 33");                       // SN123
    tell("0A 11 30 30 31 31 32 32 33 33 34 34 35 35");  // 001122334455
    tell("0A 10 30 30 30 32 46 35 41 31 42 32 43 33");  // 0002F5A1B2C3

    expectSoon("0A 03", "8A 03 [53 4E 31 32 33]");
    expectSoon("0A 12", "8A 12 [30 30 31 31 32 32 33 33 34 34 35 35]");
    expectSoon("0A 1A", "8A 1A [01]");
    EXPECT_EQ(contentOf("perm_data/data/engineering/cp_mac_address"), "00:11:22:33:44:55");
    EXPECT_EQ(contentOf("perm_data/data/engineering/bt_mac_address_for_query"), "&0001 = 00A1 B2C3 00F5 0002");
    EXPECT_EQ(linesOf(contentOf("perm_data/data/bluetooth/PSConfig.psr")).at(1), "&0001 = 00A1 B2C3 00F5 0002");
    EXPECT_EQ(contentOf("media/backup.txt"), contentOf("kyr/etc/bluetooth/bin/PSConfig.psr"));
}

TEST_F(ConversationTest, TheAgingTestSwitchesToItsSource)
{
    tell("0E 02 01");

    expectState("/source/current", "16");
    tell("0E 00 07");
    EXPECT_EQ(ask("0E 01"), "8E 01 [07]");
}

TEST_F(ConversationTest, WifiComesUpOnRequest)
{
    EXPECT_EQ(ask("10 09"), "90 09 [00]");
    tell("10 06");
    tell("10 00 01");

    expectSoon("10 09", "90 09 [01]");
    EXPECT_EQ(ask("10 06"), "90 06 [48 65 61 64 55 6E 69 74 2D 57 4C 41 4E]");  // HeadUnit-WLAN
}

TEST_F(ConversationTest, PhoneProjectionIsReported)
{
    set("/android_auto/state", "5");
    raise("OnStatusChange", R"({"status": 1})");

    EXPECT_EQ(ask("11 01"), "91 01 [01]");
    EXPECT_EQ(ask("11 05"), "91 05 [05]");
}

}  // namespace
}  // namespace tests
