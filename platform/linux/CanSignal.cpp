#include "platform/linux/CanSignal.h"

#include <fmt/format.h>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace unit {
namespace {

constexpr std::chrono::seconds kRetryCan{1};
constexpr std::chrono::seconds kBadFrame{1};
constexpr unsigned kBitsOfByte = 8;

std::string reasonOf(const UnitConfig::CanSignal& signal, int error)
{
    if (error == ENETDOWN) {
        return fmt::format("{0} is down; ip link set {0} up", signal.interface);
    }
    if (error == ENODEV) {
        return fmt::format("there is no interface {}; load its driver, or correct 'interface'", signal.interface);
    }
    if (error == EAFNOSUPPORT || error == EPROTONOSUPPORT) {
        return "the kernel has no CAN; load its module can_raw";
    }
    return signal.interface + ": " + std::generic_category().message(error);
}

/// The number of the bit's place in the order in which the signal runs, from the first bit of the data.
/// A big-endian signal begins with its highest bit, and runs down each byte.
unsigned placeOf(const UnitConfig::CanSignal& signal)
{
    const unsigned byte = signal.start / kBitsOfByte;
    const unsigned bit = signal.start % kBitsOfByte;
    return byte * kBitsOfByte + (signal.isBigEndian ? kBitsOfByte - 1 - bit : bit);
}

}  // namespace

unsigned bytesOf(const UnitConfig::CanSignal& signal)
{
    return (placeOf(signal) + signal.length + kBitsOfByte - 1) / kBitsOfByte;
}

std::optional<double> signalIn(std::span<const std::uint8_t> data, const UnitConfig::CanSignal& signal)
{
    if (data.size() < bytesOf(signal)) {
        return std::nullopt;
    }
    std::uint64_t raw = 0;
    for (unsigned i = 0; i < signal.length; ++i) {
        const unsigned place = placeOf(signal) + i;
        const unsigned byte = data[place / kBitsOfByte];
        if (signal.isBigEndian) {
            raw = raw << 1 | (byte >> (kBitsOfByte - 1 - place % kBitsOfByte) & 1);
        } else {
            raw |= std::uint64_t{byte >> place % kBitsOfByte & 1} << i;
        }
    }
    return static_cast<double>(raw) * signal.scale + signal.offset;
}

host::Descriptor openCan(const UnitConfig::CanSignal& signal, std::string& reason)
{
    const auto fail = [&] {
        reason = reasonOf(signal, errno);
        return host::Descriptor();
    };
    host::Descriptor can(socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, CAN_RAW));
    if (!can.valid()) {
        return fail();
    }
    const bool isExtended = signal.isExtended;
    const can_filter filter{signal.frame | (isExtended ? CAN_EFF_FLAG : 0),
                            (isExtended ? CAN_EFF_MASK : CAN_SFF_MASK) | CAN_EFF_FLAG | CAN_RTR_FLAG};
    const int on = 1;
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(signal.interface.c_str()));
    if (address.can_ifindex == 0) {
        errno = ENODEV;
        return fail();
    }
    if (setsockopt(can.get(), SOL_CAN_RAW, CAN_RAW_FILTER, &filter, sizeof filter) != 0 ||
        setsockopt(can.get(), SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on) != 0 ||
        bind(can.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return fail();
    }
    // An interface that is down can be bound: the socket has an error, then.
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(can.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        errno = error != 0 ? error : errno;
        return fail();
    }
    return can;
}

CanReader::CanReader(UnitConfig::CanSignal signal, Loop& loop, Events events, OpenCan open,
                     std::chrono::milliseconds silence)
    : signal_(std::move(signal)), loop_(loop), events_(std::move(events)), open_(std::move(open)), silence_(silence)
{
    loop_.post([this] { connect(); });
}

void CanReader::connect()
{
    retry_.reset();
    std::string reason;
    socket_ = open_(signal_, reason);
    if (!socket_.valid()) {
        lost(reason);
        return;
    }
    readable_ = loop_.whenReadable(socket_.get(), [this] { read(); });
    tellNoFrame("yet");
}

void CanReader::read()
{
    canfd_frame frame{};
    const ssize_t size = ::read(socket_.get(), &frame, sizeof frame);
    if (size < 0 && errno == EAGAIN) {
        return;
    }
    if (size <= 0) {
        lost(size < 0 ? reasonOf(signal_, errno) : signal_.interface + " has been closed");
        return;
    }
    // A classic frame and one of CAN FD differ in their size only.
    if ((size != CAN_MTU && size != CANFD_MTU) || frame.len > size - offsetof(canfd_frame, data)) {
        return;
    }
    if (const auto value = signalIn({frame.data, frame.len}, signal_)) {
        take(*value);
        return;
    }
    // Frames that are too short in between, or again and again, are told once.
    if (!bad_) {
        events_.presence(
            fmt::format("frame {:#x} of {}: expected at least {} bytes, got {}; correct 'start' and "
                        "'length'",
                        signal_.frame, signal_.interface, bytesOf(signal_), frame.len));
    }
    silent_.reset();
    held_.reset();
    bad_ = loop_.after(kBadFrame, [this] {
        bad_.reset();
        if (held_) {
            take(*std::exchange(held_, std::nullopt));
        }
    });
}

void CanReader::take(double value)
{
    if (bad_) {
        held_ = value;
        return;
    }
    silent_ = loop_.after(silence_, [this] { tellNoFrame("any more"); });
    events_.presence("");
    events_.value(value);
}

void CanReader::tellNoFrame(const char* since)
{
    silent_.reset();
    events_.presence(fmt::format("no frame {:#x} on {} {}; 'candump {}' of the package can-utils shows which come",
                                 signal_.frame, signal_.interface, since, signal_.interface));
}

void CanReader::lost(const std::string& reason)
{
    readable_.reset();
    socket_.reset();
    silent_.reset();
    bad_.reset();
    held_.reset();
    retry_ = loop_.after(kRetryCan, [this] { connect(); });
    events_.presence(reason);
}

}  // namespace unit
