#include "platform/linux/Status.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "platform/runtime/Report.h"
#include "protocol/Text.h"

namespace unit {

const char* nameOf(State state)
{
    switch (state) {
        case State::kOff:
            return "off";
        case State::kAbsent:
            return "absent";
        case State::kUp:
            return "up";
    }
    return "";
}

void StatusBoard::add(const std::string& interface, const std::string& backend)
{
    const bool isOff = backend == nameOf(State::kOff);
    const std::lock_guard lock(mutex_);
    interfaces_.push_back({interface, backend, isOff ? State::kOff : State::kAbsent, isOff ? "" : kNotAnswered,
                           std::chrono::system_clock::now()});
}

void StatusBoard::set(const std::string& interface, State state, const std::string& why)
{
    const std::string reason = protocol::printable(why);
    InterfaceStatus now;
    Watcher watcher;
    {
        const std::lock_guard lock(mutex_);
        const auto entry = std::ranges::find(interfaces_, interface, &InterfaceStatus::interface);
        if (entry == interfaces_.end() || entry->state == State::kOff ||
            (entry->state == state && entry->reason == reason)) {
            return;
        }
        entry->state = state;
        entry->reason = reason;
        entry->since = std::chrono::system_clock::now();
        now = *entry;
        watcher = watcher_;
    }
    changed_.notify_all();
    if (reports_) {
        runtime::report(fmt::format("{}: {} is {}{}{}", now.interface, now.backend, nameOf(now.state),
                                    now.reason.empty() ? "" : ": ", now.reason));
    }
    if (watcher) {
        watcher(now);
    }
}

std::vector<InterfaceStatus> StatusBoard::all() const
{
    const std::lock_guard lock(mutex_);
    return interfaces_;
}

void StatusBoard::watch(Watcher watcher)
{
    const std::lock_guard lock(mutex_);
    watcher_ = std::move(watcher);
}

bool StatusBoard::await(const std::function<bool(const std::vector<InterfaceStatus>&)>& wanted,
                        std::chrono::milliseconds patience) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return wanted(interfaces_); });
}

void PartsStatus::set(const std::string& part, const std::string& reason)
{
    if (std::exchange(reasons_[part], reason) != reason) {
        show();
    }
}

void PartsStatus::show() const
{
    std::vector<std::string> all;
    for (const auto& [part, reason] : reasons_) {
        if (!reason.empty()) {
            all.push_back(fmt::format("{}: {}", part, reason));
        }
    }
    board_.set(interface_, all.empty() ? State::kUp : State::kAbsent, fmt::format("{}", fmt::join(all, "; ")));
}

}  // namespace unit
