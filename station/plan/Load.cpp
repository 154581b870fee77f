#include "station/plan/Load.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <system_error>

#include "protocol/Text.h"
#include "station/plan/LoadContext.h"
#include "station/plan/Variables.h"
#include "station/record/StoredFile.h"

namespace station::plan {

using loading::Context;
using protocol::toml_file::TableReader;

namespace {

constexpr std::int64_t kSchema = 1;
constexpr std::size_t kLongestFile = 4 << 20;

bool isPlanName(std::string_view name)
{
    return !name.empty() && name.size() <= 64 && std::ranges::all_of(name, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    });
}

void readSchema(TableReader& reader)
{
    if (const auto schema = reader.integer("schema", true); schema && *schema != kSchema) {
        reader.report("schema", fmt::format("'schema': expected {}, got {}", kSchema, *schema));
    }
}

void loadDefaults(Context& context, const toml::table* table, Plan& plan)
{
    if (table == nullptr) {
        return;
    }
    TableReader reader(*table, "section [defaults]", context.problems);
    context.timeout = loading::seconds(reader, "timeout", context.timeout, 0.001);
    context.retries = loading::count(reader, "retries", 0, 0);
    context.retryDelay = loading::seconds(reader, "retry_delay", context.retryDelay);
    context.onFailure = loading::onFailure(reader).value_or(context.onFailure);
    plan.teardownLimit = loading::seconds(reader, "teardown_limit", plan.teardownLimit, 0.1);
    reader.finish();
}

void loadLine(Context& context, const toml::table* table, Plan& plan)
{
    if (table == nullptr) {
        return;
    }
    TableReader reader(*table, "section [line]", context.problems);
    const auto limit = [&reader](std::string_view key) -> std::optional<std::size_t> {
        const auto most = reader.integer(key, false, 0);
        return most ? std::optional(static_cast<std::size_t>(*most)) : std::nullopt;
    };
    plan.line = {limit("max_reconnects"), limit("max_repeated"), limit("max_corrupt"), limit("max_garbage")};
    reader.finish();
}

Group loadGroup(const Context& outer, Context& context, const toml::table& table, std::string_view phase)
{
    Group group;
    TableReader reader(table, "group", context.problems, fmt::format("{}.", phase));
    group.name = reader.text("name", true);
    constexpr double kYear = 365 * 86400.0;
    if (const auto time = reader.seconds("duration", 0.001, kYear)) {
        group.duration = std::chrono::duration_cast<Duration>(std::chrono::duration<double>(*time));
    }
    const auto repeat = reader.integer("repeat", false, 1);
    group.repeat = repeat           ? std::min(static_cast<std::size_t>(*repeat), Group::kEndless)
                   : group.duration ? Group::kEndless
                                    : 1;
    group.retries = loading::count(reader, "retries", 0, 0);
    group.retryDelay = loading::seconds(reader, "retry_delay", outer.retryDelay);
    context.onFailure = loading::onFailure(reader).value_or(outer.onFailure);
    loading::loadRequires(reader, group);
    group.onlyIf = loading::loadConditions(context, reader);
    const std::size_t before = context.problems.size();
    for (const toml::table* step : reader.tables("steps", true)) {
        group.steps.push_back(loading::loadStep(context, *step));
    }
    if (group.steps.empty() && context.problems.size() == before) {
        reader.report("steps", "'steps': expected at least one step, got none");
    }
    reader.finish();
    return group;
}

/// Adds the groups of an included file: all, or the one that is wanted.
void loadGroups(const Context& outer, Context& context, const toml::table& file,
                const std::optional<std::string>& wanted, std::vector<Group>& groups)
{
    TableReader reader(file, "included file", context.problems);
    readSchema(reader);
    std::vector<std::string> names;
    for (const toml::table* table : reader.tables("group", true)) {
        names.push_back((*table)["name"].value_or(std::string()));
        if (!wanted || names.back() == *wanted) {
            groups.push_back(loadGroup(outer, context, *table, "group"));
        }
    }
    if (wanted && std::ranges::find(names, *wanted) == names.end()) {
        protocol::toml_file::report(
            context.problems, file,
            fmt::format("expected a group {}, got {}", protocol::inQuotes(*wanted), fmt::join(names, ", ")));
    }
    reader.finish();
}

/// Adds the groups of another file, in place of a table with the key 'include'. What is wrong in that file is reported
/// at the table, with its place in the file.
void include(const Context& outer, Context& context, const toml::table& table, std::vector<Group>& groups)
{
    TableReader reader(table, "include", context.problems);
    const std::string name = reader.text("include", true);
    const auto wanted = reader.optionalText("group");
    reader.finish();
    if (name.empty()) {
        return;
    }
    const toml::node& place = *table.get("include");
    const auto text = loading::useFile(context, place, name);
    if (!text) {
        return;
    }
    const std::size_t before = context.problems.size();
    const std::size_t warnedBefore = context.warnings.size();
    const toml::table file = protocol::toml_file::parse(*text, context.problems);
    if (file.contains("main")) {
        context.problems.push_back({0, 0, "expected a file of [[group]] tables, got a plan"});
    } else if (context.problems.size() == before) {
        loadGroups(outer, context, file, wanted, groups);
    }
    const auto at = place.source().begin;
    for (const auto& [list, first] :
         {std::pair(&context.problems, before), std::pair(&context.warnings, warnedBefore)}) {
        for (auto& problem : std::span(*list).subspan(first)) {
            problem = {at.line, at.column, format(name, problem)};
        }
    }
}

std::vector<Group> loadPhase(Context& context, TableReader& reader, std::string_view key, OnFailure otherwise)
{
    std::vector<Group> groups;
    Context outer = context;
    outer.onFailure = otherwise;
    for (const toml::table* table : reader.tables(key)) {
        if (table->contains("include")) {
            include(outer, context, *table, groups);
        } else {
            groups.push_back(loadGroup(outer, context, *table, key));
        }
    }
    return groups;
}

void loadPlan(Context& context, const toml::table& table, const ParameterValues& values, Plan& plan)
{
    TableReader reader(table, "plan", context.problems);
    readSchema(reader);
    plan.name = reader.text("name", true);
    if (!plan.name.empty() && !isPlanName(plan.name)) {
        reader.report("name", fmt::format("'name': expected at most 64 lower-case letters, digits and '-', got {}",
                                          protocol::inQuotes(plan.name)));
    }
    plan.title = reader.text("title", true);
    plan.version = reader.text("version");
    if (constexpr std::size_t kLongestVersion = 64; plan.version.size() > kLongestVersion) {
        reader.report("version", fmt::format("'version': expected at most {} bytes, got {}", kLongestVersion,
                                             plan.version.size()));
    }
    plan.description = reader.text("description");
    plan.passesAcrossLinkLoss = reader.oneOf("on_link_loss", {"fail", "continue"}) == 1U;
    loadDefaults(context, reader.table("defaults"), plan);
    loadLine(context, reader.table("line"), plan);
    plan.parameters = loading::loadParameters(context, reader, values.given);
    if (values.complete) {
        loading::checkComplete(context, table, plan.parameters);
    }
    const std::size_t before = context.problems.size();
    const OnFailure otherwise = context.onFailure;
    plan.setup = loadPhase(context, reader, "setup", OnFailure::kStop);
    plan.main = loadPhase(context, reader, "main", otherwise);
    plan.teardown = loadPhase(context, reader, "teardown", OnFailure::kNext);
    if (plan.main.empty() && reader.node("main") == nullptr) {
        protocol::toml_file::report(context.problems, table, "expected a [[main]] group, got none");
    }
    // A mistake in a step hides what it asks for.
    if (context.problems.size() == before) {
        loading::checkUsed(context, table);
    }
    reader.finish();
}

/// @returns whether the step puts the variable into a secret field, or compares one with it.
bool usesSecret(const Step& step, const std::string& variable)
{
    const auto names = [&](const std::optional<std::string>& text) {
        const auto list = variablesIn(text.value_or(""));
        return std::ranges::find(list, variable) != list.end();
    };
    const auto expects = [&](const std::vector<Expected>& list) {
        return std::ranges::any_of(list, [&](const Expected& each) {
            return each.field != nullptr && each.field->secret && (names(each.equals) || names(each.matches));
        });
    };
    if (const auto* wait = std::get_if<Wait>(&step.action)) {
        return expects(wait->expect);
    }
    const auto* send = std::get_if<Send>(&step.action);
    if (send == nullptr) {
        return false;
    }
    const auto sends = [&](const protocol::catalogue::Argument& argument) {
        const auto field = std::ranges::find(send->command->params, argument.first, &protocol::catalogue::Field::name);
        return field != send->command->params.end() && field->secret && names(argument.second);
    };
    return expects(send->expect) || expects(send->expectLater) || std::ranges::any_of(send->with, sends);
}

/// A question whose answer goes into a secret field asks for a secret, and so is the value of such a parameter.
void markSecrets(const Context& context, Plan& plan)
{
    std::vector<Step*> steps;
    for (auto* phase : {&plan.setup, &plan.main, &plan.teardown}) {
        for (Group& group : *phase) {
            for (Step& step : group.steps) {
                steps.push_back(&step);
            }
        }
    }
    for (Step* asking : steps) {
        auto* prompt = std::get_if<Prompt>(&asking->action);
        if (prompt != nullptr && prompt->store) {
            prompt->secret =
                std::ranges::any_of(steps, [&](const Step* step) { return usesSecret(*step, *prompt->store); });
        }
    }
    for (Parameter& each : plan.parameters) {
        each.secret = context.secrets.contains(each.name) ||
                      std::ranges::any_of(steps, [&](const Step* step) { return usesSecret(*step, each.name); });
    }
}

}  // namespace

