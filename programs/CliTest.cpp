#include "programs/Cli.h"

#include <gmock/gmock.h>

namespace programs {
namespace {

using Words = std::vector<std::string>;

/// A program with two verbs, one of them below a noun.
class CliTest : public testing::Test
{
protected:
    CliTest()
    {
        setUpHelp(app_);
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.add_flag("--json", json_);
        app_.add_option("--config", config_)->type_name("FILE");
        CLI::App* const send = app_.add_subcommand("send", "Send");
        send->add_option("COMMAND", command_)->required();
        send->add_option("--timeout", timeout_)->check(secondsUpTo(60))->type_name("SECONDS");
        send->add_option("--from", from_)->check(CLI::IsMember({"unit", "station"}));
        send->add_option("--count", count_);
        send->add_flag("--yes", yes_)->excludes("--from");
        CLI::App* const plan = app_.add_subcommand("plan", "Plans");
        plan->require_subcommand(1);
        plan->add_subcommand("run", "Run")
            ->add_option("--port", ports_)
            ->allow_extra_args(false)
            ->type_name("KEY=VALUE");
    }

    /// @returns the mistake in the words behind the program's name; empty if there is none.
    std::string mistakeIn(const Words& words)
    {
        Words all{"tool"};
        all.insert(all.end(), words.begin(), words.end());
        std::vector<char*> argv;
        for (std::string& word : all) {
            argv.push_back(word.data());
        }
        try {
            readCommandLine(app_, static_cast<int>(argv.size()), argv.data());
            return "";
        } catch (const CLI::ParseError& error) {
            return explain(app_, error);
        }
    }

