// The Wireshark dissector as it is shipped, driven by tshark over a capture that the station's own writer has made.

#include <gmock/gmock.h>

#include <numeric>

#include "station/trace/Pcapng.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/TempDir.h"

namespace tests {
namespace {

using protocol::Frame;
using station::TraceEvent;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

class DissectorTest : public testing::Test
{
protected:
    DissectorTest() : capture_((directory_.path() / "trace.pcapng").string()) {}

    void capture(const std::vector<TraceEvent>& events)
    {
        station::pcapng::File file(capture_, {"test", "/dev/ttyS0", 115200}, {});
        for (const TraceEvent& event : events) {
            file.on(event);
        }
        EXPECT_EQ(file.failure(), "");
    }

    /// @returns tshark's lines about the capture.
    std::vector<std::string> tshark(const std::vector<std::string>& options)
    {
        std::vector<std::string> all{"tshark", "-X", "lua_script:" WIRESHARK_DISSECTOR, "-r", capture_};
        all.insert(all.end(), options.begin(), options.end());
        const Outcome outcome = run(all, {{"HOME", directory_.path().string()}});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return linesOf(outcome.out);
    }

    static TraceEvent sent(Frame frame, std::chrono::microseconds at = {})
    {
        return {TraceEvent::Kind::kSent, std::chrono::system_clock::time_point(at), {}, std::move(frame), {}};
    }
    static TraceEvent received(Frame frame, std::chrono::microseconds at = {})
    {
        return {TraceEvent::Kind::kReceived, std::chrono::system_clock::time_point(at), {}, std::move(frame), {}};
    }
    static TraceEvent corrupt()
    {
        TraceEvent event = received({0x82, 0x01, {0x22, 0x2E}});
        event.kind = TraceEvent::Kind::kCorrupt;
        event.bytes = {0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x22, 0x2E, 0xFF, 0x2A};  // FF 29 would be right
        return event;
    }

    /// @returns the numbers of the packets that a filter lets pass. tshark reads the capture twice, as Wireshark does.
    std::vector<std::string> matching(const std::string& filter)
    {
        return tshark({"-2", "-Y", filter, "-T", "fields", "-e", "frame.number"});
    }

    /// @returns number, packet of the request, packet of the reply and time of each packet.
    std::vector<std::string> pairs(std::vector<std::string> options = {"-2"})
    {
        options.insert(options.end(),
                       {"-T", "fields", "-E", "separator=,", "-e", "frame.number", "-e", "engineering.response_to",
                        "-e", "engineering.response_in", "-e", "engineering.time"});
        return tshark(options);
    }

private:
    TempDir directory_;
    std::string capture_;
};

TEST_F(DissectorTest, NamesWhatPassesOnTheLine)
{
    capture({sent({0x02, 0x00, {0x22, 0x2E}}), received({0x82, 0x01, {0x22, 0x2E}}),
             received({0x86, 0x11, {0x25, 0x04}}), received({0x84, 0x0D, {'H', 'U'}}),
             received({0x84, 0x07, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}}),
             received({0x85, 0x00, {2, 5, 0, 0, 35, 9, 0, 0, 28}}), sent({0x0C, 0x01, {0xAB}})});

