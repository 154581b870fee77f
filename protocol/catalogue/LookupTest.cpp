#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/SampleCatalogue.h"

namespace protocol::catalogue {
namespace {

using sample::kGroups;

const Command& command(const char* key)
{
    return *findCommand(kGroups, key);
}

TEST(Lookup, FindsAGroupByCodeAndByKey)
{
    EXPECT_EQ(findGroup(kGroups, 0x05)->key, "gps");
    EXPECT_EQ(findGroup(kGroups, "gps")->code, 0x05);
    EXPECT_EQ(findGroup(kGroups, 0x85), nullptr);
    EXPECT_EQ(findGroup(kGroups, "Gps"), nullptr);
}

TEST(Lookup, FindsACommandByItsTwoBytesAndByItsKey)
{
    EXPECT_EQ(findCommand(kGroups, 0x02, 0x04), findCommand(kGroups, "tuner.tune"));
    EXPECT_EQ(findCommand(kGroups, "tuner.tune")->key, "tune");
    EXPECT_EQ(findCommand(kGroups, 0x82, 0x04), nullptr);
    EXPECT_EQ(findCommand(kGroups, 0x02, 0x05), nullptr);
}

TEST(Lookup, FindsNothingUnderAKeyThatIsNoneOfACommand)
{
    for (const char* key : {"", ".", "tuner", "tuner.", ".play", "tuner.play.", "tuner.Play", "keys.pressed"}) {
        EXPECT_EQ(findCommand(kGroups, key), nullptr) << key;
    }
}

TEST(Lookup, FindsANotice)
{
    EXPECT_EQ(findNotice(kGroups, "keys.pressed")->cmdTwo, 0x11);
    EXPECT_EQ(findNotice(kGroups, "tuner.play"), nullptr);
}

TEST(Lookup, GivesBackTheKeyThatItWasGiven)
{
    for (const Group& group : kGroups) {
        for (const Command& each : group.commands) {
            EXPECT_EQ(findCommand(kGroups, fullKey(kGroups, each)), &each);
        }
    }
    EXPECT_EQ(fullKey(kGroups, command("bluetooth.address")), "bluetooth.address");
    EXPECT_EQ(fullKey(kGroups, *findNotice(kGroups, "keys.pressed")), "keys.pressed");
}

TEST(Answers, AreRecognisedByTheirCode)
{
    EXPECT_TRUE(answers(command("tuner.frequency"), {0x82, 0x01, {0x22, 0x2E}}));
    EXPECT_FALSE(answers(command("tuner.frequency"), {0x82, 0x02, {0x22, 0x2E}}));
    EXPECT_FALSE(answers(command("tuner.frequency"), {0x02, 0x01, {0x22, 0x2E}}));
}

TEST(Answers, WhoseFieldsDoNotFitAreAnswersToo)
{
    EXPECT_TRUE(answers(command("tuner.frequency"), {0x82, 0x01, {}}));
    EXPECT_TRUE(answers(command("tuner.frequency"), {0x82, 0x01, {0x00, 0x00, 0x00}}));
    EXPECT_TRUE(answers(command("bluetooth.delete_pairings"), {0x82, 0x08, {0x07, 0x07}}));
}

TEST(Answers, UnderAForeignCodeAreRecognisedByTheirParameters)
{
    EXPECT_TRUE(answers(command("identity.mac"), {0x8A, 0x12, {}}));
    EXPECT_TRUE(answers(command("identity.mac"), {0x8A, 0x0F, {}}));
    EXPECT_FALSE(answers(command("identity.mac"), {0x8A, 0x0F, {0x31}}));
    EXPECT_TRUE(answers(command("identity.password"), {0x8A, 0x0F, {0x31}}));
}

TEST(Answers, DoNotComeToACommandThatHasNone)
{
    EXPECT_FALSE(answers(command("tuner.play"), {0x82, 0x00, {}}));
}

TEST(Answers, ThatComeLaterAreNoneAtOnce)
{
    EXPECT_FALSE(answers(command("bluetooth.delete_pairings"), {0x84, 0x08, {0x01}}));
}

TEST(AnswersUnknown, HaveTheGroupWithBitSevenAndTheCommand)
{
    EXPECT_TRUE(answersUnknown({0x33, 0x44, {}}, {0xB3, 0x44, {0x01}}));
    EXPECT_FALSE(answersUnknown({0x33, 0x44, {}}, {0x33, 0x44, {0x01}}));
    EXPECT_FALSE(answersUnknown({0x33, 0x44, {}}, {0xB3, 0x45, {0x01}}));
}

TEST(NoSuchCommand, SaysWhatWasProbablyMeant)
{
    EXPECT_EQ(noSuchCommand(sample::kGroups, "tuner.pla"), "'tuner.pla' is not a command; did you mean 'tuner.play'?");
    EXPECT_EQ(noSuchCommand(sample::kGroups, "tunr.play"), "'tunr.play' is not a command; did you mean 'tuner.play'?");
}

TEST(NoSuchCommand, SaysThatThereIsNoSuchGroup)
{
    EXPECT_EQ(noSuchCommand(sample::kGroups, "radio.on"),
              "'radio.on' is not a command: unknown group 'radio' (see 'catalogue list')");
    EXPECT_EQ(noSuchCommand(sample::kGroups, "radio"), "'radio' is not a command (see 'catalogue list')");
}

TEST(NoSuchCommand, SuggestsNothingWhenTheGroupHasNothingLikeIt)
{
    EXPECT_EQ(noSuchCommand(sample::kGroups, "tuner.launch"), "'tuner.launch' is not a command (see 'catalogue list')");
}

TEST(NoSuchCommand, SaysHowACommandOfAGroupIsWritten)
{
    EXPECT_EQ(noSuchCommand(sample::kGroups, "gps"),
              "'gps' is a group; write a command as GROUP.COMMAND, as in 'gps.satellites'");
    EXPECT_EQ(noSuchCommand(sample::kGroups, "keys"), "'keys' is a group; write a command as GROUP.COMMAND");
}

}  // namespace
}  // namespace protocol::catalogue
