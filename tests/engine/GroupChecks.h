#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tests/support/EngineTest.h"

// What the tests of the command groups have in common.

/// @returns the codes of a group's table, in its order.
inline std::vector<int> codesOf(std::span<const Command> commands)
{
    std::vector<int> codes;
    for (const Command& command : commands)
        codes.push_back(command.code);
    return codes;
}

/// With auto-test mode off the unit answers no command of the group, tells nobody and does nothing.
inline void expectNothingWithTheModeOff(EngineTest& test, std::uint8_t group)
{
    test.start();
    test.forget();
    for (int code = 0; code <= 0xFF; ++code)
        test.station.sendCommand(group, static_cast<std::uint8_t>(code), {1, 1, 1, 1});

    EXPECT_THAT(test.station.replies(), testing::IsEmpty());
    EXPECT_THAT(test.hmi.signals(), testing::IsEmpty());
    EXPECT_THAT(test.calls(), testing::IsEmpty());
}

/// @returns what `work` writes to standard output.
inline std::string printedBy(const std::function<void()>& work)
{
    testing::internal::CaptureStdout();
    work();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}
