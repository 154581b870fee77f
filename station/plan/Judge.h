#pragma once

#include <span>
#include <string>
#include <vector>

#include "protocol/catalogue/Codec.h"
#include "station/plan/Plan.h"
#include "station/plan/Variables.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// The result of a comparison with expected values.
struct Judgement {
    std::vector<record::Measurement> measurements;
    /// One line per value that fails; empty if all hold.
    std::vector<std::string> misses;

    /// @returns the misses in one line.
    std::string reason() const;
};

/// Compares a frame's fields. A field without an expectation becomes a measurement without limits; one out of the
/// catalogue's range fails.
/// Throws protocol::UserError for a variable without a value, or with a value that the field cannot have, and for a
/// limit that cannot be computed.
Judgement judge(std::span<const Expected> expected, std::span<const protocol::catalogue::DecodedField> fields,
                const Variables& variables);

/// Compares what a program or an instrument measured: names, values and units, in which the limits are added. A value
/// is converted to the unit that is expected. Throws protocol::UserError for a variable without a value.
Judgement judgeValues(std::span<const Expected> expected, std::vector<record::Measurement> values,
                      const Variables& variables);

/// Compares an operator's answer, which is of the kind that the question asks for. Throws protocol::UserError for a
/// variable without a value.
Judgement judge(const Prompt& prompt, const std::string& answer, const Variables& variables);

/// @returns why a text that an operator typed or scanned does not have the form that the question asks for; empty if it
/// does.
/// Throws protocol::UserError for a variable without a value.
std::string mistyped(const Prompt& prompt, const std::string& answer, const Variables& variables);

/// @returns whether `value` is `limit` or less, but for rounding: 8707 × 0.01 is at most 87.07.
bool isAtMost(double value, double limit);

/// @returns a number, "yes", "no", or the text as it is.
std::string plainText(const record::Scalar& value);

/// @returns a text as it stands within the quotation marks of JSON.
std::string inJson(const std::string& text);

/// @returns "MHz on FM".
std::string unitOf(const protocol::catalogue::Scale& scale);

/// Reads a value as a user writes it for `field`: 8750, "87.5MHz", "on", "HeadUnit", "00 1A 7D". Every text field and
/// bytes may be empty.
/// Throws protocol::UserError, which says what is wrong and what would be right.
protocol::catalogue::Value literal(const protocol::catalogue::Field& field, const std::string& written);

/// @returns whether a frame's value is the expected one; hexadecimal text in either case.
bool same(const protocol::catalogue::Field& field, const protocol::catalogue::Value& one,
          const protocol::catalogue::Value& other);

/// @returns the value as a user would write it for a parameter: a choice's name stays a number.
std::string written(const protocol::catalogue::DecodedField& field);

}  // namespace station::plan
