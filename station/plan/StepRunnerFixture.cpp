// The steps that use the station's fixture: programs, instruments, the unit's power.

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>

#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/instrument/Program.h"
#include "station/plan/Judge.h"
#include "station/plan/StepRunner.h"

namespace station::plan {

using FixtureJson = nlohmann::ordered_json;
using instrument::ProgramEnd;
using record::Measurement;

namespace {

/// @returns the text of JSON with the values in place of ${name}, which stand within texts.
std::string substituteInJson(const std::string& json, const Variables& variables)
{
    Variables escaped;
    for (const auto& [name, value] : variables) {
        escaped[name] = inJson(value);
    }
    return substitute(json, escaped);
}

/// @returns a value that a program has printed: plain, or { "value": …, "unit": … }.
Measurement measurementOf(const std::string& name, const FixtureJson& printed)
{
    const bool hasUnit = printed.is_object() && printed.contains("value") && printed.contains("unit") &&
                         printed["unit"].is_string() && printed.size() == 2;
    const FixtureJson& value = hasUnit ? printed["value"] : printed;
    Measurement measurement{name, {}, hasUnit ? printed["unit"].get<std::string>() : "", {}};
    if (value.is_number()) {
        measurement.value = value.get<double>();
    } else if (value.is_string()) {
        measurement.value = value.get<std::string>();
    } else if (value.is_boolean()) {
        measurement.value = value.get<bool>();
    } else {
        throw protocol::UserError(fmt::format("{}: expected a number, a text, true or false, got {}",
                                              protocol::inQuotes(name), value.type_name()));
    }
    return measurement;
}

/// @returns what a program has printed. Throws protocol::UserError if that is not an object in JSON.
std::vector<Measurement> valuesIn(const std::string& out)
{
    constexpr std::size_t kShown = 200;
    const FixtureJson printed = FixtureJson::parse(out, nullptr, false);
    if (!printed.is_object()) {
        throw protocol::UserError(fmt::format("expected an object in JSON on standard output, got {}",
                                              out.empty() ? "nothing" : protocol::inQuotes(out.substr(0, kShown))));
    }
    std::vector<Measurement> values;
    for (const auto& [name, value] : printed.items()) {
        // An object may have a key twice.
        if (std::ranges::find(values, name, &Measurement::name) == values.end()) {
            values.push_back(measurementOf(name, value));
        }
    }
    return values;
}

/// @returns the last line that says something.
std::string lastLine(const std::string& text)
{
    const auto end = text.find_last_not_of(" \r\n");
    if (end == std::string::npos) {
        return {};
    }
    const auto begin = text.find_last_of('\n', end);
    return text.substr(begin == std::string::npos ? 0 : begin + 1,
                       end - (begin == std::string::npos ? 0 : begin + 1) + 1);
}

/// Adds how a program ended to the attempt, and a reason if that is wrong.
void addEnd(const ProgramEnd& end, const std::string& what, Duration timeout, record::Attempt& attempt)
{
    const bool ended = end.how == ProgramEnd::How::kExited;
    if (ended) {
        attempt.details.push_back({"exit status", std::to_string(end.status)});
    }
    if (!end.err.empty()) {
        attempt.details.push_back({"standard error", protocol::printable(end.err)});
    }
    const std::string said = lastLine(end.err).empty() ? "" : ": " + protocol::printable(lastLine(end.err));
    if (end.how == ProgramEnd::How::kTimedOut) {
        attempt.add(
            {record::Verdict::kTimeout, fmt::format("expected {} to end within {}, but it had to be killed{}",
                                                    protocol::inQuotes(what), protocol::secondsText(timeout), said)});
    } else if (end.how == ProgramEnd::How::kTooMuch) {
        attempt.add(
            {record::Verdict::kError, fmt::format("expected at most {} bytes on the standard output of {}, got more",
                                                  instrument::kMostOutput, protocol::inQuotes(what))});
    } else if (end.how == ProgramEnd::How::kSignalled) {
        attempt.add({record::Verdict::kError,
                     fmt::format("expected {} to exit, but signal {} ended it ({}){}", protocol::inQuotes(what),
                                 end.status, sigdescr_np(end.status), said)});
    } else if (end.status != 0) {
        attempt.add({record::Verdict::kError, fmt::format("expected exit status 0 of {}, got {}{}",
                                                          protocol::inQuotes(what), end.status, said)});
    }
}

/// @returns the unit in which an instrument answers if the plan expects `unit`: without a prefix, but a level as it is.
std::string answerUnit(const std::string& unit)
{
    constexpr auto kUnits = std::to_array<std::string_view>({"Hz", "s", "V", "A", "W", "Ω", "Ohm", "F", "H", "m"});
    const auto* const plain = std::ranges::find_if(kUnits, [&](std::string_view each) {
        return !unit.starts_with("dB") && unit.ends_with(each) && protocol::convert(1, each, unit);
    });
    return plain == kUnits.end() ? unit : std::string(*plain);
}

/// @returns the value of an answer: a number if it is one.
Measurement valueOf(const std::string& answer, const std::vector<Expected>& expected)
{
    // SCPI's numbers for infinity and for not a number.
    constexpr double kInfinity = 9.9e37;
    const auto number = protocol::parseFinite(answer.starts_with('+') ? answer.substr(1) : answer);
    if (number && std::abs(*number) >= kInfinity) {
        throw protocol::UserError(
            fmt::format("expected a value, got {}, which stands for an overload or for none", answer));
    }
    Measurement value{"value", answer, "", {}};
    if (number) {
        value.value = *number;
        value.unit = expected.empty() ? "" : answerUnit(expected.front().unit);
    }
    return value;
}

}  // namespace

void StepRunner::run(const RunProgram& program, const Step& step, record::Attempt& attempt)
{
    std::vector<std::string> words;
    std::ranges::transform(program.words, std::back_inserter(words),
                           [this](const std::string& word) { return substitute(word, variables_); });
    words.front() = program.words.front();
    const ProgramEnd end =
        instrument::runProgram(words, substituteInJson(program.json, variables_), step.timeout, control_.interrupt());
    addEnd(end, step.what, step.timeout, attempt);
    if (attempt.verdict == record::Verdict::kPass) {
        takeValues(program.expect, valuesIn(end.out), program.store, attempt);
    }
}

void StepRunner::run(const InstrumentCommand& command, const Step& step, record::Attempt& attempt)
{
    const std::string text = substitute(command.command, variables_);
    if (const std::string wrong = instrument::notOneLine(text); !wrong.empty()) {
        throw protocol::UserError(wrong);
    }
    const auto answer = surroundings_.instruments->ask(command.instrument, text, step.timeout, control_.interrupt());
    attempt.details.push_back({"instrument", answer.identity});
    if (instrument::isQuery(text)) {
        takeValues(command.expect, {valueOf(answer.text, command.expect)}, command.store, attempt);
    }
}

void StepRunner::takeValues(const std::vector<Expected>& expected, std::vector<Measurement> values,
                            const std::vector<StoredField>& store, record::Attempt& attempt)
{
    auto judgement = judgeValues(expected, std::move(values), variables_);
    attempt.measurements = std::move(judgement.measurements);
    if (!judgement.misses.empty()) {
        attempt.add({record::Verdict::kFail, judgement.reason()});
    }
    const auto& measured = attempt.measurements;
    for (const StoredField& each : store) {
        const auto found =
            each.field.empty() ? measured.begin() : std::ranges::find(measured, each.field, &Measurement::name);
        if (found == measured.end() || (each.field.empty() && measured.size() != 1)) {
            throw protocol::UserError(
                each.field.empty()
                    ? fmt::format("expected one value to store as {}, got {}", protocol::inQuotes(each.variable),
                                  measured.size())
                    : fmt::format("expected the value {} to store, got none", protocol::inQuotes(each.field)));
        }
        this->store(each.variable, plainText(found->value), each.keep);
        if (each.variable == kSerialVariable) {
            serial_.tell(plainText(found->value));
        }
    }
}

void StepRunner::run(const PowerChange& change, const Step& step, record::Attempt& attempt)
{
    const auto deadline = Connection::Clock::now() + step.timeout;
    connection_.beginOutage(deadline);
    // What the unit said before is not so any more.
    modeSeenOn_ = false;
    unitOff_ = false;
    try {
        switchPower(change.to, step.timeout, attempt);
        if (attempt.verdict == record::Verdict::kPass && change.to != PowerChange::To::kOff) {
            awaitUnit(deadline, step, attempt);
        }
        unitOff_ = attempt.verdict == record::Verdict::kPass && change.to == PowerChange::To::kOff;
    } catch (...) {
        connection_.endOutage();
        throw;
    }
    if (unitOff_) {
        // A step that needs the unit before it is on again does not wait for it.
        connection_.beginOutage(Connection::Clock::now());
    } else {
        connection_.endOutage();
    }
}

void StepRunner::switchPower(PowerChange::To to, Duration timeout, record::Attempt& attempt)
{
    const auto& power = *surroundings_.instruments->equipment().power;
    if (!power.run.empty()) {
        constexpr const char* kWords[] = {"cycle", "off", "on"};
        std::vector<std::string> words = power.run;
        words.front() = instrument::findProgram(words.front(), {surroundings_.instruments->equipment().scripts});
        words.emplace_back(kWords[static_cast<int>(to)]);
        const FixtureJson input{{"port", run_.unit.port}, {"serial", run_.unit.serial}};
        addEnd(instrument::runProgram(words, input.dump(-1, ' ', false, FixtureJson::error_handler_t::replace), timeout,
                                      control_.interrupt()),
               fmt::format("{} {}", power.run.front(), words.back()), timeout, attempt);
        return;
    }
    constexpr Duration kPatience = std::chrono::seconds(5);
    const auto tell = [&](const std::string& command) {
        attempt.details = {
            {"instrument", surroundings_.instruments
                               ->ask(power.instrument, command, std::min(timeout, kPatience), control_.interrupt())
                               .identity}};
    };
    if (to != PowerChange::To::kOn) {
        tell(power.off);
    }
    if (to == PowerChange::To::kCycle) {
        pauseAsideOfLine(power.pause);
    }
    if (to != PowerChange::To::kOff) {
        tell(power.on);
    }
}

void StepRunner::awaitUnit(Connection::Clock::time_point deadline, const Step& step, record::Attempt& attempt)
{
    constexpr Duration kEach = std::chrono::seconds(1);
    constexpr Duration kLookAgain = std::chrono::milliseconds(50);
    namespace catalogue = protocol::catalogue;
    const auto* const command = catalogue::findCommand(surroundings_.groups, "test.set-mode");
    if (command == nullptr) {
        throw protocol::UserError("expected the command test.set-mode in the catalogue, got none");
    }
    const protocol::Frame frame = catalogue::encode(*command, std::vector<catalogue::Argument>{{"mode", "on"}});
    line_.forget();
    line_.attribution().expect(Attribution::Due::kEither);
    std::string lastly = "no answer";
    while (!modeSeenOn_) {
        const Duration left = deadline - Connection::Clock::now();
        if (left <= Duration(0)) {
            attempt.add({record::Verdict::kTimeout, fmt::format("expected the unit in auto-test mode within {}, got {}",
                                                                protocol::secondsText(step.timeout), lastly)});
            break;
        }
        try {
            const auto outcome = connection_.request(
                frame, [this](const protocol::Frame&) { return line_.latestAnswers(); }, std::min(left, kEach), true);
            lastly = "no answer";
            if (outcome.reply) {
                line_.claim(line_.arrivals().back());
                lookForMode(catalogue::decodeFromUnit(surroundings_.groups, *outcome.reply, command));
                lastly = "another mode";
            }
        } catch (const protocol::LineError& error) {
            lastly = error.what();
        }
        if (!modeSeenOn_) {
            pauseAsideOfLine(kLookAgain);
        }
    }
    line_.attribution().settle();
    attribute();
}

void StepRunner::pauseAsideOfLine(Duration time)
{
    pollfd request{control_.interrupt().descriptor(), POLLIN, 0};
    const timespec left{static_cast<time_t>(time.count() / 1'000'000'000),
                        static_cast<long>(time.count() % 1'000'000'000)};
    if (ppoll(&request, 1, &left, nullptr) > 0) {
        throw Interrupted();
    }
}

}  // namespace station::plan
