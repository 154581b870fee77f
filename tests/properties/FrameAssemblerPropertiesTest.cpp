#include "protocol/FrameAssembler.h"

#include <gtest/gtest.h>

#include "tests/properties/WireGenerators.h"
#include "tests/support/PlainReceiver.h"

namespace {

using properties::Bytes;
using protocol::Frame;
using protocol::FrameAssembler;
using tests::SeenFrame;

/// One chunk as the link takes it: append, then every complete frame.
std::vector<SeenFrame> feed(FrameAssembler& assembler, const Bytes& chunk)
{
    assembler.append(chunk);
    std::vector<SeenFrame> seen;
    if (!assembler.worthParsing())
        return seen;
    while (auto frame = assembler.next()) {
        const auto params = frame->params();
        seen.push_back({frame->cmdOne,
                        frame->cmdTwo,
                        {params.begin(), params.end()},
                        frame->receivedChecksum,
                        frame->checksumHolds});
    }
    return seen;
}

/// The sound frames of a stream that arrives in chunks.
std::vector<Frame> soundFrames(const std::vector<Bytes>& chunks)
{
    FrameAssembler assembler;
    std::vector<Frame> frames;
    for (const Bytes& chunk : chunks)
        for (const SeenFrame& seen : feed(assembler, chunk))
            if (seen.sound)
                frames.push_back({seen.cmdOne, seen.cmdTwo, seen.params});
    return frames;
}

// A frame whose parameters contain what looks like a whole frame is seen differently when it comes in pieces: the
// inner one is complete first. So the next two properties are about streams whose headers all begin a frame; what is
// left to sort out is a header that a checksum makes.

RC_GTEST_PROP(FrameAssemblerProperties, AnySplitOfAStreamGivesTheSameFrames, ())
{
    const auto frames = *properties::quietFrames();
    Bytes stream;
    for (const Frame& frame : frames) {
        const Bytes bytes = properties::encoded(frame);
        stream.insert(stream.end(), bytes.begin(), bytes.end());
    }
    RC_PRE(properties::headerPlaces(stream).size() == frames.size());
    const auto sizes = *properties::chunkSizes();

    RC_ASSERT(soundFrames(properties::split(stream, sizes)) == frames);
}

RC_GTEST_PROP(FrameAssemblerProperties, GarbageBetweenFramesThatBeginsNoHeaderChangesNothing, ())
{
    const auto frames = *properties::quietFrames();
    const auto garbage =
        rc::gen::map(rc::gen::container<Bytes>(rc::gen::oneOf(properties::anyByte(), properties::frameLikeByte())),
                     properties::withoutHeaders);
    Bytes stream = *garbage;
    for (const Frame& frame : frames) {
        const Bytes bytes = properties::encoded(frame);
        stream.insert(stream.end(), bytes.begin(), bytes.end());
        const Bytes noise = *garbage;
        stream.insert(stream.end(), noise.begin(), noise.end());
    }
    RC_PRE(properties::headerPlaces(stream).size() == frames.size());
    const auto sizes = *properties::chunkSizes();

    RC_ASSERT(soundFrames(properties::split(stream, sizes)) == frames);
}

/// Streams that are mostly frames, pieces of frames and what looks like the beginning of one.
rc::Gen<Bytes> hostileStream()
{
    const auto whole = rc::gen::map(rc::gen::arbitrary<Frame>(), properties::encoded);
    const auto cut = rc::gen::map(rc::gen::pair(whole, properties::evenly<std::size_t>(0, 12)),
                                  [](std::pair<Bytes, std::size_t> piece) {
                                      piece.first.resize(std::min(piece.first.size(), piece.second));
                                      return piece.first;
                                  });
    const auto corrupt =
        rc::gen::map(rc::gen::pair(whole, rc::gen::arbitrary<unsigned>()), [](std::pair<Bytes, unsigned> broken) {
            broken.first[broken.second % broken.first.size()] ^= 1;
            return broken.first;
        });
    const auto beginning = rc::gen::map(properties::frameLikeByte(), [](std::uint8_t length) {
        return Bytes{0x2A, 0xA2, 0x00, length};
    });
    const auto noise = rc::gen::container<Bytes>(properties::frameLikeByte());
    // A length byte of 255: with 256 bytes behind it, of which 253 are parameters.
    const auto wrapped = rc::gen::map(rc::gen::container<Bytes>(258, properties::anyByte()), [](const Bytes& rest) {
        Bytes bytes = {0x2A, 0xA2, 0x00, 0xFF};
        bytes.insert(bytes.end(), rest.begin(), rest.end());
        unsigned sum = 0;
        for (std::size_t i = 3; i < bytes.size(); ++i)
            sum += bytes[i];
        bytes.push_back(static_cast<std::uint8_t>((0x10000U - sum) >> 8));
        bytes.push_back(static_cast<std::uint8_t>(0x10000U - sum));
        return bytes;
    });
    const auto pieces = rc::gen::container<std::vector<Bytes>>(
        rc::gen::weightedOneOf<Bytes>({{4, whole}, {4, cut}, {2, corrupt}, {4, beginning}, {4, noise}, {1, wrapped}}));
    return rc::gen::map(pieces, [](const std::vector<Bytes>& all) {
        Bytes stream;
        for (const Bytes& piece : all)
            stream.insert(stream.end(), piece.begin(), piece.end());
        return stream;
    });
}

RC_GTEST_PROP(FrameAssemblerProperties, AgreesWithAPlainReceiverOnAnyStreamHoweverItIsCut, ())
{
    for (int round = 0; round < 10; ++round) {
        const auto stream = *hostileStream();
        const auto sizes = *properties::chunkSizes();
        FrameAssembler assembler;
        tests::PlainReceiver plain;

        for (const Bytes& chunk : properties::split(stream, sizes)) {
            RC_ASSERT(feed(assembler, chunk) == plain.feed(chunk));
            const auto kept = assembler.bytes();
            RC_ASSERT(Bytes(kept.begin(), kept.end()) == plain.buffer());
            RC_ASSERT(assembler.size() == plain.buffer().size());
        }
    }
}

}  // namespace
