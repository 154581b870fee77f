// Parameters of plans, limits, and the table of limits.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include "protocol/Quantity.h"
#include "station/Csv.h"
#include "station/plan/Judge.h"
#include "station/plan/Limits.h"
#include "station/plan/LoadContext.h"

namespace station::plan::loading {

namespace {

/// The parameter that chooses the rows of the table of limits.
constexpr std::string_view kVariant = "variant";

std::string variantsOf(const LimitTable& table)
{
    constexpr std::size_t kShown = 10;
    const std::vector<std::string> names(table.variants.begin(), table.variants.end());
    return fmt::format("{}{}", fmt::join(std::span(names).first(std::min(names.size(), kShown)), ", "),
                       names.size() > kShown ? " and others" : "");
}

/// Reads a table of limits. What is wrong in it is reported where the plan names it.
class LimitTableReader
{
public:
    LimitTableReader(Context& context, const toml::node& node, std::string file) : context_(context), node_(node)
    {
        table_->file = std::move(file);
    }

    std::shared_ptr<LimitTable> read(std::string_view text)
    {
        try {
            readCsvLines(text, table_->file, [this](std::size_t line, const std::vector<std::string>& cells) {
                if (columns_.empty()) {
                    takeNames(cells);
                } else {
                    takeRow(line, cells);
                }
            });
            if (table_->variants.empty()) {
                throw protocol::UserError(table_->file + ": expected a row of limits, got none");
            }
        } catch (const protocol::UserError& error) {
            protocol::toml_file::report(context_.problems, node_, error.what());
            // An empty table causes no further complaints.
            table_->variants.clear();
            table_->rows.clear();
        }
        return table_;
    }

private:
    void takeNames(const std::vector<std::string>& cells)
    {
        for (const std::string& cell : cells) {
            const auto* const known = std::ranges::find(kColumns, cell);
            if (known == kColumns.end() || std::ranges::count(cells, cell) > 1) {
                throw protocol::UserError(fmt::format("expected the columns {} and perhaps value, each once, got {}",
                                                      fmt::join(std::span(kColumns).first(kRequired), ", "),
                                                      inQuotes(cell)));
            }
            columns_.push_back(static_cast<std::size_t>(known - kColumns.begin()));
        }
        for (std::size_t i = 0; i < kRequired; ++i) {
            if (std::ranges::find(columns_, i) == columns_.end()) {
                throw protocol::UserError(fmt::format("expected the column '{}', got none", kColumns.at(i)));
            }
        }
    }

    void takeRow(std::size_t line, const std::vector<std::string>& cells)
    {
        if (cells.size() != columns_.size()) {
            throw protocol::UserError(fmt::format(
                "expected {}, as in the first line, got {}{}", protocol::plural(columns_.size(), "cell"), cells.size(),
                cells.size() > columns_.size() ? "; the decimal separator of numbers is a point" : ""));
        }
        std::array<std::string, kColumns.size()> cell;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            cell.at(columns_[i]) = cells[i];
        }
        LimitRow row;
        row.place = fmt::format("{}:{}", table_->file, line);
        row.minimum = number(cell[2], kColumns[2]);
        row.maximum = number(cell[3], kColumns[3]);
        row.unit = cell[4];
        if (!cell[5].empty()) {
            row.value = cell[5];
        }
        if (cell[0].empty() || cell[1].empty()) {
            throw protocol::UserError("expected a variant and a measurement, got none");
        }
        if (row.value ? row.minimum || row.maximum || !row.unit.empty() : !row.minimum && !row.maximum) {
            throw protocol::UserError("expected limits, or the value of a parameter, got " +
                                      std::string(row.value ? "both" : "none"));
        }
        if (row.minimum && row.maximum && *row.minimum > *row.maximum) {
            throw protocol::UserError(fmt::format("expected a max of at least {}, got {}",
                                                  protocol::shortText(*row.minimum),
                                                  protocol::shortText(*row.maximum)));
        }
        constexpr std::size_t kMostVariants = 1000;
        if (table_->variants.insert(cell[0]).second && table_->variants.size() > kMostVariants) {
            throw protocol::UserError(fmt::format("expected at most {} variants, got more", kMostVariants));
        }
        const auto [first, isNew] = table_->rows[cell[1]].try_emplace(cell[0], std::move(row));
        if (!isNew) {
            throw protocol::UserError(
                fmt::format("expected one row for variant {} and measurement {}, got another "
                            "than that of {}",
                            inQuotes(cell[0]), inQuotes(cell[1]), first->second.place));
        }
    }

