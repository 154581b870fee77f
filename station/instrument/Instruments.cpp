#include "station/instrument/Instruments.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib-unix.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <mutex>
#include <optional>
#include <span>
#include <system_error>

#include "host/Glib.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "station/SerialLink.h"

namespace station::instrument {

using protocol::inQuotes;
using protocol::LineError;

namespace {

using Clock = SerialLink::Clock;

constexpr std::size_t kLongestAnswer = 64 << 10;

/// An instrument may need longer to accept a connection than to answer.
constexpr Duration kOpenPatience = std::chrono::seconds(5);

/// More errors than a queue of an instrument usually holds.
constexpr int kMostErrors = 32;

/// Connects to a host, within the time, unless the user wants to end.
class Connecting
{
public:
    host::Descriptor open(const Address& address, Clock::time_point deadline, const Interrupt& interrupt)
    {
        g_main_context_push_thread_default(context_.get());
        const host::GlibPtr<GSocketClient> client(g_socket_client_new());
        g_socket_client_set_enable_proxy(client.get(), FALSE);
        const host::GlibPtr<GSocketConnectable> host(
            g_network_address_new(address.target.c_str(), static_cast<guint16>(address.number)));
        g_socket_client_connect_async(client.get(), host.get(), cancellable_.get(), onConnected, this);
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const host::GlibPtr<GSource> limit(
            g_timeout_source_new(static_cast<guint>(std::clamp<std::int64_t>(left, 0, 3'600'000))));
        g_source_set_callback(limit.get(), onLate, this, nullptr);
        g_source_attach(limit.get(), context_.get());
        const host::GlibPtr<GSource> end(g_unix_fd_source_new(interrupt.descriptor(), G_IO_IN));
        g_source_set_callback(end.get(), G_SOURCE_FUNC(onEnd), this, nullptr);
        g_source_attach(end.get(), context_.get());
        while (!done_) {
            g_main_context_iteration(context_.get(), TRUE);
        }
        g_main_context_pop_thread_default(context_.get());
        if (interrupt.requested()) {
            throw Interrupted();
        }
        if (!connection_) {
            throw error_.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)
                ? LineError(address.text + ": expected a connection, got none in time", protocol::kNoAnswer)
                : LineError(address.text + ": " + protocol::printable(error_.message()), protocol::kError);
        }
        GSocket* const socket = g_socket_connection_get_socket(connection_.get());
        g_socket_set_option(socket, IPPROTO_TCP, TCP_NODELAY, 1, nullptr);
        host::Descriptor own(fcntl(g_socket_get_fd(socket), F_DUPFD_CLOEXEC, 0));
        fcntl(own.get(), F_SETFL, O_NONBLOCK);
        return own;
    }

private:
    static void onConnected(GObject* client, GAsyncResult* result, gpointer data)
    {
        auto* const self = static_cast<Connecting*>(data);
        self->connection_.reset(g_socket_client_connect_finish(G_SOCKET_CLIENT(client), result, self->error_.out()));
        self->done_ = true;
    }

    static gboolean onLate(gpointer self)
    {
        g_cancellable_cancel(static_cast<Connecting*>(self)->cancellable_.get());
        return G_SOURCE_REMOVE;
    }

    static gboolean onEnd(gint, GIOCondition, gpointer self) { return onLate(self); }

    const host::GlibPtr<GMainContext> context_{g_main_context_new()};
    const host::GlibPtr<GCancellable> cancellable_{g_cancellable_new()};
    host::GlibPtr<GSocketConnection> connection_;
    host::GlibError error_;
    bool done_ = false;
};

/// @returns the number of an answer to SYST:ERR?, such as -113,"Undefined header"; nothing for another text.
std::optional<int> errorNumber(std::string_view answer)
{
    answer.remove_prefix(answer.starts_with('+') ? 1 : 0);
    int number = 0;
    const auto [end, error] = std::from_chars(answer.data(), answer.data() + answer.size(), number);
    const bool whole = error == std::errc() && end != answer.data() + answer.size() && *end == ',';
    return whole ? std::optional(number) : std::nullopt;
}

}  // namespace

struct Instruments::Instrument {
    explicit Instrument(Address at) : address(std::move(at)) {}

    const Address address;
    std::timed_mutex mutex;  // guards the members below
    std::optional<SerialLink> link;
    std::string received;
    std::string identity;

    void open(Clock::time_point deadline, const Interrupt& interrupt)
    {
        received.clear();
        if (address.serial) {
            link.emplace(address.target, address.number, SerialLink::Options{.exclusive = true});
            link->interruptBy(&interrupt);
            link->discardInput();
        } else {
            link.emplace(Connecting().open(address, deadline, interrupt), address.text);
            link->interruptBy(&interrupt);
        }
        write("*IDN?", deadline);
        std::string line = readLine(deadline);
        // Lines before the known identity are late answers from before a failure.
        for (int i = 0; i < kMostErrors && !identity.empty() && line != identity; ++i) {
            line = readLine(deadline);
        }
        identity = line;
        // Errors from before this run.
        for (int i = 0; i < kMostErrors && nextError(deadline) != ""; ++i) {
        }
    }

