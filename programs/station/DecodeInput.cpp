#include "programs/station/DecodeInput.h"

#include <algorithm>
#include <iterator>

#include "programs/station/Tool.h"
#include "protocol/catalogue/HexBytes.h"

namespace programs::station_tool {

namespace {

using protocol::catalogue::parseHexBytes;
using station::ScannedPiece;

constexpr std::size_t kShownOfALine = 40;

/// Collects bytes until something else interrupts them.
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
        std::ranges::move(station::scanFrames(stream_), std::back_inserter(pieces_));
        stream_.clear();
    }

    std::vector<std::uint8_t> stream_;
    std::vector<ScannedPiece> pieces_;
};

[[noreturn]] void refuse(const std::string& name, std::size_t number, std::string_view line)
{
    const std::string place = name.empty() ? "" : name + ":" + std::to_string(number) + ": ";
    throw WrongUse(place + "'" + std::string(line.substr(0, kShownOfALine)) + (line.size() > kShownOfALine ? "…" : "") +
                   "' are no bytes; hexadecimal was expected, as in '2A A2 00 02 0F 01 FF EE' or '8F 00 [01]'");
}

/// `8F 00 [01]`
bool addContent(Collector& collector, std::string_view line)
{
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
    return true;
}

bool addLine(Collector& collector, std::string_view line)
{
    if (line.find('[') != std::string_view::npos) {
        return addContent(collector, line);
    }
    const auto bytes = parseHexBytes(line);
    if (bytes) {
        collector.add(*bytes);
    }
    return bytes.has_value();
}

}  // namespace

std::vector<ScannedPiece> readHexText(const std::string& name, std::string_view text)
{
    Collector collector;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (!addLine(collector, line.substr(0, line.find('#')))) {
            refuse(name, number, line);
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
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
    // The type of a section header, the same in either byte order.
    return text.starts_with("\x0A\x0D\x0D\x0A");
}

}  // namespace programs::station_tool
