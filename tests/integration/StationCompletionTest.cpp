// What engineering-station tells of itself: completion, manual page, help.

#include <gmock/gmock.h>

#include "tests/integration/BenchTest.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Runs a shell's command line in which $STATION is the program.
Outcome shell(const std::string& line)
{
    return run({"bash", "-c", line}, {{"STATION", shellWords(ENGINEERING_STATION)}});
}

/// What bash offers for the last word of `line`, over the program's script.
std::vector<std::string> offeredByBash(const std::string& line)
{
    const auto outcome = shell(
        "engineering-station() { $STATION \"$@\"; }; source <($STATION completion bash); "
        "COMP_WORDBREAKS=$' \\t\\n\"\\'><=;|&(:'; COMP_LINE='" +
        line +
        "'; COMP_POINT=${#COMP_LINE}; _engineering_station && "
        "for word in \"${COMPREPLY[@]}\"; do echo \"$word\"; done");
    EXPECT_THAT(outcome.err, IsEmpty());
    return linesOf(outcome.out);
}

TEST(StationCompletion, OffersVerbsAndKeys)
{
    EXPECT_THAT(offeredByBash("engineering-station sen"), ElementsAre("send"));
    EXPECT_THAT(offeredByBash("engineering-station send --timeout 3 tuner.pl"), ElementsAre("tuner.play"));
    EXPECT_THAT(offeredByBash("engineering-station send --timeout "), IsEmpty());
}

// Bash has cut the word at '=', so only the rest of it is offered.
TEST(StationCompletion, OffersTheRestOfAWordThatBashHasCut)
{
    EXPECT_THAT(offeredByBash("engineering-station send tuner.tune action=st"), ElementsAre("store"));
    EXPECT_THAT(offeredByBash("engineering-station decode --from=u"), ElementsAre("unit"));
    EXPECT_THAT(offeredByBash("engineering-station --config=/etc/host"), testing::Contains("/etc/hosts"));
}

TEST(StationCompletion, OffersTheShellsFileNames)
{
    EXPECT_THAT(offeredByBash("engineering-station catalogue check /etc/host"), testing::Contains("/etc/hosts"));
    EXPECT_THAT(offeredByBash("engineering-station send --port /dev/nul"), ElementsAre("/dev/null"));
    EXPECT_THAT(offeredByBash("engineering-station plan run --results /de"), ElementsAre("/dev"));
}

TEST(StationCompletion, WorksWithWordsAlone)
{
    const auto outcome = shell(
        "engineering-station() { $STATION \"$@\"; }; source <($STATION completion bash); unset COMP_LINE; "
        "COMP_WORDS=(engineering-station cat); COMP_CWORD=1; _engineering_station; echo \"${COMPREPLY[@]}\"");

    EXPECT_EQ(outcome.out, "catalogue\n");
}

TEST(StationCompletion, HasAScriptForEachShell)
{
    for (const char* name : {"bash", "zsh", "fish"}) {
        const auto outcome = shell(std::string("$STATION completion ") + name);
        EXPECT_EQ(outcome.status, 0) << name;
        EXPECT_THAT(outcome.out, HasSubstr(std::string(name) + " completion of engineering-station")) << name;
    }
}

TEST(StationMan, IsAPageWithoutAWarning)
{
    const auto outcome = shell("$STATION man | groff -man -k -ww -Tutf8 -P-cbou");

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("EXIT STATUS"), HasSubstr("--expect-none"), HasSubstr("catalogue show"),
                                   HasSubstr("send test.set-mode mode=on")));
}

TEST(StationMan, TellsNothingOfTheMachineThatMadeIt)
{
    const auto outcome = run({ENGINEERING_STATION, "man"}, {{"XDG_RUNTIME_DIR", "/here/only"}});

    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("/here/only")));
}

TEST(StationHelp, OfEveryVerbShowsAnExampleOrItsVerbs)
{
    for (const char* verb :
         {"send", "encode", "decode", "replay", "completion", "man", "catalogue", "catalogue show"}) {
        const auto outcome = shell(std::string("$STATION ") + verb + " --help");
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, StartsWith(std::string("Usage: engineering-station ") + verb));
        EXPECT_THAT(outcome.out, testing::AnyOf(HasSubstr("Examples:\n"), HasSubstr("Verbs:\n"))) << verb;
        EXPECT_THAT(outcome.out, HasSubstr("--json"));
    }
}

}  // namespace
}  // namespace tests
