#include "web/Server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "host/Descriptor.h"
#include "protocol/Text.h"

namespace web {

namespace {

using Json = nlohmann::json;
using std::chrono::steady_clock;

/// Requests that wait for a worker; more are refused.
constexpr std::size_t kWaiting = 256;
/// Of a request's line and headers.
constexpr std::size_t kLongestHead = 16 << 10;
/// Lines about refused requests in a minute; the others are counted.
constexpr unsigned kLinesAMinute = 30;

std::string asJson(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// An address as bind() takes it.
struct Address {
    sockaddr_storage storage{};
    socklen_t size = 0;

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    bool isLoopback() const
    {
        if (storage.ss_family == AF_INET6) {
            return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(storage).sin6_addr);
        }
        return (ntohl(reinterpret_cast<const sockaddr_in&>(storage).sin_addr.s_addr) >> 24U) == 127;
    }
    std::uint16_t port() const
    {
        return ntohs(storage.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(storage).sin6_port
                                                   : reinterpret_cast<const sockaddr_in&>(storage).sin_port);
    }
    std::string text() const
    {
        std::array<char, INET6_ADDRSTRLEN> text{};
        if (storage.ss_family == AF_INET6) {
            inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(storage).sin6_addr, text.data(), text.size());
            return fmt::format("[{}]", text.data());
        }
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(storage).sin_addr, text.data(), text.size());
        return text.data();
    }
};

std::optional<Address> numeric(const std::string& text, std::uint16_t port)
{
    Address address;
    auto& v4 = reinterpret_cast<sockaddr_in&>(address.storage);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address.storage);
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        address.size = sizeof v4;
    } else if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        address.size = sizeof v6;
    } else {
        return {};
    }
    return address;
}

host::Descriptor listenAt(const ServerSettings& settings)
{
    if (settings.socket >= 0) {
        return host::Descriptor(settings.socket);
    }
    std::optional<Address> address = numeric(settings.address, settings.port);
    if (!address) {
        throw std::runtime_error(
            fmt::format("expected a numeric address such as 127.0.0.1 or ::1, got '{}'", settings.address));
    }
    host::Descriptor listener(socket(address->storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!listener.valid() || setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener.get(), address->get(), address->size) != 0 || listen(listener.get(), SOMAXCONN) != 0) {
        throw std::runtime_error(
            fmt::format("{} port {}: {}", settings.address, settings.port, std::generic_category().message(errno)));
    }
    return listener;
}

std::vector<std::string_view> segments(std::string_view path)
{
    std::vector<std::string_view> all;
    for (std::size_t at = 0; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        all.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return all;
}

bool matches(const Route& route, const std::string& path, Texts& parts)
{
    const auto wanted = segments(route.path);
    const auto given = segments(path);
    if (wanted.size() != given.size()) {
        return false;
    }
    parts.clear();
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i].starts_with('{') && !given[i].empty()) {
            parts[std::string(wanted[i].substr(1, wanted[i].size() - 2))] = given[i];
        } else if (wanted[i] != given[i]) {
            return false;
        }
    }
    return true;
}

std::string valueOf(const Texts& texts, std::string_view name)
{
    const auto found = texts.find(name);
    return found == texts.end() ? "" : found->second;
}

/// @returns the value of a cookie; empty for none.
std::string cookie(const Request& request, const std::string& name)
{
    const std::string all = valueOf(request.headers, "cookie");
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = std::min(all.find(';', at), all.size());
        const std::string_view one = std::string_view(all).substr(at, end - at);
        if (one.starts_with(name + "=")) {
            return std::string(one.substr(name.size() + 1));
        }
        at = std::min(all.find_first_not_of("; ", end), all.size());
    }
    return {};
}

}  // namespace

Response refusal(unsigned status, std::string_view text)
{
    return {status, asJson({{"error", text}})};
}

class Server::Core
{
public:
    Core(ServerSettings settings, std::vector<Route> routes, Login& login)
        : settings_(std::move(settings)), routes_(std::move(routes)), login_(login)
    {
        addLogin();
        host::Descriptor listener = listenAt(settings_);
        address_.size = sizeof address_.storage;
        if (getsockname(listener.get(), address_.get(), &address_.size) != 0) {
            throw std::runtime_error("the listening socket: " + std::generic_category().message(errno));
        }
        if (!address_.isLoopback() && (!isSecure() || !login_.required())) {
            throw std::runtime_error(fmt::format("{}: expected {} for an address that others can reach, got none",
                                                 address_.text(), isSecure() ? "users who log in" : "a certificate"));
        }
        cookie_ = fmt::format("session-{}", address_.port());
        start(listener);
        for (unsigned i = 0; i < settings_.workers; ++i) {
            workers_.emplace_back([this] { work(); });
        }
        heart_ = std::thread([this] { beat(); });
    }

