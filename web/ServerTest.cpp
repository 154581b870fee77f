#include "web/Server.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/Descriptor.h"
#include "tests/support/TempDir.h"

namespace web {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr auto kGenerous = 20s;

/// What a client got.
struct Reply {
    long status = 0;
    std::string headers;
    std::string body;
    CURLcode error = CURLE_OK;
};

/// A browser with a cookie jar.
class Browser
{
public:
    explicit Browser(std::string url) : url_(std::move(url)), curl_(curl_easy_init())
    {
        curl_easy_setopt(curl_, CURLOPT_COOKIEFILE, "");
        curl_easy_setopt(curl_, CURLOPT_TIMEOUT, static_cast<long>(kGenerous.count()));
        curl_easy_setopt(curl_, CURLOPT_NOPROXY, "*");
        curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, &Browser::append);
        curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, &Browser::append);
    }
    ~Browser() { curl_easy_cleanup(curl_); }
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;

    CURL* handle() { return curl_; }

    Reply get(const std::string& path, const std::vector<std::string>& headers = {})
    {
        curl_easy_setopt(curl_, CURLOPT_HTTPGET, 1L);
        return request(path, headers);
    }

    Reply post(const std::string& path, const std::string& body,
               const std::vector<std::string>& headers = {"Content-Type: application/json"})
    {
        curl_easy_setopt(curl_, CURLOPT_POST, 1L);
        curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(curl_, CURLOPT_COPYPOSTFIELDS, body.c_str());
        return request(path, headers);
    }

private:
    static size_t append(const char* data, size_t, size_t size, void* text)
    {
        static_cast<std::string*>(text)->append(data, size);
        return size;
    }

    Reply request(const std::string& path, const std::vector<std::string>& headers)
    {
        Reply reply;
        curl_slist* list = nullptr;
        for (const std::string& header : headers) {
            list = curl_slist_append(list, header.c_str());
        }
        curl_easy_setopt(curl_, CURLOPT_URL, (url_ + path).c_str());
        curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, list);
        curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &reply.headers);
        curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &reply.body);
        reply.error = curl_easy_perform(curl_);
        curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &reply.status);
        curl_slist_free_all(list);
        return reply;
    }

    const std::string url_;
    CURL* const curl_;
};

