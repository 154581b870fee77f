#include "station/identity/IdentityGuard.h"

#include <gmock/gmock.h>

#include "station/identity/ScriptedUnit.h"
#include "tests/engine/FileSizeLimit.h"

namespace station::identity {
namespace {

using namespace std::chrono_literals;
using protocol::UserError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class IdentityGuardTest : public GuardedStationTest
{
protected:
    IdentityGuardTest() { connect(peer); }

    void connect(ScriptedUnit& unit)
    {
        unit.testMode = true;
        connection.emplace(PortSpec{unit.line.path()}, Connection::Options{.reconnect = 0ms, .trace = &unit});
    }

    void send(std::string_view name, const std::string& value)
    {
        connection->send(writeFrame(require(all, name), value));
    }

    /// @returns why a value was not sent; empty if it was.
    std::string refusal(std::string_view name, const std::string& value)
    {
        try {
            send(name, value);
        } catch (const protocol::Error& error) {
            EXPECT_EQ(error.status(), protocol::kFailed);
            return error.what();
        }
        return "";
    }

    /// As if the device had gone and come back.
    void lose() const
    {
        TraceEvent event;
        event.kind = TraceEvent::Kind::kLost;
        guard->on(event);
    }

    /// @returns "VALUE UNIT" of all values of the registry.
    std::vector<std::string> units() const
    {
        std::vector<std::string> found;
        open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) {
            found.push_back(entry.value + " " + entry.unit);
        });
        return found;
    }

    std::vector<int> askedRecords() const
    {
        std::vector<int> asked;
        for (const Frame& frame : peer.received) {
            asked.push_back(frame.cmdTwo);
        }
        return asked;
    }

    ScriptedUnit peer;
    std::optional<Connection> connection;
};

/// Asks for a record and waits for the answer.
void ask(Connection& connection, const Record& record)
{
    connection.request(
        {record.read->cmdOne, record.read->cmdTwo, {}}, [](const Frame&) { return true; }, 5s, true);
}

TEST_F(IdentityGuardTest, UnitThatIsSwappedWithoutALossDoesNotGetTheValuesOfTheOneBefore)
{
    terms.line.label = "U1";
    send("hu-serial", "HU7");
    send("carplay-mac", "001A7D000001");
    const std::size_t before = peer.writes();

    peer.stored.clear();

    for (const auto& [record, value] : {std::pair{"hu-serial", "HU7"}, {"carplay-mac", "001A7D000001"}}) {
        EXPECT_THROW(send(record, value), UserError) << record;
    }
    EXPECT_EQ(peer.writes(), before);
    EXPECT_THAT(peer.stored, IsEmpty());
}

TEST_F(IdentityGuardTest, ValueThatWasReadBackIsVerifiedWhenTheNextFrameLeaves)
{
    send("hu-serial", "HU7");
    EXPECT_THAT(values(), ElementsAre("HU7 sending"));

    send("carplay-mac", "001A7D000001");
    connection->send({0x0F, 0xFF, {}});

    EXPECT_THAT(values(), ElementsAre("001A7D000001 sending", "HU7 verified"));
    connection.reset();
    EXPECT_THAT(values(), ElementsAre("001A7D000001 written", "HU7 verified"));
}

TEST_F(IdentityGuardTest, ValueWhoseStateCannotBeStoredYetIsStoredAtTheEnd)
{
    send("hu-serial", "HU7");
    ask(*connection, require(all, "hu-serial"));
    {
        const FileSizeLimit full(4096);
        connection->send({0x0F, 0xFF, {}});
    }
    EXPECT_THAT(values(), ElementsAre("HU7 sending"));

    connection.reset();

    EXPECT_THAT(values(), ElementsAre("HU7 verified"));
}

TEST_F(IdentityGuardTest, EndWithoutARegistryToNoteItInIsHarmless)
{
    send("hu-serial", "HU7");
    {
        const FileSizeLimit full(4096);
        connection.reset();
    }

    EXPECT_THAT(values(), ElementsAre("HU7 sending"));
}

