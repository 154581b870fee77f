#include "station/plan/StepRunner.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/plan/Judge.h"

namespace station::plan {

namespace catalogue = protocol::catalogue;
using protocol::Frame;
using protocol::secondsText;
using record::Attempt;
using record::Verdict;

namespace {

std::string milliseconds(Duration time)
{
    return fmt::format("{} ms", std::chrono::round<std::chrono::milliseconds>(time).count());
}

void fail(Attempt& attempt, Verdict verdict, std::string reason)
{
    attempt.add({verdict, std::move(reason)});
}

Attribution::Due dueOf(ReplyRule rule)
{
    switch (rule) {
        case ReplyRule::kRequired:
            return Attribution::Due::kReply;
        case ReplyRule::kOptional:
            return Attribution::Due::kEither;
        case ReplyRule::kNone:
            break;
    }
    return Attribution::Due::kSilence;
}

void judgeTime(Duration time, Duration most, Attempt& attempt)
{
    const auto inMilliseconds = [](Duration each) {
        return static_cast<double>(std::chrono::round<std::chrono::microseconds>(each).count()) / 1000;
    };
    record::Measurement measurement{kLatency, inMilliseconds(time), "ms", {}, time <= most};
    measurement.limits.maximum = inMilliseconds(most);
    if (!measurement.passed) {
        fail(attempt, Verdict::kFail,
             fmt::format("latency: expected {}, got {}", record::toText(measurement.limits, measurement.unit),
                         record::toText(measurement.value, measurement.unit)));
    }
    attempt.measurements.push_back(std::move(measurement));
}

/// @returns how a frame differs from the catalogue although each of its fields fits; empty if it does not.
std::string misshape(const catalogue::Decoded& decoded)
{
    std::vector<std::string> problems;
    std::ranges::copy_if(decoded.problems, std::back_inserter(problems), [&](const std::string& problem) {
        return std::ranges::none_of(decoded.fields, [&](const catalogue::DecodedField& field) {
            return !field.problem.empty() && problem.ends_with(field.problem);
        });
    });
    return fmt::format("{}", fmt::join(problems, "; "));
}

}  // namespace

StepRunner::StepRunner(Connection& connection, LineWatch& line, const Surroundings& surroundings, RunControl& control,
                       record::Run& run, UnitSerial& serial, Observer& observer)
    : connection_(connection)
    , line_(line)
    , surroundings_(surroundings)
    , control_(control)
    , run_(run)
    , serial_(serial)
    , observer_(observer)
{
}

void StepRunner::attempt(const Step& step, const StepPlace& place, record::Step& record)
{
    Attempt& attempt = record.attempts.emplace_back();
    attempt.started = std::chrono::system_clock::now();
    const auto began = std::chrono::steady_clock::now();
    const Duration wireBefore = line_.wireTime();
    attempt.events = {line_.position(), line_.position()};
    current_ = &record;
    senders_.push_back({line_.attribution().requests() + 1, place, &record, &attempt});
    if (senders_.size() > Attribution::kRemembered) {
        senders_.pop_front();
    }
    try {
        std::visit([&](const auto& action) { run(action, step, attempt); }, step.action);
    } catch (const Interrupted&) {
        interrupted_ = true;
        if (limit_ != nullptr && limit_->over() && !control_.teardownRefused()) {
            fail(attempt, Verdict::kTimeout, "the teardown ran out of time");
        } else {
            fail(attempt, Verdict::kAborted, "ended by the user");
        }
    } catch (const protocol::LineError& error) {
        linkFailed_ = linkFailed_ || error.status() == protocol::kLineFailed;
        fail(attempt, error.status() == protocol::kNoAnswer ? Verdict::kTimeout : Verdict::kError, error.what());
    } catch (const std::exception& error) {
        fail(attempt, Verdict::kError, error.what());
    }
    current_ = nullptr;
    attempt.duration = std::chrono::steady_clock::now() - began;
    attempt.events.end = line_.position();
    run_.line = connection_.quality();
    timeouts_ = attempt.verdict == Verdict::kTimeout ? timeouts_ + 1 : 0;
    attempt.wireTime = line_.wireTime() - wireBefore;
}

void StepRunner::run(const Send& send, const Step& step, Attempt& attempt)
{
    std::vector<catalogue::Argument> arguments;
    for (const auto& [name, value] : send.with) {
        arguments.emplace_back(name, substitute(value, variables_));
    }
    const Frame frame = catalogue::encode(*send.command, arguments);
    line_.forget();
    const std::size_t losses = connection_.quality().losses;
    line_.attribution().expect(dueOf(send.reply));
    if (isSerialCommand(*send.command, "write-")) {
        serial_.write();
    }

    if (send.command->replies.empty() && send.reply != ReplyRule::kNone) {
        connection_.send(frame);
        line_.attribution().settle();
        attribute();
    } else if (send.poll) {
        poll(send, frame, step, attempt);
    } else if (const auto reply = exchange(send, frame, step.timeout, attempt)) {
        judgeFrame(*reply, send.command, send.expect, send.later ? std::vector<StoredField>() : send.store, attempt);
        listenBriefly();
        attribute();
    }
    if (send.reply == ReplyRule::kNone && connection_.quality().losses > losses) {
        fail(attempt, Verdict::kError, "expected silence, but the line was lost meanwhile");
    }
    if (send.later && attempt.verdict == Verdict::kPass) {
        const auto later = awaitFrame([&](const Frame& each) { return isLater(*send.command, each); }, step.timeout);
        if (later) {
            judgeFrame(*later, send.command, send.expectLater, send.store, attempt);
        } else {
            fail(attempt, Verdict::kTimeout,
                 fmt::format("expected the later reply of {} within {}, got none",
                             catalogue::fullKey(surroundings_.groups, *send.command), secondsText(step.timeout)));
        }
    }
}

void StepRunner::poll(const Send& send, const Frame& frame, const Step& step, Attempt& attempt)
{
    const auto giveUp = Connection::Clock::now() + send.poll->patience;
    std::vector<Expected> expected = send.poll->until;
    expected.insert(expected.end(), send.expect.begin(), send.expect.end());
    for (std::size_t tries = 1;; ++tries) {
        Attempt last;
        const auto reply = exchange(send, frame, step.timeout, last);
        const bool late = Connection::Clock::now() + send.poll->every >= giveUp;
        bool done = false;
        if (reply) {
            const auto decoded = catalogue::decodeFromUnit(surroundings_.groups, *reply, send.command);
            done = judge(send.poll->until, decoded.fields, variables_).misses.empty();
            judgeFrame(*reply, send.command, expected, done || late ? send.store : std::vector<StoredField>(), last);
            listenBriefly();
            attribute();
        }
        if (done || late) {
            attempt.measurements = std::move(last.measurements);
            attempt.measurements.push_back({"tries", static_cast<double>(tries), "", {}});
            if (last.verdict != Verdict::kPass) {
                fail(attempt, last.verdict,
                     done ? last.reason
                          : fmt::format("{}; tried {} within {}", last.reason, protocol::plural(tries, "time"),
                                        secondsText(send.poll->patience)));
            }
            return;
        }
        awaitFrame([](const Frame&) { return false; }, send.poll->every);
        attribute();
        line_.forget();
        line_.attribution().expect(dueOf(send.reply));
    }
}

/// @returns the answer, when one is allowed and came.
std::optional<Frame> StepRunner::exchange(const Send& send, const Frame& frame, Duration timeout, Attempt& attempt)
{
    const auto outcome = connection_.request(
        frame, [this](const Frame&) { return line_.latestAnswers(); }, timeout, send.command->repeatable);
    line_.attribution().settle();
    const bool silent = send.reply == ReplyRule::kNone;
    if (outcome.reply && !silent) {
        line_.claim(line_.arrivals().back());
    }
    attribute();
    if (outcome.reply && send.maxTime) {
        judgeTime(outcome.roundTrip, *send.maxTime, attempt);
    }
    if (!outcome.reply && send.reply == ReplyRule::kRequired) {
        explainSilence(send, timeout, outcome.corrupt, attempt);
    }
    return silent ? std::nullopt : outcome.reply;
}

void StepRunner::explainSilence(const Send& send, Duration timeout, std::size_t corrupt, Attempt& attempt)
{
    const catalogue::Reply& usual = send.command->replies.front();
    constexpr std::size_t kShown = 8;
    std::vector<std::string> strange;
    std::size_t count = 0;
    for (const auto& arrival : line_.arrivals()) {
        const Frame& frame = arrival.event.frame;
        // Neither an answer to a command nor a frame that comes by itself.
        const auto& decoded = arrival.meaning.decoded;
        const bool byItself = decoded.notice != nullptr || isLater(*send.command, frame) ||
                              (decoded.command != nullptr && isLater(*decoded.command, frame));
        if (!arrival.claimed && arrival.afterSending && !byItself) {
            if (count++ < kShown) {
                strange.push_back(formatMasked(surroundings_.groups, frame));
            }
        }
    }
    const std::string expected =
        fmt::format("expected the reply of {} within {}, got", catalogue::fullKey(surroundings_.groups, *send.command),
                    secondsText(timeout));
    if (corrupt > 0) {
        fail(attempt, Verdict::kError,
             fmt::format("{} {} with a wrong checksum", expected, protocol::plural(corrupt, "frame")));
    } else if (!strange.empty()) {
        fail(
            attempt, Verdict::kError,
            fmt::format("{} {}{}; the reply would be {:02X} {:02X}", expected, fmt::join(strange, ", "),
                        count > kShown ? fmt::format(" and {} more", count - kShown) : "", usual.cmdOne, usual.cmdTwo));
    } else {
        const std::string silentWhen(send.command->silentWhen);
        const bool unknownMode = !modeSeenOn_ && !isOfTestMode(*send.command);
        std::string cause = silentWhen.empty() ? "" : "; the unit is silent " + silentWhen;
        if (unknownMode) {
            cause += cause.empty() ? "; is auto-test mode on?" : ", or while auto-test mode is off";
        }
        fail(attempt, Verdict::kTimeout,
             fmt::format("{} none{}{}", expected, modeSeenOn_ ? " although auto-test mode is on" : "", cause));
    }
}

void StepRunner::listenBriefly()
{
    // Frames that came with the answer; later ones show in the steps that follow.
    constexpr int kMost = 16;
    for (int i = 0; i < kMost && connection_.receive(Connection::Clock::now()); ++i) {
    }
}

void StepRunner::forget(const record::Group::Try& closed)
{
    const auto last = std::find_if(senders_.rbegin(), senders_.rend(), [&closed](const Sender& sender) {
        return std::ranges::any_of(closed.steps, [&](const record::Step& step) { return &step == sender.step; });
    });
    senders_.erase(senders_.begin(), last.base());
}

void StepRunner::lookAtLine()
{
    try {
        listenBriefly();
        attribute();
    } catch (const std::exception&) {
        // The events of the line record the loss.
    }
    run_.line = connection_.quality();
}

void StepRunner::attribute()
{
    for (auto& arrival : line_.arrivals()) {
        if (!arrival.claimed && arrival.meaning.request) {
            line_.claim(arrival);
            attribute(arrival, *arrival.meaning.request);
        }
    }
}

void StepRunner::attribute(LineWatch::Arrival& arrival, const Attribution::Request& request)
{
    const auto sender = std::find_if(senders_.rbegin(), senders_.rend(),
                                     [&](const Sender& each) { return each.firstRequest <= request.number; });
    // While a unit starts, answers may come late and together.
    if (sender == senders_.rend() || sender->step->kind == "power") {
        return;
    }
    const bool running = sender == senders_.rbegin();
    const std::string frame = formatMasked(surroundings_.groups, arrival.event.frame);
    const std::string after = milliseconds(arrival.event.steady - request.at);
    if (request.due == Attribution::Due::kSilence) {
        fail(*sender->attempt, Verdict::kFail, fmt::format("expected silence, got {} after {}", frame, after));
    } else if (request.answered) {
        fail(*sender->attempt, Verdict::kError, fmt::format("expected one reply, got a second: {}", frame));
    } else if (running) {
        return;  // the answer to a command that was sent again
    } else {
        fail(*sender->attempt, Verdict::kPass, fmt::format("the reply came too late, after {}", after));
    }
    if (sender->step != current_) {
        observer_.onStepAmended(sender->place, *sender->step);
    }
}

void StepRunner::judgeFrame(const Frame& frame, const catalogue::Command* asked, const std::vector<Expected>& expected,
                            const std::vector<StoredField>& store, Attempt& attempt)
{
    const auto decoded = catalogue::decodeFromUnit(surroundings_.groups, frame, asked);
    lookForMode(decoded);
    if (asked != nullptr && isSerialCommand(*asked, "") && !decoded.fields.empty()) {
        serial_.tell(written(decoded.fields.front()));
    }
    auto judgement = judge(expected, decoded.fields, variables_);
    std::ranges::move(judgement.measurements, std::back_inserter(attempt.measurements));
    if (!judgement.misses.empty()) {
        fail(attempt, Verdict::kFail, judgement.reason());
    }
    if (const std::string wrong = misshape(decoded); !wrong.empty()) {
        fail(attempt, Verdict::kError,
             fmt::format("{} does not fit the catalogue: {}", formatMasked(surroundings_.groups, frame), wrong));
    }
    for (const StoredField& each : store) {
        const auto field = std::ranges::find_if(
            decoded.fields, [&](const auto& candidate) { return candidate.field->name == each.field; });
        // The unit answers for a missing record without a byte.
        const std::string value = field == decoded.fields.end() ? std::string() : written(*field);
        this->store(each.variable, value, each.keep);
        if (each.variable == kSerialVariable) {
            serial_.tell(value);
        }
    }
}

void StepRunner::store(const std::string& variable, const std::string& value, Keep keep)
{
    const auto [at, isNew] = variables_.try_emplace(variable, value);
    if (!isNew && keep == Keep::kAll) {
        at->second += ", " + value;
    } else if (keep == Keep::kLast) {
        at->second = value;
    }
}

bool StepRunner::isOfTestMode(const catalogue::Command& command) const
{
    const std::string key = catalogue::fullKey(surroundings_.groups, command);
    return key == "test.set-mode" || key == "test.mode";
}

bool StepRunner::isSerialCommand(const catalogue::Command& command, const char* prefix) const
{
    return catalogue::fullKey(surroundings_.groups, command) ==
           "identity." + (prefix + surroundings_.serialRecord.name);
}

void StepRunner::lookForMode(const catalogue::Decoded& decoded)
{
    const auto mode = std::ranges::find_if(
        decoded.fields, [](const catalogue::DecodedField& field) { return field.field->name == "mode"; });
    if (decoded.command != nullptr && isOfTestMode(*decoded.command) && mode != decoded.fields.end()) {
        modeSeenOn_ = mode->choice() == "on";
    }
}

bool StepRunner::unitRestarted()
{
    constexpr int kManyTimeouts = 3;
    constexpr Duration kPatience = std::chrono::seconds(1);
    const bool due = timeouts_ >= kManyTimeouts || run_.line.reconnects > reconnectsSeen_;
    if (!due || !modeSeenOn_) {
        return false;
    }
    timeouts_ = 0;
    reconnectsSeen_ = run_.line.reconnects;
    const auto* const command = catalogue::findCommand(surroundings_.groups, "test.mode");
    if (command == nullptr) {
        return false;
    }
    line_.attribution().expect(Attribution::Due::kReply);
    try {
        const auto outcome = connection_.request(
            {command->cmdOne, command->cmdTwo, {}}, [this](const Frame&) { return line_.latestAnswers(); }, kPatience,
            true);
        if (outcome.reply) {
            line_.claim(line_.arrivals().back());
            lookForMode(catalogue::decodeFromUnit(surroundings_.groups, *outcome.reply, command));
        }
    } catch (const std::exception&) {
        // The next step meets the same line, or the user's request to end, and reports it.
    }
    line_.attribution().settle();
    run_.line = connection_.quality();
    return !modeSeenOn_;
}

std::optional<Frame> StepRunner::awaitFrame(const std::function<bool(const Frame&)>& wanted, Duration timeout)
{
    const auto deadline = Connection::Clock::now() + timeout;
    std::size_t looked = 0;
    for (bool last = false;;) {
        auto& arrivals = line_.arrivals();
        for (auto at = std::ranges::lower_bound(arrivals, looked, {}, &LineWatch::Arrival::number);
             at != arrivals.end(); ++at) {
            if (!at->claimed && wanted(at->event.frame)) {
                line_.claim(*at);
                return at->event.frame;
            }
        }
        looked = line_.position();
        // The time decides for a unit that never falls silent.
        if (std::exchange(last, Connection::Clock::now() >= deadline) || !connection_.receive(deadline)) {
            return std::nullopt;
        }
    }
}

void StepRunner::run(const Wait& wait, const Step& step, Attempt& attempt)
{
    const auto wanted = [&](const Frame& frame) {
        return wait.notice != nullptr ? wait.notice->cmdOne == frame.cmdOne && wait.notice->cmdTwo == frame.cmdTwo
                                      : isLater(*wait.command, frame);
    };
    const std::size_t losses = connection_.quality().losses;
    const auto frame = awaitFrame(wanted, step.timeout);
    attribute();
    if (!frame && connection_.quality().losses > losses) {
        fail(attempt, Verdict::kError, fmt::format("expected {}, but the line was lost meanwhile", wait.key));
        return;
    }
    if (!frame) {
        fail(attempt, Verdict::kTimeout,
             fmt::format("expected {} within {}, got none", wait.key, secondsText(step.timeout)));
        return;
    }
    judgeFrame(*frame, wait.command, wait.expect, wait.store, attempt);
}

void StepRunner::run(const Prompt& prompt, const Step& step, Attempt& attempt)
{
    const auto mistyped = [&](const std::string& typed) { return station::plan::mistyped(prompt, typed, variables_); };
    const auto answer =
        surroundings_.prompter.ask({run_.unit.port, prompt, step.timeout, mistyped}, control_.interrupt());
    if (!answer) {
        fail(attempt, Verdict::kTimeout,
             fmt::format("expected the operator's answer within {}, got none", secondsText(step.timeout)));
        return;
    }
    if (const std::string wrong = prompt.mask.empty() ? "" : mistyped(*answer); !wrong.empty()) {
        fail(attempt, Verdict::kError, fmt::format("{}: {}", prompt.id, wrong));
        return;
    }
    auto judgement = judge(prompt, *answer, variables_);
    attempt.measurements = std::move(judgement.measurements);
    if (!judgement.misses.empty()) {
        fail(attempt, Verdict::kFail, judgement.reason());
        return;
    }
    if (prompt.store) {
        store(*prompt.store, *answer, prompt.keep);
        if (*prompt.store == kSerialVariable) {
            serial_.give(*answer);
        }
    }
}

void StepRunner::run(const Pause&, const Step& step, Attempt&)
{
    if (unitOff_) {
        pauseAsideOfLine(step.timeout);
        return;
    }
    awaitFrame([](const Frame&) { return false; }, step.timeout);
    attribute();
}

void StepRunner::run(const HeadUnitAction& action, const Step&, Attempt&)
{
    if (action.raisesEvent) {
        surroundings_.headUnit.raise(action.target, action.json);
    } else {
        surroundings_.headUnit.set(action.target, action.json);
    }
}

}  // namespace station::plan
