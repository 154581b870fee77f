#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>

#include "protocol/Errors.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

using RecordTime = std::chrono::system_clock::time_point;

/// More than any run fills, and less than a file that is not a record may cost.
constexpr std::uintmax_t kLargestRecord = 1U << 29;

constexpr std::array kKinds{TraceEvent::Kind::kSent, TraceEvent::Kind::kReceived, TraceEvent::Kind::kCorrupt,
                            TraceEvent::Kind::kLost, TraceEvent::Kind::kBack};

/// A value of a record that is being read, and its place as a JSON Pointer. Every mistake throws a RecordError that
/// names the place. Points into the document.
class RecordReader
{
public:
    using Json = nlohmann::ordered_json;

    explicit RecordReader(const Json& json, std::string place = "") : json_(json), place_(std::move(place)) {}

    [[noreturn]] void fail(const char* expected) const
    {
        constexpr std::size_t kShown = 40;
        std::string found =
            json_.is_structured() ? json_.type_name() : json_.dump(-1, ' ', true, Json::error_handler_t::replace);
        if (found.size() > kShown) {
            found.replace(kShown, std::string::npos, "…");
        }
        throw RecordError(fmt::format("{}: expected {}, got {}", place(), expected, found));
    }

    RecordReader at(const char* key) const
    {
        if (auto found = find(key)) {
            return *found;
        }
        throw RecordError(fmt::format("{}: the key \"{}\" is missing", place(), key));
    }

    /// @returns nothing if the object lacks the key.
    std::optional<RecordReader> find(const char* key) const
    {
        if (!json_.is_object()) {
            fail("an object");
        }
        const auto found = json_.find(key);
        return found == json_.end() ? std::nullopt : std::optional(RecordReader(*found, place_ + '/' + key));
    }

    /// @returns the value that `read` makes of the key; nothing if the object lacks the key.
    template <class Read>
    auto maybe(const char* key, Read read) const
    {
        const auto found = find(key);
        return found ? std::optional(std::invoke(read, *found)) : std::nullopt;
    }

    std::string text() const
    {
        if (!json_.is_string()) {
            fail("a text");
        }
        return json_.get<std::string>();
    }

    std::string textAt(const char* key) const { return at(key).text(); }

    /// A null is a number that JSON cannot hold: not a number.
    double number() const
    {
        if (!json_.is_number() && !json_.is_null()) {
            fail("a number");
        }
        return json_.is_null() ? std::numeric_limits<double>::quiet_NaN() : json_.get<double>();
    }

    unsigned whole() const
    {
        const double value = number();
        if (!(value >= 0 && value <= std::numeric_limits<unsigned>::max() && value == std::trunc(value))) {
            fail("a whole number from 0 on");
        }
        return static_cast<unsigned>(value);
    }

    bool yes() const
    {
        if (!json_.is_boolean()) {
            fail("true or false");
        }
        return json_.get<bool>();
    }

    Scalar scalar() const
    {
        if (json_.is_structured()) {
            fail("a number, a text, true or false");
        }
        return json_.is_string() ? Scalar(text()) : json_.is_boolean() ? Scalar(yes()) : Scalar(number());
    }

    std::uint8_t byte() const
    {
        const std::string digits = text();
        const auto value = protocol::catalogue::parseHexByte(digits);
        if (!value || digits.size() != 2) {
            fail("two hexadecimal digits");
        }
        return *value;
    }

    std::vector<std::uint8_t> bytes() const
    {
        const std::string digits = text();
        std::vector<std::uint8_t> values;
        for (std::size_t at = 0; at < digits.size(); at += 3) {
            const auto value = protocol::catalogue::parseHexByte(std::string_view(digits).substr(at, 2));
            const bool lastOrSpace = at + 2 == digits.size() || (at + 3 < digits.size() && digits[at + 2] == ' ');
            if (!value || at + 2 > digits.size() || !lastOrSpace) {
                fail("bytes in hexadecimal with one space between");
            }
            values.push_back(*value);
        }
        return values;
    }

    Verdict verdict() const
    {
        const std::string word = text();
        const auto* found = std::ranges::find(kVerdicts, word, [](Verdict each) { return std::string(name(each)); });
        if (found == kVerdicts.end()) {
            fail("PASS, FAIL, ERROR, TIMEOUT, ABORTED or SKIPPED");
        }
        return *found;
    }

