#include "station/plan/Load.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>
#include <set>
#include <sstream>

#include "protocol/catalogue/Catalogue.h"

namespace station::plan {
namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr std::string_view kHead = "schema = 1\nname = \"test\"\ntitle = \"Test\"\n";

std::vector<std::string> problemsOf(const Loaded& loaded)
{
    std::vector<std::string> lines;
    for (const auto& problem : loaded.problems) {
        lines.push_back(format("FILE", problem));
    }
    return lines;
}

Loaded loadSteps(const std::string& steps)
{
    return load(std::string(kHead) + "[[main]]\nname = \"Group\"\nsteps = [" + steps + "]\n", "test.toml",
                protocol::catalogue::groups());
}

std::filesystem::path brokenPlans()
{
    return std::filesystem::path(SOURCE_FOLDER) / "station" / "plan" / "broken";
}

std::vector<std::string> brokenNames()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(brokenPlans())) {
        names.push_back(entry.path().stem().string());
    }
    std::ranges::sort(names);
    return names;
}

/// A plan with mistakes of one kind. Its last lines are the expected reports: "#! LINE:COLUMN: TEXT".
class BrokenPlan : public testing::TestWithParam<std::string>
{
};

TEST_P(BrokenPlan, IsReportedWithItsPlace)
{
    const std::string text = readFile((brokenPlans() / (GetParam() + ".toml")).string());
    std::vector<std::string> expected;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("#! ")) {
            expected.push_back("FILE:" + line.substr(3));
        }
    }
    ASSERT_THAT(expected, Not(IsEmpty()));

    const Loaded loaded = load(text, "FILE", protocol::catalogue::groups());

    EXPECT_THAT(problemsOf(loaded), ElementsAreArray(expected));
    EXPECT_FALSE(loaded.plan);
}

INSTANTIATE_TEST_SUITE_P(Load, BrokenPlan, testing::ValuesIn(brokenNames()), [](const auto& row) {
    std::string name = row.param;
    std::ranges::replace(name, '-', '_');
    return name;
});

TEST(Load, PlanWithEveryKindOfStepIsTaken)
{
    const Loaded loaded = loadSteps(R"(
        { send = "tuner.play", with = { frequency = "87.5MHz" } },
        { send = "tuner.frequency", expect = { frequency = { min = 87, max = 88, unit = "MHz" } }, store = "old" },
        { send = "tuner.play", with = { frequency = "${old}" }, only_if = { old = 8750 } },
        { wait = "keys.pressed", expect = { key = 37 } },
        { send = "media.track-1", expect_later = { index = 0 } },
        { prompt = "Lit?", id = "lit" },
        { headunit = { set = "/audio/volume", value = 3 } })");

    ASSERT_TRUE(loaded.plan) << testing::PrintToString(problemsOf(loaded));
    EXPECT_THAT(loaded.plan->main.at(0).steps, SizeIs(7));
    EXPECT_EQ(loaded.plan->main[0].steps[0].what, "tuner.play frequency=87.5MHz");
    EXPECT_EQ(loaded.plan->main[0].steps[6].what, "set /audio/volume 3");
}

TEST(Load, StepTakesWhatItDoesNotSayFromItsGroupAndTheDefaults)
{
    const Loaded loaded = load(std::string(kHead) + R"([defaults]
timeout = 2
retries = 3
on_failure = "stop-group"
[[setup]]
name = "S"
steps = [{ send = "test.mode" }]
[[main]]
name = "A"
steps = [{ send = "test.mode" }, { send = "test.mode", timeout = 0.5, retries = 0, on_failure = "next" }]
[[main]]
name = "B"
on_failure = "stop"
steps = [{ send = "test.mode" }]
[[teardown]]
name = "T"
steps = [{ send = "test.mode" }]
)",
                               "test.toml", protocol::catalogue::groups());

    ASSERT_TRUE(loaded.plan) << testing::PrintToString(problemsOf(loaded));
    const auto& a = loaded.plan->main.at(0).steps;
    EXPECT_EQ(a[0].timeout, std::chrono::seconds(2));
    EXPECT_EQ(a[0].retries, 3);
    EXPECT_EQ(a[0].onFailure, OnFailure::kStopGroup);
    EXPECT_EQ(a[1].timeout, std::chrono::milliseconds(500));
    EXPECT_EQ(a[1].retries, 0);
    EXPECT_EQ(a[1].onFailure, OnFailure::kNext);
    EXPECT_EQ(loaded.plan->main[1].steps[0].onFailure, OnFailure::kStop);
    EXPECT_EQ(loaded.plan->setup[0].steps[0].onFailure, OnFailure::kStop);
    EXPECT_EQ(loaded.plan->teardown[0].steps[0].onFailure, OnFailure::kNext);
}

