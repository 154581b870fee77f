#include "station/trace/Pcapng.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "station/FrameScanner.h"

namespace station::pcapng {

namespace {

constexpr std::uint32_t kByteOrderMagic = 0x1A2B3C4D;

// Options. Numbers are per block type but for the first two.
constexpr std::uint16_t kEndOfOptions = 0;
constexpr std::uint16_t kSectionApplication = 4;
constexpr std::uint16_t kInterfaceName = 2;
constexpr std::uint16_t kInterfaceSpeed = 8;
constexpr std::uint16_t kInterfaceTimeResolution = 9;

constexpr std::uint32_t kInbound = 1;
constexpr std::uint32_t kOutbound = 2;
constexpr std::uint32_t kCrcError = 1u << 24;

constexpr std::size_t kLongestText = 60000;

template <class Number>
void put(std::string& out, Number number)
{
    for (std::size_t i = 0; i < sizeof number; ++i) {
        out += static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * i) & 0xFF);
    }
}

void pad(std::string& out)
{
    out.append((4 - out.size() % 4) % 4, '\0');
}

void putOption(std::string& out, std::uint16_t code, std::string_view value)
{
    put(out, code);
    put(out, static_cast<std::uint16_t>(value.size()));
    out += value;
    pad(out);
}

/// A text that is too long ends at the beginning of a character.
void putText(std::string& out, std::uint16_t code, std::string_view text)
{
    if (text.size() > kLongestText) {
        std::size_t end = kLongestText;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
            --end;
        }
        text = text.substr(0, end);
    }
    if (!text.empty()) {
        putOption(out, code, text);
    }
}

template <class Number>
void putNumber(std::string& out, std::uint16_t code, Number number)
{
    std::string value;
    put(value, number);
    putOption(out, code, value);
}

std::string block(std::uint32_t type, std::string_view body)
{
    const auto length = static_cast<std::uint32_t>(12 + body.size());
    std::string out;
    out.reserve(length);
    put(out, type);
    put(out, length);
    out += body;
    put(out, length);
    return out;
}

std::uint32_t flagsOf(TraceEvent::Kind kind)
{
    switch (kind) {
        case TraceEvent::Kind::kSent:
            return kOutbound;
        case TraceEvent::Kind::kReceived:
            return kInbound;
        case TraceEvent::Kind::kCorrupt:
            return kInbound | kCrcError;
        default:
            return 0;
    }
}

std::string commentOf(const TraceEvent& event, std::string_view comment)
{
    switch (event.kind) {
        case TraceEvent::Kind::kLost:
            return "lost: " + event.text;
        case TraceEvent::Kind::kBack:
            return "back";
        default:
            return std::string(comment);
    }
}

}  // namespace

std::string header(const Source& source)
{
    std::string section;
    put(section, kByteOrderMagic);
    put(section, std::uint16_t{1});  // version 1.0
    put(section, std::uint16_t{0});
    put(section, ~std::uint64_t{0});  // the section's length is not known
    putText(section, kSectionApplication, source.application);
    putOption(section, kEndOfOptions, {});

    std::string interface;
    put(interface, kUser0);
    put(interface, std::uint16_t{0});
    put(interface, std::uint32_t{0});  // packets are not cut
    putText(interface, kInterfaceName, source.port);
    if (source.baud > 0) {
        putNumber(interface, kInterfaceSpeed, std::uint64_t{source.baud});
    }
    putNumber(interface, kInterfaceTimeResolution, std::uint8_t{9});  // 10^-9 s
    putOption(interface, kEndOfOptions, {});

    return block(kSectionHeader, section) + block(kInterfaceDescription, interface);
}

std::string packet(const TraceEvent& event, std::string_view comment)
{
    const auto wire = wireBytes(event);
    const std::string bytes(wire.begin(), wire.end());
    const auto ns = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(event.at.time_since_epoch()).count());
    std::string body;
    put(body, std::uint32_t{0});  // the interface
    put(body, static_cast<std::uint32_t>(ns >> 32));
    put(body, static_cast<std::uint32_t>(ns & 0xFFFF'FFFF));
    put(body, static_cast<std::uint32_t>(bytes.size()));  // kept
    put(body, static_cast<std::uint32_t>(bytes.size()));  // on the line
    body += bytes;
    pad(body);
    putText(body, kComment, commentOf(event, comment));
    putNumber(body, kPacketFlags, flagsOf(event.kind));
    putOption(body, kEndOfOptions, {});
    return block(kEnhancedPacket, body);
}

File::File(const std::string& path, const Source& source, Describe describe, std::int64_t limit)
    : path_(path)
    , describe_(std::move(describe))
    , limit_(limit)
    , ownFile_(true)
    , descriptor_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640))
{
    if (!descriptor_.valid()) {
        throw std::system_error(errno, std::generic_category(), path + ": cannot be written");
    }
    append(header(source));
    if (!failure_.empty()) {
        throw std::system_error(errno, std::generic_category(), path + ": cannot be written");
    }
}

File::File(const Source& source, Describe describe)
    : path_("standard output"), describe_(std::move(describe)), descriptor_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0))
{
    append(header(source));
}

File::~File()
{
    fdatasync(descriptor_.get());
}

void File::on(const TraceEvent& event)
{
    if (!failure_.empty() || full_) {
        return;
    }
    const std::string block = packet(event, describe_ ? describe_(event) : std::string());
    full_ = end_ + static_cast<std::int64_t>(block.size()) > limit_;
    if (full_) {
        append(packet({TraceEvent::Kind::kLost,
                       event.at,
                       event.steady,
                       {},
                       "the capture ends here, at its limit of " + std::to_string(limit_) + " bytes"},
                      {}));
    } else {
        append(block);
    }
}

void File::append(std::string_view block)
{
    for (std::string_view rest = block; !rest.empty();) {
        const ssize_t written = write(descriptor_.get(), rest.data(), rest.size());
        if (written > 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            const int error = errno;
            failure_ = path_ + ": cannot be written: " + std::generic_category().message(error);
            // A reader would refuse the file with half a block. In standard output, which may have begun earlier, it
            // stays.
            [[maybe_unused]] const int cut = ownFile_ ? ftruncate(descriptor_.get(), end_) : 0;
            errno = error;
            return;
        }
    }
    end_ += static_cast<std::int64_t>(block.size());
}

}  // namespace station::pcapng
