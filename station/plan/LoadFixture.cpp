#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "station/instrument/Instruments.h"
#include "station/plan/Load.h"
#include "station/plan/LoadContext.h"
#include "station/plan/Variables.h"

// The steps that use the station's fixture: programs, instruments, the unit's power.
namespace station::plan::loading {

using protocol::toml_file::TableReader;

namespace {

/// An interpreter may need a while to start.
constexpr auto kProgramPatience = std::chrono::seconds(10);

/// A unit may need a while, too.
constexpr auto kUnitPatience = std::chrono::seconds(60);

Expected loadValue(Context& context, const toml::key& key, const toml::node& node)
{
    Expected expected;
    expected.name = key.str();
    if (const auto* flag = node.as_boolean()) {
        expected.equals = flag->get() ? "yes" : "no";
        return expected;
    }
    if (!node.is_table()) {
        expected.equals = writtenValue(context, node, key.str());
        return expected;
    }
    TableReader reader(*node.as_table(), "expectation", context.problems);
    loadLimits(context, reader, expected);
    // What is measured is converted to the unit. A misspelt one would be compared as it is.
    if (!expected.unit.empty() && !protocol::isUnit(expected.unit)) {
        reader.report(reader.raw().contains("unit") ? "unit" : "limits",
                      fmt::format("'unit': expected a unit that the tool converts, such as mA, got {}",
                                  protocol::inQuotes(expected.unit)));
    }
    if (const auto* value = reader.node("equals")) {
        expected.equals = writtenValue(context, *value, "equals");
    }
    expected.matches = reader.optionalText("matches");
    if (expected.matches) {
        checkPattern(context, *reader.node("matches"), *expected.matches);
    }
    if (reader.node("present") != nullptr) {
        expected.present = reader.boolean("present", true);
    }
    reader.finish();
    return expected;
}

std::vector<Expected> loadValues(Context& context, TableReader& reader)
{
    std::vector<Expected> list;
    if (const toml::table* table = reader.table("expect")) {
        for (const auto& [key, node] : *table) {
            list.push_back(loadValue(context, key, node));
        }
    }
    return list;
}

void addValue(Context& context, const toml::node& node, const std::string& variable, const std::string& value,
              Keep keep, const std::vector<Expected>& expected, std::vector<StoredField>& list)
{
    if (!isVariableName(variable)) {
        protocol::toml_file::report(
            context.problems, node,
            fmt::format("'store': expected letters, digits, '-' and '_', got {}", inQuotes(variable)));
    }
    const auto of = std::ranges::find_if(
        expected, [&](const Expected& each) { return each.name == value || (value.empty() && expected.size() == 1); });
    Variable stored;
    stored.isNumber = true;
    stored.unit = of == expected.end() ? "" : of->unit;
    context.variables.insert_or_assign(variable, std::move(stored));
    list.push_back({variable, value, keep});
}

std::vector<StoredField> loadStoredValues(Context& context, TableReader& reader, const std::vector<Expected>& expected)
{
    std::vector<StoredField> list;
    const Keep keep = loadKeep(reader);
    const toml::node* node = reader.node("store");
    if (node == nullptr) {
        return list;
    }
    if (const auto* text = node->as_string()) {
        addValue(context, *node, text->get(), "", keep, expected, list);
    } else if (const auto* table = node->as_table()) {
        for (const auto& [key, value] : *table) {
            if (const auto* name = value.as_string()) {
                addValue(context, value, std::string(key.str()), name->get(), keep, expected, list);
            } else {
                protocol::toml_file::report(context.problems, value, "'store': expected the name of a value");
            }
        }
    } else {
        protocol::toml_file::report(context.problems, *node, "'store': expected a name or { NAME = \"VALUE\" }");
    }
    return list;
}

/// Puts the values of parameters into the texts of JSON.
std::string filledIn(const Context& context, const std::string& json)
{
    Variables values;
    for (const std::string& name : variablesIn(json)) {
        const auto found = context.variables.find(name);
        values[name] = found != context.variables.end() && found->second.value ? inJson(*found->second.value)
                                                                               : fmt::format("${{{}}}", name);
    }
    return substitute(json, values);
}

/// Finds the program, which becomes a part of the plan's hash.
void useProgram(Context& context, const toml::node& node, std::string& name)
{
    const std::string shown = name;
    const std::string folder = std::filesystem::path(context.path).parent_path().string();
    try {
        name = instrument::findProgram(name, {folder.empty() ? "." : folder, context.equipment->scripts});
        if (context.programs.insert(shown).second) {
            context.used += fmt::format("\n{}\n{}", shown, readFile(name));
        }
    } catch (const protocol::UserError& error) {
        protocol::toml_file::report(context.problems, node, error.what());
    } catch (const std::system_error& error) {
        protocol::toml_file::report(context.problems, node, format(shown, unreadable(error)));
    }
}

}  // namespace

void loadRun(Context& context, TableReader& reader, Step& step)
{
    RunProgram program;
    program.words = instrument::programWords(reader, "run");
    step.what = fmt::format("{}", fmt::join(program.words, " "));
    step.name = step.what;
    step.timeout = std::max<Duration>(context.timeout, kProgramPatience);
    if (!program.words.empty()) {
        const toml::node& node = *reader.node("run");
        useProgram(context, node, program.words.front());
        for (std::string& word : program.words) {
            checkVariables(context, node, word);
            word = fillIn(context, word);
        }
    }
    program.json = "{}";
    if (const toml::table* with = reader.table("with")) {
        const auto json = jsonText(*with);
        if (json) {
            checkVariables(context, *with, *json);
            program.json = filledIn(context, *json);
        } else {
            protocol::toml_file::report(context.problems, *with,
                                        "'with': expected values of JSON, got a date or a time: put it in quotation "
                                        "marks");
        }
    }
    program.expect = loadValues(context, reader);
    program.store = loadStoredValues(context, reader, program.expect);
    step.action = std::move(program);
}

void loadInstrument(Context& context, TableReader& reader, const std::string& name, Step& step)
{
    InstrumentCommand command;
    command.instrument = name;
    command.command = reader.text(name, true);
    step.what = fmt::format("{}: {}", name, command.command);
    step.name = step.what;
    checkVariables(context, *reader.node(name), command.command);
    command.command = fillIn(context, command.command);
    if (const std::string wrong = instrument::notOneLine(command.command); !wrong.empty()) {
        reader.report(name, wrong);
    }
    command.expect = loadValues(context, reader);
    command.store = loadStoredValues(context, reader, command.expect);
    const bool answers = instrument::isQuery(command.command);
    for (const char* const key : {"expect", "store"}) {
        if (!answers && reader.node(key) != nullptr) {
            reader.report(key, fmt::format("{}: expected a query such as 'MEAS:CURR?', got {}", inQuotes(key),
                                           inQuotes(command.command)));
        }
    }
    const auto isOther = [](const std::string& value) { return value != "value" && !value.empty(); };
    for (const Expected& each : command.expect) {
        if (isOther(each.name)) {
            reader.report("expect", fmt::format("'expect': expected 'value', got {}", inQuotes(each.name)));
        }
    }
    for (const StoredField& each : command.store) {
        if (isOther(each.field)) {
            reader.report("store", fmt::format("'store': expected \"value\", got {}", inQuotes(each.field)));
        }
    }
    step.action = std::move(command);
}

void loadPower(TableReader& reader, Step& step)
{
    PowerChange change;
    change.to = static_cast<PowerChange::To>(reader.oneOf("power", {"cycle", "off", "on"}).value_or(0));
    constexpr std::string_view kWords[] = {"cycle", "off", "on"};
    step.what = fmt::format("power {}", kWords[static_cast<int>(change.to)]);
    step.name = step.what;
    step.timeout = kUnitPatience;
    step.needsPower = true;
    step.action = change;
}

std::string instrumentIn(Context& context, const toml::table& step, TableReader& reader, bool isOnlyAction)
{
    for (const auto& [key, node] : step) {
        if (context.equipment->instruments.contains(key.str())) {
            reader.node(key.str());
            return std::string(key.str());
        }
    }
    for (const auto& [key, node] : step) {
        const auto& words = instrument::kStepKeys;
        if (isOnlyAction && node.is_string() && std::ranges::find(words, key.str()) == words.end() &&
            protocol::didYouMean(key.str(), words).empty()) {
            reader.node(key.str());
            report(context, key,
                   fmt::format("expected an instrument of the station's file, but it has no section [instruments.{}]",
                               key.str()));
        }
    }
    return {};
}

}  // namespace station::plan::loading
