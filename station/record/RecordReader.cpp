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
#include <memory>
#include <optional>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "station/record/RunFacts.h"
#include "station/record/RunList.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

using RecordTime = std::chrono::system_clock::time_point;

/// More than any run fills, and less than a file that is not a record may cost.
constexpr std::uintmax_t kLargestRecord = 1U << 29;

constexpr std::array kKinds{TraceEvent::Kind::kSent, TraceEvent::Kind::kReceived, TraceEvent::Kind::kCorrupt,
                            TraceEvent::Kind::kLost, TraceEvent::Kind::kBack};

/// @returns the beginning of `text`, for a message.
std::string shortened(std::string text)
{
    constexpr std::size_t kShown = 40;
    return text.size() > kShown ? text.replace(kShown, std::string::npos, "…") : text;
}

/// A value of a record that is being read, and its place as a JSON Pointer. Every mistake throws a RecordError that
/// names the place. Points into the document.
class RecordReader
{
public:
    explicit RecordReader(const Json& json, std::string place = "") : json_(json), place_(std::move(place)) {}

    [[noreturn]] void fail(const char* expected) const
    {
        throw RecordError(fmt::format("{}: expected {}, got {}", place(), expected,
                                      json_.is_structured()
                                          ? json_.type_name()
                                          : shortened(json_.dump(-1, ' ', true, Json::error_handler_t::replace))));
    }

