#include "Report.h"

#include <algorithm>
#include <cstdio>

namespace bench {

void report(const std::string& message)
{
    std::string line = message;
    std::ranges::replace_if(
        line, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');
    std::fprintf(stderr, "engineering-service: %s\n", line.c_str());
}

}  // namespace bench
