#include "station/trace/Pcapng.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

#include "station/trace/PcapngReader.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace station::pcapng {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Kind = TraceEvent::Kind;

// 2026-11-21 12:00:00.123456789 UTC
const std::chrono::system_clock::time_point kNoon{1795262400'123456789ns};

TraceEvent event(Kind kind, protocol::Frame frame = {}, std::string text = {}, std::vector<std::uint8_t> bytes = {})
{
    return {kind, kNoon, {}, std::move(frame), std::move(text), std::move(bytes)};
}

TraceEvent sent()
{
    return event(Kind::kSent, {0x0F, 0x00, {0x01}});
}

TraceEvent received()
{
    return event(Kind::kReceived, {0x8F, 0x00, {0x01}});
}

TraceEvent corrupt()
{
    return event(Kind::kCorrupt, {0x8F, 0x00, {0x01}}, "",
                 {0x2A, 0xA2, 0x00, 0x03, 0x8F, 0x00, 0x01, 0x00, 0xFF, 0x6E});
}

const Source kSource{"engineering-station 1.0.0", "/dev/ttyUSB0", 115200};

std::string capture()
{
    return header(kSource) + packet(sent(), "test-mode.set mode=1 (on)") + packet(received(), "") +
           packet(corrupt(), "") + packet(event(Kind::kLost, {}, "it is gone"), "") + packet(event(Kind::kBack), "");
}

/// @returns all that can be read, and in `error` why it ended early.
std::vector<TraceEvent> readAll(const std::string& bytes, std::string* error = nullptr)
{
    std::istringstream in(bytes);
    Reader reader(in, "trace.pcapng");
    std::vector<TraceEvent> events;
    try {
        while (auto next = reader.next()) {
            events.push_back(std::move(*next));
        }
    } catch (const protocol::UserError& failure) {
        if (error == nullptr) {
            throw;
        }
        *error = failure.what();
    }
    return events;
}

std::string errorOf(const std::string& bytes)
{
    std::string error;
    readAll(bytes, &error);
    return error;
}

TEST(Pcapng, HeaderIsASectionAndAnInterfaceOfLinkTypeUser0)
{
    EXPECT_EQ(header({"tool", "/dev/tty1", 9600}),
              "\x0A\x0D\x0D\x0A\x28\x00\x00\x00"s                  // section header, 40 bytes
              "\x4D\x3C\x2B\x1A\x01\x00\x00\x00"s                  // byte order, version 1.0
              "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s                  // length not known
              "\x04\x00\x04\x00tool"s                              // application
              "\x00\x00\x00\x00\x28\x00\x00\x00"s                  // end of options, 40 bytes
              "\x01\x00\x00\x00\x3C\x00\x00\x00"s                  // interface description, 60 bytes
              "\x93\x00\x00\x00\x00\x00\x00\x00"s                  // link type 147, packets not cut
              "\x02\x00\x09\x00/dev/tty1\x00\x00\x00"s             // name
              "\x08\x00\x08\x00\x80\x25\x00\x00\x00\x00\x00\x00"s  // 9600 bit/s
              "\x09\x00\x01\x00\x09\x00\x00\x00"s                  // time in 10^-9 s
              "\x00\x00\x00\x00\x3C\x00\x00\x00"s);                // end of options, 60 bytes
}

TEST(Pcapng, PacketHoldsTheFrameItsTimeDirectionAndComment)
{
    EXPECT_EQ(packet(sent(), "on"),
              "\x06\x00\x00\x00\x40\x00\x00\x00"s  // enhanced packet, 64 bytes
              "\x00\x00\x00\x00"s                  // interface 0
              "\xA4\x0D\xEA\x18\x15\x4D\xF9\x25"s  // 18EA0DA4 25F94D15: 1795262400123456789 ns
              "\x0A\x00\x00\x00\x0A\x00\x00\x00"s  // 10 bytes, all kept
              "\x2A\xA2\x00\x03\x0F\x00\x01\x00\xFF\xED\x00\x00"s
              "\x01\x00\x02\x00on\x00\x00"s          // comment
              "\x02\x00\x04\x00\x02\x00\x00\x00"s    // outbound
              "\x00\x00\x00\x00\x40\x00\x00\x00"s);  // end of options, 64 bytes
}

TEST(Pcapng, WhatWasWrittenIsReadBack)
{
    const auto events = readAll(capture());

    ASSERT_THAT(events, SizeIs(5));
    EXPECT_EQ(events[0].kind, Kind::kSent);
    EXPECT_EQ(events[0].at, kNoon);
    EXPECT_EQ(events[0].frame, sent().frame);
    EXPECT_EQ(events[0].text, "test-mode.set mode=1 (on)");
    EXPECT_EQ(events[1].kind, Kind::kReceived);
    EXPECT_EQ(events[1].frame, received().frame);
    EXPECT_EQ(events[2].kind, Kind::kCorrupt);
    EXPECT_EQ(events[2].bytes, corrupt().bytes);
    EXPECT_EQ(events[3].kind, Kind::kLost);
    EXPECT_EQ(events[3].text, "it is gone");
    EXPECT_EQ(events[4].kind, Kind::kBack);
}

TEST(Pcapng, CommentThatIsTooLongEndsAtAWholeCharacter)
{
    std::string comment = "x";
    for (int i = 0; i < 40000; ++i) {
        comment += "\xC3\xA4";  // ä
    }

    const auto events = readAll(header(kSource) + packet(sent(), comment));

    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].text, comment.substr(0, 59999));
}

