#include "line/Line.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace line {

namespace {

using protocol::Bytes;
using station::ScannedPiece;
using station::TraceEvent;

constexpr std::size_t kChunkSize = 4096;

/// How often to look for an end that is not there.
constexpr std::chrono::milliseconds kRetry{100};

/// Our GSource: GLib calls the line when one of its descriptors or its time is ready.
struct LineSource {
    GSource base;
    Line* line;
};

nlohmann::ordered_json toJson(const Counts& counts)
{
    return {{"frames", counts.frames},       {"bytes", counts.bytes},           {"dropped", counts.dropped},
            {"corrupted", counts.corrupted}, {"duplicated", counts.duplicated}, {"split", counts.split},
            {"delayed", counts.delayed},     {"noise", counts.noise},           {"hang_ups", counts.hangUps},
            {"lost_bytes", counts.lostBytes}};
}

}  // namespace

Line::Line(Options options)
    : options_(std::move(options))
    , toUnit_(options_.seed, [this](const auto& piece, const auto& deed) { trace(Direction::kToUnit, piece, deed); })
    , toStation_(~options_.seed,
                 [this](const auto& piece, const auto& deed) { trace(Direction::kToStation, piece, deed); })
    , port_(openPort())
    , terminal_(std::make_unique<runtime::PseudoTerminal>(options_.to))
    , link_(terminal_->open())
    , path_(terminal_->path())
{
    if (!options_.capture.empty()) {
        capture_ = std::make_unique<station::pcapng::File>(
            options_.capture, station::pcapng::Source{options_.program, options_.from.path, options_.from.baud},
            [](const TraceEvent& event) { return event.text; });
    }
    options_.script.begin.applyTo(faults_);
    options_.change.applyTo(faults_);

    static GSourceFuncs functions{nullptr, nullptr, onReady, nullptr, nullptr, nullptr};
    source_.reset(g_source_new(&functions, sizeof(LineSource)));
    reinterpret_cast<LineSource*>(source_.get())->line = this;
    setFaults();
    step();
    g_source_attach(source_.get(), nullptr);
}

Line::~Line() = default;

void Line::change(const Change& change)
{
    change.applyTo(faults_);
    setFaults();
    step();
}

void Line::clearFaults()
{
    faults_ = {};
    setFaults();
    step();
}

void Line::hangUp(double seconds)
{
    hangUpFor(seconds);
    step();
}

nlohmann::ordered_json Line::counts() const
{
    return {{"to_unit", toJson(toUnit_.counts())}, {"to_station", toJson(toStation_.counts())}, {"hang_ups", hangUps_}};
}

void Line::clearCounts()
{
    toUnit_.clearCounts();
    toStation_.clearCounts();
    hangUps_ = 0;
}

gboolean Line::onReady(GSource* source, GSourceFunc, gpointer)
{
    Line* const line = reinterpret_cast<LineSource*>(source)->line;
    try {
        line->step();
    } catch (const std::exception& error) {
        line->options_.report(error.what());
    }
    return G_SOURCE_CONTINUE;
}

std::unique_ptr<station::SerialLink> Line::openPort() const
{
    return std::make_unique<station::SerialLink>(options_.from.path, options_.from.baud,
                                                 station::SerialLink::Options{.exclusive = true});
}

/// Does everything that is due.
void Line::step()
{
    const auto now = Clock::now();
    runScript(now);
    restoreEnds(now);
    readPort(now);
    readLink(now);
    // Noise for an end that is away would wait for it.
    if (port_) {
        toUnit_.tick(now);
    }
    if (terminal_) {
        toStation_.tick(now);
    }
    writePort(now);
    writeLink(now);
    for (Lane* const lane : {&toUnit_, &toStation_}) {
        if (lane->hangsUp()) {
            hangUpFor(lane->faults().away);
        }
    }
    if (capture_ && captureFailure_.empty() && !capture_->failure().empty()) {
        captureFailure_ = capture_->failure();
        options_.report(captureFailure_);
    }
    arm();
}

