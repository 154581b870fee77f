#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"
#include "programs/station/plan/HeadUnitClient.h"
#include "programs/station/plan/Operator.h"
#include "programs/station/plan/RunView.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/SerialLink.h"
#include "station/plan/Answers.h"
#include "station/plan/LimitProof.h"
#include "station/plan/Load.h"
#include "station/plan/PlanRuns.h"
#include "station/ports/SerialPorts.h"
#include "station/record/Outcome.h"
#include "station/record/ResultsFolder.h"

namespace programs::station_tool {

namespace {

using Json = nlohmann::ordered_json;
using protocol::printable;
using protocol::catalogue::groups;
using protocol::toml_file::Problems;
using station::plan::PlanFile;
using station::plan::readPlan;

Json problemsJson(const Problems& problems)
{
    Json list = Json::array();
    for (const auto& problem : problems) {
        list.push_back({{"line", problem.line}, {"column", problem.column}, {"text", problem.text}});
    }
    return list;
}

/// @returns "0.4 s", or "0.4 s and more" for a plan that waits for a person or an event.
std::string durationText(const station::plan::Estimate& estimate)
{
    return fmt::format("{:.1f} s{}", std::chrono::duration<double>(estimate.duration).count(),
                       estimate.open > 0 ? " and more" : "");
}

/// @returns "6 steps, 3000 rounds of 'Loop', at least 4.10 s".
std::string sizeText(const station::plan::Plan& plan)
{
    std::string text = protocol::plural(plan.stepCount(), "step");
    for (const auto* phase : {&plan.setup, &plan.main, &plan.teardown}) {
        for (const auto& group : *phase) {
            if (group.repeat > 1 && group.repeat < station::plan::Group::kEndless) {
                text += fmt::format(", {}{} rounds of {}", group.duration ? "up to " : "", group.repeat,
                                    protocol::inQuotes(group.name));
            }
        }
    }
    const auto estimate = station::plan::estimate(plan, station::SerialLink::kDefaultBaud);
    return fmt::format("{}, at least {}", text, protocol::toText(estimate.duration));
}

/// Prints FILE:LINE:COLUMN: TEXT, a line each, on standard error. A problem of the whole file follows the tool's name.
void printProblems(const std::string& path, Problems problems, const char* kind = "")
{
    for (auto& problem : problems) {
        problem.text.insert(0, kind);
        problem.line == 0 ? complain(kProgram, format(path, problem)) : complainOfFile(format(path, problem));
    }
}

/// Prints the problems of a file that the user has to correct.
/// @returns the exit status.
int refuseFile(const Tool& tool, const std::string& path, const Problems& problems)
{
    if (tool.json) {
        printJson({{"error", format(path, problems.front())},
                   {"kind", "user"},
                   {"status", static_cast<int>(kWrongUse)},
                   {"file", path},
                   {"problems", problemsJson(problems)}});
    } else {
        printProblems(path, problems);
    }
    return kWrongUse;
}

/// The values of parameters on a command line.
struct ParameterOptions {
    std::vector<std::string> set;
    std::string variant;
};

/// Adds --set and --variant.
void addParameters(CLI::App& verb, ParameterOptions& options)
{
    verb.add_option("--set", options.set, "Value of a parameter of the plan; may be repeated")
        ->check(
            [](const std::string& text) {
                const std::size_t end = text.find('=');
                return end == 0 || end == std::string::npos ? "expected NAME=VALUE, got " + protocol::inQuotes(text)
                                                            : std::string();
            },
            "")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("NAME=VALUE");
    verb.add_option("--variant", options.variant, "Variant whose limits hold, as --set variant=NAME")
        ->check(checkNotEmpty, "")
        ->type_name("NAME");
}

/// @returns the values of the station's file, then those of the command line.
station::plan::ParameterValues valuesOf(const Tool& tool, const ParameterOptions& options)
{
    station::plan::ParameterValues values{tool.station->config().parameters};
    for (const std::string& each : options.set) {
        const std::size_t end = each.find('=');
        values.given.push_back({each.substr(0, end), each.substr(end + 1), "--set"});
    }
    if (!options.variant.empty()) {
        values.given.push_back({"variant", options.variant, "--variant"});
    }
    return values;
}

/// @returns "limit = 40 dB (default): help".
std::string parameterText(const station::plan::Parameter& parameter)
{
    return fmt::format("{} = {} ({}){}", parameter.name,
                       printable(protocol::withUnit(shownValue(parameter), parameter.unit)), printable(parameter.from),
                       parameter.help.empty() ? "" : ": " + printable(parameter.help));
}

Json parametersJson(const station::plan::Plan& plan)
{
    Json list = Json::array();
    for (const auto& each : plan.parameters) {
        Json json{{"name", each.name},
                  {"type", each.isNumber ? "number" : "text"},
                  {"unit", each.unit},
                  {"help", each.help},
                  {"default", each.otherwise && !each.secret ? Json(*each.otherwise) : Json()}};
        if (each.value) {
            json["value"] = shownValue(each);
            json["from"] = each.from;
        }
        list.push_back(std::move(json));
    }
    return list;
}

int check(const Tool& tool, const std::vector<std::string>& paths, const ParameterOptions& options)
{
    Json files = Json::array();
    bool sound = true;
    for (const auto& given : paths) {
        PlanFile file;
        try {
            file = readPlan(tool.station->findPlan(given), groups(), valuesOf(tool, options),
                            tool.station->config().equipment);
        } catch (const protocol::UserError& error) {
            // The message begins with the name, as a problem's line does.
            file.path = given;
            file.loaded.problems.push_back({0, 0, std::string(error.what()).substr(given.size() + 2)});
        }
        const std::string& path = file.path;
        sound = sound && file.loaded.plan.has_value();
        if (tool.json) {
            files.push_back({{"file", path},
                             {"sound", file.loaded.plan.has_value()},
                             {"problems", problemsJson(file.loaded.problems)},
                             {"warnings", problemsJson(file.loaded.warnings)},
                             {"parameters", file.loaded.plan ? parametersJson(*file.loaded.plan) : Json::array()}});
            continue;
        }
        printProblems(path, file.loaded.problems);
        printProblems(path, file.loaded.warnings, "warning: ");
        if (file.loaded.plan) {
            std::puts(fmt::format("{}: sound, {}", printable(path), sizeText(*file.loaded.plan)).c_str());
            for (const auto& each : file.loaded.plan->parameters) {
                std::puts(("  " + parameterText(each)).c_str());
            }
        }
    }
    if (tool.json) {
        printJson({{"files", std::move(files)}});
    }
    return sound ? kPassed : kWrongUse;
}

std::vector<std::string> plansIn(const std::string& directory)
{
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().extension() == ".toml") {
            paths.push_back(entry.path().string());
        }
    }
    std::ranges::sort(paths);
    return paths;
}

