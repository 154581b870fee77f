#include "station/identity/Provision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "protocol/catalogue/Catalogue.h"
#include "station/WireBytes.h"
#include "station/identity/IdentityGuard.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace station::identity {
namespace {

using namespace std::chrono_literals;
using protocol::Frame;
using testing::ElementsAre;
using testing::HasSubstr;

/// A unit that answers each frame as soon as it has been sent, on the station's thread.
class ScriptedUnit : public TraceSink
{
public:
    void on(const TraceEvent& event) override
    {
        if (event.kind == TraceEvent::Kind::kSent) {
            received.push_back(event.frame);
            handle(event.frame);
        }
    }

    tests::PtyPeer line;
    bool testMode = false;
    std::map<int, std::string> stored;  // by the reader's command
    std::optional<std::vector<std::uint8_t>> controllerAddress{{0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}};
    bool hasBluetoothAddress = false;
    /// What becomes of a value that is written.
    std::function<std::string(std::string)> store = [](std::string value) { return value; };
    std::vector<Frame> received;

    /// @returns how many of the frames were writers.
    std::size_t writes() const
    {
        return static_cast<std::size_t>(std::ranges::count_if(
            received, [](const Frame& frame) { return frame.cmdOne == 0x0A && !frame.params.empty(); }));
    }

private:
    void handle(const Frame& frame)
    {
        const std::string text(frame.params.begin(), frame.params.end());
        if (frame.cmdOne == 0x0F && frame.cmdTwo == 0xFF) {
            answer({0x8F, 0xFF, {testMode}});
        } else if (frame.cmdOne == 0x0F && frame.cmdTwo == 0x00) {
            testMode = frame.params.at(0) == 1;
            answer({0x8F, 0x00, frame.params});
        } else if (!testMode) {
            return;
        } else if (frame.cmdOne == 0x04 && frame.cmdTwo == 0x07 && controllerAddress) {
            answer({0x84, 0x07, *controllerAddress});
        } else if (frame.cmdOne == 0x0A) {
            identity(frame, text);
        }
    }

    void identity(const Frame& frame, const std::string& text)
    {
        switch (frame.cmdTwo) {
            case 0x02:
                stored[0x03] = store(text);
                break;
            case 0x11:
                stored[0x12] = store(text);
                break;
            case 0x13:
                stored[0x14] = store(text);
                break;
            case 0x15:
                stored[0x16] = store(text);
                break;
            case 0x10:
                hasBluetoothAddress = true;
                break;
            case 0x1A:
                answer({0x8A, 0x1A, {hasBluetoothAddress}});
                break;
            default: {
                const auto found = stored.find(frame.cmdTwo);
                if (found == stored.end()) {
                    answer({0x8A, frame.cmdTwo == 0x12 ? std::uint8_t{0x0F} : frame.cmdTwo, {}});
                } else {
                    answer({0x8A, frame.cmdTwo, {found->second.begin(), found->second.end()}});
                }
            }
        }
    }

    void answer(const Frame& frame) { line.write(wireBytes(frame)); }
};

class ProvisionTest : public testing::Test
{
protected:
    const Record& record(std::string_view name) const { return require(all, name); }

    Wanted wanted(std::string_view name, const std::string& value, bool own = false) const
    {
        return {&record(name), value, own};
    }

    std::vector<Result> write(const std::vector<Wanted>& values, WriteOptions options = {})
    {
        return resultsOf(identity::write(unit, values, options, [&](const Done& done) { last = done; }));
    }

    std::vector<Result> verify(const std::vector<Wanted>& values)
    {
        return resultsOf(identity::verify(unit, values, [&](const Done& done) { last = done; }));
    }

    static std::vector<Result> resultsOf(const std::vector<Done>& all)
    {
        std::vector<Result> results;
        for (const Done& done : all) {
            results.push_back(done.result);
        }
        return results;
    }

