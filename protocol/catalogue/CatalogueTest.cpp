#include "protocol/catalogue/Catalogue.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <utility>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

template <class Action>
void forEveryCommand(Action action)
{
    for (const Group& group : groups()) {
        for (const Command& command : group.commands) {
            SCOPED_TRACE(fullKey(groups(), command));
            action(group, command);
        }
    }
}

std::vector<Argument> examplesOf(std::span<const Field> fields)
{
    std::vector<Argument> arguments;
    for (const Field& field : fields) {
        arguments.emplace_back(field.name, field.example);
    }
    return arguments;
}

TEST(CatalogueTest, FindsACommandByNameAndByCode)
{
    const Command* play = findCommand(groups(), "tuner.play");

    ASSERT_NE(play, nullptr);
    EXPECT_EQ(play, findCommand(groups(), 0x02, 0x00));
    EXPECT_EQ(findCommand(groups(), 0x02, 0x77), nullptr);
    EXPECT_EQ(findCommand(groups(), "tuner.pla"), nullptr);
}

TEST(CatalogueTest, HasTheHashOfItsFile)
{
    std::ifstream file(SOURCE_FOLDER "/protocol/catalogue.toml", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    gchar* const sum = g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.data(), static_cast<gssize>(text.size()));

    EXPECT_EQ(hash(), std::string_view(sum));
    g_free(sum);
}

TEST(CatalogueTest, TypesHaveTheirSizesAndRanges)
{
    struct Row {
        Type type;
        TypeInfo info;
    };
    const Row rows[] = {
        {Type::kU8, {"u8", 1, 0, 255}},
        {Type::kU16be, {"u16be", 2, 0, 65535}},
        {Type::kU24be, {"u24be", 3, 0, 16777215}},
        {Type::kU32be, {"u32be", 4, 0, 4294967295}},
        {Type::kI32be, {"i32be", 4, -2147483648LL, 2147483647}},
        // Of these, the number of bytes or records: no more fit into a frame of the unit.
        {Type::kBytes, {"bytes", 0, 0, 246}},
        {Type::kAscii, {"ascii", 0, 0, 246}},
        {Type::kHexText, {"hex", 0, 0, 246}},
        {Type::kRecords, {"records", 0, 0, 246}},
    };
    for (const auto& [type, info] : rows) {
        EXPECT_EQ(infoOf(type).name, info.name);
        EXPECT_EQ(sizeOf(type), info.size) << info.name;
        EXPECT_EQ(infoOf(type).minimum, info.minimum) << info.name;
        EXPECT_EQ(infoOf(type).maximum, info.maximum) << info.name;
    }
}

TEST(CatalogueTest, EncodesEveryExampleOfARequestAndDecodesItBack)
{
    forEveryCommand([](const Group&, const Command& command) {
        const Frame frame = encode(command, examplesOf(command.params));
        const Decoded decoded = decodeRequest(groups(), frame);

        EXPECT_GE(frame.params.size(), command.minimumParams);
        EXPECT_EQ(decoded.command, &command);
        EXPECT_THAT(decoded.problems, IsEmpty());
        EXPECT_THAT(decoded.fields, SizeIs(command.params.size()));
    });
}

TEST(CatalogueTest, DecodesEveryExampleOfAReplyAsTheReplyToItsCommand)
{
    forEveryCommand([](const Group&, const Command& command) {
        for (const auto& replies : {command.replies, command.later}) {
            for (const Reply& reply : replies) {
                Command asked;
                asked.cmdOne = reply.cmdOne;
                asked.cmdTwo = reply.cmdTwo;
                asked.params = reply.fields;
                const Frame frame = encode(asked, examplesOf(reply.fields));
                const Decoded decoded = decodeFromUnit(groups(), frame, &command);

                EXPECT_EQ(decoded.command, &command);
                EXPECT_EQ(decoded.reply, &reply);
                EXPECT_THAT(decoded.problems, IsEmpty());
            }
        }
    });
}

TEST(CatalogueTest, OnlyWhatCannotBeUndoneIsDestructive)
{
    std::vector<std::string> keys;
    forEveryCommand([&](const Group&, const Command& command) {
        if (command.destructive) {
            keys.push_back(fullKey(groups(), command));
        }
    });

    EXPECT_THAT(keys, ElementsAre("bluetooth.delete-pairings", "keys.factory-reset", "car.shut-down"));
}

// WIRE: two answers stand under another code than their command's.
TEST(CatalogueTest, KnowsTheAnswersThatStandElsewhere)
{
    const Command& deletePairings = *findCommand(groups(), "bluetooth.delete-pairings");
    EXPECT_TRUE(answers(deletePairings, {0x82, 0x08, {0x01}}));
    EXPECT_FALSE(answers(deletePairings, {0x84, 0x08, {0x01}}));  // only tells later that the pairings are gone

    const Command& carPlayMac = *findCommand(groups(), "identity.carplay-mac");
    EXPECT_TRUE(answers(carPlayMac, {0x8A, 0x0F, {}}));
    EXPECT_FALSE(answers(carPlayMac, {0x8A, 0x0F, {0x31}}));  // a password number
}

/// A reply has at most 246 parameter bytes, and the unit does not send a longer one.
TEST(CatalogueTest, SaysThatALongTextIsNotAnswered)
{
    forEveryCommand([&](const Group&, const Command& command) {
        for (const Reply& reply : command.replies) {
            for (const Field& field : reply.fields) {
                if (sizeOf(field.type) == 0 && field.type != Type::kRecords &&
                    (field.lenient || field.maximum == static_cast<std::int64_t>(kMaxParams))) {
                    EXPECT_THAT(std::string(command.silentWhen), testing::HasSubstr("more than 246 bytes"))
                        << fullKey(groups(), command);
                }
            }
        }
    });
}

TEST(CatalogueTest, MessageAboutASecretDoesNotQuoteIt)
{
    const Command* const write = findCommand(groups(), "identity.write-password-number");
    ASSERT_NE(write, nullptr);
    const std::vector<Argument> wrong{{"value", "pässwort"}};

    try {
        encode(*write, wrong);
        ADD_FAILURE() << "expected an error";
    } catch (const UserError& error) {
        EXPECT_STREQ(error.what(), "value: expected printable ASCII");
    }
}

}  // namespace
}  // namespace protocol::catalogue
