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

/// An action that the service asked of the head unit.
struct Call {
    std::string service;
    std::string op;
    nlohmann::json args;  ///< array

    bool operator==(const Call&) const = default;
};

/// @returns {"service","op","args"}, in this order.
nlohmann::ordered_json toJson(const Call& call);

/// The actions that the service asked of the head unit, oldest first. Keeps the newest kLimit. Any thread.
class CallRecord
{
public:
    static constexpr std::size_t kLimit = 10'000;

    /// Appends a call.
    /// @param args the arguments in their order
    void add(std::string service, std::string op, nlohmann::json::array_t args);

    std::vector<Call> list() const;
    void clear();

    /// Waits until `predicate` holds for the record, or `timeout` has passed. Calls `predicate` with the record locked.
    /// @returns whether it held.
    bool waitFor(const std::function<bool(const std::deque<Call>&)>& predicate,
                 std::chrono::milliseconds timeout) const;

    /// Announces each added call, in their order.
    Announcer<Call>& additions() { return additions_; }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<Call> calls_;  // guarded by mutex_
    Announcer<Call> additions_;
};

}  // namespace bench
