#pragma once

#include <toml++/toml.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"
#include "station/instrument/Equipment.h"
#include "station/plan/Plan.h"
#include "station/plan/Variables.h"

/// Shared by the parts of the plan loader.
namespace station::plan::loading {

/// What a plan knows of a variable before it runs.
struct Variable {
    /// The field that it is stored from; nullptr for an operator's answer.
    const protocol::catalogue::Field* field = nullptr;
    bool isNumber = false;
    /// The answers of a question with choices.
    std::vector<std::string> choices = {};
    /// Of a number that does not come from a field.
    std::string unit = {};
    /// Whether it is a parameter, and its value if it has one.
    bool isParameter = false;
    std::optional<std::string> value = {};
};

/// A row of a table of limits.
struct LimitRow {
    std::string place;  ///< "limits.csv:4"
    std::optional<double> minimum;
    std::optional<double> maximum;
    std::string unit;
    /// The value of a parameter. A row with it has no limits.
    std::optional<std::string> value;
};

/// The table of limits that the plan names.
struct LimitTable {
    std::string file;
    std::set<std::string, std::less<>> variants;
    /// By measurement and variant.
    std::map<std::string, std::map<std::string, LimitRow, std::less<>>, std::less<>> rows;
    /// The limits that the plan has asked for.
    std::set<std::string, std::less<>> used;
};

struct Context {
    /// Of the plan's file.
    std::string path;
    protocol::catalogue::Groups groups;
    protocol::toml_file::Problems& problems;
    protocol::toml_file::Problems& warnings;

    // Of [defaults].
    Duration timeout = std::chrono::seconds(1);
    int retries = 0;
    Duration retryDelay = std::chrono::milliseconds(100);
    OnFailure onFailure = OnFailure::kNext;

    /// What the station has.
    const instrument::Equipment* equipment = nullptr;

    /// Variables that the steps so far store.
    std::map<std::string, Variable, std::less<>> variables = {};
    /// The table of limits; nullptr for none.
    std::shared_ptr<LimitTable> limits = {};
    /// Parameters that go into a secret field.
    std::set<std::string, std::less<>> secrets = {};
    /// Ids of the questions so far.
    std::set<std::string, std::less<>> questions = {};

    /// The names and contents of the files that the plan uses.
    std::string used = {};
    /// The programs among them.
    std::set<std::string, std::less<>> programs = {};
};

using protocol::inQuotes;

inline bool isNumber(const protocol::catalogue::Field& field)
{
    return protocol::catalogue::sizeOf(field.type) != 0;
}

/// Adds a problem at a key.
void report(Context& context, const toml::key& key, std::string text);

/// @returns a value as a user writes it on a command line; nothing, with a problem, for a value that is neither a
/// number nor a text. Reports ${variables} that no earlier step stores, and puts the values of parameters in.
/// @param field in which the value goes, or with which it is compared; nullptr for none
std::optional<std::string> writtenValue(Context& context, const toml::node& node, std::string_view name,
                                        const protocol::catalogue::Field* field = nullptr);

/// @returns what a step and its reports show of a value for the field; of a secret only the ${variables} that the run
/// fills in.
/// @param value as writtenValue() returns it for `node`, so a secret may hold the values of parameters
std::string shownValue(const toml::node& node, const std::string& value, const protocol::catalogue::Field* field);

/// Reports ${variables} in the text of `node` that no earlier step stores.
void checkVariables(Context& context, const toml::node& node, std::string_view text);

/// Puts the values of parameters into a text. A number brings its unit, if the field has one.
std::string fillIn(Context& context, const std::string& text, const protocol::catalogue::Field* field = nullptr);

/// @returns the time under the key, from `least` seconds to a day; `otherwise` without the key.
Duration seconds(protocol::toml_file::TableReader& reader, std::string_view key, Duration otherwise, double least = 0);

std::optional<OnFailure> onFailure(protocol::toml_file::TableReader& reader);

/// @returns a number of times; `otherwise` without the key.
int count(protocol::toml_file::TableReader& reader, std::string_view key, int otherwise, int least);

/// Reads the table of expectations under `key` for a frame that may hold `fields`.
/// @param frame the name of the frame in problems
std::vector<Expected> loadExpected(Context& context, const toml::table& table,
                                   const std::vector<const protocol::catalogue::Field*>& fields,
                                   const std::string& frame);

/// Reads `min`, `max` and `unit`, or `limits`. Without a field, the unit is the author's choice.
void loadLimits(Context& context, protocol::toml_file::TableReader& reader, Expected& expected);

/// Reads the parameters of a plan and the table of limits that it names.
/// @returns the parameters, with the values that `given` and the table have for them.
std::vector<Parameter> loadParameters(Context& context, protocol::toml_file::TableReader& plan,
                                      const std::vector<GivenValue>& given);

/// Reports what a plan without a run lacks: the values of parameters, and the variant of limits.
void checkComplete(Context& context, const toml::table& plan, const std::vector<Parameter>& parameters);

/// Reports the rows of the table of limits that the plan has not asked for.
void checkUsed(Context& context, const toml::table& plan);

/// Reads the expectation of an operator's answer. @returns nothing, with a problem, for a wrong one.
std::optional<Expected> loadAnswer(Context& context, const toml::node& node, const Prompt& prompt);

/// Reads a step of any kind. Problems go into the context.
Step loadStep(Context& context, const toml::table& table);

/// Reads `only_if`.
std::vector<Condition> loadConditions(Context& context, protocol::toml_file::TableReader& reader);

/// Reads a file beside the plan, which becomes a part of the plan's hash.
/// @returns its content; nothing, with a problem at `node`, if it cannot be read.
std::optional<std::string> useFile(Context& context, const toml::node& node, const std::string& name);

/// Reports at `node` a text that is not a regular expression. It may hold ${variables}.
void checkPattern(Context& context, const toml::node& node, const std::string& pattern);

/// Reads `keep`, which says what happens when a step stores again.
Keep loadKeep(protocol::toml_file::TableReader& reader);

/// Reads `requires` of a step or a group, which may demand a simulated head unit or a way to switch the power.
template <class Part>
void loadRequires(protocol::toml_file::TableReader& reader, Part& part)
{
    const auto word = reader.oneOf("requires", {"headunit", "power"});
    part.needsHeadUnit = part.needsHeadUnit || word == 0U;
    part.needsPower = part.needsPower || word == 1U;
}

/// @returns the value as JSON; nothing for a date or a time, which JSON lacks.
std::optional<std::string> jsonText(const toml::node& node);

/// Reads what makes a step one with a program, an instrument or the unit's power.
void loadRun(Context& context, protocol::toml_file::TableReader& reader, Step& step);
void loadInstrument(Context& context, protocol::toml_file::TableReader& reader, const std::string& name, Step& step);
void loadPower(protocol::toml_file::TableReader& reader, Step& step);

/// @returns the key of a step that names an instrument; empty if there is none. A key that may be meant as one, but the
/// station has none of that name, is a problem.
std::string instrumentIn(Context& context, const toml::table& step, protocol::toml_file::TableReader& reader,
                         bool isOnlyAction);

}  // namespace station::plan::loading
