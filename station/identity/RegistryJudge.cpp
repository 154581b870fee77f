#include "station/identity/RegistryJudge.h"

#include <fmt/format.h>

#include <algorithm>

namespace station::identity {

std::vector<UniqueValue> RegistryJudge::uniqueOf(const Values& values) const
{
    std::vector<UniqueValue> all;
    for (const auto& [key, value] : values) {
        const Record* record = find(records_, key);
        if (record == nullptr || !record->unique || rules_.isPlaceholder(*record, value)) {
            continue;
        }
        all.insert(record->name == rules_.serial.name ? all.begin() : all.end(),
                   {record, registryText(*record, value)});
    }
    return all;
}

RegistryJudge::Known RegistryJudge::identify(const UnitOnLine& line)
{
    const auto held = uniqueOf(line.held);
    Known known;
    std::string by;
    for (const UniqueValue& value : held) {
        const auto owner = tables_.ownerOf(value);
        if (!owner || owner->unit == kNobody) {
            continue;
        }
        // A value that was copied from another unit does not make it that unit.
        const bool contradicted = held.front().record->name == rules_.serial.name && &held.front() != &value &&
                                  !tables_.otherValue(owner->unit, rules_.serial.name, held.front().text).empty();
        if (known.unit == kNobody && !contradicted) {
            known.unit = owner->unit;
            by = value.shown();
        }
        known.shown = known.shown || (owner->unit == known.unit && isGiven(owner->state));
    }
    const UnitId labelled = line.label.empty() ? kNobody : tables_.unitOf(line.label);
    if (labelled != kNobody && !line.reissue.empty()) {
        return {labelled, false};
    }
    if (line.label.empty() || labelled == known.unit) {
        return known;
    }
    if (known.unit != kNobody && (labelled != kNobody || !tables_.labelOf(known.unit).empty())) {
        throw NotGiven(fmt::format("this is not unit {}: it holds {}, which belongs to unit {}", line.label, by,
                                   tables_.nameOf(known.unit)));
    }
    if (labelled == kNobody) {
        return known;
    }
    for (const UniqueValue& value : held) {
        if (const std::string given = tables_.otherValue(labelled, value.record->name, value.text); !given.empty()) {
            throw NotGiven(fmt::format("this is not unit {0}: it holds {1}, and unit {0} was given {2}", line.label,
                                       value.shown(), given));
        }
    }
    return {labelled, false};
}

RegistryJudge::Claim RegistryJudge::judge(const Known& known, const UnitOnLine& line, const UniqueValue& value)
{
    const auto owner = tables_.ownerOf(value);
    if (holds(line, value)) {
        return owner && owner->unit == known.unit && isGiven(owner->state) ? Claim::kOwn : Claim::kHeld;
    }
    if (!owner) {
        return Claim::kFree;
    }
    if (owner->state == State::kBlocked) {
        throw NotGiven(
            fmt::format("{} is blocked{}{}", value.shown(), owner->reason.empty() ? "" : ": ", owner->reason));
    }
    if (owner->unit == known.unit) {
        refuseStranger(known, line, value.shown());
        return Claim::kOwn;
    }
    if (!line.reissue.empty()) {
        return Claim::kReissued;
    }
    throw NotGiven(fmt::format(
        "{} has been given to unit {}{}; 'identity write --reissue REASON' gives it to a board that replaces that "
        "unit's",
        value.shown(), tables_.nameOf(owner->unit), owner->state == State::kSeen ? ", which was seen with it" : ""));
}

void RegistryJudge::refuseStranger(const Known& known, const UnitOnLine& line, const std::string& what)
{
    if (!known.shown && !line.erased && line.reissue.empty() && tables_.wasSentValues(known.unit)) {
        throw NotGiven(
            fmt::format("unit {} was given {} and may have its values, but the unit on the line holds none of them: "
                        "give another --unit, or --again if it is the same unit and its memory was erased",
                        tables_.nameOf(known.unit), what));
    }
}

UnitId RegistryJudge::settle(const Known& known, const UnitOnLine& line)
{
    const UnitId unit = known.unit == kNobody ? tables_.addUnit("") : known.unit;
    if (!line.label.empty() && tables_.labelOf(unit).empty() && tables_.unitOf(line.label) == kNobody) {
        tables_.setLabel(unit, line.label);
    }
    for (const UniqueValue& value : uniqueOf(line.held)) {
        if (!tables_.ownerOf(value)) {
            tables_.put(value, unit, State::kSeen);
        }
    }
    return unit;
}

void RegistryJudge::reserve(Claim claim, const UniqueValue& value, UnitId unit, const UnitOnLine& line)
{
    const auto owner = tables_.ownerOf(value);
    const bool isNew = !owner || owner->state == State::kSeen;
    if (isNew && (claim == Claim::kFree || claim == Claim::kOwn)) {
        tables_.put(value, unit, State::kReserved);
    }
    if (claim == Claim::kReissued || (claim == Claim::kOwn && !line.reissue.empty())) {
        tables_.note("reissued", value, unit, line.reissue);
    }
}

bool RegistryJudge::holds(const UnitOnLine& line, const UniqueValue& value)
{
    const auto found = line.held.find(value.record->name);
    return found != line.held.end() && registryText(*value.record, found->second) == value.text;
}

bool RegistryJudge::holdsAny(const UnitOnLine& line, const std::vector<UniqueValue>& values)
{
    return std::ranges::any_of(values, [&](const UniqueValue& value) { return holds(line, value); });
}

}  // namespace station::identity
