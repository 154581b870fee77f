#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace station::plan {

/// Values that a run has kept, by name.
using Variables = std::map<std::string, std::string, std::less<>>;

/// A value for a parameter of plans.
struct GivenValue {
    enum class Type : std::uint8_t {
        kWord,  ///< as a user writes it on a command line
        kNumber,
        kText,
    };

    std::string name;
    std::string value;
    /// Names the source in messages and records: "--set", "station.toml:12:9".
    std::string from;
    Type type = Type::kWord;
};

/// @returns the names that `text` asks for with ${name}, in order.
std::vector<std::string> variablesIn(std::string_view text);

/// @returns `text` with the values in place of ${name}. Throws protocol::UserError for a name without a value.
std::string substitute(std::string_view text, const Variables& variables);

/// @returns `text` with a mask in place of everything but its ${name}.
std::string masked(std::string_view text);

/// @returns whether `name` can name a variable: letters, digits, '-' and '_'.
bool isVariableName(std::string_view name);

}  // namespace station::plan
