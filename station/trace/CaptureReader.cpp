#include "station/trace/CaptureReader.h"

#include <fmt/format.h>
#include <glib.h>
#include <re2/re2.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <streambuf>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/Csv.h"
#include "station/DecodeInput.h"
#include "station/trace/PcapngReader.h"

namespace station {

namespace {

using pcapng::kFarthestSeconds;
using SystemTime = std::chrono::system_clock::time_point;
using protocol::catalogue::parseHexBytes;

/// Longer than any line of the forms; hexadecimal text may have no line breaks for a while.
constexpr std::size_t kLongestTextLine = std::size_t{4} << 20;

/// More wires than a bench has.
constexpr std::size_t kMostChannels = 16;

constexpr std::size_t kShown = 40;

/// A pattern for bytes of any encoding.
class BytePattern : public RE2
{
public:
    explicit BytePattern(const char* pattern) : RE2(pattern, RE2::Latin1) {}
};

re2::StringPiece piece(std::string_view text)
{
    return {text.data(), text.size()};
}

std::string_view view(const re2::StringPiece& text)
{
    return {text.data(), text.size()};
}

bool isBlankLine(std::string_view line)
{
    return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

std::string excerpt(std::string_view line)
{
    return fmt::format("'{}{}'", line.substr(0, kShown), line.size() > kShown ? "…" : "");
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) { return g_ascii_tolower(c); });
    return lower;
}

/// Reads seconds, "0.00123" or "1.2e-05".
std::optional<SystemTime> secondsOf(std::string_view text)
{
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || !(std::abs(seconds) < kFarthestSeconds)) {
        return std::nullopt;
    }
    return SystemTime(std::chrono::nanoseconds(std::llround(seconds * 1e9)));
}

/// Finds the first time of day in a text, with its date if it has one.
std::optional<SystemTime> clockOf(std::string_view text)
{
    static const BytePattern pattern(
        R"(\b(?:(\d{4}-\d{2}-\d{2})[T ])?(\d{2}:\d{2}:\d{2})(?:[.,](\d{1,9})\d*)?(Z|[+-]\d{2}:?\d{2})?)");
    std::string date;
    std::string clock;
    std::string fraction;
    std::string zone;
    if (!RE2::PartialMatch(piece(text), pattern, &date, &clock, &fraction, &zone)) {
        return std::nullopt;
    }
    const std::string iso = fmt::format("{}T{}{}", date.empty() ? "1970-01-01" : date, clock, zone);
    GTimeZone* const local = g_time_zone_new_local();
    GDateTime* const moment = g_date_time_new_from_iso8601(iso.c_str(), local);
    g_time_zone_unref(local);
    if (moment == nullptr) {
        return std::nullopt;
    }
    const std::int64_t seconds =
        std::clamp<std::int64_t>(g_date_time_to_unix(moment), -kFarthestSeconds, kFarthestSeconds);
    g_date_time_unref(moment);
    fraction.resize(9, '0');
    return SystemTime(std::chrono::seconds(seconds) + std::chrono::nanoseconds(std::stol(fraction)));
}

/// Begins with what was read already and goes on with the rest of the stream.
class Rewound : public std::streambuf
{
public:
    Rewound(std::string beginning, std::streambuf& rest) : chunk_(std::move(beginning)), rest_(rest)
    {
        setg(chunk_.data(), chunk_.data(), chunk_.data() + chunk_.size());
    }

protected:
    int_type underflow() override
    {
        // What is there, so that a pipe's frames are seen as they come.
        chunk_.resize(rest_.sgetc() == traits_type::eof() ? 0 : CaptureReader::kBeginning);
        const auto there = std::min(rest_.in_avail(), static_cast<std::streamsize>(chunk_.size()));
        chunk_.resize(static_cast<std::size_t>(rest_.sgetn(chunk_.data(), there)));
        setg(chunk_.data(), chunk_.data(), chunk_.data() + chunk_.size());
        return chunk_.empty() ? traits_type::eof() : traits_type::to_int_type(chunk_.front());
    }

private:
    std::string chunk_;
    std::streambuf& rest_;
};

}  // namespace

