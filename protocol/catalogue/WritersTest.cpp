#include "protocol/catalogue/generator/Writers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "protocol/catalogue/Catalogue.h"

namespace protocol::catalogue::generator {
namespace {

using testing::HasSubstr;

TEST(WritersTest, ThePageHasASectionForAGroupAndARowForACommandWithItsFramesAsExamples)
{
    const std::string page = writeMarkdown(groups());

    EXPECT_THAT(page, HasSubstr("\n## Test mode, group `0F`, `test`\n"));
    EXPECT_THAT(page, HasSubstr("| `0F 01`<br>`test.media-ready` | — | Asks whether the media player module has "
                                "started. | `8F 01`: *ready* (u8; 0 no, 1 yes) | `2A A2 00 02 0F 01 FF EE`<br>"
                                "`2A A2 00 03 8F 01 01 00 FF 6C` |\n"));
    EXPECT_THAT(page, HasSubstr("*track* (u8; 1 to 255; counted from 1)"));
}

TEST(WritersTest, AScriptWithoutItsLineIsRefused)
{
    EXPECT_THROW(writeLua(groups(), "local nothing = {}\n"), std::runtime_error);
}

}  // namespace
}  // namespace protocol::catalogue::generator
