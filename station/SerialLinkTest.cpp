#include "station/SerialLink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <system_error>

#include "tests/support/PtyPeer.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::PtyPeer;

constexpr auto kGenerous = 20s;

SerialLink::Clock::time_point in(std::chrono::nanoseconds time)
{
    return SerialLink::Clock::now() + time;
}

/// @returns `count` bytes from `link`, fewer when they do not come.
std::vector<std::uint8_t> readAll(SerialLink& link, std::size_t count)
{
    std::vector<std::uint8_t> bytes(count);
    std::size_t have = 0;
    while (have < count) {
        const std::size_t got = link.read(std::span(bytes).subspan(have), in(kGenerous));
        if (got == 0) {
            break;
        }
        have += got;
    }
    bytes.resize(have);
    return bytes;
}

std::error_code errorOf(const auto& action)
{
    try {
        action();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}

TEST(SerialLink, EveryByteValuePassesUnchangedInBothDirections)
{
    PtyPeer peer;
    SerialLink link(peer.path());
    std::vector<std::uint8_t> all(256);
    std::iota(all.begin(), all.end(), std::uint8_t{0});

    link.write(all, in(kGenerous));
    EXPECT_EQ(peer.read(256), all);

    peer.write(all);
    EXPECT_EQ(readAll(link, 256), all);
}

TEST(SerialLink, ReadGivesNothingWhenNothingComesByTheDeadline)
{
    PtyPeer peer;
    SerialLink link(peer.path());
    std::array<std::uint8_t, 8> buffer;
    const auto deadline = in(20ms);

    EXPECT_EQ(link.read(buffer, deadline), 0u);
    EXPECT_GE(SerialLink::Clock::now(), deadline);
}

TEST(SerialLink, WriteToALineThatTakesNothingEndsAtTheDeadline)
{
    PtyPeer peer;
    SerialLink link(peer.path());
    const std::vector<std::uint8_t> tooMuch(1 << 20, 0x55);

    EXPECT_EQ(errorOf([&] { link.write(tooMuch, in(20ms)); }), std::errc::timed_out);
}

TEST(SerialLink, DiscardDropsWhatHasComeAndKeepsWhatComesAfter)
{
    PtyPeer peer;
    SerialLink link(peer.path());
    peer.write({0x01, 0x02, 0x03});
    peer.waitUntilArrived(3);

    link.discardInput();
    peer.write({0x04});

    EXPECT_THAT(readAll(link, 1), ElementsAre(0x04));
}

TEST(SerialLink, ReadTellsThatTheOtherEndIsGone)
{
    PtyPeer peer;
    SerialLink link(peer.path());
    peer.hangUp();
    std::array<std::uint8_t, 8> buffer;

    EXPECT_EQ(errorOf([&] { link.read(buffer, in(kGenerous)); }), std::errc::io_error);
}

TEST(SerialLink, PathThatDoesNotExistIsNamedInTheError)
{
    try {
        SerialLink link("/dev/no-such-line");
        FAIL() << "it was opened";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
        EXPECT_THAT(error.what(), HasSubstr("/dev/no-such-line"));
    }
}

TEST(SerialLink, FileThatIsNotATerminalIsRefused)
{
    EXPECT_EQ(errorOf([] { SerialLink link("/dev/null"); }), std::errc::inappropriate_io_control_operation);
}

TEST(SerialLink, UnknownBaudIsRefused)
{
    PtyPeer peer;

    EXPECT_EQ(errorOf([&] { SerialLink link(peer.path(), 12345); }), std::errc::invalid_argument);
}

TEST(SerialLink, BaudIsSetOnTheDevice)
{
    PtyPeer peer;
    SerialLink link(peer.path(), 9600);
    const int device = open(peer.path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    ASSERT_EQ(tcgetattr(device, &settings), 0);
    close(device);

    EXPECT_EQ(cfgetospeed(&settings), speed_t{B9600});
    EXPECT_EQ(settings.c_cflag & CSIZE, tcflag_t{CS8});
    EXPECT_EQ(settings.c_cflag & (PARENB | CSTOPB), tcflag_t{0});
}

}  // namespace
}  // namespace station
