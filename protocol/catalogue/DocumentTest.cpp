#include "protocol/catalogue/Document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/generator/Writers.h"
#include "protocol/toml/TableReader.h"

namespace protocol::catalogue {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using toml_file::Problem;

constexpr const char* kHead = R"(schema = 1
[[group]]
code = 2
key = "tuner"
title = "Tuner"
meaning = "Radio."
)";

constexpr const char* kCommand = R"([[group.command]]
code = 1
key = "play"
title = "Play"
meaning = "Plays."
access = "read"
)";

std::vector<std::string> problemsOf(const std::string& text)
{
    std::vector<std::string> lines;
    const Document document(text);
    for (const Problem& problem : document.problems()) {
        lines.push_back(format("catalogue.toml", problem));
    }
    return lines;
}

std::string withField(const std::string& field)
{
    return std::string(kHead) + kCommand + "params = [{ " + field + " }]\n";
}

TEST(DocumentTest, TheCompiledTableIsWhatTheFileSays)
{
    std::ifstream file(SOURCE_FOLDER "/protocol/catalogue.toml", std::ios::binary);
    const Document document(std::string{std::istreambuf_iterator<char>(file), {}});

    ASSERT_THAT(document.problems(), IsEmpty());
    EXPECT_EQ(generator::writeCpp(document.groups(), ""), generator::writeCpp(groups(), ""));
}

TEST(DocumentTest, ASmallCatalogueIsSound)
{
    EXPECT_THAT(problemsOf(std::string(kHead) + kCommand), IsEmpty());
}

TEST(DocumentTest, LimitsAreLegal)
{
    for (const char* field :
         {R"(name = "z", type = "u8", scale = { factor = 1000000000, unit = "V" }, example = "1")",
          R"(name = "a0-9_", type = "u8", choices = { z = 0, a = 255 }, example = "1")",
          R"(name = "a", type = "u8", minimum = 255, maximum = 255, example = "255")",
          R"(name = "a", type = "i32be", minimum = -2147483648, maximum = 2147483647, example = "1")"}) {
        EXPECT_THAT(problemsOf(withField(field)), IsEmpty()) << field;
    }
}

TEST(DocumentTest, TwoMembersWithoutKeyAreNotTheSameKeyTwice)
{
    const std::string notice = "[[group.notice]]\ntitle = \"A\"\nmeaning = \"A.\"\n";

    EXPECT_THAT(
        problemsOf(kHead + notice + "code = 1\n" + notice + "code = 2\n"),
        ElementsAre(HasSubstr(":7:1: expected the key 'key' with"), HasSubstr(":11:1: expected the key 'key' with")));
}

TEST(DocumentTest, EverythingThatIsWrongIsToldAtOnceByPlace)
{
    EXPECT_THAT(problemsOf(std::string(kHead) + "code2 = 1\n" + kCommand + "minimum = \"two\"\n"),
                ElementsAre("catalogue.toml:7:1: unknown key 'code2'; did you mean 'code'?",
                            "catalogue.toml:14:11: 'minimum': expected an integer, got \"two\""));
}

struct Broken {
    const char* name;
    std::string text;
    std::string line;
};

class BrokenCatalogue : public testing::TestWithParam<Broken>
{
};

TEST_P(BrokenCatalogue, IsToldWithItsPlace)
{
    EXPECT_THAT(problemsOf(GetParam().text), ElementsAre(HasSubstr(GetParam().line)));
}

