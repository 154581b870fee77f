#include "station/Csv.h"

#include <csv.h>
#include <fmt/format.h>

#include "protocol/Errors.h"

namespace station {

namespace {

/// Far longer than any row.
constexpr std::size_t kLongestLine = 1u << 20;

}  // namespace

std::vector<std::string> csvCells(std::string_view line, char delimiter)
{
    std::vector<std::string> cells;
    const auto onCell = [](void* text, size_t length, void* to) {
        static_cast<std::vector<std::string>*>(to)->emplace_back(static_cast<const char*>(text), length);
    };
    csv_parser parser{};
    csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI | CSV_APPEND_NULL);
    csv_set_delim(&parser, static_cast<unsigned char>(delimiter));
    const bool parsed = csv_parse(&parser, line.data(), line.size(), onCell, nullptr, &cells) == line.size();
    const std::string error = csv_strerror(csv_error(&parser));
    const bool closed = csv_fini(&parser, onCell, nullptr, &cells) == 0;
    csv_free(&parser);
    if (!parsed) {
        throw protocol::UserError("expected comma-separated values: " + error);
    }
    if (!closed) {
        throw protocol::UserError("expected a closing quote before the end of the line");
    }
    return cells;
}

void readCsvLines(std::string_view text, const std::string& path,
                  const std::function<void(std::size_t line, const std::vector<std::string>& cells)>& take)
{
    char delimiter = '\0';
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        try {
            if (line.size() > kLongestLine) {
                throw protocol::UserError("expected a line of at most 1048576 characters, got more");
            }
            if (number == 1 && line.starts_with("\xEF\xBB\xBF")) {
                line.remove_prefix(3);
            }
            if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
                continue;
            }
            if (delimiter == '\0') {
                delimiter = line.find(',') == std::string::npos && line.find(';') != std::string::npos ? ';' : ',';
            }
            take(number, csvCells(line, delimiter));
        } catch (const protocol::UserError& error) {
            throw protocol::UserError(fmt::format("{}:{}: {}", path, number, error.what()));
        }
    }
}

}  // namespace station
