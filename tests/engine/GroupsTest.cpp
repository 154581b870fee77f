// What holds for every command group alike: the engine's tables against the catalogue, which lists the wire on its own.

#include <algorithm>
#include <filesystem>
#include <optional>
#include <thread>

#include "protocol/catalogue/Catalogue.h"
#include "tests/support/EngineTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The dispatcher answers it itself, in every mode.
constexpr std::pair<int, int> kReady = {0x0F, 0x01};

/// Its action refuses a short address, and logs it.
constexpr std::pair<int, int> kWriteBtAddress = {0x0A, 0x10};

class GroupsTest : public EngineTest
{
public:
    /// Sends a command with parameter bytes of 1, and forgets it.
    /// @param signals how many signals it causes: its re-publication, or none
    void expectSilence(int group, int code, std::size_t params, std::size_t signals)
    {
        SCOPED_TRACE(testing::Message() << "command " << group << ' ' << code << " with " << params << " parameters");

        station.sendCommand(static_cast<std::uint8_t>(group), static_cast<std::uint8_t>(code),
                            std::vector<std::uint8_t>(params, 1));

        EXPECT_THAT(station.replies(), IsEmpty());
        EXPECT_THAT(hmi.signals(), testing::SizeIs(signals));
        EXPECT_THAT(calls(), IsEmpty());
        forget();
    }
};

TEST_F(GroupsTest, TheTablesHaveTheCommandsOfTheCatalogueWithTheirLeastNumberOfParameters)
{
    std::vector<std::tuple<int, int, std::size_t>> carriedOut = {{kReady.first, kReady.second, 0}};
    for (const KYRAutoTest::Group& group : KYRAutoTest::Groups()) {
        EXPECT_TRUE(CodesAscend(group.commands())) << group.name;
        for (const Command& command : group.commands())
            carriedOut.emplace_back(group.code, command.code, command.minParams);
    }

    std::vector<std::tuple<int, int, std::size_t>> described;
    for (const auto& group : protocol::catalogue::groups()) {
        for (const auto& command : group.commands) {
            const bool checksItself = std::pair<int, int>{command.cmdOne, command.cmdTwo} == kWriteBtAddress;
            described.emplace_back(command.cmdOne, command.cmdTwo, checksItself ? 0 : command.minimumParams);
        }
    }
    EXPECT_THAT(carriedOut, testing::UnorderedElementsAreArray(described));
}

TEST_F(GroupsTest, ACommandWithAParameterTooFewIsSilent)
{
    startInTestMode();

    for (const auto& group : protocol::catalogue::groups()) {
        for (const auto& command : group.commands) {
            for (std::size_t params = 0; params < command.minimumParams; ++params)
                expectSilence(command.cmdOne, command.cmdTwo, params, 1);
        }
    }
}

TEST_F(GroupsTest, AnUnknownCommandIsSilent)
{
    startInTestMode();

    for (const KYRAutoTest::Group& group : KYRAutoTest::Groups()) {
        for (int code = 0; code <= 0xFF; ++code) {
            const bool known = std::ranges::binary_search(group.commands(), code, {}, &Command::code);
            if (!known && std::pair<int, int>{group.code, code} != kReady)
                expectSilence(group.code, code, 4, 1);
        }
    }
}

TEST_F(GroupsTest, WithTheModeOffEveryGroupButTheTestModesIsSilent)
{
    start();
    forget();

    for (const KYRAutoTest::Group& group : KYRAutoTest::Groups()) {
        for (int code = 0; group.code != KYRAutoTest::kTestMode && code <= 0xFF; ++code)
            expectSilence(group.code, code, 4, 0);
    }

    EXPECT_TRUE(std::filesystem::is_empty(path("/perm_data/data/engineering")));
}

TEST_F(GroupsTest, ACommandLogsWhatItHasToSayBeforeItAnswers)
{
    startInTestMode();
    raise("OnModuleStatusChanged", {{"module", 17}});  // Wi-Fi answers from now on
    std::optional<std::size_t> linesAtReply;
    station.onSend = [&, handlersThread = std::this_thread::get_id()] {
        if (std::this_thread::get_id() == handlersThread)  // and no event's
            linesAtReply = log.lines().size();
    };

    for (const auto& group : protocol::catalogue::groups()) {
        for (const auto& command : group.commands) {
            forget();
            linesAtReply.reset();

            station.sendCommand(command.cmdOne, command.cmdTwo, std::vector<std::uint8_t>(command.minimumParams, 1));

            // Every frame ends with two lines of the receive path.
            if (linesAtReply)
                EXPECT_EQ(log.lines().size(), *linesAtReply + 2) << int{command.cmdOne} << ' ' << int{command.cmdTwo};
        }
    }
}

}  // namespace
