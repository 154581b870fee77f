#include "station/plan/Plan.h"

#include <algorithm>
#include <array>
#include <compare>
#include <span>

#include "protocol/Quantity.h"

namespace station::plan {

std::string shownValue(const Parameter& parameter)
{
    const std::string value = parameter.value.value_or("");
    return parameter.secret ? std::string(value.size(), protocol::catalogue::kMask) : value;
}

namespace catalogue = protocol::catalogue;

namespace {

/// A unit answers within a few milliseconds.
constexpr auto kAnswerTime = std::chrono::milliseconds(2);

std::size_t leastBytes(std::span<const catalogue::Field> fields)
{
    std::size_t bytes = 0;
    for (const auto& field : fields) {
        bytes += catalogue::sizeOf(field.type) != 0
                     ? catalogue::sizeOf(field.type)
                     : static_cast<std::size_t>(std::max<std::int64_t>(field.minimum, 0));
    }
    return bytes;
}

Duration onTheLine(std::size_t params, unsigned baud)
{
    constexpr std::size_t kBitsPerByte = 10;
    return Duration(std::chrono::seconds(protocol::frameLength(params) * kBitsPerByte)) / baud;
}

/// @returns `sum` and `count` times `each`, or the longest that there is.
Duration plus(Duration sum, Duration each, std::int64_t count)
{
    std::int64_t product = 0;
    std::int64_t total = 0;
    if (__builtin_mul_overflow(each.count(), count, &product) || __builtin_add_overflow(sum.count(), product, &total)) {
        return Duration::max();
    }
    return Duration(total);
}

void add(Estimate& sum, const Send& send, const Step& step, unsigned baud)
{
    sum.duration += onTheLine(leastBytes(send.command->params), baud);
    if (send.reply == ReplyRule::kNone) {
        sum.duration = plus(sum.duration, step.timeout, 1);
    } else if (!send.command->replies.empty()) {
        sum.duration += onTheLine(leastBytes(send.command->replies.front().fields), baud) + kAnswerTime;
    }
    sum.open += send.later ? 1 : 0;
}

Estimate once(const Step& step, unsigned baud)
{
    Estimate sum;
    if (const auto* send = std::get_if<Send>(&step.action)) {
        add(sum, *send, step, baud);
    } else if (std::holds_alternative<Pause>(step.action)) {
        sum.duration = step.timeout;
    } else if (step.kind() == "wait" || step.kind() == "prompt" || step.kind() == "power") {
        ++sum.open;
    }
    return sum;
}

auto groupsOf(const Plan& plan)
{
    return std::array<const std::vector<Group>*, 3>{&plan.setup, &plan.main, &plan.teardown};
}

}  // namespace

bool Condition::holds(const std::string& value) const
{
    const auto compare = [&](const std::string& wanted) -> std::partial_ordering {
        const auto left = protocol::parseFinite(value);
        const auto right = protocol::parseFinite(wanted);
        if (numbers && left && right) {
            return *left <=> *right;
        }
        return value == wanted ? std::partial_ordering::equivalent : std::partial_ordering::unordered;
    };
    const auto order = compare(values.front());
    switch (is) {
        case Is::kUnequal:
            return order != 0;
        case Is::kBelow:
            return order < 0;
        case Is::kAtMost:
            return order <= 0;
        case Is::kAbove:
            return order > 0;
        case Is::kAtLeast:
            return order >= 0;
        case Is::kEqual:
        case Is::kOneOf:
            break;
    }
    return std::ranges::any_of(values, [&](const std::string& wanted) { return compare(wanted) == 0; });
}

std::string_view Step::kind() const
{
    constexpr std::array<std::string_view, 8> kNames{"send",  "wait", "prompt",     "headunit",
                                                     "pause", "run",  "instrument", "power"};
    return kNames[action.index()];
}

std::size_t Plan::stepCount() const
{
    std::size_t count = 0;
    for (const auto* phase : groupsOf(*this)) {
        for (const Group& group : *phase) {
            count += group.steps.size();
        }
    }
    return count;
}

std::vector<const Step*> Plan::destructiveSteps() const
{
    std::vector<const Step*> list;
    for (const auto* phase : groupsOf(*this)) {
        for (const Group& group : *phase) {
            for (const Step& step : group.steps) {
                const auto* send = std::get_if<Send>(&step.action);
                if (send != nullptr && send->command->destructive) {
                    list.push_back(&step);
                }
            }
        }
    }
    return list;
}

bool switchesPower(const Plan& plan)
{
    return std::ranges::any_of(groupsOf(plan), [](const std::vector<Group>* phase) {
        return std::ranges::any_of(*phase, [](const Group& group) {
            return std::ranges::any_of(
                group.steps, [](const Step& step) { return std::holds_alternative<PowerChange>(step.action); });
        });
    });
}

Estimate estimate(const Plan& plan, unsigned baud)
{
    Estimate sum;
    for (const auto* phase : groupsOf(plan)) {
        for (const Group& group : *phase) {
            Duration round{0};
            for (const Step& step : group.steps) {
                const Estimate each = once(step, baud);
                round = plus(round, each.duration, step.repeat);
                sum.open += each.open;
            }
            const Duration all = plus(Duration(0), round, static_cast<std::int64_t>(group.repeat));
            sum.duration =
                plus(sum.duration, group.duration ? std::min(all, std::max(round, *group.duration)) : all, 1);
        }
    }
    return sum;
}

}  // namespace station::plan