int list(const Tool& tool, const std::vector<std::string>& directories)
{
    std::vector<std::string> paths;
    bool sound = true;
    for (const auto& directory : directories) {
        try {
            std::ranges::move(plansIn(directory), std::back_inserter(paths));
        } catch (const std::filesystem::filesystem_error& error) {
            complain(kProgram, fmt::format("{}: {}", directory, protocol::unreadable(error.code().value())));
            sound = false;
        }
    }
    Json plans = Json::array();
    for (const auto& path : paths) {
        const PlanFile file =
            readPlan(path, groups(), {tool.station->config().parameters, false}, tool.station->config().equipment);
        printProblems(path, file.loaded.problems);
        sound = sound && file.loaded.plan.has_value();
        if (!file.loaded.plan) {
            continue;
        }
        const auto& plan = *file.loaded.plan;
        const auto estimate = station::plan::estimate(plan, station::SerialLink::kDefaultBaud);
        if (tool.json) {
            plans.push_back({{"file", path},
                             {"name", plan.name},
                             {"title", plan.title},
                             {"steps", plan.stepCount()},
                             {"at_least_s", std::chrono::duration<double>(estimate.duration).count()},
                             {"open_steps", estimate.open},
                             {"parameters", parametersJson(plan)}});
        } else {
            std::puts(fmt::format("{:<16} {:4} steps  {:<16}  {}", plan.name, plan.stepCount(), durationText(estimate),
                                  printable(plan.title))
                          .c_str());
        }
    }
    if (tool.json) {
        printJson({{"plans", std::move(plans)}});
    }
    return sound ? kPassed : kWrongUse;
}

struct PlanRunOptions {
    std::string plan;
    std::string answers;
    double reconnectSeconds = 10;
    bool quiet = false;
    bool noRecord = false;
    bool verbose = false;
    std::string operatorName;
    ParameterOptions parameters;
    station::plan::RunRequest request;
};

std::unique_ptr<RunView> chooseView(const Tool& tool, const PlanRunOptions& options, const station::plan::Plan& plan)
{
    const bool labelled = options.request.ports.size() > 1;
    if (tool.json) {
        return makeJsonView();
    }
    if (!options.quiet && isatty(STDOUT_FILENO) == 1 && !isDumbTerminal()) {
        return makeLiveView(plan, labelled, options.verbose);
    }
    return makeLineView(labelled, options.quiet, options.verbose);
}

/// Draws, and passes the user's wish to end on, until all runs have ended.
void attend(Tool& tool, RunView& view, station::plan::PlanRuns& runs)
{
    constexpr int kTickMs = 100;
    while (runs.running()) {
        view.tick();
        std::array<pollfd, 2> wanted{{{tool.interrupt.descriptor(), POLLIN, 0}, {runs.over().descriptor(), POLLIN, 0}}};
        poll(wanted.data(), wanted.size(), kTickMs);
        if (tool.interrupt.requested()) {
            tool.interrupt.clear();
            runs.requestEnd();
        }
    }
}

