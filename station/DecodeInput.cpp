#include "station/DecodeInput.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"

namespace station {

namespace {

using protocol::catalogue::parseHexBytes;

constexpr std::size_t kShownOfALine = 40;

bool isBlank(std::string_view text)
{
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
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
        text_.end();
        return text_.take();
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
        text_.add(line);
        line.clear();
    }

    HexText text_;
    std::vector<std::string> bare_;
    std::string content_;
};

}  // namespace

void HexText::add(std::string_view line)
{
    line = line.substr(0, line.find('#'));
    const bool contents = line.find('[') != std::string_view::npos;
    const auto bytes = contents ? std::nullopt : parseHexBytes(line);
    if (bytes) {
        scanner_.add(*bytes);
    } else if (!contents || !addContents(line)) {
        throw protocol::UserError(fmt::format("expected {}, got '{}{}'",
                                              contents
                                                  ? "two codes and at most 252 bytes in brackets, as in '8F 00 [01]'"
                                                  : "bytes in hexadecimal, as in '2A A2 00 02 0F 01 FF EE'",
                                              line.substr(0, kShownOfALine), line.size() > kShownOfALine ? "…" : ""));
    }
}

/// Adds any number of contents, `82 01 [24 FE] 8F 00 [01]`.
/// @returns whether the line has nothing else.
bool HexText::addContents(std::string_view line)
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
        scanner_.end();
        pieces_ = take();
        pieces_.push_back({ScannedPiece::Kind::kFrame, {(*codes)[0], (*codes)[1], *std::move(params)}, {}});
        line.remove_prefix(close + 1);
    }
    return true;
}

std::vector<ScannedPiece> HexText::take()
{
    std::vector<ScannedPiece> taken = std::exchange(pieces_, {});
    std::ranges::move(scanner_.take(), std::back_inserter(taken));
    return taken;
}

std::vector<ScannedPiece> readHexArguments(const std::vector<std::string>& words)
{
    Arguments arguments;
    for (std::string_view word : words) {
        for (bool more = true; more;) {
            const auto end = word.find('\n');
            more = end != std::string_view::npos;
            const std::string_view line = word.substr(0, end);
            arguments.add(line.substr(0, line.find('#')));
            word.remove_prefix(more ? end + 1 : word.size());
        }
    }
    return arguments.take();
}

}  // namespace station
