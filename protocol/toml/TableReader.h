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

/// Parses the text of a file. For a syntax error or a dotted key with more than 16 parts, adds a problem and returns an
/// empty table.
toml::table parse(std::string_view text, Problems& problems);

/// Adds a problem at the place of `node`.
void report(Problems& problems, const toml::node& node, std::string text);

/// Reads a table key by key. Reports missing and unknown keys and wrong types with their place, and goes on with a
/// neutral value, so one run finds all errors of a file. The table and the problems outlive the reader.
class TableReader
{
public:
    /// @param what names the table in problems: "command", "step".
    /// @param path stands before a key in a header: "main."
    TableReader(const toml::table& table, std::string what, Problems& problems, std::string path = {});

    /// In all of these, `required` makes a missing key a problem.
    std::string text(std::string_view key, bool required = false);
    std::optional<std::string> optionalText(std::string_view key);
    std::optional<std::int64_t> integer(std::string_view key, bool required = false,
                                        std::int64_t minimum = std::numeric_limits<std::int64_t>::min(),
                                        std::int64_t maximum = std::numeric_limits<std::int64_t>::max());
    std::optional<double> number(std::string_view key, bool required = false);
    /// A time: a number of seconds, or a text with a unit such as "500ms".
    std::optional<double> seconds(std::string_view key, double least, double most);
    bool boolean(std::string_view key, bool otherwise);

    /// @returns the index of the key's value in `words`, or nothing.
    std::optional<std::size_t> oneOf(std::string_view key, const std::vector<std::string_view>& words,
                                     bool required = false);

    const toml::table* table(std::string_view key, bool required = false);

    /// The tables of an array, which may be empty. Any other element is a problem.
    std::vector<const toml::table*> tables(std::string_view key, bool required = false);

    /// The key's value of any type, nullptr for a missing key.
    const toml::node* node(std::string_view key);

    /// Reports the keys that have not been read. Call it last.
    void finish();

    /// Adds a problem at the value of `key`, or at the table if the key is missing.
    void report(std::string_view key, std::string text);

    /// Adds "'key': expected …, got …" at `value`, which is the key's or within it.
    void mistyped(std::string_view key, const toml::node& value, std::string_view expected);

    const toml::table& raw() const { return table_; }
    Problems& problems() { return problems_; }

private:
    const toml::node* look(std::string_view key, bool required, std::string_view kind);

    const toml::table& table_;
    std::string what_;
    Problems& problems_;
    const std::string path_;
    std::set<std::string, std::less<>> known_;
};

}  // namespace protocol::toml_file
