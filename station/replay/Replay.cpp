#include "station/replay/Replay.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <utility>

#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/monitor/EventFilter.h"
#include "station/trace/Attribution.h"
#include "station/trace/Secrets.h"

namespace station {

namespace {

namespace catalogue = protocol::catalogue;
using Clock = Connection::Clock;
using protocol::Frame;
using protocol::UserError;
using Kind = TraceEvent::Kind;
using Result = Replayed::Result;

/// A longer pause is a mistake in the capture's times, or a night between two tests.
constexpr auto kLongestPause = std::chrono::hours(1);

/// A later reply passes through the HMI, and a capture without times does not tell how long that took.
constexpr int kTimeoutsOfALaterReply = 10;

/// @returns whether the secret of a command is masked, so that the command itself is lost.
bool isMasked(catalogue::Groups groups, const Frame& frame)
{
    Frame masked = frame;
    return catalogue::maskSecrets(groups, masked) && masked == frame && !frame.params.empty();
}

Attribution::Due dueOf(const Request& request)
{
    // For a command without replies in the catalogue, a frame under its own code counts as one.
    const bool replies = request.command != nullptr && !request.command->replies.empty();
    return replies ? Attribution::Due::kReply : Attribution::Due::kSilence;
}

std::string fieldKey(catalogue::Groups groups, const catalogue::Command& command, const catalogue::DecodedField& field)
{
    return fmt::format("{}.{}", fullKey(groups, command), field.field->name);
}

/// The differences between the answers of then and now.
class Comparison
{
public:
    Comparison(catalogue::Groups groups, const std::set<std::string>& varying) : groups_(groups), varying_(varying) {}

    std::vector<std::string> operator()(const catalogue::Command* command, const Frame& expected,
                                        const Frame& got) const
    {
        const auto then = decodeFromUnit(groups_, expected, command);
        const auto now = decodeFromUnit(groups_, got, command);
        const bool sameKind = expected.cmdOne == got.cmdOne && expected.cmdTwo == got.cmdTwo && then.reply == now.reply;
        if (!sameKind) {
            return {fmt::format("expected {}, got {}", text(then, expected), text(now, got))};
        }
        std::vector<std::string> differences;
        for (std::size_t i = 0; i < std::max(then.fields.size(), now.fields.size()); ++i) {
            const auto* before = i < then.fields.size() ? &then.fields[i] : nullptr;
            const auto* after = i < now.fields.size() ? &now.fields[i] : nullptr;
            if (!same(command, before, after)) {
                differences.push_back(fmt::format("{}: expected {}, got {}", (before ? before : after)->field->name,
                                                  before ? format(*before) : "none", after ? format(*after) : "none"));
            }
        }
        if (then.rest != now.rest) {
            differences.push_back(fmt::format("expected [{}] behind the fields, got [{}]",
                                              catalogue::formatHexBytes(then.rest),
                                              catalogue::formatHexBytes(now.rest)));
        }
        return differences;
    }

    std::string text(const catalogue::Command* command, const Frame& frame) const
    {
        return text(decodeFromUnit(groups_, frame, command), frame);
    }

private:
    bool same(const catalogue::Command* command, const catalogue::DecodedField* before,
              const catalogue::DecodedField* after) const
    {
        if (before == nullptr || after == nullptr) {
            return false;
        }
        if (command != nullptr && varying_.contains(fieldKey(groups_, *command, *before))) {
            return after->problem.empty() || !before->problem.empty();
        }
        return format(*before) == format(*after);
    }

    std::string text(const catalogue::Decoded& decoded, const Frame& frame) const
    {
        return fmt::format("{} ({})", formatMasked(groups_, frame), catalogue::format(groups_, decoded, frame));
    }