/// What is behind the reader: the stream, and for packets their reader.
class CaptureReader::Source
{
public:
    Source(std::string beginning, std::streambuf& rest) : buffer(std::move(beginning), rest), stream(&buffer)
    {
        stream.exceptions(std::ios::badbit);
    }

    Rewound buffer;
    std::istream stream;
    std::optional<pcapng::Reader> packets;
};

/// A form that is read line by line.
class CaptureReader::TextForm
{
public:
    struct Line {
        std::optional<SystemTime> at = {};
        std::string channel = {};
        std::vector<std::uint8_t> bytes = {};
        /// Bytes that a mark such as '*' stands for, and how often they come before `bytes`.
        std::vector<std::uint8_t> repeated = {};
        std::size_t times = 0;
    };

    virtual ~TextForm() = default;

    /// @returns the line's content, nothing for a line that is not of this form.
    virtual std::optional<Line> read(std::string_view line) = 0;

    /// What each line should be.
    virtual std::string expected() const = 0;

    /// What the end of the capture lacks; empty for nothing.
    virtual std::string missing() const { return ""; }

    /// @returns whether the first line that is not blank tells the form.
    virtual bool begins(std::string_view line) { return read(line).has_value(); }
};

namespace {

using TextForm = CaptureReader::TextForm;

/// Both exports of Saleae's software: a heading names the columns, each row is a byte.
class SaleaeForm : public TextForm
{
public:
    std::optional<Line> read(std::string_view line) override
    {
        std::vector<std::string> cells;
        try {
            cells = csvCells(line);
        } catch (const protocol::UserError&) {
            return std::nullopt;
        }
        if (columns_ == 0) {
            return readHeading(cells) ? std::optional<Line>(std::in_place) : std::nullopt;
        }
        // At the end of a file that was cut.
        if (cells.size() < columns_) {
            return std::nullopt;
        }
        Line result;
        if (type_ != kNone && cells[type_] != "data") {
            return result;
        }
        result.at = secondsOf(cells[time_]);
        result.at = result.at ? result.at : clockOf(cells[time_]);
        const auto byte = byteOf(cells[value_]);
        if (!result.at || !byte) {
            return std::nullopt;
        }
        result.bytes = {*byte};
        result.channel = channel_ == kNone ? "" : cells[channel_];
        return result;
    }