    ~Core()
    {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wanted_.notify_all();
        stopped_.notify_all();
        for (std::thread& worker : workers_) {
            worker.join();
        }
        heart_.join();
        {
            const std::lock_guard lock(mutex_);
            for (Exchange* exchange : waiting_) {
                exchange->response = refusal(503, "the server stops");
                MHD_resume_connection(exchange->connection);
            }
            waiting_.clear();
        }
        wake([](const Stream&) { return true; });
        MHD_stop_daemon(daemon_);
        for (Events* events : sources_) {
            events->onPublished(nullptr);
        }
    }

    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    bool isSecure() const { return !settings_.certificate.empty(); }
    const Address& address() const { return address_; }

private:
    /// A request and its response. MHD calls for it on its thread; a worker has it while the connection is suspended.
    struct Exchange {
        MHD_Connection* connection;
        Request request = {};
        const Route* route = nullptr;
        std::optional<Response> response = {};
        bool begun = false;
    };

    /// A reader of events, on MHD's thread.
    struct Stream {
        Core& core;
        Events& events;
        MHD_Connection* connection;
        Events::Place place;
        std::string text;  ///< that is being sent
        std::size_t sent = 0;
        bool isBeatDue = false;  // guarded by Core::streamMutex_
    };

    void addLogin()
    {
        routes_.push_back({"GET", "/api/v1/session", Role::kNone, [this](const Request& request) {
                               return Response{200, session(request.user)};
                           }});
        routes_.push_back(
            {"POST", "/api/v1/login", Role::kNone, [this](const Request& request) { return enter(request); }});
        routes_.push_back({"POST", "/api/v1/logout", Role::kNone, [this](const Request& request) {
                               login_.leave(request.session);
                               return Response{200, session({})};
                           }});
    }

    std::string session(const User& user) const
    {
        return asJson({{"login", login_.required()}, {"name", user.name}, {"role", nameOf(user.role)}});
    }

    Response enter(const Request& request)
    {
        const Json body = Json::parse(request.body, nullptr, false);
        const auto text = [&body](const char* key) {
            return body.is_object() && body.contains(key) && body[key].is_string() ? body[key].get<std::string>() : "";
        };
        const std::string name = text("name");
        const std::string secret = text(name.empty() ? "badge" : "password");
        if (secret.empty()) {
            return refusal(400, R"(expected {"name", "password"} or {"badge"})");
        }
        const Login::Outcome outcome = login_.enter(name, secret, request.peer);
        if (outcome.token.empty()) {
            report(fmt::format("login of {} was refused", name.empty() ? "a badge" : protocol::inQuotes(name)));
            Response response = refusal(outcome.wait.count() > 0 ? 429 : 401, "wrong name, password or badge");
            if (outcome.wait.count() > 0) {
                response.headers.emplace_back("Retry-After", std::to_string(outcome.wait.count()));
            }
            return response;
        }
        Response response{200, session(outcome.user)};
        response.headers.emplace_back(
            "Set-Cookie",
            fmt::format("{}={}; Path=/; HttpOnly; SameSite=Strict; Max-Age={}{}", cookie_, outcome.token,
                        std::chrono::seconds(Login::kSessionLength).count(), isSecure() ? "; Secure" : ""));
        return response;
    }