    /// The verdict and the reason of a part.
    Finding finding(const char* reason = "reason") const { return {at("verdict").verdict(), textAt(reason)}; }

    RecordTime time() const
    {
        if (json_.is_null()) {
            return {};
        }
        const std::string written = text();
        std::tm parts{};
        const char* rest = strptime(written.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
        std::int64_t fraction = 0;
        if (rest != nullptr && *rest == '.') {
            const char* digits = rest + 1;
            const auto result = std::from_chars(digits, written.data() + written.size(), fraction);
            const auto count = result.ptr - digits;
            rest = result.ec == std::errc() && count <= 9 && *digits != '-' ? result.ptr : nullptr;
            for (auto i = count; i < 9; ++i) {
                fraction *= 10;
            }
        }
        if (rest == nullptr || std::strcmp(rest, "Z") != 0) {
            fail("a time such as 2026-11-21T14:05:08.123Z");
        }
        // Far below what nanoseconds in 64 bits reach, in either direction.
        if (parts.tm_year < 0 || parts.tm_year > 300) {
            fail("a year from 1900 to 2200");
        }
        return RecordTime(std::chrono::seconds(timegm(&parts))) + std::chrono::nanoseconds(fraction);
    }

    std::chrono::nanoseconds duration() const
    {
        constexpr double kLongest = 9e9;
        const double seconds = number();
        if (!(std::abs(seconds) < kLongest)) {
            fail("a number of seconds");
        }
        return std::chrono::nanoseconds(std::llround(seconds * 1e9));
    }

    /// @returns what `read` makes of each value of the array.
    template <class Read>
    auto each(Read read) const
    {
        if (!json_.is_array()) {
            fail("an array");
        }
        std::vector<std::decay_t<decltype(std::invoke(read, *this))>> values;
        values.reserve(json_.size());
        for (std::size_t i = 0; i < json_.size(); ++i) {
            values.push_back(std::invoke(read, RecordReader(json_[i], fmt::format("{}/{}", place_, i))));
        }
        return values;
    }

private:
    std::string place() const { return place_.empty() ? "top level" : place_; }

    const Json& json_;
    std::string place_;
};

TraceEvent readEvent(const RecordReader& reader)
{
    TraceEvent event;
    const RecordReader kind = reader.at("kind");
    const std::string word = kind.text();
    const auto* row = std::ranges::find_if(kKinds, [&word](TraceEvent::Kind each) { return name(each) == word; });
    if (row == kKinds.end()) {
        kind.fail("sent, received, corrupt, lost or back");
    }
    event.kind = *row;
    event.at = reader.at("at").time();
    event.steady = std::chrono::steady_clock::time_point(reader.at("monotonic_s").duration());
    if (hasFrame(event.kind)) {
        event.frame = {reader.at("cmd_one").byte(), reader.at("cmd_two").byte(), reader.at("params").bytes()};
    }
    event.bytes = reader.maybe("bytes", &RecordReader::bytes).value_or(event.bytes);
    event.text = reader.maybe("text", &RecordReader::text).value_or("");
    event.masked = reader.maybe("masked", &RecordReader::yes).value_or(false);
    return event;
}

Measurement readMeasurement(const RecordReader& reader)
{
    const RecordReader limits = reader.at("limits");
    return {reader.textAt("name"),
            reader.at("value").scalar(),
            reader.textAt("unit"),
            {limits.maybe("minimum", &RecordReader::number), limits.maybe("maximum", &RecordReader::number),
             limits.maybe("equals", &RecordReader::scalar), limits.maybe("matches", &RecordReader::text)},
            reader.at("passed").yes()};
}

/// Reads the facts of a run. Records of older versions of this program lack some of them, which then follow from the
/// verdicts in the record.
class RunReader
{
public:
    static Run read(const RecordReader& reader)
    {
        Run run;
        run.id = reader.textAt("id");
        run.uuid = reader.maybe("uuid", &RecordReader::text).value_or("");
        run.started = reader.at("started").time();
        run.ended = reader.at("ended").time();
        const RecordReader unit = reader.at("unit");
        run.unit = {unit.textAt("serial"), unit.textAt("port"), unit.at("baud").whole()};
        const RecordReader station = reader.at("station");
        run.station = {station.textAt("host"), station.textAt("operator"), station.textAt("version"),
                       station.maybe("line", &RecordReader::text).value_or("")};
        const RecordReader plan = reader.at("plan");
        run.plan = {plan.textAt("name"), plan.textAt("title"), plan.textAt("path"), plan.textAt("sha256")};
        run.catalogueSha256 = reader.at("catalogue").textAt("sha256");
        if (const auto line = reader.find("line")) {
            run.line = {line->at("losses").whole(), line->at("reconnects").whole(), line->at("repeated_sends").whole(),
                        line->at("corrupt_frames").whole(), line->at("garbage_bytes").whole()};
        }
        RunReader inner(run.events);
        inner.readEvents(reader);
        run.phases = reader.at("phases").each([&inner](const RecordReader& each) { return inner.phase(each); });
        const Finding stored = reader.finding();
        if (const auto findings = reader.find("findings")) {
            run.findings = findings->each([](const RecordReader& each) { return each.finding("text"); });
        } else if (const Headline now = headlineOf(run); now.verdict != stored.verdict || now.reason != stored.text) {
            run.findings = {stored};
        }
        return run;
    }

private:
    explicit RunReader(Events& events) : events_(events) {}

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
        const auto places = numbers ? numbers->each(&RecordReader::whole) : std::vector<unsigned>();
        if (numbers && places.size() != list.size()) {
            numbers->fail("a number for each event of the trace");
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            events_.restore(numbers ? places[i] : i, list[i]);
        }
    }