    std::string expected() const override
    {
        return columns_ == 0 ? "a heading with the columns of Saleae's export, such as 'Time [s],Value'"
                             : "a row with a time and a value such as 0x2A (export values in hexadecimal)";
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    bool readHeading(const std::vector<std::string>& cells)
    {
        const auto find = [&](std::initializer_list<std::string_view> names) {
            const auto found = std::ranges::find_if(
                cells, [&](const std::string& cell) { return std::ranges::count(names, lowerCase(cell)) > 0; });
            return found == cells.end() ? kNone : static_cast<std::size_t>(found - cells.begin());
        };
        time_ = find({"time [s]", "start_time", "start time"});
        value_ = find({"value", "data", "decoded protocol result"});
        channel_ = find({"name", "analyzer name"});
        type_ = find({"type"});
        columns_ = time_ == kNone || value_ == kNone ? 0 : cells.size();
        return columns_ > 0;
    }

    /// Reads "0x2A", "* (0x2A)", "42" and "0b 0010 1010".
    static std::optional<std::uint8_t> byteOf(const std::string& text)
    {
        static const BytePattern hexadecimal(R"((?i)(?:.* ?\()?0x([0-9a-f]{2})\)?)");
        static const BytePattern binary(R"(0b ?([01]{4}) ?([01]{4}))");
        static const BytePattern decimal(R"((\d{1,3}))");
        std::string high;
        std::string low;
        unsigned long value = 256;
        if (RE2::FullMatch(text, hexadecimal, &high)) {
            value = std::stoul(high, nullptr, 16);
        } else if (RE2::FullMatch(text, binary, &high, &low)) {
            value = std::stoul(high + low, nullptr, 2);
        } else if (RE2::FullMatch(text, decimal, &high)) {
            value = std::stoul(high);
        }
        return value > 255 ? std::nullopt : std::optional(static_cast<std::uint8_t>(value));
    }

    std::size_t columns_ = 0;
    std::size_t time_ = kNone;
    std::size_t value_ = kNone;
    std::size_t channel_ = kNone;
    std::size_t type_ = kNone;
};

/// What sigrok-cli prints of its UART decoder: "uart-1: 2A", with sample numbers and classes if it was asked for them.
class SigrokForm : public TextForm
{
public:
    std::optional<Line> read(std::string_view line) override
    {
        static const BytePattern annotation(R"((?:\d+-\d+ +)?([\w.]+(?:-\d+)?): (?:([a-z]+(?:-[a-z]+)*): )?(.*?)\s*)");
        static const BytePattern data(R"re("?([0-9A-Fa-f]{2})"?)re");
        std::string decoder;
        std::string kind;
        re2::StringPiece text;
        std::string byte;
        if (!RE2::FullMatch(piece(line), annotation, &decoder, &kind, &text)) {
            return std::nullopt;
        }
        Line result;
        const bool isData = kind.empty() || kind == "rx-data" || kind == "tx-data";
        if (decoder.starts_with("uart") && isData && RE2::FullMatch(text, data, &byte)) {
            result.bytes = *parseHexBytes(byte);
            result.channel = kind.empty() ? decoder : kind.starts_with('r') ? "RX" : "TX";
        }
        return result;
    }

    std::string expected() const override { return "an annotation of a decoder, as in 'uart-1: 2A'"; }

    bool begins(std::string_view line) override
    {
        static const BytePattern first(R"((?:\d+-\d+ +)?uart(?:-\d+)?: )");
        re2::StringPiece text = piece(line);
        return RE2::Consume(&text, first);
    }
};

/// @returns whether the characters beside the bytes are theirs; their end may be cut.
bool areShown(const std::vector<std::uint8_t>& bytes, std::string_view characters)
{
    std::string shown;
    std::ranges::transform(bytes, std::back_inserter(shown), [](std::uint8_t byte) {
        return byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '.';
    });
    // A blank that is shown looks like the space around the characters.
    characters = characters.substr(0, characters.find_last_not_of(" \t") + 1);
    characters.remove_prefix(std::min(characters.find_first_not_of(" \t"), characters.size()));
    return std::string_view(shown).substr(std::min(shown.find_first_not_of(' '), shown.size())).starts_with(characters);
}

/// Offsets, bytes and their characters, as xxd and hexdump -C print them.
class DumpForm : public TextForm
{
public:
    DumpForm(const char* pattern, const char* usual) : pattern_(pattern), usual_(usual) {}

    std::optional<Line> read(std::string_view line) override
    {
        expected_ = usual_;
        if (line.starts_with("*") && isBlankLine(line.substr(1)) && !last_.empty()) {
            repeats_ = true;
            return Line{};
        }
        std::string offsetDigits;
        re2::StringPiece bytes;
        re2::StringPiece characters;
        if (!RE2::FullMatch(piece(line), pattern_, &offsetDigits, &bytes, &characters)) {
            return std::nullopt;
        }
        auto parsed = parseHexBytes(view(bytes));
        if (!parsed) {
            return std::nullopt;
        }
        if (!areShown(*parsed, view(characters))) {
            expected_ = "the characters of the bytes (xxd without -b and -e)";
            return std::nullopt;
        }
        const std::uint64_t offset = std::stoull(offsetDigits, nullptr, 16);
        Line result;
        if (std::exchange(repeats_, false)) {
            if (offset < next_ || offset - *next_ > mayRepeat_ || (offset - *next_) % last_.size() != 0) {
                return std::nullopt;
            }
            mayRepeat_ -= offset - *next_;
            result.times = static_cast<std::size_t>(offset - *next_) / last_.size();
            result.repeated = last_;
        } else if (next_ && offset != next_) {
            expected_ = fmt::format("the offset {:08x}, or '*' before this line", *next_);
            return std::nullopt;
        }
        next_ = offset + parsed->size();
        last_ = *parsed;
        result.bytes = *std::move(parsed);
        return result;
    }

