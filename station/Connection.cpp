#include "station/Connection.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "protocol/FrameAssembler.h"
#include "station/FrameScanner.h"
#include "station/SerialLink.h"
#include "station/ports/SerialPorts.h"

namespace station {

namespace {

using protocol::Bytes;
using protocol::Frame;
using protocol::LineError;
using protocol::ReceivedFrame;
using Clock = Connection::Clock;
using Duration = Connection::Duration;

/// How often a call looks for a device that has gone. The device's directory may go and come with it, and its access
/// rights may follow a moment after it appears; looking again sees all of that.
constexpr auto kLookAgain = std::chrono::milliseconds(20);

/// How long a line may refuse to take a byte, beyond the time in which the bytes leave it.
constexpr auto kStalled = std::chrono::seconds(2);

/// A year: far from the end of the clock.
constexpr Duration kLongest = std::chrono::hours(24 * 365);

/// Start bit, 8 data bits, stop bit.
constexpr std::size_t kBitsPerByte = 10;

Duration wireTime(std::size_t bytes, unsigned baud)
{
    return std::chrono::nanoseconds(std::chrono::seconds(bytes * kBitsPerByte)) / baud;
}

/// @returns `time` as a user writes it: "10 s", "250 ms".
std::string durationText(Duration time)
{
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    return ms % 1000 == 0 ? fmt::format("{} s", ms / 1000) : fmt::format("{} ms", ms);
}

/// @returns what to do about a port that cannot be opened.
std::string remedyFor(const std::string& path, const std::error_code& error)
{
    if (error != std::errc::no_such_file_or_directory) {
        return "";
    }
    return path == defaultPort() ? "; is a bench running? Start it with scripts/run, or give --port"
                                 : "; 'engineering-station ports' lists the ports of this machine";
}

/// Gives a variable a value while this object lives.
template <class T>
class Meanwhile
{
public:
    Meanwhile(T& variable, T value) : variable_(variable), before_(std::exchange(variable, value)) {}
    ~Meanwhile() { variable_ = before_; }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;

private:
    T& variable_;
    T before_;
};

Connection::MakeGuard& guardMaker()
{
    static Connection::MakeGuard make;
    return make;
}

std::vector<std::uint8_t> encode(const Frame& command)
{
    protocol::StationFrameBuffer buffer;
    const std::size_t length = protocol::encode(buffer, command.cmdOne, command.cmdTwo, command.params);
    if (length == 0) {
        throw std::length_error(fmt::format("expected at most {} parameter bytes in a frame, got {}",
                                            protocol::kMaxStationParams, command.params.size()));
    }
    return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)};
}

}  // namespace

struct Connection::State {
    State(PortSpec portSpec, Options given)
        : port(std::move(portSpec))
        , options(given)
        , link(std::in_place, openLink())
        , guard(guardMaker() ? guardMaker()() : nullptr)
    {
    }

    PortSpec port;
    Options options;
    std::optional<SerialLink> link;  // nothing while the device is away
    /// When to give up on a device that went; nothing once a call has done its work since.
    std::optional<Clock::time_point> giveUpAt;
    static constexpr auto kAnyLosses = std::numeric_limits<std::size_t>::max();

    std::unique_ptr<SendGuard> guard;
    bool guardAsks = false;
    /// The answers that the guard waits for; nullptr while it does not.
    const Connection::Answers* guardAnswers = nullptr;

    protocol::FrameAssembler assembler;
    /// How many of the assembler's bytes had come before the last request was sent.
    std::size_t staleBytes = 0;
    std::size_t corrupt = 0;
    LineQuality quality;
    /// During an outage: what the quality was, and when to give up on a device that is away.
    std::optional<std::pair<LineQuality, Clock::time_point>> outage;
    // When the assembler's latest bytes were read.
    std::chrono::system_clock::time_point arrivedAt;
    Clock::time_point arrived;

    struct Arrival {
        Frame frame;
        bool stale = false;  // it began before the last request was sent
    };

    SerialLink openLink() const
    {
        return SerialLink(port.path, port.baud,
                          {.exclusive = true, .ownOnly = port.ownOnly, .interrupt = options.interrupt});
    }

    void tell(TraceEvent event) const
    {
        const bool answer = event.kind == TraceEvent::Kind::kReceived && !event.early && guardAnswers != nullptr;
        event.aside = answer ? (*guardAnswers)(event.frame) : event.kind == TraceEvent::Kind::kSent && guardAsks;
        if (guard != nullptr) {
            guard->on(event);
        }
        if (options.trace != nullptr) {
            options.trace->on(event);
        }
    }

    void tellNow(TraceEvent::Kind kind, Frame frame, std::string text = {}) const
    {
        tell({kind, std::chrono::system_clock::now(), Clock::now(), std::move(frame), std::move(text)});
    }

    void throwIfInterrupted() const
    {
        if (options.interrupt != nullptr && options.interrupt->requested()) {
            throw Interrupted();
        }
    }

