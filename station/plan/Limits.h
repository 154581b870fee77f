#pragma once

#include <string>

#include "protocol/Errors.h"
#include "station/plan/Plan.h"
#include "station/plan/Variables.h"

/// Limits that are computed.
namespace station::plan {

/// Arithmetic without a result, such as a division by zero.
class NoResult : public protocol::UserError
{
    using UserError::UserError;
};

/// Takes a limit apart as a plan writes it: "87.5 MHz", "${nominal} - 5", "(${nominal} - 5) dB".
Formula readFormula(const std::string& text);

/// @returns the value in the wanted unit. In a product, a variable counts as it is if its unit does not convert.
/// Throws protocol::UserError for text that is not arithmetic, for a variable without value or whose value is not a
/// number, and for units that do not convert; NoResult for a division by zero and an overflow.
double evaluate(const Formula& formula, const Variables& variables);

/// @returns the demands with their limits as numbers. Throws protocol::UserError, with the name of the value; also for
/// limits that no value can meet.
Expected computed(Expected expected, const Variables& variables);

}  // namespace station::plan
