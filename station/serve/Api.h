#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "station/serve/Slots.h"
#include "web/Server.h"

namespace station::serve {

/// The station's pages and its HTTP interface, docs/station-api.md. Outlives the server.
class Api
{
public:
    Api(Slots& slots, web::Events& events) : slots_(slots), events_(events) {}
    Api(const Api&) = delete;
    Api& operator=(const Api&) = delete;

    std::vector<web::Route> routes();

private:
    /// Carries a command out once: a request with an identifier that came before gets the same answer.
    web::Response command(const web::Request& request, const std::function<Json(const Json& body)>& act);

    Slots& slots_;
    web::Events& events_;
    std::mutex mutex_;
    std::deque<std::pair<std::string, web::Response>> answered_;  // guarded by mutex_; the newest last
};

}  // namespace station::serve
