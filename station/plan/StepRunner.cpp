#include "station/plan/StepRunner.h"

#include <algorithm>
#include <utility>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/Hex.h"
#include "station/plan/Judge.h"
#include "station/plan/Literal.h"

namespace station::plan {

namespace catalogue = protocol::catalogue;
using protocol::Frame;
using record::Attempt;
using record::Verdict;

namespace {

/// How many commands back an answer is still recognised as theirs.
constexpr std::size_t kRemembered = 16;

std::string secondsText(Duration time)
{
    return numberText(std::chrono::duration<double>(time).count()) + " s";
}

std::string milliseconds(Duration time)
{
    return std::to_string(std::chrono::round<std::chrono::milliseconds>(time).count()) + " ms";
}

void fail(Attempt& attempt, Verdict verdict, std::string reason)
{
    attempt.verdict = record::worse(attempt.verdict, verdict);
    attempt.reason += (attempt.reason.empty() ? "" : "; ") + std::move(reason);
}

bool isLater(const catalogue::Command& command, const Frame& frame)
{
    return std::ranges::any_of(command.later, [&](const catalogue::Reply& reply) {
        return reply.cmdOne == frame.cmdOne && reply.cmdTwo == frame.cmdTwo;
    });
}

/// What of a frame does not fit the catalogue although every field that it holds does, or nothing.
std::string misshape(const catalogue::Decoded& decoded)
{
    std::string text;
    for (const std::string& problem : decoded.problems) {
        const bool ofField = std::ranges::any_of(decoded.fields, [&](const catalogue::DecodedField& field) {
            return !field.problem.empty() && problem.ends_with(field.problem);
        });
        if (!ofField) {
            text += (text.empty() ? "" : "; ") + problem;
        }
    }
    return text;
}

}  // namespace

StepRunner::StepRunner(Connection& connection, LineRecord& line, const Surroundings& surroundings, RunControl& control,
                       record::Run& run, Observer& observer)
    : connection_(connection)
    , line_(line)
    , surroundings_(surroundings)
    , control_(control)
    , run_(run)
    , observer_(observer)
{
}

void StepRunner::attempt(const Step& step, const AttemptPlace& place)
{
    place_ = place;
    Attempt attempt;
    attempt.started = std::chrono::system_clock::now();
    const auto began = std::chrono::steady_clock::now();
    const std::size_t position = line_.position();
    try {
        std::visit([&](const auto& action) { run(action, step, attempt); }, step.action);
    } catch (const Interrupted&) {
        interrupted_ = true;
        if (limit_ != nullptr && limit_->over() && !control_.teardownRefused()) {
            fail(attempt, Verdict::kTimeout, "the teardown's time was over");
        } else {
            fail(attempt, Verdict::kAborted, "ended by the user");
        }
    } catch (const LinkError& error) {
        linkFailed_ = true;
        fail(attempt, Verdict::kError, error.what());
    } catch (const std::exception& error) {
        fail(attempt, Verdict::kError, error.what());
    }
    attempt.duration = std::chrono::steady_clock::now() - began;
    attempt.frames = line_.since(position);
    attempt.wireTime = wireTime(attempt.frames, run_.unit.baud);
    run_.phases[place.phase].groups[place.group].tries[place.round].steps[place.step].attempts.push_back(
        std::move(attempt));
}

void StepRunner::run(const Send& send, const Step& step, Attempt& attempt)
{
    std::vector<catalogue::Argument> arguments;
    for (const auto& [name, value] : send.with) {
        arguments.emplace_back(name, substitute(value, variables_));
    }
    const Frame frame = catalogue::encode(*send.command, arguments);
    line_.forget();

    const bool silent = send.reply == ReplyRule::kNone;
    const bool answered = !send.command->replies.empty();
    if (!answered && !silent) {
        connection_.send(frame);
        takeStrays();
    } else if (const auto reply = exchange(send, frame, step.timeout, attempt)) {
        if (silent) {
            fail(attempt, Verdict::kFail, "answered by " + describe(*reply) + ", expected silence");
        } else {
            judgeFrame(*reply, send.command, send.expect, send.later ? std::vector<Store>() : send.store, attempt);
            refuseSecondAnswer(send, attempt);
        }
    }
    if (send.later && attempt.verdict == Verdict::kPass) {
        const auto later = awaitFrame([&](const Frame& each) { return isLater(*send.command, each); }, step.timeout);
        if (later) {
            judgeFrame(*later, send.command, send.expectLater, send.store, attempt);
        } else {
            fail(attempt, Verdict::kTimeout, "what is to come later did not come within " + secondsText(step.timeout));
        }
    }
}

std::optional<Frame> StepRunner::exchange(const Send& send, const Frame& frame, Duration timeout, Attempt& attempt)
{
    const catalogue::Command& command = *send.command;
    const auto answers = [&](const Frame& received) {
        return command.replies.empty() ? catalogue::answersUnknown(frame, received)
                                       : catalogue::answers(command, received);
    };
    const auto sent = std::chrono::steady_clock::now();
    const auto outcome = connection_.request(frame, answers, timeout, command.repeatable);
    if (outcome.reply) {
        const auto found = std::ranges::find_if(line_.arrivals(), [&](const auto& arrival) {
            return arrival.afterSending && arrival.event.frame == *outcome.reply;
        });
        if (found != line_.arrivals().end()) {
            found->claimed = true;
        }
    }
    takeStrays();
    asked_.push_back({&command, frame, send.reply, place_, sent, outcome.reply.has_value()});
    if (asked_.size() > kRemembered) {
        asked_.pop_front();
    }
    if (!outcome.reply && send.reply == ReplyRule::kRequired) {
        explainSilence(send, timeout, outcome.corrupt, attempt);
    }
    return outcome.reply;
}

void StepRunner::explainSilence(const Send& send, Duration timeout, std::size_t corrupt, Attempt& attempt)
{
    const catalogue::Reply& usual = send.command->replies.front();
    std::string strange;
    for (const auto& arrival : line_.arrivals()) {
        const Frame& frame = arrival.event.frame;
        // What answers nothing that was asked, and is nothing that comes by itself.
        const auto decoded = catalogue::decodeFromUnit(surroundings_.groups, frame);
        const bool byItself = decoded.notice != nullptr || isLater(*send.command, frame) ||
                              (decoded.command != nullptr && isLater(*decoded.command, frame));
        if (!arrival.claimed && arrival.afterSending && !byItself) {
            strange += (strange.empty() ? "" : ", ") + station::format(frame);
        }
    }
    const std::string within = "no answer within " + secondsText(timeout);
    if (corrupt > 0) {
        fail(attempt, Verdict::kError,
             within + ", but " + std::to_string(corrupt) +
                 (corrupt == 1 ? " frame with a wrong checksum" : " frames with a wrong checksum"));
    } else if (!strange.empty()) {
        const std::string code = station::format(Frame{usual.cmdOne, usual.cmdTwo, {}}).substr(0, 5);
        fail(attempt, Verdict::kError, within + " under " + code + "; what came instead: " + strange);
    } else {
        std::string causes =
            send.command->silentWhen.empty() ? "" : ": the unit is silent " + std::string(send.command->silentWhen);
        if (!modeSeenOn_ && !isOfTestMode(*send.command)) {
            causes += causes.empty() ? ": is auto-test mode on?" : ", or when auto-test mode is off";
        }
        fail(attempt, Verdict::kTimeout, within + causes);
    }
}

void StepRunner::refuseSecondAnswer(const Send& send, Attempt& attempt)
{
    // What came with the answer; more of it shows in the steps behind.
    constexpr int kMost = 16;
    for (int i = 0; i < kMost && connection_.receive(Connection::Clock::now()); ++i) {
    }
    for (auto& arrival : line_.arrivals()) {
        if (arrival.claimed || !arrival.afterSending || !catalogue::answers(*send.command, arrival.event.frame)) {
            continue;
        }
        arrival.claimed = true;
        // After a try without an answer, two answers are one each.
        const auto late = std::ranges::find_if(
            asked_, [&](const Asked& asked) { return asked.command == send.command && asked.awaited(); });
        if (late != asked_.end()) {
            late->answered = true;
            continue;
        }
        fail(attempt, Verdict::kError, "answered twice, the second time by " + describe(arrival.event.frame));
    }
}

void StepRunner::takeStrays()
{
    for (auto& arrival : line_.arrivals()) {
        if (arrival.claimed) {
            continue;
        }
        const Frame& frame = arrival.event.frame;
        // The latest, unless it has its answer and one before it still lacks its own.
        const auto isOf = [&](const Asked& each) { return answersOne(each, frame); };
        auto asked = std::find_if(asked_.rbegin(), asked_.rend(), isOf);
        if (asked == asked_.rend()) {
            continue;
        }
        if (asked->answered) {
            const auto lacking =
                std::find_if(asked, asked_.rend(), [&](const Asked& each) { return isOf(each) && each.awaited(); });
            asked = lacking == asked_.rend() ? asked : lacking;
        }
        arrival.claimed = true;
        const std::string after = milliseconds(arrival.event.steady - asked->at);
        if (asked->reply == ReplyRule::kNone) {
            amend(*asked, Verdict::kFail, "answered by " + describe(frame) + " after " + after + ", expected silence");
        } else if (asked->answered) {
            amend(*asked, Verdict::kError, "answered twice, the second time by " + describe(frame));
        } else {
            amend(*asked, Verdict::kPass, "the answer came too late, after " + after);
        }
        asked->answered = true;
    }
}

bool StepRunner::answersOne(const Asked& asked, const Frame& frame) const
{
    if (!asked.command->replies.empty()) {
        return catalogue::answers(*asked.command, frame);
    }
    // It should have none. What comes by itself under the same code breaks no silence once that is over.
    return catalogue::answersUnknown(asked.frame, frame) && !isLater(*asked.command, frame) &&
           catalogue::decodeFromUnit(surroundings_.groups, frame).notice == nullptr;
}

void StepRunner::amend(const Asked& asked, Verdict verdict, const std::string& reason)
{
    record::Phase& phase = run_.phases[asked.place.phase];
    record::Group& group = phase.groups[asked.place.group];
    record::Group::Try& round = group.tries[asked.place.round];
    record::Step& step = round.steps[asked.place.step];
    if (asked.place.attempt >= step.attempts.size()) {
        return;  // it is the attempt that runs
    }
    Attempt& attempt = step.attempts[asked.place.attempt];
    const bool passed = attempt.verdict == Verdict::kPass;
    fail(attempt, verdict, reason);
    if (&attempt == &step.attempts.back()) {
        step.reason = attempt.reason;
    }
    if (passed && verdict != Verdict::kPass) {
        step.reason = attempt.reason;
        step.verdict = record::worse(step.verdict, verdict);
        round.verdict = record::worse(round.verdict, verdict);
    }
    if (passed && verdict != Verdict::kPass && !round.superseded) {
        group.verdict = record::worse(group.verdict, verdict);
        phase.verdict = record::worse(phase.verdict, verdict);
    }
    observer_.onStepAmended(asked.place.told, step);
}

void StepRunner::judgeFrame(const Frame& frame, const catalogue::Command* asked, const std::vector<Expected>& expected,
                            const std::vector<Store>& store, Attempt& attempt)
{
    const auto decoded = catalogue::decodeFromUnit(surroundings_.groups, frame, asked);
    lookForMode(decoded);
    auto judgement = judge(expected, decoded.fields, variables_);
    std::ranges::move(judgement.measurements, std::back_inserter(attempt.measurements));
    if (!judgement.misses.empty()) {
        fail(attempt, Verdict::kFail, judgement.reason());
    }
    if (const std::string wrong = misshape(decoded); !wrong.empty()) {
        fail(attempt, Verdict::kError, station::format(frame) + " does not fit the catalogue: " + wrong);
    }
    for (const Store& each : store) {
        const auto field = std::ranges::find_if(
            decoded.fields, [&](const auto& candidate) { return candidate.field->name == each.field; });
        // A record that does not exist is answered without a byte.
        variables_[each.variable] = field == decoded.fields.end() ? std::string() : written(*field);
    }
}

bool StepRunner::isOfTestMode(const catalogue::Command& command) const
{
    const std::string key = catalogue::fullKey(surroundings_.groups, command);
    return key == "test.set-mode" || key == "test.mode";
}

void StepRunner::lookForMode(const catalogue::Decoded& decoded)
{
    const auto mode = std::ranges::find_if(
        decoded.fields, [](const catalogue::DecodedField& field) { return field.field->name == "mode"; });
    if (decoded.command != nullptr && isOfTestMode(*decoded.command) && mode != decoded.fields.end()) {
        modeSeenOn_ = mode->choice() == "on";
    }
}

std::optional<Frame> StepRunner::awaitFrame(const std::function<bool(const Frame&)>& wanted, Duration timeout)
{
    const auto deadline = Connection::Clock::now() + timeout;
    for (bool last = false;;) {
        for (auto& arrival : line_.arrivals()) {
            if (!arrival.claimed && wanted(arrival.event.frame)) {
                arrival.claimed = true;
                return arrival.event.frame;
            }
        }
        // A unit that never falls silent has always another frame: then the time decides.
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
    const auto frame = awaitFrame(wanted, step.timeout);
    takeStrays();
    if (!frame) {
        fail(attempt, Verdict::kTimeout, "no " + wait.key + " came within " + secondsText(step.timeout));
        return;
    }
    judgeFrame(*frame, wait.command, wait.expect, wait.store, attempt);
}

void StepRunner::run(const Prompt& prompt, const Step& step, Attempt& attempt)
{
    const auto answer = surroundings_.prompter.ask({run_.unit.port, prompt, step.timeout}, control_.interrupt());
    if (!answer) {
        fail(attempt, Verdict::kTimeout, "the operator did not answer within " + secondsText(step.timeout));
        return;
    }
    auto judgement = judge(prompt, *answer, variables_);
    attempt.measurements = std::move(judgement.measurements);
    if (!judgement.misses.empty()) {
        fail(attempt, Verdict::kFail, judgement.reason());
    }
    if (prompt.store) {
        variables_[*prompt.store] = *answer;
    }
}

void StepRunner::run(const HeadUnitAction& action, const Step&, Attempt&)
{
    if (action.raisesEvent) {
        surroundings_.headUnit.raise(action.target, action.json);
    } else {
        surroundings_.headUnit.set(action.target, action.json);
    }
}

std::string StepRunner::describe(const Frame& frame) const
{
    return station::format(frame);
}

}  // namespace station::plan
