#include "station/trace/Describe.h"

#include <array>

#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"

namespace station {

namespace {

struct KindText {
    const char* name;
    const char* arrow;
    const char* caption;
};

/// In the order of the kinds.
constexpr std::array kKinds{
    KindText{"sent", "→", "→ to unit"},    KindText{"received", "←", "← from unit"},
    KindText{"corrupt", "!", "← damaged"}, KindText{"lost", "!", "✕ port gone"},
    KindText{"back", "!", "✓ port back"},
};

const KindText& textOf(TraceEvent::Kind kind)
{
    return kKinds.at(static_cast<std::size_t>(kind));
}

/// @returns the bytes with `**` for those that are masked.
std::string withMask(std::string bytes, bool masked)
{
    // The first byte is a header or a code.
    constexpr std::string_view kMask = "2A";
    for (auto i = bytes.find(kMask, 1); masked && i != std::string::npos; i = bytes.find(kMask, i)) {
        bytes.replace(i, kMask.size(), "**");
    }
    return bytes;
}

}  // namespace

const char* name(TraceEvent::Kind kind)
{
    return textOf(kind).name;
}

const char* arrow(TraceEvent::Kind kind)
{
    return textOf(kind).arrow;
}

const char* caption(TraceEvent::Kind kind)
{
    return textOf(kind).caption;
}

std::string frameText(const TraceEvent& event)
{
    return hasFrame(event.kind) ? withMask(protocol::catalogue::formatFrame(event.frame), event.masked) : std::string();
}

std::string bytesText(const TraceEvent& event)
{
    return event.bytes.empty() ? frameText(event)
                               : withMask(protocol::catalogue::formatHexBytes(event.bytes), event.masked);
}

std::string describe(protocol::catalogue::Groups groups, const TraceEvent& event,
                     const protocol::catalogue::Decoded& decoded)
{
    std::string text;
    if (event.kind == TraceEvent::Kind::kCorrupt) {
        text = frameText(event) + ": wrong checksum";
    } else if (event.kind == TraceEvent::Kind::kBack) {
        text = "the device is there again";
    } else if (event.kind == TraceEvent::Kind::kLost) {
        text = event.text.empty() ? "the device went away" : event.text;
    } else {
        text = protocol::catalogue::format(groups, decoded, event.frame);
    }
    return protocol::printable(text);
}

}  // namespace station
