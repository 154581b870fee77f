#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/generator/Writers.h"

namespace protocol::catalogue::generator {
namespace {

std::string readSource(const std::string& path)
{
    std::ifstream file(SOURCE_FOLDER "/" + path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// When one of these two fails: scripts/generate.
TEST(GeneratedFilesTest, TheProtocolsPageIsUpToDate)
{
    const std::string page = readSource("docs/protocol.md");

    EXPECT_EQ(writeMarkdown(groups(), page), page);
}

TEST(GeneratedFilesTest, TheDissectorIsUpToDate)
{
    EXPECT_EQ(writeLua(groups(), readSource("protocol/catalogue/generator/dissector.lua")),
              readSource("share/wireshark/engineering.lua"));
}

TEST(GeneratedFilesTest, APageWithoutMarksIsRefused)
{
    EXPECT_THROW(writeMarkdown(groups(), "a page\n"), std::runtime_error);
}

TEST(GeneratedFilesTest, AScriptWithoutItsLineIsRefused)
{
    EXPECT_THROW(writeLua(groups(), "local nothing = {}\n"), std::runtime_error);
}

}  // namespace
}  // namespace protocol::catalogue::generator