TEST(Pcapng, TsharkReadsDirectionsTimesAndComments)
{
    const tests::TempDir directory;
    const std::string path = directory.path() / "trace.pcapng";
    std::ofstream(path) << capture();

    const auto outcome = tests::run({"tshark", "-r", path, "-T", "fields", "-E", "separator=|", "-e",
                                     "frame.time_epoch", "-e", "frame.len", "-e", "frame.packet_flags_direction", "-e",
                                     "frame.packet_flags_crc_error", "-e", "frame.comment", "-e", "frame.encap_type"});

    EXPECT_EQ(outcome.out,
              "1795262400.123456789|10|0x00000002|0|test-mode.set mode=1 (on)|45\n"
              "1795262400.123456789|10|0x00000001|0||45\n"
              "1795262400.123456789|10|0x00000001|1||45\n"
              "1795262400.123456789|0|0x00000000|0|lost: it is gone|45\n"
              "1795262400.123456789|0|0x00000000|0|back|45\n")
        << outcome.err;
}

TEST(PcapngFile, IsReadableAfterEachEvent)
{
    const tests::TempDir directory;
    const std::string path = directory.path() / "trace.pcapng";
    File file(path, kSource, [](const TraceEvent&) { return "a comment"; });
    const auto content = [&] {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    EXPECT_THAT(readAll(content()), IsEmpty());

    file.on(sent());
    EXPECT_THAT(readAll(content()), SizeIs(1));

    file.on(received());
    ASSERT_THAT(readAll(content()), SizeIs(2));
    EXPECT_EQ(readAll(content())[1].text, "a comment");
    EXPECT_THAT(file.failure(), IsEmpty());
}

TEST(PcapngFile, OnAFullDiskKeepsWhatIsWholeAndSaysWhy)
{
    const tests::TempDir directory;
    const std::string path = directory.path() / "trace.pcapng";
    File file(path, kSource, {});
    file.on(sent());
    const auto whole = std::filesystem::file_size(path);
    {
        const FileSizeLimit full(whole + 10);
        file.on(received());
    }
    file.on(received());

    EXPECT_THAT(file.failure(), AllOf(HasSubstr(path), HasSubstr("File too large")));
    EXPECT_EQ(std::filesystem::file_size(path), whole);
}

TEST(PcapngFile, ThatCannotBeMadeIsNamed)
{
    try {
        File file("/no-such-directory/trace.pcapng", kSource, {});
        FAIL() << "it was made";
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("/no-such-directory/trace.pcapng"), HasSubstr("No such file")));
    }
}

TEST(PcapngReader, ReadsTheOtherByteOrderMicrosecondsAndNoDirection)
{
    const auto events = readAll(
        "\x0A\x0D\x0D\x0A\x00\x00\x00\x1C"s
        "\x1A\x2B\x3C\x4D\x00\x01\x00\x00"s
        "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x00\x00\x00\x1C"s
        "\x00\x00\x00\x01\x00\x00\x00\x14"s
        "\x00\x93\x00\x00\x00\x00\x00\x00\x00\x00\x00\x14"s
        "\x00\x00\x00\x06\x00\x00\x00\x2C"s
        "\x00\x00\x00\x00\x00\x06\x60\xC8\x19\xA3\x52\x40"s  // 000660C819A35240: 1795262400.123456 s
        "\x00\x00\x00\x0A\x00\x00\x00\x0A"s
        "\x2A\xA2\x00\x03\x8F\x00\x01\x00\xFF\x6D\x00\x00"s
        "\x00\x00\x00\x2C"s);

    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].kind, Kind::kReceived);  // bit 7 says so
    EXPECT_EQ(events[0].at, kNoon - 789ns);
    EXPECT_EQ(events[0].frame, received().frame);
}

