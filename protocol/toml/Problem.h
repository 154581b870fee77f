#pragma once

#include <string>
#include <vector>

namespace protocol::toml_file {

/// An error in a file. Lines and columns count from 1; line 0 stands for the whole file.
struct Problem {
    unsigned line = 1;
    unsigned column = 1;
    /// One line: the error, and what was expected.
    std::string text;

    bool operator==(const Problem&) const = default;
};

using Problems = std::vector<Problem>;

/// Sorts by place.
void sort(Problems& problems);

/// @returns "FILE:LINE:COLUMN: TEXT"; "FILE: TEXT" for a problem of the whole file.
std::string format(const std::string& file, const Problem& problem);

}  // namespace protocol::toml_file
