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
#include "station/record/Outcome.h"
#include "station/record/RecordReader.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

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

constexpr std::array kKinds{TraceEvent::Kind::kSent, TraceEvent::Kind::kReceived, TraceEvent::Kind::kCorrupt,
                            TraceEvent::Kind::kLost, TraceEvent::Kind::kBack};

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
    return isoText(at);
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
    const auto* row = std::ranges::find_if(kKinds, [&word](TraceEvent::Kind each) { return name(each) == word; });
    if (row == kKinds.end()) {
        kind.fail("sent, received, corrupt, lost or back was expected");
    }
    event.kind = *row;
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
    if (const auto masked = reader.find("masked")) {
        event.masked = masked->yes();
    }
    return event;
}

Measurement readMeasurement(const RecordReader& reader)
{
    return {reader.at("name").text(), reader.at("value").scalar(), reader.at("unit").text(),
            readLimits(reader.at("limits")), reader.at("passed").yes()};
}

Finding readFinding(const RecordReader& reader)
{
    return {readVerdict(reader.at("verdict")), reader.at("text").text()};
}

/// Reads the facts of a run. Records of older versions of this program lack some of them: those are taken from the
/// verdicts that stand there.
class Reader
{
public:
    static Run read(const RecordReader& reader)
    {
        Run run;
        run.id = reader.at("id").text();
        if (const auto uuid = reader.find("uuid")) {
            run.uuid = uuid->text();
        }
        run.started = readTime(reader.at("started"));
        run.ended = readTime(reader.at("ended"));
        const RecordReader unit = reader.at("unit");
        run.unit = {unit.at("serial").text(), unit.at("port").text(), unit.at("baud").whole()};
        const RecordReader station = reader.at("station");
        run.station = {station.at("host").text(), station.at("operator").text(), station.at("version").text(), {}};
        if (const auto line = station.find("line")) {
            run.station.line = line->text();
        }
        const RecordReader plan = reader.at("plan");
        run.plan = {plan.at("name").text(), plan.at("title").text(), plan.at("path").text(), plan.at("sha256").text()};
        run.catalogueSha256 = reader.at("catalogue").at("sha256").text();
        if (const auto line = reader.find("line")) {
            run.line = {line->at("losses").whole(), line->at("reconnects").whole(), line->at("repeated_sends").whole(),
                        line->at("corrupt_frames").whole(), line->at("garbage_bytes").whole()};
        }
        Reader inner(run.events);
        inner.readEvents(reader);
        run.phases = reader.at("phases").each([&inner](const RecordReader& each) { return inner.phase(each); });
        const Finding stored{readVerdict(reader.at("verdict")), reader.at("reason").text()};
        if (const auto findings = reader.find("findings")) {
            run.findings = findings->each(readFinding);
        } else if (const Headline now = headlineOf(run); now.verdict != stored.verdict || now.reason != stored.text) {
            run.findings = {stored};
        }
        return run;
    }

private:
    explicit Reader(Events& events) : events_(events) {}

    template <class Item, class Read>
    static std::deque<Item> all(const RecordReader& reader, Read read)
    {
        auto items = reader.each(read);
        return {std::make_move_iterator(items.begin()), std::make_move_iterator(items.end())};
    }

    void readEvents(const RecordReader& reader)
    {
        const auto list = reader.at("trace").each(readEvent);
        const auto numbers = reader.find("numbers");
        const auto places =
            numbers ? numbers->each([](const RecordReader& each) { return each.whole(); }) : std::vector<unsigned>();
        if (numbers && places.size() != list.size()) {
            numbers->fail("a number for each event of the trace was expected");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            events_.restore(numbers ? places[i] : i, list[i]);
        }
    }

    /// @returns where an attempt's frames stand among all; puts them at the end where they do not.
    EventRange rangeOf(const std::vector<TraceEvent>& frames)
    {
        const auto& kept = events_.kept();
        auto at = kept.lower_bound(nextFrame_);
        while (at != kept.end() && !frames.empty() && !(at->second == frames.front())) {
            ++at;
        }
        EventRange range{at == kept.end() ? events_.next() : at->first, 0};
        range.end = range.begin + frames.size();
        if (at == kept.end()) {
            for (const TraceEvent& frame : frames) {
                events_.restore(events_.next(), frame);
            }
        }
        nextFrame_ = range.end;
        return range;
    }

    Attempt attempt(const RecordReader& reader)
    {
        Attempt one;
        one.started = readTime(reader.at("started"));
        one.duration = readDuration(reader.at("duration_s"));
        one.wireTime = readDuration(reader.at("wire_s"));
        one.verdict = readVerdict(reader.at("verdict"));
        one.reason = reader.at("reason").text();
        one.measurements = reader.at("measurements").each(readMeasurement);
        if (const auto superseded = reader.find("superseded")) {
            one.superseded = superseded->yes();
        }
        const auto frames = reader.at("frames").each(readEvent);
        if (const auto range = reader.find("events")) {
            const auto ends = range->each([](const RecordReader& each) { return each.whole(); });
            if (ends.size() != 2 || ends[0] > ends[1]) {
                range->fail("two numbers of events, in order, were expected");
            }
            one.events = {ends[0], ends[1]};
        } else {
            one.events = rangeOf(frames);
        }
        return one;
    }

    Step step(const RecordReader& reader)
    {
        const Finding stored{readVerdict(reader.at("verdict")), reader.at("reason").text()};
        const RecordReader attempts = reader.at("attempts");
        Step one{reader.at("name").text(),
                 reader.at("kind").text(),
                 reader.at("what").text(),
                 all<Attempt>(attempts, [this](const RecordReader& each) { return attempt(each); }),
                 {}};
        const auto known = attempts.each([](const RecordReader& each) { return each.find("superseded").has_value(); });
        for (std::size_t i = 0; i + 1 < known.size(); ++i) {
            const Attempt& last = one.attempts.back();
            const bool lastDecides = last.verdict == stored.verdict && last.reason == stored.text;
            const bool better = worse(one.attempts[i].verdict, stored.verdict) != stored.verdict;
            one.attempts[i].superseded = known[i] ? one.attempts[i].superseded : lastDecides || better;
        }
        if (one.attempts.empty() && !(stored == Finding{})) {
            one.cut = stored;
        }
        return one;
    }

    Group::Try groupTry(const RecordReader& reader)
    {
        return {all<Step>(reader.at("steps"), [this](const RecordReader& each) { return step(each); }),
                reader.at("superseded").yes()};
    }

    Group group(const RecordReader& reader)
    {
        return {
            reader.at("name").text(),
            all<Group::Try>(reader.at("tries"), [this](const RecordReader& each) { return groupTry(each); }),
        };
    }

    Phase phase(const RecordReader& reader)
    {
        const Finding stored{readVerdict(reader.at("verdict")), reader.at("reason").text()};
        Phase one{reader.at("name").text(),
                  all<Group>(reader.at("groups"), [this](const RecordReader& each) { return group(each); }),
                  {}};
        const bool told = verdictOf(one) == stored.verdict;
        if (!told || !stored.text.empty()) {
            one.cut = {told ? Verdict::kSkipped : stored.verdict, stored.text};
        }
        return one;
    }

    Events& events_;
    std::size_t nextFrame_ = 0;
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

Run fromJson(const nlohmann::ordered_json& json)
{
    const RecordReader reader(json, "");
    if (const RecordReader schema = reader.at("schema"); schema.number() != Run::kSchema) {
        schema.fail("this program reads schema " + std::to_string(Run::kSchema) + " only");
    }
    return Reader::read(reader);
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