    CLI::App app_{"A tool", "tool"};
    bool json_ = false;
    bool yes_ = false;
    std::string config_;
    std::string command_;
    double timeout_ = 0;
    std::string from_;
    unsigned count_ = 0;
    Words ports_;
};

TEST_F(CliTest, OptionsMayStandBeforeTheirVerb)
{
    EXPECT_EQ(mistakeIn({"--timeout", "5", "--json", "send", "--count=3", "tuner.play"}), "");

    EXPECT_EQ(timeout_, 5);
    EXPECT_EQ(count_, 3U);
    EXPECT_TRUE(json_);
    EXPECT_EQ(command_, "tuner.play");
}

TEST_F(CliTest, OptionsMayStandBetweenNounAndVerb)
{
    EXPECT_EQ(mistakeIn({"--port", "a", "plan", "--port", "run", "run", "--port", "c"}), "");

    EXPECT_EQ(ports_, (Words{"a", "run", "c"}));
}

TEST_F(CliTest, WordBehindAnOptionBeforeTheVerbIsItsValue)
{
    EXPECT_EQ(mistakeIn({"--from", "send", "send", "x"}),
              "send: --from: expected one of unit, station, got 'send' (see 'tool send --help')");
    EXPECT_EQ(mistakeIn({"--config", "send", "send", "x"}), "");
}

struct Mistake {
    const char* name;
    Words words;
    const char* text;
};

class CliMistakeTest : public CliTest, public testing::WithParamInterface<Mistake>
{
};

TEST_P(CliMistakeTest, NamesThePlaceWhatIsExpectedAndWhatCame)
{
    EXPECT_EQ(mistakeIn(GetParam().words), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Cli, CliMistakeTest,
    testing::Values(
        Mistake{"NoVerb", {}, "expected a verb (send, plan), got none (see 'tool --help')"},
        Mistake{"NounOnly", {"plan"}, "plan: expected a verb (run), got none (see 'tool plan --help')"},
        Mistake{"MistypedVerb", {"sned"}, "unknown verb 'sned'; did you mean 'send'? (see 'tool --help')"},
        Mistake{"UnlikeAnyVerb", {"zzz"}, "unknown verb 'zzz'; expected one of send, plan (see 'tool --help')"},
        Mistake{"MistypedOption",
                {"send", "x", "--tiemout", "1"},
                "send: unknown option '--tiemout'; did you mean '--timeout'? (see 'tool send --help')"},
        Mistake{"VerbForAValue",
                {"--timeout", "send", "x"},
                "send: --timeout: expected SECONDS, got the verb 'send' (see 'tool send --help')"},
        Mistake{"VerbForAChoice",
                {"--from", "send", "x"},
                "send: --from: expected VALUE, got the verb 'send' (see 'tool send --help')"},
        Mistake{"VerbForTheProgramsValue",
                {"--config", "send", "x"},
                "--config: expected FILE, got the verb 'send' (see 'tool --help')"},
        Mistake{"NoVerbBehindAnOption", {"--timeout"}, "expected a verb behind --timeout (see 'tool --help')"},
        Mistake{"NoVerbBehindAnOptionsValue",
                {"--timeout", "1", "--yes"},
                "expected a verb behind --timeout (see 'tool --help')"},
        Mistake{"MistypedVerbBehindAnOption",
                {"--timeout", "1", "sned", "x"},
                "unknown verb 'sned'; did you mean 'send'? (see 'tool --help')"},
        Mistake{"UnknownLetter", {"-v", "send", "x"}, "send: unknown option '-v' (see 'tool send --help')"},
        Mistake{"OptionThatIsAnArgument",
                {"send", "x", "--", "--timeout"},
                "send: expected no further argument, got '--timeout' (see 'tool send --help')"},
        Mistake{"AssignmentWithoutItsOption",
                {"plan", "run", "a=1"},
                "plan run: expected no further argument, got 'a=1'; did you mean '--port a=1'? (see 'tool plan run "
                "--help')"},
        Mistake{"OneArgumentTooMany",
                {"send", "x", "y"},
                "send: expected no further argument, got 'y' (see 'tool send --help')"},
        Mistake{"MissingArgument", {"send"}, "send: expected COMMAND, got none (see 'tool send --help')"},
        Mistake{"MissingValue",
                {"send", "x", "--timeout"},
                "send: --timeout: expected SECONDS, got none (see 'tool send --help')"},
        Mistake{"OptionGivenTwice",
                {"send", "x", "--count", "1", "--count", "2"},
                "send: --count: expected one value, got 2 (see 'tool send --help')"},
        Mistake{"ValueOutOfRange",
                {"send", "x", "--timeout", "-1"},
                "send: --timeout: expected a number of seconds from 0 to 60, got '-1' (see 'tool send --help')"},
        Mistake{"WordForSeconds",
                {"send", "x", "--timeout=soon"},
                "send: --timeout: expected a number of seconds from 0 to 60, got 'soon' (see 'tool send --help')"},
        Mistake{"WordForANumber",
                {"send", "x", "--count", "two"},
                "send: --count: expected a number, got 'two' (see 'tool send --help')"},
        Mistake{"MistypedChoice",
                {"send", "x", "--from", "statoin"},
                "send: --from: expected one of unit, station, got 'statoin'; did you mean 'station'? (see 'tool send "
                "--help')"},
        Mistake{"ValueOfAFlag",
                {"send", "x", "--yes=maybe"},
                "send: --yes: expected no value, got one (see 'tool send --help')"},
        Mistake{"OptionsThatExcludeEachOther",
                {"send", "x", "--yes", "--from", "unit"},
                "send: expected --from or --yes, got both (see 'tool send --help')"}),
    [](const auto& row) { return row.param.name; });

TEST_F(CliTest, HelpSaysWhetherAVerbIsNeeded)
{
    EXPECT_THAT(app_.help(), testing::StartsWith("Usage: tool [OPTIONS] VERB …\n"));

    app_.require_subcommand(0, 1);

    EXPECT_THAT(app_.help(), testing::StartsWith("Usage: tool [OPTIONS] [VERB …]\n"));
}

TEST_F(CliTest, HelpWrapsTextAndKeepsIndentedLines)
{
    CLI::App app("Title\nText that is wrapped.\n  a line   as it stands", "tool");
    setUpHelp(app);

    EXPECT_THAT(app.help(), testing::StartsWith("Usage: tool [OPTIONS]\n\nTitle\n\nText that is wrapped.\n"
                                                "  a line   as it stands\n\nOptions:\n"));
}

}  // namespace
}  // namespace programs
