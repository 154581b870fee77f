#include "station/serve/Api.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "EmbeddedFiles.h"
#include "protocol/Text.h"
#include "station/plan/Load.h"

namespace station::serve {

namespace {

/// Answers to commands that are kept for a browser that repeats one.
constexpr std::size_t kAnswered = 256;
constexpr std::size_t kLongestIdentifier = 64;

std::string typeOf(std::string_view name)
{
    constexpr std::array<std::pair<std::string_view, const char*>, 7> kTypes{{{".html", "text/html; charset=utf-8"},
                                                                              {".css", "text/css; charset=utf-8"},
                                                                              {".js", "text/javascript; charset=utf-8"},
                                                                              {".json", "application/json"},
                                                                              {".svg", "image/svg+xml"},
                                                                              {".png", "image/png"},
                                                                              {".jpg", "image/jpeg"}}};
    const auto* found = std::ranges::find_if(kTypes, [name](const auto& type) { return name.ends_with(type.first); });
    return found == kTypes.end() ? "application/octet-stream" : found->second;
}

/// @returns the text of a key. Throws Refused.
std::string textOf(const Json& body, const char* key)
{
    if (!body.contains(key) || !body[key].is_string()) {
        throw Refused(400, fmt::format("expected a text '{}', got none", key));
    }
    return body[key].get<std::string>();
}

std::string dump(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

web::Response Api::command(const web::Request& request, const std::function<Json(const Json& body)>& act)
{
    const Json body = Json::parse(request.body, nullptr, false);
    const std::string id = body.is_object() && body.contains("request") && body["request"].is_string()
                               ? body["request"].get<std::string>()
                               : "";
    if (id.empty() || id.size() > kLongestIdentifier) {
        return web::refusal(400, fmt::format("expected an object with a 'request' of 1 to {} bytes, its own for each "
                                             "command",
                                             kLongestIdentifier));
    }
    const std::string key = fmt::format("{} {} {}", request.user.name, request.path, id);
    const std::lock_guard lock(mutex_);
    const auto before = std::ranges::find(answered_, key, [](const auto& each) { return each.first; });
    if (before != answered_.end()) {
        return before->second;
    }
    web::Response response;
    try {
        response.body = dump(act(body));
    } catch (const Refused& refused) {
        response = web::refusal(refused.status(), refused.what());
    }
    answered_.emplace_back(key, response);
    if (answered_.size() > kAnswered) {
        answered_.pop_front();
    }
    return response;
}

std::vector<web::Route> Api::routes()
{
    using web::Request;
    using web::Response;
    using web::Role;
    std::vector<web::Route> routes;
    for (const page::File& file : page::kFiles) {
        const std::string path = file.name == "index.html" ? "/" : fmt::format("/{}", file.name);
        routes.push_back({"GET", path, Role::kNone, [&file](const Request&) {
                              return Response{200, std::string(file.content), typeOf(file.name)};
                          }});
    }
    routes.push_back(
        {"GET", "/api/v1/events", Role::kViewer, [this](const Request&) { return Response{.events = &events_}; }});
    routes.push_back({"GET", "/api/v1/station", Role::kViewer, [this](const Request&) {
                          return Response{200, dump(slots_.snapshot())};
                      }});
    routes.push_back({"GET", "/api/v1/questions/{question}/image", Role::kViewer, [this](const Request& request) {
                          try {
                              const std::string path = slots_.image(request.parts.at("question"));
                              return Response{200, plan::readFile(path), typeOf(path)};
                          } catch (const Refused& refused) {
                              return web::refusal(refused.status(), refused.what());
                          }
                      }});
    const auto addCommand = [&](const char* path, std::function<Json(const Request&, const Json&)> act) {
        routes.push_back({"POST", path, Role::kOperator, [this, act = std::move(act)](const Request& request) {
                              return command(request, [&](const Json& body) { return act(request, body); });
                          }});
    };
    addCommand("/api/v1/scan", [this](const Request& request, const Json& body) {
        return slots_.scan(textOf(body, "text"), request.user.name);
    });
    addCommand("/api/v1/slots/{slot}/start", [this](const Request& request, const Json& body) {
        const std::string& slot = request.parts.at("slot");
        slots_.start(slot, textOf(body, "serial"), request.user.name);
        return Json{{"started", slot}};
    });
    addCommand("/api/v1/slots/{slot}/abort", [this](const Request& request, const Json&) {
        const std::string& slot = request.parts.at("slot");
        slots_.abort(slot);
        return Json{{"ending", slot}};
    });
    addCommand("/api/v1/answers", [this](const Request&, const Json& body) {
        const std::string question = textOf(body, "question");
        slots_.answer(question, textOf(body, "answer"));
        return Json{{"answered", question}};
    });
    return routes;
}

}  // namespace station::serve