    std::vector<Record> all = records(protocol::catalogue::groups());
    ScriptedUnit peer;
    Connection connection{{peer.line.path()}, {.reconnect = 0ms, .trace = &peer}};
    UnitIdentity unit{connection, protocol::catalogue::groups(), 50ms};
    Done last;
};

TEST_F(ProvisionTest, TestModeIsEnteredAndTheModeBeforeRestored)
{
    unit.enterTestMode();
    EXPECT_TRUE(peer.testMode);
    unit.restoreMode();
    EXPECT_FALSE(peer.testMode);
}

TEST_F(ProvisionTest, TestModeThatWasOnStaysOn)
{
    peer.testMode = true;
    unit.enterTestMode();
    unit.restoreMode();
    EXPECT_TRUE(peer.testMode);
}

TEST_F(ProvisionTest, UnitThatIsSilentIsNoAnswer)
{
    try {
        unit.read(record("factory-serial"));
        FAIL() << "it answered";
    } catch (const NoAnswer& error) {
        EXPECT_THAT(error.what(), HasSubstr("no reply to identity.factory-serial came in time"));
    }
}

TEST_F(ProvisionTest, UnitThatStartedAgainMeanwhileIsPutIntoTestModeAgain)
{
    unit.enterTestMode();
    peer.stored[0x03] = "SN1";
    peer.testMode = false;

    EXPECT_EQ(unit.read(record("factory-serial")).value, "SN1");
}

TEST_F(ProvisionTest, RecordThatIsMissingIsNotPresent)
{
    unit.enterTestMode();
    EXPECT_FALSE(unit.read(record("factory-serial")).present);
    EXPECT_FALSE(unit.read(record("carplay-mac")).present);
    EXPECT_FALSE(unit.read(record("bluetooth-address")).present);
}

TEST_F(ProvisionTest, BluetoothAddressIsReadAsPresenceAndTheControllersAddress)
{
    unit.enterTestMode();
    peer.hasBluetoothAddress = true;
    EXPECT_TRUE(unit.read(record("bluetooth-address")).present);
    EXPECT_EQ(unit.read(record("bluetooth-address")).value, "001A7DDA7113");

    peer.controllerAddress = {};
    EXPECT_TRUE(unit.read(record("bluetooth-address")).present);
    EXPECT_EQ(unit.read(record("bluetooth-address")).value, "");
}

TEST_F(ProvisionTest, ValuesAreWrittenAndReadBack)
{
    unit.enterTestMode();

    EXPECT_THAT(write({wanted("factory-serial", "SN1"), wanted("carplay-mac", "001122334455")}),
                ElementsAre(Result::kWritten, Result::kWritten));
    EXPECT_EQ(peer.stored[0x03], "SN1");
    EXPECT_EQ(last.after.value, "001122334455");
}

TEST_F(ProvisionTest, ValueThatIsThereAlreadyIsNotWrittenAgain)
{
    unit.enterTestMode();
    peer.stored[0x03] = "SN1";

    EXPECT_THAT(write({wanted("factory-serial", "SN1")}), ElementsAre(Result::kUnchanged));
    EXPECT_EQ(peer.writes(), 0u);
}

TEST_F(ProvisionTest, OtherValueIsRefusedBeforeAnythingIsWritten)
{
    unit.enterTestMode();
    peer.stored[0x16] = "D-1";

    EXPECT_THAT(write({wanted("factory-serial", "SN1"), wanted("drawing-code", "D-2")}),
                ElementsAre(Result::kSkipped, Result::kRefused));
    EXPECT_EQ(peer.writes(), 0u);
    EXPECT_EQ(describe(last), "drawing-code: refused D-2, the unit has D-1 (--overwrite replaces it)");
}

TEST_F(ProvisionTest, OtherValueIsReplacedWhenThatIsWanted)
{
    unit.enterTestMode();
    peer.stored[0x03] = "SN1";

    EXPECT_THAT(write({wanted("factory-serial", "SN2")}, {.overwrite = true}), ElementsAre(Result::kWritten));
    EXPECT_EQ(describe(last), "factory-serial: written SN2 (was SN1)");
}

TEST_F(ProvisionTest, DryRunWritesNothing)
{
    unit.enterTestMode();

    EXPECT_THAT(write({wanted("factory-serial", "SN1")}, {.dryRun = true}), ElementsAre(Result::kWouldWrite));
    EXPECT_EQ(peer.writes(), 0u);
}

TEST_F(ProvisionTest, ReadBackThatDiffersEndsTheWriting)
{
    unit.enterTestMode();
    peer.store = [](std::string value) { return value + "x"; };

    EXPECT_THAT(write({wanted("factory-serial", "SN1"), wanted("drawing-code", "D-2")}),
                ElementsAre(Result::kDiffers, Result::kSkipped));
    EXPECT_EQ(peer.writes(), 1u);
}

TEST_F(ProvisionTest, ReadBackOfNothingIsMissing)
{
    unit.enterTestMode();
    peer.store = [](const std::string&) { return ""; };

    EXPECT_THAT(write({wanted("factory-serial", "SN1")}), ElementsAre(Result::kMissing));
}

TEST_F(ProvisionTest, BluetoothAddressIsWrittenWhenItsPresenceShows)
{
    unit.enterTestMode();

    EXPECT_THAT(write({wanted("bluetooth-address", "0002F5A1B2C3")}), ElementsAre(Result::kPresent));
    EXPECT_EQ(describe(last),
              "bluetooth-address: written 0002F5A1B2C3 (was nothing); the unit only tells that there is one, which the "
              "controller runs from the next start");
}

TEST_F(ProvisionTest, BluetoothAddressThatIsThereIsRefusedUnlessItIsTheUnitsOwnOrRuns)
{
    unit.enterTestMode();
    peer.hasBluetoothAddress = true;

    EXPECT_THAT(write({wanted("bluetooth-address", "0002F5A1B2C3")}), ElementsAre(Result::kRefused));
    EXPECT_THAT(write({wanted("bluetooth-address", "0002F5A1B2C3", true)}), ElementsAre(Result::kPresent));
    EXPECT_THAT(write({wanted("bluetooth-address", "001A7DDA7113")}), ElementsAre(Result::kUnchanged));
}

TEST_F(ProvisionTest, VerifyComparesEverythingAndWritesNothing)
{
    unit.enterTestMode();
    peer.stored[0x03] = "SN1";
    peer.stored[0x16] = "D-1";
    peer.hasBluetoothAddress = true;

    EXPECT_THAT(
        verify({wanted("factory-serial", "SN1"), wanted("drawing-code", "D-2"), wanted("carplay-mac", "001122334455"),
                wanted("bluetooth-address", "001A7DDA7113"), wanted("bluetooth-address", "0002F5A1B2C3")}),
        ElementsAre(Result::kMatches, Result::kDiffers, Result::kMissing, Result::kMatches, Result::kDiffers));
    EXPECT_EQ(peer.writes(), 0u);
}

TEST_F(ProvisionTest, LineThatGoesWhileAValueIsWrittenIsALinkError)
{
    unit.enterTestMode();
    const Record& serial = record("factory-serial");
    peer.store = [&](std::string value) {
        peer.line.hangUp();
        return value;
    };

    EXPECT_THROW(write({{&serial, "SN1"}}), protocol::LineError);
}

/// A unit on a line that the registry guards.
class GuardedUnitTest : public testing::Test
{
protected:
    GuardedUnitTest()
    {
        Connection::guardBy(
            [this] { return std::make_unique<IdentityGuard>(all, rules, terms, [this] { return open(); }); });
        connection.emplace(PortSpec{peer.line.path()}, Connection::Options{.reconnect = 0ms, .trace = &peer});
        peer.testMode = true;
    }
    ~GuardedUnitTest() override { Connection::guardBy({}); }

