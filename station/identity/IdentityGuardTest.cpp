#include "station/identity/IdentityGuard.h"

#include <gmock/gmock.h>

#include "station/identity/ScriptedUnit.h"

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

    ScriptedUnit peer;
    std::optional<Connection> connection;
};

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

TEST_F(IdentityGuardTest, NothingIsSentWithoutARegistry)
{
    registry = "/proc/none/registry.sqlite";

    EXPECT_THAT(refusal("hu-serial", "HU8"), HasSubstr("/proc/none/registry.sqlite"));
    EXPECT_EQ(peer.writes(), 0u);
}

}  // namespace
}  // namespace station::identity
