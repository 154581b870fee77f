#include "station/record/Outcome.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "protocol/Text.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

/// @returns whether a step that passed needed another attempt, or its group another try.
bool needed(const Step& step, bool again)
{
    return again || std::ranges::any_of(step.attempts, &Attempt::superseded);
}

/// @returns whether the try before this one failed and was superseded.
bool isAgain(const Group& group, std::size_t index)
{
    return index > 0 && group.tries[index - 1].superseded && numberOf(group, index - 1) + 1 == numberOf(group, index);
}

void add(std::vector<RepeatedMeasurement>& all, std::size_t position, const std::string& step, const Measurement& one)
{
    // The plan has far fewer; a file that somebody made may have any number.
    constexpr std::size_t kMost = 10'000;
    auto found = std::ranges::find_if(all, [&](const RepeatedMeasurement& each) {
        return each.position == position && each.name == one.name && each.unit == one.unit;
    });
    if (found == all.end()) {
        if (all.size() == kMost) {
            return;
        }
        found = all.insert(found, {position, step, one.name, one.unit, one.limits, 0, 0, {}});
    }
    ++found->count;
    found->missed += one.passed ? 0 : 1;
    if (const auto* number = std::get_if<double>(&one.value); number != nullptr && std::isfinite(*number)) {
        found->numbers.add(*number);
    }
}

template <class List>
Verdict worstOf(const List& list)
{
    Verdict verdict = Verdict::kSkipped;
    for (const auto& each : list) {
        verdict = worse(verdict, verdictOf(each));
    }
    return verdict;
}

bool anyDone(const Phase& phase)
{
    return worstOf(phase.groups) != Verdict::kSkipped;
}

/// @returns the reason, without the measurement's name if the step's name ends with it: "Radio antenna: expected …".
std::string_view withoutEcho(std::string_view reason, std::string_view step)
{
    const std::size_t length = reason.find(": expected ");
    const bool fits = length == step.size() || (length < step.size() && step[step.size() - length - 1] == ' ');
    const bool echo = fits && strncasecmp(step.data() + step.size() - length, reason.data(), length) == 0;
    return echo ? reason.substr(length + 2) : reason;
}

/// @returns "GROUP / STEP (round 2 of 9): REASON" of the first step that went wrong and counts, else why the phase
/// ended early.
std::string troubleIn(const Phase& phase)
{
    for (const Group& group : phase.groups) {
        for (std::size_t i = 0; i < group.tries.size(); ++i) {
            for (const Step& step : group.tries[i].steps) {
                if (!group.tries[i].superseded && isBad(verdictOf(step))) {
                    const std::size_t rounds = triesOf(group);
                    return fmt::format(
                        "{} / {}{}: {}", group.name, step.name,
                        rounds > 1 ? fmt::format(" (round {} of {})", numberOf(group, i) + 1, rounds) : "",
                        withoutEcho(reasonOf(step), step.name));
                }
            }
        }
    }
    return reasonOf(phase);
}

/// Says when the line was lost and came back, unless only steps that switch the power off had that effect.
void addLosses(const Run& run, std::vector<std::string>& lines)
{
    if (run.line.losses == 0) {
        return;
    }
    constexpr std::size_t kShown = 10;
    std::size_t seen = 0;
    for (const auto& [number, event] : run.events.kept()) {
        if (!hasFrame(event.kind) && seen++ < kShown) {
            lines.push_back(fmt::format("{}: {}", toText(event.at), describe({}, event, {})));
        }
    }
    if (seen > kShown) {
        lines.push_back(fmt::format("{} more losses and returns are in the record", seen - kShown));
    }
}

}  // namespace

Verdict verdictOf(const Step& step)
{
    Verdict verdict = step.cut ? step.cut->verdict : Verdict::kSkipped;
    for (const Attempt& attempt : step.attempts) {
        verdict = attempt.superseded ? verdict : worse(verdict, attempt.verdict);
    }
    return verdict;
}

std::string reasonOf(const Step& step)
{
    const Verdict verdict = verdictOf(step);
    for (const Attempt& attempt : step.attempts) {
        if (!attempt.superseded && attempt.verdict == verdict && !attempt.reason.empty()) {
            return attempt.reason;
        }
    }
    return step.cut ? step.cut->text : std::string();
}

Verdict verdictOf(const Group::Try& one)
{
    return worstOf(one.steps);
}

Verdict verdictOf(const Group& group)
{
    Verdict verdict = group.rounds.verdict;
    for (const Group::Try& one : group.tries) {
        verdict = one.superseded ? verdict : worse(verdict, verdictOf(one));
    }
    return verdict;
}

std::size_t numberOf(const Group& group, std::size_t index)
{
    const std::size_t closed = group.numbers.size();
    return index < closed ? group.numbers[index] : group.rounds.tries + index - closed;
}

