#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "web/Events.h"
#include "web/Login.h"

/// The HTTP face of a program: pages, JSON, event streams. It trusts neither the network nor other pages that the
/// user's browser has open.
namespace web {

using Texts = std::map<std::string, std::string, std::less<>>;

struct Request {
    std::string method;
    std::string path;
    Texts parts;    ///< what stands in the path for each {NAME} of the route
    Texts query;    ///< decoded
    Texts headers;  ///< names in lower case
    std::string body;
    std::string peer;     ///< address of the client
    std::string session;  ///< the token of the cookie; empty for none
    User user;
};

struct Response {
    unsigned status = 200;
    std::string body = {};
    std::string type = "application/json";
    std::vector<std::pair<std::string, std::string>> headers = {};
    /// An event stream in place of the body; outlives the server.
    Events* events = nullptr;
};

/// @returns a response with {"error": text}.
Response refusal(unsigned status, std::string_view text);

/// Called on one of the server's workers, several at once. What it throws is answered with 500 and logged.
using Handler = std::function<Response(const Request&)>;

struct Route {
    std::string method;  ///< GET, POST or PUT; HEAD follows GET. GET changes nothing.
    std::string path;    ///< such as "/api/v1/slots/{slot}/start"
    Role least;          ///< others are refused: 401 without a login, else 403
    Handler handler;
};

struct ServerSettings {
    std::string address = "127.0.0.1";  ///< numeric, IPv4 or IPv6
    std::uint16_t port = 0;             ///< 0 for any that is free
    int socket = -1;                    ///< listening already, in place of address and port; the server closes it
    std::string certificate = {};       ///< PEM; with its key it makes TLS. Without, only loopback is served.
    std::string key = {};
    std::vector<std::string> names = {};  ///< host names that a browser may use, beside the address and localhost
    unsigned workers = 4;
    unsigned connections = 1024;
    std::size_t longestBody = 64 << 10;  ///< bytes
    std::chrono::seconds timeout{15};    ///< of a connection on which nothing moves
    std::chrono::seconds heartbeat{10};  ///< between the comments that keep an event stream alive
    std::function<void(const std::string&)> log = [](const std::string&) {};  ///< any thread
};

/// Serves from its construction to its destruction.
class Server
{
public:
    /// POST /api/v1/login, POST /api/v1/logout and GET /api/v1/session are the server's own routes.
    /// Throws std::runtime_error if it cannot listen, a certificate is wrong, or a network would be served without TLS
    /// or login.
    Server(ServerSettings settings, std::vector<Route> routes, Login& login);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const;

    /// Such as "https://[::1]:8443".
    std::string url() const;

private:
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace web
