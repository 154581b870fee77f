#include "platform/bench/State.h"

#include <mutex>

#include "platform/bench/StateSchema.h"

namespace bench {

using nlohmann::json;

State::State()
{
    replaceLocked(builtInState());  // no other thread knows the object yet
}

json State::get(const std::string& path) const
{
    const std::shared_lock lock(mutex_);
    return findValue(document_, path);
}

void State::set(const std::string& path, const json& value)
{
    {
        const std::unique_lock lock(mutex_);
        json candidate = document_;
        findOrAddValue(candidate, path) = value;
        try {
            checkState(candidate, document_);
        } catch (const StateError& error) {
            // The path exists, so the value has a name that the state does not have.
            throw StateError(StateError::Kind::kInvalidValue, error.what());
        }
        replaceLocked(std::move(candidate));
        changes_.enqueue({path, value});
    }
    changes_.deliver();
}

void State::merge(const json& patch)
{
    {
        const std::unique_lock lock(mutex_);
        json candidate = document_;
        candidate.merge_patch(patch);
        checkState(candidate, document_);
        changes_.enqueue({"", candidate});
        replaceLocked(std::move(candidate));
    }
    changes_.deliver();
}

bool State::flag(StateKey key) const
{
    return read<bool>(key);
}

int State::number(StateKey key) const
{
    return read<int>(key);
}

std::string State::text(StateKey key) const
{
    return read<std::string>(key);
}

std::vector<int> State::numbers(StateKey key) const
{
    return read<std::vector<int>>(key);
}

std::vector<std::string> State::texts(StateKey key) const
{
    return read<std::vector<std::string>>(key);
}

std::optional<int> State::numberAt(StateKey key, int number) const
{
    return readAt<int>(key, number);
}

std::optional<std::string> State::textAt(StateKey key, int number) const
{
    return readAt<std::string>(key, number);
}

std::vector<int> State::numbersAt(StateKey key, int number) const
{
    return readAt<std::vector<int>>(key, number).value_or(std::vector<int>{});
}

std::optional<bool> State::configFlag(const char* key) const
{
    const std::shared_lock lock(mutex_);
    const json& config = rowLocked("/config");
    const auto item = config.find(key);
    if (item == config.end() || !item->is_boolean()) {
        return std::nullopt;
    }
    return item->get<bool>();
}

std::optional<std::string> State::configText(const char* key) const
{
    const std::shared_lock lock(mutex_);
    const json& config = rowLocked("/config");
    const auto item = config.find(key);
    if (item == config.end() || !item->is_string()) {
        return std::nullopt;
    }
    return item->get<std::string>();
}

template <class Value>
Value State::read(StateKey key) const
{
    const std::shared_lock lock(mutex_);
    return rowLocked(key).get<Value>();
}

template <class Value>
std::optional<Value> State::readAt(StateKey key, int number) const
{
    const std::shared_lock lock(mutex_);
    const json& row = rowLocked(key);
    const auto item = row.find(std::to_string(number));
    if (item == row.end()) {
        return std::nullopt;
    }
    return item->get<Value>();
}

void State::replaceLocked(json candidate)
{
    static const auto pointers = [] {
        std::vector<json::json_pointer> all;
        for (const StateRow& row : kStateRows) {
            all.emplace_back(std::string(row.path));
        }
        return all;
    }();
    document_ = std::move(candidate);
    for (std::size_t row = 0; row < kStateRows.size(); ++row) {
        rows_[row] = &document_.at(pointers[row]);
    }
}

}  // namespace bench
