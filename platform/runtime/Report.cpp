#include "platform/runtime/Report.h"

#include <cstdio>

#include "protocol/Text.h"

namespace runtime {

void report(const std::string& message)
{
    std::fprintf(stderr, "engineering-service: %s\n", protocol::printable(message).c_str());
}

}  // namespace runtime