    void write(const std::string& text, Clock::time_point deadline)
    {
        const std::string line = text + '\n';
        link->write(std::span(reinterpret_cast<const std::uint8_t*>(line.data()), line.size()), deadline);
    }

    std::string readLine(Clock::time_point deadline)
    {
        auto end = received.find('\n');
        while (end == std::string::npos) {
            std::array<std::uint8_t, 4096> chunk;
            const std::size_t count = link->read(chunk, deadline);
            if (count == 0) {
                throw LineError("expected an answer, got none in time", protocol::kNoAnswer);
            }
            end = received.size();
            received.append(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(count));
            end = received.find('\n', end);
            if (end == std::string::npos && received.size() > kLongestAnswer) {
                throw LineError(fmt::format("expected a line of at most {} bytes, got more", kLongestAnswer),
                                protocol::kError);
            }
        }
        std::string line = received.substr(0, end);
        received.erase(0, end + 1);
        line.erase(line.find_last_not_of(" \r") + 1);
        if (const std::string wrong = notOneLine(line); !wrong.empty()) {
            throw LineError(wrong, protocol::kError);
        }
        return line;
    }

    /// @returns the oldest error in the instrument's queue; empty if there is none.
    std::string nextError(Clock::time_point deadline)
    {
        write("SYST:ERR?", deadline);
        std::string line = readLine(deadline);
        const auto number = errorNumber(line);
        if (!number) {
            throw LineError(fmt::format("SYST:ERR?: expected an answer such as 0,\"No error\", got {}", inQuotes(line)),
                            protocol::kError);
        }
        return *number == 0 ? "" : line;
    }

    /// Reads what came without being asked for.
    void expectSilence()
    {
        std::array<std::uint8_t, 4096> chunk;
        const std::size_t count = link->read(chunk, Clock::now());
        received.append(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(count));
        if (!received.empty()) {
            throw LineError(fmt::format("expected no answer before the command, got {}",
                                        inQuotes(received.substr(0, received.find_first_of("\r\n")))),
                            protocol::kError);
        }
    }

    std::string reasonForSilence()
    {
        constexpr auto kPatience = std::chrono::milliseconds(500);
        try {
            return nextError(Clock::now() + kPatience);
        } catch (const LineError&) {
            return {};
        }
    }

    /// @returns the answer to a query; empty for a command without one.
    std::string exchange(const std::string& command, Duration timeout, std::string& errors)
    {
        expectSilence();
        const auto deadline = Clock::now() + timeout;
        write(command, deadline);
        std::string answer;
        try {
            answer = isQuery(command) ? readLine(deadline) : "";
        } catch (const LineError& error) {
            // An instrument that does not know the query says nothing else.
            errors = error.status() == protocol::kNoAnswer ? reasonForSilence() : "";
            if (errors.empty()) {
                throw;
            }
            return answer;
        }
        for (int i = 0; i < kMostErrors; ++i) {
            const std::string error = nextError(deadline);
            if (error.empty()) {
                break;
            }
            errors += (errors.empty() ? "" : "; ") + error;
        }
        return answer;
    }
};

Instruments::Instruments(Equipment equipment) : equipment_(std::move(equipment))
{
    for (const auto& [name, address] : equipment_.instruments) {
        instruments_.emplace(name, std::make_unique<Instrument>(address));
    }
}

Instruments::~Instruments() = default;

Instruments::Answer Instruments::ask(const std::string& name, const std::string& command, Duration timeout,
                                     const Interrupt& interrupt)
{
    const auto fail = [&](const std::string& what, protocol::ExitStatus status) {
        return LineError(fmt::format("{}: {}: {}", name, command, what), status);
    };
    Instrument& instrument = *instruments_.at(name);
    const std::unique_lock lock(instrument.mutex, std::chrono::system_clock::now() + std::max(timeout, kOpenPatience));
    if (!lock.owns_lock()) {
        throw fail("expected an answer, but the instrument serves another unit", protocol::kNoAnswer);
    }
    std::string errors;
    Answer answer;
    try {
        if (instrument.link) {
            instrument.link->interruptBy(&interrupt);
        } else {
            instrument.open(Clock::now() + std::max(timeout, kOpenPatience), interrupt);
        }
        answer.text = instrument.exchange(command, timeout, errors);
        answer.identity = instrument.identity;
    } catch (const Interrupted&) {
        instrument.link.reset();
        throw;
    } catch (const LineError& error) {
        instrument.link.reset();
        throw fail(error.what(), error.status());
    } catch (const std::system_error& error) {
        instrument.link.reset();
        throw fail(error.what(), error.code() == std::errc::timed_out ? protocol::kNoAnswer : protocol::kError);
    }
    if (!errors.empty()) {
        throw fail("the instrument reports " + errors, protocol::kError);
    }
    return answer;
}

bool isQuery(std::string_view command)
{
    bool quoted = false;
    return std::ranges::any_of(command, [&](char c) {
        quoted = quoted != (c == '"');
        return c == '?' && !quoted;
    });
}

}  // namespace station::instrument