/// A connection that sends any bytes.
class RawClient
{
public:
    explicit RawClient(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{kGenerous.count(), 0};
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        EXPECT_EQ(connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    void send(const std::string& bytes) { ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }

    /// @returns what came up to `end`; up to the end of the connection if it does not come.
    std::string readUntil(const std::string& end)
    {
        std::array<char, 4096> chunk{};
        ssize_t count = 0;
        while (text_.find(end) == std::string::npos &&
               (count = recv(socket_.get(), chunk.data(), chunk.size(), 0)) > 0) {
            text_.append(chunk.data(), static_cast<std::size_t>(count));
        }
        const auto at = text_.find(end);
        const std::string read = text_.substr(0, at == std::string::npos ? at : at + end.size());
        text_.erase(0, read.size());
        return read;
    }

    void endWriting() { shutdown(socket_.get(), SHUT_WR); }

private:
    host::Descriptor socket_;
    std::string text_;
};

class ServerTest : public testing::Test
{
protected:
    static Login& anyone()
    {
        static Login login(std::vector<Account>{});
        return login;
    }

    static Login& people()
    {
        static Login login(
            {{{"anna", Role::kEngineer}, hashOf("blue")}, {{"ben", Role::kOperator}, "", hashOf("4711")}});
        return login;
    }

    std::unique_ptr<Server> serve(Login& login = anyone())
    {
        settings.log = [this](const std::string& line) {
            const std::lock_guard lock(mutex);
            lines.push_back(line);
        };
        return std::make_unique<Server>(
            settings,
            std::vector<Route>{
                {"GET", "/", Role::kNone,
                 [](const Request&) {
                     return Response{200, "page", "text/html"};
                 }},
                {"GET", "/api/v1/events", Role::kViewer,
                 [this](const Request&) { return Response{.events = &events}; }},
                {"GET", "/api/v1/echo/{what}", Role::kViewer,
                 [](const Request& request) {
                     const auto limit = request.query.find("limit");
                     return Response{
                         200, request.parts.at("what") + '|' + (limit == request.query.end() ? "" : limit->second)};
                 }},
                {"POST", "/api/v1/slots/{slot}/start", Role::kOperator,
                 [this](const Request& request) {
                     ++starts;
                     return Response{200, request.parts.at("slot") + ' ' + request.user.name + ' ' + request.body};
                 }},
                {"POST", "/api/v1/engineer", Role::kEngineer, [](const Request&) { return Response{}; }},
                {"POST", "/api/v1/throw", Role::kNone,
                 [](const Request&) -> Response { throw std::runtime_error("the disk is full"); }},
                {"POST", "/api/v1/wait", Role::kNone,
                 [this](const Request&) {
                     std::unique_lock lock(mutex);
                     ++waiting;
                     changed.notify_all();
                     changed.wait_for(lock, kGenerous, [this] { return released; });
                     return Response{200, "done"};
                 }}},
            login);
    }

    std::vector<std::string> logged()
    {
        const std::lock_guard lock(mutex);
        return lines;
    }

    ServerSettings settings;
    Events events{100, [] { return "{}"; }};
    std::atomic<int> starts = 0;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;  // guarded by mutex
    int waiting = 0;                 // guarded by mutex
    bool released = false;           // guarded by mutex
};

TEST_F(ServerTest, AnswersARequestFromItsRoute)
{
    const auto server = serve();
    Browser browser(server->url());

    const Reply page = browser.get("/");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.body, "page");
    EXPECT_THAT(page.headers, AllOf(HasSubstr("Content-Type: text/html\r\n"), HasSubstr("default-src 'none'"),
                                    HasSubstr("X-Content-Type-Options: nosniff\r\n")));
    EXPECT_EQ(browser.get("/api/v1/echo/HU0001?limit=10%25").body, "HU0001|10%");
    EXPECT_EQ(browser.post("/api/v1/slots/left/start", "{}").body, "left  {}");
}

TEST_F(ServerTest, RefusesWhatHasNoRoute)
{
    const auto server = serve();
    Browser browser(server->url());

    EXPECT_EQ(browser.get("/nothing").status, 404);
    EXPECT_EQ(browser.get("/api/v1/echo/").status, 404);
    EXPECT_EQ(browser.get("/api/v1/echo/a/b").status, 404);
    EXPECT_EQ(browser.get("/api/v1/slots/left/start").status, 405);
    EXPECT_EQ(browser.post("/", "").status, 405);
    EXPECT_EQ(nlohmann::json::parse(browser.get("/nothing").body)["error"], "expected a path of this server");
}

TEST_F(ServerTest, ErrorOfAHandlerIsLoggedAndNotShown)
{
    const auto server = serve();

    const Reply reply = Browser(server->url()).post("/api/v1/throw", "{}");

    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.body, R"({"error":"the server cannot do this now"})");
    EXPECT_THAT(logged(), ElementsAre("POST /api/v1/throw: the disk is full"));
}

TEST_F(ServerTest, RefusesARequestThatAnotherPageSends)
{
    settings.names = {"station3.plant.example"};
    const auto server = serve();
    Browser browser(server->url());
    const std::string json = "Content-Type: application/json";
    const std::string port = std::to_string(server->port());

    for (const std::vector<std::string>& headers :
         std::vector<std::vector<std::string>>{{json, "Origin: https://evil.example"},
                                               {json, "Origin: null"},
                                               {json, "Origin: https://127.0.0.1:" + port},
                                               {json, "Origin: http://127.0.0.1:1"},
                                               {json, "Sec-Fetch-Site: cross-site"},
                                               {json, "Sec-Fetch-Site: same-site"},
                                               {json, "Host: evil.example:" + port},
                                               {json, "Host: "},
                                               {json, "Host: 127.0.0.1.evil.example"},
                                               {"Content-Type: text/plain"},
                                               {"Content-Type: application/x-www-form-urlencoded"},
                                               {"Content-Type: application/jsonp"},
                                               {"Content-Type:"}}) {
        EXPECT_EQ(browser.post("/api/v1/slots/left/start", "{}", headers).status, 403)
            << testing::PrintToString(headers);
    }
    EXPECT_EQ(browser.get("/", {"Host: evil.example"}).status, 403);
    EXPECT_EQ(starts, 0);

    for (const std::vector<std::string>& headers :
         std::vector<std::vector<std::string>>{{json, "Origin: http://127.0.0.1:" + port},
                                               {json, "Host: localhost:" + port, "Origin: http://localhost:" + port},
                                               {json, "Host: [::1]:" + port},
                                               {json, "Host: station3.plant.example"},
                                               {json, "Sec-Fetch-Site: same-origin"},
                                               {json, "Sec-Fetch-Site: none"}}) {
        EXPECT_EQ(browser.post("/api/v1/slots/left/start", "{}", headers).status, 200)
            << testing::PrintToString(headers);
    }
    EXPECT_THAT(logged(),
                Contains("POST /api/v1/slots/left/start was refused: Origin: expected a page of this server"));
}

