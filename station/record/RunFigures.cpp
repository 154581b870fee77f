#include "station/record/RunFigures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>

#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"

namespace station::record {

namespace {

void packKey(Packer& packer, const MeasurementKey& key)
{
    for (const auto* text : {&key.phase, &key.group, &key.step, &key.name, &key.unit}) {
        packer.text(*text);
    }
    const auto limit = [&packer](const std::optional<double>& value) {
        packer.number(static_cast<std::uint8_t>(value.has_value() ? 1 : 0));
        packer.number(value.value_or(0));
    };
    limit(key.limits.minimum);
    limit(key.limits.maximum);
    limit(key.limits.equals ? std::optional(std::get<double>(*key.limits.equals)) : std::nullopt);
}

MeasurementKey unpackKey(Unpacker& unpacker)
{
    MeasurementKey key;
    for (auto* text : {&key.phase, &key.group, &key.step, &key.name, &key.unit}) {
        *text = unpacker.text();
    }
    const auto limit = [&unpacker]() -> std::optional<double> {
        const bool has = unpacker.number<std::uint8_t>() == 1;
        const auto value = unpacker.number<double>();
        return has ? std::optional(value) : std::nullopt;
    };
    key.limits.minimum = limit();
    key.limits.maximum = limit();
    if (const auto equals = limit()) {
        key.limits.equals = *equals;
    }
    return key;
}

/// Collects the figures of a run, step by step.
class Collector
{
public:
    void add(const StepPlace& place, const Step& step)
    {
        if (place.superseded) {
            return;
        }
        note(place.group, step);
        if (phase_ != place.phase || group_ != place.group || round_ != place.round) {
            phase_ = place.phase;
            group_ = place.group;
            round_ = place.round;
            named_.clear();
        }
        const std::size_t number = ++named_[step.name];
        MeasurementKey key{phase_, group_, number > 1 ? fmt::format("{} ({})", step.name, number) : step.name,
                           {},     {},     {}};
        for (const Attempt& attempt : step.attempts) {
            for (const Measurement& one : attempt.measurements) {
                const auto* value = std::get_if<double>(&one.value);
                if (attempt.superseded || value == nullptr || !std::isfinite(*value) || isCode(one)) {
                    continue;
                }
                key.name = one.name;
                key.unit = one.unit;
                key.limits = {one.limits.minimum, one.limits.maximum, {}, {}};
                if (one.limits.equals && std::holds_alternative<double>(*one.limits.equals)) {
                    key.limits.equals = one.limits.equals;
                }
                if (Series* series = seriesOf(key)) {
                    series->add(*value, one.passed);
                }
            }
        }
    }

    /// The step counts.
    void note(std::string_view group, const Step& step)
    {
        if (!failed_ && isBad(verdictOf(step))) {
            failed_ = true;
            figures_.failedGroup = group;
            figures_.failedStep = step.name;
        }
    }

    /// Adds the figures of tries that are left out: their numbers are not known one by one.
    void add(const Phase& phase, const Group& group)
    {
        for (const RepeatedMeasurement& each : group.rounds.measurements) {
            const bool exact = each.limits.equals && std::holds_alternative<double>(*each.limits.equals);
            if (each.numbers.count == 0 || each.name == kTimeOfAttempt || (each.limits.equals && each.unit.empty())) {
                continue;
            }
            Series* series = seriesOf(
                {phase.name,
                 group.name,
                 each.step,
                 each.name,
                 each.unit,
                 {each.limits.minimum, each.limits.maximum, exact ? each.limits.equals : std::optional<Scalar>(), {}}});
            if (series != nullptr) {
                Series part;
                part.numbers = each.numbers;
                part.missed = each.missed;
                part.first = part.last = each.numbers.mean;
                series->append(part, false);
            }
        }
    }

    RunFigures finish()
    {
        figures_.keys = std::make_shared<const std::vector<MeasurementKey>>(std::move(keys_));
        return std::move(figures_);
    }

private:
    static bool isCode(const Measurement& one) { return one.unit.empty() && one.limits.equals; }

    /// @returns nullptr if there are too many.
    Series* seriesOf(const MeasurementKey& key)
    {
        Packer packer;
        packKey(packer, key);
        const auto [found, isNew] = places_.try_emplace(packer.bytes(), keys_.size());
        if (isNew && keys_.size() == RunFigures::kMost) {
            places_.erase(found);
            return nullptr;
        }
        if (isNew) {
            keys_.push_back(key);
            figures_.series.emplace_back();
        }
        return &figures_.series[found->second];
    }