void Line::runScript(Clock::time_point now)
{
    const auto& events = options_.script.events;
    for (; nextEvent_ < events.size() && began_ + fromSeconds(events[nextEvent_].time) <= now; ++nextEvent_) {
        const Script::Event& event = events[nextEvent_];
        event.change.applyTo(faults_);
        setFaults();
        if (event.hangUpFor) {
            hangUpFor(*event.hangUpFor);
        }
    }
}

/// Opens the ends again that are away, unless it is too early.
void Line::restoreEnds(Clock::time_point now)
{
    if (now < tryAgain_ || (port_ && terminal_)) {
        return;
    }
    tryAgain_ = now + kRetry;
    if (!port_) {
        try {
            port_ = openPort();
        } catch (const std::system_error&) {
            return;  // not back yet
        }
        toUnit_.discard(now);
        options_.report(fmt::format("{}: back", options_.from.path));
    }
    if (awayUntil_.value_or(now) > now) {
        tryAgain_ = *awayUntil_;
        return;
    }
    awayUntil_.reset();
    try {
        terminal_ = std::make_unique<runtime::PseudoTerminal>(options_.to);
        link_ = terminal_->open();
    } catch (const runtime::TerminalError& error) {
        terminal_.reset();
        if (!std::exchange(complained_, true)) {
            options_.report(error.what());
        }
        return;
    }
    complained_ = false;
    toStation_.discard(now);
    trace({TraceEvent::Kind::kBack, std::chrono::system_clock::now(), now, {}, {}});
}

void Line::readPort(Clock::time_point now)
{
    std::array<std::uint8_t, kChunkSize> chunk;
    if (!port_) {
        return;
    }
    if (toStation_.full()) {
        // It is not read, but a device that has gone would wake us again and again.
        pollfd request{port_->descriptor(), 0, 0};
        if (poll(&request, 1, 0) > 0) {
            losePort(fmt::format("{}: the device has gone", options_.from.path));
        }
        return;
    }
    try {
        const std::size_t count = port_->read(chunk, now);
        if (!terminal_) {
            toStation_.lose(count);
        } else if (count > 0) {
            toStation_.take(Bytes(chunk).first(count), now);
        }
    } catch (const std::system_error& error) {
        losePort(error.what());
    }
}

void Line::readLink(Clock::time_point now)
{
    std::array<std::uint8_t, kChunkSize> chunk;
    if (!terminal_ || toUnit_.full()) {
        return;
    }
    const ssize_t count = read(link_->get(), chunk.data(), chunk.size());
    if (count > 0) {
        toUnit_.take(Bytes(chunk).first(static_cast<std::size_t>(count)), now);
    }
}

void Line::writePort(Clock::time_point now)
{
    try {
        for (Bytes bytes; port_ && !(bytes = toUnit_.ready(now)).empty();) {
            toUnit_.left(port_->writeSome(bytes, now));
        }
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::timed_out) {
            losePort(error.what());
        }
    }
}