    std::unique_ptr<Registry> open(Registry::Access access = Registry::Access::kGive)
    {
        return std::make_unique<Registry>(directory.path() / "registry.sqlite", all, rules, nullptr, access);
    }

    void send(std::string_view name, const std::string& value)
    {
        connection->send(writeFrame(require(all, name), value));
    }

    /// @returns "VALUE STATE" of all that the registry has.
    std::vector<std::string> values()
    {
        std::vector<std::string> told;
        open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) {
            told.push_back(entry.value + " " + name(entry.state));
        });
        return told;
    }

    tests::TempDir directory;
    std::vector<Record> all = records(protocol::catalogue::groups());
    UnitRules rules;
    GuardTerms terms;
    ScriptedUnit peer;
    std::optional<Connection> connection;
};

TEST_F(GuardedUnitTest, UnitThatIsSwappedWithoutALossDoesNotGetTheValuesOfTheOneBefore)
{
    terms.label = "U1";
    send("hu-serial", "HU7");
    send("carplay-mac", "001A7D000001");
    const std::size_t before = peer.writes();

    peer.stored.clear();

    for (const auto& [record, value] : {std::pair{"hu-serial", "HU7"}, {"carplay-mac", "001A7D000001"}}) {
        EXPECT_THROW(send(record, value), protocol::UserError) << record;
    }
    EXPECT_EQ(peer.writes(), before);
    EXPECT_THAT(peer.stored, testing::IsEmpty());
}

TEST_F(GuardedUnitTest, ValueThatWasReadBackIsVerifiedWhenTheNextFrameLeaves)
{
    send("hu-serial", "HU7");
    EXPECT_THAT(values(), ElementsAre("HU7 sending"));

    send("carplay-mac", "001A7D000001");
    connection->send({0x0F, 0xFF, {}});

    EXPECT_THAT(values(), ElementsAre("001A7D000001 sending", "HU7 verified"));
}

}  // namespace
}  // namespace station::identity