    /// Throws Interrupted, otherwise returns after `time`.
    void pause(Duration time) const
    {
        pollfd request{options.interrupt == nullptr ? -1 : options.interrupt->descriptor(), POLLIN, 0};
        const auto ns = std::max<Duration>(time, Duration(0)).count();
        const timespec left{static_cast<time_t>(ns / 1'000'000'000), static_cast<long>(ns % 1'000'000'000)};
        ppoll(&request, 1, &left, nullptr);
        throwIfInterrupted();
    }

    /// Lets the device go. Throws LineError when it has been going and coming for too long.
    void lose(const std::system_error& error)
    {
        link.reset();
        ++quality.losses;
        quality.garbageBytes += assembler.size();
        assembler = {};
        staleBytes = 0;
        tellNow(TraceEvent::Kind::kLost, {}, error.what());
        const bool again = giveUpAt.has_value();
        if (!again || outage) {
            giveUpAt =
                outage ? outage->second : Clock::now() + std::clamp<Duration>(options.reconnect, Duration(0), kLongest);
        }
        if (again && Clock::now() >= *giveUpAt) {
            throw LineError(error.what(), protocol::kLineFailed);
        }
    }

    /// @returns the line, as soon as it is there; nullptr when it was not by `until`.
    SerialLink* live(Clock::time_point until)
    {
        throwIfInterrupted();
        while (!link) {
            pause(std::min<Duration>(kLookAgain, std::min(*giveUpAt, until) - Clock::now()));
            try {
                link.emplace(openLink());
                ++quality.reconnects;
                tellNow(TraceEvent::Kind::kBack, {});
            } catch (const std::system_error& error) {
                if (Clock::now() >= *giveUpAt) {
                    throw LineError(fmt::format("the device went away and was not back after {}: {}",
                                                durationText(options.reconnect), error.what()),
                                    protocol::kLineFailed);
                }
                if (Clock::now() >= until) {
                    return nullptr;
                }
            }
        }
        return &*link;
    }

    std::size_t read(SerialLink& from, Clock::time_point deadline)
    {
        std::array<std::uint8_t, 4096> chunk;
        const std::size_t count = from.read(chunk, deadline);
        if (count > 0) {
            arrivedAt = std::chrono::system_clock::now();
            arrived = Clock::now();
            quality.garbageBytes += assembler.append(Bytes(chunk).first(count));
        }
        return count;
    }

    /// @returns the next sound frame of the assembler. Traces it, and those with a wrong checksum before it.
    std::optional<Arrival> cut()
    {
        if (!assembler.worthParsing()) {
            return std::nullopt;
        }
        std::size_t before = assembler.size();
        while (auto received = assembler.next()) {
            const std::size_t consumed = before - assembler.size();
            before = assembler.size();
            const std::size_t length = protocol::frameLength(received->length - 2u);
            const std::size_t garbage = consumed - std::min(consumed, length);
            const bool stale = garbage < staleBytes;
            quality.garbageBytes += garbage;
            staleBytes -= std::min(staleBytes, consumed);

            const auto params = received->params();
            Frame frame{received->cmdOne, received->cmdTwo, {params.begin(), params.end()}};
            if (received->checksumHolds) {
                tell({TraceEvent::Kind::kReceived, arrivedAt, arrived, frame, {}, {}, stale});
                return Arrival{std::move(frame), stale};
            }
            ++corrupt;
            ++quality.corruptFrames;
            tell({TraceEvent::Kind::kCorrupt, arrivedAt, arrived, std::move(frame), "wrong checksum",
                  wireBytes(*received)});
        }
        return std::nullopt;
    }

    std::optional<Arrival> next(SerialLink& from, Clock::time_point deadline)
    {
        for (bool last = false;;) {
            if (auto arrival = cut()) {
                return arrival;
            }
            // Bytes that are there are read even after the deadline. On a line that never falls silent, the time
            // decides.
            if (std::exchange(last, Clock::now() >= deadline) || read(from, deadline) == 0) {
                return std::nullopt;
            }
        }
    }

    /// Reads, traces and forgets the frames so far.
    void drain(SerialLink& from)
    {
        // Far more than a device holds back; the loop ends on a line that never falls silent.
        constexpr int kReads = 64;
        int reads = 0;
        do {
            while (cut()) {
            }
        } while (++reads <= kReads && read(from, Clock::now()) > 0);
        while (cut()) {
        }
        staleBytes = assembler.size();
    }

    /// Asks the guard.
    /// @returns up to how many losses the frame may be sent; throws what the guard throws.
    std::size_t letOut(Connection& connection, const Frame& command)
    {
        if (guard == nullptr || guardAsks) {
            return kAnyLosses;
        }
        const Meanwhile asks(guardAsks, true);
        return guard->check(connection, command) ? quality.losses : kAnyLosses;
    }

