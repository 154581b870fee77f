#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/bench/Announcer.h"

namespace bench {

/// One thing that the service had the head unit do.
struct Call {
    std::string service;
    std::string op;
    nlohmann::json args;  ///< array

    bool operator==(const Call&) const = default;
};

/// @returns {"service","op","args"}, in this order.
nlohmann::ordered_json toJson(const Call& call);

/// What the service had the head unit do, oldest first. Keeps the newest kLimit calls. Any thread.
class CallRecord
{
public:
    static constexpr std::size_t kLimit = 10'000;

    /// Appends a call.
    /// @param args the arguments in their order
    void add(std::string service, std::string op, nlohmann::json::array_t args);

    std::vector<Call> list() const;
    void clear();

    /// Waits until `predicate` holds for the record, or `timeout` has passed; it is asked with the record locked.
    /// @returns whether it held.
    bool waitFor(const std::function<bool(const std::deque<Call>&)>& predicate,
                 std::chrono::milliseconds timeout) const;

    /// Told after each call that was added, in their order.
    Announcer<Call>& additions() { return additions_; }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<Call> calls_;  // guarded by mutex_
    Announcer<Call> additions_;
};

}  // namespace bench
