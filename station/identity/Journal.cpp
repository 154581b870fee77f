#include "station/identity/Journal.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

namespace station::identity {

namespace {

using nlohmann::ordered_json;

ordered_json valueOf(const Stored& stored)
{
    return stored.present ? ordered_json(stored.value) : ordered_json(nullptr);
}

const std::string& withFolder(const std::string& path)
{
    std::error_code error;  // opening the file fails, too
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    return path;
}

}  // namespace

Journal::Journal(const std::string& path, std::string port)
    : file_(withFolder(path), O_RDWR | O_APPEND | O_CREAT, 0600, protocol::kNotRecorded), port_(std::move(port))
{
}

void Journal::note(const std::string& unit, const Done& done, const std::string& waived)
{
    ordered_json line{{"port", port_},
                      {"unit", unit},
                      {"record", done.record->name},
                      {"old", valueOf(done.before)},
                      {"new", done.wanted},
                      {"read", valueOf(done.after)},
                      {"result", name(done.result)}};
    if (!waived.empty()) {
        line["waived"] = waived;
    }
    append(line);
}

void Journal::noteEnd(const std::string& unit, const std::string& why)
{
    append({{"port", port_}, {"unit", unit}, {"result", "ended"}, {"reason", why}});
}

void Journal::append(const ordered_json& line)
{
    try {
        file_.append(line);
    } catch (const protocol::StorageError& error) {
        trouble_ = error.what();
    }
}

}  // namespace station::identity
