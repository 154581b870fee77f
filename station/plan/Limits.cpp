#include "station/plan/Limits.h"

#include <fmt/format.h>
#include <muParser.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"

namespace station::plan {

namespace {

/// What an operation without a result gives; every further operation keeps it.
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

double unlessTooLarge(double number)
{
    return std::isfinite(number) ? number : kNoNumber;
}

/// @param shown the text before its variables were replaced
/// @returns NaN for a division by zero and an overflow. Throws UserError for text that is not arithmetic.
double arithmetic(const std::string& text, const std::string& shown)
{
    // The library's own operators hide a division by zero in a larger expression, and it knows more than arithmetic.
    constexpr std::size_t kLongest = 1000;
    if (text.size() > kLongest) {
        throw protocol::UserError(
            fmt::format("expected an expression of at most {} characters, got {}", kLongest, text.size()));
    }
    try {
        if (text.find_first_not_of("0123456789.eE+-*/() ") != std::string::npos) {
            throw mu::ParserError(mu::ecINVALID_NAME);
        }
        mu::Parser parser;
        parser.ClearFun();
        parser.ClearConst();
        parser.EnableBuiltInOprt(false);
        const auto define = [&parser](const char* sign, mu::fun_type2 operation, unsigned precedence) {
            parser.DefineOprt(sign, operation, precedence, mu::oaLEFT);
        };
        define(
            "+", [](double a, double b) { return unlessTooLarge(a + b); }, mu::prADD_SUB);
        define(
            "-", [](double a, double b) { return unlessTooLarge(a - b); }, mu::prADD_SUB);
        define(
            "*", [](double a, double b) { return unlessTooLarge(a * b); }, mu::prMUL_DIV);
        define(
            "/", [](double a, double b) { return b == 0 ? kNoNumber : unlessTooLarge(a / b); }, mu::prMUL_DIV);
        parser.SetExpr(text);
        return unlessTooLarge(parser.Eval());
    } catch (const mu::ParserError&) {
        throw protocol::UserError(
            "expected a number, perhaps with a unit, or arithmetic such as \"2 * (3 + 4)\", got " +
            protocol::inQuotes(shown));
    }
}

std::string namedUnit(const std::string& unit)
{
    return unit.empty() ? "no unit" : protocol::inQuotes(unit);
}

}  // namespace

Formula readFormula(const std::string& text)
{
    Formula formula;
    // A unit follows the last number, parenthesis or variable, and begins with a letter or a sign such as % or °.
    std::size_t end = text.find_last_of("0123456789.)}");
    end = end == std::string::npos ? text.size() : end + 1;
    const std::size_t begin = std::min(text.find_first_not_of(' ', end), text.size());
    if (begin == text.size() || std::string_view("+-*/(${,;").find(text[begin]) != std::string_view::npos) {
        formula.text = text;
    } else {
        formula.text = text.substr(0, end);
        formula.unit = text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
    }
    return formula;
}

double evaluate(const Formula& formula, const Variables& variables)
{
    const bool product = formula.text.find_first_of("*/") != std::string::npos;
    Variables numbers;
    for (const std::string& name : variablesIn(formula.text)) {
        const auto found = variables.find(name);
        if (found == variables.end()) {
            continue;  // substitute() reports it
        }
        auto number = protocol::parseFinite(found->second);
        if (!number) {
            // The text may be a secret.
            throw protocol::UserError(fmt::format("expected a number as {}, got a text", protocol::inQuotes(name)));
        }
        const auto unit = formula.units.find(name);
        if (unit != formula.units.end() && !formula.unit.empty()) {
            const auto converted = protocol::convert(*number, unit->second, formula.unit);
            if (!converted && !product) {
                throw protocol::UserError(fmt::format("expected {} in a unit that converts to {}, got {}",
                                                      protocol::inQuotes(name), namedUnit(formula.unit),
                                                      namedUnit(unit->second)));
            }
            number = converted ? converted : number;
        }
        numbers[name] = fmt::format("({})", protocol::toText(*number));
    }
    const double value = arithmetic(substitute(formula.text, numbers), formula.text);
    if (std::isnan(value)) {
        throw NoResult("expected a number, got a division by zero or a number too large from " +
                       protocol::inQuotes(formula.text));
    }
    const auto converted = protocol::convert(value, formula.unit, formula.wanted);
    if (!converted) {
        const std::string text = fmt::format("expected a value that converts to {}, got {}", namedUnit(formula.wanted),
                                             protocol::withUnit(protocol::shortText(value), formula.unit));
        // Levels of nothing do not exist.
        protocol::convert(1, formula.unit, formula.wanted) ? throw NoResult(text) : throw protocol::UserError(text);
    }
    // Without the noise of the binary fraction.
    return protocol::parseFinite(protocol::shortText(*converted)).value_or(0);
}

Expected computed(Expected expected, const Variables& variables)
{
    for (const auto& [key, formula, number] : {std::tuple("min", &expected.minimumOf, &expected.minimum),
                                               std::tuple("max", &expected.maximumOf, &expected.maximum)}) {
        try {
            if (*formula) {
                *number = evaluate(**formula, variables);
            }
        } catch (const protocol::UserError& error) {
            throw protocol::UserError(fmt::format("{}: '{}': {}", expected.name, key, error.what()));
        }
    }
    if (expected.minimum && expected.maximum && *expected.minimum > *expected.maximum) {
        throw NoResult(fmt::format("{}: 'max': expected at least {}, got {}", expected.name,
                                   protocol::shortText(*expected.minimum), protocol::shortText(*expected.maximum)));
    }
    return expected;
}

}  // namespace station::plan
