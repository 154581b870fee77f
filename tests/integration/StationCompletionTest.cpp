// What engineering-station tells of itself: completion, manual page, help.

#include <gmock/gmock.h>

#include "tests/integration/BenchTest.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// Runs a shell's command line in which $STATION is the program.
Outcome shell(const std::string& line)
{
    return run({"bash", "-c", line}, {{"STATION", shellWords(ENGINEERING_STATION)}});
}

struct Completion {
    const char* name;
    const char* line;
    std::vector<std::string> some;  // those that have to be there
    bool all;                       // whether there are no others
};

class CompletionTest : public testing::TestWithParam<Completion>
{
protected:
    /// What the shell offers for the last word of `line`.
    static std::vector<std::string> offered(const std::string& line)
    {
        const auto outcome =
            shell("source <($STATION completion bash); COMP_WORDBREAKS=$' \\t\\n\"\\'><=;|&(:'; COMP_LINE='" + line +
                  "'; COMP_POINT=${#COMP_LINE}; _engineering_station && " +
                  "for word in \"${COMPREPLY[@]}\"; do echo \"$word\"; done");
        EXPECT_THAT(outcome.err, IsEmpty());
        return linesOf(outcome.out);
    }
};

TEST_P(CompletionTest, OffersWhatMayStandThere)
{
    const auto words = offered(GetParam().line);

    if (GetParam().all) {
        EXPECT_THAT(words, testing::UnorderedElementsAreArray(GetParam().some));
    } else {
        EXPECT_THAT(words, testing::IsSupersetOf(GetParam().some));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Station, CompletionTest,
    testing::Values(
        Completion{"Verbs", "engineering-station ", {"send", "encode", "decode", "catalogue"}, false},
        Completion{"BeginningOfAVerb", "engineering-station se", {"send"}, true},
        Completion{"Subverbs", "engineering-station catalogue ", {"show", "list", "check"}, true},
        Completion{"Options", "engineering-station send --", {"--port", "--timeout", "--yes", "--json"}, false},
        Completion{"VerbBehindAnOption", "engineering-station --json enc", {"encode"}, true},
        Completion{"Commands", "engineering-station send tuner.pl", {"tuner.play"}, true},
        Completion{
            "CommandBehindAnOptionWithValue", "engineering-station send --timeout 3 tuner.pl", {"tuner.play"}, true},
        Completion{"Parameters", "engineering-station send audio.set-fader-balance ", {"fader=", "balance="}, true},
        // Bash has cut the word at '=', so only what stands behind it is offered.
        Completion{
            "Choices", "engineering-station send tuner.tune action=", {"seek-down", "seek-up", "store", "scan"}, true},
        Completion{"BeginningOfAChoice", "engineering-station encode tuner.tune action=st", {"store"}, true},
        Completion{
            "ParametersBehindOthers", "engineering-station send audio.set-fader-balance fader=1 b", {"balance="}, true},
        Completion{"ValuesOfAnOption", "engineering-station decode --from ", {"auto", "unit", "station"}, true},
        Completion{"ValuesOfAnOptionBehindEquals", "engineering-station decode --from=u", {"unit"}, true},
        Completion{"ArgumentWithFewValues", "engineering-station completion ", {"bash"}, true},
        Completion{"Groups", "engineering-station catalogue show tun", {"tuner", "tuner.play"}, false},
        Completion{"Files", "engineering-station catalogue check /etc/host", {"/etc/hosts"}, false},
        Completion{"PortPaths", "engineering-station send --port /dev/nul", {"/dev/null"}, true},
        Completion{"NothingForANumber", "engineering-station send --timeout ", {}, true}),
    [](const auto& row) { return row.param.name; });

TEST(StationCompletion, WorksWithWordsAlone)
{
    const auto outcome = shell(
        "source <($STATION completion bash); unset COMP_LINE; COMP_WORDS=(engineering-station cat); COMP_CWORD=1; "
        "_engineering_station; echo \"${COMPREPLY[@]}\"");

    EXPECT_EQ(outcome.out, "catalogue\n");
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
    for (const char* verb : {"send", "encode", "decode", "completion", "man", "catalogue", "catalogue show"}) {
        const auto outcome = shell(std::string("$STATION ") + verb + " --help");
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, StartsWith(std::string("Usage: engineering-station ") + verb));
        EXPECT_THAT(outcome.out, testing::AnyOf(HasSubstr("Examples:\n"), HasSubstr("Verbs:\n"))) << verb;
        EXPECT_THAT(outcome.out, HasSubstr("--json"));
    }
}

}  // namespace
}  // namespace tests
