#pragma once

#include <span>
#include <string>
#include <vector>

#include "station/plan/Plan.h"
#include "station/plan/Variables.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// What came of comparing values with what was expected.
struct Judgement {
    std::vector<record::Measurement> measurements;
    /// One line per value that missed; empty when all hold.
    std::vector<std::string> misses;

    /// @returns the misses in one line.
    std::string reason() const;
};

/// Compares a frame's fields. A field that nobody expects anything of becomes a measurement without limits; one out of
/// the catalogue's range misses.
/// Throws UnknownVariable, and protocol::UserError for a variable whose value is none of the field.
Judgement judge(std::span<const Expected> expected, std::span<const protocol::catalogue::DecodedField> fields,
                const Variables& variables);

/// Compares an operator's answer, which is of the kind that the question asks for. Throws UnknownVariable.
Judgement judge(const Prompt& prompt, const std::string& answer, const Variables& variables);

/// @returns whether `value` is `limit` or less, give or take what a factor rounds off: 8707 × 0.01 is at most 87.07.
bool isAtMost(double value, double limit);

/// @returns a number without needless digits: "87.5", "8750".
std::string numberText(double number);

}  // namespace station::plan
