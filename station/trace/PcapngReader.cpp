#include "station/trace/PcapngReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "station/FrameScanner.h"
#include "station/trace/Pcapng.h"

namespace station::pcapng {

namespace {

constexpr std::uint32_t kObsoletePacket = 2;
constexpr std::uint32_t kSimplePacket = 3;

constexpr std::size_t kBlockHead = 8;
constexpr std::size_t kBlockTail = 4;

/// Longer than any block about a serial line.
constexpr std::uint32_t kLongestBlock = 16u << 20;

/// Of a packet's flags: 0 not told, 1 inbound, 2 outbound.
constexpr std::uint32_t kDirectionMask = 3;

std::uint64_t power(std::uint64_t base, unsigned exponent)
{
    std::uint64_t result = 1;
    for (; exponent > 0 && result <= std::numeric_limits<std::uint64_t>::max() / base; --exponent) {
        result *= base;
    }
    return result;
}

}  // namespace

Reader::Reader(std::istream& in, std::string name) : in_(in), name_(std::move(name)) {}

std::optional<TraceEvent> Reader::next()
{
    while (ready_.empty()) {
        if (!readBlock()) {
            return std::nullopt;
        }
    }
    TraceEvent event = std::move(ready_.front());
    ready_.pop_front();
    return event;
}

bool isClassic(std::string_view text)
{
    // In either byte order, with times in microseconds or nanoseconds.
    for (const char* magic : {"\xD4\xC3\xB2\xA1", "\xA1\xB2\xC3\xD4", "\x4D\x3C\xB2\xA1", "\xA1\xB2\x3C\x4D"}) {
        if (text.starts_with(magic)) {
            return true;
        }
    }
    return false;
}

bool isCapture(std::string_view text)
{
    // The type of pcapng's section header is the same in either byte order.
    return text.starts_with("\x0A\x0D\x0D\x0A") || isClassic(text);
}

/// @param head the first bytes of the file
void Reader::startClassic(std::string_view head)
{
    std::string header(head.substr(0, kBlockHead));
    header.resize(24);
    in_.read(header.data() + kBlockHead, static_cast<std::streamsize>(header.size() - kBlockHead));
    if (static_cast<std::size_t>(in_.gcount()) != header.size() - kBlockHead) {
        fail("the file ends within its header");
    }
    classic_ = true;
    bigEndian_ = header.front() == '\xA1';
    const bool nanoseconds = (number<std::uint32_t>(header, 0) & 0xFFFF) == 0x3C4D;
    // The upper half tells of check sequences.
    interfaces_.push_back({static_cast<std::uint16_t>(number<std::uint32_t>(header, 20) & 0xFFFF),
                           nanoseconds ? 1'000'000'000U : 1'000'000U, 0});
    offset_ = header.size();
}

/// Reads a packet of the older format.
bool Reader::readRecord()
{
    constexpr std::size_t kRecordHead = 16;
    std::string head(kRecordHead, '\0');
    in_.read(head.data(), kRecordHead);
    if (in_.gcount() == 0 && !in_.bad()) {
        return false;
    }
    if (in_.gcount() != kRecordHead) {
        fail("the file ends within a packet");
    }
    const auto length = number<std::uint32_t>(head, 8);
    if (length > kLongestBlock) {
        fail(fmt::format("expected a packet of at most {} bytes, got {}", kLongestBlock, length));
    }
    std::string bytes(length, '\0');
    in_.read(bytes.data(), length);
    if (in_.gcount() != static_cast<std::streamsize>(length)) {
        fail("the file ends within a packet");
    }
    const std::uint64_t seconds = number<std::uint32_t>(head, 0);
    addPacket(0, {seconds * interfaces_.front().ticksPerSecond + number<std::uint32_t>(head, 4), bytes, {}});
    offset_ += kRecordHead + length;
    return true;
}

bool Reader::readBlock()
{
    if (classic_) {
        return readRecord();
    }
    std::array<char, 12> head{};
    in_.read(head.data(), kBlockHead);
    const auto got = static_cast<std::size_t>(in_.gcount());
    if (got == 0 && offset_ > 0 && !in_.bad()) {
        return false;
    }
    const std::string_view start(head.data(), head.size());
    // The same in either byte order.
    const bool section = got >= 4 && start.starts_with("\x0A\x0D\x0D\x0A");
    if (offset_ == 0 && isClassic(start)) {
        startClassic(start);
        return true;
    }
    if (offset_ == 0 && !section) {
        fail("expected a pcapng or pcap capture, got another file");
    }
    if (got < kBlockHead) {
        fail("the file ends within a block");
    }
    std::size_t had = kBlockHead;
    if (section) {
        in_.read(head.data() + kBlockHead, 4);
        if (in_.gcount() != 4) {
            fail("the file ends within a block");
        }
        had += 4;
        if (start.substr(kBlockHead) == "\x4D\x3C\x2B\x1A") {
            bigEndian_ = false;
        } else if (start.substr(kBlockHead) == "\x1A\x2B\x3C\x4D") {
            bigEndian_ = true;
        } else {
            fail("expected the byte-order mark 1A2B3C4D in the section, got none");
        }
    }
    const auto type = number<std::uint32_t>(start, 0);
    const auto length = number<std::uint32_t>(start, 4);
    if (length < had + kBlockTail || length % 4 != 0 || length > kLongestBlock) {
        fail("expected a block of 12 to " + std::to_string(kLongestBlock) + " bytes, got " + std::to_string(length));
    }
    std::string rest(start.substr(kBlockHead, had - kBlockHead));
    const std::size_t already = rest.size();
    rest.resize(length - kBlockHead);
    in_.read(rest.data() + already, static_cast<std::streamsize>(rest.size() - already));
    if (static_cast<std::size_t>(in_.gcount()) != rest.size() - already) {
        fail("the file ends within a block");
    }
    if (number<std::uint32_t>(rest, rest.size() - kBlockTail) != length) {
        fail("expected the same length at both ends of a block, got two");
    }
    handle(type, std::string_view(rest).substr(0, rest.size() - kBlockTail));
    offset_ += length;
    return true;
}

void Reader::handle(std::uint32_t type, std::string_view body)
{
    switch (type) {
        case kSectionHeader:
            startSection(body);
            break;
        case kInterfaceDescription:
            addInterface(body);
            break;
        case kEnhancedPacket:
        case kObsoletePacket: {
            // In the obsolete one a count of drops takes the upper half of the interface's number.
            const std::uint32_t interface =
                type == kEnhancedPacket ? number<std::uint32_t>(body, 0) : number<std::uint16_t>(body, 0);
            const std::uint64_t high = number<std::uint32_t>(body, 4);
            const std::uint32_t kept = number<std::uint32_t>(body, 12);
            const auto bytes = part(body, 20, kept);
            const std::size_t padded = (std::size_t{kept} + 3) / 4 * 4;
            const auto options = part(body, 20 + padded, body.size() - std::min(body.size(), 20 + padded));
            addPacket(interface, {high << 32 | number<std::uint32_t>(body, 8), bytes, options});
            break;
        }
        case kSimplePacket: {
            const std::size_t kept = std::min<std::size_t>(number<std::uint32_t>(body, 0), body.size() - 4);
            addPacket(0, {0, part(body, 4, kept), {}});
            break;
        }
        default:
            break;
    }
}

void Reader::startSection(std::string_view body)
{
    if (const auto version = number<std::uint16_t>(body, 4); version != 1) {
        fail("expected pcapng of version 1, got version " + std::to_string(version));
    }
    interfaces_.clear();
}

void Reader::addInterface(std::string_view body)
{
    Interface interface;
    interface.linkType = number<std::uint16_t>(body, 0);
    eachOption(part(body, 8, body.size() - std::min<std::size_t>(body.size(), 8)),
               [&](std::uint16_t code, std::string_view value) {
                   constexpr std::uint16_t kTimeResolution = 9;
                   constexpr std::uint16_t kTimeOffset = 14;
                   if (code == kTimeResolution && value.size() == 1) {
                       const auto exponent = static_cast<unsigned char>(value[0]);
                       const bool binary = (exponent & 0x80) != 0;
                       interface.ticksPerSecond = power(binary ? 2 : 10, exponent & 0x7F);
                   } else if (code == kTimeOffset && value.size() == 8) {
                       interface.offsetSeconds = static_cast<std::int64_t>(number<std::uint64_t>(value, 0));
                   }
               });
    interfaces_.push_back(interface);
}

void Reader::addPacket(std::uint32_t interfaceNumber, const Packet& packet)
{
    if (interfaceNumber >= interfaces_.size()) {
        fail("expected a packet of a described interface, got interface " + std::to_string(interfaceNumber));
    }
    const Interface& interface = interfaces_[interfaceNumber];
    if (interface.linkType != kUser0) {
        ++foreign_;
        return;
    }
    TraceEvent event;
    std::uint32_t flags = 0;
    eachOption(packet.options, [&](std::uint16_t code, std::string_view value) {
        if (code == kComment) {
            event.text = value;
        } else if (code == kPacketFlags && value.size() == 4) {
            flags = number<std::uint32_t>(value, 0);
        }
    });

    // A clock that is far off, or an impossible resolution, gives a wrong time and does no other harm.
    const std::uint64_t seconds = packet.ticks / interface.ticksPerSecond;
    const long double fraction =
        static_cast<long double>(packet.ticks % interface.ticksPerSecond) / interface.ticksPerSecond;
    const auto whole = static_cast<std::int64_t>(std::min<std::uint64_t>(seconds, kFarthestSeconds)) +
                       std::clamp<std::int64_t>(interface.offsetSeconds, -1'000'000'000, 1'000'000'000);
    event.at = std::chrono::system_clock::time_point(std::chrono::seconds(whole)) +
               std::chrono::duration_cast<std::chrono::system_clock::duration>(
                   std::chrono::nanoseconds(static_cast<std::int64_t>(fraction * 1e9L + 0.5L)));

    if (packet.bytes.empty()) {
        event.kind = event.text == "back" ? TraceEvent::Kind::kBack : TraceEvent::Kind::kLost;
        if (const std::string_view mark = "lost: "; event.text.starts_with(mark)) {
            event.text.erase(0, mark.size());
        }
        ready_.push_back(std::move(event));
        return;
    }

    auto& assembler = directions_[(flags & kDirectionMask) % directions_.size()];
    assembler.append({reinterpret_cast<const std::uint8_t*>(packet.bytes.data()), packet.bytes.size()});
    if (!assembler.worthParsing()) {
        return;
    }
    while (auto received = assembler.next()) {
        const bool inbound = (flags & kDirectionMask) == 1 ||
                             ((flags & kDirectionMask) != 2 && (received->cmdOne & protocol::kReplyBit));
        const auto params = received->params();
        event.frame = {received->cmdOne, received->cmdTwo, {params.begin(), params.end()}};
        event.kind = !received->checksumHolds ? TraceEvent::Kind::kCorrupt
                     : inbound                ? TraceEvent::Kind::kReceived
                                              : TraceEvent::Kind::kSent;
        event.bytes = received->checksumHolds ? std::vector<std::uint8_t>() : wireBytes(*received);
        ready_.push_back(event);
    }
}

template <class Number>
Number Reader::number(std::string_view bytes, std::size_t offset) const
{
    const auto field = part(bytes, offset, sizeof(Number));
    Number result = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        const auto byte = static_cast<unsigned char>(field[bigEndian_ ? i : sizeof(Number) - 1 - i]);
        result = static_cast<Number>(static_cast<std::uint64_t>(result) << 8 | byte);
    }
    return result;
}

std::string_view Reader::part(std::string_view body, std::size_t offset, std::size_t length) const
{
    if (offset > body.size() || length > body.size() - offset) {
        fail("expected a longer block for its content");
    }
    return body.substr(offset, length);
}

template <class Visit>
void Reader::eachOption(std::string_view options, Visit visit) const
{
    while (!options.empty()) {
        const auto code = number<std::uint16_t>(options, 0);
        const std::size_t length = number<std::uint16_t>(options, 2);
        if (code == 0) {
            return;
        }
        visit(code, part(options, 4, length));
        options.remove_prefix(std::min(options.size(), 4 + (length + 3) / 4 * 4));
    }
}

void Reader::fail(const std::string& what) const
{
    const std::string place = offset_ == 0 ? "" : fmt::format("byte {}: ", offset_);
    throw protocol::UserError(fmt::format("{}: {}{}", name_, place, what));
}

}  // namespace station::pcapng
