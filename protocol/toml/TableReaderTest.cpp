#include "protocol/toml/TableReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>

namespace protocol::toml_file {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST(Problems, AreSortedByPlaceAndThoseOfAPlaceStayInOrder)
{
    Problems problems{{2, 1, "d"}, {1, 9, "b"}, {1, 9, "c"}, {1, 2, "a"}, {10, 1, "e"}};

    sort(problems);

    EXPECT_EQ(problems, (Problems{{1, 2, "a"}, {1, 9, "b"}, {1, 9, "c"}, {2, 1, "d"}, {10, 1, "e"}}));
}

TEST(Problems, AreOneLineWithFileLineAndColumn)
{
    EXPECT_EQ(format("plan.toml", {3, 14, "is\nwrong"}), "plan.toml:3:14: is␊wrong");
    EXPECT_EQ(format("plan.toml", {}), "plan.toml:1:1: ");
    EXPECT_EQ(format("plan.toml", {0, 0, "no such file"}), "plan.toml: no such file");
}

/// What a reader of a value reports, and where.
struct Read {
    const char* name;
    const char* text;
    std::function<bool(TableReader&)> read;
    /// The place of the one problem; "" without a problem.
    std::string place;
    /// Whether there is a value.
    bool value;
};

class ReadValue : public testing::TestWithParam<Read>
{
};

TEST_P(ReadValue, HasAValueOrAProblemAtItsPlace)
{
    Problems problems;
    const toml::table table = parse(GetParam().text, problems);
    TableReader reader(table, "step", problems);

    EXPECT_EQ(GetParam().read(reader), GetParam().value);
    reader.finish();

    if (GetParam().place.empty()) {
        EXPECT_THAT(problems, IsEmpty());
    } else {
        ASSERT_THAT(problems, SizeIs(1));
        EXPECT_THAT(format("f", problems[0]), AllOf(HasSubstr("f:" + GetParam().place + ": "), HasSubstr("'a'")));
    }
}

using R = TableReader;

INSTANTIATE_TEST_SUITE_P(
    TableReader, ReadValue,
    testing::Values(
        Read{"Integer", "a = 5", [](R& r) { return r.integer("a") == 5; }, "", true},
        Read{"IntegerAtItsLeast", "a = 4", [](R& r) { return r.integer("a", false, 4, 6) == 4; }, "", true},
        Read{"IntegerAtItsMost", "a = 6", [](R& r) { return r.integer("a", false, 4, 6) == 6; }, "", true},
        Read{"IntegerTooSmall", "a = 3", [](R& r) { return r.integer("a", false, 4).has_value(); }, "1:5", false},
        Read{"IntegerTooLarge", "a = 7", [](R& r) { return r.integer("a", false, 4, 6).has_value(); }, "1:5", false},
        Read{"IntegerOfAFraction", "a = 1.5", [](R& r) { return r.integer("a").has_value(); }, "1:5", false},
        Read{"IntegerMissing", "", [](R& r) { return r.integer("a").has_value(); }, "", false},
        Read{"IntegerMissingThatIsRequired", "", [](R& r) { return r.integer("a", true).has_value(); }, "1:1", false},
        Read{"Number", "a = 1.5", [](R& r) { return r.number("a") == 1.5; }, "", true},
        Read{"NumberThatIsWhole", "a = 2", [](R& r) { return r.number("a") == 2.0; }, "", true},
        Read{"NumberThatIsNone", "a = nan", [](R& r) { return r.number("a").has_value(); }, "1:5", false},
        Read{"NumberOfAText", "a = '1'", [](R& r) { return r.number("a").has_value(); }, "1:5", false},
        Read{"NumberOfATruth", "a = true", [](R& r) { return r.number("a").has_value(); }, "1:5", false},
        Read{"NumberMissing", "", [](R& r) { return r.number("a").has_value(); }, "", false},
        Read{"NumberMissingThatIsRequired", "", [](R& r) { return r.number("a", true).has_value(); }, "1:1", false},
        Read{"Time", "a = 0.5", [](R& r) { return r.seconds("a", 0, 10) == 0.5; }, "", true},
        Read{"TimeThatIsWhole", "a = 2", [](R& r) { return r.seconds("a", 0, 10) == 2; }, "", true},
        Read{"TimeWithAUnit", "a = '500ms'", [](R& r) { return r.seconds("a", 0, 10) == 0.5; }, "", true},
        Read{"TimeAtItsMost", "a = '10 s'", [](R& r) { return r.seconds("a", 0, 10) == 10; }, "", true},
        Read{"TimeTooLong", "a = '11 s'", [](R& r) { return r.seconds("a", 0, 10).has_value(); }, "1:5", false},
        Read{"TimeTooShort", "a = 0.9", [](R& r) { return r.seconds("a", 1, 10).has_value(); }, "1:5", false},
        Read{"TimeThatIsNone", "a = nan", [](R& r) { return r.seconds("a", 0, 10).has_value(); }, "1:5", false},
        Read{"TimeWithAForeignUnit", "a = '1 V'", [](R& r) { return r.seconds("a", 0, 10).has_value(); }, "1:5", false},
        Read{"TimeOfATruth", "a = true", [](R& r) { return r.seconds("a", 0, 10).has_value(); }, "1:5", false},
        Read{"TimeMissing", "", [](R& r) { return r.seconds("a", 0, 10).has_value(); }, "", false},
        Read{"Text", "a = 'b'", [](R& r) { return r.text("a") == "b"; }, "", true},
        Read{"TextRequired", "a = 'b'", [](R& r) { return r.text("a", true) == "b"; }, "", true},
        Read{"TextEmpty", "a = ''", [](R& r) { return r.text("a").empty(); }, "", true},
        Read{"TextEmptyThatIsRequired", "a = ''", [](R& r) { return r.text("a", true).empty(); }, "1:5", true},
        Read{"TextOfANumber", "a = 1", [](R& r) { return r.text("a", true).empty(); }, "1:5", true},
        Read{"TextMissing", "", [](R& r) { return r.text("a").empty(); }, "", true},
        Read{"TextMissingThatIsRequired", "", [](R& r) { return r.text("a", true).empty(); }, "1:1", true},
        Read{"OptionalText", "a = ''", [](R& r) { return r.optionalText("a") == ""; }, "", true},
        Read{"OptionalTextMissing", "", [](R& r) { return r.optionalText("a").has_value(); }, "", false},
        Read{"TruthRead", "a = true", [](R& r) { return r.boolean("a", false); }, "", true},
        Read{"UntruthRead", "a = false", [](R& r) { return r.boolean("a", true); }, "", false},
        Read{"TruthMissing", "", [](R& r) { return r.boolean("a", true) && !r.boolean("a", false); }, "", true},
        Read{"TruthOfANumber", "a = 1", [](R& r) { return r.boolean("a", true); }, "1:5", true},
        Read{"WordFirst", "a = 'on'", [](R& r) { return r.oneOf("a", {"on", "off"}) == 0U; }, "", true},
        Read{"WordLast", "a = 'off'", [](R& r) { return r.oneOf("a", {"on", "off"}) == 1U; }, "", true},
        Read{"WordUnknown", "a = 'of'", [](R& r) { return r.oneOf("a", {"on", "off"}).has_value(); }, "1:5", false},
        Read{"WordOfANumber", "a = 1", [](R& r) { return r.oneOf("a", {"on", "off"}).has_value(); }, "1:5", false},
        Read{"WordMissing", "", [](R& r) { return r.oneOf("a", {"on"}).has_value(); }, "", false},
        Read{"WordMissingThatIsRequired", "", [](R& r) { return r.oneOf("a", {"on"}, true).has_value(); }, "1:1",
             false},
        Read{"Table", "[a]", [](R& r) { return r.table("a") != nullptr; }, "", true},
        Read{"TableOfANumber", "a = 1", [](R& r) { return r.table("a") != nullptr; }, "1:5", false},
        Read{"TableMissing", "", [](R& r) { return r.table("a") != nullptr; }, "", false},
        Read{"TableMissingThatIsRequired", "", [](R& r) { return r.table("a", true) != nullptr; }, "1:1", false},
        Read{"Tables", "[[a]]\n[[a]]", [](R& r) { return r.tables("a").size() == 2; }, "", true},
        Read{"TablesWithANumberAmongThem", "a = [{}, 1, {}]", [](R& r) { return r.tables("a").size() == 2; }, "1:10",
             true},
        Read{"TablesOfATable", "[a]", [](R& r) { return r.tables("a").empty(); }, "1:1", true},
        Read{"TablesMissing", "", [](R& r) { return r.tables("a").empty(); }, "", true},
        Read{"TablesMissingThatAreRequired", "", [](R& r) { return r.tables("a", true).empty(); }, "1:1", true},
        Read{"Node", "a = 1", [](R& r) { return r.node("a") != nullptr; }, "", true},
        Read{"NodeMissing", "", [](R& r) { return r.node("a") != nullptr; }, "", false},
        Read{"KeyThatIsNotRead", "\na = 1", [](R& r) { return r.node("b") != nullptr; }, "2:1", false}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(TableReader, ComplainsAboutAMissingKeyAtItsTable)
{
    Problems problems;
    const toml::table table = parse("\n[step]\na = 1\n", problems);
    TableReader reader(*table.get("step")->as_table(), "step", problems);

    reader.report("a", "here");
    reader.report("b", "there");

    EXPECT_EQ(problems, (Problems{{3, 5, "here"}, {2, 1, "there"}}));
}

TEST(TableReader, AnOpenRangeNamesItsLeastOnly)
{
    Problems problems;
    const toml::table table = parse("a = 3", problems);

    TableReader(table, "step", problems).integer("a", false, 4);

    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_EQ(problems[0].text, "'a': expected a number of at least 4, got 3");
}

TEST(TableReader, ListsTheWordsThatItExpects)
{
    Problems problems;
    const toml::table table = parse("a = 'x'", problems);

    TableReader(table, "step", problems).oneOf("a", {"next", "stop-group", "stop"});

    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_THAT(problems[0].text, HasSubstr("\"next\", \"stop-group\" or \"stop\""));
}

/// Every type of value that stands in place of a number, as a message shows it.
TEST(TableReader, ShowsWhatItGot)
{
    const auto messageFor = [](const char* text) {
        Problems problems;
        const toml::table table = parse(text, problems);
        TableReader(table, "step", problems).number("a");
        return problems.at(0).text;
    };
    EXPECT_EQ(messageFor("a = 'b'"), "'a': expected a number, got \"b\"");
    EXPECT_EQ(messageFor("a = true"), "'a': expected a number, got true");
    EXPECT_EQ(messageFor("a = false"), "'a': expected a number, got false");
    EXPECT_EQ(messageFor("a = nan"), "'a': expected a number, got nan");
    EXPECT_EQ(messageFor("a = {}"), "'a': expected a number, got a table");
    EXPECT_EQ(messageFor("a = []"), "'a': expected a number, got an array");
    EXPECT_EQ(messageFor("a = 2026-11-22"), "'a': expected a number, got a date or a time");
}

TEST(TableReader, SaysWhichKeysThereAreForAnUnknownOneUnlikeAll)
{
    const auto messageFor = [](const char* text, std::initializer_list<const char*> keys) {
        Problems problems;
        const toml::table table = parse(text, problems);
        TableReader reader(table, "step", problems);
        for (const char* key : keys) {
            reader.node(key);
        }
        reader.finish();
        return problems.at(0).text;
    };
    EXPECT_EQ(messageFor("retry = 1", {"retry_delay", "retries"}), "unknown key 'retry'; did you mean 'retries'?");
    EXPECT_EQ(messageFor("colour = 1", {"name", "wait"}), "unknown key 'colour': the step takes name, wait");
    EXPECT_EQ(messageFor("colour = 1", {}), "unknown key 'colour': the step takes none");
}

/// A mistake in TOML, and the problem that it makes.
struct Syntax {
    const char* text;
    const char* problem;
};

TEST(Parse, ExplainsMistakesInToml)
{
    const Syntax rows[] = {
        {"a = { b = 1,\n c = 2 }\n", "1:13: expected a table in braces on one line, got a line end in it"},
        {"send = tuner.frequency\n", "1:8: expected a value, got tuner.frequency; a text stands in quotation marks"},
        {"a = [ { b = on } ]", "1:13: expected a value, got on; a text stands in quotation marks"},
        {"a = 87.5MHz", "1:5: expected a value, got 87.5MHz; a text stands in quotation marks"},
        {"a = 2A A2", "1:5: expected a value, got 2A; a text stands in quotation marks"},
        {"a = 1.2.3", "1:5: expected a value, got 1.2.3; a text stands in quotation marks"},
        {"a = tru", "1:5: expected a value, got tru; a text stands in quotation marks"},
        {"a = trueish", "1:5: expected a value, got trueish; a text stands in quotation marks"},
        {"a = (1)", "1:5: expected a value, such as \"text\", 5, true, [ … ] or { … }"},
        {"a = .5", "1:5: expected a file in TOML's syntax; floating-point: expected decimal digit, saw '.'"},
        {"a = [1\n", "1:8: expected ']' behind the list, got the end of the file; the list begins in line 1, column 5"},
        {"b = []\na = [ # [\n  { c = ']' }\n\n[d]\n",
         "5:1: expected a comma or ']' behind the value; the list begins in line 2, column 5"},
        {"a = [[1], [2 3]]", "1:14: expected a comma or ']' behind the value; the list begins in line 1, column 11"},
        {"a = 1\n'b' = 2\na = 3\n", "3:5: expected each key once, got 'a' again; first in line 1, column 1"},
        {"[x]\na = 1\n[y]\n a = 1\na = 3\n", "5:5: expected each key once, got 'a' again; first in line 4, column 2"},
        {"a = [{ b = 1 }, { c = 1, b = 2, b = 3 }]",
         "1:37: expected each key once, got 'b' again; first in line 1, column 26"},
        {"[x] # X\na = 1\n\n[y]\n[x]\n", "5:1: expected each key once, got 'x' again; first in line 1, column 1"},
        {"a = {}\n[a]\n", "2:1: expected each key once, got 'a' again"},
        {"a = 1 ¡\n", "1:7: expected the end of the line"},
    };
    for (const auto& [text, problem] : rows) {
        Problems problems;
        EXPECT_TRUE(parse(text, problems).empty()) << text;
        EXPECT_THAT(problems, SizeIs(1)) << text;
        EXPECT_EQ(problems.empty() ? "" : format("f", problems.front()), std::string("f:") + problem) << text;
    }
}

/// @returns whether the file is refused for a key of too many parts.
bool isTooDeep(const std::string& text)
{
    Problems problems;
    parse(text, problems);
    return !problems.empty() && problems[0].text.find("dotted key") != std::string::npos;
}

TEST(Parse, EveryCharacterOfAKeyBelongsToItsParts)
{
    for (const char* part : {"a", "z", "A", "Z", "0", "9", "_", "-", "'='", "\"=\"", " a", "a ", "\ta", "''"}) {
        std::string key = part;
        for (int i = 1; i < 16; ++i) {
            key += std::string(".") + part;
        }
        EXPECT_FALSE(isTooDeep(key + " = 1")) << part;
        EXPECT_TRUE(isTooDeep(key + "." + part + " = 1")) << part;
    }
}

TEST(Parse, EveryOtherCharacterBeginsAKey)
{
    for (const char* between : {"=", "\n", "[", "]", ",", "{", "}", "#\n", "/", ":", "@", "`", "ü"}) {
        EXPECT_FALSE(isTooDeep("a.a.a.a.a.a.a.a.a" + std::string(between) + "a.a.a.a.a.a.a.a.a")) << between;
    }
}

TEST(Parse, StringsAndCommentsEndWhereTheyShould)
{
    const std::string parts = ".a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a";
    struct Row {
        std::string text;
        bool tooDeep;
    };
    const Row rows[] = {
        {"#" + parts, false},       {"'" + parts, false},
        {"\"" + parts, false},      {"\"\"\"" + parts, false},
        {"'''" + parts, false},     {"\"\\", false},
        {"'a\n" + parts, true},     {"\"a\n" + parts, true},
        {"#\na" + parts, true},     {"''''''" + parts, true},
        {"''" + parts, true},       {"'''''" + parts, false},
        {"'\\'" + parts, true},     {"\"\\\"" + parts, false},
        {"\"\\\\\"" + parts, true}, {"\"\"\"\"a\"\"\"" + parts, true},
    };
    for (const auto& [text, tooDeep] : rows) {
        EXPECT_EQ(isTooDeep(text), tooDeep) << text;
    }
}

}  // namespace
}  // namespace protocol::toml_file
