#include "station/plan/Answers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"
#include "station/plan/Load.h"

namespace station::plan {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Plan askingPlan()
{
    return load(R"(
schema = 1
name = "test"
title = "Test"
[[main]]
name = "Ask"
steps = [
  { prompt = "Lit?", id = "lit" },
  { prompt = "Current?", id = "current", answer = "number" },
  { prompt = "Label?", id = "label", answer = "text" },
]
)",
                "test.toml", protocol::catalogue::groups())
        .plan.value();
}

TEST(Answers, PortsOwnAnswerComesBeforeTheCommonOne)
{
    protocol::toml_file::Problems problems;

    const Answers answers("lit = true\ncurrent = 310\n[\"/dev/b\"]\ncurrent = 2.5\n", askingPlan(), problems);

    EXPECT_THAT(problems, IsEmpty());
    EXPECT_EQ(answers.find("/dev/a", "lit"), "yes");
    EXPECT_EQ(answers.find("/dev/a", "current"), "310");
    EXPECT_EQ(answers.find("/dev/b", "current"), "2.5");
    EXPECT_EQ(answers.find("/dev/b", "label"), std::nullopt);
}

TEST(Answers, WhateverIsWrongIsReportedWithItsPlace)
{
    protocol::toml_file::Problems problems;

    const Answers answers("litt = true\ncurrent = \"much\"\nlabel = []\n[\"/dev/b\"]\nlit = 3\n", askingPlan(),
                          problems);

    std::vector<std::string> lines;
    for (const auto& problem : problems) {
        lines.push_back(format("F", problem));
    }
    EXPECT_THAT(lines, ElementsAre("F:1:1: expected the id of a question of the plan, got 'litt'; did you mean 'lit'?",
                                   "F:2:11: current: expected a number, got 'much'",
                                   "F:3:9: label: expected a text, got another type",
                                   "F:5:7: lit: expected yes or no, got '3'"));
}

TEST(Answers, FileThatCannotBeReadIsAProblemWithoutAPlace)
{
    protocol::toml_file::Problems problems;

    const Answers answers = readAnswers("/no/such/answers.toml", askingPlan(), problems);

    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].line, 0u);
    EXPECT_EQ(problems[0].column, 0u);
    EXPECT_EQ(answers.find("/dev/a", "lit"), std::nullopt);
}

TEST(Answers, OfAllPhasesAreKnown)
{
    const Plan plan = load(R"(
schema = 1
name = "test"
title = "Test"
[[setup]]
name = "S"
steps = [{ prompt = "A?", id = "a" }]
[[main]]
name = "M"
steps = [{ prompt = "B?", id = "b" }]
[[teardown]]
name = "T"
steps = [{ prompt = "C?", id = "c" }]
)",
                           "test.toml", protocol::catalogue::groups())
                          .plan.value();
    protocol::toml_file::Problems problems;

    const Answers answers("a = false\nb = true\nc = \"y\"\n", plan, problems);

    EXPECT_THAT(problems, IsEmpty());
    EXPECT_EQ(answers.find("", "a"), "no");
    EXPECT_EQ(answers.find("", "b"), "yes");
    EXPECT_EQ(answers.find("", "c"), "yes");
}

Prompt of(Prompt::Kind kind)
{
    Prompt prompt;
    prompt.kind = kind;
    prompt.choices = {"left", "right"};
    return prompt;
}

TEST(Answers, KindsHaveTheirForms)
{
    EXPECT_EQ(describe(of(Prompt::Kind::kYesNo)), "yes or no");
    EXPECT_EQ(describe(of(Prompt::Kind::kNumber)), "a number");
    EXPECT_EQ(describe(of(Prompt::Kind::kText)), "a text");
    EXPECT_EQ(describe(of(Prompt::Kind::kChoice)), "left or right");
}

TEST(Answers, AreReadAsPeopleGiveThem)
{
    for (const char* yes : {"y", "Y", "yes", "\t yes \r\n"}) {
        EXPECT_EQ(parseAnswer(of(Prompt::Kind::kYesNo), yes), "yes") << yes;
    }
    for (const char* no : {"n", "N", "no"}) {
        EXPECT_EQ(parseAnswer(of(Prompt::Kind::kYesNo), no), "no") << no;
    }
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kYesNo), ""), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kNumber), ""), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kNumber), "inf"), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kNumber), "1e999"), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kText), "a"), "a");
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kYesNo), " y\r"), "yes");
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kYesNo), "no"), "no");
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kYesNo), "maybe"), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kNumber), "13.8"), "13.8");
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kNumber), "13.8 V"), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kNumber), "nan"), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kText), "  HU 7 "), "HU 7");
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kText), "  "), std::nullopt);
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kChoice), " left\r"), "left");
    EXPECT_EQ(parseAnswer(of(Prompt::Kind::kChoice), "up"), std::nullopt);
}

}  // namespace
}  // namespace station::plan