/// Prints which limits of the plan its runs have proven so far.
int reportLimits(const Tool& tool, const PlanRunOptions& options, const station::plan::Plan& plan,
                 const station::plan::Conclusion& conclusion)
{
    const auto& known = options.request.known;
    const auto proofs = station::plan::proveLimits(plan, known.plan.sha256, options.request.results);
    if (tool.json) {
        printJson(limitsEvent(proofs));
    } else {
        std::fputs(toText(proofs).c_str(), stdout);
        for (const std::string& each : proofs.broken) {
            complain(kProgram, each);
        }
    }
    return exitStatusOf(proofs, known.verifies, conclusion.status);
}

int runAtPorts(Tool& tool, const PlanRunOptions& options, const station::plan::Plan& plan,
               const station::plan::Answers& answers)
{
    std::vector<std::string> paths;
    std::ranges::transform(options.request.ports, std::back_inserter(paths), &station::PortSpec::path);
    const std::unique_ptr<RunView> view = chooseView(tool, options, plan);
    Operator prompter(answers, paths, [&view](bool aside) { view->aside(aside); });
    HeadUnitClient headUnit;
    station::plan::Surroundings surroundings{groups(), prompter, headUnit};
    surroundings.serialRecord = tool.station->config().unit.serial;
    surroundings.instruments = std::make_shared<station::instrument::Instruments>(tool.station->config().equipment);
    station::plan::PlanRuns runs(
        plan, options.request, surroundings,
        [&view](const std::string& port) -> station::plan::Observer& { return view->add(port); },
        [&prompter](const std::string& port) { prompter.ended(port); });
    attend(tool, *view, runs);
    const auto conclusion = runs.conclude();
    // Complaints follow the summary: the view erases the lines below it.
    view->finish(conclusion.units);
    const auto isShown = [&](const std::string& complaint) {
        return !tool.json && outputsAreOne() &&
               std::ranges::any_of(conclusion.units, [&](const station::plan::UnitResult& unit) {
                   return station::record::headlineOf(unit.result.run).reason + unit.result.remedy == complaint;
               });
    };
    for (const std::string& each : conclusion.complaints) {
        if (!isShown(each)) {
            complain(kProgram, each);
        }
    }
    return options.request.known.verifies.empty() ? conclusion.status : reportLimits(tool, options, plan, conclusion);
}

int runPlanAtPorts(Tool& tool, PlanRunOptions options)
{
    const station::StationConfig& config = tool.station->config();
    const PlanFile file = readPlan(options.plan, groups(), valuesOf(tool, options.parameters), config.equipment);
    if (!file.loaded.plan) {
        return refuseFile(tool, options.plan, file.loaded.problems);
    }
    expectRunnable(*file.loaded.plan, options.request);
    if (!options.request.known.verifies.empty() && limitsOf(*file.loaded.plan).empty()) {
        throw protocol::UserError(
            fmt::format("{}: expected a plan with 'min', 'max' or 'max_time' to verify, got none", options.plan));
    }
    if (options.request.ports.size() > 1 && config.equipment.power && config.equipment.power->run.empty() &&
        station::plan::switchesPower(*file.loaded.plan)) {
        throw protocol::UserError(config.file +
                                  ": [power]: expected 'run' for several units, since one instrument would switch all");
    }
    Problems problems;
    station::plan::Answers answers;
    if (!options.answers.empty()) {
        answers = station::plan::readAnswers(options.answers, *file.loaded.plan, problems);
    }
    if (!problems.empty()) {
        return refuseFile(tool, options.answers, problems);
    }
    station::record::Run& known = options.request.known;
    known.station = tool.station->info(options.operatorName);
    known.plan.sha256 = file.sha256;
    known.catalogueSha256 = protocol::catalogue::hash();
    options.request.reconnect =
        std::chrono::duration_cast<station::plan::Duration>(std::chrono::duration<double>(options.reconnectSeconds));
    if (options.noRecord) {
        options.request.results.clear();
    }
    return runAtPorts(tool, options, *file.loaded.plan, answers);
}

void addPlanCheck(Tool& tool, CLI::App& noun)
{
    CLI::App* const verb = noun.add_subcommand("check",
                                               "Check plans against the catalogue\n"
                                               "Each mistake is a line FILE:LINE:COLUMN: TEXT on standard error.");
    const auto paths = std::make_shared<std::vector<std::string>>();
    verb->add_option("FILE", *paths, "Plans to check")->required()->type_name("FILE");
    const auto options = std::make_shared<ParameterOptions>();
    addParameters(*verb, *options);
    verb->footer("Examples:\n  engineering-station plan check share/plans/*.toml");
    verb->callback(
        [&tool, paths, options] { tool.action = [&tool, paths, options] { return check(tool, *paths, *options); }; });
}

