#include "tests/support/RecordedWire.h"

#include <utility>

#include "protocol/FrameAssembler.h"
#include "tests/support/Text.h"

RecordedWire::RecordedWire()
{
    runtime::installWire(this);
}

RecordedWire::~RecordedWire()
{
    runtime::installWire(nullptr);
}

void RecordedWire::attach(Receiver receiver)
{
    receiver_ = std::move(receiver);
}

void RecordedWire::detach()
{
    receiver_ = nullptr;
}

bool RecordedWire::send(std::span<const std::uint8_t> frame)
{
    if (onSend) {
        onSend();
    }
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return sent_.size() < room_; });
        if (throw_) {
            std::rethrow_exception(std::exchange(throw_, nullptr));
        }
        sent_.emplace_back(frame.begin(), frame.end());
    }
    changed_.notify_all();
    return true;
}

void RecordedWire::deliver(Bytes bytes)
{
    if (receiver_) {
        receiver_(bytes);
    }
}

void RecordedWire::sendCommand(std::uint8_t cmdOne, std::uint8_t cmdTwo, const Bytes& params)
{
    const auto length = static_cast<std::uint8_t>(params.size() + 2);
    Bytes frame = {protocol::kHeader1, protocol::kHeader2, 0, length, cmdOne, cmdTwo};
    frame.insert(frame.end(), params.begin(), params.end());
    if (params.size() % 2 != 0) {
        frame.push_back(0);
    }
    const std::uint16_t check = protocol::checksum(length, cmdOne, cmdTwo, params);
    frame.push_back(static_cast<std::uint8_t>(check >> 8));
    frame.push_back(static_cast<std::uint8_t>(check & 0xFF));
    deliver(frame);
}

void RecordedWire::hold(std::size_t after)
{
    {
        const std::lock_guard lock(mutex_);
        room_ = after;
    }
    changed_.notify_all();
}

void RecordedWire::release()
{
    hold(kEndless);
}

std::vector<RecordedWire::Bytes> RecordedWire::sent()
{
    const std::lock_guard lock(mutex_);
    return sent_;
}

std::vector<std::string> RecordedWire::replies()
{
    std::vector<std::string> replies;
    for (const Bytes& bytes : sent()) {
        protocol::FrameAssembler assembler;
        assembler.append(bytes);
        auto frame = assembler.next();
        if (!frame || !frame->checksumHolds || assembler.size() != 0) {
            replies.push_back("no frame: " + hexText(bytes));
            continue;
        }
        const auto params = frame->params();
        replies.push_back(frameText(frame->cmdOne, frame->cmdTwo, {params.begin(), params.end()}));
    }
    return replies;
}

bool RecordedWire::waitForFrames(std::size_t count)
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return sent_.size() >= count; });
}

void RecordedWire::clear()
{
    const std::lock_guard lock(mutex_);
    sent_.clear();
}