    /// @param begun becomes true when a byte may have reached the device.
    /// @param lossesAllowed as `letOut` has it
    void write(SerialLink& to, Bytes bytes, bool& begun, std::size_t lossesAllowed) const
    {
        if (quality.losses > lossesAllowed) {
            throw LineError("the device went away after the unit had said who it is: nothing more is sent",
                            protocol::kFailed);
        }
        const auto deadline = Clock::now() + wireTime(bytes.size(), port.baud) + kStalled;
        while (!bytes.empty()) {
            bytes = bytes.subspan(to.writeSome(bytes, deadline));
            begun = true;
        }
    }

    /// Runs `work(line, begun)` until it ends without losing the device. `begun` says whether a second time would be
    /// one too many.
    /// @returns an empty result when the device was not there by `until`.
    template <class Work>
    auto withLine(bool repeatable, Work work, Clock::time_point until = Clock::time_point::max())
        -> decltype(work(std::declval<SerialLink&>(), std::declval<bool&>()))
    {
        for (bool again = false;;) {
            SerialLink* line = live(until);
            if (line == nullptr) {
                return {};
            }
            quality.repeatedSends += again ? 1 : 0;
            bool begun = false;
            try {
                auto result = work(*line, begun);
                giveUpAt.reset();
                return result;
            } catch (const std::system_error& error) {
                if (error.code() == std::errc::timed_out) {
                    throw LineError(error.what(), protocol::kLineFailed);
                }
                lose(error);
                if (begun && !repeatable) {
                    throw LineError(
                        fmt::format("{}; the unit may have carried out the command, so it is not sent again",
                                    error.what()),
                        protocol::kLineFailed);
                }
                again = begun;
            }
        }
    }
};

void Connection::guardBy(MakeGuard make)
{
    guardMaker() = std::move(make);
}

Connection::Connection(PortSpec port, Options options)
{
    try {
        state_ = std::make_unique<State>(port, options);
    } catch (const std::system_error& error) {
        throw LineError(error.what(), protocol::kPortUnavailable, remedyFor(port.path, error.code()));
    }
}

Connection::~Connection() = default;
Connection::Connection(Connection&&) noexcept = default;

Connection::Exchange Connection::request(const Frame& command, const Answers& answers, Duration timeout,
                                         bool repeatable)
{
    const auto bytes = encode(command);
    State& state = *state_;
    const std::size_t lossesAllowed = state.letOut(*this, command);
    const Meanwhile waits(state.guardAnswers, state.guardAsks ? &answers : nullptr);
    return state.withLine(repeatable && lossesAllowed == State::kAnyLosses, [&](SerialLink& line, bool& begun) {
        state.drain(line);
        state.corrupt = 0;
        state.write(line, bytes, begun, lossesAllowed);
        const auto written = Clock::now();
        state.tellNow(TraceEvent::Kind::kSent, command);

        const auto deadline =
            written + wireTime(bytes.size(), state.port.baud) + std::clamp<Duration>(timeout, Duration(0), kLongest);
        Exchange outcome;
        while (const auto arrival = state.next(line, deadline)) {
            if (!arrival->stale && answers(arrival->frame)) {
                outcome.reply = arrival->frame;
                outcome.roundTrip = state.arrived - written;
                break;
            }
            if (Clock::now() >= deadline) {
                break;
            }
        }
        outcome.corrupt = state.corrupt;
        return outcome;
    });
}

void Connection::send(const Frame& command)
{
    const auto bytes = encode(command);
    State& state = *state_;
    const std::size_t lossesAllowed = state.letOut(*this, command);
    state.withLine(false, [&](SerialLink& line, bool& begun) {
        state.write(line, bytes, begun, lossesAllowed);
        state.tellNow(TraceEvent::Kind::kSent, command);
        return true;
    });
}

std::optional<Frame> Connection::receive(Clock::time_point deadline)
{
    State& state = *state_;
    return state.withLine(
        true,
        [&](SerialLink& line, bool&) -> std::optional<Frame> {
            auto arrival = state.next(line, deadline);
            return arrival ? std::optional(std::move(arrival->frame)) : std::nullopt;
        },
        deadline);
}

LineQuality Connection::quality() const
{
    if (state_->outage) {
        return state_->outage->first;
    }
    LineQuality quality = state_->quality;
    quality.garbageBytes += state_->assembler.size();
    return quality;
}

void Connection::beginOutage(Clock::time_point until)
{
    state_->outage = {quality(), until};
    if (!state_->link) {
        state_->giveUpAt = until;
    }
}

void Connection::endOutage()
{
    if (state_->outage) {
        state_->quality = state_->outage->first;
        state_->outage.reset();
    }
}

void Connection::waitAtMost(Duration reconnect)
{
    Options& options = state_->options;
    options.reconnect = std::min(options.reconnect, reconnect);
    if (state_->giveUpAt) {
        state_->giveUpAt = std::min(*state_->giveUpAt, Clock::now() + options.reconnect);
    }
}

const PortSpec& Connection::port() const
{
    return state_->port;
}

}  // namespace station
