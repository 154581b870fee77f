#include "protocol/catalogue/generator/Writers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Document.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace protocol::catalogue::generator {
namespace {

using testing::HasSubstr;

/// Everything that a catalogue can say, once.
constexpr const char* kEverything = R"~(schema = 1

[[group]]
code = 2
key = "tuner"
title = "Tuner"
meaning = "The \"radio\"."

[[group.command]]
code = 255
key = "play-2_b"
title = "Play"
meaning = "Plays."
access = "write"
minimum = 9
params = [
  { name = "band", type = "u8", minimum = 1, maximum = 4, choices = { fm = 4, am = 1 }, example = "fm" },
  { name = "level", type = "u16be", unit = "dB", meaning = "as heard", choices = { top = 9 }, open = true, optional = true, example = "top" },
  { name = "code", type = "bytes", minimum = 2, maximum = 6, optional = true, secret = true, example = "01 02" },
]
read-back = "tuner.played"

[[group.command]]
code = 1
key = "played"
title = "Played"
meaning = "Reads it."
access = "read"
silent = "without a record"
replies = [
  { fields = [{ name = "frequency", type = "u32be", scale = { factor = 1e-7, unit = "MHz", only = "on FM" }, example = "950000000" }] },
  { group = 127, code = 255, when = "nothing plays" },
]

[[group.command]]
code = 3
key = "wipe"
title = "Wipe"
meaning = "Wipes."
access = "write"
destructive = true
repeatable = false
params = [{ name = "id", type = "ascii", minimum = 4, maximum = 4, example = "abcd" }]
read-back = "tuner.played"
unique = "ids"
later = [{ code = 4, fields = [
  { name = "count", type = "u8", maximum = 9, unit = "\\", example = "1" },
  { name = "list", type = "records", maximum = 9, example = "5:-7", fields = [
    { name = "number", type = "u24be" }, { name = "signal", type = "i32be" } ] } ] }]

[[group.notice]]
code = 5
key = "lost"
title = "Lost"
meaning = "The signal is lost."
fields = [{ name = "mac", type = "hex", minimum = 2, maximum = 12, lenient = true, example = "0A" }]

[[group]]
code = 127
key = "az09-_"
title = "Last"
meaning = "Empty."
)~";

class WritersOfEverything : public testing::Test
{
protected:
    const Document document{kEverything};
};

TEST_F(WritersOfEverything, TheSourceHasAllOfIt)
{
    ASSERT_TRUE(document.problems().empty()) << format("everything", document.problems().front());
    EXPECT_EQ(writeCpp(document.groups(), "the hash"), R"~(// Made from catalogue.toml.
#include "protocol/catalogue/Catalogue.h"

namespace protocol::catalogue {

namespace {

constexpr Choice kChoice1[] = {
    {1, "am"},
    {4, "fm"},
};
constexpr Choice kChoice2[] = {
    {9, "top"},
};
constexpr Field kField3[] = {
    {"band", Type{0}, "", "", std::nullopt, 1, 4, kChoice1, false, false, "fm", {}, false, false},
    {"level", Type{1}, "as heard", "dB", std::nullopt, 0, 65535, kChoice2, true, true, "top", {}, false, false},
    {"code", Type{5}, "", "", std::nullopt, 2, 6, {}, true, true, "01 02", {}, true, false},
};
constexpr Field kField4[] = {
    {"frequency", Type{3}, "", "", Scale{1e-07, "MHz", "on FM"}, 0, 4294967295, {}, true, false, "950000000", {}, false, false},
};
constexpr Reply kReply5[] = {
    {130, 1, "", kField4},
    {255, 255, "nothing plays", {}},
};
constexpr Field kField6[] = {
    {"id", Type{6}, "", "", std::nullopt, 4, 4, {}, true, false, "abcd", {}, false, false},
};
constexpr Field kField7[] = {
    {"number", Type{2}, "", "", std::nullopt, 0, 16777215, {}, true, false, "", {}, false, false},
    {"signal", Type{4}, "", "", std::nullopt, -2147483648, 2147483647, {}, true, false, "", {}, false, false},
};
constexpr Field kField8[] = {
    {"count", Type{0}, "", "\\", std::nullopt, 0, 9, {}, true, false, "1", {}, false, false},
    {"list", Type{8}, "", "", std::nullopt, 0, 9, {}, true, false, "5:-7", kField7, false, false},
};
constexpr Reply kReply9[] = {
    {130, 4, "", kField8},
};
constexpr Command kCommand10[] = {
    {2, 255, "play-2_b", "Play", "Plays.", Access::kWrite, false, true, 9, kField3, {}, "", {}, "tuner.played", ""},
    {2, 1, "played", "Played", "Reads it.", Access::kRead, false, true, 0, {}, kReply5, "without a record", {}, "", ""},
    {2, 3, "wipe", "Wipe", "Wipes.", Access::kWrite, true, false, 0, kField6, {}, "", kReply9, "tuner.played", "ids"},
};
constexpr Field kField11[] = {
    {"mac", Type{7}, "", "", std::nullopt, 2, 12, {}, true, false, "0A", {}, false, true},
};
constexpr Notice kNotice12[] = {
    {130, 5, "lost", "Lost", "The signal is lost.", kField11},
};
constexpr Group kGroup13[] = {
    {2, "tuner", "Tuner", "The \"radio\".", kCommand10, kNotice12},
    {127, "az09-_", "Last", "Empty.", {}, {}},
};

}  // namespace

Groups groups()
{
    return kGroup13;
}

std::string_view hash()
{
    return "the hash";
}

}  // namespace protocol::catalogue
)~");
}

