#include "platform/runtime/UartOption.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/Errors.h"

namespace runtime {
namespace {

using testing::HasSubstr;
using Kind = UartOption::Kind;

std::string refusal(const std::string& text)
{
    try {
        parseUartOption(text);
        return "";
    } catch (const protocol::UserError& error) {
        return error.what();
    }
}

TEST(UartOption, PtyNamesALink)
{
    const auto option = parseUartOption("pty:/run/line,1");

    EXPECT_EQ(option.kind, Kind::kPseudoTerminal);
    EXPECT_EQ(option.path, "/run/line,1");
}

TEST(UartOption, PtyWithoutALinkIsRefused)
{
    EXPECT_EQ(refusal("pty:"), "--uart: expected pty:LINK or DEVICE[,BAUD], got 'pty:'");
}

TEST(UartOption, DeviceAloneHas115200Baud)
{
    const auto option = parseUartOption("/dev/ttyUSB0");

    EXPECT_EQ(option.kind, Kind::kDevice);
    EXPECT_EQ(option.path, "/dev/ttyUSB0");
    EXPECT_EQ(option.baud, 115200u);
}

TEST(UartOption, DeviceMayHaveARate)
{
    const auto option = parseUartOption("/dev/ttyUSB0,9600");

    EXPECT_EQ(option.path, "/dev/ttyUSB0");
    EXPECT_EQ(option.baud, 9600u);
}

TEST(UartOption, LastCommaIsTheRates)
{
    EXPECT_EQ(parseUartOption("/dev/a,b,9600").path, "/dev/a,b");
}

TEST(UartOption, RateThatNoLineHasIsRefusedWithSomeThatItMayHave)
{
    for (const char* rate : {"12345", "0", "-9600", "9600x", "fast", "", " 9600", "99999999999999999999"}) {
        EXPECT_EQ(refusal(std::string("/dev/ttyUSB0,") + rate),
                  std::string("--uart: expected a baud rate such as 9600, 115200 or 921600, got '") + rate + "'");
    }
}

TEST(UartOption, EmptyLineIsRefused)
{
    EXPECT_THAT(refusal(""), HasSubstr("pty:LINK"));
    EXPECT_THAT(refusal(",9600"), HasSubstr("pty:LINK"));
}

}  // namespace
}  // namespace runtime
