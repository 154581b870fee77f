#include "platform/bench/SignalOutbox.h"

#include <utility>

namespace bench {
namespace {

std::size_t sizeOf(const OutgoingSignal& signal)
{
    return sizeof signal + signal.name.size() + signal.path.size() + signal.json.size();
}

}  // namespace

void SignalOutbox::push(OutgoingSignal signal)
{
    bytes_ += sizeOf(signal);
    signals_.push_back(std::move(signal));
    while (bytes_ > kMostBytes && signals_.size() > 1) {
        take();
    }
}

std::optional<OutgoingSignal> SignalOutbox::take()
{
    if (signals_.empty()) {
        return std::nullopt;
    }
    OutgoingSignal signal = std::move(signals_.front());
    signals_.pop_front();
    bytes_ -= sizeOf(signal);
    return signal;
}

}  // namespace bench
