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

    EXPECT_THAT(problemsOf(kHead + notice + "code = 1\n" + notice + "code = 2\n"),
                ElementsAre(HasSubstr(":7:1: the notice has no 'key'"), HasSubstr(":11:1: the notice has no 'key'")));
}

TEST(DocumentTest, EverythingThatIsWrongIsToldAtOnceByPlace)
{
    EXPECT_THAT(problemsOf(std::string(kHead) + "code2 = 1\n" + kCommand + "minimum = \"two\"\n"),
                ElementsAre("catalogue.toml:7:1: the group has no key 'code2'; did you mean 'code'?",
                            "catalogue.toml:14:11: 'minimum': expected an integer"));
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
        Broken{"NoSchema", "group = []\n", ":1:1: the catalogue has no 'schema': expected an integer"},
        Broken{"AnotherSchema", "schema = 2\ngroup = []\n", ":1:10: 'schema': expected 1, got 2"},
        Broken{"NoGroups", "schema = 1\n", ":1:1: the catalogue has no 'group': expected an array of tables"},
        Broken{"GroupIsNoArray", "schema = 1\ngroup = 3\n", ":2:9: 'group': expected an array of tables, [[group]]"},
        Broken{"GroupHoldsANumber", "schema = 1\ngroup = [3]\n", ":2:10: 'group' holds something that is not a table"},
        Broken{"GroupCodeHasBit7", "schema = 1\n[[group]]\ncode = 0x82\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":3:8: 'code': expected 0 to 127, got 130"},
        Broken{"KeyHasCapitals", "schema = 1\n[[group]]\ncode = 2\nkey = \"Tuner\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":4:7: expected a letter, then lower-case letters, digits, '-' and '_', got 'Tuner'"},
        Broken{"GroupTwice", std::string(kHead) + "[[group]]\ncode = 2\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\n",
               ":8:8: the group's code occurs twice"},
        Broken{"GroupKeyTwice",
               std::string(kHead) + "[[group]]\ncode = 3\nkey = \"tuner\"\ntitle = \"B\"\nmeaning = \"B.\"\n",
               ":9:7: the group's key occurs twice"},
        Broken{"NoticeTwice",
               std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n" +
                   "[[group.notice]]\ncode = 1\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\n",
               ":12:1: the notice's code occurs twice in the group"},
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
               ":13:1: 'play' occurs twice in the group"},
        Broken{"CommandWithoutKey",
               std::string(kHead) + "[[group.command]]\ncode = 1\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":7:1: the command has no 'key'"},
        Broken{"CommandWithoutTitle",
               std::string(kHead) + "[[group.command]]\ncode = 1\nkey = \"b\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":7:1: the command has no 'title'"},
        Broken{"CommandWithoutMeaning",
               std::string(kHead) + "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B.\"\naccess = \"read\"\n",
               ":7:1: the command has no 'meaning'"},
        Broken{"CommandWithoutAccess",
               std::string(kHead) + "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B.\"\nmeaning = \"B.\"\n",
               ":7:1: the command has no 'access'"},
        Broken{"CommandWithoutCode",
               std::string(kHead) +
                   "[[group.command]]\nkey = \"b\"\ntitle = \"B.\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":7:1: the command has no 'code'"},
        Broken{"NoticeWithoutCode",
               std::string(kHead) + "[[group.notice]]\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":7:1: the notice has no 'code'"},
        Broken{"NoticeWithoutTitle", std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\nmeaning = \"A.\"\n",
               ":7:1: the notice has no 'title'"},
        Broken{"NoticeWithoutMeaning", std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\n",
               ":7:1: the notice has no 'meaning'"},
        Broken{"GroupWithoutCode", "schema = 1\n[[group]]\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\n",
               ":2:1: the group has no 'code'"},
        Broken{"GroupWithoutTitle", "schema = 1\n[[group]]\ncode = 1\nkey = \"a\"\nmeaning = \"A.\"\n",
               ":2:1: the group has no 'title'"},
        Broken{"GroupWithoutMeaning", "schema = 1\n[[group]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\n",
               ":2:1: the group has no 'meaning'"},
        Broken{"FieldWithoutType", withField(R"(name = "a", example = "1")"), ":13:11: the field has no 'type'"},
        Broken{"FieldWithoutName", withField(R"(type = "u8", example = "1")"), ":13:11: the field has no 'name'"},
        Broken{"ScaleWithoutUnit", withField(R"(name = "a", type = "u8", scale = { factor = 1 }, example = "1")"),
               "the scale has no 'unit'"},
        Broken{"ScaleWithoutFactor", withField(R"(name = "a", type = "u8", scale = { unit = "V" }, example = "1")"),
               "the scale has no 'factor'"},
        Broken{"UnknownKeyOfACatalogue", std::string("more = 1\n") + kHead, ":1:1: the catalogue has no key 'more'"},
        Broken{"UnknownKeyOfACommand", std::string(kHead) + kCommand + "more = 1\n",
               ":13:1: the command has no key 'more'"},
        Broken{
            "UnknownKeyOfANotice",
            std::string(kHead) + "[[group.notice]]\ncode = 1\nkey = \"a\"\ntitle = \"A\"\nmeaning = \"A.\"\nmore = 1\n",
            ":12:1: the notice has no key 'more'"},
        Broken{"UnknownKeyOfAReply", std::string(kHead) + kCommand + "replies = [{ more = 1 }]\n",
               ":13:14: the reply has no key 'more'"},
        Broken{"UnknownKeyOfAField", withField(R"(name = "a", type = "u8", example = "1", more = 1)"),
               "the field has no key 'more'"},
        Broken{"UnknownKeyOfAScale",
               withField(R"(name = "a", type = "u8", scale = { factor = 1, unit = "V", more = 1 }, example = "1")"),
               "the scale has no key 'more'"},
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
               ":5:9: 'title' is empty"},
        Broken{"CommandTwice",
               std::string(kHead) + kCommand +
                   "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":13:1: the command's code occurs twice in the group"},
        Broken{"KeyTwice",
               std::string(kHead) + kCommand +
                   "[[group.command]]\ncode = 2\nkey = \"play\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"read\"\n",
               ":13:1: 'play' occurs twice in the group"},
        Broken{"UnknownAccess",
               std::string(kHead) +
                   "[[group.command]]\ncode = 1\nkey = \"b\"\ntitle = \"B\"\nmeaning = \"B.\"\naccess = \"peek\"\n",
               ":12:10: 'access': expected \"read\" or \"write\", got \"peek\""},
        Broken{"DestructiveAndRepeatable", std::string(kHead) + kCommand + "destructive = true\n",
               "a destructive command cannot be repeatable"},
        Broken{"MinimumBeyondTheParameters", std::string(kHead) + kCommand + "minimum = 1\n",
               ":13:11: 'minimum': expected 0, got 1"},
        Broken{"ReadBackUnknown", std::string(kHead) + kCommand + "read-back = \"tuner.pla\"\n",
               ":13:13: 'tuner.pla' is not a command of the catalogue that reads"},
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
               ":13:13: 'tuner.set' is not a command of the catalogue that reads"},
        Broken{"UniqueWithoutReadBack",
               std::string(kHead) + kCommand + "unique = \"ids\"\n" +
                   R"(params = [{ name = "a", type = "u8", example = "1" }])",
               ":13:10: 'unique' needs one parameter and a 'read-back'"},
        Broken{"UniqueWithoutParameter",
               std::string(kHead) + kCommand + "unique = \"ids\"\nread-back = \"tuner.play\"\n",
               ":13:10: 'unique' needs one parameter and a 'read-back'"},
        Broken{"SecondReplyWithoutWhen", std::string(kHead) + kCommand + "replies = [{}, { code = 2 }]\n",
               ":13:16: a further reply needs 'when'"},
        Broken{"UnknownType", withField(R"(name = "a", type = "u9", example = "1")"),
               ":13:32: 'type': expected \"u8\", \"u16be\""},
        Broken{"NoExample", withField(R"(name = "a", type = "u8")"), "the field has no 'example'"},
        Broken{"RangeUpsideDown", withField(R"(name = "a", type = "u8", minimum = 3, maximum = 2, example = "1")"),
               ":13:48: 'minimum' is above 'maximum'"},
        Broken{"RangeBeyondTheType", withField(R"(name = "a", type = "u8", maximum = 256, example = "1")"),
               "'maximum': expected 0 to 255, got 256"},
        Broken{"ChoiceOutOfRange", withField(R"(name = "a", type = "u8", choices = { on = 256 }, example = "1")"),
               "the choice 'on': expected 0 to 255, got 256"},
        Broken{"ChoiceBelowTheRange",
               withField(R"(name = "a", type = "u8", minimum = 5, choices = { on = 4 }, example = "5")"),
               "the choice 'on': expected 5 to 255, got 4"},
        Broken{"SecretNumber", withField(R"(name = "a", type = "u8", secret = true, example = "1")"),
               "only an ascii text or bytes can be secret"},
        Broken{"SecretHexText", withField(R"(name = "a", type = "hex", secret = true, example = "1")"),
               "only an ascii text or bytes can be secret"},
        Broken{"FieldsOfANumber",
               withField(R"(name = "a", type = "u8", fields = [{ name = "b", type = "u8" }], example = "1")"),
               "only records have 'fields'"},
        Broken{"ScaleOfAText",
               withField(R"(name = "a", type = "ascii", scale = { factor = 1, unit = "V" }, example = "1")"),
               "only a number has choices or a scale"},
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
               "the choice 'on': expected an integer"},
        Broken{"ChoiceWithCapitals", withField(R"(name = "a", type = "u8", choices = { On = 1 }, example = "1")"),
               "a choice: expected a letter, then lower-case letters, digits, '-' and '_', got 'On'"},
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
            "a record holds numbers only"},
        Broken{"NumberWithTwoNames",
               withField(R"(name = "a", type = "u8", choices = { on = 1, yes = 1 }, example = "1")"),
               "the number 1 has two names"},
        Broken{"ChoicesOfAText", withField(R"(name = "a", type = "ascii", choices = { on = 1 }, example = "1")"),
               "only a number has choices or a scale"},
        Broken{"ScaleOfZero",
               withField(R"(name = "a", type = "u8", scale = { factor = 0, unit = "V" }, example = "1")"),
               "'factor': expected more than 0 and at most 1e9"},
        Broken{
            "RecordsWithoutFields",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "n", type = "u8", example = "1" }, { name = "a", type = "records", example = "1" }])",
            "records need 'fields'"},
        Broken{"RecordsWithoutACount",
               withField(R"(name = "a", type = "records", example = "1", fields = [{ name = "b", type = "u8" }])"),
               "'a' needs a number before it that counts the records"},
        Broken{
            "FieldBehindAText",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "ascii", example = "1" }, { name = "b", type = "u8", example = "1" }])",
            "'b' cannot stand behind a field without a fixed size"},
        Broken{
            "RequiredBehindOptional",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "u8", optional = true, example = "1" }, { name = "b", type = "u8", example = "1" }])",
            "'b' cannot be required behind a field that is optional"},
        Broken{
            "FieldTwice",
            std::string(kHead) + kCommand +
                R"(params = [{ name = "a", type = "u8", example = "1" }, { name = "a", type = "u8", example = "1" }])",
            "'a' occurs twice"}),
    [](const auto& param) { return std::string(param.param.name); });

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
