#include "protocol/catalogue/Suggest.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "protocol/Text.h"
#include "protocol/catalogue/SampleCatalogue.h"

namespace protocol::catalogue {
namespace {

constexpr std::array<std::string_view, 4> kWords{"frequency", "volume", "up", "down"};

TEST(Suggest, NamesTheWordWithAMistypedCharacter)
{
    EXPECT_EQ(nearest("frequenzy", kWords), "frequency");
    EXPECT_EQ(nearest("volum", kWords), "volume");
    EXPECT_EQ(nearest("dwon", kWords), "down");
    EXPECT_EQ(nearest("VOLUME", kWords), "volume");
}

TEST(Suggest, NamesTheWordOfWhichOnlyTheBeginningWasWritten)
{
    EXPECT_EQ(nearest("freq", kWords), "frequency");
}

TEST(Suggest, NamesNothingForAWordUnlikeAll)
{
    EXPECT_EQ(nearest("balance", kWords), "");
    EXPECT_EQ(nearest("", kWords), "");
    EXPECT_EQ(nearest("xy", kWords), "");
    EXPECT_EQ(nearest(std::string(100000, 'f'), kWords), "");
}

TEST(NoSuchCommand, SaysWhatWasProbablyMeant)
{
    EXPECT_EQ(noSuchCommand(sample::kGroups, "tuner.pla"), "'tuner.pla' is not a command; did you mean 'tuner.play'?");
    EXPECT_EQ(noSuchCommand(sample::kGroups, "tunr.play"), "'tunr.play' is not a command; did you mean 'tuner.play'?");
}

TEST(NoSuchCommand, SaysThatThereIsNoSuchGroup)
{
    EXPECT_EQ(noSuchCommand(sample::kGroups, "radio.on"),
              "'radio.on' is not a command: there is no group 'radio' (see 'catalogue list')");
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
}

}  // namespace
}  // namespace protocol::catalogue