    catalogue::Groups groups_;
    const std::set<std::string>& varying_;
};

/// Sends the commands and puts the frames of then and now to them.
class Replay : TraceSink
{
public:
    Replay(catalogue::Groups groups, const Recording& recording, const ReplayTerms& terms, Interrupt& interrupt,
           const std::function<void(const Replayed&)>& tell, ReplaySummary& summary)
        : groups_(groups)
        , compare_(groups, recording.varying)
        , terms_(terms)
        , tell_(tell)
        , ignore_(groups, terms.ignore)
        , then_(groups)
        , now_(groups)
        , summary_(summary)
        // A unit that has been away is not in the state that the capture expects.
        , connection_(terms.port, {.reconnect = {}, .trace = this, .interrupt = &interrupt})
    {
    }

    void run(CaptureReader& capture)
    {
        try {
            while (const auto piece = capture.next()) {
                if (!piece->event) {
                    continue;
                }
                const TraceEvent& event = *piece->event;
                if (event.kind == Kind::kSent && isMasked(groups_, event.frame)) {
                    summary_.maskedAt = summary_.sent + 1;
                    break;
                }
                if (event.kind == Kind::kSent) {
                    send(event, piece->timed);
                } else if (event.kind == Kind::kReceived) {
                    if (Open* const answered = put(then_, event, &Replayed::expected)) {
                        awaitAlso(*answered, event, piece->timed);
                    }
                }
            }
            awaitAnswers();
            if (!open_.empty() && open_.back().replayed.expected.empty()) {
                listen(open_.back().until);
            }
        } catch (const protocol::Error&) {
            close(1);
            throw;
        }
        close(0);
    }

private:
    struct Open {
        Replayed replayed;
        std::optional<std::chrono::system_clock::time_point> at;  ///< in the capture
        Clock::time_point sent;
        Clock::time_point until;
    };

    void on(const TraceEvent& event) override
    {
        if (event.aside) {
            return;
        }
        if (event.kind == Kind::kLost) {
            lost_ = event.text;
        }
        if (event.kind == Kind::kSent) {
            now_.on(event);
        } else if (event.kind == Kind::kReceived && put(now_, event, &Replayed::got) == nullptr) {
            ++summary_.notices;
        }
    }

    void send(const TraceEvent& event, bool timed)
    {
        Request request = requestOf(groups_, event.frame);
        check(request, {.yes = terms_.yes});
        awaitAnswers();
        if (timed && !terms_.fast && lastAt_) {
            listen(lastSent_ + std::clamp<Connection::Duration>(event.at - *lastAt_, {}, kLongestPause));
        }
        lastAt_ = timed ? std::optional(event.at) : std::nullopt;
        close(Attribution::kRemembered - 1);
        then_.expect(dueOf(request));
        now_.expect(dueOf(request));
        then_.on(event);
        const Frame frame = request.frame;
        const auto now = Clock::now();
        open_.push_back({{then_.requests(), std::move(request), {}, {}, {}, {}}, lastAt_, now, now + terms_.timeout});
        connection_.send(frame);
        throwIfLost();
        ++summary_.sent;
        lastSent_ = Clock::now();
        open_.back().sent = lastSent_;
        open_.back().until = lastSent_ + terms_.timeout;
    }

    /// Puts a frame of the unit to the command that it answers.
    /// @returns that command, or nullptr.
    Open* put(Attribution& line, const TraceEvent& event, std::vector<Frame> Replayed::*frames)
    {
        const auto meaning = line.on(event);
        const auto isAnswered = [&](const Open& each) {
            const auto* command = each.replayed.request.command;
            return meaning.request ? each.replayed.number == meaning.request->number
                                   : command != nullptr && isLater(*command, event.frame);
        };
        const auto found = std::find_if(open_.rbegin(), open_.rend(), isAnswered);
        // A unit that answers one command for ever must not fill the memory.
        constexpr std::size_t kMostAnswers = 64;
        if (found != open_.rend() && (found->replayed.*frames).size() < kMostAnswers) {
            (found->replayed.*frames).push_back(event.frame);
            catalogue::maskSecrets(groups_, (found->replayed.*frames).back());
        }
        return found == open_.rend() ? nullptr : &*found;
    }

