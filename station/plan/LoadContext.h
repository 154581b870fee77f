#pragma once

#include <toml++/toml.h>
#include <set>
#include <string>
#include <string_view>

#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"
#include "station/plan/Plan.h"

/// What the parts of the plan loader share.
namespace station::plan::loading {

struct Context {
    protocol::catalogue::Groups groups;
    protocol::toml_file::Problems& problems;
    protocol::toml_file::Problems& warnings;

    // Of [defaults].
    Duration timeout = std::chrono::seconds(1);
    int retries = 0;
    Duration retryDelay = std::chrono::milliseconds(100);
    OnFailure onFailure = OnFailure::kNext;

    /// What the steps so far store.
    std::set<std::string, std::less<>> variables;
    /// The questions so far.
    std::set<std::string, std::less<>> questions;
};

using protocol::inQuotes;

/// Adds a problem at a key.
void report(Context& context, const toml::key& key, std::string text);

/// @returns a value as a user would have written it on a command line; nothing, with a problem, for what is no number
/// and no text. Reports ${variables} that no step before stores.
std::optional<std::string> writtenValue(Context& context, const toml::node& node, std::string_view name);

/// Reports ${variables} in the text of `node` that no step before stores.
void checkVariables(Context& context, const toml::node& node, std::string_view text);

/// @returns seconds as a duration, from `least` on and up to a day; `otherwise` without the key.
Duration seconds(protocol::toml_file::TableReader& reader, std::string_view key, Duration otherwise, double least = 0);

std::optional<OnFailure> onFailure(protocol::toml_file::TableReader& reader);

/// @returns how often; `otherwise` without the key.
int count(protocol::toml_file::TableReader& reader, std::string_view key, int otherwise, int least);

/// Reads the table of expectations under `key` for a frame that may hold `fields`.
/// @param frame what the frame is called in problems
std::vector<Expected> loadExpected(Context& context, const toml::table& table,
                                   const std::vector<const protocol::catalogue::Field*>& fields,
                                   const std::string& frame);

/// Reads what is expected of an operator's answer. Nothing with a problem.
std::optional<Expected> loadAnswer(Context& context, const toml::node& node, const Prompt& prompt);

/// Reads a step of any kind. Problems go into the context.
Step loadStep(Context& context, const toml::table& table);

/// Reads `only_if`.
std::vector<std::pair<std::string, std::string>> loadConditions(Context& context,
                                                                protocol::toml_file::TableReader& reader);

/// @returns whether `requires` says that a simulated head unit has to be there.
bool loadRequires(protocol::toml_file::TableReader& reader);

}  // namespace station::plan::loading
