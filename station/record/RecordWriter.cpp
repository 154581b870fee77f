#include "station/record/RecordJson.h"

#include <cmath>
#include <ostream>

#include "protocol/catalogue/HexBytes.h"
#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

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

/// @returns the event, whose kind has the key `kind`.
Json event(const char* kind, const TraceEvent& event, const std::string& meaning)
{
    Json row{
        {kind, name(event.kind)}, {"at", time(event.at)}, {"monotonic_s", seconds(event.steady.time_since_epoch())}};
    if (hasFrame(event.kind)) {
        row["cmd_one"] = hex(event.frame.cmdOne);
        row["cmd_two"] = hex(event.frame.cmdTwo);
        row["params"] = formatHexBytes(event.frame.params);
        row["decoded"] = meaning;
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
    return row;
}

Json events(const Events& all, EventRange range, Groups groups)
{
    Json json = Json::array();
    for (const EventLine& line : linesOf(all, range, groups)) {
        if (line.event != nullptr) {
            json.push_back(event("kind", *line.event, line.meaning));
        }
    }
    return json;
}

template <class List, class Write>
Json list(const List& items, Write write)
{
    Json json = Json::array();
    for (const auto& each : items) {
        json.push_back(write(each));
    }
    return json;
}

Json finding(const Finding& one)
{
    return {{"verdict", name(one.verdict)}, {"text", one.text}};
}

Json quality(const LineQuality& line)
{
    return {{"losses", line.losses},
            {"reconnects", line.reconnects},
            {"repeated_sends", line.repeatedSends},
            {"corrupt_frames", line.corruptFrames},
            {"garbage_bytes", line.garbageBytes}};
}

Json measurement(const Measurement& one)
{
    return {{"name", one.name},
            {"value", value(one.value)},
            {"unit", one.unit},
            {"limits", limits(one.limits)},
            {"passed", one.passed}};
}

Json detail(const Detail& one)
{
    return {{"name", one.name}, {"text", one.text}};
}

Json attempt(const Attempt& one)
{
    Json json{{"started", time(one.started)},
              {"duration_s", seconds(one.duration)},
              {"wire_s", seconds(one.wireTime)},
              {"verdict", name(one.verdict)},
              {"reason", one.reason},
              {"superseded", one.superseded},
              {"measurements", list(one.measurements, measurement)},
              {"events", {one.events.begin, one.events.end}}};
    if (!one.details.empty()) {
        json["details"] = list(one.details, detail);
    }
    return json;
}

Json parameters(const Run& run)
{
    return list(run.plan.parameters, [](const Run::Parameter& each) -> Json {
        return {{"name", each.name}, {"value", value(each.value)}, {"unit", each.unit}, {"from", each.from}};
    });
}

Json tally(const Tally& counts)
{
    Json json = Json::object();
    for (const auto& [verdict, number] : counts) {
        json[name(verdict)] = number;
    }
    return json;
}

Json statistic(const RepeatedMeasurement& one)
{
    Json json{{"step", one.step},   {"name", one.name},    {"unit", one.unit}, {"limits", limits(one.limits)},
              {"count", one.count}, {"missed", one.missed}};
    if (one.numbers.count > 0) {
        json["numbers"] = one.numbers.count;
        json["minimum"] = number(one.numbers.minimum);
        json["mean"] = number(one.numbers.mean);
        json["maximum"] = number(one.numbers.maximum);
        json["sigma"] = number(one.numbers.sigma());
    }
    return json;
}

Json rounds(const Rounds& all, const std::vector<std::size_t>& numbers)
{
    Json json{{"tries", all.tries},
              {"counted", all.counted},
              {"failed", all.failed},
              {"verdict", name(all.verdict)},
              {"steps", tally(all.steps)},
              {"repeated", all.repeated},
              {"measurements", list(all.measurements, statistic)},
              {"timeline",
               {{"start", time(all.timeline.start)},
                {"width_s", seconds(all.timeline.width)},
                {"intervals", list(all.timeline.intervals, [](const Timeline::Interval& each) -> Json {
                     return {{"rounds", each.rounds}, {"failed", each.failed}};
                 })}}}};
    if (!numbers.empty()) {
        json["numbers"] = numbers;
    }
    return json;
}

/// Writes JSON piece by piece, because a record may be large.
class JsonStream
{
public:
    JsonStream(std::ostream& out, int indent) : out_(out), indent_(indent) {}

    void open(char bracket)
    {
        out_ << bracket;
        empty_.push_back(true);
    }

    void close(char bracket)
    {
        const bool empty = empty_.back();
        empty_.pop_back();
        if (!empty) {
            newLine();
        }
        out_ << bracket;
    }

    /// A key, or a value of an array, follows.
    void next()
    {
        out_ << (empty_.back() ? "" : ",");
        empty_.back() = false;
        newLine();
    }

    void key(const std::string& name)
    {
        next();
        out_ << '"' << name << (indent_ < 0 ? "\":" : "\": ");
    }

    void value(const Json& json)
    {
        const std::string text =
            protocol::printableJson(json.dump(indent_, ' ', false, Json::error_handler_t::replace));
        for (const char c : text) {
            out_ << c;
            if (c == '\n') {
                margin();
            }
        }
    }

    /// Writes the keys and values of an object into the open one.
    void keys(const Json& object)
    {
        for (const auto& [name, each] : object.items()) {
            key(name);
            value(each);
        }
    }

    template <class List, class Write>
    void array(const std::string& name, const List& items, Write write)
    {
        key(name);
        open('[');
        for (const auto& each : items) {
            next();
            write(each);
        }
        close(']');
    }

private:
    void newLine()
    {
        if (indent_ >= 0) {
            out_ << '\n';
            margin();
        }
    }

    void margin() { out_ << std::string(empty_.size() * static_cast<std::size_t>(indent_), ' '); }

    std::ostream& out_;
    const int indent_;
    std::vector<bool> empty_;  // of each open bracket: whether nothing stands in it yet
};

/// Puts a run into JSON.
class JsonWriter
{
public:
    JsonWriter(std::ostream& out, int indent, const Run& run, Groups groups)
        : run_(run), groups_(groups), stream_(out, indent)
    {
    }

    void write()
    {
        const Headline headline = headlineOf(run_);
        stream_.open('{');
        stream_.keys({{"schema", kSchema},
                      {"id", run_.id},
                      {"uuid", run_.uuid},
                      {"started", time(run_.started)},
                      {"ended", time(run_.ended)},
                      {"verdict", name(headline.verdict)},
                      {"reason", headline.reason},
                      {"beside", headline.beside},
                      {"findings", list(run_.findings, finding)},
                      {"line", quality(run_.line)},
                      {"unit", {{"serial", run_.unit.serial}, {"port", run_.unit.port}, {"baud", run_.unit.baud}}},
                      {"station", station(run_)},
                      {"plan",
                       {{"name", run_.plan.name},
                        {"title", run_.plan.title},
                        {"path", run_.plan.path},
                        {"version", run_.plan.version},
                        {"sha256", run_.plan.sha256},
                        {"steps", run_.plan.steps},
                        {"parameters", parameters(run_)}}},
                      {"catalogue", {{"sha256", run_.catalogueSha256}}}});
        if (!run_.verifies.empty()) {
            stream_.keys({{"verify_limits", run_.verifies}});
        }
        stream_.array("phases", run_.phases, [this](const Phase& each) { phase(each); });
        const auto trace = linesOf(run_.events, {0, run_.events.next()}, groups_);
        stream_.key("trace");
        stream_.open('[');
        for (const EventLine& each : trace) {
            if (each.event != nullptr) {
                stream_.next();
                stream_.value(event("kind", *each.event, each.meaning));
            }
        }
        stream_.close(']');
        if (run_.events.kept().size() < run_.events.next()) {
            stream_.key("numbers");
            stream_.value(list(run_.events.kept(), [](const auto& each) -> Json { return each.first; }));
        }
        stream_.close('}');
    }

    static Json station(const Run& run)
    {
        return {{"host", run.station.host},
                {"operator", run.station.operatorName},
                {"version", run.station.version},
                {"line", run.station.line}};
    }

    static constexpr int kSchema = 1;

private:
    Json attemptWithFrames(const Attempt& one) const
    {
        Json json = attempt(one);
        json["frames"] = events(run_.events, one.events, groups_);
        return json;
    }

    Json step(const Step& one) const
    {
        return {{"name", one.name},
                {"kind", one.kind},
                {"what", one.what},
                {"verdict", name(verdictOf(one))},
                {"reason", reasonOf(one)},
                {"attempts", list(one.attempts, [this](const Attempt& each) { return attemptWithFrames(each); })}};
    }

    void tryOf(const Group::Try& one)
    {
        stream_.open('{');
        stream_.keys({{"verdict", name(verdictOf(one))}, {"superseded", one.superseded}});
        stream_.array("steps", one.steps, [this](const Step& each) { stream_.value(step(each)); });
        stream_.close('}');
    }

    void group(const Group& one)
    {
        stream_.open('{');
        stream_.keys({{"name", one.name}, {"verdict", name(verdictOf(one))}});
        if (const Rounds all = roundsOf(one); all.counted > 1) {
            stream_.key("rounds");
            stream_.value(rounds(all, one.numbers));
        }
        stream_.array("tries", one.tries, [this](const Group::Try& each) { tryOf(each); });
        stream_.close('}');
    }

    void phase(const Phase& one)
    {
        stream_.open('{');
        stream_.keys({{"name", one.name}, {"verdict", name(verdictOf(one))}, {"reason", reasonOf(one)}});
        stream_.array("groups", one.groups, [this](const Group& each) { group(each); });
        stream_.close('}');
    }

    const Run& run_;
    Groups groups_;
    JsonStream stream_;
};

double milliseconds(std::chrono::nanoseconds duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

/// Adds the facts of the run as a whole, but for its serial number and line.
void addFacts(Json& json, const Run& run)
{
    json["findings"] = list(run.findings, finding);
    json["cuts"] = Json::array();
    for (const Phase& phase : run.phases) {
        if (phase.cut) {
            json["cuts"].push_back(
                {{"phase", phase.name}, {"verdict", name(phase.cut->verdict)}, {"text", phase.cut->text}});
        }
    }
}

}  // namespace

Json limitsJson(const Limits& demanded)
{
    return limits(demanded);
}

void writeJson(std::ostream& out, const Run& run, Groups groups, int indent)
{
    JsonWriter(out, indent, run, groups).write();
    out << '\n';
}

void jsonReport(const Run& run, Groups groups, std::ostream& out)
{
    writeJson(out, run, groups);
}

std::string toLine(const Json& json)
{
    return protocol::printableJson(json.dump(-1, ' ', false, Json::error_handler_t::replace)) + '\n';
}

Json startedEvent(const Run& run)
{
    return {{"event", "started"},
            {"port", run.unit.port},
            {"id", run.id},
            {"plan", run.plan.name},
            {"steps", run.plan.steps}};
}

Json stepEvent(const char* event, const std::string& port, const StepPlace& place, const Step& step)
{
    return {{"event", event},
            {"port", port},
            {"name", step.name},
            {"kind", step.kind},
            {"what", step.what},
            {"verdict", name(verdictOf(step))},
            {"reason", reasonOf(step)},
            {"attempts", step.attempts.size()},
            {"time_ms", milliseconds(durationOf(step))},
            {"phase", place.phase},
            {"group", place.group},
            {"round", place.round},
            {"index", place.index}};
}

Json endedEvent(const Run& run)
{
    const Headline headline = headlineOf(run);
    return {{"event", "ended"},
            {"port", run.unit.port},
            {"serial", run.unit.serial},
            {"verdict", name(headline.verdict)},
            {"reason", headline.reason},
            {"beside", headline.beside},
            {"line", quality(run.line)},
            {"steps", tally(outcomeOf(run).tally)},
            {"time_ms", milliseconds(durationOf(run))}};
}

Json lines::started(const Run& run)
{
    Json json = startedEvent(run);
    json.update({{"schema", 2},
                 {"uuid", run.uuid},
                 {"at", time(run.started)},
                 {"baud", run.unit.baud},
                 {"serial", run.unit.serial},
                 {"station", JsonWriter::station(run)},
                 {"title", run.plan.title},
                 {"path", run.plan.path},
                 {"plan_version", run.plan.version},
                 {"plan_sha256", run.plan.sha256},
                 {"plan_parameters", parameters(run)},
                 {"catalogue_sha256", run.catalogueSha256},
                 {"phases", list(run.phases, [](const Phase& each) -> Json { return each.name; })}});
    if (!run.verifies.empty()) {
        json["verify_limits"] = run.verifies;
    }
    return json;
}

Json lines::group(std::string_view phase, const std::string& name)
{
    return {{"event", "group"}, {"phase", phase}, {"group", name}};
}

Json lines::line(std::size_t number, const TraceEvent& one, const std::string& meaning)
{
    Json json = event("event", one, meaning);
    json["number"] = number;
    return json;
}

Json lines::step(const char* event, const std::string& port, const StepPlace& place, const Step& step)
{
    Json json = stepEvent(event, port, place, step);
    json["facts"] = list(step.attempts, attempt);
    if (step.cut) {
        json["cut"] = finding(*step.cut);
    }
    return json;
}

Json lines::superseded(std::string_view phase, const Group& group)
{
    return {{"event", "superseded"}, {"phase", phase}, {"group", group.name}, {"round", triesOf(group)}};
}

Json lines::facts(const Run& run)
{
    Json json{{"event", "facts"}, {"serial", run.unit.serial}, {"line", quality(run.line)}};
    addFacts(json, run);
    return json;
}

Json lines::ended(const Run& run)
{
    const Outcome outcome = outcomeOf(run);
    Json json = endedEvent(run);
    json["at"] = time(run.ended);
    json["failed_step"] = outcome.failed.empty() ? "" : outcome.failed.front().step->name;
    json["failed_steps"] = outcome.wrong;
    addFacts(json, run);
    return json;
}

}  // namespace station::record