    /// Gives the unit as much time for an answer as it took in the capture, and the time-out.
    void awaitAlso(Open& answered, const TraceEvent& event, bool timed) const
    {
        const auto* command = answered.replayed.request.command;
        Connection::Duration patience = terms_.timeout;
        if (timed && answered.at) {
            patience += std::clamp<Connection::Duration>(event.at - *answered.at, {}, kLongestPause);
        } else if (command != nullptr && isLater(*command, event.frame)) {
            patience *= kTimeoutsOfALaterReply;
        }
        answered.until = std::max(answered.until, answered.sent + patience);
    }

    /// Waits until each command has as many answers as the capture has for it so far, or its time is over.
    void awaitAnswers()
    {
        for (;;) {
            auto until = Clock::time_point::min();
            for (const Open& each : open_) {
                if (each.replayed.got.size() < each.replayed.expected.size()) {
                    until = std::max(until, each.until);
                }
            }
            if (until <= Clock::now()) {
                return;
            }
            connection_.receive(until);
            throwIfLost();
        }
    }

    void listen(Clock::time_point until)
    {
        // At least once: frames that have come are told.
        do {
            connection_.receive(until);
            throwIfLost();
        } while (Clock::now() < until);
    }

    void throwIfLost() const
    {
        if (lost_) {
            throw protocol::LineError(*lost_, protocol::kLineFailed);
        }
    }

    /// Compares and tells the oldest commands until at most `left` are open.
    void close(std::size_t left)
    {
        for (; open_.size() > left; open_.pop_front()) {
            Replayed& each = open_.front().replayed;
            judge(each, std::chrono::duration<double>(open_.front().until - open_.front().sent).count());
            ++summary_.results.at(static_cast<std::size_t>(each.result));
            catalogue::maskSecrets(groups_, each.request.frame);
            tell_(each);
        }
    }

    void judge(Replayed& each, double patienceSeconds) const
    {
        if (isIgnored(each)) {
            each.result = Result::kIgnored;
            return;
        }
        const auto* command = each.request.command;
        const std::size_t both = std::min(each.expected.size(), each.got.size());
        for (std::size_t i = 0; i < both; ++i) {
            for (std::string& difference : compare_(command, each.expected[i], each.got[i])) {
                each.differences.push_back(std::move(difference));
            }
        }
        each.result = each.differences.empty() ? Result::kSame : Result::kDiffers;
        for (std::size_t i = both; i < each.expected.size(); ++i) {
            each.differences.push_back(fmt::format("expected {} within {} s, got no answer",
                                                   compare_.text(command, each.expected[i]), patienceSeconds));
            each.result = each.result == Result::kSame ? Result::kMissing : each.result;
        }
        for (std::size_t i = both; i < each.got.size(); ++i) {
            each.differences.push_back(fmt::format("expected no {}answer, got {}", both > 0 ? "further " : "",
                                                   compare_.text(command, each.got[i])));
            each.result = each.result == Result::kSame ? Result::kUnexpected : each.result;
        }
    }

    bool isIgnored(const Replayed& each) const
    {
        // An empty filter passes everything.
        if (terms_.ignore.empty()) {
            return false;
        }
        const auto passes = [&](Kind kind, const Frame& frame, const catalogue::Decoded& decoded) {
            return ignore_.passes({kind, {}, {}, frame, {}}, decoded);
        };
        const auto answersPass = [&](const Frame& frame) {
            return passes(Kind::kReceived, frame, decodeFromUnit(groups_, frame, each.request.command));
        };
        return passes(Kind::kSent, each.request.frame, decodeRequest(groups_, each.request.frame)) ||
               std::ranges::any_of(each.expected, answersPass) || std::ranges::any_of(each.got, answersPass);
    }

