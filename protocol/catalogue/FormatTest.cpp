#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/SampleCatalogue.h"

namespace protocol::catalogue {
namespace {

using sample::kGroups;

struct Line {
    const char* name;
    Frame frame;
    const char* text;
};

class FormattedFrame : public testing::TestWithParam<Line>
{
};

TEST_P(FormattedFrame, IsOneLineThatANewcomerUnderstands)
{
    const Frame& frame = GetParam().frame;
    const bool fromUnit = (frame.cmdOne & kReplyBit) != 0;
    const Decoded decoded = fromUnit ? decodeFromUnit(kGroups, frame) : decodeRequest(kGroups, frame);

    EXPECT_EQ(format(kGroups, decoded, frame), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Format, FormattedFrame,
    testing::Values(Line{"Scaled", {0x82, 0x01, {0x24, 0xFE}}, "tuner.frequency: frequency=9470 (94.7 MHz on FM)"},
                    Line{"Choice", {0x02, 0x04, {0x01}}, "tuner.tune: action=1 (up)"},
                    Line{"NumberBesideChoices", {0x02, 0x02, {0x09}}, "tuner.band: band=9"},
                    Line{"NumberWithItsUnit", {0x0A, 0x31, {0x01, 0x32}}, "identity.optional: first=1 second=50 km/h"},
                    Line{"NoBytes",
                         {0x84, 0x07, {}},
                         "bluetooth.address: address=- (! address: expected 6 bytes in hexadecimal, got 0 bytes)"},
                    Line{"CharactersAtBothEndsOfWhatIsPrintable",
                         {0x8A, 0x0F, {0x20, 0x7E, 0x7F, 0x1F}},
                         "identity.password: password=\" ~\\x7F\\x1F\" (! password: expected printable "
                         "UTF-8, got other bytes)"},
                    Line{"RestOfARequest", {0x02, 0x04, {0x01, 0xAA, 0xBB}}, "tuner.tune: action=1 (up) + AA BB"},
                    Line{"NoFields", {0x02, 0x01, {}}, "tuner.frequency"},
                    Line{"Text", {0x8A, 0x0F, {0x31, 0x32}}, "identity.password: password=\"12\""},
                    Line{"EmptyText", {0x8A, 0x0F, {}}, "identity.password: password=\"\""},
                    Line{"TextThatWouldSteerATerminal",
                         {0x8A, 0x0F, {0x22, 0x5C, 0x1B, 0x0A, 0xC3}},
                         "identity.password: password=\"\\\"\\\\\\x1B\\x0A\\xC3\" (! password: expected printable "
                         "UTF-8, got other bytes)"},
                    Line{"Bytes",
                         {0x84, 0x07, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}},
                         "bluetooth.address: address=00 1A 7D DA 71 13"},
                    Line{"Records",
                         {0x85, 0x00, {0x02, 0x05, 0x00, 0x00, 0x23, 0x09, 0x00, 0x00, 0x1C}},
                         "gps.satellites: count=2 satellites=[{number=5 signal=35 dB}, {number=9 signal=28 dB}]"},
                    Line{"NoRecords", {0x85, 0x00, {0x00}}, "gps.satellites: count=0 satellites=[]"},
                    Line{"NegativeScaled",
                         {0x85, 0x02, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x01}},
                         "gps.position: latitude=-1 (-1e-06 deg) time=1 s"},
                    Line{"Notice", {0x86, 0x11, {0x25, 0x04}}, "keys.pressed: key=37 status=4"},
                    Line{"OutOfRange",
                         {0x82, 0x01, {0x00, 0x01}},
                         "tuner.frequency: frequency=1 (0.01 MHz on FM) (! frequency: expected 100 to 10800, got 1)"},
                    Line{"TooLong",
                         {0x82, 0x01, {0x24, 0xFE, 0x07}},
                         "tuner.frequency: frequency=9470 (94.7 MHz on FM) + 07 (! 1 byte too many)"},
                    Line{"TooShort", {0x82, 0x01, {}}, "tuner.frequency (! frequency: expected 2 bytes, got none)"},
                    Line{"Unknown", {0x8F, 0x77, {0x01, 0x02}}, "8F 77: 01 02"},
                    Line{"UnknownWithoutParameters", {0x33, 0x77, {}}, "33 77"}),
    [](const auto& row) { return row.param.name; });

TEST(Format, SaysWhenAReplyWithoutFieldsComes)
{
    const Frame frame{0x8A, 0x0F, {}};
    const Decoded decoded = decodeFromUnit(kGroups, frame, findCommand(kGroups, "identity.mac"));

    EXPECT_EQ(format(kGroups, decoded, frame), "identity.mac: no record");
}

TEST(Describe, SaysWhatAValueMayBe)
{
    EXPECT_EQ(describe(sample::kFrequency), "a number from 100 to 10800, or in MHz on FM");
    EXPECT_EQ(describe(sample::kActionParams[0]), "down (0), up (1) or store (2)");
    EXPECT_EQ(describe(sample::kBandParams[0]), "a number from 0 to 255, such as fm (0) or dab (5)");
    EXPECT_EQ(describe(sample::kAddressFields[0]), "6 bytes in hexadecimal");
    EXPECT_EQ(describe(sample::kSerialFields[0]), "1 to 12 characters");
    EXPECT_EQ(describe(sample::kMacFields[0]), "12 hexadecimal digits");
    EXPECT_EQ(describe(sample::kPositionFields[1]), "a number from 0 to 4294967295 (unit: s)");
    EXPECT_EQ(describe(sample::kPositionFields[0]), "a number from -90000000 to 90000000, or in deg");
    EXPECT_EQ(describe(sample::kSatellitesFields[1]), "0 to 20 records");
}

}  // namespace
}  // namespace protocol::catalogue