TEST(Load, TimesAreSecondsOrHaveAUnit)
{
    const Loaded loaded = load(std::string(kHead) + R"([defaults]
timeout = "500ms"
retry_delay = "2 s"
teardown_limit = "1.5min"
[[main]]
name = "A"
retry_delay = "0.25"
duration = "8h"
steps = [{ send = "test.mode" }, { send = "test.mode", timeout = 3, retry_delay = "1h" }]
)",
                               "test.toml", protocol::catalogue::groups());

    ASSERT_TRUE(loaded.plan) << testing::PrintToString(problemsOf(loaded));
    EXPECT_EQ(loaded.plan->teardownLimit, std::chrono::seconds(90));
    EXPECT_EQ(loaded.plan->main.at(0).retryDelay, std::chrono::milliseconds(250));
    EXPECT_EQ(loaded.plan->main[0].duration, std::chrono::hours(8));
    const auto& steps = loaded.plan->main[0].steps;
    EXPECT_EQ(steps.at(0).timeout, std::chrono::milliseconds(500));
    EXPECT_EQ(steps[0].retryDelay, std::chrono::seconds(2));
    EXPECT_EQ(steps.at(1).timeout, std::chrono::seconds(3));
    EXPECT_EQ(steps[1].retryDelay, std::chrono::hours(1));
}

TEST(Load, FileThatCannotBeReadIsAProblemWithoutAPlace)
{
    const auto problem = [](const char* path) {
        return format(path, readPlan(path, protocol::catalogue::groups()).loaded.problems.at(0));
    };
    EXPECT_EQ(problem("/no/such/plan.toml"), "/no/such/plan.toml: no such file");
    EXPECT_EQ(problem("/"), "/: cannot be read: Is a directory");
}

TEST(Load, DestructiveCommandIsAWarningAtItsPlace)
{
    const Loaded loaded = loadSteps("{ send = \"car.shut-down\" }");

    ASSERT_TRUE(loaded.plan);
    ASSERT_THAT(loaded.warnings, SizeIs(1));
    EXPECT_EQ(format("FILE", loaded.warnings[0]),
              "FILE:6:19: 'car.shut-down' cannot be undone: run the plan with --yes");
    EXPECT_THAT(loaded.plan->destructiveSteps(), SizeIs(1));
}

