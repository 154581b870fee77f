#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "KYRAppMgr.h"

// What the test sees of the other platform.
namespace otherplatform {

/// Delivers bytes from the station, on the calling thread.
void deliver(std::vector<std::uint8_t> bytes);

/// @returns the frames that the service has sent since the last call.
std::vector<std::vector<std::uint8_t>> takeSent();

/// Writes down what the service asks of the platform; any thread.
void ask(std::string what);

/// @returns what the service has asked since the last call.
std::vector<std::string> takeAsked();

/// Sets what KYR_GetRootPath() gives.
void setRoot(const std::string& root);

/// Lends the platform an application manager, or takes it away (null).
void setAppManager(KYRAppMgrService* appManager);

}  // namespace otherplatform
