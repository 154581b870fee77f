#pragma once

namespace station::record {

/// @returns the style sheet of the report: light and dark as the reader's system says, for screen, phone and paper.
const char* htmlStyle();

}  // namespace station::record
