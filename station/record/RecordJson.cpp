#include "station/record/RecordJson.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <utility>

#include "protocol/catalogue/HexBytes.h"
#include "station/record/FrameText.h"
#include "station/record/RecordReader.h"

namespace station::record {

namespace {

using Json = nlohmann::ordered_json;
using protocol::catalogue::formatHexBytes;
using protocol::catalogue::Groups;
using SystemTime = std::chrono::system_clock::time_point;

/// More than any run fills, and less than what a file that is no record may cost.
constexpr std::uintmax_t kLargestRecord = 1U << 29;

/// Up to here a double holds every whole number.
constexpr double kWholeLimit = 9007199254740992.0;

constexpr std::array kKinds{
    std::pair{TraceEvent::Kind::kSent, "sent"},       std::pair{TraceEvent::Kind::kReceived, "received"},
    std::pair{TraceEvent::Kind::kCorrupt, "corrupt"}, std::pair{TraceEvent::Kind::kLost, "lost"},
    std::pair{TraceEvent::Kind::kBack, "back"},
};

constexpr std::array kVerdicts{Verdict::kPass,    Verdict::kFail,    Verdict::kError,
                               Verdict::kTimeout, Verdict::kAborted, Verdict::kSkipped};

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

std::chrono::nanoseconds nanoseconds(double seconds)
{
    return std::chrono::nanoseconds(std::llround(seconds * 1e9));
}

Json time(SystemTime at)
{
    if (at == SystemTime{}) {
        return nullptr;
    }
    const auto whole = std::chrono::floor<std::chrono::seconds>(at);
    const std::time_t count = whole.time_since_epoch().count();
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(at - whole).count();
    std::tm parts{};
    gmtime_r(&count, &parts);
    std::array<char, 64> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%s.%09ldZ", date.data(), static_cast<long>(rest));
    return text.data();
}

Json value(const Scalar& scalar)
{
    if (const auto* plain = std::get_if<double>(&scalar)) {
        return number(*plain);
    }
    if (const auto* yes = std::get_if<bool>(&scalar)) {
        return *yes;
    }
    return std::get<std::string>(scalar);
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

Json events(const std::vector<TraceEvent>& trace, Groups groups)
{
    Json json = Json::array();
    const std::vector<std::string> meanings = meaningOf(trace, groups);
    for (std::size_t i = 0; i < trace.size(); ++i) {
        const TraceEvent& event = trace[i];
        Json row{{"kind", name(event.kind)},
                 {"at", time(event.at)},
                 {"monotonic_s", seconds(event.steady.time_since_epoch())}};
        if (hasFrame(event.kind)) {
            row["cmd_one"] = hex(event.frame.cmdOne);
            row["cmd_two"] = hex(event.frame.cmdTwo);
            row["params"] = formatHexBytes(event.frame.params);
            row["decoded"] = meanings[i];
        }
        if (!event.bytes.empty()) {
            row["bytes"] = formatHexBytes(event.bytes);
        }
        if (!event.text.empty()) {
            row["text"] = event.text;
        }
        json.push_back(std::move(row));
    }
    return json;
}

Json attempt(const Attempt& one, Groups catalogue)
{
    Json measurements = Json::array();
    for (const Measurement& measurement : one.measurements) {
        measurements.push_back({{"name", measurement.name},
                                {"value", value(measurement.value)},
                                {"unit", measurement.unit},
                                {"limits", limits(measurement.limits)},
                                {"passed", measurement.passed}});
    }
    return {{"started", time(one.started)},
            {"duration_s", seconds(one.duration)},
            {"wire_s", seconds(one.wireTime)},
            {"verdict", name(one.verdict)},
            {"reason", one.reason},
            {"measurements", std::move(measurements)},
            {"frames", events(one.frames, catalogue)}};
}

Json step(const Step& one, Groups catalogue)
{
    Json attempts = Json::array();
    for (const Attempt& each : one.attempts) {
        attempts.push_back(attempt(each, catalogue));
    }
    return {{"name", one.name},     {"kind", one.kind},
            {"what", one.what},     {"verdict", name(one.verdict)},
            {"reason", one.reason}, {"attempts", std::move(attempts)}};
}

Json group(const Group& one, Groups catalogue)
{
    Json tries = Json::array();
    for (const Group::Try& each : one.tries) {
        Json steps = Json::array();
        for (const Step& inner : each.steps) {
            steps.push_back(step(inner, catalogue));
        }
        tries.push_back({{"verdict", name(each.verdict)}, {"steps", std::move(steps)}});
    }
    return {{"name", one.name}, {"verdict", name(one.verdict)}, {"tries", std::move(tries)}};
}

Json phase(const Phase& one, Groups catalogue)
{
    Json groups = Json::array();
    for (const Group& each : one.groups) {
        groups.push_back(group(each, catalogue));
    }
    return {{"name", one.name}, {"verdict", name(one.verdict)}, {"reason", one.reason}, {"groups", std::move(groups)}};
}

// Reading.

Verdict readVerdict(const RecordReader& reader)
{
    const std::string text = reader.text();
    for (const Verdict verdict : kVerdicts) {
        if (text == name(verdict)) {
            return verdict;
        }
    }
    reader.fail("PASS, FAIL, ERROR, TIMEOUT, ABORTED or SKIPPED was expected");
}

SystemTime readTime(const RecordReader& reader)
{
    if (reader.isNull()) {
        return {};
    }
    const std::string text = reader.text();
    std::tm parts{};
    const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::int64_t fraction = 0;
    if (rest != nullptr && *rest == '.') {
        const char* digits = rest + 1;
        const char* end = text.data() + text.size();
        const auto result = std::from_chars(digits, end, fraction);
        const auto count = result.ptr - digits;
        rest = result.ec == std::errc() && count <= 9 && *digits != '-' ? result.ptr : nullptr;
        for (auto i = count; i < 9; ++i) {
            fraction *= 10;
        }
    }
    if (rest == nullptr || std::strcmp(rest, "Z") != 0) {
        reader.fail("a time such as 2026-11-21T14:05:08.123Z was expected");
    }
    // Far below what nanoseconds in 64 bits reach, in either direction.
    if (parts.tm_year < 0 || parts.tm_year > 300) {
        reader.fail("a year from 1900 to 2200 was expected");
    }
    return SystemTime(std::chrono::seconds(timegm(&parts))) + std::chrono::nanoseconds(fraction);
}

std::chrono::nanoseconds readDuration(const RecordReader& reader)
{
    constexpr double kLongest = 9e9;
    const double duration = reader.number();
    if (!(std::abs(duration) < kLongest)) {
        reader.fail("a number of seconds was expected");
    }
    return nanoseconds(duration);
}

Limits readLimits(const RecordReader& reader)
{
    Limits demanded;
    if (const auto minimum = reader.find("minimum")) {
        demanded.minimum = minimum->number();
    }
    if (const auto maximum = reader.find("maximum")) {
        demanded.maximum = maximum->number();
    }
    if (const auto equals = reader.find("equals")) {
        demanded.equals = equals->scalar();
    }
    if (const auto matches = reader.find("matches")) {
        demanded.matches = matches->text();
    }
    return demanded;
}

TraceEvent readEvent(const RecordReader& reader)
{
    TraceEvent event;
    const RecordReader kind = reader.at("kind");
    const std::string word = kind.text();
    const auto* row =
        std::find_if(kKinds.begin(), kKinds.end(), [&word](const auto& each) { return each.second == word; });
    if (row == kKinds.end()) {
        kind.fail("sent, received, corrupt, lost or back was expected");
    }
    event.kind = row->first;
    event.at = readTime(reader.at("at"));
    event.steady = std::chrono::steady_clock::time_point(readDuration(reader.at("monotonic_s")));
    if (hasFrame(event.kind)) {
        event.frame.cmdOne = reader.at("cmd_one").byte();
        event.frame.cmdTwo = reader.at("cmd_two").byte();
        event.frame.params = reader.at("params").bytes();
    }
    if (const auto bytes = reader.find("bytes")) {
        event.bytes = bytes->bytes();
    }
    if (const auto text = reader.find("text")) {
        event.text = text->text();
    }
    return event;
}

Measurement readMeasurement(const RecordReader& reader)
{
    return {reader.at("name").text(), reader.at("value").scalar(), reader.at("unit").text(),
            readLimits(reader.at("limits")), reader.at("passed").yes()};
}

Attempt readAttempt(const RecordReader& reader)
{
    return {readTime(reader.at("started")),     readDuration(reader.at("duration_s")),
            readDuration(reader.at("wire_s")),  readVerdict(reader.at("verdict")),
            reader.at("reason").text(),         reader.at("measurements").each(readMeasurement),
            reader.at("frames").each(readEvent)};
}

Step readStep(const RecordReader& reader)
{
    return {reader.at("name").text(),          reader.at("kind").text(),   reader.at("what").text(),
            readVerdict(reader.at("verdict")), reader.at("reason").text(), reader.at("attempts").each(readAttempt)};
}

Group::Try readTry(const RecordReader& reader)
{
    return {readVerdict(reader.at("verdict")), reader.at("steps").each(readStep)};
}

Group readGroup(const RecordReader& reader)
{
    return {reader.at("name").text(), readVerdict(reader.at("verdict")), reader.at("tries").each(readTry)};
}

Phase readPhase(const RecordReader& reader)
{
    return {reader.at("name").text(), readVerdict(reader.at("verdict")), reader.at("reason").text(),
            reader.at("groups").each(readGroup)};
}

}  // namespace

const char* name(TraceEvent::Kind kind)
{
    return kKinds.at(static_cast<std::size_t>(kind)).second;
}

nlohmann::ordered_json toJson(const Run& run, Groups groups)
{
    Json phases = Json::array();
    for (const Phase& each : run.phases) {
        phases.push_back(phase(each, groups));
    }
    return {
        {"schema", Run::kSchema},
        {"id", run.id},
        {"started", time(run.started)},
        {"ended", time(run.ended)},
        {"verdict", name(run.verdict)},
        {"reason", run.reason},
        {"unit", {{"serial", run.unit.serial}, {"port", run.unit.port}, {"baud", run.unit.baud}}},
        {"station",
         {{"host", run.station.host}, {"operator", run.station.operatorName}, {"version", run.station.version}}},
        {"plan",
         {{"name", run.plan.name}, {"title", run.plan.title}, {"path", run.plan.path}, {"sha256", run.plan.sha256}}},
        {"catalogue", {{"sha256", run.catalogueSha256}}},
        {"phases", std::move(phases)},
        {"trace", events(run.trace, groups)}};
}

std::string serialise(const nlohmann::ordered_json& json)
{
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + '\n';
}

Run fromJson(const nlohmann::ordered_json& json)
{
    const RecordReader reader(json, "");
    if (const RecordReader schema = reader.at("schema"); schema.number() != Run::kSchema) {
        schema.fail("this program reads schema " + std::to_string(Run::kSchema) + " only");
    }
    Run run;
    run.id = reader.at("id").text();
    run.started = readTime(reader.at("started"));
    run.ended = readTime(reader.at("ended"));
    run.verdict = readVerdict(reader.at("verdict"));
    run.reason = reader.at("reason").text();
    const RecordReader unit = reader.at("unit");
    run.unit = {unit.at("serial").text(), unit.at("port").text(), unit.at("baud").whole()};
    const RecordReader station = reader.at("station");
    run.station = {station.at("host").text(), station.at("operator").text(), station.at("version").text()};
    const RecordReader plan = reader.at("plan");
    run.plan = {plan.at("name").text(), plan.at("title").text(), plan.at("path").text(), plan.at("sha256").text()};
    run.catalogueSha256 = reader.at("catalogue").at("sha256").text();
    run.phases = reader.at("phases").each(readPhase);
    run.trace = reader.at("trace").each(readEvent);
    return run;
}

Run parseRun(std::string_view text)
{
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: …": what stands in brackets is noise.
        const std::string_view what = error.what();
        const std::size_t end = what.find("] ");
        throw RecordError(std::string(end == std::string_view::npos ? what : what.substr(end + 2)));
    }
    return fromJson(json);
}

Run readRun(const std::filesystem::path& path)
{
    const auto fail = [&path](const std::string& what) { throw RecordError(path.string() + ": " + what); };
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        fail(error ? error.message() : "this is no file");
    }
    if (std::filesystem::file_size(path, error) > kLargestRecord || error) {
        fail(error ? error.message() : "this is larger than any record");
    }
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        fail(std::strerror(errno));
    }
    try {
        return parseRun(text);
    } catch (const RecordError& broken) {
        throw RecordError(path.string() + ": " + broken.what());
    }
}

}  // namespace station::record
