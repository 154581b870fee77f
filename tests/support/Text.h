#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/bench/CallRecord.h"

// The outputs of the service as lines of text, for tests to compare.

/// @returns "8F 00 [01]".
std::string frameText(std::uint8_t cmdOne, std::uint8_t cmdTwo, const std::vector<std::uint8_t>& params);

/// @returns "01 02 FF".
std::string hexText(const std::vector<std::uint8_t>& bytes);

/// @returns "tuner Play [1,8750,0,1]".
std::string callText(const bench::Call& call);