Loaded load(std::string_view text, const std::string& path, protocol::catalogue::Groups groups,
            const ParameterValues& values, const instrument::Equipment& equipment)
{
    Loaded loaded;
    const toml::table table = protocol::toml_file::parse(text, loaded.problems);
    if (!loaded.problems.empty()) {
        return loaded;
    }
    Plan plan;
    plan.path = path;
    Context context{path, groups, loaded.problems, loaded.warnings};
    context.equipment = &equipment;
    context.timeout = std::chrono::seconds(1);
    context.retryDelay = std::chrono::milliseconds(100);
    loadPlan(context, table, values, plan);
    markSecrets(context, plan);
    protocol::toml_file::sort(loaded.problems);
    protocol::toml_file::sort(loaded.warnings);
    loaded.used = std::move(context.used);
    if (loaded.problems.empty()) {
        loaded.plan = std::move(plan);
    }
    return loaded;
}

std::string readFile(const std::string& path)
{
    const auto fail = [&](int error) { throw std::system_error(error, std::generic_category(), path); };
    if (std::error_code error; std::filesystem::is_directory(path, error)) {
        fail(EISDIR);
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file) {
        fail(errno);
    }
    std::string text;
    char buffer[65536];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, file.get())) {
        text.append(buffer, count);
        if (text.size() > kLongestFile) {
            fail(EFBIG);
        }
    }
    if (std::ferror(file.get()) != 0) {
        fail(EIO);
    }
    return text;
}

protocol::toml_file::Problem unreadable(const std::system_error& error)
{
    return {0, 0, protocol::unreadable(error.code().value())};
}

PlanFile readPlan(const std::string& path, protocol::catalogue::Groups groups, const ParameterValues& values,
                  const instrument::Equipment& equipment)
{
    PlanFile file{path, {}, {}};
    try {
        const std::string text = readFile(path);
        file.loaded = load(text, path, groups, values, equipment);
        file.sha256 = record::sha256(text + file.loaded.used);
    } catch (const std::system_error& error) {
        file.loaded.problems.push_back(unreadable(error));
    }
    return file;
}

std::string shippedPlans(const std::filesystem::path& program)
{
    const auto folder = program.parent_path();
    for (const std::filesystem::path& each : {std::filesystem::path(kShippedPlans), folder / "../../.." / kShippedPlans,
                                              folder / "../share/engineering/plans"}) {
        std::error_code error;
        if (std::filesystem::is_directory(each, error)) {
            return each.lexically_normal().string();
        }
    }
    return kShippedPlans;
}

}  // namespace station::plan
