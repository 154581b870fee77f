#include "programs/station/Completion.h"

#include <gmock/gmock.h>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"

namespace programs::station_tool {
namespace {

using Words = std::vector<std::string>;

/// The tool's own tree, over a machine with one port.
std::vector<Candidate> complete(const Words& line)
{
    station::Interrupt interrupt;
    CLI::App app;
    Station station(interrupt);
    Tool tool{app, false, {}, interrupt, &station};
    setUp(tool);
    return completions(app, line, [] { return std::vector<Candidate>{{"/dev/ttyUSB7", "Adapter"}}; });
}

struct Line {
    const char* name;
    Words words;
    Words some;       ///< have to be offered
    bool all = true;  ///< nothing else is
};

class CompletionOfALine : public testing::TestWithParam<Line>
{
};

TEST_P(CompletionOfALine, OffersTheWordsThatMayStandThere)
{
    Words offered;
    for (const Candidate& each : complete(GetParam().words)) {
        offered.push_back(each.word);
    }

    if (GetParam().all) {
        EXPECT_THAT(offered, testing::UnorderedElementsAreArray(GetParam().some));
    } else {
        EXPECT_THAT(offered, testing::IsSupersetOf(GetParam().some));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Station, CompletionOfALine,
    testing::Values(Line{"NoWord", {}, {}}, Line{"Verbs", {""}, {"send", "encode", "decode", "catalogue"}, false},
                    Line{"BeginningOfAVerb", {"se"}, {"send", "serve"}}, Line{"HiddenVerb", {"__"}, {}},
                    Line{"Subverbs", {"catalogue", ""}, {"show", "list", "check"}},
                    Line{"Options", {"send", "--"}, {"--port", "--timeout", "--yes", "--json", "--help"}, false},
                    Line{"ShortOption", {"send", "-h"}, {"-h"}}, Line{"OptionOfTheProgramOnly", {"send", "--vers"}, {}},
                    Line{"VerbBehindAnOption", {"--json", "enc"}, {"encode"}},
                    Line{"VerbBehindAnOptionWithValue", {"--config", "send", "enc"}, {"encode"}},
                    Line{"VerbBehindAnOptionWithValueInOneWord", {"--config=send", "enc"}, {"encode"}},
                    Line{"VerbBehindItsOptionWithValue", {"--port", "send", "send", "tuner.pl"}, {"tuner.play"}},
                    Line{"Commands", {"send", "tuner.pl"}, {"tuner.play"}},
                    Line{"CommandBehindAnOptionWithValue", {"send", "--timeout", "3", "tuner.pl"}, {"tuner.play"}},
                    Line{"NoNoticeAsACommand", {"send", "keys.pre"}, {}},
                    Line{"Parameters", {"send", "audio.set-fader-balance", ""}, {"fader=", "balance="}},
                    Line{"ParametersOfAnUnknownCommand", {"send", "no.such", ""}, {}},
                    Line{"ParametersOfBytes", {"send", "0F", ""}, {}},
                    Line{"Choices",
                         {"send", "tuner.tune", "action="},
                         {"action=seek-down", "action=seek-up", "action=store", "action=scan"}},
                    Line{"BeginningOfAChoice", {"encode", "tuner.tune", "action=st"}, {"action=store"}},
                    Line{"ParametersBehindOthers", {"send", "audio.set-fader-balance", "fader=1", "b"}, {"balance="}},
                    Line{"ValuesOfAnOption", {"decode", "--from", ""}, {"auto", "unit", "station"}},
                    Line{"ValuesOfAnOptionBehindEquals", {"decode", "--from=u"}, {"--from=unit"}},
                    Line{"FormsOfCaptures", {"replay", "--format", "s"}, {"saleae", "sigrok"}},
                    Line{"CaptureToReplay", {"replay", "/tm"}, {":files"}},
                    Line{"ValuesOfAnUnknownOption", {"decode", "--form=u"}, {}},
                    Line{"ArgumentWithFewValues", {"completion", ""}, {"bash", "zsh", "fish"}},
                    Line{"VerdictsOfTheList", {"report", "list", "--verdict", "A"}, {"ABORTED"}},
                    Line{"OptionsOfTheStatistics",
                         {"report", "stats", "--"},
                         {"--results", "--plan", "--serial", "--since", "--csv", "--html", "--json"},
                         false},
                    Line{"Keys", {"catalogue", "show", "tun"}, {"tuner", "tuner.play"}, false},
                    Line{"NoticeAsAKey", {"catalogue", "show", "keys.pre"}, {"keys.pressed"}},
                    Line{"Files", {"catalogue", "check", "/etc/host"}, {":files"}},
                    Line{"FilesOfAnOption", {"--config=/etc"}, {":files"}},
                    Line{"Directories", {"plan", "run", "--results", "/tm"}, {":directories"}},
                    Line{"Ports", {"send", "--port", ""}, {"/dev/ttyUSB7"}},
                    Line{"PortsBehindEquals", {"send", "--port=/dev/t"}, {"--port=/dev/ttyUSB7"}},
                    Line{"PathOfAnotherPort", {"send", "--port", "/dev/nul"}, {":files"}},
                    Line{"NothingForANumber", {"send", "--timeout", ""}, {}},
                    Line{"NothingWithoutArguments", {"ports", ""}, {}}),
    [](const auto& row) { return row.param.name; });

TEST(Completion, SaysWhatAWordMeans)
{
    const auto verbs = complete({"monit"});
    ASSERT_EQ(verbs.size(), 1U);
    EXPECT_EQ(verbs.front().meaning, "Show the traffic on a line");

    const auto ports = complete({"send", "--port", "/dev/tty"});
    ASSERT_EQ(ports.size(), 1U);
    EXPECT_EQ(ports.front().meaning, "Adapter");
}

}  // namespace
}  // namespace programs::station_tool