    static std::optional<double> number(const std::string& cell, std::string_view column)
    {
        const auto number = protocol::parseFinite(cell);
        if (!number && !cell.empty()) {
            throw protocol::UserError(
                fmt::format("'{}': expected a number such as 87.5, got {}", column, inQuotes(cell)));
        }
        return number;
    }

    static constexpr std::array<std::string_view, 6> kColumns{"variant", "measurement", "min", "max", "unit", "value"};
    static constexpr std::size_t kRequired = 5;

    Context& context_;
    const toml::node& node_;
    std::shared_ptr<LimitTable> table_ = std::make_shared<LimitTable>();
    std::vector<std::size_t> columns_;  // the place of each column of the file in kColumns
};

/// @returns the value of a parameter, without its unit. Throws UserError.
std::string valueOf(const Parameter& parameter, const GivenValue& given)
{
    using Type = GivenValue::Type;
    if (!parameter.isNumber) {
        constexpr std::size_t kLongest = 1000;
        if (given.type == Type::kNumber) {
            throw protocol::UserError("expected a text, got " + given.value);
        }
        if (given.value.size() > kLongest || !variablesIn(given.value).empty()) {
            throw protocol::UserError(
                fmt::format("expected a text of at most {} characters without ${{…}}, got another", kLongest));
        }
        return given.value;
    }
    auto number = protocol::parseFinite(given.value);
    const auto quantity = number ? std::nullopt : protocol::parseQuantity(given.value);
    if (quantity) {
        number = protocol::convert(quantity->number, quantity->unit, parameter.unit);
    }
    if (!number || !std::isfinite(*number)) {
        throw protocol::UserError(fmt::format("expected a number{}, got {}",
                                              parameter.unit.empty() ? "" : " in " + parameter.unit,
                                              inQuotes(given.value)));
    }
    return protocol::toText(*number);
}

void give(Context& context, Parameter& parameter, const GivenValue& given, const toml::node* place = nullptr)
{
    parameter.from = given.from;
    try {
        parameter.value = valueOf(parameter, given);
    } catch (const protocol::UserError& error) {
        const std::string text = fmt::format("'{}': {}", parameter.name, error.what());
        if (place != nullptr) {
            protocol::toml_file::report(context.problems, *place, text);
        } else {
            context.problems.push_back({0, 0, fmt::format("{}: {}", given.from, text)});
        }
    }
}

/// @returns a value that stands in a file in TOML; nothing for another type than a number and a text.
std::optional<GivenValue> givenIn(const toml::node& node, std::string name, std::string from)
{
    if (const auto* text = node.as_string()) {
        return GivenValue{std::move(name), text->get(), std::move(from), GivenValue::Type::kText};
    }
    const auto number = node.is_number() ? node.value<double>() : std::nullopt;
    if (!number) {
        return std::nullopt;
    }
    return GivenValue{std::move(name), protocol::toText(*number), std::move(from), GivenValue::Type::kNumber};
}

Parameter loadParameter(Context& context, const toml::key& key, const toml::node& node)
{
    Parameter parameter;
    parameter.name = key.str();
    if (!isVariableName(parameter.name)) {
        report(context, key, fmt::format("expected letters, digits, '-' and '_', got {}", inQuotes(parameter.name)));
    }
    if (!node.is_table()) {
        protocol::toml_file::report(
            context.problems, node,
            fmt::format("'{}': expected a table such as {{ type = \"number\", default = 40 }}", parameter.name));
        return parameter;
    }
    TableReader reader(*node.as_table(), "parameter", context.problems);
    parameter.isNumber = reader.oneOf("type", {"number", "text"}, true) == 0;
    parameter.help = reader.text("help");
    parameter.unit = reader.text("unit");
    if (!parameter.unit.empty() && !parameter.isNumber) {
        reader.report("unit", "'unit': expected a parameter of type \"number\"");
    }
    if (const toml::node* otherwise = reader.node("default")) {
        if (const auto given = givenIn(*otherwise, parameter.name, "default")) {
            give(context, parameter, *given, otherwise);
            parameter.otherwise = parameter.value;
        } else {
            reader.mistyped("default", *otherwise, "a number or a text");
        }
    }
    reader.finish();
    return parameter;
}

const LimitRow* findRow(const LimitTable& table, std::string_view measurement, std::string_view variant)
{
    const auto rows = table.rows.find(measurement);
    if (rows == table.rows.end()) {
        return nullptr;
    }
    const auto row = rows->second.find(variant);
    return row == rows->second.end() ? nullptr : &row->second;
}

/// Takes the values of parameters from the rows of the variant.
void giveByVariant(Context& context, const Parameter& variant, std::vector<Parameter>& parameters)
{
    const LimitTable& table = *context.limits;
    if (!variant.value) {
        return;
    }
    if (!table.variants.contains(*variant.value) && !table.variants.empty()) {
        context.problems.push_back({0, 0,
                                    fmt::format("{}: expected a variant of {}, which has {}, got {}", variant.from,
                                                table.file, variantsOf(table), inQuotes(*variant.value))});
    }
    for (Parameter& each : parameters) {
        const LimitRow* row = findRow(table, each.name, *variant.value);
        if (row != nullptr && row->value && each.name != kVariant) {
            give(context, each, {each.name, *row->value, row->place});
        }
    }
}

}  // namespace