TEST_F(IdentityGuardTest, UnitAfterALossIsAnotherOneAndIsKnownFromThenOn)
{
    send("hu-serial", "HU7");
    lose();
    peer.stored.clear();
    send("hu-serial", "HU8");
    EXPECT_THAT(values(), ElementsAre("HU7 written", "HU8 sending"));
    peer.received.clear();

    send("carplay-mac", "001A7D000001");

    // The value that the unit was sent, its serial number, and the record itself.
    EXPECT_THAT(askedRecords(), ElementsAre(0x14, 0x14, 0x12, 0x11));
    EXPECT_THAT(units(), ElementsAre("001A7D000001 HU8", "HU7 HU7", "HU8 HU8"));
}

TEST_F(IdentityGuardTest, UnitAfterALossIsTheSameIfItHoldsItsValue)
{
    send("hu-serial", "HU7");
    lose();

    send("carplay-mac", "001A7D000001");

    EXPECT_THAT(units(), ElementsAre("001A7D000001 HU7", "HU7 HU7"));
}

TEST_F(IdentityGuardTest, UnitThatGetsOnlyAnUnreadableValueAfterALossIsNotComparedWithTheOneBefore)
{
    send("hu-serial", "HU7");
    lose();
    peer.stored.clear();
    send("bluetooth-address", "001A7D000002");

    send("carplay-mac", "001A7D000001");

    EXPECT_THAT(units(), ElementsAre("001A7D000001 #2", "001A7D000002 #2", "HU7 HU7"));
}

TEST_F(IdentityGuardTest, UnreadableValueDoesNotHideThatTheUnitIsSwapped)
{
    send("hu-serial", "HU7");
    send("bluetooth-address", "001A7D000002");
    peer.stored.clear();

    send("carplay-mac", "001A7D000001");

    EXPECT_THAT(units(), ElementsAre("001A7D000001 #2", "001A7D000002 HU7", "HU7 HU7"));
}

TEST_F(IdentityGuardTest, ValueThatWasNotReadBackIsWrittenAndBelongsToItsUnit)
{
    send("carplay-mac", "001A7D000001");
    connection.reset();
    EXPECT_THAT(values(), ElementsAre("001A7D000001 written"));

    ScriptedUnit other;
    connect(other);

    EXPECT_THAT(refusal("bluetooth-address", "001A7D000001"),
                HasSubstr("bluetooth-address 001A7D000001 has been given to unit"));
    EXPECT_EQ(other.writes(), 0u);
}

TEST_F(IdentityGuardTest, ValueThatTheUnitWouldStoreDifferentlyIsNotSent)
{
    EXPECT_EQ(refusal("factory-serial", "X\nSN1"),
              "factory-serial: expected a value without a line end, got hex:580A534E31");
    // The unit would take the first 12 digits, a multicast address.
    EXPECT_EQ(refusal("carplay-mac", "01005E0000011"),
              "carplay-mac: expected 12 hexadecimal digits, got 01005E0000011");
    EXPECT_EQ(refusal("bluetooth-address", "01005E0000011"),
              "bluetooth-address: expected 12 hexadecimal digits, got 01005E0000011");

    EXPECT_THAT(peer.received, IsEmpty());
}

TEST_F(IdentityGuardTest, AddressThatNoDeviceHasIsSentOnlyOnDemand)
{
    EXPECT_THAT(refusal("carplay-mac", "FFFFFFFFFFFF"), HasSubstr("which is all F"));
    EXPECT_EQ(peer.writes(), 0u);

    terms.allowAnyAddress = true;
    EXPECT_EQ(refusal("carplay-mac", "FFFFFFFFFFFF"), "");
    EXPECT_EQ(peer.stored[0x12], "FFFFFFFFFFFF");
}

TEST_F(IdentityGuardTest, ValuesThatSeveralUnitsMayHaveNeedNoRegistry)
{
    registry = "/proc/none/registry.sqlite";

    EXPECT_EQ(refusal("drawing-code", "D-1"), "");
    EXPECT_EQ(refusal("hu-serial", "00000000"), "");
    connection->send({0x0A, 0x14, {}});
    EXPECT_EQ(peer.received, (std::vector<Frame>{{0x0A, 0x15, {'D', '-', '1'}},
                                                 {0x0A, 0x13, {'0', '0', '0', '0', '0', '0', '0', '0'}},
                                                 {0x0A, 0x14, {}}}));
}

