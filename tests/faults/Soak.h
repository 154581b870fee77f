#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tests {

/// @returns whether the tests run at their full length (scripts/soak) and not as part of the daily suite.
inline bool soaking()
{
    return std::getenv("ENGINEERING_SOAK") != nullptr;
}

/// Sanitizers make a program slow, and keep what it frees: the length is a tenth, and memory says nothing.
inline constexpr bool kSanitized = SANITIZED;

/// @returns how often something is to be done: `daily` as a rule, `full` in a soak.
inline std::size_t lengthOf(std::size_t daily, std::size_t full)
{
    if (soaking()) {
        return full;
    }
    return kSanitized ? daily / 10 : daily;
}

/// Prints a figure that the test has measured.
inline void showFigure(const std::string& what, double value, const char* unit)
{
    std::printf("[  FIGURE  ] %s: %.4g %s\n", what.c_str(), value, unit);
    std::fflush(stdout);
}

}  // namespace tests
