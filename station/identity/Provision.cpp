#include "station/identity/Provision.h"

#include <algorithm>

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
    return "one that cannot be read" +
           (stored.value.empty() ? "" : "; the controller runs " + stored.value + " until the unit starts again");
}

}  // namespace

const char* name(Result result)
{
    switch (result) {
        case Result::kWritten:
            return "written";
        case Result::kPresent:
            return "present";
        case Result::kUnchanged:
            return "unchanged";
        case Result::kWouldWrite:
            return "would-write";
        case Result::kRefused:
            return "refused";
        case Result::kSkipped:
            return "skipped";
        case Result::kMatches:
            return "matches";
        case Result::kDiffers:
            return "differs";
        case Result::kMissing:
            return "missing";
    }
    return "";
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
    const std::string begin = std::string(record.name) + ": ";
    switch (done.result) {
        case Result::kWritten:
        case Result::kPresent:
            return begin + "written " + done.wanted + " (was " + shown(done.before, record) + ")" +
                   (record.presenceOnly
                        ? "; the unit only tells that there is one, which the controller runs from the next start"
                        : "");
        case Result::kUnchanged:
            return begin + "unchanged " + done.wanted;
        case Result::kWouldWrite:
            return begin + "would write " + done.wanted + " (is " + shown(done.before, record) + ")";
        case Result::kRefused:
            return begin + "refused " + done.wanted + ", the unit has " + shown(done.before, record) +
                   " (--overwrite replaces it)";
        case Result::kSkipped:
            return begin + "skipped " + done.wanted + " on account of another record";
        case Result::kMatches:
            return begin + "matches " + done.wanted;
        case Result::kDiffers:
            return begin + "differs: " + done.wanted + " expected, " + shown(done.after, record);
        case Result::kMissing:
            return begin + "missing: " + done.wanted + " expected, the unit has nothing";
    }
    return begin;
}

}  // namespace station::identity