TEST_F(WritersOfEverything, ThePageHasAllOfIt)
{
    EXPECT_EQ(writeMarkdown(document.groups()), R"~(
## Tuner, group `02`, `tuner`

The "radio".

| command | parameters | what happens | reply | example: request, then reply |
| --- | --- | --- | --- | --- |
| `02 FF`<br>`tuner.play-2_b` | *band* (u8; 1 am, 4 fm), *level* (u16be; dB; 9 top, or another; may be missing; as heard), *code* (bytes; 2 to 6 bytes; may be missing) | Plays. Read back with `tuner.played`. | none | `2A A2 00 07 02 FF 04 00 09 01 02 00 FE E8` |
| `02 01`<br>`tuner.played` | — | Reads it. | `82 01`: *frequency* (u32be); `FF FF`, no byte when nothing plays; none without a record | `2A A2 00 02 02 01 FF FB`<br>`2A A2 00 06 82 01 38 9F D9 80 FD 47` |
| `02 03`<br>`tuner.wipe` | *id* (ascii; 4 bytes) | Wipes. **Destructive.** Not sent again after a reconnect. Read back with `tuner.played`. | later `82 04`: *count* (u8; \; 0 to 9), *list* (for each: number u24be, signal i32be; 0 to 9 of them) | `2A A2 00 06 02 03 61 62 63 64 FE 6B`<br>`2A A2 00 0A 82 04 01 00 00 05 FF FF FF F9 FB 74` |

The unit sends on its own:

| frame | fields | when | example |
| --- | --- | --- | --- |
| `82 05`<br>`tuner.lost` | *mac* (hex; usually 2 to 12 bytes) | The signal is lost. | `2A A2 00 04 82 05 30 41 FF 04` |

## Last, group `7F`, `az09-_`

Empty.

| command | parameters | what happens | reply | example: request, then reply |
| --- | --- | --- | --- | --- |
)~");
}

