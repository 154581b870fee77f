#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/bench/CallRecord.h"

// What tests compare: everything that leaves the service, as one line of text each.

/// @returns "8F 00 [01]".
std::string frameText(std::uint8_t cmdOne, std::uint8_t cmdTwo, const std::vector<std::uint8_t>& params);

/// @returns "01 02 FF".
std::string hexText(const std::vector<std::uint8_t>& bytes);

/// @returns "tuner Play [1,8750,0,1]".
std::string callText(const bench::Call& call);