void addPlanList(Tool& tool, CLI::App& noun)
{
    CLI::App* const verb = noun.add_subcommand("list",
                                               "List plans: name, steps, shortest time, title\n"
                                               "The time is that of the frames on the line and of the waits for "
                                               "silence. Questions and waits for frames add to it.");
    const auto directory = std::make_shared<std::string>();
    verb->add_option(
            "DIR", *directory,
            "Directory of plans; by default the station's plan folders, then the folder that comes with the tool")
        ->type_name("DIR");
    verb->footer("Examples:\n  engineering-station plan list share/plans");
    verb->callback([&tool, directory] {
        tool.action = [&tool, directory] {
            return list(tool, directory->empty() ? tool.station->planFolders() : std::vector{*directory});
        };
    });
}

void addRun(Tool& tool, CLI::App& noun)
{
    CLI::App* const verb = noun.add_subcommand(
        "run",
        "Run a plan with one unit or several\n"
        "A terminal shows progress, the current step and the latest frames; other outputs get a line per step.\n"
        "Ctrl-C ends the run and starts the teardown; a second Ctrl-C ends the teardown, a third the tool.");
    const auto options = std::make_shared<PlanRunOptions>();
    verb->add_option("PLAN", options->plan,
                     "Plan to run: a file, or a name in the station's plan folders or the folder that comes with the "
                     "tool")
        ->required()
        ->type_name("FILE");
    verb->add_option_function<std::vector<std::string>>(
            "--port",
            [options](const std::vector<std::string>& texts) {
                for (const auto& text : texts) {
                    options->request.ports.push_back(station::parsePort(text));
                }
            },
            "PATH[,BAUD] of a unit; give it once per unit to test several at once")
        ->check(station::checkPort)
        ->expected(1)
        // The word after the port is the plan.
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name("PORT");
    verb->add_option("--answers", options->answers, "Answers to the plan's questions, in TOML")->type_name("FILE");
    addResults(*verb, options->request.results);
    verb->add_option("--operator", options->operatorName, "Name of the operator, for the record")->type_name("NAME");
    verb->add_option("--serial", options->request.known.unit.serial,
                     "Serial number of the unit; if the unit reports another one, the run is an ERROR")
        ->check(checkNotEmpty, "")
        ->type_name("SERIAL");
    addParameters(*verb, options->parameters);
    addReconnect(*verb, options->reconnectSeconds);
    verb->add_flag("--yes", options->request.destructive, "Run a plan with commands that cannot be undone");
    verb->add_flag("-q,--quiet", options->quiet, "Print the summary only");
    verb->add_flag("-v,--verbose", options->verbose, "Also print how much time the tool adds per step");
    CLI::Option* const noRecord = verb->add_flag("--no-record", options->noRecord, "Keep no results");
    verb->add_option("--verify-limits", options->request.known.verifies,
                     "The unit is good or bad: check that good units pass each limit of the plan and a bad one fails "
                     "it")
        ->check(CLI::IsMember({std::string(station::plan::kGoodUnit), std::string(station::plan::kBadUnit)}))
        ->excludes(noRecord)
        ->type_name("UNIT");
    verb->footer(
        "Examples:\n"
        "  engineering-station plan run share/plans/smoke.toml\n"
        "  engineering-station plan run eol.toml --port /dev/ttyUSB0 --port /dev/ttyUSB1 --answers shift.toml");
    verb->callback([&tool, options] {
        if (options->request.ports.empty()) {
            options->request.ports.push_back(station::parsePort(station::defaultPort()));
        }
        tool.action = [&tool, options] {
            const bool stations = options->request.results.empty() && !tool.stationsResults().empty();
            options->request.results = resultsFolder(tool, options->request.results);
            std::error_code error;
            if (!options->noRecord && std::filesystem::exists(options->request.results, error) &&
                !std::filesystem::is_directory(options->request.results, error)) {
                throw protocol::StorageError(
                    fmt::format("{}: expected a directory, got {}", stations ? "[paths] results" : "--results",
                                options->request.results),
                    kNotRecorded);
            }
            options->plan = tool.station->findPlan(options->plan);
            return runPlanAtPorts(tool, *options);
        };
    });
}

}  // namespace

void addPlan(Tool& tool)
{
    CLI::App* const noun = tool.app.add_subcommand("plan", "Check, run and list test plans");
    noun->require_subcommand(1);
    addPlanCheck(tool, *noun);
    addRun(tool, *noun);
    addPlanList(tool, *noun);
}

}  // namespace programs::station_tool