TEST_F(ServerTest, ManyRefusedRequestsDoNotFillTheLog)
{
    const auto server = serve();
    Browser browser(server->url());

    for (int i = 0; i < 100; ++i) {
        browser.get("/", {"Host: evil.example"});
    }

    EXPECT_EQ(logged().size(), 30U);
}

TEST_F(ServerTest, LoginGivesTheRoleOfTheUser)
{
    const auto server = serve(people());
    Browser anna(server->url());
    Browser ben(server->url());

    EXPECT_EQ(anna.get("/").status, 200) << "the page with the login";
    EXPECT_EQ(anna.get("/api/v1/session").body, R"({"login":true,"name":"","role":"none"})");
    EXPECT_EQ(anna.get("/api/v1/echo/a").status, 401);
    EXPECT_EQ(anna.post("/api/v1/login", R"({"name":"anna","password":"red"})").status, 401);
    EXPECT_EQ(anna.get("/api/v1/echo/a").status, 401);
    const Reply entered = anna.post("/api/v1/login", R"({"name":"anna","password":"blue"})");
    EXPECT_EQ(entered.body, R"({"login":true,"name":"anna","role":"engineer"})");
    EXPECT_THAT(entered.headers, AllOf(HasSubstr("Set-Cookie: session-" + std::to_string(server->port()) + "="),
                                       HasSubstr("; HttpOnly; SameSite=Strict; "), Not(HasSubstr("Secure"))));
    EXPECT_EQ(anna.post("/api/v1/engineer", "{}").status, 200);

    EXPECT_EQ(ben.post("/api/v1/login", R"({"badge":"4711"})").status, 200);
    EXPECT_EQ(ben.post("/api/v1/slots/left/start", "").body, "left ben ");
    const Reply refused = ben.post("/api/v1/engineer", "{}");
    EXPECT_EQ(refused.status, 403);
    EXPECT_EQ(refused.body, R"({"error":"expected the role engineer, ben has operator"})");

    EXPECT_EQ(anna.post("/api/v1/logout", "{}").body, R"({"login":true,"name":"","role":"none"})");
    EXPECT_EQ(anna.get("/api/v1/echo/a").status, 401);
    EXPECT_EQ(ben.get("/api/v1/echo/a").status, 200);
    EXPECT_THAT(logged(), ElementsAre("login of 'anna' was refused"));
}

TEST_F(ServerTest, StrangeLoginIsRefused)
{
    const auto server = serve(people());
    Browser browser(server->url());

    for (const char* body :
         {"", "[]", "{", R"({"name":"anna"})", R"({"password":"blue"})", R"({"name":1,"badge":2})"}) {
        EXPECT_EQ(browser.post("/api/v1/login", body).status, 400) << body;
    }
}

TEST_F(ServerTest, GuessesHaveToWait)
{
    Login login({{{"anna", Role::kEngineer}, hashOf("blue")}});
    const auto server = serve(login);
    Browser browser(server->url());
    Reply reply;
    for (unsigned i = 0; i < Login::kFreeAttempts; ++i) {
        reply = browser.post("/api/v1/login", R"({"name":"anna","password":"red"})");
    }

    EXPECT_EQ(reply.status, 429);
    EXPECT_THAT(reply.headers, HasSubstr("Retry-After: 1\r\n"));
}

TEST_F(ServerTest, BodyIsBounded)
{
    settings.longestBody = 1000;
    const auto server = serve();
    Browser browser(server->url());

    EXPECT_EQ(browser.post("/api/v1/slots/left/start", std::string(1000, 'x')).status, 200);
    EXPECT_EQ(browser.post("/api/v1/slots/left/start", std::string(1001, 'x')).status, 413);
    RawClient chunked(server->port());
    chunked.send(
        "POST /api/v1/slots/left/start HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
        "Transfer-Encoding: chunked\r\n\r\n");
    for (int i = 0; i < 11; ++i) {
        chunked.send("64\r\n" + std::string(100, 'x') + "\r\n");
    }
    EXPECT_THAT(chunked.readUntil("never"), IsEmpty()) << "the connection is closed";
    EXPECT_EQ(starts, 1);
}