TEST(PcapngReader, FrameThatIsCutIntoTwoPacketsIsFound)
{
    const auto block = [](std::string bytes) {
        const auto kept = static_cast<char>(bytes.size());
        bytes.resize((bytes.size() + 3) / 4 * 4);
        const auto length = static_cast<char>(32 + bytes.size());
        return std::string{6, 0, 0, 0, length, 0, 0, 0} + std::string(12, '\0') +
               std::string{kept, 0, 0, 0, kept, 0, 0, 0} + bytes + std::string{length, 0, 0, 0};
    };

    const auto events = readAll(header(kSource) + block("\x2A\xA2\x00\x03\x8F"s) + block("\x00\x01\x00\xFF\x6D"s));

    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].frame, received().frame);
}

TEST(PcapngReader, PacketsOfOtherLinkTypesAreCountedAndPassedOver)
{
    std::string bytes = capture();
    bytes[bytes.find('\x93')] = '\x01';  // Ethernet
    std::istringstream in(bytes);
    Reader reader(in, "trace.pcapng");

    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.foreign(), 5u);
}

TEST(PcapngReader, FileOfAnotherKindIsRefused)
{
    EXPECT_THAT(errorOf("2A A2 00 02 0F 01 FF EE"),
                AllOf(HasSubstr("trace.pcapng"), HasSubstr("expected a pcapng or pcap capture, got another file")));
    EXPECT_THAT(errorOf(""), HasSubstr("expected a pcapng or pcap capture"));
    EXPECT_EQ(errorOf("\xD4\xC3\xB2\xA1\x02"), "trace.pcapng: the file ends within its header");
}

TEST(PcapngReader, CutCaptureGivesWhatIsWholeAndThenTheOffsetOfTheBreak)
{
    const std::string begin = header(kSource) + packet(sent(), "");
    std::string error;

    const auto events = readAll(begin + packet(received(), "").substr(0, 20), &error);

    EXPECT_THAT(events, SizeIs(1));
    EXPECT_EQ(error, "trace.pcapng: byte " + std::to_string(begin.size()) + ": the file ends within a block");
}

TEST(PcapngReader, PcapEndsWithWhatIsWholeAndPassesOverOtherLinkTypes)
{
    const std::string record =
        "\x01\x00\x00\x00\x02\x00\x00\x00\x0A\x00\x00\x00\x0A\x00\x00\x00"s
        "\x2A\xA2\x00\x03\x8F\x00\x01\x00\xFF\x6D"s;
    std::string bytes =
        "\xD4\xC3\xB2\xA1\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00"s
        "\xFF\xFF\x00\x00\x93\x00\x00\x00"s +
        record;
    std::string error;

    const auto events = readAll(bytes + record.substr(0, 20), &error);

    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].at.time_since_epoch(), 1s + 2us);
    EXPECT_EQ(error, "trace.pcapng: byte 50: the file ends within a packet");
    EXPECT_THAT(errorOf(bytes + record.substr(0, 8) + "\xFF\xFF\xFF\xFF\0\0\0\0"s), HasSubstr(", got 4294967295"));
    bytes[bytes.find('\x93')] = '\x01';  // Ethernet
    EXPECT_THAT(readAll(bytes), IsEmpty());
}

TEST(PcapngReader, BlockWhoseLengthCannotBeIsRefused)
{
    EXPECT_THAT(errorOf(header(kSource) + "\x06\x00\x00\x00\xFF\xFF\xFF\xFF"s + std::string(40, '\0')),
                HasSubstr(" bytes, got 4294967295"));
}

TEST(PcapngReader, NoCutOfACaptureMakesItFailOtherwiseThanWithAnError)
{
    const std::string whole = capture();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        std::string error;
        EXPECT_THAT(readAll(whole.substr(0, size), &error), SizeIs(testing::Le(4u))) << size;
    }
}

TEST(PcapngReader, NoBytesMakeItFailOtherwiseThanWithAnError)
{
    const std::string whole = capture();
    std::minstd_rand random(20261121);
    for (int i = 0; i < 20000; ++i) {
        std::string broken = whole;
        for (auto hits = random() % 4 + 1; hits > 0; --hits) {
            broken[random() % broken.size()] = static_cast<char>(random());
        }
        std::string error;
        const auto events = readAll(broken, &error);
        ASSERT_LE(events.size(), 10u) << i;
    }
}

}  // namespace
}  // namespace station::pcapng