std::size_t triesOf(const Group& group)
{
    return group.rounds.tries + group.tries.size() - group.numbers.size();
}

void add(Rounds& rounds, const Group::Try& one, bool again)
{
    ++rounds.tries;
    if (one.superseded) {
        return;
    }
    const Verdict verdict = verdictOf(one);
    ++rounds.counted;
    rounds.failed += isBad(verdict) ? 1 : 0;
    rounds.verdict = worse(rounds.verdict, verdict);
    const Attempt* first = nullptr;
    for (std::size_t i = 0; i < one.steps.size(); ++i) {
        const Step& step = one.steps[i];
        const Verdict ofStep = verdictOf(step);
        ++rounds.steps[ofStep];
        rounds.repeated += ofStep == Verdict::kPass && needed(step, again) ? 1 : 0;
        for (const Attempt& attempt : step.attempts) {
            first = first == nullptr ? &attempt : first;
            if (attempt.superseded) {
                continue;
            }
            for (const Measurement& measurement : attempt.measurements) {
                add(rounds.measurements, i, step.name, measurement);
            }
            const double time = std::chrono::duration<double, std::milli>(attempt.duration).count();
            add(rounds.measurements, i, step.name, {kTimeOfAttempt, time, "ms", {}, true});
        }
    }
    if (first != nullptr) {
        rounds.timeline.add(first->started, isBad(verdict));
    }
}

Rounds roundsOf(const Group& group)
{
    Rounds rounds = group.rounds;
    for (std::size_t i = group.numbers.size(); i < group.tries.size(); ++i) {
        add(rounds, group.tries[i], isAgain(group, i));
    }
    return rounds;
}

Verdict verdictOf(const Phase& phase)
{
    return worse(worstOf(phase.groups), phase.cut ? phase.cut->verdict : Verdict::kSkipped);
}

std::string reasonOf(const Phase& phase)
{
    return phase.cut ? phase.cut->text : std::string();
}

std::string lineText(const LineQuality& line)
{
    std::vector<std::string> texts;
    const auto add = [&texts](std::size_t number, const char* one, const char* several) {
        if (number > 0) {
            texts.push_back(fmt::format("{} {}", number, number == 1 ? one : several));
        }
    };
    add(line.losses, "loss", "losses");
    add(line.reconnects, "reconnect", "reconnects");
    add(line.repeatedSends, "repeated send", "repeated sends");
    add(line.corruptFrames, "corrupt frame", "corrupt frames");
    add(line.garbageBytes, "byte of garbage", "bytes of garbage");
    return texts.empty() ? "clean" : fmt::format("{}", fmt::join(texts, ", "));
}

Headline headlineOf(const Run& run)
{
    Headline headline;
    const auto note = [&](Verdict verdict, const std::string& text) {
        if (verdict == headline.verdict && headline.reason.empty()) {
            headline.reason = text;
        } else if (!text.empty()) {
            headline.beside.push_back(text);
        }
    };
    const Phase* const teardown = run.phases.size() > Run::kTeardown ? &run.phases[Run::kTeardown] : nullptr;
    for (const Phase& phase : run.phases) {
        headline.verdict = &phase == teardown ? headline.verdict : worse(headline.verdict, verdictOf(phase));
    }
    for (const Finding& finding : run.findings) {
        headline.verdict = worse(headline.verdict, finding.verdict);
    }
    if (headline.verdict == Verdict::kPass && run.phases.size() > Run::kMain && !anyDone(run.phases[Run::kMain])) {
        headline.verdict = Verdict::kSkipped;
        headline.reason = "no step of the main part was run";
    }
    const Verdict afterwards = teardown == nullptr ? Verdict::kSkipped : verdictOf(*teardown);
    if (headline.verdict == Verdict::kPass && isBad(afterwards)) {
        headline.verdict = Verdict::kError;
    }
    for (const Finding& finding : run.findings) {
        note(finding.verdict, finding.text);
    }
    for (const Phase& phase : run.phases) {
        if (&phase != teardown && isBad(verdictOf(phase)) && headline.reason.empty()) {
            headline.reason = troubleIn(phase);
        }
    }
    if (isBad(afterwards)) {
        note(headline.verdict, fmt::format("teardown: {}: {}", name(afterwards), troubleIn(*teardown)));
    }
    addLosses(run, headline.beside);
    return headline;
}

Verdict verdictOf(const Run& run)
{
    return headlineOf(run).verdict;
}

