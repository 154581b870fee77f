#include "station/identity/Provision.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace station::identity {

namespace {

bool has(const Stored& stored, const std::string& value)
{
    return stored.present && stored.value == value;
}

Result decide(const Wanted& wanted, const Stored& before, WriteOptions options)
{
    if (has(before, wanted.value)) {
        return Result::kUnchanged;
    }
    const bool own = wanted.own && wanted.record->presenceOnly;
    if (before.present && !own && !options.overwrite) {
        return Result::kRefused;
    }
    return options.dryRun ? Result::kWouldWrite : Result::kWritten;
}

Result compare(const Stored& after, const std::string& value, Result equal)
{
    if (!after.present) {
        return Result::kMissing;
    }
    return after.value == value ? equal : Result::kDiffers;
}

std::string shown(const Stored& stored, const Record& record)
{
    if (!stored.present) {
        return "nothing";
    }
    if (!record.presenceOnly) {
        return stored.value;
    }
    return "an address that cannot be read" +
           (stored.value.empty() ? "" : "; the controller uses " + stored.value + " until the unit starts again");
}

}  // namespace

const char* name(Result result)
{
    constexpr std::array kNames{"written", "present", "unchanged", "would-write", "refused",
                                "skipped", "matches", "differs",   "missing"};
    return kNames.at(static_cast<std::size_t>(result));
}

std::vector<Done> write(UnitIdentity& unit, std::span<const Wanted> wanted, WriteOptions options, const Report& report)
{
    std::vector<Done> all;
    for (const Wanted& one : wanted) {
        const Stored before = unit.read(*one.record);
        all.push_back({one.record, before, one.value, before, decide(one, before, options)});
    }
    const bool refused = std::ranges::any_of(all, [](const Done& done) { return done.result == Result::kRefused; });
    bool stopped = refused;
    for (Done& done : all) {
        if (done.result == Result::kWritten || done.result == Result::kWouldWrite) {
            if (stopped) {
                done.result = Result::kSkipped;
            } else if (done.result == Result::kWritten) {
                unit.write(*done.record, done.wanted);
                done.after = unit.read(*done.record);
                const bool presence = done.record->presenceOnly && done.after.present;
                done.result = presence ? Result::kPresent : compare(done.after, done.wanted, Result::kWritten);
                stopped = done.result != Result::kWritten && !presence;
            }
        }
        report(done);
    }
    return all;
}

std::vector<Done> verify(UnitIdentity& unit, std::span<const Wanted> wanted, const Report& report)
{
    std::vector<Done> all;
    for (const Wanted& one : wanted) {
        const Stored stored = unit.read(*one.record);
        all.push_back({one.record, stored, one.value, stored, compare(stored, one.value, Result::kMatches)});
        report(all.back());
    }
    return all;
}

std::string describe(const Done& done)
{
    const Record& record = *done.record;
    const auto line = [&](const char* words, const std::string& more = {}) {
        return fmt::format("{}: {} {}{}", record.name, words, done.wanted, more);
    };
    switch (done.result) {
        case Result::kWritten:
        case Result::kPresent:
            return line("written", fmt::format(" (was {}){}", shown(done.before, record),
                                               record.presenceOnly ? "; the unit only reports that it has an address, "
                                                                     "which the controller uses from the next start"
                                                                   : ""));
        case Result::kWouldWrite:
            return line("would write", fmt::format(" (is {})", shown(done.before, record)));
        case Result::kRefused:
            return line("refused",
                        fmt::format(", the unit has {} (--overwrite replaces it)", shown(done.before, record)));
        case Result::kSkipped:
            return line("skipped", " because of another record");
        case Result::kDiffers:
        case Result::kMissing:
            return fmt::format("{}: expected {}, got {}", record.name, done.wanted, shown(done.after, record));
        case Result::kUnchanged:
        case Result::kMatches:
            break;
    }
    return line(name(done.result));
}

}  // namespace station::identity
