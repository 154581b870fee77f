#pragma once

#include <string>
#include <vector>

/// Appends the pieces of `text` between the separators to `pieces`. Blanks and tabs at the beginning of a piece are
/// left out, but not those of the last one. A separator at the end makes no empty piece behind it; an empty separator
/// separates nothing.
void splitString(std::vector<std::string>& pieces, const std::string& text, const std::string& separator);