    RecordReader at(const char* key) const
    {
        if (auto found = find(key)) {
            return *found;
        }
        throw RecordError(fmt::format("{}: expected the key \"{}\"", place(), key));
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

    std::size_t whole() const { return wholeUpTo(9007199254740992.0); }

    std::size_t wholeUpTo(double most) const
    {
        const double value = number();
        if (!(value >= 0 && value <= most && value == std::trunc(value))) {
            fail("a whole number of at least 0");
        }
        return static_cast<std::size_t>(value);
    }

    unsigned baud() const { return static_cast<unsigned>(wholeUpTo(std::numeric_limits<unsigned>::max())); }

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

std::optional<TraceEvent::Kind> kindOf(const std::string& word)
{
    const auto* row = std::ranges::find_if(kKinds, [&word](TraceEvent::Kind each) { return name(each) == word; });
    return row == kKinds.end() ? std::nullopt : std::optional(*row);
}

TraceEvent readEvent(const RecordReader& reader, TraceEvent::Kind kind)
{
    TraceEvent event;
    event.kind = kind;
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

TraceEvent readEventOfList(const RecordReader& reader)
{
    const RecordReader word = reader.at("kind");
    const auto kind = kindOf(word.text());
    if (!kind) {
        word.fail("sent, received, corrupt, lost or back");
    }
    return readEvent(reader, *kind);
}

Limits readLimits(const RecordReader& limits)
{
    return {limits.maybe("minimum", &RecordReader::number), limits.maybe("maximum", &RecordReader::number),
            limits.maybe("equals", &RecordReader::scalar), limits.maybe("matches", &RecordReader::text)};
}

Measurement readMeasurement(const RecordReader& reader)
{
    return {reader.textAt("name"), reader.at("value").scalar(), reader.textAt("unit"), readLimits(reader.at("limits")),
            reader.at("passed").yes()};
}

template <class Item, class Read>
std::deque<Item> all(const RecordReader& reader, Read read)
{
    auto items = reader.each(read);
    return {std::make_move_iterator(items.begin()), std::make_move_iterator(items.end())};
}

LineQuality readQuality(const RecordReader& line)
{
    return {line.at("losses").whole(), line.at("reconnects").whole(), line.at("repeated_sends").whole(),
            line.at("corrupt_frames").whole(), line.at("garbage_bytes").whole()};
}

Run::StationInfo readStation(const RecordReader& station)
{
    return {station.textAt("host"), station.textAt("operator"), station.textAt("version"),
            station.maybe("line", &RecordReader::text).value_or("")};
}

/// @param list nothing in older records
std::vector<Run::Parameter> readParameters(const std::optional<RecordReader>& list)
{
    const auto read = [](const RecordReader& each) -> Run::Parameter {
        return {each.textAt("name"), each.at("value").scalar(), each.textAt("unit"), each.textAt("from")};
    };
    return list ? list->each(read) : std::vector<Run::Parameter>();
}

EventRange readRange(const RecordReader& range)
{
    const auto ends = range.each(&RecordReader::whole);
    if (ends.size() != 2 || ends[0] > ends[1]) {
        range.fail("two numbers of events, in order");
    }
    return {ends[0], ends[1]};
}

Detail readDetail(const RecordReader& reader)
{
    return {reader.textAt("name"), reader.textAt("text")};
}

/// Reads an attempt without its events.
Attempt readAttempt(const RecordReader& reader)
{
    Attempt one;
    one.started = reader.at("started").time();
    one.duration = reader.at("duration_s").duration();
    one.wireTime = reader.at("wire_s").duration();
    one.verdict = reader.at("verdict").verdict();
    one.reason = reader.textAt("reason");
    one.measurements = reader.at("measurements").each(readMeasurement);
    if (const auto details = reader.find("details")) {
        one.details = details->each(readDetail);
    }
    one.superseded = reader.maybe("superseded", &RecordReader::yes).value_or(false);
    return one;
}

RepeatedMeasurement readStatistic(const RecordReader& reader)
{
    RepeatedMeasurement one;
    one.step = reader.textAt("step");
    one.name = reader.textAt("name");
    one.unit = reader.textAt("unit");
    one.limits = readLimits(reader.at("limits"));
    one.count = reader.at("count").whole();
    one.missed = reader.at("missed").whole();
    if (const auto numbers = reader.maybe("numbers", &RecordReader::whole)) {
        const double sigma = reader.at("sigma").number();
        one.numbers = {*numbers, reader.at("minimum").number(), reader.at("mean").number(),
                       reader.at("maximum").number(),
                       sigma * sigma * (*numbers < 2 ? 0 : static_cast<double>(*numbers - 1))};
    }
    return one;
}

Rounds readRounds(const RecordReader& reader)
{
    Rounds rounds;
    rounds.tries = reader.at("tries").whole();
    rounds.counted = reader.at("counted").whole();
    rounds.failed = reader.at("failed").whole();
    rounds.verdict = reader.at("verdict").verdict();
    for (const Verdict verdict : kVerdicts) {
        if (const auto number = reader.at("steps").maybe(name(verdict), &RecordReader::whole)) {
            rounds.steps[verdict] = *number;
        }
    }
    rounds.repeated = reader.at("repeated").whole();
    rounds.measurements = reader.at("measurements").each(readStatistic);
    const RecordReader timeline = reader.at("timeline");
    rounds.timeline.start = timeline.at("start").time();
    rounds.timeline.width = timeline.at("width_s").duration();
    rounds.timeline.intervals = timeline.at("intervals").each([](const RecordReader& each) -> Timeline::Interval {
        return {each.at("rounds").whole(), each.at("failed").whole()};
    });
    return rounds;
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
        run.unit = {unit.textAt("serial"), unit.textAt("port"), unit.at("baud").baud()};
        run.station = readStation(reader.at("station"));
        const RecordReader plan = reader.at("plan");
        run.plan = {plan.textAt("name"),
                    plan.textAt("title"),
                    plan.textAt("path"),
                    plan.textAt("sha256"),
                    plan.maybe("steps", &RecordReader::whole).value_or(0),
                    plan.maybe("version", &RecordReader::text).value_or(""),
                    readParameters(plan.find("parameters"))};
        run.catalogueSha256 = reader.at("catalogue").textAt("sha256");
        run.verifies = reader.maybe("verify_limits", &RecordReader::text).value_or("");
        if (const auto line = reader.find("line")) {
            run.line = readQuality(*line);
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

    void readEvents(const RecordReader& reader)
    {
        const auto list = reader.at("trace").each(readEventOfList);
        const auto numbers = reader.find("numbers");
        const auto places = numbers ? numbers->each(&RecordReader::whole) : std::vector<std::size_t>();
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
        Attempt one = readAttempt(reader);
        const auto frames = reader.at("frames").each(readEventOfList);
        const auto range = reader.maybe("events", readRange);
        one.events = range ? *range : rangeOf(frames);
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
        Group one{reader.textAt("name"), all<Group::Try>(reader.at("tries"), readTry)};
        const auto rounds = reader.find("rounds");
        const auto numbers = rounds ? rounds->find("numbers") : std::nullopt;
        if (numbers) {
            one.rounds = readRounds(*rounds);
            one.numbers = numbers->each(&RecordReader::whole);
            if (one.numbers.size() != one.tries.size()) {
                numbers->fail("a number for each try");
            }
        }
        return one;
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

const std::string kUnfinished = "the run did not end: the station was stopped or lost its power";
constexpr const char* kNoTeardown = "the teardown did not run, so auto-test mode may still be on";

}  // namespace

/// Reads the lines of a file.
class RecordLines
{
public:
    /// More than a line has: the attempts of a step are limited.
    static constexpr std::size_t kLongest = std::size_t{256} << 20;

    explicit RecordLines(const std::filesystem::path& path) : file_(path, std::ios::binary)
    {
        std::error_code error;
        if (!std::filesystem::is_regular_file(path, error)) {
            throw RecordError(error ? protocol::unreadable(error.value())
                                    : "expected a file, got a directory or device");
        }
        if (!file_) {
            throw RecordError(protocol::unreadable(errno));
        }
    }

    /// @returns the next line; nothing at the end. When the file has grown, it goes on there.
    /// @param steps pass over the events of the line, unread: most of a record
    std::optional<Json> next(bool steps = false)
    {
        do {
            if (!read()) {
                return std::nullopt;
            }
        } while (steps && isOfLine());
        Json json = Json::parse(line_, nullptr, false);
        if (json.is_discarded() || !json.is_object()) {
            throw RecordError(fmt::format("line {}: expected a JSON object, got {}", number_,
                                          line_.empty() ? "an empty line" : shortened(line_)));
        }
        return json;
    }

    std::size_t number() const { return number_; }
    /// @returns how the file ends before its last line does; empty if it does not.
    const std::string& cut() const { return cut_; }

private:
    /// @returns whether the line is an event of the line, whose first key says so.
    bool isOfLine() const
    {
        constexpr std::string_view kStart = R"({"event":")";
        return line_.starts_with(kStart) &&
               kindOf(line_.substr(kStart.size(), line_.find('"', kStart.size()) - kStart.size())).has_value();
    }

    /// @returns whether there is a whole line.
    bool read()
    {
        if (cut_.empty()) {
            line_.clear();
        }
        auto c = readByte();
        for (; c != std::char_traits<char>::eof() && c != '\n'; c = readByte()) {
            line_ += static_cast<char>(c);
            if (line_.size() > kLongest) {
                throw RecordError(fmt::format("line {}: expected at most {} bytes", number_ + 1, kLongest));
            }
        }
        const bool ended = c == std::char_traits<char>::eof();
        if (ended && line_.empty()) {
            return false;
        }
        // The end of the file came before that of the line, or zeros where the last lines should be: a loss of power.
        if (ended) {
            cut_ = "its record ends within a line";
            return false;
        }
        if (line_.starts_with('\0')) {
            cut_ = fmt::format("line {} of its record begins with zeros, and nothing after it counts", number_ + 1);
            return false;
        }
        cut_.clear();
        ++number_;
        return true;
    }

    int readByte()
    try {
        return file_.rdbuf()->sbumpc();
    } catch (const std::ios_base::failure&) {
        throw RecordError(protocol::unreadable(errno));
    }

    std::ifstream file_;
    std::string line_;
    std::size_t number_ = 0;
    std::string cut_;
};

namespace {

std::string eventOf(const RecordReader& reader)
{
    return reader.textAt("event");
}

Step readStep(const RecordReader& reader)
{
    Step step{reader.textAt("name"), reader.textAt("kind"), reader.textAt("what"), {}, {}};
    step.attempts = all<Attempt>(reader.at("facts"), [](const RecordReader& each) {
        Attempt one = readAttempt(each);
        one.events = readRange(each.at("events"));
        return one;
    });
    step.cut = reader.maybe("cut", [](const RecordReader& cut) { return cut.finding("text"); });
    return step;
}

/// @returns the unit that the first line tells.
Run::Unit readStarted(const RecordReader& reader)
{
    if (const RecordReader schema = reader.at("schema"); schema.number() != 2) {
        schema.fail("schema 2");
    }
    return {reader.textAt("serial"), reader.textAt("port"), reader.at("baud").baud()};
}

/// Makes a run of the lines of its record.
class LinesReader
{
public:
    explicit LinesReader(std::size_t whole) : facts_(run_, whole) {}

    void take(const RecordReader& reader)
    {
        const std::string event = eventOf(reader);
        if (const auto kind = kindOf(event)) {
            takeEvent(reader, readEvent(reader, *kind));
        } else if (event == "started") {
            start(reader);
        } else if (event == "group") {
            endTry(false);
            group_ = &facts_.beginGroup(phaseOf(reader), reader.textAt("group"));
            round_ = 0;
        } else if (event == "step") {
            takeStep(reader);
        } else if (event == "amended") {
            amend(reader);
        } else if (event == "superseded") {
            endTry(true);
        } else if (event == "facts" || event == "ended") {
            takeFacts(reader);
            ended_ = ended_ || event == "ended";
            run_.ended = event == "ended" ? reader.at("at").time() : run_.ended;
        }
        // Lines of a later version are passed over.
        claim(reader);
    }

    /// @param cut how the file ends before its last line does; empty if it does not
    Run finish(const std::string& cut)
    {
        endTry(false);
        facts_.end();
        if (ended_ && !cut.empty()) {
            run_.findings.push_back({Verdict::kSkipped, cut + ", after the end of the run"});
        } else if (!ended_) {
            run_.findings.push_back({Verdict::kAborted, kUnfinished + (cut.empty() ? "" : "; " + cut)});
            const auto began = [](const Phase& phase) { return !phase.groups.empty(); };
            if (std::ranges::any_of(run_.phases, began) && run_.phases.size() > Run::kTeardown &&
                !began(run_.phases[Run::kTeardown])) {
                run_.findings.push_back({Verdict::kSkipped, kNoTeardown});
            }
        }
        return std::move(run_);
    }

private:
    void start(const RecordReader& reader)
    {
        run_.unit = readStarted(reader);
        run_.id = reader.textAt("id");
        run_.uuid = reader.textAt("uuid");
        run_.started = reader.at("at").time();
        run_.station = readStation(reader.at("station"));
        run_.plan = {reader.textAt("plan"),
                     reader.textAt("title"),
                     reader.textAt("path"),
                     reader.textAt("plan_sha256"),
                     reader.at("steps").whole(),
                     reader.maybe("plan_version", &RecordReader::text).value_or(""),
                     readParameters(reader.find("plan_parameters"))};
        run_.catalogueSha256 = reader.textAt("catalogue_sha256");
        run_.verifies = reader.maybe("verify_limits", &RecordReader::text).value_or("");
        for (auto& each : reader.at("phases").each(&RecordReader::text)) {
            run_.phases.push_back({std::move(each), {}, {}});
        }
    }

    Phase& phaseOf(const RecordReader& reader)
    {
        const auto found = std::ranges::find(run_.phases, reader.textAt("phase"), &Phase::name);
        if (found == run_.phases.end()) {
            reader.at("phase").fail("a phase that the first line names");
        }
        return *found;
    }

    void takeEvent(const RecordReader& reader, TraceEvent event)
    {
        if (reader.at("number").whole() != run_.events.next()) {
            reader.at("number").fail(fmt::to_string(run_.events.next()).c_str());
        }
        run_.events.add(std::move(event));
    }

    /// The events that a step has used.
    void claim(const RecordReader& reader)
    {
        if (const auto numbers = reader.find("claimed")) {
            for (const std::size_t number : numbers->each(&RecordReader::whole)) {
                // One that is left out by now is as good as one that came unasked.
                if (const auto found = run_.events.kept().find(number); found != run_.events.kept().end()) {
                    run_.events.claim(number, found->second);
                }
            }
        }
    }

    void takeStep(const RecordReader& reader)
    {
        if (group_ == nullptr) {
            throw RecordError("expected a line about the group first");
        }
        if (const std::size_t round = reader.at("round").whole(); round != round_) {
            endTry(false);
            try_ = &facts_.beginTry();
            round_ = round;
        } else if (try_ == nullptr) {
            reader.at("round").fail("the number of a new round");
        }
        try_->steps.push_back(readStep(reader));
    }

    void amend(const RecordReader& reader)
    {
        Phase& phase = phaseOf(reader);
        const std::string group = reader.textAt("group");
        const std::size_t number = reader.at("round").whole() - 1;
        Step step = readStep(reader);
        for (auto each = phase.groups.rbegin(); each != phase.groups.rend(); ++each) {
            for (std::size_t i = each->tries.size(); each->name == group && i-- > each->numbers.size();) {
                auto& steps = each->tries[i].steps;
                const auto found = std::find_if(steps.rbegin(), steps.rend(),
                                                [&step](const Step& other) { return isSame(other, step); });
                if (numberOf(*each, i) == number && found != steps.rend()) {
                    *found = std::move(step);
                    return;
                }
            }
        }
    }

    /// @returns whether both are about the same attempts.
    static bool isSame(const Step& one, const Step& other)
    {
        return one.name == other.name && !one.attempts.empty() && !other.attempts.empty() &&
               one.attempts.front().events == other.attempts.front().events &&
               one.attempts.front().started == other.attempts.front().started;
    }

    void takeFacts(const RecordReader& reader)
    {
        run_.unit.serial = reader.textAt("serial");
        run_.line = readQuality(reader.at("line"));
        run_.findings = reader.at("findings").each([](const RecordReader& each) { return each.finding("text"); });
        for (const RecordReader& cut : reader.at("cuts").each([](const RecordReader& each) { return each; })) {
            phaseOf(cut).cut = cut.finding("text");
        }
    }

    void endTry(bool superseded)
    {
        if (std::exchange(try_, nullptr) != nullptr) {
            facts_.endTry(superseded);
        }
    }

    Run run_;
    RunFacts facts_;
    Group* group_ = nullptr;
    Group::Try* try_ = nullptr;
    std::size_t round_ = 0;
    bool ended_ = false;
};

/// @returns what `read` makes of the file. Names the file in every error.
template <class Read>
auto readNamed(const std::filesystem::path& path, Read read)
{
    try {
        return read();
    } catch (const RecordError& broken) {
        throw RecordError(fmt::format("{}: {}", path.string(), broken.what()));
    }
}

/// Passes the next line to `take`. @returns whether there is one.
template <class Take>
bool takeLine(RecordLines& lines, Take take, bool steps = false)
{
    const auto json = lines.next(steps);
    try {
        if (json) {
            take(RecordReader(*json));
        }
    } catch (const RecordError& broken) {
        throw RecordError(fmt::format("line {}: {}", lines.number(), broken.what()));
    }
    return json.has_value();
}

/// Passes each line to `take`. @returns how the file ends before its last line does; empty if it does not.
template <class Take>
std::string eachLine(const std::filesystem::path& path, Take take, bool steps = false)
{
    RecordLines lines(path);
    while (takeLine(lines, take, steps)) {
    }
    return lines.cut();
}

}  // namespace

Run fromJson(const Json& json)
{
    const RecordReader reader(json);
    if (const RecordReader schema = reader.at("schema"); schema.number() != 1) {
        schema.fail("schema 1");
    }
    return RunReader::read(reader);
}

Run parseRun(std::string_view text)
{
    if (const std::size_t start = text.find_first_not_of(" \t\r\n"); start >= text.size() || text[start] != '{') {
        throw RecordError("expected a run's record, got another file");
    }
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: …": the part in brackets is noise.
        const std::string_view message = error.what();
        const std::size_t end = message.find("] ");
        throw RecordError(std::string(end == std::string_view::npos ? message : message.substr(end + 2)));
    }
    return fromJson(json);
}

RecordTail::RecordTail(std::filesystem::path record) : path_(std::move(record))
{
    readNamed(path_, [this] { lines_ = std::make_unique<RecordLines>(path_); });
}

RecordTail::~RecordTail() = default;

std::optional<TraceEvent> RecordTail::next()
{
    return readNamed(path_, [this] {
        std::optional<TraceEvent> found;
        while (!found && !ended_ && takeLine(*lines_, [&](const RecordReader& line) {
            const std::string event = eventOf(line);
            if (lines_->number() == 1) {
                unit_ = readStarted(line);
            } else if (const auto kind = kindOf(event)) {
                found = readEvent(line, *kind);
            } else if (event == "facts" || event == "ended") {
                unit_.serial = line.textAt("serial");
                ended_ = event == "ended";
            }
        })) {
        }
        return found;
    });
}

const std::string& RecordTail::cut() const
{
    return lines_->cut();
}

bool isOfLines(const std::filesystem::path& path)
{
    constexpr std::string_view kStart = R"({"event":"started")";
    std::ifstream file(path, std::ios::binary);
    std::string start(kStart.size(), ' ');
    // A loss of power may leave an empty or broken file.
    return std::filesystem::is_regular_file(path) &&
           (path.filename() == kRecordFile || (file.read(start.data(), std::ssize(start)) && start == kStart));
}

Run readRun(const std::filesystem::path& path, std::size_t whole)
{
    return readNamed(path, [&] {
        std::error_code error;
        if (!std::filesystem::is_regular_file(path, error)) {
            throw RecordError(error ? protocol::unreadable(error.value())
                                    : "expected a file, got a directory or device");
        }
        if (isOfLines(path)) {
            LinesReader reader(whole);
            const std::string cut = eachLine(path, [&reader](const RecordReader& line) { reader.take(line); });
            Run run = reader.finish(cut);
            const std::string folder = std::filesystem::absolute(path).parent_path().filename();
            run.id = run.id.empty() ? folder.substr(0, folder.rfind(kRunningSuffix)) : run.id;
            return run;
        }
        if (std::filesystem::file_size(path, error) > kLargestRecord || error) {
            throw RecordError(error ? protocol::unreadable(error.value())
                                    : "expected a record, got a file larger than any");
        }
        std::ifstream file(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!file) {
            throw RecordError(protocol::unreadable(errno));
        }
        return parseRun(text);
    });
}

void readSteps(const std::filesystem::path& path, const std::function<void(const StepPlace&, const Step&)>& take)
{
    // A step may be amended while no more than kOpen follow, and superseded while its try goes on. A file that this
    // tool did not write may hold a try of any length.
    constexpr std::size_t kOpen = 1000;
    constexpr std::size_t kLongestTry = 100'000;
    struct Placed {
        std::string phase;
        std::string group;
        std::size_t round;
        std::size_t index;
        bool superseded;
        Step step;
    };
    std::deque<Placed> open;
    std::size_t ofTry = 0;
    const auto pass = [&] {
        const Placed& first = open.front();
        take({first.phase, first.group, first.round, first.index, 0, first.superseded}, first.step);
        open.pop_front();
    };
    const auto add = [&](Placed placed) {
        const bool sameTry = ofTry > 0 && open.back().round == placed.round;
        ofTry = sameTry ? ofTry + 1 : 1;
        open.push_back(std::move(placed));
        if (open.size() > kOpen && (open.size() > ofTry || open.size() > kLongestTry)) {
            pass();
            ofTry = std::min(ofTry, open.size());
        }
    };
    const auto takeLine = [&](const RecordReader& reader) {
        const std::string event = eventOf(reader);
        if (event == "group") {
            ofTry = 0;
        } else if (event == "superseded") {
            std::for_each(open.end() - static_cast<std::ptrdiff_t>(std::exchange(ofTry, 0)), open.end(),
                          [](Placed& each) { each.superseded = true; });
        }
        if (event != "step" && event != "amended") {
            return;
        }
        Placed placed{reader.textAt("phase"),
                      reader.textAt("group"),
                      reader.at("round").whole(),
                      reader.at("index").whole(),
                      false,
                      readStep(reader)};
        if (event == "step") {
            add(std::move(placed));
        } else if (const auto found = std::ranges::find_if(
                       open,
                       [&](const Placed& each) { return each.index == placed.index && each.round == placed.round; });
                   found != open.end()) {
            placed.superseded = found->superseded;
            *found = std::move(placed);
        }
    };
    readNamed(path, [&] { eachLine(path, takeLine, true); });
    while (!open.empty()) {
        pass();
    }
}

std::optional<ListedRun> readEnds(const std::filesystem::path& path, bool running)
{
    constexpr std::streamoff kEnd = 1 << 16;
    return readNamed(path, [&]() -> std::optional<ListedRun> {
        const auto first = RecordLines(path).next();
        if (!first) {
            return std::nullopt;
        }
        LinesReader reader(0);
        reader.take(RecordReader(*first));
        const Run run = reader.finish({});
        ListedRun listed;
        listed.folder = path.parent_path().string();
        listed.id = run.id;
        listed.started = run.started;
        listed.plan = run.plan.name.empty() ? run.plan.title : run.plan.name;
        listed.serial = run.unit.serial;
        listed.port = run.unit.port;
        listed.station = run.station;
        listed.planVersion = run.plan.version;
        listed.verifies = run.verifies;
        listed.running = running;
        if (running) {
            return listed;
        }
        std::ifstream file(path, std::ios::binary | std::ios::ate);
        file.seekg(-std::min(std::streamoff(file.tellg()), kEnd), std::ios::end);
        const std::string end{std::istreambuf_iterator<char>(file), {}};
        const std::size_t before = end.size() < 2 ? std::string::npos : end.rfind('\n', end.size() - 2);
        if (before == std::string::npos || !end.ends_with('\n')) {
            return std::nullopt;
        }
        const Json last = Json::parse(end.begin() + static_cast<std::ptrdiff_t>(before) + 1, end.end(), nullptr, false);
        const RecordReader ended(last);
        if (!last.is_object() || eventOf(ended) != "ended") {
            return std::nullopt;
        }
        listed.serial = ended.textAt("serial");
        listed.line = readQuality(ended.at("line"));
        listed.ended = ended.at("at").time();
        const Finding headline = ended.finding();
        listed.verdict = headline.verdict;
        listed.reason = headline.text;
        listed.failedStep = ended.textAt("failed_step");
        listed.failedSteps = ended.at("failed_steps").whole();
        return listed;
    });
}

}  // namespace station::record
