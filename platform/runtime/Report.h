#pragma once

#include <functional>
#include <string>

namespace runtime {

/// Takes a message for the person at the bench; replaced in tests.
using Reporter = std::function<void(const std::string&)>;

/// Prints `message` on standard error as one line of the program's, whatever characters it quotes. Any thread.
void report(const std::string& message);

}  // namespace runtime
