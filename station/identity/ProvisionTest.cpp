#include "station/identity/Provision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"
#include "station/identity/ScriptedUnit.h"

namespace station::identity {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

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

TEST_F(ProvisionTest, SilentUnitIsNoAnswer)
{
    try {
        unit.read(record("factory-serial"));
        FAIL() << "it answered";
    } catch (const NoAnswer& error) {
        EXPECT_THAT(error.what(), HasSubstr("identity.factory-serial: expected a reply within "));
    }
}

TEST_F(ProvisionTest, UnitThatStartedAgainMeanwhileIsPutIntoTestModeAgain)
{
    unit.enterTestMode();
    peer.stored[0x03] = "SN1";
    peer.testMode = false;

    EXPECT_EQ(unit.read(record("factory-serial")).value, "SN1");
}

TEST_F(ProvisionTest, MissingRecordIsNotPresent)
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

TEST_F(ProvisionTest, ValueThatTheUnitHasIsNotWrittenAgain)
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

TEST_F(ProvisionTest, OtherValueIsReplacedWithOverwrite)
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
    EXPECT_EQ(
        describe(last),
        "bluetooth-address: written 0002F5A1B2C3 (was nothing); the unit only reports that it has an address, which "
        "the controller uses from the next start");
}

TEST_F(ProvisionTest, BluetoothAddressInTheUnitIsRefusedUnlessItIsTheUnitsOwnOrInUse)
{
    unit.enterTestMode();
    peer.hasBluetoothAddress = true;

    EXPECT_THAT(write({wanted("bluetooth-address", "0002F5A1B2C3")}), ElementsAre(Result::kRefused));
    EXPECT_THAT(write({wanted("bluetooth-address", "0002F5A1B2C3", true)}), ElementsAre(Result::kPresent));
    EXPECT_THAT(write({wanted("bluetooth-address", "001A7DDA7113")}), ElementsAre(Result::kUnchanged));
}

TEST_F(ProvisionTest, EveryResultHasItsName)
{
    const std::pair<Result, const char*> rows[] = {
        {Result::kWritten, "written"},        {Result::kPresent, "present"}, {Result::kUnchanged, "unchanged"},
        {Result::kWouldWrite, "would-write"}, {Result::kRefused, "refused"}, {Result::kSkipped, "skipped"},
        {Result::kMatches, "matches"},        {Result::kDiffers, "differs"}, {Result::kMissing, "missing"},
    };
    const Record& code = record("drawing-code");
    for (const auto& [result, word] : rows) {
        EXPECT_STREQ(name(result), word);
        // One line each, which names the record and the value.
        const std::string line = describe({&code, {true, "D-0"}, "D-1", {true, "D-2"}, result});
        EXPECT_THAT(line, testing::AllOf(testing::StartsWith("drawing-code: "), HasSubstr("D-1")));
    }
    EXPECT_THAT(describe({&code, {}, "D-1", {}, Result::kMissing}), HasSubstr("nothing"));
    EXPECT_THAT(describe({&record("bluetooth-address"), {true, ""}, "001A7D000001", {}, Result::kRefused}),
                testing::AllOf(HasSubstr("cannot be read"), testing::Not(HasSubstr("controller"))));
}

TEST_F(ProvisionTest, EachResultIsReportedOnceInOrder)
{
    unit.enterTestMode();
    peer.stored[0x03] = "SN1";
    std::vector<std::string> reported;
    const auto report = [&](const Done& done) {
        reported.push_back(std::string(done.record->name) + " " + name(done.result));
    };
    const std::vector<Wanted> values{wanted("factory-serial", "SN1"), wanted("drawing-code", "D-2")};

    const auto done = identity::write(unit, values, {}, report);
    EXPECT_EQ(done[1].before.value, "");
    EXPECT_EQ(done[1].after.value, "D-2");
    EXPECT_THAT(reported, ElementsAre("factory-serial unchanged", "drawing-code written"));

    reported.clear();
    identity::verify(unit, values, report);
    EXPECT_THAT(reported, ElementsAre("factory-serial matches", "drawing-code matches"));
}

TEST_F(ProvisionTest, FramesWithAWrongChecksumAreCountedWhenThereIsNoReply)
{
    unit.enterTestMode();
    peer.before = [&](const Frame&) {
        auto corrupt = wireBytes({0x8A, 0x03, {'S', 'N', '2'}});
        corrupt.back() ^= 0x01;
        peer.line.write(corrupt);
        return false;
    };

    try {
        unit.read(record("factory-serial"));
        FAIL() << "it answered";
    } catch (const NoAnswer& error) {
        EXPECT_THAT(error.what(), HasSubstr("frames with a wrong checksum: "));
        EXPECT_EQ(error.status(), protocol::kNoAnswer);
    }
}

TEST_F(ProvisionTest, TestModeIsKeptOnlyAfterItWasEntered)
{
    unit.keepTestMode();
    EXPECT_THAT(peer.received, testing::IsEmpty());

    unit.enterTestMode();
    peer.testMode = false;
    unit.keepTestMode();
    EXPECT_TRUE(peer.testMode);
    const std::size_t before = peer.received.size();
    unit.keepTestMode();
    EXPECT_EQ(peer.received.size(), before + 1);

    unit.restoreMode();
    EXPECT_FALSE(peer.testMode);
    const std::size_t after = peer.received.size();
    unit.restoreMode();
    EXPECT_EQ(peer.received.size(), after);
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

TEST_F(ProvisionTest, GarbageCorruptAndForeignFramesAreNotTheReadBack)
{
    unit.enterTestMode();
    peer.before = [&](const Frame& frame) {
        if (peer.writes() == 1 && frame == Frame{0x0A, 0x03, {}}) {
            auto corrupt = wireBytes({0x8A, 0x03, {'S', 'N', '2'}});
            corrupt.back() ^= 0x01;
            peer.line.write({0x00, 0xFF, 0x2A, 0x2A, 0xA2});
            peer.line.write(corrupt);
            peer.answer({0x8F, 0xFF, {0x01}});
        }
        return true;
    };

    EXPECT_THAT(write({wanted("factory-serial", "SN1")}), ElementsAre(Result::kWritten));
}

TEST_F(ProvisionTest, WrittenAddressCountsOnlyOnceTheControllerUsesIt)
{
    unit.enterTestMode();
    const Wanted address = wanted("bluetooth-address", "0002F5A1B2C3");
    write({address});

    EXPECT_THAT(verify({address}), ElementsAre(Result::kDiffers));
    EXPECT_EQ(describe(last),
              "bluetooth-address: expected 0002F5A1B2C3, got an address that cannot be read; the controller uses "
              "001A7DDA7113 until the unit starts again");
    EXPECT_THAT(write({address}), ElementsAre(Result::kRefused));

    peer.controllerAddress = {{0x00, 0x02, 0xF5, 0xA1, 0xB2, 0xC3}};
    EXPECT_THAT(verify({address}), ElementsAre(Result::kMatches));
    EXPECT_THAT(write({address}), ElementsAre(Result::kUnchanged));
}

}  // namespace
}  // namespace station::identity
