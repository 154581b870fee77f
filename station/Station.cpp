#include "station/Station.h"

#include <array>
#include <stdexcept>
#include <string>
#include <utility>

namespace station {

namespace {

using protocol::Frame;

constexpr std::uint8_t kTuner = 0x02;
constexpr std::uint8_t kBluetooth = 0x04;
constexpr std::uint8_t kDeletePairings = 0x08;
constexpr std::uint8_t kIdentity = 0x0A;
constexpr std::uint8_t kPasswordNumber = 0x0F;
constexpr std::uint8_t kCarPlayMacAddress = 0x12;

}  // namespace

bool isReply(const Frame& command, const Frame& received)
{
    // WIRE: deleting the Bluetooth pairings is answered in the tuner's group; a frame 84 08 only reports later that
    //       the pairings are gone.
    if (command.cmdOne == kBluetooth && command.cmdTwo == kDeletePairings) {
        return received.cmdOne == (kTuner | protocol::kReplyBit) && received.cmdTwo == kDeletePairings;
    }
    if (received.cmdOne != (command.cmdOne | protocol::kReplyBit)) {
        return false;
    }
    // WIRE: a missing CarPlay address is answered under the password number's code, without parameters.
    if (command.cmdOne == kIdentity && command.cmdTwo == kCarPlayMacAddress && received.cmdTwo == kPasswordNumber) {
        return received.params.empty();
    }
    return received.cmdTwo == command.cmdTwo;
}

Station::Station(SerialLink link) : link_(std::move(link)) {}

void Station::send(const Frame& frame, Clock::time_point deadline)
{
    protocol::StationFrameBuffer buffer;
    const std::size_t length = protocol::encode(buffer, frame.cmdOne, frame.cmdTwo, frame.params);
    if (length == 0) {
        throw std::length_error("a frame holds at most " + std::to_string(protocol::kMaxStationParams) +
                                " parameter bytes, not " + std::to_string(frame.params.size()));
    }
    link_.write(protocol::Bytes(buffer).first(length), deadline);
}

std::optional<Frame> Station::receive(Clock::time_point deadline)
{
    for (;;) {
        if (auto frame = nextFrame()) {
            return frame;
        }
        std::array<std::uint8_t, 4096> chunk;
        // A line that never falls silent has always something to read: the time decides, not the line.
        const std::size_t count = Clock::now() < deadline ? link_.read(chunk, deadline) : 0;
        if (count == 0) {
            return std::nullopt;
        }
        assembler_.append(protocol::Bytes(chunk).first(count));
    }
}

std::optional<Frame> Station::request(const Frame& command, std::chrono::nanoseconds timeout)
{
    link_.discardInput();
    assembler_ = {};
    corruptFrames_ = 0;

    const auto deadline = Clock::now() + timeout;
    send(command, deadline);
    while (auto received = receive(deadline)) {
        if (isReply(command, *received)) {
            return received;
        }
        if (Clock::now() >= deadline) {
            break;
        }
    }
    return std::nullopt;
}

std::optional<Frame> Station::nextFrame()
{
    if (!assembler_.worthParsing()) {
        return std::nullopt;
    }
    while (auto received = assembler_.next()) {
        if (received->checksumHolds) {
            const auto params = received->params();
            return Frame{received->cmdOne, received->cmdTwo, {params.begin(), params.end()}};
        }
        ++corruptFrames_;
    }
    return std::nullopt;
}

}  // namespace station
