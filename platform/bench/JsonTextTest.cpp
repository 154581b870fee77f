#include "platform/bench/JsonText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bench {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string refusalOf(const std::string& text)
{
    try {
        parseJson(text);
    } catch (const JsonError& error) {
        return error.what();
    }
    return "";
}

TEST(JsonText, ValueIsReadUnchanged)
{
    EXPECT_EQ(parseJson(R"({"a":[1,"b"]})"), json({{"a", {1, "b"}}}));
}

TEST(JsonText, TextThatIsNotJsonIsRefusedInOneLineWithThePlace)
{
    const std::string refusal = refusalOf("{\"a\":\n nonsense}");

    EXPECT_THAT(refusal, StartsWith("not JSON: "));
    EXPECT_THAT(refusal, HasSubstr("line 2"));
    EXPECT_THAT(refusal, Not(HasSubstr("\n")));
}

TEST(JsonText, EmptyTextIsRefused)
{
    EXPECT_THAT(refusalOf(""), StartsWith("not JSON: "));
}

TEST(JsonText, NestingThatWouldExhaustTheStackIsRefused)
{
    const std::string deep = std::string(1'000'000, '[') + std::string(1'000'000, ']');

    EXPECT_THAT(refusalOf(deep), HasSubstr("nested deeper than 32 levels"));
}

TEST(JsonText, BytesThatAreNoUtf8AreReplacedWhenWritten)
{
    EXPECT_EQ(toText(json("a\xFFz")), "\"a\xEF\xBF\xBDz\"");
}

}  // namespace
}  // namespace bench
