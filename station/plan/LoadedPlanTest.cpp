// What the loader makes of the keys of a plan. LoadTest has its complaints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/SampleCatalogue.h"
#include "station/plan/Load.h"
#include "tests/support/TempDir.h"

namespace station::plan {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kEverything = R"(schema = 1
name = "every-key-9"
title = "Every key"
description = "What a plan can say."
on_link_loss = "continue"
[defaults]
timeout = 2
retries = 3
retry_delay = 0.25
on_failure = "stop-group"
teardown_limit = 7.5
[line]
max_reconnects = 1
max_repeated = 2
max_corrupt = 3
max_garbage = 0
[[setup]]
name = "Before"
steps = [{ send = "test.mode" }]
[[main]]
name = "Frames"
repeat = 4
retries = 5
retry_delay = 1
requires = "headunit"
steps = [
  { send = "tuner.frequency", name = "Old", expect = { frequency = { min = 87, max = 88.5, unit = "MHz" } }, store = "old" },
  { send = "tuner.play", with = { frequency = "${old}" }, only_if = { old = 8750 }, if_stored = "old", repeat = 6 },
  { send = "tuner.frequency", reply = "optional", timeout = 0.5, retries = 0, retry_delay = 0, on_failure = "next" },
  { send = "audio.volume", reply = "none", requires = "headunit" },
  { send = "audio.volume", expect = { volume = { equals = 3, present = true, max = 9 } }, store = { level = "volume" } },
  { send = "media.track-1", expect_later = { index = 0 }, store = "track" },
  { send = "identity.write-password-number", with = { value = "1234" } },
  { wait = "keys.pressed", expect = { key = "${level}", status = { present = false } }, store = { pressed = "key", how = "status" } },
  { wait = "media.track-1", expect = { index = { min = 0 } } },
  { send = "bluetooth.name", expect = { name = { matches = "HU-${old}[0-9]" } } },
]
[[main]]
name = "Others"
on_failure = "stop"
only_if = { old = { "!=" = 8500, in = [8750, 8760] } }
steps = [
  { prompt = "Lit?", id = "lit" },
  { prompt = "Dark?", id = "dark", expect = "no", timeout = 1 },
  { prompt = "Voltage?", id = "voltage", answer = "number", expect = { min = 13, max = 13.5, unit = "V" } },
  { prompt = "Label?", id = "label", answer = "text", expect = { equals = "${old}", matches = "[A-Z]+" }, store = "said", unique = true },
  { prompt = "Text?", id = "text", answer = "text", expect = "HU 7" },
  { prompt = "Scan", id = "scan", answer = "text", mask = "HU[0-9]+" },
  { prompt = "Side?", id = "side", answer = ["left", "right"], expect = "left", store = "where", keep = "all" },
  { headunit = { set = "/audio/volume", value = { a = [1, 2.5, "x", true] } } },
  { headunit = { event = "OnCarSpeedChange", with = { speed = 70 } }, on_failure = "stop-group" },
  { headunit = { event = "OnReset" } },
  { pause = "1.5s" },
  { send = "tuner.frequency", poll = { until = { frequency = 8750 }, every = 0.5, for = "1min" } },
  { send = "tuner.frequency", poll = { until = { frequency = 8750 } }, max_time = "50ms" },
  { send = "gps.satellites", expect = { satellites = { count = { min = 4, max = 9 }, where = { signal = { min = 30 }, number = 5 } } } },
  { send = "gps.satellites", poll = { until = { satellites = { any = { signal = 30 } } } } },
  { send = "gps.satellites", expect = { satellites = { all = { number = { max = 32 } } } } },
  { send = "gps.satellites", expect = { satellites = { count = 0 } } },
]
[[teardown]]
name = "After"
steps = [{ send = "test.set-mode", with = { mode = "off" } }]
)";

std::string text(Duration time)
{
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()) + "ms";
}

std::string text(const Expected& expected)
{
    std::ostringstream out;
    out << expected.name << (expected.field != nullptr ? "" : "?");
    if (expected.present) {
        out << (*expected.present ? " present" : " absent");
    }
    if (expected.minimum) {
        out << " >=" << *expected.minimum;
    }
    if (expected.maximum) {
        out << " <=" << *expected.maximum;
    }
    if (expected.equals) {
        out << " =" << *expected.equals;
    }
    if (expected.matches) {
        out << " /" << *expected.matches << '/';
    }
    out << (expected.unit.empty() ? "" : " in " + expected.unit) << (expected.scaled ? " scaled" : "");
    constexpr const char* kRecords[] = {"", " any", " all", " count"};
    out << kRecords[static_cast<int>(expected.records)];
    for (const Expected& each : expected.where) {
        out << " (" << text(each) << ")";
    }
    return out.str();
}