std::vector<Parameter> loadParameters(Context& context, TableReader& plan, const std::vector<GivenValue>& given)
{
    std::vector<Parameter> parameters;
    if (const toml::table* table = plan.table("parameters")) {
        std::vector<std::pair<const toml::key*, const toml::node*>> inOrder;
        for (const auto& [key, node] : *table) {
            inOrder.emplace_back(&key, &node);
        }
        const auto place = [](const auto& each) {
            const auto begin = each.first->source().begin;
            return std::pair(begin.line, begin.column);
        };
        std::ranges::sort(inOrder, {}, place);
        for (const auto& [key, node] : inOrder) {
            parameters.push_back(loadParameter(context, *key, *node));
        }
    }
    if (const auto file = plan.optionalText("limits")) {
        const toml::node& node = *plan.node("limits");
        if (const auto text = useFile(context, node, *file)) {
            context.limits = LimitTableReader(context, node, *file).read(*text);
        }
        if (std::ranges::find(parameters, kVariant, &Parameter::name) == parameters.end()) {
            parameters.push_back({std::string(kVariant), false, {}, "chooses the rows of " + *file, {}, {}, {}});
        }
    }
    const auto variant = std::ranges::find(parameters, kVariant, &Parameter::name);
    const auto giveAll = [&](bool isVariant) {
        for (const GivenValue& each : given) {
            const auto parameter = std::ranges::find(parameters, each.name, &Parameter::name);
            if (parameter != parameters.end() && (parameter == variant) == isVariant) {
                give(context, *parameter, each);
            } else if (parameter == parameters.end() && !isVariant && each.type == GivenValue::Type::kWord) {
                std::vector<std::string_view> names;
                std::ranges::transform(parameters, std::back_inserter(names), &Parameter::name);
                context.problems.push_back(
                    {0, 0,
                     fmt::format("{}: expected a parameter of the plan, got {}{}", each.from, inQuotes(each.name),
                                 names.empty() ? "; the plan has none" : protocol::didYouMean(each.name, names))});
            }
        }
    };
    giveAll(true);
    if (context.limits && variant != parameters.end()) {
        giveByVariant(context, *variant, parameters);
    }
    giveAll(false);
    for (const Parameter& each : parameters) {
        context.variables[each.name] = {nullptr, each.isNumber, {}, each.unit, true, each.value};
    }
    return parameters;
}

