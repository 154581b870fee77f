#include "station/record/RunRecord.h"

#include <array>
#include <utility>

namespace station::record {

namespace {

/// The worst last.
constexpr std::array kBySeverity{
    std::pair{Verdict::kSkipped, "SKIPPED"}, std::pair{Verdict::kPass, "PASS"},
    std::pair{Verdict::kFail, "FAIL"},       std::pair{Verdict::kTimeout, "TIMEOUT"},
    std::pair{Verdict::kError, "ERROR"},     std::pair{Verdict::kAborted, "ABORTED"},
};

std::size_t severity(Verdict verdict)
{
    std::size_t place = 0;
    while (place + 1 < kBySeverity.size() && kBySeverity[place].first != verdict) {
        ++place;
    }
    return place;
}

}  // namespace

const char* name(Verdict verdict)
{
    return kBySeverity[severity(verdict)].second;
}

Verdict worse(Verdict one, Verdict other)
{
    return severity(one) >= severity(other) ? one : other;
}

}  // namespace station::record