template <class List>
std::string texts(const char* what, const List& expected)
{
    std::string all;
    for (const Expected& each : expected) {
        all += std::string("; ") + what + " " + text(each);
    }
    return all;
}

std::string texts(const std::vector<StoredField>& stored)
{
    std::string all;
    for (const StoredField& each : stored) {
        all += "; " + each.variable + " is " + each.field;
    }
    return all;
}

std::string text(const Send& send)
{
    std::string all;
    for (const auto& [name, value] : send.with) {
        all += " " + name + "=" + value;
    }
    constexpr const char* kRules[] = {"", "; reply or not", "; no reply"};
    if (send.poll) {
        all += "; poll every " + text(send.poll->every) + " for " + text(send.poll->patience) +
               texts("until", send.poll->until);
    }
    all += send.maxTime ? "; within " + text(*send.maxTime) : "";
    return all + kRules[static_cast<int>(send.reply)] + (send.later ? "; later" : "") + texts("expect", send.expect) +
           texts("expect later", send.expectLater) + texts(send.store);
}

std::string text(const Wait& wait)
{
    return std::string(wait.notice != nullptr ? " notice" : "") + (wait.command != nullptr ? " later" : "") +
           texts("expect", wait.expect) + texts(wait.store);
}

std::string text(const Prompt& prompt)
{
    constexpr const char* kKinds[] = {"yes-no", "text", "number", "choice"};
    return " " + prompt.id + " " + kKinds[static_cast<int>(prompt.kind)] +
           (prompt.expect ? "; expect " + text(*prompt.expect) : "") +
           (prompt.store ? "; store " + *prompt.store : "") + (prompt.mask.empty() ? "" : "; mask " + prompt.mask) +
           (prompt.unique ? "; unique" : "") + (prompt.secret ? "; secret" : "");
}

std::string text(const HeadUnitAction& action)
{
    return std::string(action.raisesEvent ? " event" : " set") + " " + action.target + " " + action.json;
}

std::string text(const Pause&)
{
    return "";
}

std::string expectations(const std::vector<Expected>& expected, const std::vector<StoredField>& store)
{
    std::string all;
    for (const Expected& each : expected) {
        all += "; expect " + text(each);
    }
    for (const StoredField& each : store) {
        all += "; " + each.variable + " is " + (each.field.empty() ? "the value" : each.field);
    }
    return all;
}

std::string text(const RunProgram& program)
{
    return " " + program.json + expectations(program.expect, program.store);
}

std::string text(const InstrumentCommand& command)
{
    return " " + command.instrument + " " + command.command + expectations(command.expect, command.store);
}

std::string text(const PowerChange& change)
{
    return " " + std::to_string(static_cast<int>(change.to));
}

std::string texts(const std::vector<Condition>& conditions)
{
    std::string all;
    for (const Condition& condition : conditions) {
        all += "; if " + condition.text;
    }
    return all;
}

/// @returns the lines of a group: the group, and each step with everything in which it differs from a step that says
/// nothing.
std::vector<std::string> lines(const Group& group)
{
    constexpr const char* kOnFailure[] = {"next", "stop-group", "stop"};
    std::ostringstream head;
    head << group.name << " x" << group.repeat << ", " << group.retries << " retries after " << text(group.retryDelay)
         << (group.needsHeadUnit ? ", headunit" : "") << texts(group.onlyIf);
    std::vector<std::string> all{head.str()};
    for (const Step& step : group.steps) {
        std::ostringstream line;
        line << step.line << ' ' << step.kind() << ' ' << step.name << " [" << step.what << "]"
             << std::visit([](const auto& action) { return text(action); }, step.action) << "; x" << step.repeat << ' '
             << text(step.timeout) << ' ' << step.retries << '/' << text(step.retryDelay) << ' '
             << kOnFailure[static_cast<int>(step.onFailure)] << (step.needsHeadUnit ? " headunit" : "")
             << texts(step.onlyIf) << (step.ifStored.empty() ? "" : "; if stored " + step.ifStored);
        all.push_back(line.str());
    }
    return all;
}

Loaded loadText(const std::string& text)
{
    return load(text, "plan.toml", protocol::catalogue::groups());
}