void checkComplete(Context& context, const toml::table& plan, const std::vector<Parameter>& parameters)
{
    if (context.limits && context.limits->variants.empty()) {
        return;
    }
    for (const Parameter& each : parameters) {
        const toml::node* declared = plan["parameters"][each.name].node();
        if (each.value || !each.from.empty()) {
            continue;
        }
        if (context.limits && each.name == kVariant) {
            protocol::toml_file::report(context.problems, *plan.get("limits"),
                                        fmt::format("expected a variant of {}, as in --variant {}, got none",
                                                    context.limits->file, variantsOf(*context.limits)));
        } else if (declared != nullptr && declared->is_table() && !declared->as_table()->contains("default")) {
            protocol::toml_file::report(context.problems, *declared,
                                        fmt::format("'{}': expected a value, as in --set {}={}, got none", each.name,
                                                    each.name, each.isNumber ? "40" : "TEXT"));
        }
    }
}

void checkUsed(Context& context, const toml::table& plan)
{
    if (!context.limits) {
        return;
    }
    std::vector<std::string_view> names(context.limits->used.begin(), context.limits->used.end());
    constexpr std::size_t kMostProblems = 10;
    std::size_t problems = 0;
    for (const auto& [measurement, rows] : context.limits->rows) {
        const auto parameter = context.variables.find(measurement);
        const bool isParameter =
            parameter != context.variables.end() && parameter->second.isParameter && measurement != kVariant;
        for (const auto& [variant, row] : rows) {
            const bool known = row.value ? isParameter : context.limits->used.contains(measurement);
            if (!known && ++problems <= kMostProblems) {
                protocol::toml_file::report(context.problems, *plan.get("limits"),
                                            fmt::format("{}: expected a {} of the plan, got {}{}", row.place,
                                                        row.value ? "parameter" : "measurement", inQuotes(measurement),
                                                        row.value ? "" : protocol::didYouMean(measurement, names)));
            }
        }
    }
}

namespace {

/// A limit as the plan or the table has it.
struct Limit {
    std::string_view key;  ///< where to report
    std::optional<double> number;
    /// In place of the number; its unit is that of the number too.
    Formula formula;
    std::optional<double>& value;
    std::optional<Formula>& valueOf;
};

/// Reads the limits of one expectation.
class LimitsReader
{
public:
    LimitsReader(Context& context, TableReader& reader, Expected& expected)
        : context_(context), reader_(reader), expected_(expected)
    {
    }

    void read()
    {
        const std::size_t before = context_.problems.size();
        readLimit("min", expected_.minimum, expected_.minimumOf);
        readLimit("max", expected_.maximum, expected_.maximumOf);
        unit_ = reader_.optionalText("unit").value_or("");
        readRow();
        chooseUnit();
        if (context_.problems.size() == before) {
            for (Limit& each : limits_) {
                finish(each);
            }
        }
        if (context_.problems.size() == before) {
            checkRange();
        }
    }

private:
    void readLimit(std::string_view key, std::optional<double>& value, std::optional<Formula>& valueOf)
    {
        const toml::node* const node = reader_.node(key);
        if (node == nullptr) {
            return;
        }
        Limit limit{key, {}, {}, value, valueOf};
        if (const auto* text = node->as_string()) {
            checkVariables(context_, *node, text->get());
            limit.formula = readFormula(text->get());
        } else {
            limit.number = node->is_number() ? node->value<double>() : std::nullopt;
            if (!limit.number || std::isnan(*limit.number)) {
                reader_.mistyped(key, *node, "a number, or a text such as \"87.5 MHz\"");
            }
        }
        limits_.push_back(std::move(limit));
    }

