#include "station/DecodeInput.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/trace/PcapngReader.h"

namespace station {

namespace {

using protocol::catalogue::parseHexBytes;

constexpr std::size_t kShownOfALine = 40;

/// Collects bytes and frames in their order.
class Collector
{
public:
    void add(const std::vector<std::uint8_t>& bytes) { stream_.insert(stream_.end(), bytes.begin(), bytes.end()); }

    void add(protocol::Frame frame)
    {
        scan();
        pieces_.push_back({ScannedPiece::Kind::kFrame, std::move(frame), {}});
    }

    std::vector<ScannedPiece> take()
    {
        scan();
        return std::move(pieces_);
    }

private:
    void scan()
    {
        std::ranges::move(scanFrames(stream_), std::back_inserter(pieces_));
        stream_.clear();
    }

    std::vector<std::uint8_t> stream_;
    std::vector<ScannedPiece> pieces_;
};

bool isBlank(std::string_view text)
{
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

[[noreturn]] void refuse(const std::string& name, std::size_t number, std::string_view line)
{
    const char* const expected = line.find('[') == std::string_view::npos
                                     ? "bytes in hexadecimal, as in '2A A2 00 02 0F 01 FF EE'"
                                     : "two codes and at most 252 bytes in brackets, as in '8F 00 [01]'";
    throw protocol::UserError(fmt::format("{}expected {}, got '{}{}'",
                                          name.empty() ? "" : fmt::format("{}:{}: ", name, number), expected,
                                          line.substr(0, kShownOfALine), line.size() > kShownOfALine ? "…" : ""));
}

/// Adds any number of contents, `82 01 [24 FE] 8F 00 [01]`.
/// @returns whether the line has nothing else.
bool addContents(Collector& collector, std::string_view line)
{
    while (!isBlank(line)) {
        const auto open = line.find('[');
        const auto close = line.find(']', open);
        const auto codes = parseHexBytes(line.substr(0, open));
        if (close == std::string_view::npos || !codes || codes->size() != 2) {
            return false;
        }
        auto params = parseHexBytes(line.substr(open + 1, close - open - 1));
        if (!params || params->size() > protocol::kMaxStationParams) {
            return false;
        }
        collector.add({(*codes)[0], (*codes)[1], *std::move(params)});
        line.remove_prefix(close + 1);
    }
    return true;
}

bool addLine(Collector& collector, std::string_view line)
{
    if (line.find('[') != std::string_view::npos) {
        return addContents(collector, line);
    }
    const auto bytes = parseHexBytes(line);
    if (bytes) {
        collector.add(*bytes);
    }
    return bytes.has_value();
}

/// Separates bare bytes from the contents of frames.
class Arguments
{
public:
    void add(std::string_view word)
    {
        if (content_.empty() && word.find('[') == std::string_view::npos) {
            bare_.emplace_back(word);
            return;
        }
        if (content_.empty() && isBlank(word.substr(0, word.find('[')))) {
            takeCodes();
        }
        content_ += (content_.empty() ? "" : " ") + std::string(word);
        if (content_.rfind(']') != std::string::npos && content_.rfind(']') > content_.rfind('[')) {
            finishBare();
            finish(content_);
        }
    }

    std::vector<ScannedPiece> take()
    {
        finishBare();
        finish(content_);
        return collector_.take();
    }

private:
    /// Moves the two codes before a bracket from the bare words: the shell has cut `82 01 [24 FE]` into words.
    void takeCodes()
    {
        for (std::size_t count = 0; count < 2 && !bare_.empty(); bare_.pop_back()) {
            const auto bytes = parseHexBytes(bare_.back());
            count += bytes ? bytes->size() : 2;
            content_.insert(0, content_.empty() ? bare_.back() : bare_.back() + " ");
        }
    }

    void finishBare()
    {
        std::string line = fmt::format("{}", fmt::join(bare_, " "));
        bare_.clear();
        finish(line);
    }

    void finish(std::string& line)
    {
        if (!addLine(collector_, line)) {
            refuse({}, 0, line);
        }
        line.clear();
    }

    Collector collector_;
    std::vector<std::string> bare_;
    std::string content_;
};

/// Calls `take(number, line)` for each line, without its comment.
template <class Take>
void forEachLine(std::string_view text, Take take)
{
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        take(number, line.substr(0, line.find('#')));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

}  // namespace

std::vector<ScannedPiece> readHexArguments(const std::vector<std::string>& words)
{
    Arguments arguments;
    for (const std::string& word : words) {
        forEachLine(word, [&](std::size_t, std::string_view line) { arguments.add(line); });
    }
    return arguments.take();
}

std::vector<ScannedPiece> readHexText(const std::string& name, std::string_view text)
{
    Collector collector;
    forEachLine(text, [&](std::size_t number, std::string_view line) {
        if (!addLine(collector, line)) {
            refuse(name, number, line);
        }
    });
    return collector.take();
}

bool isBinary(std::string_view text)
{
    return std::ranges::any_of(text, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x7F || (byte < 0x20 && c != '\n' && c != '\r' && c != '\t');
    });
}

bool isCapture(std::string_view text)
{
    // The type of pcapng's section header is the same in either byte order.
    return text.starts_with("\x0A\x0D\x0D\x0A") || pcapng::isClassic(text);
}

}  // namespace station