TEST_F(IdentityGuardTest, OnlyAUniqueValueIsForTheUnitThatIsOnTheLineNow)
{
    const auto bound = [&](const Frame& frame) { return guard->check(*connection, frame); };

    EXPECT_TRUE(bound(writeFrame(require(all, "hu-serial"), "HU7")));
    EXPECT_FALSE(bound(writeFrame(require(all, "hu-serial"), "00000000")));
    EXPECT_FALSE(bound(writeFrame(require(all, "drawing-code"), "D-1")));
    EXPECT_FALSE(bound({0x0A, 0x13, {}})) << "writes nothing";
    EXPECT_FALSE(bound({0x0F, 0x00, {1}})) << "is not a record";
}

TEST_F(IdentityGuardTest, ValueThatTheStationsRulesDoNotAllowIsNotSent)
{
    rules.patterns["hu-serial"] = std::make_shared<re2::RE2>("HU[0-9]");

    EXPECT_THAT(refusal("hu-serial", "XU7"), HasSubstr("HU[0-9]"));
    EXPECT_THAT(peer.received, IsEmpty());
    EXPECT_EQ(refusal("hu-serial", "HU7"), "");
}

TEST_F(IdentityGuardTest, OfAUnitWithASerialNumberOnlyTheWrittenRecordIsRead)
{
    peer.stored[0x14] = "HU7";

    send("carplay-mac", "001A7D000001");

    EXPECT_THAT(askedRecords(), ElementsAre(0x14, 0x12, 0x11));
    EXPECT_THAT(values(), ElementsAre("001A7D000001 sending", "HU7 seen"));
}

TEST_F(IdentityGuardTest, OfAUnitWithAPlaceholderAllUniqueRecordsAreRead)
{
    peer.stored[0x14] = "00000000";

    send("carplay-mac", "001A7D000001");

    EXPECT_THAT(askedRecords(), ElementsAre(0x14, 0x12, 0x03, 0x12, 0x11));
}

TEST_F(IdentityGuardTest, AddressThatTheUnitDoesNotReportAfterAQuestionIsNotWritten)
{
    peer.before = [](const Frame& frame) { return frame.cmdTwo != 0x10; };
    send("bluetooth-address", "001A7D000003");
    ask(*connection, require(all, "bluetooth-address"));
    connection.reset();

    EXPECT_THAT(values(), ElementsAre("001A7D000003 sending"));
}

TEST_F(IdentityGuardTest, AnswerDecidesWhetherAValueHasArrived)
{
    struct Row {
        const char* record;
        const char* value;
        const char* stored;
        const char* state;
    };
    const Row rows[] = {
        {"hu-serial", "HU1", "HU1", "HU1 verified"},
        {"factory-serial", "SN2", "XX2", "SN2 sending"},
        {"bluetooth-address", "001A7D000003", "", "001A7D000003 written"},
        {"carplay-mac", "001A7D00000A", "001a7d00000a", "001A7D00000A verified"},
    };
    for (const auto& [name, value, stored, state] : rows) {
        ScriptedUnit unit;
        unit.store = [stored = std::string(stored)](const std::string&) { return stored; };
        connect(unit);
        send(name, value);
        ask(*connection, require(all, name));
        connection.reset();

        EXPECT_THAT(values(), testing::Contains(state));
    }
}

TEST_F(IdentityGuardTest, VerifiedValueStaysSoWhateverComesLater)
{
    send("hu-serial", "HU1");
    ask(*connection, require(all, "hu-serial"));
    peer.stored.clear();
    ask(*connection, require(all, "hu-serial"));
    connection.reset();

    EXPECT_THAT(values(), ElementsAre("HU1 verified"));
}

TEST_F(IdentityGuardTest, OtherFramesDoNotVerifyAValue)
{
    send("hu-serial", "HU1");
    peer.stored[0x16] = "HU1";
    ask(*connection, require(all, "drawing-code"));
    connection.reset();

    EXPECT_THAT(values(), ElementsAre("HU1 written"));
}

TEST_F(IdentityGuardTest, NothingIsSentWithoutARegistry)
{
    registry = "/proc/none/registry.sqlite";

    EXPECT_THAT(refusal("hu-serial", "HU8"), HasSubstr("/proc/none/registry.sqlite"));
    EXPECT_EQ(peer.writes(), 0u);
}

}  // namespace
}  // namespace station::identity