void Line::writeLink(Clock::time_point now)
{
    for (Bytes bytes; terminal_ && !(bytes = toStation_.ready(now)).empty();) {
        const ssize_t count = write(link_->get(), bytes.data(), bytes.size());
        if (count > 0) {
            toStation_.left(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            break;
        }
    }
}

void Line::losePort(const std::string& reason)
{
    port_.reset();
    tryAgain_ = Clock::now() + kRetry;
    takeLinkAway(reason);
    toUnit_.discard(Clock::now());
    options_.report(fmt::format("{}; waiting for it to return", reason));
}

void Line::hangUpFor(double seconds)
{
    ++hangUps_;
    awayUntil_ = Clock::now() + fromSeconds(seconds);
    takeLinkAway("the line hung up");
}

void Line::takeLinkAway(const std::string& reason)
{
    tryAgain_ = std::min(tryAgain_, awayUntil_.value_or(tryAgain_));
    if (!terminal_) {
        return;
    }
    link_.reset();
    terminal_.reset();
    toStation_.discard(Clock::now());
    trace({TraceEvent::Kind::kLost, std::chrono::system_clock::now(), Clock::now(), {}, reason});
}

/// Tells GLib what to wait for.
void Line::arm()
{
    // One time for all: bytes that are due by now wait for their end, others for their time.
    const auto now = Clock::now();
    const bool toPort = !toUnit_.ready(now).empty();
    const bool toLink = !toStation_.ready(now).empty();
    watch(portWatch_, port_ ? port_->descriptor() : -1, toStation_.full(), toPort);
    watch(linkWatch_, terminal_ ? link_->get() : -1, toUnit_.full(), toLink);

    std::optional<Clock::time_point> first;
    const auto consider = [&first](std::optional<Clock::time_point> time) {
        first = first && time ? std::min(*first, *time) : time ? time : first;
    };
    if (port_) {
        consider(toUnit_.due(toPort));
    }
    if (terminal_) {
        consider(toStation_.due(toLink));
    }
    if (!port_ || !terminal_) {
        consider(tryAgain_);
    }
    if (nextEvent_ < options_.script.events.size()) {
        consider(began_ + fromSeconds(options_.script.events[nextEvent_].time));
    }
    const auto left = first ? std::chrono::ceil<std::chrono::microseconds>(*first - now) : std::chrono::microseconds(0);
    g_source_set_ready_time(source_.get(), first ? g_get_monotonic_time() + std::max<gint64>(left.count(), 0) : -1);
}

/// @param full whether the descriptor's bytes have no room
/// @param writes whether there are bytes for it
void Line::watch(Watch& watch, int descriptor, bool full, bool writes)
{
    const auto conditions = static_cast<GIOCondition>((full ? 0 : G_IO_IN) | (writes ? G_IO_OUT : 0));
    if (watch.descriptor != descriptor && watch.tag != nullptr) {
        g_source_remove_unix_fd(source_.get(), std::exchange(watch.tag, nullptr));
    }
    watch.descriptor = descriptor;
    if (descriptor < 0) {
        return;
    }
    if (watch.tag == nullptr) {
        watch.tag = g_source_add_unix_fd(source_.get(), descriptor, conditions);
    } else {
        g_source_modify_unix_fd(source_.get(), watch.tag, conditions);
    }
}

void Line::setFaults()
{
    const auto now = Clock::now();
    toUnit_.set(faults_.toUnit, now);
    toStation_.set(faults_.toStation, now);
}

void Line::trace(Direction direction, const ScannedPiece& piece, const std::string& deed)
{
    if (!capture_) {
        return;
    }
    const auto kind = direction == Direction::kToUnit ? TraceEvent::Kind::kSent : TraceEvent::Kind::kReceived;
    TraceEvent event{kind, std::chrono::system_clock::now(), Clock::now(), piece.frame, deed};
    if (piece.kind != ScannedPiece::Kind::kFrame) {
        event.kind = TraceEvent::Kind::kCorrupt;
        event.bytes = piece.bytes;
    }
    if (piece.kind == ScannedPiece::Kind::kIncomplete && piece.bytes.size() > protocol::kParamsOffset) {
        // It may be the beginning of a secret: the mask looks at the code.
        const Bytes params = Bytes(piece.bytes).subspan(protocol::kParamsOffset);
        event.frame = {
            piece.bytes[protocol::kCmdOneOffset], piece.bytes[protocol::kCmdTwoOffset], {params.begin(), params.end()}};
        if (direction == Direction::kToUnit) {
            TraceEvent command = event;
            command.kind = kind;
            mask_(std::move(command));
        }
    }
    event = mask_(std::move(event));
    event.kind = piece.kind == ScannedPiece::Kind::kCorrupt && direction == Direction::kToStation ? event.kind : kind;
    trace(event);
}

void Line::trace(const TraceEvent& event)
{
    if (capture_) {
        capture_->on(event);
    }
}

}  // namespace line