TEST(LoadedPlan, HasWhatItsFileSays)
{
    const Loaded loaded = loadText(kEverything);
    ASSERT_TRUE(loaded.plan) << format("plan", loaded.problems.at(0));
    const Plan& plan = *loaded.plan;

    EXPECT_EQ(plan.path + "|" + plan.name + "|" + plan.title + "|" + plan.description,
              "plan.toml|every-key-9|Every key|What a plan can say.");
    EXPECT_TRUE(plan.passesAcrossLinkLoss);
    EXPECT_EQ(plan.line.reconnects, 1U);
    EXPECT_EQ(plan.line.repeatedSends, 2U);
    EXPECT_EQ(plan.line.corruptFrames, 3U);
    EXPECT_EQ(plan.line.garbageBytes, 0U);
    EXPECT_EQ(plan.teardownLimit, std::chrono::milliseconds(7500));
    EXPECT_EQ(plan.stepCount(), 29U);
    EXPECT_THAT(loaded.warnings, IsEmpty());
    EXPECT_THAT(lines(plan.setup.at(0)), ElementsAre(R"(Before x1, 0 retries after 250ms)",
                                                     R"(19 send test.mode [test.mode]; x1 2000ms 3/250ms stop)"));
    EXPECT_THAT(
        lines(plan.main.at(0)),
        ElementsAre(
            R"(Frames x4, 5 retries after 1000ms, headunit)",
            R"(27 send Old [tuner.frequency]; expect frequency >=87 <=88.5 in MHz on FM scaled; old is frequency; x1 2000ms 3/250ms stop-group)",
            R"(28 send tuner.play [tuner.play frequency=${old}] frequency=${old}; x6 2000ms 3/250ms stop-group; if old = 8750; if stored old)",
            R"(29 send tuner.frequency [tuner.frequency]; reply or not; x1 500ms 0/0ms next)",
            R"(30 send audio.volume [audio.volume, no reply]; no reply; x1 200ms 3/250ms stop-group headunit)",
            R"(31 send audio.volume [audio.volume]; expect volume present <=9 =3; level is volume; x1 2000ms 3/250ms stop-group)",
            R"(32 send media.track-1 [media.track-1]; later; expect later index =0; track is index; x1 2000ms 3/250ms stop-group)",
            R"(33 send identity.write-password-number [identity.write-password-number value=****] value=1234; x1 2000ms 3/250ms stop-group)",
            R"(34 wait keys.pressed [keys.pressed] notice; expect key =${level}; expect status absent; how is status; pressed is key; x1 2000ms 3/250ms stop-group)",
            R"(35 wait media.track-1 [media.track-1] later; expect index >=0; x1 2000ms 3/250ms stop-group)",
            R"(36 send bluetooth.name [bluetooth.name]; expect name /HU-${old}[0-9]/; x1 2000ms 3/250ms stop-group)"));
    EXPECT_THAT(
        lines(plan.main.at(1)),
        ElementsAre(
            R"(Others x1, 0 retries after 250ms; if old != 8500; if old in 8750, 8760)",
            R"(43 prompt lit [Lit?] lit yes-no; expect lit? =yes; x1 0ms 3/250ms stop)",
            R"(44 prompt dark [Dark?] dark yes-no; expect dark? =no; x1 1000ms 3/250ms stop)",
            R"(45 prompt voltage [Voltage?] voltage number; expect voltage? >=13 <=13.5 in V; x1 0ms 3/250ms stop)",
            R"(46 prompt label [Label?] label text; expect label? =${old} /[A-Z]+/; store said; unique; x1 0ms 3/250ms stop)",
            R"(47 prompt text [Text?] text text; expect text? =HU 7; x1 0ms 3/250ms stop)",
            R"(48 prompt scan [Scan] scan text; mask HU[0-9]+; x1 0ms 3/250ms stop)",
            R"(49 prompt side [Side?] side choice; expect side? =left; store where; x1 0ms 3/250ms stop)",
            R"(50 headunit /audio/volume [set /audio/volume {"a":[1,2.5,"x",true]}] set /audio/volume {"a":[1,2.5,"x",true]}; x1 2000ms 3/250ms stop headunit)",
            R"(51 headunit OnCarSpeedChange [event OnCarSpeedChange {"speed":70}] event OnCarSpeedChange {"speed":70}; x1 2000ms 3/250ms stop-group headunit)",
            R"(52 headunit OnReset [event OnReset {}] event OnReset {}; x1 2000ms 3/250ms stop headunit)",
            R"(53 pause pause 1.5 s [1.5 s]; x1 1500ms 3/250ms stop)",
            R"(54 send tuner.frequency [tuner.frequency]; poll every 500ms for 60000ms; until frequency =8750 in 10 kHz on FM; x1 2000ms 3/250ms stop)",
            R"(55 send tuner.frequency [tuner.frequency]; poll every 200ms for 10000ms; until frequency =8750 in 10 kHz on FM; within 50ms; x1 2000ms 3/250ms stop)",
            R"(56 send gps.satellites [gps.satellites]; expect satellites >=4 <=9 count (number =5) (signal >=30); x1 2000ms 3/250ms stop)",
            R"(57 send gps.satellites [gps.satellites]; poll every 200ms for 10000ms; until satellites >=1 any (signal =30); x1 2000ms 3/250ms stop)",
            R"(58 send gps.satellites [gps.satellites]; expect satellites all (number <=32); x1 2000ms 3/250ms stop)",
            R"(59 send gps.satellites [gps.satellites]; expect satellites =0 count; x1 2000ms 3/250ms stop)"));
    EXPECT_THAT(lines(plan.teardown.at(0)),
                ElementsAre(R"(After x1, 0 retries after 250ms)",
                            R"(63 send test.set-mode [test.set-mode mode=off] mode=off; x1 2000ms 3/250ms next)"));
}

