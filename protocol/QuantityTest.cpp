#include "protocol/Quantity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace protocol {
namespace {

using namespace std::chrono_literals;

TEST(Quantity, NumberAndUnitAreTakenApart)
{
    const auto check = [](const char* text, double number, std::string_view unit) {
        const auto quantity = parseQuantity(text);
        ASSERT_TRUE(quantity) << text;
        EXPECT_EQ(quantity->number, number) << text;
        EXPECT_EQ(quantity->unit, unit) << text;
    };
    check("87.5MHz", 87.5, "MHz");
    check(" -3 V ", -3, "V");
    check("12", 12, "");
    check("1e3", 1, "e3");
    check("0x10", 0, "x10");
    constexpr double kHuge = std::numeric_limits<double>::infinity();
    EXPECT_EQ(parseQuantity(std::string(400, '9')).value().number, kHuge);
    EXPECT_EQ(parseQuantity("-" + std::string(400, '9')).value().number, -kHuge);
}

TEST(Quantity, TextWithoutANumberAtItsBeginningIsNone)
{
    for (const char* text : {"", "-", "MHz", ".5", "inf", "nan", "+3", "- 3"}) {
        EXPECT_FALSE(parseQuantity(text)) << text;
    }
}

TEST(Quantity, FiniteNumberStandsAlone)
{
    EXPECT_EQ(parseFinite("-1.5e3"), -1500);
    for (const char* text : {"", "1 V", " 1", "inf", "nan", "1e999"}) {
        EXPECT_FALSE(parseFinite(text)) << text;
    }
}

TEST(Quantity, TimesAreSecondsOrHaveAUnit)
{
    EXPECT_EQ(parseSeconds("0.5"), 0.5);
    EXPECT_EQ(parseSeconds("500ms"), 0.5);
    EXPECT_EQ(parseSeconds("2 s"), 2);
    EXPECT_EQ(parseSeconds("1.5min"), 90);
    EXPECT_EQ(parseSeconds("8h"), 28800);
    EXPECT_EQ(parseSeconds("50 µs"), 0.00005);
    EXPECT_EQ(parseSeconds("0"), 0);
    for (const char* text : {"", "soon", "-1", "5 m", "1 d", "500 MS", "1 h 30 min"}) {
        EXPECT_FALSE(parseSeconds(text)) << text;
    }
}

TEST(Quantity, UnitsOfOneKindConvert)
{
    const auto check = [](double number, const char* from, const char* to, double expected) {
        const auto result = convert(number, from, to);
        ASSERT_TRUE(result) << from << " to " << to;
        EXPECT_DOUBLE_EQ(*result, expected) << from << " to " << to;
    };
    check(94.7, "MHz", "kHz", 94700);
    check(94.7, "MHz", "10 kHz on FM", 9470);
    check(9470, "10 kHz on FM", "MHz", 94.7);
    check(0.05, "s", "ms", 50);
    check(2, "h", "min", 120);
    check(1500, "mV", "V", 1.5);
    check(1.5, "mA", "µA", 1500);
    check(1.5, "mA", "\u03BCA", 1500);
    check(1.5, "mA", "uA", 1500);
    check(4.7, "kOhm", "Ω", 4700);
    check(36, "km/h", "m/s", 10);
    check(60, "dBµV", "mV", 1);
    check(1, "mV", "dBuV", 60);
    check(60, "dBµV", "dBmV", 0);
    check(0, "dBm", "mW", 1);
    check(-30, "dBW", "dBm", 0);
    check(7, "dB", "dB", 7);
    check(7, "flux", "flux", 7);
    check(7, "", "", 7);
}

TEST(Quantity, UnitsOfDifferentKindsDoNotConvert)
{
    for (const auto& [from, to] : std::initializer_list<std::pair<const char*, const char*>>{{"MHz", "V"},
                                                                                             {"dB", "dBm"},
                                                                                             {"", "V"},
                                                                                             {"V", ""},
                                                                                             {"flux", "V"},
                                                                                             {"kdB", "dB"},
                                                                                             {"M", "m"},
                                                                                             {"mh", "h"},
                                                                                             {"mhz", "Hz"},
                                                                                             {"MV", "V"},
                                                                                             {"°C", "K"},
                                                                                             {"dBV", "dBW"},
                                                                                             {"kk", "k"},
                                                                                             {"10", "10 V"},
                                                                                             {"VV", "V"},
                                                                                             {"mmm", "m"},
                                                                                             {"kHzMHz", "Hz"}}) {
        EXPECT_FALSE(convert(1, from, to)) << from << " to " << to;
    }
}

TEST(Quantity, LevelOfNothingAndNumbersThatOverflowDoNotConvert)
{
    EXPECT_FALSE(convert(0, "mV", "dBµV"));
    EXPECT_FALSE(convert(-1, "mV", "dBµV"));
    EXPECT_FALSE(convert(1e6, "dBµV", "V"));
    EXPECT_FALSE(convert(1e308, "GHz", "Hz"));
    EXPECT_FALSE(convert(1, "V", "0 V"));
}

TEST(Quantity, NumbersHaveNoExponentWhereTheyAreReadableWithout)
{
    EXPECT_EQ(toText(9470.0), "9470");
    EXPECT_EQ(toText(100000.0), "100000");
    EXPECT_EQ(toText(94.7), "94.7");
    EXPECT_EQ(toText(-0.001), "-0.001");
    EXPECT_EQ(toText(4294967295.0), "4294967295");
    EXPECT_EQ(toText(1e300), "1e+300");
    EXPECT_EQ(toText(0.0), "0");
    EXPECT_EQ(toText(1e-6), "0.000001");
    EXPECT_EQ(toText(-9e-7), "-9e-07");
    EXPECT_EQ(toText(999999999999999.0), "999999999999999");
    EXPECT_EQ(toText(-1e15), "-1e+15");
    EXPECT_EQ(toText(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(Quantity, ShortNumbersHaveNoNoiseOfBinaryFractions)
{
    EXPECT_EQ(shortText(8707 * 0.01), "87.07");
    EXPECT_EQ(shortText(8750 * 0.01), "87.5");
    EXPECT_EQ(shortText(3 * 0.1), "0.3");
    EXPECT_EQ(shortText(123456789012), "123456789012");
    EXPECT_EQ(shortText(1234567890123), "1.23456789012e+12");
}

TEST(Quantity, UnitThatBeginsWithANumberIsMultiplied)
{
    EXPECT_EQ(withUnit("94.7", "MHz"), "94.7 MHz");
    EXPECT_EQ(withUnit("8750", "10 kHz"), "8750 × 10 kHz");
    EXPECT_EQ(withUnit("8750", ""), "8750");
    EXPECT_EQ(withUnit("1", "\x1bV"), "1 ␛V");
}

TEST(Quantity, DurationsHaveAUnitThatFits)
{
    EXPECT_EQ(toText(4200us), "4.2 ms");
    EXPECT_EQ(toText(123ms), "123 ms");
    EXPECT_EQ(toText(9100ms), "9.10 s");
    EXPECT_EQ(toText(200s), "3 min 20 s");
    EXPECT_EQ(toText(59999ms), "1 min 0 s");
    EXPECT_EQ(toText(2h + 5min), "2 h 5 min");
    // Each is the first or the last that is written so.
    EXPECT_EQ(toText(0ns), "0.0 ms");
    EXPECT_EQ(toText(99'949us), "99.9 ms");
    EXPECT_EQ(toText(99'950us), "100 ms");
    EXPECT_EQ(toText(999'499us), "999 ms");
    EXPECT_EQ(toText(999'500us), "1.00 s");
    EXPECT_EQ(toText(59'994ms), "59.99 s");
    EXPECT_EQ(toText(59'995ms), "1 min 0 s");
    EXPECT_EQ(toText(3599s), "59 min 59 s");
    EXPECT_EQ(toText(3600s), "1 h 0 min");
    EXPECT_EQ(toText(7259s), "2 h 0 min");
    EXPECT_EQ(secondsText(50ms), "0.05 s");
    EXPECT_EQ(secondsText(1min), "60 s");
}

}  // namespace
}  // namespace protocol
