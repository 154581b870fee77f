#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the test sees of the other platform.
namespace otherplatform {

/// Delivers bytes from the station, on the calling thread.
void deliver(std::vector<std::uint8_t> bytes);

/// @returns the frames that the service has sent since the last call.
std::vector<std::vector<std::uint8_t>> takeSent();

/// Sets what KYR_GetRootPath() gives.
void setRoot(const std::string& root);

}  // namespace otherplatform
