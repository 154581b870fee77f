#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Number.h"
#include "protocol/catalogue/SampleCatalogue.h"

namespace protocol::catalogue {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;

Frame encodeNamed(const char* key, const std::vector<Argument>& arguments)
{
    return encode(*findCommand(sample::kGroups, key), arguments);
}

/// @returns why the arguments were refused; empty when they were not.
std::string refusal(const char* key, const std::vector<Argument>& arguments)
{
    try {
        encodeNamed(key, arguments);
        return {};
    } catch (const UserError& error) {
        return error.what();
    }
}

struct Encoding {
    const char* name;
    const char* command;
    std::vector<Argument> arguments;
    Bytes params;
};

class EncodedBytes : public testing::TestWithParam<Encoding>
{
};

TEST_P(EncodedBytes, AreThoseOfTheWire)
{
    EXPECT_EQ(encodeNamed(GetParam().command, GetParam().arguments).params, GetParam().params);
}

INSTANTIATE_TEST_SUITE_P(
    Encode, EncodedBytes,
    testing::Values(
        Encoding{"DecimalNumber", "tuner.play", {{"frequency", "8750"}}, {0x22, 0x2E}},
        Encoding{"Records",
                 "gps.set_satellites",
                 {{"count", "2"}, {"satellites", "5:35 9:28"}},
                 {0x02, 0x05, 0x00, 0x00, 0x23, 0x09, 0x00, 0x00, 0x1C}},
        Encoding{"HexadecimalNumber", "tuner.play", {{"frequency", "0x222e"}}, {0x22, 0x2E}},
        Encoding{"LowestOfTheRange", "tuner.play", {{"frequency", "100"}}, {0x00, 0x64}},
        Encoding{"HighestOfTheRange", "tuner.play", {{"frequency", "10800"}}, {0x2A, 0x30}},
        Encoding{"NumberWithUnit", "tuner.play", {{"frequency", "87.5MHz"}}, {0x22, 0x2E}},
        Encoding{"NumberBlankUnit", "tuner.play", {{"frequency", "87.50 MHz"}}, {0x22, 0x2E}},
        Encoding{"NumberInAnotherUnit", "tuner.play", {{"frequency", "87500 kHz"}}, {0x22, 0x2E}},
        Encoding{"LowestNumberWithUnit", "tuner.play", {{"frequency", " 1 MHz "}}, {0x00, 0x64}},
        Encoding{"UpperCasePrefix", "tuner.play", {{"frequency", "0X64"}}, {0x00, 0x64}},
        Encoding{"NegativeHexadecimalNumber",
                 "gps.set_position",
                 {{"latitude", "-0x10"}, {"time", "0x0"}},
                 {0xFF, 0xFF, 0xFF, 0xF0, 0x00, 0x00, 0x00, 0x00}},
        Encoding{"RecordsWithBlanksToSpare",
                 "gps.set_satellites",
                 {{"count", "1"}, {"satellites", " 5::35  "}},
                 {0x01, 0x05, 0x00, 0x00, 0x23}},
        Encoding{"NoRecords", "gps.set_satellites", {{"count", "0"}, {"satellites", ""}}, {0x00}},
        Encoding{"EveryEndOfWhatIsPrintable", "identity.write_serial", {{"serial", " ~"}}, {0x20, 0x7E}},
        Encoding{"WholeNumberWithUnit", "tuner.play", {{"frequency", "108MHz"}}, {0x2A, 0x30}},
        // 94.7 / 0.01 is 9469.999… in binary fractions
        Encoding{"FractionThatBinaryHasNot", "tuner.play", {{"frequency", "94.7MHz"}}, {0x24, 0xFE}},
        Encoding{"ChoiceByName", "tuner.tune", {{"action", "up"}}, {0x01}},
        Encoding{"ChoiceByNumber", "tuner.tune", {{"action", "2"}}, {0x02}},
        Encoding{"NumberBesideOpenChoices", "tuner.band", {{"band", "9"}}, {0x09}},
        Encoding{"NumberWithItsOwnUnit", "identity.optional", {{"first", "0"}, {"second", "50km/h"}}, {0x00, 0x32}},
        Encoding{"BytesWithBlanks",
                 "bluetooth.set_address",
                 {{"address", "00 1A 7D DA 71 13"}},
                 {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
        Encoding{"BytesWithColons",
                 "bluetooth.set_address",
                 {{"address", "00:1a:7d:da:71:13"}},
                 {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
        Encoding{"Text", "identity.write_serial", {{"serial", "SN 1"}}, {0x53, 0x4E, 0x20, 0x31}},
        Encoding{"ShortestText", "identity.write_serial", {{"serial", "S"}}, {0x53}},
        Encoding{"EmptyTextWhereItMayBe", "identity.long", {{"text", ""}}, {}},
        Encoding{"HexText",
                 "identity.write_mac",
                 {{"mac", "00112233aAfF"}},
                 {0x30, 0x30, 0x31, 0x31, 0x32, 0x32, 0x33, 0x33, 0x61, 0x41, 0x66, 0x46}},
        Encoding{"NegativeAndLargestNumbers",
                 "gps.set_position",
                 {{"latitude", "-90000000"}, {"time", "4294967295"}},
                 {0xFA, 0xA2, 0xB5, 0x80, 0xFF, 0xFF, 0xFF, 0xFF}},
        Encoding{"NegativeNumberWithUnit",
                 "gps.set_position",
                 {{"latitude", "-0.000001deg"}, {"time", "0"}},
                 {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00}},
        Encoding{"ArgumentsInAnyOrder",
                 "gps.set_position",
                 {{"time", "1s"}, {"latitude", "2"}},
                 {0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01}},
        Encoding{"NoParameters", "tuner.frequency", {}, {}},
        Encoding{"OptionalOnesLeftOut", "identity.optional", {}, {}},
        Encoding{"LastOptionalLeftOut", "identity.optional", {{"first", "7"}}, {0x07}}),
    [](const auto& row) { return row.param.name; });

TEST(Encode, PutsTheCommandsCodesIntoTheFrame)
{
    const Frame frame = encodeNamed("tuner.tune", {{"action", "up"}});

    EXPECT_EQ(frame.cmdOne, 0x02);
    EXPECT_EQ(frame.cmdTwo, 0x04);
}

struct Refusal {
    const char* name;
    const char* command;
    std::vector<Argument> arguments;
    const char* text;
};

class RefusedValue : public testing::TestWithParam<Refusal>
{
};

TEST_P(RefusedValue, IsNamedTogetherWithWhatWouldBeRight)
{
    EXPECT_THAT(refusal(GetParam().command, GetParam().arguments), HasSubstr(GetParam().text));
}

const std::string kManyDigits(1000, '9');
const std::string kTwentyOneRecords = [] {
    std::string text = "1:1";
    for (int i = 1; i < 21; ++i) {
        text += " 1:1";
    }
    return text;
}();

INSTANTIATE_TEST_SUITE_P(
    Encode, RefusedValue,
    testing::Values(
        Refusal{"OneBelowTheRange", "tuner.play", {{"frequency", "99"}}, "frequency: expected 100 to 10800, got 99"},
        Refusal{"OneAboveTheRange", "tuner.play", {{"frequency", "10801"}}, "expected 100 to 10800, got 10801"},
        Refusal{"HexAboveTheRange", "tuner.play", {{"frequency", "0x2A31"}}, "expected 100 to 10800, got 0x2A31"},
        // 65536 + 8750: what is left of it in two bytes would be right
        Refusal{"WrapsRoundInTwoBytes",
                "tuner.play",
                {{"frequency", "74286"}},
                "frequency: expected 100 to 10800, got 74286"},
        Refusal{"WrapsRoundInEightBytes",
                "tuner.play",
                {{"frequency", "18446744073709560366"}},
                "expected 100 to 10800, got 18446744073709560366"},
        Refusal{"Int64Least",
                "tuner.play",
                {{"frequency", "-9223372036854775808"}},
                "expected 100 to 10800, got -9223372036854775808"},
        Refusal{"ManyDigits", "tuner.play", {{"frequency", kManyDigits}}, "expected 100 to 10800, got 9"},
        Refusal{"ManyDigitsNegative",
                "tuner.play",
                {{"frequency", "-" + kManyDigits}},
                "frequency: expected 100 to 10800, got "},
        Refusal{"ManyDigitsWithUnit",
                "tuner.play",
                {{"frequency", kManyDigits + "MHz"}},
                "frequency: expected 1 to 108 MHz, got "},
        Refusal{"ManyDigitsNegativeWithUnit",
                "tuner.play",
                {{"frequency", "-" + kManyDigits + "MHz"}},
                "frequency: expected 1 to 108 MHz, got "},
        Refusal{"Int64MostAndOne",
                "tuner.play",
                {{"frequency", "9223372036854775808"}},
                "expected 100 to 10800, got 9223372036854775808"},
        Refusal{"DecimalWithPrefixTwice", "tuner.play", {{"frequency", "0x0x64"}}, "got '0x0x64'"},
        Refusal{"MinusTwice", "tuner.play", {{"frequency", "--100"}}, "got '--100'"},
        Refusal{"ForeignUnitOfANumberWithItsOwn",
                "identity.optional",
                {{"first", "0"}, {"second", "50mph"}},
                "second: expected a number from 0 to 255 (unit: km/h), got '50mph'"},
        Refusal{"UnitOfANumberWithoutAny", "identity.optional", {{"first", "5km/h"}}, "got '5km/h'"},
        Refusal{"AStepAboveTheOneBetween",
                "identity.optional",
                {{"first", "0"}, {"second", "50.001km/h"}},
                "expected a multiple of 1 km/h, got 50.001km/h"},
        Refusal{"Negative", "tuner.play", {{"frequency", "-1"}}, "expected 100 to 10800, got -1"},
        Refusal{"ScaledBelow", "tuner.play", {{"frequency", "0.99MHz"}}, "expected 1 to 108 MHz, got 0.99MHz"},
        Refusal{"ScaledAbove", "tuner.play", {{"frequency", "108.01MHz"}}, "expected 1 to 108 MHz, got 108.01MHz"},
        Refusal{"ScaledNegative", "tuner.play", {{"frequency", "-87.5MHz"}}, "expected 1 to 108 MHz, got -87.5MHz"},
        // 742.86 MHz would be 74286, and 8750 in two bytes
        Refusal{
            "ScaledThatWrapsRound", "tuner.play", {{"frequency", "742.86MHz"}}, "expected 1 to 108 MHz, got 742.86MHz"},
        Refusal{"BetweenTwoSteps",
                "tuner.play",
                {{"frequency", "87.505MHz"}},
                "expected a multiple of 0.01 MHz, got 87.505MHz"},
        Refusal{"FractionWithoutUnit",
                "tuner.play",
                {{"frequency", "87.5"}},
                "frequency: expected a number from 100 to 10800, or in MHz on FM, as in 8750, got '87.5'"},
        Refusal{"ForeignUnit", "tuner.play", {{"frequency", "87.5mV"}}, "or in MHz on FM, as in 8750, got '87.5mV'"},
        Refusal{"Exponent", "tuner.play", {{"frequency", "1e3"}}, "got '1e3'"},
        Refusal{"NotANumber", "tuner.play", {{"frequency", "nan"}}, "got 'nan'"},
        Refusal{"NotANumberWithUnit", "tuner.play", {{"frequency", "nanMHz"}}, "got 'nanMHz'"},
        Refusal{"Infinity", "tuner.play", {{"frequency", "inf"}}, "got 'inf'"},
        Refusal{"MinusInfinityWithUnit", "tuner.play", {{"frequency", "-infMHz"}}, "got '-infMHz'"},
        Refusal{"Empty", "tuner.play", {{"frequency", ""}}, "got ''"},
        Refusal{"UnitOnly", "tuner.play", {{"frequency", "MHz"}}, "got 'MHz'"},
        Refusal{"MinusOnly", "tuner.play", {{"frequency", "-"}}, "got '-'"},
        Refusal{"PrefixOnly", "tuner.play", {{"frequency", "0x"}}, "got '0x'"},
        Refusal{"PlusSign", "tuner.play", {{"frequency", "+8750"}}, "got '+8750'"},
        Refusal{"DigitsThenText", "tuner.play", {{"frequency", "8750x"}}, "got '8750x'"},
        Refusal{"UnknownChoice",
                "tuner.tune",
                {{"action", "uo"}},
                "action: expected down (0), up (1) or store (2), as in up, got 'uo'; did you mean 'up'?"},
        Refusal{"NumberWithoutNameWhereNamesAreAll",
                "tuner.tune",
                {{"action", "3"}},
                "action: expected down (0), up (1) or store (2), got 3"},
        Refusal{"TextTooLong",
                "identity.write_serial",
                {{"serial", "1234567890123"}},
                "serial: expected 1 to 12 characters, got 13"},
        Refusal{"TextEmpty", "identity.write_serial", {{"serial", ""}}, "expected 1 to 12 characters, got 0"},
        Refusal{"TextWithControlCharacter",
                "identity.write_serial",
                {{"serial", "SN\n1"}},
                "expected printable ASCII, got"},
        Refusal{
            "TextBeyondAscii", "identity.write_serial", {{"serial", "SN\xC3\xA9"}}, "expected printable ASCII, got"},
        Refusal{"HexTextTooShort",
                "identity.write_mac",
                {{"mac", "00112233445"}},
                "mac: expected 12 hexadecimal digits, got 11"},
        Refusal{"HexTextTooLong", "identity.write_mac", {{"mac", "0011223344556"}}, "got 13"},
        Refusal{"HexTextWithSeparators", "identity.write_mac", {{"mac", "00:11:22:33:44:55"}}, "without separators"},
        Refusal{"BytesTooFew",
                "bluetooth.set_address",
                {{"address", "00 1A 7D DA 71"}},
                "address: expected 6 bytes in hexadecimal, got 5"},
        Refusal{"BytesTooMany", "bluetooth.set_address", {{"address", "00 1A 7D DA 71 13 00"}}, "got 7"},
        Refusal{
            "BytesThatAreNone", "bluetooth.set_address", {{"address", "00 1A 7D DA 71 XX"}}, "as in '00 1A 7D', got"},
        Refusal{"TextWithDelete", "identity.write_serial", {{"serial", "SN\x7F"}}, "expected printable ASCII, got"},
        Refusal{"TooManyRecords",
                "gps.set_satellites",
                {{"count", "20"}, {"satellites", kTwentyOneRecords}},
                "satellites: expected 0 to 20 records, got 21"},
        Refusal{"SecondNameUnknown",
                "identity.optional",
                {{"first", "1"}, {"third", "1"}},
                "expected first or second, got 'third'"},
        Refusal{"RecordCutShort", "gps.set_satellites", {{"count", "1"}, {"satellites", "5"}}, "got '5'"},
        Refusal{"NumberOfARecordOutOfRange",
                "gps.set_satellites",
                {{"count", "1"}, {"satellites", "256:35"}},
                "expected 0 to 255, got 256"},
        Refusal{"Missing",
                "tuner.play",
                {},
                "frequency: expected a number from 100 to 10800, or in MHz on FM, as in 8750, got none"},
        Refusal{"UnknownName",
                "tuner.play",
                {{"freq", "8750"}},
                "expected frequency, got 'freq'; did you mean 'frequency'?"},
        Refusal{
            "NameWhereThereIsNone", "tuner.frequency", {{"frequency", "1"}}, "expected no parameter, got 'frequency'"},
        Refusal{"EmptyName", "tuner.play", {{"", "8750"}}, "got ''"},
        Refusal{"Doubled",
                "tuner.play",
                {{"frequency", "8750"}, {"frequency", "8750"}},
                "frequency: expected one value, got two"},
        Refusal{"OptionalLeftOutInTheMiddle",
                "identity.optional",
                {{"second", "1"}},
                "first: expected a number from 0 to 255, got none before 'second'"},
        Refusal{"MoreThanAFrameHolds",
                "identity.long",
                {{"text", std::string(253, 'x')}},
                "expected at most 252 parameter bytes in a frame, got 253"}),
    [](const auto& row) { return row.param.name; });

TEST(ParseInteger, StopsAtTheEndsOf64Bits)
{
    using Limits = std::numeric_limits<std::int64_t>;
    const struct {
        const char* text;
        std::int64_t number;
    } rows[] = {{"9223372036854775807", Limits::max()},
                {"9223372036854775808", Limits::max()},
                {"-9223372036854775807", -Limits::max()},
                {"-9223372036854775808", Limits::min()},
                {"-99999999999999999999", Limits::min()}};
    for (const auto& [text, expected] : rows) {
        std::int64_t number = 0;
        EXPECT_TRUE(parseInteger(text, number)) << text;
        EXPECT_EQ(number, expected) << text;
    }
}

TEST(Encode, TakesAsMuchAsAFrameHolds)
{
    EXPECT_THAT(encodeNamed("identity.long", {{"text", std::string(252, 'x')}}).params, SizeIs(252));
}

}  // namespace
}  // namespace protocol::catalogue