    std::string expected() const override { return expected_; }
    std::string missing() const override { return repeats_ ? "an offset behind '*'" : ""; }

private:
    BytePattern pattern_;
    const char* usual_;
    std::string expected_ = usual_;
    /// The offset behind the last line.
    std::optional<std::uint64_t> next_;
    std::vector<std::uint8_t> last_;
    bool repeats_ = false;
    /// How many bytes '*' may stand for in a capture.
    std::uint64_t mayRepeat_ = std::uint64_t{1} << 20;
};

/// Lines with a time, TX or RX, and bytes. Other lines of the log have none.
class LogForm : public TextForm
{
public:
    std::optional<Line> read(std::string_view line) override
    {
        static const BytePattern whole(
            R"((?i)(.*?)\b(txd?|rxd?|sent|send|received|recv)\b\s*(?:[\[(][^\])]*[\])])?\s*([:=>|-]*)\s*)"
            R"(((?:0x)?[0-9a-f]{2}(?:[ \t,:-]*(?:0x)?[0-9a-f]{2})*)\s*(?:[|;(].*)?)");
        static const BytePattern begun(
            R"((?i)\b(?:txd?|rxd?|sent|send|received|recv)\b\s*(?:[\[(][^\])]*[\])])?\s*[:=>|-]+\s*(?:0x)?[0-9a-f]{2}[\s,]+(?:0x)?[0-9a-f]{1,2}\b)");
        re2::StringPiece before;
        std::string word;
        std::string separator;
        std::string bytes;
        if (!RE2::FullMatch(piece(line), whole, &before, &word, &separator, &bytes)) {
            return RE2::PartialMatch(piece(line), begun) ? std::nullopt : std::optional<Line>(std::in_place);
        }
        std::ranges::replace(bytes, '-', ' ');
        auto parsed = parseHexBytes(bytes);
        if (!parsed) {
            return std::nullopt;
        }
        // "received 42" is a remark.
        if (separator.empty() && parsed->size() < 2) {
            return Line{};
        }
        word = lowerCase(word);
        return Line{timeOf(view(before)), word.starts_with('t') || word.starts_with('s') ? "TX" : "RX",
                    *std::move(parsed)};
    }

    std::string expected() const override { return "bytes in hexadecimal behind TX: or RX:"; }

    bool begins(std::string_view line) override
    {
        const auto read = this->read(line);
        return read && !read->bytes.empty();
    }

private:
    std::optional<SystemTime> timeOf(std::string_view before)
    {
        static const BytePattern number(R"((?:^|[^\w.])(\d+\.\d+)(?:$|[^\w.]))");
        std::optional<SystemTime> at = clockOf(before);
        if (!at) {
            std::string digits;
            return RE2::PartialMatch(piece(before), number, &digits) ? secondsOf(digits) : std::nullopt;
        }
        // A time of day without a date starts again at midnight.
        constexpr auto kDay = std::chrono::hours(24);
        constexpr auto kLongestLog = std::chrono::hours(24 * 366);
        const bool dated = at->time_since_epoch() > 2 * kDay;
        *at += dated ? std::chrono::hours(0) : midnights_;
        if (!dated && last_ && *at + kDay / 2 < *last_ && midnights_ < kLongestLog) {
            midnights_ += kDay;
            *at += kDay;
        }
        last_ = at;
        return at;
    }