    catalogue::Groups groups_;
    Comparison compare_;
    const ReplayTerms& terms_;
    const std::function<void(const Replayed&)>& tell_;
    EventFilter ignore_;
    Attribution then_;
    Attribution now_;
    std::deque<Open> open_;
    ReplaySummary& summary_;
    std::optional<std::chrono::system_clock::time_point> lastAt_;
    Clock::time_point lastSent_;
    std::optional<std::string> lost_;
    Connection connection_;
};

}  // namespace

const char* name(Replayed::Result result)
{
    constexpr std::array kNames{"same", "differs", "missing", "unexpected", "ignored"};
    return kNames.at(static_cast<std::size_t>(result));
}

protocol::ExitStatus ReplaySummary::status() const
{
    if (count(Result::kDiffers) + count(Result::kUnexpected) > 0) {
        return protocol::kFailed;
    }
    if (count(Result::kMissing) > 0) {
        return protocol::kNoAnswer;
    }
    return maskedAt ? protocol::kWrongUse : protocol::kPassed;
}

std::string Recording::noise() const
{
    return corrupt + incomplete + garbage == 0
               ? ""
               : fmt::format("{}, {} and {} outside frames", protocol::plural(corrupt, "corrupt frame"),
                             protocol::plural(incomplete, "incomplete frame"), protocol::plural(garbage, "byte"));
}

Recording survey(catalogue::Groups groups, CaptureReader& capture, const std::string& name, const ReplayTerms& terms)
{
    Recording recording;
    Attribution line(groups);
    // What each command has read since the last command that writes.
    std::map<const catalogue::Command*, std::pair<std::vector<std::uint8_t>, std::vector<std::string>>> seen;
    std::optional<std::chrono::system_clock::time_point> last;
    bool masked = false;
    while (const auto piece = capture.next()) {
        if (!piece->event) {
            const bool incomplete = piece->noise.kind == ScannedPiece::Kind::kIncomplete;
            recording.incomplete += incomplete ? 1 : 0;
            recording.garbage += incomplete ? 0 : piece->noise.bytes.size();
            continue;
        }
        const TraceEvent& event = *piece->event;
        recording.corrupt += event.kind == Kind::kCorrupt ? 1 : 0;
        if (event.kind == Kind::kSent) {
            masked = masked || isMasked(groups, event.frame);
            ++recording.commands;
            try {
                const Request request = requestOf(groups, event.frame);
                if (!masked) {
                    check(request, {.yes = terms.yes});
                }
                if (!masked && !terms.fast && piece->timed && last && event.at - *last > kLongestPause) {
                    throw UserError("expected a pause of at most an hour before it, got more: --fast leaves it out");
                }
                last = piece->timed ? std::optional(event.at) : std::nullopt;
                line.expect(dueOf(request));
                if (request.command == nullptr || request.command->access == catalogue::Access::kWrite) {
                    seen.clear();
                }
            } catch (const UserError& error) {
                throw UserError(fmt::format("{}: command {}: {}", name, recording.commands, error.what()));
            }
        }
        const auto meaning = line.on(event);
        const auto* command = meaning.request ? meaning.request->command : nullptr;
        if (command == nullptr || command->access == catalogue::Access::kWrite) {
            continue;
        }
        std::vector<std::string> texts;
        std::ranges::transform(meaning.decoded.fields, std::back_inserter(texts),
                               [](const catalogue::DecodedField& field) { return format(field); });
        auto& [params, before] = seen[command];
        if (params == meaning.request->frame.params) {
            for (std::size_t i = 0; i < std::min(before.size(), texts.size()); ++i) {
                if (before[i] != texts[i]) {
                    recording.varying.insert(fieldKey(groups, *command, meaning.decoded.fields[i]));
                }
            }
        }
        params = meaning.request->frame.params;
        before = std::move(texts);
    }
    if (recording.commands == 0) {
        throw UserError(fmt::format("{}: expected commands of a station, got none", name));
    }
    return recording;
}

void replay(catalogue::Groups groups, CaptureReader& capture, const Recording& recording, const ReplayTerms& terms,
            Interrupt& interrupt, const std::function<void(const Replayed&)>& tell, ReplaySummary& summary)
{
    summary = {};
    Replay(groups, recording, terms, interrupt, tell, summary).run(capture);
}

}  // namespace station
