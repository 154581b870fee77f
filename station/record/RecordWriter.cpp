#include "station/record/RecordJson.h"

#include <cmath>

#include "protocol/catalogue/HexBytes.h"
#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

using Json = nlohmann::ordered_json;
using protocol::catalogue::formatHexBytes;
using SystemTime = std::chrono::system_clock::time_point;

/// Up to here a double holds every whole number.
constexpr double kWholeLimit = 9007199254740992.0;

Json number(double value)
{
    if (value == std::trunc(value) && std::abs(value) < kWholeLimit && !(value == 0 && std::signbit(value))) {
        return static_cast<std::int64_t>(value);
    }
    return value;
}

Json seconds(std::chrono::nanoseconds duration)
{
    return number(static_cast<double>(duration.count()) / 1e9);
}

Json time(SystemTime at)
{
    return at == SystemTime{} ? Json() : Json(isoText(at));
}

Json value(const Scalar& scalar)
{
    const auto* plain = std::get_if<double>(&scalar);
    return plain != nullptr ? number(*plain) : std::visit([](const auto& other) { return Json(other); }, scalar);
}

Json limits(const Limits& demanded)
{
    Json json = Json::object();
    if (demanded.minimum) {
        json["minimum"] = number(*demanded.minimum);
    }
    if (demanded.maximum) {
        json["maximum"] = number(*demanded.maximum);
    }
    if (demanded.equals) {
        json["equals"] = value(*demanded.equals);
    }
    if (demanded.matches) {
        json["matches"] = *demanded.matches;
    }
    return json;
}

std::string hex(std::uint8_t byte)
{
    return formatHexBytes({&byte, 1});
}

Json events(const Events& all, EventRange range, Groups groups)
{
    Json json = Json::array();
    for (const EventLine& line : linesOf(all, range, groups)) {
        if (line.event == nullptr) {
            continue;
        }
        const TraceEvent& event = *line.event;
        Json row{{"kind", name(event.kind)},
                 {"at", time(event.at)},
                 {"monotonic_s", seconds(event.steady.time_since_epoch())}};
        if (hasFrame(event.kind)) {
            row["cmd_one"] = hex(event.frame.cmdOne);
            row["cmd_two"] = hex(event.frame.cmdTwo);
            row["params"] = formatHexBytes(event.frame.params);
            row["decoded"] = line.meaning;
        }
        if (!event.bytes.empty()) {
            row["bytes"] = formatHexBytes(event.bytes);
        }
        if (!event.text.empty()) {
            row["text"] = event.text;
        }
        if (event.masked) {
            row["masked"] = true;
        }
        json.push_back(std::move(row));
    }
    return json;
}

/// Puts a run into JSON.
class JsonWriter
{
public:
    JsonWriter(const Run& run, Groups groups) : run_(run), groups_(groups) {}

    Json write() const
    {
        const Headline headline = headlineOf(run_);
        Json json{{"schema", Run::kSchema},
                  {"id", run_.id},
                  {"uuid", run_.uuid},
                  {"started", time(run_.started)},
                  {"ended", time(run_.ended)},
                  {"verdict", name(headline.verdict)},
                  {"reason", headline.reason},
                  {"beside", headline.beside},
                  {"findings", list(run_.findings, finding)},
                  {"line",
                   {{"losses", run_.line.losses},
                    {"reconnects", run_.line.reconnects},
                    {"repeated_sends", run_.line.repeatedSends},
                    {"corrupt_frames", run_.line.corruptFrames},
                    {"garbage_bytes", run_.line.garbageBytes}}},
                  {"unit", {{"serial", run_.unit.serial}, {"port", run_.unit.port}, {"baud", run_.unit.baud}}},
                  {"station",
                   {{"host", run_.station.host},
                    {"operator", run_.station.operatorName},
                    {"version", run_.station.version},
                    {"line", run_.station.line}}},
                  {"plan",
                   {{"name", run_.plan.name},
                    {"title", run_.plan.title},
                    {"path", run_.plan.path},
                    {"sha256", run_.plan.sha256}}},
                  {"catalogue", {{"sha256", run_.catalogueSha256}}},
                  {"phases", list(run_.phases, [this](const Phase& each) { return phase(each); })},
                  {"trace", record::events(run_.events, {0, run_.events.next()}, groups_)}};
        if (run_.events.kept().size() < run_.events.next()) {
            json["numbers"] = list(run_.events.kept(), [](const auto& each) -> Json { return each.first; });
        }
        return json;
    }

private:
    template <class List, class Write>
    static Json list(const List& items, Write write)
    {
        Json json = Json::array();
        for (const auto& each : items) {
            json.push_back(write(each));
        }
        return json;
    }

    static Json finding(const Finding& one) { return {{"verdict", name(one.verdict)}, {"text", one.text}}; }

    static Json measurement(const Measurement& one)
    {
        return {{"name", one.name},
                {"value", value(one.value)},
                {"unit", one.unit},
                {"limits", limits(one.limits)},
                {"passed", one.passed}};
    }

    Json attempt(const Attempt& one) const
    {
        return {{"started", time(one.started)},
                {"duration_s", seconds(one.duration)},
                {"wire_s", seconds(one.wireTime)},
                {"verdict", name(one.verdict)},
                {"reason", one.reason},
                {"superseded", one.superseded},
                {"measurements", list(one.measurements, measurement)},
                {"events", {one.events.begin, one.events.end}},
                {"frames", record::events(run_.events, one.events, groups_)}};
    }

    Json step(const Step& one) const
    {
        return {{"name", one.name},
                {"kind", one.kind},
                {"what", one.what},
                {"verdict", name(verdictOf(one))},
                {"reason", reasonOf(one)},
                {"attempts", list(one.attempts, [this](const Attempt& each) { return attempt(each); })}};
    }

    Json group(const Group& one) const
    {
        const auto write = [this](const Group::Try& each) -> Json {
            return {{"verdict", name(verdictOf(each))},
                    {"superseded", each.superseded},
                    {"steps", list(each.steps, [this](const Step& inner) { return step(inner); })}};
        };
        return {{"name", one.name}, {"verdict", name(verdictOf(one))}, {"tries", list(one.tries, write)}};
    }

    Json phase(const Phase& one) const
    {
        return {{"name", one.name},
                {"verdict", name(verdictOf(one))},
                {"reason", reasonOf(one)},
                {"groups", list(one.groups, [this](const Group& each) { return group(each); })}};
    }

    const Run& run_;
    Groups groups_;
};

}  // namespace

nlohmann::ordered_json toJson(const Run& run, Groups groups)
{
    return JsonWriter(run, groups).write();
}

std::string serialise(const nlohmann::ordered_json& json)
{
    return protocol::printableJson(json.dump(1, ' ', false, Json::error_handler_t::replace)) + '\n';
}

std::string jsonReport(const Run& run, Groups groups)
{
    return serialise(toJson(run, groups));
}

}  // namespace station::record