TEST(LoadedPlan, ThatSaysLittleHasTheDefaults)
{
    const Loaded loaded = loadText(
        "schema = 1\nname = \"a\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\nsteps = [{ send = \"test.mode\" }]\n");
    ASSERT_TRUE(loaded.plan);
    const Plan& plan = *loaded.plan;

    EXPECT_FALSE(plan.passesAcrossLinkLoss);
    EXPECT_FALSE(plan.line.reconnects || plan.line.repeatedSends || plan.line.corruptFrames || plan.line.garbageBytes);
    EXPECT_EQ(plan.teardownLimit, std::chrono::seconds(10));
    EXPECT_THAT(lines(plan.main.at(0)),
                ElementsAre("G x1, 0 retries after 100ms", "6 send test.mode [test.mode]; x1 1000ms 0/100ms next"));
}

TEST(LoadedPlan, MayAskForNoRetriesAndDoesSoWithoutAWord)
{
    for (const char* defaults : {"[defaults]\ntimeout = 1\n", "[defaults]\nretries = 0\n"}) {
        for (const char* group : {"", "retries = 0\n"}) {
            const Loaded loaded = loadText(std::string("schema = 1\nname = \"a\"\ntitle = \"A\"\n") + defaults +
                                           "[[main]]\nname = \"G\"\n" + group + "steps = [{ send = \"test.mode\" }]\n");
            ASSERT_TRUE(loaded.plan) << defaults << group;
            EXPECT_EQ(loaded.plan->main.at(0).retries, 0);
            EXPECT_EQ(loaded.plan->main[0].steps.at(0).retries, 0);
        }
    }
}

TEST(LoadedPlan, RefusesArgumentsOfWhichOnlyEachByItselfIsSound)
{
    const auto problemsOf = [](const std::string& with) {
        std::vector<std::string> texts;
        for (const auto& problem :
             load("schema = 1\nname = \"a\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\nsteps = [{ send = "
                  "\"identity.optional\"" +
                      with + " }]\n",
                  "plan.toml", protocol::catalogue::sample::kGroups)
                 .problems) {
            texts.push_back(format("FILE", problem));
        }
        return texts;
    };
    EXPECT_THAT(problemsOf(", with = { second = 1 }"),
                ElementsAre("FILE:6:47: first: expected a number from 0 to 255, got none before 'second'"));
    EXPECT_THAT(problemsOf(", with = { first = 1, second = 1 }"), IsEmpty());
    EXPECT_THAT(problemsOf(", with = { first = 1 }"), IsEmpty());
    EXPECT_THAT(problemsOf(""), IsEmpty());
}

/// @returns the problems of a plan with this step, each with its line and column only.
std::vector<std::string> placesOf(const std::string& step)
{
    const Loaded loaded = loadText(
        "schema = 1\nname = \"a\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\nsteps = [\n{ send = \"audio.volume\", store "
        "= "
        "\"v\" },\n{ " +
        step + " }]\n");
    std::vector<std::string> places;
    for (const auto& problem : loaded.problems) {
        places.push_back(std::to_string(problem.line) + ":" + std::to_string(problem.column));
    }
    return places;
}

class SoundStep : public testing::TestWithParam<const char*>
{
};