TEST(Load, EstimateCountsTheBytesOfTheLineAndTheSilence)
{
    // 8 bytes out, 10 back at 115200 baud: 1.5625 ms, and 2 ms until the answer; then 8 bytes and 200 ms of silence.
    const Loaded loaded = loadSteps("{ send = \"test.mode\" }, { send = \"tuner.frequency\", reply = \"none\" }");

    const Estimate sum = estimate(loaded.plan.value(), 115200);
    EXPECT_EQ(std::chrono::round<std::chrono::microseconds>(sum.duration).count(), 1563 + 2000 + 694 + 200'000);
    EXPECT_EQ(sum.open, 0u);
}

TEST(Load, EstimateOfAPlanThatNeverEndsIsTheLongest)
{
    Plan plan = loadSteps("{ send = \"tuner.frequency\", reply = \"none\" }, { send = \"test.mode\" }").plan.value();
    plan.main[0].repeat = std::numeric_limits<int>::max();
    plan.main[0].steps[0].repeat = std::numeric_limits<int>::max();

    EXPECT_EQ(estimate(plan, 115200).duration, Duration::max());
}

TEST(Load, EstimateOfAGroupWithADurationIsTheDurationButAtLeastARound)
{
    const auto milliseconds = [](const std::string& keys) {
        const Loaded loaded = load(std::string(kHead) + "[[main]]\nname = \"G\"\n" + keys +
                                       "\nsteps = [{ headunit = { event = \"OnReset\" } }, { send = "
                                       "\"tuner.frequency\", reply = \"none\" }]\n",
                                   "test.toml", protocol::catalogue::groups());
        // A frame of eight bytes at 80,000 baud takes 1 ms.
        return std::chrono::duration_cast<std::chrono::milliseconds>(estimate(loaded.plan.value(), 80'000).duration)
            .count();
    };
    EXPECT_EQ(milliseconds(""), 201);
    EXPECT_EQ(milliseconds("repeat = 3"), 603);
    EXPECT_EQ(milliseconds("duration = 1"), 1000);
    EXPECT_EQ(milliseconds("duration = 0.1"), 201);
    EXPECT_EQ(milliseconds("duration = 1\nrepeat = 2"), 402);
}

TEST(Load, NoBytesCrashTheLoader)
{
    std::mt19937 random(7);
    const std::string sound =
        std::string(kHead) +
        "[defaults]\ntimeout = 1\n[[main]]\nname = \"G\"\nsteps = [{ send = \"tuner.play\", with = { "
        "frequency = 8750 } }, { prompt = \"?\", id = \"a\", expect = \"yes\" }]\n";
    for (int i = 0; i < 2000; ++i) {
        std::string text = sound;
        for (int changes = 0; changes < 4; ++changes) {
            const std::size_t at = random() % text.size();
            if (random() % 2 == 0) {
                text[at] = static_cast<char>(random() % 256);
            } else {
                text.erase(at, random() % 20);
            }
            if (text.empty()) {
                break;
            }
        }
        const Loaded loaded = load(text, "FILE", protocol::catalogue::groups());
        EXPECT_EQ(loaded.plan.has_value(), loaded.problems.empty());
    }
}

class ManualsPlan : public testing::TestWithParam<std::string>
{
};

TEST_P(ManualsPlan, IsSound)
{
    const std::string manual = readFile(std::string(SOURCE_FOLDER) + "/" + GetParam());
    const auto begin = manual.find("```toml\n") + 8;
    const std::string example = manual.substr(begin, manual.find("```\n", begin) - begin);

    const Loaded loaded = load(example, "first.toml", protocol::catalogue::groups());

    EXPECT_THAT(problemsOf(loaded), IsEmpty());
    EXPECT_EQ(loaded.plan.value().stepCount(), 5u);
}

INSTANTIATE_TEST_SUITE_P(Load, ManualsPlan, testing::Values("docs/plans.md", "README.md"),
                         [](const auto& row) { return row.index == 0 ? "OfPlans" : "OfTheReadme"; });

TEST(Load, ShippedPlansAreSoundAndOnlyTheBringUpSendsWhatCannotBeUndone)
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::string(SOURCE_FOLDER) + "/share/plans")) {
        if (entry.path().extension() != ".toml") {
            continue;
        }
        const Loaded loaded = readPlan(entry.path().string(), protocol::catalogue::groups()).loaded;
        EXPECT_THAT(problemsOf(loaded), IsEmpty()) << entry.path();
        EXPECT_EQ(loaded.warnings.size(), entry.path().stem() == "linux-bring-up" ? 2u : 0u) << entry.path();
        ++count;
    }
    EXPECT_EQ(count, 6u);
}

TEST(Load, EndOfLinePlanTouchesEveryGroup)
{
    const Loaded loaded = load(readFile(std::string(SOURCE_FOLDER) + "/share/plans/end-of-line.toml"), "FILE",
                               protocol::catalogue::groups());
    std::set<std::uint8_t> touched;
    for (const auto& group : loaded.plan.value().main) {
        for (const auto& step : group.steps) {
            if (const auto* send = std::get_if<Send>(&step.action)) {
                touched.insert(send->command->cmdOne);
            }
        }
    }
    touched.insert(0x0F);  // the setup

    std::set<std::uint8_t> all;
    for (const auto& group : protocol::catalogue::groups()) {
        all.insert(group.code);
    }
    EXPECT_EQ(touched, all);
}

TEST(ReadFile, DirectoryIsRefused)
{
    EXPECT_THROW(readFile("/"), std::system_error);
    EXPECT_THROW(readFile("/no/such/plan.toml"), std::system_error);
}

}  // namespace
}  // namespace station::plan