    /// Takes the limits from the table.
    void readRow()
    {
        const auto name = reader_.optionalText("limits");
        if (!name) {
            return;
        }
        if (!limits_.empty() || !unit_.empty()) {
            reader_.report("limits", "expected either 'limits' or 'min', 'max' and 'unit', got both");
        }
        if (!context_.limits) {
            reader_.report("limits",
                           "'limits': expected a table of limits, as in limits = \"limits.csv\" at the "
                           "beginning of the plan, got none");
            return;
        }
        context_.limits->used.insert(*name);
        if (const auto rows = context_.limits->rows.find(*name); rows != context_.limits->rows.end()) {
            for (const auto& [each, row] : rows->second) {
                checkUnit("limits", row.place + ": ", row.unit);
            }
        }
        const auto variant = context_.variables.find(kVariant);
        if (variant == context_.variables.end() || !variant->second.value ||
            !context_.limits->variants.contains(*variant->second.value)) {
            return;  // reported as a whole
        }
        const LimitRow* const row = findRow(*context_.limits, *name, *variant->second.value);
        if (row == nullptr || row->value) {
            reader_.report("limits",
                           fmt::format("{}: expected limits for variant {} and measurement {}, got none",
                                       context_.limits->file, inQuotes(*variant->second.value), inQuotes(*name)));
            return;
        }
        unit_ = row->unit;
        for (auto [number, value, valueOf] : {std::tuple(row->minimum, &expected_.minimum, &expected_.minimumOf),
                                              std::tuple(row->maximum, &expected_.maximum, &expected_.maximumOf)}) {
            if (number) {
                limits_.push_back({"limits", number, {}, *value, *valueOf});
            }
        }
    }

    /// @returns whether `unit` is the field's, as in "10 kHz" for "10 kHz on FM".
    bool isOwnUnit(std::string_view unit) const
    {
        const std::string_view own = expected_.field->unit;
        return unit == own || (own.starts_with(unit) && own.substr(unit.size()).starts_with(" "));
    }

    /// @returns whether limits in this unit are converted to that of the field's scale.
    bool isScaled(const std::string& unit) const
    {
        const auto& scale = expected_.field->scale;
        return scale && !unit.empty() && !isOwnUnit(unit) && protocol::convert(1, unit, scale->unit);
    }

    /// Reports a unit that does not convert to the field's.
    void checkUnit(std::string_view key, std::string_view place, const std::string& unit)
    {
        const Field* const field = expected_.field;
        if (field == nullptr || unit.empty() || isOwnUnit(unit) || isScaled(unit) ||
            protocol::convert(1, unit, field->unit)) {
            return;
        }
        std::vector<std::string> units;
        for (const auto& each : {field->unit, field->scale ? field->scale->unit : field->unit}) {
            if (!each.empty() && (units.empty() || units.back() != inQuotes(each))) {
                units.push_back(inQuotes(each));
            }
        }
        reader_.report(
            key, fmt::format("{}'{}': expected {}, got {}", place, place.empty() ? key : "unit",
                             units.empty() ? "none" : fmt::format("{}", fmt::join(units, " or ")), inQuotes(unit)));
    }

    /// Chooses the unit in which the value is compared and shown.
    void chooseUnit()
    {
        std::string unit = unit_;
        for (const Limit& each : limits_) {
            unit = unit.empty() ? each.formula.unit : unit;
        }
        for (const Limit& each : limits_) {
            if (unit_.empty() && !unit.empty() && each.formula.unit.empty()) {
                reader_.report(each.key,
                               fmt::format("'{}': expected a unit, as the other limit has, got none", each.key));
            }
            checkUnit(each.key, "", each.formula.unit);
        }
        if (!reader_.raw().contains("limits")) {
            checkUnit("unit", "", unit_);
        }
        const Field* const field = expected_.field;
        if (field == nullptr) {
            expected_.unit = unit;
            wanted_ = unit;
            return;
        }
        expected_.scaled = isScaled(unit);
        expected_.unit = expected_.scaled ? unitOf(*field->scale) : std::string(field->unit);
        wanted_ = expected_.scaled ? field->scale->unit : field->unit;
        unit_ = unit_.empty() || isOwnUnit(unit_) ? wanted_ : unit_;
    }