    RunFigures figures_;
    bool failed_ = false;
    std::vector<MeasurementKey> keys_;
    std::unordered_map<std::string, std::size_t> places_;
    // The try of the last step, and how many steps of each name it has had.
    std::string phase_;
    std::string group_;
    std::size_t round_ = 0;
    std::map<std::string, std::size_t> named_;
};

}  // namespace

RunFigures readFigures(const std::filesystem::path& record, const Interrupt* interrupt)
{
    Collector collector;
    if (isOfLines(record)) {
        readSteps(record, [&](const StepPlace& place, const Step& step) {
            if (interrupt != nullptr && interrupt->requested()) {
                throw Interrupted();
            }
            collector.add(place, step);
        });
        return collector.finish();
    }
    const Run run = readRun(record);
    for (const PlacedStep& each : outcomeOf(run).steps) {
        const bool inFigures = each.groupTry < each.group->numbers.size();
        if (!inFigures) {
            collector.add(
                {each.phase->name, each.group->name, numberOf(*each.group, each.groupTry) + 1, 0, 0, !each.counts()},
                *each.step);
        } else if (each.counts()) {
            collector.note(each.group->name, *each.step);
        }
    }
    for (const Phase& phase : run.phases) {
        for (const Group& group : phase.groups) {
            collector.add(phase, group);
        }
    }
    return collector.finish();
}

void Packer::text(std::string_view value)
{
    number(static_cast<std::uint32_t>(value.size()));
    bytes_ += value;
}

std::string Unpacker::text()
{
    return std::string(take(number<std::uint32_t>()));
}

std::string_view Unpacker::take(std::size_t size)
{
    if (size > rest_.size()) {
        throw Mismatch();
    }
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
}

std::string pack(const std::vector<MeasurementKey>& keys)
{
    Packer packer;
    packer.number(static_cast<std::uint32_t>(keys.size()));
    for (const MeasurementKey& key : keys) {
        packKey(packer, key);
    }
    return packer.bytes();
}

std::vector<MeasurementKey> unpackKeys(std::string_view bytes)
{
    Unpacker unpacker(bytes);
    std::vector<MeasurementKey> keys;
    for (auto count = unpacker.number<std::uint32_t>(); count > 0; --count) {
        keys.push_back(unpackKey(unpacker));
    }
    return keys;
}

std::string packSeries(const RunFigures& figures)
{
    Packer packer;
    packer.text(figures.failedGroup);
    packer.text(figures.failedStep);
    for (const Series& each : figures.series) {
        // Most runs have one number of each.
        packer.number(static_cast<std::uint32_t>(each.numbers.count == 1 ? 1 : 0));
        packer.number(each.missed);
        packer.number(each.first);
        if (each.numbers.count == 1) {
            continue;
        }
        packer.number(each.last);
        packer.number(each.moved);
        packer.number(each.moves);
        packer.number(each.numbers.count);
        for (const double value :
             {each.numbers.minimum, each.numbers.mean, each.numbers.maximum, each.numbers.squares}) {
            packer.number(value);
        }
        packer.number(each.histogram.exponent());
        packer.number(static_cast<std::uint32_t>(each.histogram.stored().size()));
        for (const auto& [place, count] : each.histogram.stored()) {
            packer.number(place);
            packer.number(count);
        }
    }
    return packer.bytes();
}

RunFigures unpackSeries(std::string_view bytes, std::shared_ptr<const std::vector<MeasurementKey>> keys)
{
    Unpacker unpacker(bytes);
    RunFigures figures;
    figures.failedGroup = unpacker.text();
    figures.failedStep = unpacker.text();
    figures.series.resize(keys->size());
    figures.keys = std::move(keys);
    for (Series& each : figures.series) {
        const bool one = unpacker.number<std::uint32_t>() == 1;
        const auto missed = unpacker.number<std::size_t>();
        const auto first = unpacker.number<double>();
        if (one) {
            each.add(first, missed == 0);
            continue;
        }
        each.missed = missed;
        each.first = first;
        each.last = unpacker.number<double>();
        each.moved = unpacker.number<double>();
        each.moves = unpacker.number<std::size_t>();
        each.numbers.count = unpacker.number<std::size_t>();
        for (auto* value : {&each.numbers.minimum, &each.numbers.mean, &each.numbers.maximum, &each.numbers.squares}) {
            *value = unpacker.number<double>();
        }
        const int exponent = unpacker.number<int>();
        Histogram::Bins bins(std::min<std::size_t>(unpacker.number<std::uint32_t>(), Histogram::kMost));
        for (auto& [place, count] : bins) {
            place = unpacker.number<std::int64_t>();
            count = unpacker.number<std::uint64_t>();
        }
        each.histogram = Histogram::restored(exponent, std::move(bins));
    }
    return figures;
}

}  // namespace station::record