    EXPECT_THAT(tshark({"-T", "fields", "-e", "_ws.col.Info"}),
                ElementsAre("station: tuner.play frequency=8750", "unit: tuner.frequency frequency=8750",
                            "unit: keys.pressed key=37 status=4", "unit: bluetooth.name name=\"HU\"",
                            "unit: bluetooth.address address=001A7DDA7113",
                            "unit: gps.satellites count=2 satellites=2 of 2", "station: 0C 01 [AB]"));
}

TEST_F(DissectorTest, LetsAReaderFilterByAFieldsValue)
{
    capture({sent({0x02, 0x00, {0x22, 0x2E}}), sent({0x02, 0x00, {0x00, 0x01}})});

    EXPECT_THAT(tshark({"-Y", "engineering.tuner.play.frequency > 8000", "-T", "fields", "-e", "engineering.key"}),
                ElementsAre("tuner.play"));
}

/// The filters of the script's first lines and of docs/station.md.
TEST_F(DissectorTest, DocumentedFiltersMatchTheirFrames)
{
    capture({sent({0x02, 0x00, {0x22, 0x2F}}), received({0x86, 0x11, {0x25}}), corrupt(), sent({0x02, 0x01, {}}, 10us),
             received({0x82, 0x01, {0x22, 0x2F}}, 200'010us), sent({0x02, 0x01, {}}, 300'000us)});

    EXPECT_THAT(matching("engineering.key == \"tuner.play\""), ElementsAre("1"));
    EXPECT_THAT(matching("engineering.from_unit == 1"), ElementsAre("2", "3", "5"));
    EXPECT_THAT(matching("engineering.from_unit == 0"), ElementsAre("1", "4", "6"));
    EXPECT_THAT(matching("engineering.tuner.play.frequency > 8750"), ElementsAre("1"));
    EXPECT_THAT(matching("engineering.checksum.bad == 1"), ElementsAre("3"));
    EXPECT_THAT(matching("engineering.checksum.bad == 0"), ElementsAre("1", "2", "4", "5", "6"));
    EXPECT_THAT(matching("engineering.expert.checksum"), ElementsAre("3"));
    EXPECT_THAT(matching("engineering.time > 0.1"), ElementsAre("5"));
    EXPECT_THAT(matching("engineering.expert.no_reply"), ElementsAre("6"));
}

TEST_F(DissectorTest, PairsRequestsWithTheirReplies)
{
    capture({sent({0x02, 0x01, {}}, 1'000us), sent({0x0F, 0xFF, {}}, 2'000us), received({0x86, 0x11, {0x25}}, 3'000us),
             received({0x8F, 0xFF, {0x01}}, 4'500us), received({0x82, 0x01, {0x22, 0x2E}}, 251'000us)});

    EXPECT_THAT(pairs(), ElementsAre("1,,5,", "2,,4,", "3,,,", "4,2,,0.002500000", "5,1,,0.250000000"));
    EXPECT_THAT(pairs({}), ElementsAre("1,,,", "2,,,", "3,,,", "4,2,,0.002500000", "5,1,,0.250000000"))
        << "read once, the capture has no reply yet where the request stands";
}

TEST_F(DissectorTest, ReplyBelongsToTheLatestRequestThatLacksItsOwn)
{
    const auto request = sent({0x02, 0x01, {}});
    const auto reply = received({0x82, 0x01, {0x22, 0x2E}});
    capture({reply, request, request, reply, reply, reply});

    // The third is one more of the latest request.
    EXPECT_THAT(pairs(),
                ElementsAre("1,,,", "2,,5,", "3,,4,", "4,3,,0.000000000", "5,2,,0.000000000", "6,3,,0.000000000"));
}

TEST_F(DissectorTest, ReplyUnderTheCodeOfAnotherCommandIsPairedByItsLength)
{
    // The CarPlay MAC; without the record, the reply has the code of the password number.
    capture({sent({0x0A, 0x12, {}}), received({0x8A, 0x0F, {}}), sent({0x0A, 0x0F, {}}),
             received({0x8A, 0x0F, {'1', '2', '3', '4'}}), sent({0x0A, 0x12, {}}),
             received({0x8A, 0x0F, {'1', '2', '3', '4'}})});

    EXPECT_THAT(pairs(),
                ElementsAre("1,,2,", "2,1,,0.000000000", "3,,4,", "4,3,,0.000000000", "5,,,", "6,3,,0.000000000"));
}

TEST_F(DissectorTest, MissingReplyIsAnExpertItemWhereOneIsDue)
{
    capture({sent({0x02, 0x01, {}}),            // due
             corrupt(),                         // no reply to it
             sent({0x01, 0x01, {}}),            // silent without the audio service
             sent({0x02, 0x00, {0x22, 0x2E}}),  // has no reply
             sent({0x0C, 0x01, {0xAB}}),        // unknown
             sent({0x0F, 0xFF, {}}), received({0x8F, 0xFF, {0x01}})});

    EXPECT_THAT(matching("engineering.expert.no_reply"), ElementsAre("1", "3"));
    EXPECT_THAT(tshark({"-2", "-V"}),
                testing::Contains(HasSubstr("The capture has no reply; none comes without the audio service")));
}

TEST_F(DissectorTest, NotesAnUnusualAddress)
{
    capture({received({0x84, 0x07, {0x00, 0x1A}})});

    EXPECT_THAT(tshark({"-Y", "engineering.expert.unusual", "-T", "fields", "-e", "frame.number"}), ElementsAre("1"));
    EXPECT_THAT(tshark({"-Y", "engineering.expert.range", "-T", "fields", "-e", "frame.number"}), testing::IsEmpty());
}

TEST_F(DissectorTest, FlagsAWrongChecksumAndAValueOutOfRange)
{
    capture({corrupt(), received({0x82, 0x12, {0x07}})});

    const auto lines = tshark({"-V"});
    const std::string text =
        std::accumulate(lines.begin(), lines.end(), std::string(),
                        [](std::string all, const std::string& line) { return all + line + "\n"; });
    EXPECT_THAT(text, HasSubstr("[Checksum is wrong: True]"));
    EXPECT_THAT(text, HasSubstr("The value is out of its range"));
}

}  // namespace
}  // namespace tests