TEST_F(ServerTest, RequestsThatAreNotHttpEndTheirConnectionOnly)
{
    const auto server = serve();
    for (const std::string& bytes :
         {std::string("\0\0\0\0", 4), std::string("GET\r\n\r\n"), std::string("GET / HTTP/9.9\r\n\r\n"),
          std::string("GET / HTTP/1.1\r\n\r\n"), std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xFC\x03\x03", 11),
          "GET /" + std::string(100'000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
          "GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(100'000, 'a') + "\r\n\r\n",
          std::string("POST /api/v1/slots/a/start HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n"),
          std::string("POST /api/v1/slots/a/start HTTP/1.1\r\nHost: localhost\r\nContent-Length: 10\r\n\r\nabc")}) {
        RawClient client(server->port());
        client.send(bytes);
        client.endWriting();
        client.readUntil("never");
    }

    EXPECT_EQ(starts, 0);
    EXPECT_EQ(Browser(server->url()).get("/").status, 200);
}

TEST_F(ServerTest, RequestCutAnywhereDoesNoHarm)
{
    const auto server = serve();
    const std::string whole =
        "POST /api/v1/slots/left/start HTTP/1.1\r\nHost: localhost\r\nContent-Type: "
        "application/json\r\nContent-Length: 2\r\n\r\n{}";
    for (std::size_t size = 0; size < whole.size(); ++size) {
        RawClient(server->port()).send(whole.substr(0, size));
    }
    EXPECT_EQ(starts, 0);
    RawClient client(server->port());
    client.send(whole);
    EXPECT_THAT(client.readUntil("{}"), StartsWith("HTTP/1.1 200"));
    EXPECT_EQ(starts, 1);
}

TEST_F(ServerTest, EventsReachTheirReaderAsTheyCome)
{
    const auto server = serve();
    RawClient client(server->port());
    client.send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_THAT(client.readUntil("event: snapshot\ndata: {}\n\n"),
                AllOf(HasSubstr("Content-Type: text/event-stream\r\n"), HasSubstr("retry: 500\n\n")));

    events.publish("step", "1");
    const std::string first = client.readUntil("data: 1\n\n");
    events.publish("step", "2");
    EXPECT_THAT(client.readUntil("data: 2\n\n"), HasSubstr("event: step\n"));

    const auto at = first.find("id: ") + 4;
    RawClient again(server->port());
    again.send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: " +
               first.substr(at, first.find('\n', at) - at) + "\r\n\r\n");
    EXPECT_THAT(again.readUntil("data: 2\n\n"), AllOf(HasSubstr("event: step\n"), Not(HasSubstr("snapshot"))));
}

TEST_F(ServerTest, QuietStreamHasAHeartbeat)
{
    settings.heartbeat = 1s;
    const auto server = serve();
    RawClient client(server->port());
    client.send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    client.readUntil("data: {}\n\n");

    EXPECT_THAT(client.readUntil("\n:\n"), HasSubstr(":\n"));
}

TEST_F(ServerTest, ManyStreamsGetEachEventWhileOneDoesNotRead)
{
    const auto server = serve();
    const std::string request = "GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n";
    RawClient lazy(server->port());
    lazy.send(request);
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(std::make_unique<RawClient>(server->port()));
        clients.back()->send(request);
        clients.back()->readUntil("data: {}\n\n");
    }

    for (int i = 0; i < 200; ++i) {
        events.publish("step", std::to_string(i) + std::string(10'000, ' '));
        const std::string data = "data: " + std::to_string(i) + ' ';
        for (const auto& client : clients) {
            ASSERT_THAT(client->readUntil(data), HasSubstr(data));
        }
    }
    events.publish("step", "last");
    EXPECT_THAT(lazy.readUntil("data: last"), HasSubstr("event: snapshot\n")) << "what was too old is left out";
}

TEST_F(ServerTest, HandlersWorkWhileOthersWait)
{
    settings.workers = 2;
    const auto server = serve();
    Reply slow;
    std::thread waiter([&] { slow = Browser(server->url()).post("/api/v1/wait", "{}"); });
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, kGenerous, [this] { return waiting == 1; }));
    }

    EXPECT_EQ(Browser(server->url()).get("/").status, 200);

    {
        const std::lock_guard lock(mutex);
        released = true;
    }
    changed.notify_all();
    waiter.join();
    EXPECT_EQ(slow.body, "done");
}

