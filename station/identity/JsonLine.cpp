#include "station/identity/JsonLine.h"

#include <chrono>

#include "protocol/Text.h"
#include "station/ClockText.h"

namespace station::identity {

namespace {

/// Of every line of a ledger and of a journal.
constexpr int kSchema = 1;

}  // namespace

std::string jsonLine(const nlohmann::ordered_json& object)
{
    nlohmann::ordered_json line{{"schema", kSchema}, {"time", isoUtc(std::chrono::system_clock::now(), 6)}};
    line.update(object);
    return protocol::printableJson(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)) + "\n";
}

}  // namespace station::identity