    /// Computes a limit, unless only the run can.
    void finish(Limit& limit)
    {
        Formula& formula = limit.formula;
        if (formula.unit.empty()) {
            formula.unit = unit_;
        } else if (expected_.field != nullptr && isOwnUnit(formula.unit)) {
            formula.unit = expected_.field->unit;
        }
        formula.wanted = wanted_;
        Variables values;
        bool known = true;
        for (const std::string& name : variablesIn(formula.text)) {
            const Variable& variable = context_.variables.find(name)->second;
            const auto* const field = variable.field;
            const std::string unit = field != nullptr ? std::string(field->unit) : variable.unit;
            if (!unit.empty()) {
                formula.units[name] = unit;
            }
            if (!variable.isNumber) {
                problem(limit, fmt::format("expected a number as {}, got a text", inQuotes(name)));
                return;
            }
            known = known && variable.value;
            values[name] = variable.value.value_or("1");
        }
        try {
            limit.value = limit.number ? converted(*limit.number) : evaluate(formula, values);
        } catch (const NoResult& error) {
            if (known) {
                problem(limit, error.what());
            }
        } catch (const protocol::UserError& error) {
            problem(limit, error.what());
        }
        if (!known) {
            limit.value.reset();
            limit.valueOf = std::move(formula);
        }
    }

    double converted(double number) const
    {
        const auto result = protocol::convert(number, unit_, wanted_);
        if (!result) {
            throw protocol::UserError("expected a limit that converts to " + wanted_);
        }
        return *result;
    }

    void problem(const Limit& limit, const std::string& text)
    {
        reader_.report(limit.key, fmt::format("'{}': {}", limit.key, text));
    }

    void checkRange()
    {
        const auto& low = expected_.minimum;
        const auto& high = expected_.maximum;
        const Field* const field = expected_.field;
        if (limits_.empty()) {
            return;
        }
        const auto& first = limits_.front();
        if (field != nullptr && !isNumber(*field)) {
            reader_.report(first.key, fmt::format("{}: expected 'equals' or 'matches' for a text or bytes, got {}",
                                                  inQuotes(field->name), inQuotes(first.key)));
            return;
        }
        if (low && high && *low > *high) {
            reader_.report(limits_.back().key, fmt::format("'max': expected at least {}, got {}",
                                                           protocol::shortText(*low), protocol::shortText(*high)));
            return;
        }
        if (field == nullptr) {
            return;
        }
        const double factor = expected_.scaled ? field->scale->factor : 1;
        const double least = static_cast<double>(field->minimum) * factor;
        const double most = static_cast<double>(field->maximum) * factor;
        const bool tooHigh = low && !isAtMost(*low, most);
        if (tooHigh || (high && !isAtMost(least, *high))) {
            const char* wrong = tooHigh ? "min" : "max";
            reader_.report(
                first.key == "limits" ? first.key : wrong,
                fmt::format("'{}': expected a limit from {} to {}, got {}", wrong, protocol::shortText(least),
                            protocol::shortText(most), protocol::shortText(tooHigh ? *low : *high)));
        }
    }

    Context& context_;
    TableReader& reader_;
    Expected& expected_;
    std::string unit_;    // of limits that have none of their own
    std::string wanted_;  // in which the value is compared
    std::vector<Limit> limits_;
};

}  // namespace

void loadLimits(Context& context, TableReader& reader, Expected& expected)
{
    LimitsReader(context, reader, expected).read();
}

}  // namespace station::plan::loading
