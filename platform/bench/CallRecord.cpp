#include "platform/bench/CallRecord.h"

namespace bench {

nlohmann::ordered_json toJson(const Call& call)
{
    return {{"service", call.service}, {"op", call.op}, {"args", call.args}};
}

void CallRecord::add(std::string service, std::string op, nlohmann::json::array_t args)
{
    Call call{std::move(service), std::move(op), std::move(args)};
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back(call);
        if (calls_.size() > kLimit) {
            calls_.pop_front();
        }
        additions_.enqueue(std::move(call));
    }
    changed_.notify_all();
    additions_.deliver();
}

std::vector<Call> CallRecord::list() const
{
    const std::lock_guard lock(mutex_);
    return {calls_.begin(), calls_.end()};
}

void CallRecord::clear()
{
    const std::lock_guard lock(mutex_);
    calls_.clear();
}

bool CallRecord::waitFor(const std::function<bool(const std::deque<Call>&)>& predicate,
                         std::chrono::milliseconds timeout) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return predicate(calls_); });
}

}  // namespace bench
