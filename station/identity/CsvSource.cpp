#include "station/identity/CsvSource.h"

#include <csv.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "protocol/Text.h"

namespace station::identity {

namespace {

/// Far longer than any row of records.
constexpr std::size_t kLongestLine = 1u << 20;

[[noreturn]] void fail(const std::string& path, std::size_t line, const std::string& what)
{
    throw protocol::UserError(fmt::format("{}:{}: {}", path, line, what));
}

/// libcsv, row by row.
class RowParser
{
public:
    explicit RowParser(char delimiter)
    {
        csv_init(&parser_, CSV_STRICT | CSV_APPEND_NULL);
        csv_set_delim(&parser_, static_cast<unsigned char>(delimiter));
    }
    ~RowParser() { csv_free(&parser_); }
    RowParser(const RowParser&) = delete;
    RowParser& operator=(const RowParser&) = delete;

    /// Takes a line with its line end.
    /// @returns the text of an error; nullptr for none.
    const char* feed(const std::string& line)
    {
        const bool taken = csv_parse(&parser_, line.data(), line.size(), onField, onRow, this) == line.size();
        return taken ? nullptr : csv_strerror(csv_error(&parser_));
    }

    /// @returns whether a row has ended, and puts it into `row`.
    bool take(std::vector<std::string>& row)
    {
        if (!complete_) {
            return false;
        }
        row = std::exchange(fields_, {});
        complete_ = false;
        return true;
    }

private:
    static void onField(void* text, size_t length, void* self)
    {
        static_cast<RowParser*>(self)->fields_.emplace_back(static_cast<const char*>(text), length);
    }

    static void onRow(int, void* self) { static_cast<RowParser*>(self)->complete_ = true; }

    csv_parser parser_{};
    std::vector<std::string> fields_;
    bool complete_ = false;
};

bool isBlank(const std::string& line)
{
    return line.find_first_not_of(" \t\r\n") == std::string::npos;
}

class TableReader
{
public:
    TableReader(const std::string& path, Records records) : records_(records) { table_.path = path; }

    CsvTable read(std::string_view text)
    {
        std::unique_ptr<RowParser> parser;
        std::size_t number = 0;
        while (!text.empty()) {
            ++number;
            const std::size_t end = text.find('\n');
            std::string line(text.substr(0, end));
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
            if (line.size() > kLongestLine) {
                fail(table_.path, number, "expected a line of at most 1048576 characters");
            }
            if (number == 1 && line.starts_with("\xEF\xBB\xBF")) {
                line.erase(0, 3);
            }
            if (isBlank(line)) {
                continue;
            }
            if (!parser) {
                // Spreadsheets write semicolons where the comma separates decimals.
                const bool semicolons = line.find(',') == std::string::npos && line.find(';') != std::string::npos;
                parser = std::make_unique<RowParser>(semicolons ? ';' : ',');
            }
            if (const char* error = parser->feed(line + "\n")) {
                fail(table_.path, number, fmt::format("expected comma-separated values: {}", error));
            }
            std::vector<std::string> row;
            if (!parser->take(row)) {
                fail(table_.path, number, "expected a closing quote before the end of the line");
            }
            take(number, row);
        }
        if (columns_.empty()) {
            fail(table_.path, 1, "expected a line with the names of records, as in 'factory-serial,carplay-mac'");
        }
        if (table_.rows.empty()) {
            fail(table_.path, number + 1, "expected a row of values after the names");
        }
        return std::move(table_);
    }

private:
    void take(std::size_t line, const std::vector<std::string>& cells)
    {
        if (columns_.empty()) {
            takeNames(line, cells);
        } else {
            takeValues(line, cells);
        }
    }

    void takeNames(std::size_t line, const std::vector<std::string>& names)
    {
        for (const std::string& name : names) {
            const Record* record = nullptr;
            try {
                record = &require(records_, name);
            } catch (const protocol::UserError& error) {
                fail(table_.path, line, error.what());
            }
            if (std::ranges::find(columns_, record) != columns_.end()) {
                fail(table_.path, line, fmt::format("expected one column {}, got two", protocol::inQuotes(name)));
            }
            columns_.push_back(record);
        }
    }

    void takeValues(std::size_t line, const std::vector<std::string>& cells)
    {
        if (cells.size() != columns_.size()) {
            fail(table_.path, line,
                 fmt::format("expected {} for the names of the first line, got {}",
                             protocol::plural(columns_.size(), "value"), cells.size()));
        }
        CsvRow row{line, {}};
        bool unique = false;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (cells[i].empty()) {
                continue;
            }
            const Record& record = *columns_[i];
            const std::string name(record.name);
            std::string value;
            try {
                value = normalise(record, cells[i]);
            } catch (const protocol::UserError& error) {
                fail(table_.path, line, error.what());
            }
            if (record.unique) {
                unique = true;
                const auto [where, fresh] = lines_.try_emplace({std::string(record.space), value}, Place{line, name});
                const Place& first = where->second;
                // One unit may use one address for both kinds.
                if (!fresh && (first.line != line || first.name == name)) {
                    fail(table_.path, line,
                         fmt::format("{} {} is already in line {}{}", name, value, first.line,
                                     first.name == name ? "" : ", as " + first.name));
                }
            }
            row.values.emplace(name, std::move(value));
        }
        if (!unique) {
            fail(table_.path, line, "expected a value of a unique record, such as factory-serial");
        }
        table_.rows.push_back(std::move(row));
    }

    struct Place {
        std::size_t line = 0;
        std::string name;
    };

    Records records_;
    CsvTable table_;
    std::vector<const Record*> columns_;
    std::map<std::pair<std::string, std::string>, Place> lines_;  // by name space and value
};

}  // namespace

CsvTable readCsv(std::string_view text, const std::string& path, Records records)
{
    return TableReader(path, records).read(text);
}

const CsvRow* CsvTable::find(const std::string& serial) const
{
    const auto found = std::ranges::find_if(rows, [&](const CsvRow& row) {
        const auto value = row.values.find("factory-serial");
        return value != row.values.end() && value->second == serial;
    });
    return found == rows.end() ? nullptr : &*found;
}

const CsvRow& CsvTable::rowOf(const std::string& serial) const
{
    if (const CsvRow* row = find(serial)) {
        return *row;
    }
    throw NotGiven(fmt::format("{}: no row has factory serial {}", path, serial));
}

}  // namespace station::identity