    /// @returns the range of an attempt's frames in the trace; adds them at the end if the trace lacks them.
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
        one.started = reader.at("started").time();
        one.duration = reader.at("duration_s").duration();
        one.wireTime = reader.at("wire_s").duration();
        one.verdict = reader.at("verdict").verdict();
        one.reason = reader.textAt("reason");
        one.measurements = reader.at("measurements").each(readMeasurement);
        one.superseded = reader.maybe("superseded", &RecordReader::yes).value_or(false);
        const auto frames = reader.at("frames").each(readEvent);
        if (const auto range = reader.find("events")) {
            const auto ends = range->each(&RecordReader::whole);
            if (ends.size() != 2 || ends[0] > ends[1]) {
                range->fail("two numbers of events, in order");
            }
            one.events = {ends[0], ends[1]};
        } else {
            one.events = rangeOf(frames);
        }
        return one;
    }

    Step step(const RecordReader& reader)
    {
        const Finding stored = reader.finding();
        const RecordReader attempts = reader.at("attempts");
        Step one{reader.textAt("name"),
                 reader.textAt("kind"),
                 reader.textAt("what"),
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

    Group group(const RecordReader& reader)
    {
        const auto readTry = [this](const RecordReader& one) -> Group::Try {
            return {all<Step>(one.at("steps"), [this](const RecordReader& each) { return step(each); }),
                    one.at("superseded").yes()};
        };
        return {reader.textAt("name"), all<Group::Try>(reader.at("tries"), readTry)};
    }

    Phase phase(const RecordReader& reader)
    {
        const Finding stored = reader.finding();
        Phase one{reader.textAt("name"),
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

Run fromJson(const nlohmann::ordered_json& json)
{
    const RecordReader reader(json);
    if (const RecordReader schema = reader.at("schema"); schema.number() != Run::kSchema) {
        schema.fail(fmt::format("schema {}", Run::kSchema).c_str());
    }
    return RunReader::read(reader);
}

Run parseRun(std::string_view text)
{
    nlohmann::ordered_json json;
    try {
        json = nlohmann::ordered_json::parse(text);
    } catch (const nlohmann::ordered_json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: …": the part in brackets is noise.
        const std::string_view message = error.what();
        const std::size_t end = message.find("] ");
        throw RecordError(std::string(end == std::string_view::npos ? message : message.substr(end + 2)));
    }
    return fromJson(json);
}

Run readRun(const std::filesystem::path& path)
{
    try {
        std::error_code error;
        if (!std::filesystem::is_regular_file(path, error)) {
            throw RecordError(error ? error.message() : "expected a file");
        }
        if (std::filesystem::file_size(path, error) > kLargestRecord || error) {
            throw RecordError(error ? error.message() : "expected a record, got a file larger than any");
        }
        std::ifstream file(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            throw RecordError(std::strerror(errno));
        }
        return parseRun(text);
    } catch (const RecordError& broken) {
        throw RecordError(fmt::format("{}: {}", path.string(), broken.what()));
    }
}

}  // namespace station::record