TEST_F(WritersOfEverything, TheDissectorHasWhatItNeedsInPlaceOfItsLine)
{
    EXPECT_EQ(writeLua(document.groups(), "-- before\nlocal groups = {}\n-- after\n"), R"~(-- before
local groups = {
    [2] = "Tuner",
    [127] = "Last",
}
local frames = {
    { 2, 255, "tuner.play-2_b", {{ name = "band", type = "u8", size = 1, choices = { [1] = "am", [4] = "fm", }, minimum = 1, maximum = 4, closed = true }, { name = "level", type = "u16be", size = 2, unit = "dB", choices = { [9] = "top", }, minimum = 0, maximum = 65535, optional = true }, { name = "code", type = "bytes", minimum = 2, maximum = 6, optional = true }} },
    { 2, 1, "tuner.played", {}, replies = { [33281] = 252, [65535] = 0, }, minimum = 0, silent = "without a record" },
    { 2, 3, "tuner.wipe", {{ name = "id", type = "ascii", minimum = 4, maximum = 4 }} },
    { 130, 1, "tuner.played", {{ name = "frequency", type = "u32be", size = 4, minimum = 0, maximum = 4294967295 }} },
    { 130, 5, "tuner.lost", {{ name = "mac", type = "hex", minimum = 2, maximum = 12, lenient = true }} },
    { 255, 255, "tuner.played", {} },
    { 130, 4, "tuner.wipe", {{ name = "count", type = "u8", size = 1, unit = "\\", minimum = 0, maximum = 9 }, { name = "list", type = "records", minimum = 0, maximum = 9, fields = {{ name = "number", type = "u24be", size = 3, minimum = 0, maximum = 16777215 }, { name = "signal", type = "i32be", size = 4, minimum = -2147483648, maximum = 2147483647 }} }} },
}
-- after
)~");
}

TEST(WritersTest, ThePageHasASectionForAGroupAndARowForACommandWithItsFramesAsExamples)
{
    const std::string page = writeMarkdown(groups());

    EXPECT_THAT(page, HasSubstr("\n## Test mode, group `0F`, `test`\n"));
    EXPECT_THAT(page, HasSubstr("| `0F 01`<br>`test.media-ready` | — | Tells whether the media player module has "
                                "started. | `8F 01`: *ready* (u8; 0 no, 1 yes) | `2A A2 00 02 0F 01 FF EE`<br>"
                                "`2A A2 00 03 8F 01 01 00 FF 6C` |\n"));
    EXPECT_THAT(page, HasSubstr("*track* (u8; 1 to 255; counted from 1)"));
}

TEST(WritersTest, AScriptWithoutItsLineIsRefused)
{
    EXPECT_THROW(writeLua(groups(), "local nothing = {}\n"), std::runtime_error);
}

/// Runs the generator to its end.
tests::Outcome generate(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), GENERATOR);
    return tests::run(arguments);
}

TEST(GeneratorProgram, WritesWhatTheWordNames)
{
    const std::string file = SOURCE_FOLDER "/protocol/catalogue.toml";
    const tests::TempDir directory;
    const std::string before = directory.path() / "before";
    std::ofstream(before) << "before\nlocal groups = {}\n";

    EXPECT_EQ(generate({"cpp", file}).out, writeCpp(groups(), hash()));
    EXPECT_EQ(generate({"markdown", file, before}).out, "before\nlocal groups = {}\n" + writeMarkdown(groups()));
    EXPECT_EQ(generate({"lua", file, before}).out, writeLua(groups(), "before\nlocal groups = {}\n"));
}

TEST(GeneratorProgram, SaysWhatIsWrong)
{
    const std::string file = SOURCE_FOLDER "/protocol/catalogue.toml";
    const tests::TempDir directory;
    const std::string broken = directory.path() / "broken.toml";
    std::ofstream(broken) << "schema = 2\ngroup = []\n";

    for (const std::vector<std::string>& wrong : {std::vector<std::string>{},
                                                  {"cpp"},
                                                  {"xml", file},
                                                  {"cpp", file, broken},
                                                  {"lua", file},
                                                  {"markdown", file}}) {
        const auto outcome = generate(wrong);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr("usage: catalogue-generator"));
    }
    struct Row {
        std::vector<std::string> arguments;
        int status;
        const char* place;
    };
    const Row rows[] = {{{"cpp", broken}, 2, "broken.toml:1:10: "},
                        {{"cpp", file + ".none"}, 1, "catalogue.toml.none"},
                        {{"markdown", file, file + ".none"}, 1, "catalogue.toml.none"}};
    for (const auto& [arguments, status, place] : rows) {
        const auto outcome = generate(arguments);
        EXPECT_EQ(outcome.status, status) << place;
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr(place));
    }
}

}  // namespace
}  // namespace protocol::catalogue::generator