    std::optional<SystemTime> last_;
    std::chrono::hours midnights_{0};
};

std::unique_ptr<TextForm> makeText(std::string_view format)
{
    if (format == "saleae") {
        return std::make_unique<SaleaeForm>();
    }
    if (format == "sigrok") {
        return std::make_unique<SigrokForm>();
    }
    if (format == "xxd") {
        return std::make_unique<DumpForm>(R"(([0-9A-Fa-f]{7,16}): ?((?:[0-9A-Fa-f]+ ?)+?)(?: [ \t](.*)|\s*))",
                                          "a line of xxd, as in '00000000: 2aa2 0002  *...'");
    }
    if (format == "hexdump") {
        return std::make_unique<DumpForm>(
            R"(([0-9A-Fa-f]{7,16})(?: {2}((?:[0-9A-Fa-f]{2} {1,2})*[0-9A-Fa-f]{2})\s*(?:\|(.*?)\|?)?)?\s*)",
            "a line of hexdump -C, as in '00000000  2a a2 00 02  |*...|'");
    }
    return format == "log" ? std::make_unique<LogForm>() : nullptr;
}

/// Calls `take(line)` for each whole line of the beginning until it returns true.
/// @returns whether it has.
bool anyLine(std::string_view beginning, const std::function<bool(std::string_view)>& take)
{
    while (!beginning.empty()) {
        const auto end = std::min(beginning.find('\n'), beginning.size());
        std::string_view line = beginning.substr(0, end);
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (take(line)) {
            return true;
        }
        beginning.remove_prefix(std::min(end + 1, beginning.size()));
    }
    return false;
}

bool isText(std::string_view beginning)
{
    const char* end = nullptr;
    const bool utf8 = g_utf8_validate_len(beginning.data(), beginning.size(), &end) != FALSE;
    // The last character may be cut.
    const bool cut = beginning.size() + 3 >= CaptureReader::kBeginning && end + 4 > beginning.data() + beginning.size();
    return (utf8 || cut) && beginning.find('\0') == std::string_view::npos;
}

bool holdsAFrame(std::string_view beginning)
{
    const auto pieces = scanFrames({reinterpret_cast<const std::uint8_t*>(beginning.data()), beginning.size()});
    return beginning.starts_with("\x2A\xA2") ||
           std::ranges::any_of(pieces, [](const auto& each) { return each.kind == ScannedPiece::Kind::kFrame; });
}

/// @returns whether the line is hexadecimal text.
bool isHexLine(std::string_view line)
{
    try {
        HexText().add(line);
        return true;
    } catch (const protocol::UserError&) {
        return false;
    }
}

/// @returns the form that the beginning shows; empty if none fits.
std::string guess(std::string_view beginning)
{
    if (pcapng::isCapture(beginning)) {
        return "pcapng";
    }
    if (!isText(beginning)) {
        return holdsAFrame(beginning) ? "raw" : "";
    }
    std::string_view first;
    const bool empty = !anyLine(beginning, [&](std::string_view line) {
        first = line.substr(0, line.find('#'));
        return !isBlankLine(first);
    });
    for (const char* const format : {"saleae", "xxd", "hexdump", "sigrok"}) {
        if (!empty && makeText(format)->begins(first)) {
            return format;
        }
    }
    // At the end of the beginning, a byte may be cut.
    const bool cut = beginning.size() == CaptureReader::kBeginning && first.end() == beginning.end();
    if (empty || isHexLine(first) || (cut && isHexLine(first.substr(0, first.size() - 1)))) {
        return "hex";
    }
    LogForm log;
    return anyLine(beginning, [&](std::string_view line) { return log.begins(line); }) ? "log" : "";
}

/// @returns the direction that the channel's name tells.
std::optional<TraceEvent::Kind> directionOf(const std::string& channel, const std::string& station)
{
    static const BytePattern sends(R"((?i)(?:^|[^a-z])txd?(?:[^a-z]|$))");
    static const BytePattern receives(R"((?i)(?:^|[^a-z])rxd?(?:[^a-z]|$))");
    using Kind = TraceEvent::Kind;
    if (!station.empty()) {
        return lowerCase(channel) == lowerCase(station) ? Kind::kSent : Kind::kReceived;
    }
    const bool sent = RE2::PartialMatch(channel, sends);
    if (sent == RE2::PartialMatch(channel, receives)) {
        return std::nullopt;
    }
    return sent ? Kind::kSent : Kind::kReceived;
}

}  // namespace

CaptureReader::CaptureReader(std::istream& in, std::string name, CaptureTerms terms)
    : name_(std::move(name)), terms_(std::move(terms)), format_(terms_.format)
{
    in.exceptions(std::ios::badbit);
    constexpr std::string_view kMark = "\xEF\xBB\xBF";  // of UTF-8
    std::string beginning(format_ == "auto" ? kBeginning : kMark.size(), '\0');
    const auto got = in.rdbuf()->sgetn(beginning.data(), static_cast<std::streamsize>(beginning.size()));
    beginning.resize(static_cast<std::size_t>(got));
    if (beginning.starts_with(kMark)) {
        beginning.erase(0, kMark.size());
    }
    if (format_ == "auto") {
        format_ = guess(beginning);
    }
    if (format_.empty()) {
        std::vector<const char*> titles;
        std::ranges::transform(kCaptureFormats, std::back_inserter(titles), &CaptureFormat::title);
        const bool text = isText(beginning);
        throw protocol::UserError(fmt::format(
            "{}: expected a capture ({}), got {}; --format names the form", name_, fmt::join(titles, ", "),
            text ? excerpt(beginning.substr(0, beginning.find_first_of("\r\n"))) : "bytes without a frame"));
    }
    text_ = makeText(format_);
    source_ = std::make_unique<Source>(std::move(beginning), *in.rdbuf());
    if (format_.starts_with("pcap")) {
        source_->packets.emplace(source_->stream, name_);
    }
}

CaptureReader::~CaptureReader() = default;

std::optional<CapturePiece> CaptureReader::next()
{
    while (ready_.empty()) {
        if (failure_) {
            throw *failure_;
        }
        if (ended_) {
            return std::nullopt;
        }
        try {
            read();
        } catch (const protocol::UserError& error) {
            failure_ = error;
            flush();
        }
    }
    CapturePiece piece = std::move(ready_.front());
    ready_.pop_front();
    return piece;
}

void CaptureReader::read()
{
    if (source_->packets) {
        if (auto event = source_->packets->next()) {
            ready_.push_back({std::move(event), true});
        } else {
            finish();
        }
    } else if (format_ == "raw") {
        Rewound& buffer = source_->buffer;
        std::array<char, 4096> chunk;
        const bool atEnd = buffer.sgetc() == std::streambuf::traits_type::eof();
        const auto there = std::min<std::streamsize>(atEnd ? 0 : buffer.in_avail(), chunk.size());
        const auto got = static_cast<std::size_t>(buffer.sgetn(chunk.data(), there));
        Channel& only = channel("");
        only.scanner.add({reinterpret_cast<const std::uint8_t*>(chunk.data()), got});
        emit(only, std::nullopt);
        if (atEnd) {
            finish();
        }
    } else {
        readLine();
    }
}

void CaptureReader::readLine()
{
    line_.clear();
    int next = source_->buffer.sbumpc();
    const bool atEnd = next == std::streambuf::traits_type::eof();
    for (; next != std::streambuf::traits_type::eof() && next != '\n'; next = source_->buffer.sbumpc()) {
        line_ += static_cast<char>(next);
        if (line_.size() > kLongestTextLine) {
            fail(fmt::format("expected a line of at most {} characters, got more", kLongestTextLine));
        }
    }
    ++lineNumber_;
    if (atEnd) {
        finish();
        return;
    }
    if (line_.ends_with('\r')) {
        line_.pop_back();
    }
    if (isBlankLine(line_)) {
        return;
    }
    if (text_ == nullptr) {
        try {
            hex_.add(line_);
        } catch (const protocol::UserError& error) {
            fail(error.what());
        }
        emit(hex_.take(), std::nullopt, std::nullopt);
        return;
    }
    const auto line = text_->read(line_);
    if (!line) {
        fail(fmt::format("expected {}, got {}", text_->expected(), excerpt(line_)));
    }
    if (line->bytes.empty() && line->times == 0) {
        linesWithoutBytes_ += format_ == "log" ? 1 : 0;
        return;
    }
    Channel& from = channel(line->channel);
    for (std::size_t i = 0; i < line->times; ++i) {
        from.scanner.add(line->repeated);
    }
    from.scanner.add(line->bytes);
    emit(from, line->at);
}

CaptureReader::Channel& CaptureReader::channel(const std::string& name)
{
    const auto found = channels_.find(name);
    if (found != channels_.end()) {
        return found->second;
    }
    if (channels_.size() == kMostChannels) {
        fail(fmt::format("expected at most {} channels, got '{}' too", kMostChannels, name));
    }
    return channels_.emplace(name, Channel{name, directionOf(name, terms_.stationChannel), {}}).first->second;
}

void CaptureReader::emit(Channel& from, std::optional<SystemTime> at)
{
    emit(from.scanner.take(), from.direction, at);
}

void CaptureReader::emit(std::vector<ScannedPiece> pieces, std::optional<TraceEvent::Kind> direction,
                         std::optional<SystemTime> at)
{
    using Kind = TraceEvent::Kind;
    for (ScannedPiece& piece : pieces) {
        if (piece.kind == ScannedPiece::Kind::kGarbage || piece.kind == ScannedPiece::Kind::kIncomplete) {
            ready_.push_back({std::nullopt, at.has_value(), std::move(piece)});
            continue;
        }
        TraceEvent event;
        event.at = at.value_or(SystemTime());
        event.frame = std::move(piece.frame);
        if (piece.kind == ScannedPiece::Kind::kCorrupt) {
            event.kind = Kind::kCorrupt;
            event.bytes = std::move(piece.bytes);
        } else {
            event.kind =
                direction.value_or((event.frame.cmdOne & protocol::kReplyBit) != 0 ? Kind::kReceived : Kind::kSent);
        }
        ready_.push_back({std::move(event), at.has_value()});
    }
}

/// Hands out what the scanners hold back.
void CaptureReader::flush()
{
    hex_.end();
    emit(hex_.take(), std::nullopt, std::nullopt);
    for (auto& [name, each] : channels_) {
        each.scanner.end();
        emit(each, std::nullopt);
    }
}

void CaptureReader::finish()
{
    ended_ = true;
    flush();
    if (text_ != nullptr && !text_->missing().empty()) {
        fail(fmt::format("expected {}, got the end", text_->missing()));
    }
    const std::string& station = terms_.stationChannel;
    const bool known = std::ranges::any_of(
        channels_, [&](const auto& each) { return each.second.direction == TraceEvent::Kind::kSent; });
    if (!station.empty() && !known) {
        std::vector<std::string> names;
        for (const auto& [channel, each] : channels_) {
            if (!channel.empty()) {
                names.push_back(protocol::inQuotes(channel));
            }
        }
        throw protocol::UserError(fmt::format("{}: expected a channel {}, got {}", name_, protocol::inQuotes(station),
                                              names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "))));
    }
}

std::string CaptureReader::ignored() const
{
    const std::size_t packets = source_->packets ? source_->packets->foreign() : 0;
    return packets > 0 ? fmt::format("{} whose link type is not USER0", protocol::plural(packets, "packet"))
           : linesWithoutBytes_ > 0
               ? fmt::format("{} without TX: or RX: and bytes", protocol::plural(linesWithoutBytes_, "line"))
               : "";
}

void CaptureReader::fail(const std::string& what) const
{
    throw protocol::UserError(
        fmt::format("{}:{}: {}", name_, lineNumber_ + (line_.size() > kLongestTextLine ? 1 : 0), what));
}

}  // namespace station
