// Feeds any bytes from the head unit to the decoder of the station: compares the codec with a plain receiver over the
// same chunks, then runs the whole station on a pseudo-terminal.
//
// Input: one byte, the size of the chunks less 1, then the stream.

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz/Fuzz.h"
#include "protocol/FrameAssembler.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/Connection.h"
#include "tests/support/PlainReceiver.h"
#include "tests/support/PtyPeer.h"

using fuzz::expect;
using protocol::Frame;

namespace {

/// The capacity of a pseudo-terminal that is not read, less the end marker.
constexpr std::size_t kMostBytes = 3000;

/// The end marker. 04+FE+ED+C0+DE = 038D, two's complement FC73
constexpr std::array<std::uint8_t, 10> kEndBytes = {0x2A, 0xA2, 0x00, 0x04, 0xFE, 0xED, 0xC0, 0xDE, 0xFC, 0x73};
const Frame kEnd{0xFE, 0xED, {0xC0, 0xDE}};

struct Line {
    tests::PtyPeer unit;
    station::Connection station{station::PortSpec{unit.path()}, station::Connection::Options{}};
};

Line& line()
{
    static Line* const instance = new Line;
    return *instance;
}

void compareWithPlainReceiver(const std::vector<std::uint8_t>& stream, std::size_t chunk)
{
    protocol::FrameAssembler assembler;
    tests::PlainReceiver plain;
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
        const auto bytes = std::span(stream).subspan(at, std::min(chunk, stream.size() - at));
        const auto expected = plain.feed(bytes);
        assembler.append(bytes);
        std::vector<tests::SeenFrame> seen;
        while (assembler.worthParsing() || !seen.empty()) {
            auto frame = assembler.next();
            if (!frame) {
                break;
            }
            const auto params = frame->params();
            seen.push_back({frame->cmdOne,
                            frame->cmdTwo,
                            {params.begin(), params.end()},
                            frame->receivedChecksum,
                            frame->checksumHolds});
        }
        expect(seen == expected, "the codec has seen other frames");
        expect(std::ranges::equal(assembler.bytes(), plain.buffer()), "the codec has kept other bytes");
    }
}

void receiveUpToTheEnd()
{
    for (;;) {
        const auto frame = line().station.receive(station::Connection::Clock::now() + std::chrono::seconds(20));
        expect(frame.has_value(), "the frame at the end did not come");
        if (*frame == kEnd) {
            return;
        }
        const std::string text = protocol::catalogue::formatFrame(*frame);
        expect(text.size() == 8 + 3 * frame->params.size() - (frame->params.empty() ? 0 : 1), "wrong text: " + text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::ByteReader input({data, size});
    const std::size_t chunk = 1U + input.byte();
    const auto bytes = input.bytes(kMostBytes);
    if (std::search(bytes.begin(), bytes.end(), kEndBytes.begin() + 4, kEndBytes.begin() + 8) != bytes.end()) {
        return 0;  // would seem to be the end
    }

    std::vector<std::uint8_t> stream(bytes.begin(), bytes.end());
    // More than the longest frame, of a byte that begins none: whatever has begun ends.
    stream.insert(stream.end(), 300, 0x55);
    compareWithPlainReceiver(stream, chunk);

    // In few writes: the kernel takes a buffer of its own for each, and has not many.
    const std::size_t piece = std::max<std::size_t>(chunk, 128);
    for (std::size_t at = 0; at < stream.size(); at += piece) {
        const auto from = stream.begin() + static_cast<std::ptrdiff_t>(at);
        line().unit.write({from, from + static_cast<std::ptrdiff_t>(std::min(piece, stream.size() - at))});
    }
    line().unit.write({kEndBytes.begin(), kEndBytes.end()});
    receiveUpToTheEnd();
    return 0;
}
