#include "station/trace/CaptureReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "protocol/Errors.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/ClockText.h"

namespace station {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Kind = TraceEvent::Kind;

const std::string kTwoFrames = "\x2A\xA2\x00\x02\x02\x01\xFF\xFB\x2A\xA2\x00\x03\x8F\x00\x01\x00\xFF\x6D"s;

struct Read {
    std::string format;
    std::vector<CapturePiece> pieces;
    std::string ignored;
    std::string error;
};

Read readAll(std::istream& in, CaptureTerms terms = {})
{
    Read result;
    try {
        CaptureReader reader(in, "a", std::move(terms));
        result.format = reader.format();
        while (auto piece = reader.next()) {
            result.pieces.push_back(*std::move(piece));
        }
        result.ignored = reader.ignored();
    } catch (const protocol::UserError& error) {
        result.error = error.what();
    }
    return result;
}

Read readText(const std::string& text, CaptureTerms terms = {})
{
    std::istringstream in(text);
    return readAll(in, std::move(terms));
}

/// @returns one piece: ">" from the station, "<" from the unit, "!" for a wrong checksum, "?" for garbage, "…" for an
/// incomplete frame.
std::string textOf(const CapturePiece& piece)
{
    if (!piece.event) {
        return (piece.noise.kind == ScannedPiece::Kind::kGarbage ? "? " : "… ") +
               protocol::catalogue::formatHexBytes(piece.noise.bytes);
    }
    const Kind kind = piece.event->kind;
    return (kind == Kind::kSent       ? "> "
            : kind == Kind::kReceived ? "< "
                                      : "! ") +
           protocol::catalogue::formatFrame(piece.event->frame);
}

std::vector<std::string> textsOf(const Read& read)
{
    std::vector<std::string> texts;
    std::ranges::transform(read.pieces, std::back_inserter(texts), textOf);
    return texts;
}

std::filesystem::path captures()
{
    return std::filesystem::path(SOURCE_FOLDER) / "station" / "trace" / "captures";
}

struct Export {
    const char* file;
    const char* format;
    const char* lastTime;  ///< in UTC; empty for a capture without times
};

class CaptureExport : public testing::TestWithParam<Export>
{
protected:
    Read read(CaptureTerms terms = {}) const
    {
        std::ifstream in(captures() / GetParam().file, std::ios::binary);
        return readAll(in, std::move(terms));
    }
};

// Each file holds the same conversation in the form of another tool's export.
TEST_P(CaptureExport, IsKnownByItsBeginningAndReadWithDirectionsAndTimes)
{
    const auto found = read();

    EXPECT_EQ(found.error, "");
    EXPECT_EQ(found.format, GetParam().format);
    ASSERT_THAT(textsOf(found), ElementsAre("> 02 01 []", "< 82 01 [24 FE]", "> 0F 00 [01]", "< 8F 00 [01]"));
    const auto& last = found.pieces.back();
    EXPECT_EQ(last.timed ? isoUtc(last.event->at, 6) : "", GetParam().lastTime);
    EXPECT_EQ(textsOf(read({.format = GetParam().format})), textsOf(found));
}

// A byte of hexadecimal text may be cut in two.
TEST_P(CaptureExport, CutAnywhereGivesWhatIsWholeAndAtMostOneError)
{
    std::ifstream in(captures() / GetParam().file, std::ios::binary);
    const std::string whole{std::istreambuf_iterator<char>(in), {}};
    const auto all = textsOf(readText(whole));

    for (std::size_t size = 0; size < whole.size(); size += 1 + whole.size() / 400) {
        const auto cut = readText(whole.substr(0, size), {.format = GetParam().format});

        auto texts = textsOf(cut);
        std::erase_if(texts, [](const std::string& text) { return text[0] != '<' && text[0] != '>'; });
        ASSERT_LE(texts.size(), all.size());
        ASSERT_TRUE(std::equal(texts.begin(), texts.end(), all.begin())) << size;
        ASSERT_THAT(cut.error, testing::AnyOf(IsEmpty(), StartsWith("a:"))) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(CaptureReader, CaptureExport,
                         testing::Values(Export{"saleae-logic1.csv", "saleae", "1970-01-01T00:00:00.109546Z"},
                                         Export{"saleae-logic1-search.csv", "saleae", "1970-01-01T00:00:00.109546Z"},
                                         Export{"saleae-logic2.csv", "saleae", "1970-01-01T00:00:00.109546Z"},
                                         Export{"saleae-logic2-iso.csv", "saleae", "2026-11-21T12:00:00.109546Z"},
                                         Export{"sigrok.txt", "sigrok", ""}, Export{"sigrok-classes.txt", "sigrok", ""},
                                         Export{"xxd.txt", "xxd", ""}, Export{"hexdump.txt", "hexdump", ""},
                                         Export{"raw.bin", "raw", ""}, Export{"hex.txt", "hex", ""},
                                         Export{"contents.txt", "hex", ""},
                                         Export{"log-utc.txt", "log", "2026-11-21T12:00:00.109000Z"},
                                         Export{"log-seconds.txt", "log", "1970-01-01T00:00:12.108765Z"},
                                         Export{"little-us.pcap", "pcapng", "2026-11-21T12:00:00.108765Z"},
                                         Export{"little-ns.pcap", "pcapng", "2026-11-21T12:00:00.108765Z"},
                                         Export{"big-us.pcap", "pcapng", "2026-11-21T12:00:00.108765Z"},
                                         Export{"big-ns.pcap", "pcapng", "2026-11-21T12:00:00.108765Z"},
                                         Export{"trace.pcapng", "pcapng", "2026-11-21T12:00:00.108765Z"}),
                         [](const auto& row) {
                             std::string name(row.param.file);
                             std::ranges::replace_if(
                                 name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
                             return name;
                         });

TEST(CaptureReader, ChannelNamedByTheUserIsTheStations)
{
    std::ifstream in(captures() / "saleae-logic2.csv");
    EXPECT_THAT(textsOf(readAll(in, {.stationChannel = "from unit"})),
                ElementsAre("< 02 01 []", "> 82 01 [24 FE]", "< 0F 00 [01]", "> 8F 00 [01]"));
    EXPECT_THAT(textsOf(readText("TX: 2A A2 00 02 02 01 FF FB\n", {.stationChannel = "RX"})),
                ElementsAre("< 02 01 []"));
    EXPECT_EQ(readText("TX: 2A A2 00 02 02 01 FF FB\n", {.stationChannel = "line 2"}).error,
              "a: expected a channel 'line 2', got 'TX'");
    EXPECT_EQ(readText(kTwoFrames, {.stationChannel = "TX"}).error, "a: expected a channel 'TX', got none");
}

TEST(CaptureReader, ChannelsThatTalkAtOnceAreKeptApart)
{
    EXPECT_THAT(textsOf(readText("1.0 TX: 2A A2 00 02\n"
                                 "1.1 RX: 2A A2 00 03 8F 00\n"
                                 "1.2 TX: 02 01 FF FB\n"
                                 "1.3 RX: 01 00 FF 6D\n")),
                ElementsAre("> 02 01 []", "< 8F 00 [01]"));
}

TEST(CaptureReader, DamagedFramesGarbageAndACutEndStayInTheirPlaces)
{
    EXPECT_THAT(textsOf(readText("RX: 11 2A A2 00 03 8F 00 01 00 FF 6E\nRX: 2A A2 00 03 8F 00 01 00 FF 6D\nRX: 2A A2")),
                ElementsAre("? 11", "! 8F 00 [01]", "< 8F 00 [01]", "… 2A A2"));
}

TEST(CaptureReader, LogOfTimesOfDayGoesOnAfterMidnight)
{
    const auto found = readText("23:59:59.500 TX 2AA200020201FFFB\n00:00:00,25 RX(8): 2AA200038F000100FF6D\n");

    ASSERT_THAT(found.pieces, SizeIs(2));
    EXPECT_EQ(found.pieces[1].event->at - found.pieces[0].event->at, std::chrono::milliseconds(750));
}

TEST(CaptureReader, LinesOfALogWithoutBytesAreCounted)
{
    const auto found = readText("port opened\nTX: 2A A2 00 02 02 01 FF FB | asked\nRX: time-out\n");

    EXPECT_THAT(textsOf(found), ElementsAre("> 02 01 []"));
    EXPECT_EQ(found.ignored, "2 lines without TX: or RX: and bytes");
}

TEST(CaptureReader, RemarksOfALogThatBeginWithANumberAreNoBytes)
{
    const auto found = readText("TX: 2A A2 00 02 02 01 FF FB\n12:00:00.2 RX: 10 bytes\nreceived 42\nRX: 55\n");

    EXPECT_EQ(found.error, "");
    EXPECT_THAT(textsOf(found), ElementsAre("> 02 01 []", "? 55"));
    EXPECT_EQ(found.ignored, "2 lines without TX: or RX: and bytes");
}

TEST(CaptureReader, TimesThatAreFarApartHaveADifference)
{
    const auto found = readText(
        "0001-01-01 00:00:00 TX: 2A A2 00 02 02 01 FF FB\n"
        "9999-12-31 00:00:00 RX: 2A A2 00 03 8F 00 01 00 FF 6D\n");

    ASSERT_THAT(found.pieces, SizeIs(2));
    EXPECT_EQ(found.pieces[1].event->at - found.pieces[0].event->at, std::chrono::seconds(8'000'000'000));
    EXPECT_THAT(readText("Time [s],Value\n7000000000,0x2A\n").error, StartsWith("a:2: expected a row with a time"));
}

TEST(CaptureReader, PiecesBeforeAnErrorAreHandedOut)
{
    const auto cut = readText("TX: 2A A2 00 02 02 01 FF FB 2A A2\nRX: 2A A\n");
    EXPECT_THAT(textsOf(cut), ElementsAre("> 02 01 []", "… 2A A2"));
    EXPECT_THAT(cut.error, StartsWith("a:2: "));

    const auto unknown = readText("TX: 2A A2 00 02 02 01 FF FB 2A A2\n", {.stationChannel = "A"});
    EXPECT_THAT(textsOf(unknown), ElementsAre("< 02 01 []", "… 2A A2"));
    EXPECT_EQ(unknown.error, "a: expected a channel 'A', got 'TX'");
}

TEST(CaptureReader, StarOfHexdumpStandsForTheLineBefore)
{
    const std::string line = "  2a a2 00 02 02 01 ff fb  2a a2 00 02 02 01 ff fb  |*.......*.......|\n";

    EXPECT_THAT(textsOf(readText("00000000" + line + "*\n00000030" + line + "00000040\n")), SizeIs(8));
    EXPECT_THAT(readText("00000000" + line + "*\n00000035\n").error, StartsWith("a:3: expected a line of hexdump -C"));
    EXPECT_THAT(readText("00000000" + line + "*\nf00000000000\n").error, StartsWith("a:3: expected"));
}

TEST(CaptureReader, OldExportInOtherRadicesIsRead)
{
    EXPECT_THAT(textsOf(readText("Time [s],Value,Parity Error,Framing Error\n0,42,,\n1,0b1010 0010,,\n2,0,,\n3,2,,\n"
                                 "4,2,,\n5,1,,\n6,0xFF,,Error\n7,\"0xFB\",,\n")),
                ElementsAre("> 02 01 []"));
}

struct Refused {
    const char* name;
    std::string text;
    const char* format;
    const char* error;
};

class CaptureRefused : public testing::TestWithParam<Refused>
{
};

TEST_P(CaptureRefused, InOneLineThatSaysWhatWasExpected)
{
    EXPECT_THAT(readText(GetParam().text, {.format = GetParam().format}).error, HasSubstr(GetParam().error));
}

INSTANTIATE_TEST_SUITE_P(
    CaptureReader, CaptureRefused,
    testing::Values(
        Refused{"Prose", "Dear all,\nthe unit is silent.\n", "auto",
                "a: expected a capture (pcapng, pcap, Saleae CSV, sigrok UART annotations, xxd, hexdump -C, a log with "
                "TX: and RX:, hexadecimal text, raw bytes with a frame), got 'Dear all,'; --format names the form"},
        Refused{"Picture", "\x89PNG\r\n\x1A\n\0\0\0\rIHDR"s, "auto", "got bytes without a frame; --format"},
        Refused{"OtherCsv", "Time [s],Channel 0\n0,1\n", "auto", "got 'Time [s],Channel 0'"},
        Refused{"OtherCsvAsSaleae", "Time [s],Channel 0\n0,1\n", "saleae", "a:1: expected a heading with the columns"},
        Refused{"SaleaeInAscii", "Time [s],Value,Parity Error,Framing Error\n0.1,COMMA,,\n", "auto",
                "a:2: expected a row with a time and a value such as 0x2A (export values in hexadecimal), got"},
        Refused{"SaleaeWithoutTime", "Time [s],Value\nnan,0x2A\n", "auto", "a:2: expected a row with a time"},
        Refused{"WordsOfHexdump", "0000000 a22a 0200 0102 fbff\n0000008\n", "auto", "got '0000000 a22a"},
        Refused{"XxdOfHalfAByte", "00000000: 2aa2 000\n", "auto", "a: expected a capture"},
        Refused{"XxdWithAnotherLine", "00000000: 2aa2  *.\nhello\n", "auto", "a:2: expected a line of xxd"},
        Refused{"XxdWithAJump", "00000000: 2aa2  *.\n00000010: 2aa2  *.\n", "auto",
                "a:2: expected the offset 00000002, or '*' before this line, got '00000010: 2aa2"},
        Refused{"XxdOfBits", "00000000: 00101010 10100010 00000000  *..\n", "xxd",
                "a:1: expected the characters of the bytes (xxd without -b and -e), got '00000000: 00101010"},
        Refused{"XxdOfLittleEndianWords", "00000000: 0200a22a fbff0102                    *.......\n", "xxd",
                "a:1: expected the characters of the bytes (xxd without -b and -e)"},
        Refused{"HexdumpWithAJump", "00000000  2a a2  |*.|\n00000003\n", "auto", "a:2: expected the offset 00000002"},
        Refused{"StarAtTheEnd", "00000000  2a a2  |*.|\n*\n", "auto",
                "a:3: expected an offset behind '*', got the end"},
        Refused{"SigrokWithAnotherLine", "uart-1: 2A\nhello\n", "auto", "a:2: expected an annotation"},
        Refused{"LogWithABrokenByte", "TX: 2A A2\nRX: 2A A\n", "auto", "a:2: expected bytes in hexadecimal behind"},
        Refused{"HexWithAnotherLine", "00\nxyz\n", "auto", "a:2: expected bytes in hexadecimal"},
        Refused{"ContentsWithBytes", "8F 00 [01]\n8F 00 [01] 02\n", "auto", "a:2: expected two codes"},
        Refused{"CutPcap", "\xD4\xC3\xB2\xA1\x02", "auto", "a: the file ends within"},
        Refused{"LongLine", std::string((std::size_t{4} << 20) + 2, ' '), "hex", "a:1: expected a line of at most"},
        Refused{"SeventeenChannels",
                [] {
                    std::string text = "name,type,start_time,duration,data\n";
                    for (int i = 0; i < 17; ++i) {
                        text += std::to_string(i) + ",data,0,0,0x2A\n";
                    }
                    return text;
                }(),
                "auto", "a:18: expected at most 16 channels, got '16' too"}),
    [](const auto& row) { return row.param.name; });

/// A stream of `size` bytes that repeats a pattern, one at a time.
class Endless : public std::streambuf
{
public:
    Endless(std::string pattern, std::size_t size) : pattern_(std::move(pattern)), left_(size / pattern_.size()) {}

    std::size_t left() const { return left_; }

protected:
    int_type underflow() override
    {
        if (left_ == 0) {
            return traits_type::eof();
        }
        --left_;
        setg(pattern_.data(), pattern_.data(), pattern_.data() + pattern_.size());
        return traits_type::to_int_type(pattern_.front());
    }

private:
    std::string pattern_;
    std::size_t left_;
};

TEST(CaptureReader, HandsOutALongCaptureWhileItReads)
{
    for (const std::string& pattern :
         {kTwoFrames, "RX: 2A A2 00 03 8F 00 01 00 FF 6D\n"s, std::string(kTwoFrames + std::string(500, '\x55'))}) {
        Endless buffer(pattern, 3u << 20);
        std::istream in(&buffer);
        CaptureReader reader(in, "a", {});
        std::size_t events = 0;

        while (const auto piece = reader.next()) {
            events += piece->event ? 1 : 0;
            ASSERT_LE(piece->noise.bytes.size(), 2u << 20);
        }

        EXPECT_EQ(events, (3u << 20) / pattern.size() * (pattern.starts_with("RX") ? 1 : 2));
    }
}

TEST(CaptureReader, OfAPipeWhoseFormItIsToldTakesNoMoreThanItNeeds)
{
    for (const auto& [format, pattern] : {std::pair("log", "TX: 2A A2 00 02 02 01 FF FB\n"s), {"raw", kTwoFrames}}) {
        Endless buffer(pattern, 10 * pattern.size());
        std::istream in(&buffer);
        CaptureReader reader(in, "a", {.format = format});

        EXPECT_TRUE(reader.next()->event);
        EXPECT_EQ(buffer.left(), 9u) << format;
    }
}

TEST(CaptureReader, NoiseWithoutAFrameIsHandedOutInPieces)
{
    Endless buffer(std::string(4096, '\x81'), 3u << 20);
    std::istream in(&buffer);
    CaptureReader reader(in, "a", {.format = "raw"});
    std::size_t bytes = 0;

    while (const auto piece = reader.next()) {
        bytes += piece->noise.bytes.size();
        ASSERT_LE(piece->noise.bytes.size(), 3u << 20);
    }

    EXPECT_EQ(bytes, 3u << 20);
}

TEST(CaptureReader, NoBytesMakeItFailOtherwiseThanWithAnError)
{
    std::minstd_rand random(20261122);
    for (const auto& entry : std::filesystem::directory_iterator(captures())) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string whole{std::istreambuf_iterator<char>(in), {}};
        for (int i = 0; i < 200; ++i) {
            std::string broken = whole;
            for (auto hits = random() % 4 + 1; hits > 0; --hits) {
                broken[random() % broken.size()] = static_cast<char>(random());
            }
            ASSERT_LE(readText(broken).pieces.size(), 100u) << entry.path();
        }
    }
}

}  // namespace
}  // namespace station