    void start(host::Descriptor& listener)
    {
        std::vector<MHD_OptionItem> options{
            {MHD_OPTION_LISTEN_SOCKET, listener.get(), nullptr},
            {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(settings_.connections), nullptr},
            {MHD_OPTION_CONNECTION_MEMORY_LIMIT, kLongestHead, nullptr},
            {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>(settings_.timeout.count()), nullptr},
            {MHD_OPTION_STRICT_FOR_CLIENT, 1, nullptr},
            {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(&Core::onCompleted), this},
        };
        unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME;
        if (isSecure()) {
            flags |= MHD_USE_TLS;
            options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, settings_.certificate.data()});
            options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, settings_.key.data()});
            static char priorities[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";
            options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, priorities});
        }
        options.push_back({MHD_OPTION_END, 0, nullptr});
        daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &Core::onRequest, this, MHD_OPTION_ARRAY, options.data(),
                                   MHD_OPTION_END);
        if (daemon_ == nullptr) {
            throw std::runtime_error(isSecure() ? "expected a certificate and its key in PEM, which belong together"
                                                : "the HTTP server does not start");
        }
        listener.release();
    }

    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* path, const char* method,
                                const char*, const char* data, size_t* size, void** own)
    {
        try {
            auto& core = *static_cast<Core*>(self);
            auto* exchange = static_cast<Exchange*>(*own);
            if (exchange == nullptr) {
                *own = exchange = new Exchange{.connection = connection};
                exchange->request.method = method;
                exchange->request.path = path;
                core.begin(*exchange);
                // Without the body: MHD closes the connection after the response.
                return exchange->response ? core.respond(*exchange) : MHD_YES;
            }
            if (*size > 0) {
                if (exchange->request.body.size() + *size > core.settings_.longestBody) {
                    return MHD_NO;
                }
                exchange->request.body.append(data, *size);
                *size = 0;
                return MHD_YES;
            }
            if (!exchange->begun) {
                exchange->begun = true;
                // From here on the exchange is the workers' until the connection goes on.
                return core.handOver(*exchange) ? MHD_YES : core.respond(*exchange);
            }
            return core.respond(*exchange);
        } catch (const std::exception&) {
            return MHD_NO;  // out of memory: the connection is closed
        }
    }

    static void onCompleted(void*, MHD_Connection*, void** own, MHD_RequestTerminationCode)
    {
        delete static_cast<Exchange*>(*own);
        *own = nullptr;
    }

    static MHD_Result collect(void* texts, MHD_ValueKind kind, const char* key, const char* value)
    {
        std::string name = key;
        if (kind == MHD_HEADER_KIND) {
            std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
        }
        static_cast<Texts*>(texts)->insert_or_assign(std::move(name), value == nullptr ? "" : value);
        return MHD_YES;
    }

    /// Looks at the request before its body comes; a response is set if it is refused.
    void begin(Exchange& exchange)
    {
        Request& request = exchange.request;
        MHD_get_connection_values(exchange.connection, MHD_HEADER_KIND, &Core::collect, &request.headers);
        MHD_get_connection_values(exchange.connection, MHD_GET_ARGUMENT_KIND, &Core::collect, &request.query);
        if (const std::string why = objection(request); !why.empty()) {
            report(fmt::format("{} {} was refused: {}", protocol::printable(request.method),
                               protocol::printable(request.path), why));
            exchange.response = refusal(403, why);
            return;
        }
        if (const auto* info = MHD_get_connection_info(exchange.connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)) {
            Address peer;
            peer.size = info->client_addr->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
            std::memcpy(&peer.storage, info->client_addr, peer.size);
            request.peer = peer.text();
        }
        request.session = cookie(request, cookie_);
        request.user = login_.userOf(request.session);
        const std::string method = request.method == "HEAD" ? "GET" : request.method;
        bool isThere = false;
        for (const Route& route : routes_) {
            if (matches(route, request.path, request.parts)) {
                isThere = true;
                if (route.method == method) {
                    exchange.route = &route;
                    break;
                }
            }
        }
        if (exchange.route == nullptr) {
            exchange.response =
                isThere ? refusal(405, "expected another method") : refusal(404, "expected a path of this server");
        } else if (request.user.role < exchange.route->least) {
            exchange.response =
                request.user.role == Role::kNone
                    ? refusal(401, "expected a login")
                    : refusal(403, fmt::format("expected the role {}, {} has {}", nameOf(exchange.route->least),
                                               request.user.name, nameOf(request.user.role)));
        } else if (const std::string length = valueOf(request.headers, "content-length");
                   length.size() > 9 || std::strtoul(length.c_str(), nullptr, 10) > settings_.longestBody) {
            exchange.response = refusal(413, fmt::format("expected at most {} bytes", settings_.longestBody));
        }
    }

    /// @returns why a request may be another page's; empty if it is not.
    std::string objection(const Request& request) const
    {
        const std::string host = valueOf(request.headers, "host");
        // A page elsewhere can give its own name this machine's address, but it cannot be named by the address.
        std::string name = host.substr(0, host.ends_with(']') ? host.npos : host.rfind(':'));
        const bool isLiteral = name.starts_with('[') && name.ends_with(']')
                                   ? numeric(name.substr(1, name.size() - 2), 0).has_value()
                                   : numeric(name, 0).has_value();
        if (!isLiteral && name != "localhost" && std::ranges::find(settings_.names, name) == settings_.names.end()) {
            return "Host: expected this server's name";
        }
        if (request.method == "GET" || request.method == "HEAD") {
            return {};
        }
        if (const auto origin = request.headers.find("origin");
            origin != request.headers.end() &&
            origin->second != fmt::format("{}://{}", isSecure() ? "https" : "http", host)) {
            return "Origin: expected a page of this server";
        }
        if (const std::string site = valueOf(request.headers, "sec-fetch-site");
            !site.empty() && site != "same-origin" && site != "none") {
            return "Sec-Fetch-Site: expected a page of this server";
        }
        // A form of another page cannot send these types.
        const std::string type = valueOf(request.headers, "content-type");
        return type == "application/json" || type.starts_with("application/json;") || type == "application/gzip"
                   ? ""
                   : "Content-Type: expected application/json";
    }

    /// Gives the request to the workers and lets the connection wait.
    /// @returns false if they do not take it; then there is a response.
    bool handOver(Exchange& exchange)
    {
        {
            const std::lock_guard lock(mutex_);
            if (stopping_ || waiting_.size() >= kWaiting) {
                exchange.response = refusal(503, stopping_ ? "the server stops" : "the server is busy");
                exchange.response->headers.emplace_back("Retry-After", "1");
                return false;
            }
            MHD_suspend_connection(exchange.connection);
            waiting_.push_back(&exchange);
        }
        wanted_.notify_one();
        return true;
    }

    void work()
    {
        for (;;) {
            Exchange* exchange = nullptr;
            {
                std::unique_lock lock(mutex_);
                wanted_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
                if (stopping_) {
                    return;
                }
                exchange = waiting_.front();
                waiting_.pop_front();
            }
            try {
                exchange->response = exchange->route->handler(exchange->request);
            } catch (const std::exception& error) {
                report(fmt::format("{} {}: {}", exchange->request.method, protocol::printable(exchange->request.path),
                                   protocol::printable(error.what())));
                exchange->response = refusal(500, "the server cannot do this now");
            }
            MHD_resume_connection(exchange->connection);
        }
    }

    MHD_Result respond(Exchange& exchange)
    {
        Response& response = *exchange.response;
        MHD_Response* made = nullptr;
        if (response.events != nullptr) {
            if (sources_.insert(response.events).second) {
                response.events->onPublished([this, events = response.events] {
                    wake([events](const Stream& stream) { return &stream.events == events; });
                });
            }
            auto* stream = new Stream{*this, *response.events, exchange.connection,
                                      response.events->placeAfter(valueOf(exchange.request.headers, "last-event-id")),
                                      "retry: 500\n\n"};
            made = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, 4096, &Core::onRead, stream, &Core::onReadEnded);
            response.type = "text/event-stream";
        } else {
            made = MHD_create_response_from_buffer(response.body.size(), response.body.data(), MHD_RESPMEM_MUST_COPY);
        }
        if (made == nullptr) {
            return MHD_NO;
        }
        const auto add = [made](const char* name, const std::string& value) {
            MHD_add_response_header(made, name, value.c_str());
        };
        add("Content-Type", response.type);
        add("Content-Security-Policy",
            "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
            "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
        add("X-Content-Type-Options", "nosniff");
        add("Referrer-Policy", "no-referrer");
        add("Cross-Origin-Opener-Policy", "same-origin");
        add("Cross-Origin-Resource-Policy", "same-origin");
        add("Cache-Control", "no-store");
        for (const auto& [name, value] : response.headers) {
            add(name.c_str(), value);
        }
        const MHD_Result result = MHD_queue_response(exchange.connection, response.status, made);
        MHD_destroy_response(made);
        return result;
    }

    static ssize_t onRead(void* own, std::uint64_t, char* buffer, size_t most)
    {
        auto& stream = *static_cast<Stream*>(own);
        try {
            return stream.core.read(stream, buffer, most);
        } catch (const std::exception&) {
            return MHD_CONTENT_READER_END_WITH_ERROR;
        }
    }

    static void onReadEnded(void* own)
    {
        auto* stream = static_cast<Stream*>(own);
        {
            const std::lock_guard lock(stream->core.streamMutex_);
            stream->core.suspended_.erase(stream);
        }
        delete stream;
    }

    ssize_t read(Stream& stream, char* buffer, size_t most)
    {
        while (stream.sent == stream.text.size()) {
            stream.text = stream.events.read(stream.place);  // outside of the lock: it may ask for a snapshot
            stream.sent = 0;
            if (!stream.text.empty()) {
                break;
            }
            const std::lock_guard lock(streamMutex_);
            if (isOver_) {
                return MHD_CONTENT_READER_END_OF_STREAM;
            }
            if (std::exchange(stream.isBeatDue, false)) {
                stream.text = ":\n\n";
            } else if (!stream.events.hasNews(stream.place)) {
                suspended_.insert(&stream);
                MHD_suspend_connection(stream.connection);
                return 0;
            }
        }
        const std::size_t count = stream.text.copy(buffer, most, stream.sent);
        stream.sent += count;
        return static_cast<ssize_t>(count);
    }

    /// Lets the suspended streams go on that `which` names.
    template <class Which>
    void wake(Which which)
    {
        const std::lock_guard lock(streamMutex_);
        std::erase_if(suspended_, [&which](Stream* stream) {
            const bool goesOn = which(*stream);
            if (goesOn) {
                MHD_resume_connection(stream->connection);
            }
            return goesOn;
        });
    }

    /// A comment now and then shows a stream's reader, and whatever is between, that the connection lives.
    void beat()
    {
        std::unique_lock lock(mutex_);
        while (!stopped_.wait_for(lock, settings_.heartbeat, [this] { return stopping_; })) {
            lock.unlock();
            {
                const std::lock_guard streams(streamMutex_);
                for (Stream* stream : suspended_) {
                    stream->isBeatDue = true;
                }
            }
            wake([](const Stream&) { return true; });
            lock.lock();
        }
        const std::lock_guard streams(streamMutex_);
        isOver_ = true;
    }

    /// Logs a line, unless there have been many in this minute.
    void report(const std::string& line)
    {
        unsigned left = 0;
        {
            const std::lock_guard lock(logMutex_);
            const auto now = steady_clock::now();
            if (now - minute_ >= std::chrono::minutes(1)) {
                minute_ = now;
                left = lines_ > kLinesAMinute ? lines_ - kLinesAMinute : 0;
                lines_ = 0;
            }
            if (++lines_ > kLinesAMinute) {
                return;
            }
        }
        if (left > 0) {
            settings_.log(fmt::format("{} more were refused", protocol::plural(left, "request")));
        }
        settings_.log(line);
    }

    ServerSettings settings_;
    std::vector<Route> routes_;
    Login& login_;
    Address address_;
    std::string cookie_;  ///< its name: a browser sends a cookie to every port of a host
    MHD_Daemon* daemon_ = nullptr;
    std::vector<std::thread> workers_;
    std::thread heart_;

    std::mutex mutex_;
    std::condition_variable wanted_;   // a request waits for a worker, or stopping_
    std::condition_variable stopped_;  // stopping_
    std::deque<Exchange*> waiting_;    // guarded by mutex_
    bool stopping_ = false;            // guarded by mutex_

    std::mutex streamMutex_;
    std::set<Stream*> suspended_;  // guarded by streamMutex_
    std::set<Events*> sources_;    // daemon_'s thread's while it runs
    bool isOver_ = false;          // guarded by streamMutex_

    std::mutex logMutex_;
    steady_clock::time_point minute_ = steady_clock::now();  // guarded by logMutex_
    unsigned lines_ = 0;                                     // guarded by logMutex_
};

Server::Server(ServerSettings settings, std::vector<Route> routes, Login& login)
    : core_(std::make_unique<Core>(std::move(settings), std::move(routes), login))
{
}

Server::~Server() = default;

std::uint16_t Server::port() const
{
    return core_->address().port();
}

std::string Server::url() const
{
    return fmt::format("{}://{}:{}", core_->isSecure() ? "https" : "http", core_->address().text(), port());
}

}  // namespace web