TEST_P(SoundStep, IsTaken)
{
    EXPECT_THAT(placesOf(GetParam()), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Load, SoundStep,
    testing::Values(R"(send = "test.mode", timeout = 0.001)", R"(send = "test.mode", timeout = 86400)",
                    R"(send = "test.mode", repeat = 1, retries = 0, retry_delay = 0)",
                    R"(send = "tuner.frequency", expect = { frequency = { min = 65535, max = 65535 } })",
                    R"(send = "tuner.frequency", expect = { frequency = { min = 0, max = 0 } })",
                    R"(send = "tuner.frequency", expect = { frequency = { max = 0.0 } })",
                    R"(send = "tuner.frequency", expect = { frequency = { max = 655.35, unit = "MHz" } })",
                    R"(send = "tuner.frequency", expect = { frequency = { max = 9, unit = "10 kHz" } })",
                    R"(send = "tuner.frequency", expect = { frequency = { max = 9, unit = "10 kHz on FM" } })",
                    R"(send = "bluetooth.name", expect = { name = "${v}" })",
                    R"(send = "bluetooth.name", expect = { name = { equals = "${v}" } })",
                    R"(send = "bluetooth.name", expect = { name = { matches = "a{0,${v}}" } })",
                    R"(prompt = "?", id = "aZ09-_")", R"(prompt = "?", id = "a", store = "v", timeout = 1)"));

struct WrongStep {
    const char* step;
    const char* place;
};

struct ConditionRow {
    Condition::Is is;
    std::vector<std::string> values;
    bool numbers;
    std::vector<std::string> holds;
    std::vector<std::string> fails;
};

TEST(Condition, HoldsForItsValues)
{
    using Is = Condition::Is;
    for (const ConditionRow& row : {ConditionRow{Is::kEqual, {"1.5"}, true, {"1.5", "1.50"}, {"1.6", "x", ""}},
                                    ConditionRow{Is::kEqual, {"0012"}, false, {"0012"}, {"12"}},
                                    ConditionRow{Is::kUnequal, {"5"}, true, {"6", "x"}, {"5", "5.0"}},
                                    ConditionRow{Is::kBelow, {"5"}, true, {"4.9", "-7"}, {"5", "6", "x"}},
                                    ConditionRow{Is::kAtMost, {"5"}, true, {"5", "4"}, {"5.1", "x"}},
                                    ConditionRow{Is::kAbove, {"5"}, true, {"5.1"}, {"5", "4", "x"}},
                                    ConditionRow{Is::kAtLeast, {"5"}, true, {"5", "6"}, {"4.9", "x"}},
                                    ConditionRow{Is::kOneOf, {"a", "b"}, false, {"a", "b"}, {"c", ""}}}) {
        const Condition condition{"v", row.is, row.values, row.numbers, ""};
        for (const std::string& value : row.holds) {
            EXPECT_TRUE(condition.holds(value)) << static_cast<int>(row.is) << ' ' << value;
        }
        for (const std::string& value : row.fails) {
            EXPECT_FALSE(condition.holds(value)) << static_cast<int>(row.is) << ' ' << value;
        }
    }
}

class RefusedStep : public testing::TestWithParam<WrongStep>
{
};

TEST_P(RefusedStep, IsReportedOnceAtItsPlace)
{
    EXPECT_THAT(placesOf(GetParam().step), ElementsAre(GetParam().place)) << GetParam().step;
}

INSTANTIATE_TEST_SUITE_P(
    Load, RefusedStep,
    testing::Values(
        WrongStep{R"(send = "test.mode", timeout = 0.0009)", "8:33"},
        WrongStep{R"(send = "test.mode", timeout = 86401)", "8:33"},
        WrongStep{R"(send = "test.mode", retry_delay = -0.1)", "8:37"},
        WrongStep{R"(send = "test.mode", repeat = 0)", "8:32"},
        WrongStep{R"(send = "test.mode", retries = -1)", "8:33"},
        WrongStep{R"(prompt = "?", id = "a", timeout = 0.5)", "8:37"},
        WrongStep{R"(send = "test.mode", if_stored = "w")", "8:35"},
        WrongStep{R"(send = "test.mode", only_if = { w = 1 })", "8:35"},
        WrongStep{R"(send = "tuner.frequency", expect = { frequency = { min = 65536 } })", "8:60"},
        WrongStep{R"(send = "tuner.frequency", expect = { frequency = { max = -1 } })", "8:60"},
        WrongStep{R"(send = "tuner.frequency", expect = { frequency = { max = 9, unit = "10 k" } })", "8:70"},
        WrongStep{R"(send = "tuner.frequency", expect = { frequency = { matches = "9" } })", "8:64"},
        WrongStep{R"(send = "bluetooth.name", expect = { name = "${w}" })", "8:46"},
        WrongStep{R"(send = "bluetooth.name", expect = { name = { matches = "[${v}" } })", "8:58"},
        WrongStep{R"(send = "bluetooth.name", expect = { name = { max = 3 } })", "8:54"},
        WrongStep{R"(prompt = "?", id = "a b")", "8:22"},
        WrongStep{R"(prompt = "?", id = "a", answer = "text", expect = { equals = "${w}" })", "8:64"},
        WrongStep{R"(prompt = "?", id = "a", answer = "text", expect = { matches = "[" })", "8:65"},
        WrongStep{R"(prompt = "?", id = "a", expect = "maybe")", "8:36"}, WrongStep{R"(wait = "test.mode")", "8:10"},
        WrongStep{R"(wait = "keys.none")", "8:10"}, WrongStep{R"(send = "tuner.play")", "8:10"},
        WrongStep{R"(pause = -1)", "8:11"},
        WrongStep{R"(send = "test.mode", only_if = { v = { "<" = "loud" } })", "8:47"},
        WrongStep{R"(send = "test.mode", only_if = { v = { "~" = 1 } })", "8:41"},
        WrongStep{R"(send = "test.mode", only_if = { v = { in = 1 } })", "8:46"},
        WrongStep{R"(send = "test.mode", only_if = { v = { in = [] } })", "8:46"},
        WrongStep{R"(send = "test.mode", only_if = { v = { in = [1, true] } })", "8:50"},
        WrongStep{R"(send = "test.mode", only_if = { v = 300 })", "8:39"},
        WrongStep{R"(send = "audio.volume", store = "w", keep = "most")", "8:46"},
        WrongStep{R"(prompt = "?", id = "a", answer = ["left"])", "8:36"},
        WrongStep{R"(prompt = "?", id = "a", answer = ["left", "left"])", "8:45"},
        WrongStep{R"(prompt = "?", id = "a", answer = ["left", 1])", "8:45"},
        WrongStep{R"(prompt = "?", id = "a", answer = ["l", "r"], expect = "up")", "8:57"},
        WrongStep{R"(send = "bluetooth.address", expect = { address = { matches = "00:1A:.*" } })", "8:64"},
        WrongStep{R"(pause = "soon")", "8:11"}, WrongStep{R"(pause = 1, timeout = 1)", "8:24"},
        WrongStep{R"(pause = 1, with = { frequency = 1 })", "8:14"},
        WrongStep{R"(send = "tuner.frequency", poll = { every = 1 })", "8:36"},
        WrongStep{R"(send = "tuner.frequency", poll = { until = 8750 })", "8:46"},
        WrongStep{R"(send = "tuner.frequency", poll = { until = { band = 1 } })", "8:48"},
        WrongStep{R"(send = "tuner.frequency", poll = { until = { frequency = 1 }, for = 0 })", "8:71"},
        WrongStep{R"(send = "tuner.frequency", expect = { frequency = 1 }, poll = { until = { frequency = 1 } })",
                  "8:64"},
        WrongStep{R"(send = "tuner.frequency", reply = "none", poll = { until = {} })", "8:52"},
        WrongStep{R"(send = "audio.volume", keep = "first")", "8:33"},
        WrongStep{R"(send = "test.mode", only_if = { v = [1] })", "8:39"},
        WrongStep{R"(send = "tuner.frequency", reply = "optional", max_time = 1)", "8:60"},
        WrongStep{R"(send = "tuner.frequency", max_time = 0)", "8:40"}));

/// @returns whether the plan's one question asks for a secret.
bool asksForASecret(const std::string& steps)
{
    const Loaded loaded = loadText(
        "schema = 1\nname = \"a\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\nsteps = [\n{ prompt = \"?\", id = \"a\", "
        "answer "
        "= \"text\", store = \"v\" },\n" +
        steps + "]\n");
    return std::get<Prompt>(loaded.plan.value().main.at(0).steps.at(0).action).secret;
}

TEST(SecretQuestion, IsOneWhoseAnswerGoesIntoASecretField)
{
    EXPECT_TRUE(asksForASecret(R"({ send = "identity.write-password-number", with = { value = "${v}" } })"));
    EXPECT_TRUE(asksForASecret(R"({ send = "identity.password-number", expect = { value = "${v}" } })"));
    EXPECT_TRUE(asksForASecret(R"({ send = "identity.password-number", expect = { value = { matches = "${v}" } } })"));
    EXPECT_TRUE(asksForASecret(
        R"({ send = "test.mode" }, { send = "identity.password-number", expect = { value = "${v}" } })"));
    EXPECT_FALSE(asksForASecret(R"({ send = "identity.password-number", expect = { value = "1" } })"));
    EXPECT_FALSE(asksForASecret(R"({ send = "identity.write-hu-serial", with = { value = "${v}" } })"));
    EXPECT_FALSE(asksForASecret(R"({ send = "identity.hu-serial", expect = { value = "${v}" } })"));
    EXPECT_FALSE(asksForASecret(R"({ wait = "keys.pressed", expect = { key = "${v}" } })"));
    EXPECT_FALSE(asksForASecret(R"({ send = "test.mode" })"));
}

TEST(PlanName, IsSmallLettersDigitsAndHyphens)
{
    const auto taken = [](const std::string& name) {
        return loadText("schema = 1\nname = \"" + name +
                        "\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\nsteps = [{ send = \"test.mode\" }]\n")
            .plan.has_value();
    };
    for (const std::string& name : {std::string("a-z09"), std::string(64, 'a')}) {
        EXPECT_TRUE(taken(name)) << name;
    }
    for (const std::string& name : {std::string(), std::string("A"), std::string("a_b"), std::string("a`"),
                                    std::string("a{"), std::string("a/"), std::string("a:"), std::string(65, 'a')}) {
        EXPECT_FALSE(taken(name)) << name;
    }
}

TEST(PlanFile, HasItsHashAndItsPlan)
{
    const tests::TempDir directory;
    const std::string path = directory.path() / "plan.toml";
    std::ofstream(path) << kEverything;

    const PlanFile file = readPlan(path, protocol::catalogue::groups());

    EXPECT_EQ(file.path, path);
    EXPECT_THAT(file.sha256, SizeIs(64));
    EXPECT_TRUE(file.loaded.plan);
}

/// A plan beside a file of groups.
class IncludingPlan : public testing::Test
{
protected:
    /// @param phases of the plan; `groups` is the content of common.toml
    PlanFile read(const std::string& phases, const std::string& groups)
    {
        std::ofstream(directory_.path() / "common.toml") << groups;
        std::ofstream(path_) << "schema = 1\nname = \"a\"\ntitle = \"A\"\nversion = \"1.2\"\n" << phases;
        return readPlan(path_, protocol::catalogue::groups());
    }

    static std::vector<std::string> namesOf(const std::vector<Group>& groups)
    {
        std::vector<std::string> names;
        std::ranges::transform(groups, std::back_inserter(names), &Group::name);
        return names;
    }

    static constexpr const char* kCommon = R"(schema = 1
[[group]]
name = "Mode"
steps = [{ send = "test.mode", store = "mode" }]
[[group]]
name = "Volume"
steps = [{ send = "audio.volume" }]
)";
    static constexpr const char* kOwn = "[[main]]\nname = \"Own\"\nsteps = [{ pause = 0 }]\n";
    const tests::TempDir directory_;
    const std::string path_ = directory_.path() / "plan.toml";
};

TEST_F(IncludingPlan, HasTheGroupsInPlaceOfTheInclude)
{
    const PlanFile file =
        read(std::string("[[setup]]\ninclude = \"common.toml\"\n[[main]]\ninclude = \"common.toml\"\ngroup = "
                         "\"Volume\"\n") +
                 kOwn,
             kCommon);

    ASSERT_TRUE(file.loaded.plan) << file.loaded.problems.at(0).text;
    EXPECT_THAT(namesOf(file.loaded.plan->setup), ElementsAre("Mode", "Volume"));
    EXPECT_THAT(namesOf(file.loaded.plan->main), ElementsAre("Volume", "Own"));
    EXPECT_EQ(file.loaded.plan->setup[0].steps[0].onFailure, OnFailure::kStop);
    EXPECT_EQ(file.loaded.plan->version, "1.2");
}

TEST_F(IncludingPlan, HasAnotherHashWhenTheIncludedFileChanges)
{
    const std::string phases = "[[main]]\ninclude = \"common.toml\"\n";
    const std::string hash = read(phases, kCommon).sha256;

    EXPECT_EQ(read(phases, kCommon).sha256, hash);
    EXPECT_NE(read(phases, std::string(kCommon) + "# changed\n").sha256, hash);
}

TEST_F(IncludingPlan, ReportsAMistakeAtTheIncludeWithItsPlaceInTheFile)
{
    const auto problemOf = [this](const std::string& groups, const std::string& keys = "") {
        const PlanFile file = read("[[main]]\ninclude = \"common.toml\"\n" + keys, groups);
        EXPECT_THAT(file.loaded.problems, SizeIs(1)) << groups;
        return format("plan", file.loaded.problems.at(0));
    };
    const std::string head = "plan:6:11: common.toml:";

    EXPECT_EQ(problemOf("schema = 1\n[[group]]\nname = \"G\"\nsteps = [{ send = \"test.mod\" }]\n"),
              head + "4:19: 'test.mod' is not a command; did you mean 'test.mode'?");
    EXPECT_THAT(problemOf("schema = "), testing::StartsWith(head + "1:"));
    EXPECT_EQ(problemOf("schema = 2\n[[group]]\nname = \"G\"\nsteps = [{ pause = 0 }]\n"),
              head + "1:10: 'schema': expected 1, got 2");
    EXPECT_EQ(problemOf("schema = 1\nname = \"a\"\n[[main]]\ninclude = \"common.toml\"\n"),
              "plan:6:11: common.toml: expected a file of [[group]] tables, got a plan");
    EXPECT_THAT(problemOf("schema = 1\n"), HasSubstr("'group'"));
    EXPECT_THAT(problemOf(kCommon, "group = \"Mod\"\n"), HasSubstr("expected a group 'Mod', got Mode, Volume"));
    EXPECT_THAT(problemOf("schema = 1\n[[group]]\ninclude = \"common.toml\"\nname = \"G\"\nsteps = [{ pause = 0 "
                          "}]\n"),
                HasSubstr("unknown key 'include'"));
}

TEST_F(IncludingPlan, HasThePicturesOfItsQuestionsInItsHash)
{
    const auto read = [this](const std::string& picture) {
        std::ofstream(directory_.path() / "golden.png") << picture;
        return this->read("[[main]]\nname = \"G\"\nsteps = [{ prompt = \"?\", id = \"a\", image = \"golden.png\" }]\n",
                          "");
    };
    const PlanFile file = read("one");

    ASSERT_TRUE(file.loaded.plan);
    EXPECT_EQ(std::get<Prompt>(file.loaded.plan->main.at(0).steps.at(0).action).image,
              (directory_.path() / "golden.png").string());
    EXPECT_NE(read("other").sha256, file.sha256);
}

TEST_F(IncludingPlan, ReportsAFileThatIsNotThere)
{
    const PlanFile file = read("[[main]]\ninclude = \"other.toml\"\n", kCommon);

    ASSERT_THAT(file.loaded.problems, SizeIs(1));
    EXPECT_EQ(format("plan", file.loaded.problems[0]), "plan:6:11: other.toml: no such file");
}

TEST_F(IncludingPlan, ReportsWhatIsNotAFile)
{
    for (const char* name : {"/dev/zero", "/dev/ptmx", "."}) {
        const PlanFile file = read(std::string("[[main]]\ninclude = \"") + name + "\"\n", kCommon);
        ASSERT_THAT(file.loaded.problems, SizeIs(1));
        EXPECT_EQ(file.loaded.problems[0].text, std::string(name) + ": expected a file, got something else");
    }
}

TEST(PlanFile, ThatCannotBeReadHasOneProblemWithoutAPlace)
{
    const PlanFile file = readPlan("/no/such/plan.toml", protocol::catalogue::groups());

    ASSERT_THAT(file.loaded.problems, SizeIs(1));
    EXPECT_EQ(file.loaded.problems[0].line, 0U);
    EXPECT_EQ(file.loaded.problems[0].column, 0U);
    EXPECT_FALSE(file.loaded.plan);
    EXPECT_EQ(file.sha256, "");
}

TEST(PlanFile, MayHaveFourMebibytes)
{
    const tests::TempDir directory;
    const std::string path = directory.path() / "plan.toml";
    std::ofstream(path) << std::string(4 << 20, 'x');
    EXPECT_THAT(readFile(path), SizeIs(4 << 20));

    std::ofstream(path, std::ios::app) << 'x';
    EXPECT_THROW(readFile(path), std::system_error);
}

TEST(Estimate, CountsTheStepsWhoseTimeIsOpen)
{
    // The later reply, the two waits and the seven questions.
    EXPECT_EQ(estimate(loadText(kEverything).plan.value(), 115200).open, 10U);
}

TEST(Estimate, CountsParametersRepliesAndRepetitions)
{
    const Loaded loaded = loadText(
        "schema = 1\nname = \"a\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\nrepeat = 3\nsteps = [{ send = "
        "\"tuner.play\", "
        "with = { frequency = 8750 }, repeat = 2 }]\n");

    // A frame of ten bytes of ten bits, six times; tuner.play has no reply.
    EXPECT_EQ(estimate(loaded.plan.value(), 1000).duration, std::chrono::milliseconds(600));
}

}  // namespace
}  // namespace station::plan