Outcome outcomeOf(const Run& run)
{
    Outcome outcome;
    for (const Phase& phase : run.phases) {
        for (const Group& group : phase.groups) {
            const Rounds rounds = roundsOf(group);
            outcome.passedWhenRepeated += rounds.repeated;
            for (const auto& [verdict, number] : rounds.steps) {
                outcome.tally[verdict] += number;
                outcome.total += number;
                outcome.wrong += isBad(verdict) ? number : 0;
            }
            for (std::size_t i = 0; i < group.tries.size(); ++i) {
                for (const Step& step : group.tries[i].steps) {
                    const PlacedStep placed{&phase, &group, &step, i, verdictOf(step)};
                    outcome.steps.push_back(placed);
                    if (placed.counts() && isBad(placed.verdict)) {
                        outcome.failed.push_back(placed);
                    } else if (placed.counts() && placed.verdict == Verdict::kPass && needed(step, isAgain(group, i))) {
                        outcome.repeated.push_back(placed);
                    }
                }
            }
        }
    }
    return outcome;
}

std::vector<std::vector<PlacedStep>> equalFailures(const Outcome& outcome)
{
    std::vector<std::vector<PlacedStep>> all;
    for (const PlacedStep& placed : outcome.failed) {
        const std::size_t number = numberOf(*placed.group, placed.groupTry);
        const auto found = std::ranges::find_if(all, [&](const std::vector<PlacedStep>& equal) {
            const PlacedStep& last = equal.back();
            return last.group == placed.group && numberOf(*last.group, last.groupTry) + 1 == number &&
                   last.verdict == placed.verdict && last.step->name == placed.step->name &&
                   reasonOf(*last.step) == reasonOf(*placed.step);
        });
        (found == all.end() ? all.emplace_back() : *found).push_back(placed);
    }
    return all;
}

std::size_t count(const Tally& tally, Verdict verdict)
{
    const auto found = tally.find(verdict);
    return found == tally.end() ? 0 : found->second;
}

std::string summaryOf(const Run& run, const Outcome& outcome)
{
    const auto were = [](std::size_t number) { return fmt::format("{} {}", number, number == 1 ? "was" : "were"); };
    const std::size_t aborted = count(outcome.tally, Verdict::kAborted);
    const std::size_t wrong = outcome.wrong - aborted;
    const std::size_t passedSteps = count(outcome.tally, Verdict::kPass);
    const std::size_t skipped = count(outcome.tally, Verdict::kSkipped);
    const std::string steps = protocol::plural(outcome.total, "step");
    const std::string passed = fmt::format("{} of {} passed", passedSteps, steps);
    std::vector<std::string> parts;
    if (outcome.total == 0) {
        parts = {"No step was run"};
    } else if (verdictOf(run) == Verdict::kAborted) {
        parts = {(passedSteps == outcome.total ? steps + " passed" : passed) + " before the end"};
        if (wrong > 0) {
            parts.push_back(fmt::format("{} went wrong", wrong));
        }
        if (aborted > 0) {
            parts.push_back(were(aborted) + " ended");
        }
    } else if (wrong > 0) {
        parts = {fmt::format("{} of {} went wrong", wrong, steps)};
    } else if (passedSteps == outcome.total) {
        parts = {outcome.total == 1 ? "The step passed" : fmt::format("All {} passed", steps)};
    } else {
        parts = {passed};
    }
    if (outcome.total > 0 && skipped > 0) {
        parts.push_back(were(skipped) + " not run");
    }
    if (outcome.passedWhenRepeated > 0) {
        parts.push_back(fmt::format("{} passed only when repeated", outcome.passedWhenRepeated));
    }
    return fmt::format("{}.", fmt::join(parts, ", "));
}

std::chrono::nanoseconds durationOf(const Run& run)
{
    return run.ended < run.started ? std::chrono::nanoseconds(0)
                                   : std::chrono::duration_cast<std::chrono::nanoseconds>(run.ended - run.started);
}

std::chrono::nanoseconds durationOf(const Step& step)
{
    std::chrono::nanoseconds sum{0};
    for (const Attempt& attempt : step.attempts) {
        sum += attempt.duration;
    }
    return sum;
}

std::vector<EventLine> linesOf(const Events& events, EventRange range, protocol::catalogue::Groups groups)
{
    std::vector<EventLine> lines;
    Attribution attribution(groups);
    std::size_t next = range.begin;
    const auto gapUntil = [&](std::size_t number) {
        if (number > next) {
            lines.push_back({nullptr, "", protocol::plural(number - next, "event") + " left out"});
        }
        next = number + 1;
    };
    for (auto at = events.kept().lower_bound(range.begin); at != events.kept().end() && at->first < range.end; ++at) {
        gapUntil(at->first);
        const TraceEvent& event = at->second;
        lines.push_back({&event, bytesText(event), printable(describe(groups, event, attribution.on(event).decoded))});
    }
    gapUntil(range.end);
    return lines;
}

}  // namespace station::record
