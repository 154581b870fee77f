#include <gtest/gtest.h>

#include <array>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {
namespace {

// A secret text behind a number of two bytes, as parameter, as reply, as later reply and as notice.
constexpr std::array kFields{Field{.name = "number", .type = Type::kU16be, .maximum = 65535},
                             Field{.name = "password", .type = Type::kAscii, .maximum = 246, .secret = true}};
constexpr std::array kPlainFields{Field{.name = "count", .type = Type::kU8, .maximum = 255}};
constexpr std::array kReplies{Reply{0x8A, 0x12, {}, kPlainFields}, Reply{0x8A, 0x11, {}, kFields}};
constexpr std::array kLater{Reply{0x8A, 0x21, {}, kFields}};
constexpr std::array kCommands{Command{.cmdOne = 0x0A, .cmdTwo = 0x10, .key = "write", .params = kFields},
                               Command{.cmdOne = 0x0A, .cmdTwo = 0x11, .key = "read", .replies = kReplies},
                               Command{.cmdOne = 0x0A, .cmdTwo = 0x12, .key = "count", .params = kPlainFields},
                               Command{.cmdOne = 0x0A, .cmdTwo = 0x13, .key = "ask", .later = kLater}};
constexpr std::array kNotices{Notice{0x8A, 0x30, "changed", {}, {}, kFields}};
constexpr std::array kGroups{Group{.code = 0x0A, .key = "identity", .commands = kCommands, .notices = kNotices}};

using Params = std::vector<std::uint8_t>;

TEST(Secret, IsMaskedInFramesOfEverySideAndKeepsItsLength)
{
    for (const auto& [one, two] : {std::pair{0x0A, 0x10}, {0x8A, 0x11}, {0x8A, 0x21}, {0x8A, 0x30}}) {
        Frame frame{static_cast<std::uint8_t>(one), static_cast<std::uint8_t>(two), {0x01, 0x02, '1', '2', '3'}};

        EXPECT_TRUE(maskSecrets(kGroups, frame)) << one << ' ' << two;
        EXPECT_EQ(frame.params, (Params{0x01, 0x02, '*', '*', '*'})) << one << ' ' << two;
    }
}

TEST(Secret, FramesWithoutAnyStayAsTheyAre)
{
    const Frame frames[] = {
        {0x0A, 0x12, {0x01, 0x02, 0x03}},  // a command without a secret
        {0x8A, 0x12, {0x01, 0x02, 0x03}},  // a reply without a secret
        {0x0A, 0x11, {0x01, 0x02, 0x03}},  // the request of a reply with a secret
        {0x8A, 0x10, {0x01, 0x02, 0x03}},  // not a reply of the catalogue
        {0x0A, 0x10, {0x01, 0x02}},        // cut off before the secret
        {0x0A, 0x10, {0x01}},
    };
    for (const Frame& frame : frames) {
        Frame masked = frame;

        EXPECT_FALSE(maskSecrets(kGroups, masked)) << int{frame.cmdOne} << ' ' << int{frame.cmdTwo};
        EXPECT_EQ(masked, frame);
    }
}

TEST(Secret, OfACommandIsInItsParametersOrItsReplies)
{
    EXPECT_TRUE(hasSecret(kCommands[0]));
    EXPECT_TRUE(hasSecret(kCommands[1]));
    EXPECT_FALSE(hasSecret(kCommands[2]));
    EXPECT_TRUE(hasSecret(kCommands[3]));
}

TEST(Secret, IsShownAsOneStarForEachByte)
{
    const Field& secret = kFields[1];
    constexpr Field kBytes{.name = "key", .type = Type::kBytes, .maximum = 246, .secret = true};

    EXPECT_EQ(format(DecodedField{&secret, std::string("1234"), {}}), "**** (masked)");
    EXPECT_EQ(format(DecodedField{&kBytes, Params{0x01, 0x02}, {}}), "** (masked)");
    EXPECT_EQ(format(DecodedField{&secret, std::string(), {}}), "\"\"");
    EXPECT_EQ(maskOf(DecodedField{kPlainFields.data(), std::int64_t{1}, {}}), "");
}

}  // namespace
}  // namespace protocol::catalogue
