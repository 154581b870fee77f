#include "programs/station/plan/Operator.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "protocol/Errors.h"
#include "protocol/Text.h"

namespace programs::station_tool {

using station::plan::Prompt;
using station::plan::Question;

namespace {

constexpr auto kLong = std::chrono::hours(24);
constexpr std::size_t kLongestLine = 4096;

class Aside
{
public:
    explicit Aside(const std::function<void(bool)>& tell) : tell_(tell) { tell_(true); }
    ~Aside() { tell_(false); }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;

private:
    const std::function<void(bool)>& tell_;
};

}  // namespace

/// Queues for the terminal, and leaves it at the end.
class Operator::Turn
{
public:
    Turn(Operator& all, Port& port) : all_(all), port_(port)
    {
        const std::lock_guard lock(all_.mutex_);
        port_.waiting = true;
        all_.passTurnLocked();
    }

    ~Turn()
    {
        const std::lock_guard lock(all_.mutex_);
        port_.waiting = false;
        port_.asked = true;
        if (all_.shown_ == &port_) {
            all_.shown_ = nullptr;
            port_.turn.clear();
        }
        all_.passTurnLocked();
    }

    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    /// Returns when the terminal is this port's. Throws Interrupted.
    void await(const station::Interrupt& interrupt) const
    {
        std::array<pollfd, 2> wanted{{{port_.turn.descriptor(), POLLIN, 0}, {interrupt.descriptor(), POLLIN, 0}}};
        while (!port_.turn.requested() && !interrupt.requested()) {
            poll(wanted.data(), wanted.size(), -1);
        }
        if (interrupt.requested()) {
            throw station::Interrupted();
        }
    }

private:
    Operator& all_;
    Port& port_;
};

Operator::Operator(const station::plan::Answers& answers, const std::vector<std::string>& ports,
                   std::function<void(bool)> aside)
    : answers_(answers), labelled_(ports.size() > 1), aside_(std::move(aside))
{
    for (const std::string& port : ports) {
        ports_.emplace_back(port);
    }
}

Operator::Port& Operator::portOf(const std::string& name)
{
    return *std::ranges::find(ports_, name, &Port::name);
}

void Operator::reached(const std::string& port, const station::plan::Progress& progress)
{
    const std::lock_guard lock(mutex_);
    Port& at = portOf(port);
    // A group that is tried again does not delay the others.
    if (progress.step > at.progress.step) {
        at.progress = progress;
        at.asked = false;
        passTurnLocked();
    }
}

void Operator::ended(const std::string& port)
{
    const std::lock_guard lock(mutex_);
    portOf(port).ended = true;
    passTurnLocked();
}

/// @returns whether a question of the later port waits for the earlier one.
bool Operator::goesFirst(const Port& earlier, const Port& later)
{
    if (earlier.ended || (later.progress.inTeardown && !earlier.progress.inTeardown)) {
        return false;
    }
    return earlier.progress.step < later.progress.step ||
           (earlier.progress.step == later.progress.step && !earlier.asked);
}

/// Gives a free terminal to the port that waits for it at the earliest step.
void Operator::passTurnLocked()
{
    if (shown_ != nullptr) {
        return;
    }
    Port* next = nullptr;
    for (auto at = ports_.begin(); at != ports_.end(); ++at) {
        const bool waits =
            std::any_of(ports_.begin(), at, [&](const Port& earlier) { return goesFirst(earlier, *at); });
        if (at->waiting && !waits && (next == nullptr || at->progress.step < next->progress.step)) {
            next = &*at;
        }
    }
    if (next != nullptr) {
        shown_ = next;
        next->waiting = false;
        next->turn.request();
    }
}

std::optional<std::string> Operator::ask(const Question& question, station::Interrupt& interrupt)
{
    if (interrupt.requested()) {
        throw station::Interrupted();
    }
    if (auto answer = answers_.find(question.port, question.prompt.id)) {
        if (const std::string port = takenBy(question, *answer); !port.empty()) {
            throw protocol::UserError(fmt::format(
                "{}: expected another answer for each unit, got {} for {} and {}: give each port a table of "
                "its own, [\"PORT\"], in the file of answers",
                question.prompt.id, question.prompt.secret ? "***" : protocol::inQuotes(*answer), port, question.port));
        }
        return answer;
    }
    if (isatty(STDIN_FILENO) != 1) {
        throw protocol::UserError(fmt::format(
            "{}: expected the operator's answer, but there is no terminal to ask at: give a file of answers "
            "with --answers",
            question.prompt.id));
    }
    const Turn turn(*this, portOf(question.port));
    turn.await(interrupt);
    const auto deadline =
        Clock::now() + (question.timeout.count() > 0 ? question.timeout : station::plan::Duration(kLong));
    return askAtTerminal(question, interrupt, deadline);
}

std::optional<std::string> Operator::askAtTerminal(const Question& question, station::Interrupt& interrupt,
                                                   Clock::time_point deadline)
{
    const Aside aside(aside_);
    const std::string hint =
        question.prompt.kind == Prompt::Kind::kYesNo ? " [y/n] "
        : question.prompt.choices.empty()
            ? " "
            : fmt::format(" [{}] ", protocol::printable(fmt::format("{}", fmt::join(question.prompt.choices, "/"))));
    const std::string label = labelled_ ? fmt::format("[{}] ", protocol::printable(question.port)) : "";
    for (;;) {
        // Keys that were pressed before the question do not answer it.
        tcflush(STDIN_FILENO, TCIFLUSH);
        typed_.clear();
        if (!question.prompt.image.empty()) {
            std::fprintf(stderr, "%spicture: %s\n", label.c_str(), protocol::printable(question.prompt.image).c_str());
        }
        std::fprintf(stderr, "%s%s%s", label.c_str(), protocol::printable(question.prompt.text).c_str(), hint.c_str());
        std::fflush(stderr);
        const auto line = readLine(interrupt, deadline);
        if (!line) {
            std::fputs("\n", stderr);
            return std::nullopt;
        }
        const auto answer = station::plan::parseAnswer(question.prompt, *line);
        std::string complaint;
        if (!answer) {
            complaint = fmt::format("expected {}, got {}", describe(question.prompt),
                                    question.prompt.secret ? "another answer" : protocol::inQuotes(*line));
        } else if (question.mistyped) {
            complaint = question.mistyped(*answer);
        }
        if (complaint.empty()) {
            const std::string port = takenBy(question, *answer);
            if (port.empty()) {
                return answer;
            }
            complaint = fmt::format("expected another answer for each unit, got the answer for {} again", port);
        }
        std::fprintf(stderr, "%s\n", protocol::printable(complaint).c_str());
    }
}

/// Takes the answer for this unit.
/// @returns the port of the unit that has taken a unique answer before; empty if there is none.
std::string Operator::takenBy(const Question& question, const std::string& answer)
{
    if (!question.prompt.unique) {
        return {};
    }
    const std::lock_guard lock(mutex_);
    const auto [place, isNew] = given_.try_emplace({question.prompt.id, answer}, question.port);
    return isNew || place->second == question.port ? std::string() : place->second;
}

std::optional<std::string> Operator::readLine(station::Interrupt& interrupt, Clock::time_point deadline)
{
    for (;;) {
        if (const auto end = typed_.find('\n'); end != std::string::npos) {
            std::string line = typed_.substr(0, end);
            typed_.erase(0, end + 1);
            return line;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return std::nullopt;
        }
        std::array<pollfd, 2> wanted{{{STDIN_FILENO, POLLIN, 0}, {interrupt.descriptor(), POLLIN, 0}}};
        poll(wanted.data(), wanted.size(), static_cast<int>(std::min<std::int64_t>(left, 3'600'000)));
        if (interrupt.requested()) {
            std::fputs("\n", stderr);
            throw station::Interrupted();
        }
        if ((wanted[0].revents & (POLLIN | POLLHUP | POLLERR)) == 0) {
            continue;
        }
        std::array<char, 512> chunk;
        const ssize_t count = read(STDIN_FILENO, chunk.data(), chunk.size());
        if (count <= 0 || typed_.size() > kLongestLine) {
            throw protocol::UserError("expected the operator's answer, got the end of the input");
        }
        typed_.append(chunk.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace programs::station_tool