TEST_F(ServerTest, EndsWhileStreamsAreOpenAndHandlersWork)
{
    settings.workers = 1;
    auto server = serve();
    RawClient stream(server->port());
    stream.send("GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    stream.readUntil("data: {}\n\n");
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 10; ++i) {
        clients.push_back(std::make_unique<RawClient>(server->port()));
        clients.back()->send(
            "POST /api/v1/wait HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
            "Content-Length: 2\r\n\r\n{}");
    }
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, kGenerous, [this] { return waiting == 1; }));
        released = true;
    }
    changed.notify_all();
    std::atomic<bool> isOver = false;
    std::thread publisher([&] {
        while (!isOver) {
            events.publish("step", "1");
        }
    });

    server.reset();

    isOver = true;
    publisher.join();
    EXPECT_THAT(stream.readUntil("never"), Not(HasSubstr("never")));
}

TEST_F(ServerTest, RefusesANetworkWithoutTlsAndLogin)
{
    settings.address = "0.0.0.0";
    const auto reason = [this](Login& login) -> std::string {
        try {
            serve(login);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    };

    EXPECT_EQ(reason(people()), "0.0.0.0: expected a certificate for an address that others can reach, got none");
    settings.certificate = "x";
    EXPECT_EQ(reason(anyone()), "0.0.0.0: expected users who log in for an address that others can reach, got none");
    EXPECT_EQ(reason(people()), "expected a certificate and its key in PEM, which belong together");
    settings.address = "localhost";
    EXPECT_EQ(reason(people()), "expected a numeric address such as 127.0.0.1 or ::1, got 'localhost'");
}

TEST_F(ServerTest, PortThatIsTakenIsNamed)
{
    const auto server = serve();
    settings.port = server->port();

    try {
        serve();
        ADD_FAILURE() << "expected an error";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  "127.0.0.1 port " + std::to_string(settings.port) + ": Address already in use");
    }
}

TEST_F(ServerTest, ServesANetworkByTlsWithASecureCookie)
{
    const tests::TempDir directory;
    const std::string file = directory.path() / "web";
    ASSERT_EQ(std::system(("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj "
                           "/CN=station -addext subjectAltName=IP:127.0.0.1 -keyout " +
                           file + ".key -out " + file + ".pem 2>/dev/null")
                              .c_str()),
              0);
    const auto text = [&file](const char* ending) {
        std::ostringstream all;
        all << std::ifstream(file + ending).rdbuf();
        return all.str();
    };
    settings.address = "0.0.0.0";
    settings.certificate = text(".pem");
    settings.key = text(".key");
    const auto server = serve(people());
    Browser browser("https://127.0.0.1:" + std::to_string(server->port()));
    curl_easy_setopt(browser.handle(), CURLOPT_CAINFO, (file + ".pem").c_str());

    const Reply entered = browser.post("/api/v1/login", R"({"name":"anna","password":"blue"})");

    EXPECT_EQ(entered.status, 200) << curl_easy_strerror(entered.error);
    EXPECT_THAT(entered.headers, HasSubstr("; Secure\r\n"));
    EXPECT_EQ(browser.get("/api/v1/echo/a").status, 200);
    curl_easy_setopt(browser.handle(), CURLOPT_SSLVERSION,
                     static_cast<long>(CURL_SSLVERSION_TLSv1_1) | static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_1));
    curl_easy_setopt(browser.handle(), CURLOPT_FRESH_CONNECT, 1L);
    EXPECT_NE(browser.get("/").error, CURLE_OK) << "an old version of TLS";
    RawClient plain(server->port());
    plain.send("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_THAT(plain.readUntil("never"), Not(HasSubstr("200")));
}

TEST_F(ServerTest, ServesASocketThatIsListeningAlready)
{
    host::Descriptor listener(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        GTEST_SKIP() << "this machine has no IPv6";
    }
    ASSERT_EQ(listen(listener.get(), 5), 0);
    settings.socket = listener.release();

    const auto server = serve();

    EXPECT_THAT(server->url(), StartsWith("http://[::1]:"));
    EXPECT_EQ(Browser(server->url()).get("/").body, "page");
}

}  // namespace
}  // namespace web
