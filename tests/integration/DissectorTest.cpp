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

    static TraceEvent sent(Frame frame) { return {TraceEvent::Kind::kSent, {}, {}, std::move(frame), {}}; }
    static TraceEvent received(Frame frame) { return {TraceEvent::Kind::kReceived, {}, {}, std::move(frame), {}}; }

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
    TraceEvent corrupt = received({0x82, 0x01, {0x22, 0x2E}});
    corrupt.kind = TraceEvent::Kind::kCorrupt;
    corrupt.bytes = {0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x22, 0x2E, 0xFF, 0x2A};  // FF 29 would be right
    capture({sent({0x02, 0x00, {0x22, 0x2F}}), received({0x86, 0x11, {0x25}}), corrupt});

    const auto matching = [this](const char* filter) {
        return tshark({"-Y", filter, "-T", "fields", "-e", "frame.number"});
    };
    EXPECT_THAT(matching("engineering.key == \"tuner.play\""), ElementsAre("1"));
    EXPECT_THAT(matching("engineering.from_unit == 1"), ElementsAre("2", "3"));
    EXPECT_THAT(matching("engineering.from_unit == 0"), ElementsAre("1"));
    EXPECT_THAT(matching("engineering.tuner.play.frequency > 8750"), ElementsAre("1"));
    EXPECT_THAT(matching("engineering.checksum.bad == 1"), ElementsAre("3"));
    EXPECT_THAT(matching("engineering.checksum.bad == 0"), ElementsAre("1", "2"));
}

TEST_F(DissectorTest, NotesAnUnusualAddress)
{
    capture({received({0x84, 0x07, {0x00, 0x1A}})});

    EXPECT_THAT(tshark({"-Y", "engineering.expert.unusual", "-T", "fields", "-e", "frame.number"}), ElementsAre("1"));
    EXPECT_THAT(tshark({"-Y", "engineering.expert.range", "-T", "fields", "-e", "frame.number"}), testing::IsEmpty());
}

TEST_F(DissectorTest, FlagsAWrongChecksumAndAValueOutOfRange)
{
    TraceEvent corrupt = received({0x82, 0x01, {0x22, 0x2E}});
    corrupt.kind = TraceEvent::Kind::kCorrupt;
    corrupt.bytes = {0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x22, 0x2E, 0xFF, 0x2A};  // FF 29 would be right
    capture({corrupt, received({0x82, 0x12, {0x07}})});

    const auto lines = tshark({"-V"});
    const std::string text =
        std::accumulate(lines.begin(), lines.end(), std::string(),
                        [](std::string all, const std::string& line) { return all + line + "\n"; });
    EXPECT_THAT(text, HasSubstr("[Checksum is wrong: True]"));
    EXPECT_THAT(text, HasSubstr("The value is out of its range"));
}

}  // namespace
}  // namespace tests
