#include "station/identity/CsvSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "protocol/Text.h"
#include "station/Csv.h"

namespace station::identity {

namespace {

[[noreturn]] void fail(const std::string& path, std::size_t line, const std::string& what)
{
    throw protocol::UserError(fmt::format("{}:{}: {}", path, line, what));
}

class TableReader
{
public:
    TableReader(const std::string& path, Records records) : records_(records) { table_.path = path; }

    CsvTable read(std::string_view text)
    {
        std::size_t last = 0;
        readCsvLines(text, table_.path, [&](std::size_t line, const std::vector<std::string>& cells) {
            last = line;
            take(line, cells);
        });
        if (columns_.empty()) {
            fail(table_.path, 1,
                 "expected a line with the names of records, as in 'factory-serial,carplay-mac', got none");
        }
        if (table_.rows.empty()) {
            fail(table_.path, last + 1, "expected a row of values after the names, got none");
        }
        return std::move(table_);
    }

private:
    void take(std::size_t line, const std::vector<std::string>& cells)
    {
        if (columns_.empty()) {
            takeNames(cells);
        } else {
            takeValues(line, cells);
        }
    }

    void takeNames(const std::vector<std::string>& names)
    {
        for (const std::string& name : names) {
            const Record& record = require(records_, name);
            if (std::ranges::find(columns_, &record) != columns_.end()) {
                throw protocol::UserError(fmt::format("expected one column {}, got two", protocol::inQuotes(name)));
            }
            columns_.push_back(&record);
        }
    }

    void takeValues(std::size_t line, const std::vector<std::string>& cells)
    {
        if (cells.size() != columns_.size()) {
            throw protocol::UserError(fmt::format("expected {} for the names of the first line, got {}",
                                                  protocol::plural(columns_.size(), "value"), cells.size()));
        }
        CsvRow row{line, {}};
        bool unique = false;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (cells[i].empty()) {
                continue;
            }
            const Record& record = *columns_[i];
            std::string value = normalise(record, cells[i]);
            if (record.unique) {
                unique = true;
                const auto [where, fresh] = lines_.try_emplace({record.space, value}, Place{line, record.name});
                const Place& first = where->second;
                // One unit may use one address for both kinds.
                if (!fresh && (first.line != line || first.name == record.name)) {
                    throw protocol::UserError(fmt::format("{} {} is already in line {}{}{}", record.name, value,
                                                          first.line, first.name == record.name ? "" : ", as ",
                                                          first.name == record.name ? std::string_view() : first.name));
                }
            }
            row.values.emplace(record.name, std::move(value));
        }
        if (!unique) {
            throw protocol::UserError("expected a value of a unique record, such as factory-serial, got none");
        }
        table_.rows.push_back(std::move(row));
    }

    struct Place {
        std::size_t line;
        std::string_view name;
    };

    Records records_;
    CsvTable table_;
    std::vector<const Record*> columns_;
    std::map<std::pair<std::string_view, std::string>, Place> lines_;  // by name space and value
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
