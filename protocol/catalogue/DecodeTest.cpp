#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/SampleCatalogue.h"

namespace protocol::catalogue {
namespace {

using sample::kGroups;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;

const Command& command(const char* key)
{
    return *findCommand(kGroups, key);
}

std::int64_t number(const DecodedField& field)
{
    return std::get<std::int64_t>(field.value);
}

TEST(DecodeRequest, NamesTheCommandAndItsValues)
{
    const Decoded decoded = decodeRequest(kGroups, {0x02, 0x04, {0x01}});

    EXPECT_EQ(decoded.command, &command("tuner.tune"));
    ASSERT_THAT(decoded.fields, SizeIs(1));
    EXPECT_EQ(decoded.fields[0].field->name, "action");
    EXPECT_EQ(number(decoded.fields[0]), 1);
    EXPECT_EQ(decoded.fields[0].choice(), "up");
    EXPECT_THAT(decoded.problems, IsEmpty());
}

TEST(DecodeRequest, KeepsBytesBehindTheFieldsWithoutComplaint)
{
    const Decoded decoded = decodeRequest(kGroups, {0x02, 0x04, {0x01, 0xAA, 0xBB}});

    EXPECT_THAT(decoded.rest, ElementsAre(0xAA, 0xBB));
    EXPECT_THAT(decoded.problems, IsEmpty());
}

TEST(DecodeRequest, TellsWhatIsWrongWithAParameter)
{
    EXPECT_THAT(decodeRequest(kGroups, {0x02, 0x04, {0x09}}).problems, SizeIs(1));
}

TEST(DecodeRequest, OfAnUnknownCommandStaysBytes)
{
    const Decoded decoded = decodeRequest(kGroups, {0x33, 0x44, {0x01, 0x02}});

    EXPECT_FALSE(decoded.known());
    EXPECT_THAT(decoded.rest, ElementsAre(0x01, 0x02));
    EXPECT_THAT(decoded.fields, IsEmpty());
}

TEST(DecodeFromUnit, NamesTheCommandThatItAnswers)
{
    const Decoded decoded = decodeFromUnit(kGroups, {0x82, 0x01, {0x22, 0x2E}});

    EXPECT_EQ(decoded.command, &command("tuner.frequency"));
    EXPECT_EQ(decoded.reply, &command("tuner.frequency").replies[0]);
    EXPECT_EQ(decoded.notice, nullptr);
    ASSERT_THAT(decoded.fields, SizeIs(1));
    EXPECT_EQ(number(decoded.fields[0]), 8750);
}

TEST(DecodeFromUnit, FindsTheReplyUnderAnotherGroup)
{
    EXPECT_EQ(decodeFromUnit(kGroups, {0x82, 0x08, {0x01}}).command, &command("bluetooth.delete_pairings"));
}

TEST(DecodeFromUnit, FindsTheReplyThatComesLater)
{
    const Decoded decoded = decodeFromUnit(kGroups, {0x84, 0x08, {0x01}});

    EXPECT_EQ(decoded.command, &command("bluetooth.delete_pairings"));
    EXPECT_EQ(decoded.reply, &command("bluetooth.delete_pairings").later[0]);
}

TEST(DecodeFromUnit, TakesASharedCodeAsTheReplyToWhatWasAsked)
{
    const Frame frame{0x8A, 0x0F, {}};

    EXPECT_EQ(decodeFromUnit(kGroups, frame).command, &command("identity.password"));
    EXPECT_EQ(decodeFromUnit(kGroups, frame, &command("identity.mac")).command, &command("identity.mac"));
    EXPECT_EQ(decodeFromUnit(kGroups, frame, &command("identity.mac")).reply->when, "no record");
}

TEST(DecodeFromUnit, TakesASharedCodeThatDoesNotFitWhatWasAskedAsAnothersReply)
{
    const Decoded decoded = decodeFromUnit(kGroups, {0x8A, 0x0F, {0x31}}, &command("identity.mac"));

    EXPECT_EQ(decoded.command, &command("identity.password"));
    EXPECT_THAT(decoded.problems, IsEmpty());
}

TEST(DecodeFromUnit, NamesANotice)
{
    const Decoded decoded = decodeFromUnit(kGroups, {0x86, 0x11, {0x25}});

    EXPECT_EQ(decoded.notice, findNotice(kGroups, "keys.pressed"));
    EXPECT_EQ(decoded.command, nullptr);
    EXPECT_THAT(decoded.fields, SizeIs(1));
    EXPECT_THAT(decoded.problems, IsEmpty());
}

TEST(DecodeFromUnit, ReadsAnOptionalFieldThatIsThere)
{
    EXPECT_THAT(decodeFromUnit(kGroups, {0x86, 0x11, {0x25, 0x04}}).fields, SizeIs(2));
}

TEST(DecodeFromUnit, TakesNoRequestForAFrameOfTheUnit)
{
    EXPECT_FALSE(decodeFromUnit(kGroups, {0x02, 0x01, {}}).known());
}

TEST(DecodeFromUnit, ReadsNumbersOfEverySizeHighByteFirst)
{
    const Decoded position = decodeFromUnit(kGroups, {0x85, 0x02, {0xFE, 0xFD, 0xFC, 0xFB, 0xF1, 0x02, 0x03, 0x04}});
    ASSERT_THAT(position.fields, SizeIs(2));
    EXPECT_EQ(number(position.fields[0]), -16909061);
    EXPECT_EQ(number(position.fields[1]), 0xF1020304);

    const Decoded satellites = decodeFromUnit(kGroups, {0x85, 0x00, {0x01, 0x05, 0x00, 0x00, 0x23}});
    const auto& records = std::get<std::vector<Record>>(satellites.fields[1].value);
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(number(records[0][0]), 5);
    EXPECT_EQ(number(records[0][1]), 0x23);
}

TEST(Decode, SaysThatThereAreMoreRecordsThanThereMayBe)
{
    Frame frame{0x85, 0x00, {21}};
    for (std::uint8_t number = 1; number <= 21; ++number) {
        frame.params.insert(frame.params.end(), {number, 0x00, 0x00, 0x23});
    }

    EXPECT_THAT(decodeFromUnit(kGroups, frame).problems,
                ElementsAre("count: expected 0 to 20, got 21", "satellites: expected 0 to 20 records, got 21"));
}

TEST(DecodeFromUnit, ReadsTextsAndBytesToTheEnd)
{
    EXPECT_EQ(std::get<std::string>(decodeFromUnit(kGroups, {0x8A, 0x0F, {0x31, 0x32}}).fields[0].value), "12");
    EXPECT_EQ(std::get<Bytes>(decodeFromUnit(kGroups, {0x84, 0x07, {0, 1, 2, 3, 4, 5}}).fields[0].value),
              (Bytes{0, 1, 2, 3, 4, 5}));
}

TEST(DecodeFromUnit, TakesEveryHexadecimalDigitAndNothingElse)
{
    for (int byte = 0; byte < 256; ++byte) {
        Frame frame{0x8A, 0x12, Bytes(12, static_cast<std::uint8_t>(byte))};
        const bool digit = byte < 0x80 && std::isxdigit(byte) != 0;
        EXPECT_EQ(decodeFromUnit(kGroups, frame).problems.empty(), digit) << byte;
    }
}

TEST(DecodeFromUnit, TakesEveryPrintableCharacterAndNothingElse)
{
    for (int byte = 0; byte < 256; ++byte) {
        const Frame frame{0x8A, 0x30, {static_cast<std::uint8_t>(byte)}};
        EXPECT_EQ(decodeFromUnit(kGroups, frame).problems.empty(), byte >= ' ' && byte <= '~') << byte;
    }
}

TEST(DecodeFromUnit, TakesWhatWasAskedBeforeAnotherCommandsOwnReply)
{
    const Frame frame{0x8A, 0x0F, {0x31}};

    EXPECT_EQ(decodeFromUnit(kGroups, frame, &command("identity.shadow")).command, &command("identity.shadow"));
    EXPECT_EQ(decodeFromUnit(kGroups, frame, &command("identity.late")).command, &command("identity.late"));
    EXPECT_EQ(decodeFromUnit(kGroups, frame).command, &command("identity.password"));
}

TEST(DecodeFromUnit, PrefersAReplyAtOnceToALaterOneAndTheCommandsOwnCodeToAForeignOne)
{
    // By code, in the order of the table: "elsewhere" later, "own" later, "elsewhere" at once.
    EXPECT_EQ(decodeFromUnit(kGroups, {0x8A, 0x41, {}}).command, &command("identity.at-once"));
    EXPECT_EQ(decodeFromUnit(kGroups, {0x8A, 0x42, {}}).command, &command("identity.own"));
}

struct Misfit {
    const char* name;
    Frame frame;
    std::vector<std::string> problems;
    std::size_t fields;
    Bytes rest;
};

class MisfitFromUnit : public testing::TestWithParam<Misfit>
{
};

TEST_P(MisfitFromUnit, IsShownAndFlagged)
{
    const Decoded decoded = decodeFromUnit(kGroups, GetParam().frame);

    EXPECT_TRUE(decoded.known());
    EXPECT_EQ(decoded.problems, GetParam().problems);
    EXPECT_THAT(decoded.fields, SizeIs(GetParam().fields));
    EXPECT_EQ(decoded.rest, GetParam().rest);
}

INSTANTIATE_TEST_SUITE_P(
    Decode, MisfitFromUnit,
    testing::Values(
        Misfit{"Empty", {0x82, 0x01, {}}, {"frequency: expected 2 bytes, got none"}, 0, {}},
        Misfit{"CutShort", {0x82, 0x01, {0x22}}, {"frequency: expected 2 bytes, got 1"}, 0, {0x22}},
        Misfit{"OneByteTooMany", {0x82, 0x01, {0x22, 0x2E, 0x07}}, {"1 byte too many"}, 1, {0x07}},
        Misfit{"TwoBytesTooMany", {0x82, 0x01, {0x22, 0x2E, 0x07, 0x08}}, {"2 bytes too many"}, 1, {0x07, 0x08}},
        Misfit{"OneBelowTheRange", {0x82, 0x01, {0x00, 0x63}}, {"frequency: expected 100 to 10800, got 99"}, 1, {}},
        Misfit{"OneAboveTheRange", {0x82, 0x01, {0x2A, 0x31}}, {"frequency: expected 100 to 10800, got 10801"}, 1, {}},
        Misfit{"NoneOfTheChoices", {0x84, 0x08, {0x02}}, {"result: expected 0 to 1, got 2"}, 1, {}},
        Misfit{"BytesTooFew", {0x84, 0x07, {0x01}}, {"address: expected 6 bytes in hexadecimal, got 1 byte"}, 1, {}},
        Misfit{"BytesTooMany",
               {0x84, 0x07, Bytes(7, 0x01)},
               {"address: expected 6 bytes in hexadecimal, got 7 bytes"},
               1,
               {}},
        Misfit{"HexTextWithAnotherCharacter",
               {0x8A, 0x12, {0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x30, 0x47}},
               {"mac: expected hexadecimal digits only, got others"},
               1,
               {}},
        Misfit{"TextWithControlCharacter",
               {0x8A, 0x0F, {0x31, 0x1B}},
               {"password: expected printable UTF-8, got other bytes"},
               1,
               {}},
        Misfit{"FewerRecordsThanAnnounced",
               {0x85, 0x00, {0x03, 0x05, 0x00, 0x00, 0x23, 0x09}},
               {"satellites: expected 3 records, got 1"},
               2,
               {0x09}},
        Misfit{"MoreRecordsThanAnnounced",
               {0x85, 0x00, {0x00, 0x05, 0x00, 0x00, 0x23}},
               {"4 bytes too many"},
               2,
               {0x05, 0x00, 0x00, 0x23}},
        Misfit{"MoreRecordsThanThereMayBe",
               {0x85, 0x00, {0xFF}},
               {"count: expected 0 to 20, got 255", "satellites: expected 255 records, got 0"},
               2,
               {}},
        Misfit{"RecordOutOfRange",
               {0x85, 0x00, {0x01, 0x05, 0x00, 0x00, 0x64}},
               {"satellites: record 1: signal: expected 0 to 99, got 100"},
               2,
               {}},
        Misfit{"OptionalOutOfRange", {0x86, 0x11, {0x25, 0x05}}, {"status: expected 0 to 4, got 5"}, 2, {}},
        Misfit{"RecordsWithoutTheirNumber", {0x85, 0x00, {}}, {"count: expected 1 byte, got none"}, 0, {}},
        Misfit{"TextTooLong",
               {0x8A, 0x30, {0x41, 0x42, 0x43, 0x44, 0x45}},
               {"tag: expected 0 to 4 characters, got 5 bytes"},
               1,
               {}}),
    [](const auto& row) { return row.param.name; });

TEST(DecodeFromUnit, ReadableUtf8IsNoFault)
{
    const Decoded decoded = decodeFromUnit(kGroups, {0x8A, 0x0F, {'Z', 0xC3, 0xBC, 'g'}});

    EXPECT_THAT(decoded.problems, IsEmpty());
    EXPECT_EQ(format(kGroups, decoded, {0x8A, 0x0F, {}}), "identity.password: password=\"Züg\"");
}

/// The unit sends what it has stored: other lengths and characters are remarkable, not wrong.
TEST(DecodeFromUnit, UnusualValueOfALenientFieldIsARemark)
{
    const Frame address{0x84, 0x07, {0x00, 0x1A}};
    const Decoded shortened = decodeFromUnit(groups(), address);
    EXPECT_THAT(shortened.problems, IsEmpty());
    EXPECT_EQ(shortened.fields.at(0).problem, "");
    EXPECT_EQ(format(groups(), shortened, address),
              "bluetooth.address: address=00 1A (note: unusual address, expected 6 bytes in hexadecimal, got 2 bytes)");

    const Decoded text =
        decodeFromUnit(groups(), {0x8A, 0x12, {'s', 'e', 'c', 'o', 'n', 'd', ' ', 'h', 'a', 'n', 'd', '!'}});
    EXPECT_THAT(text.problems, IsEmpty());
    EXPECT_THAT(text.remarks, ElementsAre("unusual value, expected hexadecimal digits only, got others"));

    EXPECT_THAT(decodeFromUnit(groups(), {0x84, 0x07, {0, 1, 2, 3, 4, 5}}).remarks, IsEmpty());
}

TEST(Decode, TakesAnyBytes)
{
    std::mt19937 random(20240229);
    for (int i = 0; i < 20'000; ++i) {
        // The codes that the table has, mostly, and parameters of every length.
        Frame frame{static_cast<std::uint8_t>((random() % 4 == 0 ? 0 : 0x80) | random() % 12),
                    static_cast<std::uint8_t>(random() % 0x34),
                    Bytes(random() % 4 == 0 ? random() % 253 : random() % 9)};
        for (auto& byte : frame.params) {
            byte = static_cast<std::uint8_t>(random());
        }
        for (const Decoded& decoded : {decodeRequest(kGroups, frame), decodeFromUnit(kGroups, frame)}) {
            const std::string line = format(kGroups, decoded, frame);
            ASSERT_EQ(printable(line), line);
            ASSERT_LE(decoded.rest.size(), frame.params.size());
        }
    }
}

}  // namespace
}  // namespace protocol::catalogue
