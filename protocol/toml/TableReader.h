#pragma once

#include <toml++/toml.h>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/toml/Problem.h"

namespace protocol::toml_file {

/// Parses the text of a file. A syntax error, or a dotted key with more than 16 parts, is put into `problems`, and the
/// table is empty.
toml::table parse(std::string_view text, Problems& problems);

/// Adds a problem at the place of `node`.
void report(Problems& problems, const toml::node& node, std::string text);

/// Takes a table apart key by key. What is missing, of another type, or unknown goes into the problems with its place;
/// the reading goes on with a neutral value, so that one look at a file finds all that is wrong.
/// The table and the problems outlive the reader.
class TableReader
{
public:
    /// @param what names the table in problems: "command", "step".
    TableReader(const toml::table& table, std::string what, Problems& problems);

    /// For all of them: `required` makes a missing key a problem.
    std::string text(std::string_view key, bool required = false);
    std::optional<std::string> optionalText(std::string_view key);
    std::optional<std::int64_t> integer(std::string_view key, bool required = false,
                                        std::int64_t minimum = std::numeric_limits<std::int64_t>::min(),
                                        std::int64_t maximum = std::numeric_limits<std::int64_t>::max());
    std::optional<double> number(std::string_view key, bool required = false);
    bool boolean(std::string_view key, bool otherwise);

    /// One of `words`; their index, or nothing.
    std::optional<std::size_t> oneOf(std::string_view key, const std::vector<std::string_view>& words,
                                     bool required = false);

    const toml::table* table(std::string_view key, bool required = false);

    /// The tables of an array, also of one that holds none; what is no table is a problem.
    std::vector<const toml::table*> tables(std::string_view key, bool required = false);

    /// Whatever stands under the key, nullptr for nothing.
    const toml::node* node(std::string_view key);

    /// Reports the keys that nobody has asked for. To be called last.
    void finish();

    /// Adds a problem at the value of `key`, or at the table when there is none.
    void report(std::string_view key, std::string text);

    const toml::table& raw() const { return table_; }
    Problems& problems() { return problems_; }

private:
    const toml::node* look(std::string_view key, bool required, std::string_view kind);

    const toml::table& table_;
    std::string what_;
    Problems& problems_;
    std::set<std::string, std::less<>> known_;
};

}  // namespace protocol::toml_file
