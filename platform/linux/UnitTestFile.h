#pragma once

#include <string>

namespace tests {

/// @returns the text of a unit's file, in which `is` replaces `was`.
std::string unitFile(const std::string& was = "", const std::string& is = "");

}  // namespace tests