INSTANTIATE_TEST_SUITE_P(
    Document, BrokenCatalogue,
    testing::Values(
        Broken{"NoToml", "schema = \n", "catalogue.toml:1:10: "},
        Broken{"NoText", std::string("schema = 1\n\xFF\xFE\n"), "catalogue.toml:1:11: "},
        Broken{"NoSchema", "group = []\n",
               ":1:1: expected the key 'schema' with an integer in the catalogue, got none"},
        Broken{"AnotherSchema", "schema = 2\ngroup = []\n", ":1:10: 'schema': expected 1, got 2"},
        Broken{"NoGroups", "schema = 1\n",
               ":1:1: expected the key 'group' with an array of tables in the catalogue, got none"},
        Broken{"GroupIsNoArray", "schema = 1\ngroup = 3\n", ":2:9: 'group': expected an array of tables, [[group]]"},
        Broken{"GroupHoldsANumber", "schema = 1\ngroup = [3]\n", ":2:10: 'group': expected tables only, { … }, got 3"},
        Broken{"GroupCodeHasBit7", "schema = 1\n[[group]]\ncode = 0x82\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":3:8: 'code': expected 0 to 127, got 130"},
        Broken{"KeyHasCapitals", "schema = 1\n[[group]]\ncode = 2\nkey = \"Tuner\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":4:7: 'key': expected a lower-case letter, then lower-case letters, digits, '-' and '_', got 'Tuner'"},
        Broken{"GroupTwice", std::string(kHead) + "[[group]]\ncode = 2\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\n",
               ":8:8: expected each group's code once, got 2 again"},
        Broken{"GroupKeyTwice",
               std::string(kHead) + "[[group]]\ncode = 3\nkey = \"tuner\"\ntitle = \"B\"\nmeaning = \"B.\"\n",
               ":9:7: expected each group's key once, got 'tuner' again"},
        Broken{"NoticeTwice",
               std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n" +
                   "[[group.notice]]\ncode = 1\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\n",
               ":12:1: expected each code once in the group, got 1 again"},
        Broken{"GroupCodeOneTooLarge",
               "schema = 1\n[[group]]\ncode = 128\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":3:8: 'code': expected 0 to 127, got 128"},
        Broken{"CommandCodeTooLarge",
               std::string(kHead) +
                   "[[group.command]]\ncode = 256\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":8:8: 'code': expected 0 to 255, got 256"},
        Broken{"NoticeCodeTooLarge",
               std::string(kHead) + "[[group.notice]]\ncode = 256\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":8:8: 'code': expected 0 to 255, got 256"},
        Broken{"ReplyGroupTooLarge", std::string(kHead) + kCommand + "replies = [{ group = 128 }]\n",
               ":13:22: 'group': expected 0 to 127, got 128"},
        Broken{"ReplyCodeTooLarge", std::string(kHead) + kCommand + "later = [{ code = 256 }]\n",
               ":13:19: 'code': expected 0 to 255, got 256"},
        Broken{"NoticeOfTheKeyOfACommand",
               std::string(kHead) + kCommand +
                   "[[group.notice]]\ncode = 1\nkey = \"play\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":13:1: expected each key once in the group, got 'play' again"},
        Broken{"CommandWithoutKey",
               std::string(kHead) + "[[group.command]]\ncode = 1\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":7:1: expected the key 'key' with"},
        Broken{"CommandWithoutTitle",
               std::string(kHead) + "[[group.command]]\ncode = 1\nkey = \"b\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":7:1: expected the key 'title' with"},
        Broken{"CommandWithoutMeaning",
               std::string(kHead) + "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B.\"\naccess = \"read\"\n",
               ":7:1: expected the key 'meaning' with"},
        Broken{"CommandWithoutAccess",
               std::string(kHead) + "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B.\"\nmeaning = \"B.\"\n",
               ":7:1: expected the key 'access' with"},
        Broken{"CommandWithoutCode",
               std::string(kHead) +
                   "[[group.command]]\nkey = \"b\"\ntitle = \"B.\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":7:1: expected the key 'code' with"},
        Broken{"NoticeWithoutCode",
               std::string(kHead) + "[[group.notice]]\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":7:1: expected the key 'code' with"},
        Broken{"NoticeWithoutTitle", std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\nmeaning = \"A.\"\n",
               ":7:1: expected the key 'title' with"},
        Broken{"NoticeWithoutMeaning", std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\n",
               ":7:1: expected the key 'meaning' with"},
        Broken{"GroupWithoutCode", "schema = 1\n[[group]]\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":2:1: expected the key 'code' with"},
        Broken{"GroupWithoutTitle", "schema = 1\n[[group]]\ncode = 1\nkey = \"a\"\nmeaning = \"A.\"\n",
               ":2:1: expected the key 'title' with"},
        Broken{"GroupWithoutMeaning", "schema = 1\n[[group]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\n",
               ":2:1: expected the key 'meaning' with"},
        Broken{"FieldWithoutType", withField(R"(name = "a", example = "1")"), ":13:11: expected the key 'type' with"},
        Broken{"FieldWithoutName", withField(R"(type = "u8", example = "1")"), ":13:11: expected the key 'name' with"},
        Broken{"ScaleWithoutUnit", withField(R"(name = "a", type = "u8", scale = { factor = 1 }, example = "1")"),
               "expected the key 'unit' with"},
        Broken{"ScaleWithoutFactor", withField(R"(name = "a", type = "u8", scale = { unit = "V" }, example = "1")"),
               "expected the key 'factor' with"},
        Broken{"UnknownKeyOfACatalogue", std::string("more = 1\n") + kHead, ":1:1: unknown key 'more'"},
        Broken{"UnknownKeyOfACommand", std::string(kHead) + kCommand + "more = 1\n", ":13:1: unknown key 'more'"},
        Broken{
            "UnknownKeyOfANotice",
            std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\nmore = 1\n",
            ":12:1: unknown key 'more'"},
        Broken{"UnknownKeyOfAReply", std::string(kHead) + kCommand + "replies = [{ more = 1 }]\n",
               ":13:14: unknown key 'more'"},
        Broken{"UnknownKeyOfAField", withField(R"(name = "a", type = "u8", example = "1", more = 1)"),
               "unknown key 'more'"},
        Broken{"UnknownKeyOfAScale",
               withField(R"(name = "a", type = "u8", scale = { factor = 1, unit = "V", more = 1 }, example = "1")"),
               "unknown key 'more'"},
        Broken{"TitleIsNoText", "schema = 1\n[[group]]\ncode = 2\nkey = \"a\"\ntitle = 3\nmeaning = \"A.\"\n",
               ":5:9: 'title': expected a text"},
        Broken{"TitleHasTwoLines",
               "schema = 1\n[[group]]\ncode = 2\nkey = \"a\"\ntitle = \"A\\nB\"\nmeaning = \"A.\"\n",
               ":5:9: 'title': expected one line without control characters"},
        Broken{"TitleHasAControlCharacter",
               "schema = 1\n[[group]]\ncode = 2\nkey = \"a\"\ntitle = \"A\\u001fB\"\nmeaning = \"A.\"\n",
               ":5:9: 'title': expected one line without control characters"},
        Broken{"TitleHasADelete",
               "schema = 1\n[[group]]\ncode = 2\nkey = \"a\"\ntitle = \"A\\u007fB\"\nmeaning = \"A.\"\n",
               ":5:9: 'title': expected one line without control characters"},
        Broken{"TitleIsEmpty", "schema = 1\n[[group]]\ncode = 2\nkey = \"a\"\ntitle = \"\"\nmeaning = \"A.\"\n",
               ":5:9: 'title': expected a text that is not empty, got \"\""},
        Broken{"CommandTwice",
               std::string(kHead) + kCommand +
                   "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":13:1: expected each code once in the group, got 1 again"},
        Broken{"KeyTwice",
               std::string(kHead) + kCommand +
                   "[[group.command]]\ncode = 2\nkey = \"play\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":13:1: expected each key once in the group, got 'play' again"},
        Broken{"UnknownAccess",
               std::string(kHead) +
                   "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"peek\"\n",
               ":12:10: 'access': expected \"read\" or \"write\", got \"peek\""},
        Broken{"DestructiveAndRepeatable", std::string(kHead) + kCommand + "destructive = true\n",
               "'repeatable': expected false for a destructive command"},
        Broken{"MinimumBeyondTheParameters", std::string(kHead) + kCommand + "minimum = 1\n",
               ":13:11: 'minimum': expected 0, got 1"},
        Broken{"ReadBackUnknown", std::string(kHead) + kCommand + "read-back = \"tuner.pla\"\n",
               ":13:13: 'read-back': expected a command that reads, got 'tuner.pla'"},
        Broken{
            "MinimumBeyondNumbersAndText",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "u16be", example = "1" }, { name = "b", type = "ascii", maximum = 7, example = "1" }])" +
                "\nminimum = 10\n",
            ":14:11: 'minimum': expected 0 to 9, got 10"},
        Broken{"ReadBackThatWrites",
               std::string(kHead) + kCommand +
                   "read-back = \"tuner.set\"\n[[group.command]]\ncode = 2\nkey = \"set\"\ntitle = \"B\"\nmeaning = "
                   "\"B.\"\naccess = \"write\"\n",
               ":13:13: 'read-back': expected a command that reads, got 'tuner.set'"},
        Broken{"UniqueWithoutReadBack",
               std::string(kHead) + kCommand + "unique = \"ids\"\n" +
                   R"(params = [{ name = "a", type = "u8", example = "1" }])",
               ":13:10: 'unique': expected a command with one parameter and a 'read-back'"},
        Broken{"UniqueWithoutParameter",
               std::string(kHead) + kCommand + "unique = \"ids\"\nread-back = \"tuner.play\"\n",
               ":13:10: 'unique': expected a command with one parameter and a 'read-back'"},
        Broken{"SecondReplyWithoutWhen", std::string(kHead) + kCommand + "replies = [{}, { code = 2 }]\n",
               ":13:16: 'when': expected the case in which this further reply comes, got none"},
        Broken{"UnknownType", withField(R"(name = "a", type = "u9", example = "1")"),
               ":13:32: 'type': expected \"u8\", \"u16be\""},
        Broken{"NoExample", withField(R"(name = "a", type = "u8")"),
               "expected the key 'example' with a text in the field, got none"},
        Broken{"RangeUpsideDown", withField(R"(name = "a", type = "u8", minimum = 3, maximum = 2, example = "1")"),
               ":13:48: 'minimum': expected at most 2, got 3"},
        Broken{"RangeBeyondTheType", withField(R"(name = "a", type = "u8", maximum = 256, example = "1")"),
               "'maximum': expected 0 to 255, got 256"},
        Broken{"ChoiceOutOfRange", withField(R"(name = "a", type = "u8", choices = { on = 256 }, example = "1")"),
               "choice 'on': expected 0 to 255, got 256"},
        Broken{"ChoiceBelowTheRange",
               withField(R"(name = "a", type = "u8", minimum = 5, choices = { on = 4 }, example = "5")"),
               "choice 'on': expected 5 to 255, got 4"},
        Broken{"SecretNumber", withField(R"(name = "a", type = "u8", secret = true, example = "1")"),
               "'secret': expected a field of the type ascii or bytes"},
        Broken{"SecretHexText", withField(R"(name = "a", type = "hex", secret = true, example = "1")"),
               "'secret': expected a field of the type ascii or bytes"},
        Broken{"LenientNumber", withField(R"(name = "a", type = "u8", lenient = true, example = "1")"),
               "'lenient': expected a text or bytes"},
        Broken{"FieldsOfANumber",
               withField(R"(name = "a", type = "u8", fields = [{ name = "b", type = "u8" }], example = "1")"),
               "'fields': expected them for the type records only"},
        Broken{"ScaleOfAText",
               withField(R"(name = "a", type = "ascii", scale = { factor = 1, unit = "V" }, example = "1")"),
               "expected choices and a scale for numbers only"},
        Broken{"ScaleTooLarge",
               withField(R"(name = "a", type = "u8", scale = { factor = 1000000001, unit = "V" }, example = "1")"),
               "'factor': expected more than 0 and at most 1e9"},
        Broken{"ScaleBelowZero",
               withField(R"(name = "a", type = "u8", scale = { factor = -0.5, unit = "V" }, example = "1")"),
               "'factor': expected more than 0 and at most 1e9"},
        Broken{"KeyBeginsWithADigit", withField(R"(name = "1a", type = "u8", example = "1")"), "got '1a'"},
        Broken{"KeyHasADot", withField(R"(name = "a.b", type = "u8", example = "1")"), "got 'a.b'"},
        Broken{"KeyHasTheCharacterBeforeA", withField(R"(name = "a`", type = "u8", example = "1")"), "got 'a`'"},
        Broken{"KeyHasTheCharacterAfterZ", withField(R"(name = "a{", type = "u8", example = "1")"), "got 'a{'"},
        Broken{"KeyHasTheCharacterBefore0", withField(R"(name = "a/", type = "u8", example = "1")"), "got 'a/'"},
        Broken{"KeyHasTheCharacterAfter9", withField(R"(name = "a:", type = "u8", example = "1")"), "got 'a:'"},
        Broken{"KeyBeginsWithTheCharacterAfterZ", withField(R"(name = "{a", type = "u8", example = "1")"), "got '{a'"},
        Broken{"ChoiceIsNoNumber", withField(R"(name = "a", type = "u8", choices = { on = "1" }, example = "1")"),
               "choice 'on': expected an integer"},
        Broken{"ChoiceWithCapitals", withField(R"(name = "a", type = "u8", choices = { On = 1 }, example = "1")"),
               "choice: expected a lower-case letter, then lower-case letters, digits, '-' and '_', got 'On'"},
        Broken{"OptionalIsNoFlag", withField(R"(name = "a", type = "u8", optional = 1, example = "1")"),
               ":13:49: 'optional': expected true or false"},
        Broken{"ScaleIsNoTable", withField(R"(name = "a", type = "u8", scale = 3, example = "1")"),
               "'scale': expected a table"},
        Broken{"FactorIsNoNumber",
               withField(R"(name = "a", type = "u8", scale = { factor = "1", unit = "V" }, example = "1")"),
               "'factor': expected a number"},
        Broken{
            "RecordsOfTexts",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "n", type = "u8", example = "1" }, { name = "a", type = "records", example = "1", fields = [{ name = "b", type = "ascii" }] }])",
            "'type': expected a number in a record"},
        Broken{"NumberWithTwoNames",
               withField(R"(name = "a", type = "u8", choices = { on = 1, yes = 1 }, example = "1")"),
               "expected one name for 1, got a second, 'yes'"},
        Broken{"ChoicesOfAText", withField(R"(name = "a", type = "ascii", choices = { on = 1 }, example = "1")"),
               "expected choices and a scale for numbers only"},
        Broken{"ScaleOfZero",
               withField(R"(name = "a", type = "u8", scale = { factor = 0, unit = "V" }, example = "1")"),
               "'factor': expected more than 0 and at most 1e9"},
        Broken{
            "RecordsWithoutFields",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "n", type = "u8", example = "1" }, { name = "a", type = "records", example = "1" }])",
            "'fields': expected the fields of a record, got none"},
        Broken{"RecordsWithoutACount",
               withField(R"(name = "a", type = "records", example = "1", fields = [{ name = "b", type = "u8" }])"),
               "field 'a': expected a number before it, the count of the records"},
        Broken{
            "FieldBehindAText",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "ascii", example = "1" }, { name = "b", type = "u8", example = "1" }])",
            "field 'b': expected a field of fixed size before it"},
        Broken{
            "RequiredBehindOptional",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "u8", optional = true, example = "1" }, { name = "b", type = "u8", example = "1" }])",
            "field 'b': expected 'optional = true', since the field before it is optional"},
        Broken{
            "FieldTwice",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "u8", example = "1" }, { name = "a", type = "u8", example = "1" }])",
            "field 'a': expected each name once"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(DocumentTest, SyntaxErrorsAreToldInPlainWords)
{
    const auto check = [](const char* text, const char* message) {
        EXPECT_THAT(problemsOf(text), ElementsAre(HasSubstr(message)));
    };
    check("a = \"b\nc = 1\n", "expected the quotation mark that ends the text, got the end of the line");
    check("a = \"b", "expected the quotation mark that ends the text, got the end of the file");
    check("a = b\n", "expected a value, got b; a text stands in quotation marks");
    check("a = (b)\n", "expected a value, such as \"text\", 5, true, [ … ] or { … }");
    check("a =\n", "expected a value behind '='");
    check("a\n", "expected '=' behind the key");
    check("a = 1\na = 2\n", "expected each key once, got 'a' again; first in line 1, column 1");
    check("a = 1 2\n", "expected the end of the line");
    check("a = [1, 2\n", "expected ']' behind the list, got the end of the file; the list begins in line 1, column 5");
    check("a = { b = 1", "expected more, got the end of the file");
    check("a = [1 2]\n", "expected a comma or ']' behind the value");
    check("a = { b = 1\n}\n", "expected a table in braces on one line");
    check("a = { b = 1, }\n", "expected no comma before the closing brace");
    check("a = 007\n", "expected a number without leading zeros");
    check("a = \xFF\n", "expected a file in UTF-8");
}

TEST(DocumentTest, DeepKeyIsToldWithItsPlace)
{
    const std::string parts = ".\"a\" . a.'a'.a.a.a.a.a.a.a.a.a.a.a.a";

    EXPECT_THAT(problemsOf("# ü\nb = 1\n [\"ü\"" + parts + ".a]\n"),
                ElementsAre("catalogue.toml:3:3: expected at most 16 parts in a dotted key"));
    EXPECT_THAT(problemsOf("a" + parts + " = 1\n"), testing::Not(testing::Contains(HasSubstr("dotted key"))));
}

TEST(DocumentTest, DotsThatAreInNoKeyAreSound)
{
    constexpr std::string_view kText = R"(# a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a
a = "a.a.a.a.a.a.a.a.a.a\"a.a.a.a.a.a.a.a.a.a\\"
b = 'a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a\'
c = """
a.a.a.a.a.a.a.a.a"a.a.a.a.a.a.a.a.a.a.a\""""
d = '''a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a
a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a'''
e = [1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0]
f = ""
)";
    toml_file::Problems problems;

    EXPECT_EQ(toml_file::parse(kText, problems).size(), 6U);
    EXPECT_THAT(problems, IsEmpty());
}

TEST(DocumentTest, NoBytesCrashTheReader)
{
    // Deterministic, so that a failure comes again: the small catalogue with one byte changed, everywhere.
    const std::string sound = std::string(kHead) + kCommand;
    for (std::size_t at = 0; at < sound.size(); ++at) {
        for (const char byte : {'\0', '\n', '"', '[', ']', '=', '\x7F', '\xFF'}) {
            std::string text = sound;
            text[at] = byte;
            const Document document(text);
            for (const Problem& problem : document.problems()) {
                EXPECT_GE(problem.line, 1u);
            }
        }
    }
}

}  // namespace
}  // namespace protocol::catalogue
