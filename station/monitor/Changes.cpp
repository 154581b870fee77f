#include "station/monitor/Changes.h"

#include <algorithm>
#include <utility>

namespace station {

namespace {

/// The rate is that of this many frames.
constexpr std::size_t kRateFrames = 16;

}  // namespace

double Changes::Row::rate(Time now) const
{
    const double seconds = std::chrono::duration<double>(now - times_.front()).count();
    return seconds > 0 ? static_cast<double>(times_.size() - 1) / seconds : 0;
}

const Changes::Row& Changes::on(const TraceEvent& event, const std::string& name, std::string meaning)
{
    const bool fromUnit = event.kind == TraceEvent::Kind::kReceived;
    const auto group = static_cast<std::uint8_t>(event.frame.cmdOne & ~protocol::kReplyBit);
    Key key{group, event.frame.cmdTwo, fromUnit, name};
    if (rows_.size() == kMostRows && !rows_.contains(key)) {
        rows_.erase(std::ranges::min_element(rows_, {}, [](const auto& each) { return each.second.event.at; }));
    }
    Row& row = rows_[std::move(key)];
    const auto& params = event.frame.params;
    const auto& before = row.event.frame.params;
    row.fresh = row.count == 0 || params != before;
    if (row.count > 0 && row.fresh) {
        row.changed.clear();
        row.changedAt = event.at;
        for (std::size_t i = 0; i < params.size(); ++i) {
            if (i >= before.size() || params[i] != before[i]) {
                row.changed.push_back(i);
            }
        }
    }
    ++row.count;
    row.event = event;
    row.meaning = std::move(meaning);
    row.times_.push_back(event.at);
    if (row.times_.size() > kRateFrames) {
        row.times_.pop_front();
    }
    return row;
}

}  // namespace station
