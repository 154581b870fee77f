#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"
#include "station/record/ResultsFolder.h"
#include "station/record/RunFacts.h"
#include "station/record/RunIndex.h"
#include "station/record/RunList.h"
#include "station/record/RunStatistics.h"
#include "station/record/StoredFile.h"
#include "station/record/ValueText.h"

namespace programs::station_tool {

namespace {

namespace record = station::record;
using nlohmann::ordered_json;
using record::ListedRun;
using record::printable;
using record::RunFilter;
using record::RunList;

void printReport(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

// report list

std::string verdictOf(const ListedRun& run, bool colour)
{
    return run.running ? "RUNNING" : record::coloured(run.verdict, colour);
}

std::chrono::nanoseconds durationOf(const ListedRun& run)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(run.ended - run.started);
}

std::string failureOf(const ListedRun& run)
{
    if (run.failedStep.empty()) {
        return printable(run.running ? "" : run.reason);
    }
    const std::string more = run.failedSteps > 1 ? fmt::format(" and {} more", run.failedSteps - 1) : "";
    return printable(run.failedStep) + more;
}

/// @returns the beginning of a text of UTF-8 that is too long for a column; 'report show' prints all of it.
std::string shortened(const std::string& text)
{
    constexpr glong kLongest = 60;
    if (g_utf8_strlen(text.c_str(), -1) <= kLongest) {
        return text;
    }
    return text.substr(0, static_cast<std::size_t>(g_utf8_offset_to_pointer(text.c_str(), kLongest) - text.c_str())) +
           "…";
}

void printTable(const RunList& list)
{
    std::vector<std::vector<std::string>> rows{{"STARTED", "PLAN", "UNIT", "VERDICT", "TOOK", "RUN", "FAILED"}};
    const bool colour = colourWanted();
    for (const ListedRun& run : list.runs) {
        rows.push_back({record::toText(run.started), printable(run.plan), printable(run.unit()), verdictOf(run, colour),
                        run.ended < run.started ? "-" : record::toText(durationOf(run)),
                        printable(run.folder.substr(run.folder.rfind('/') + 1)), shortened(failureOf(run))});
    }
    std::fputs(protocol::table(rows).c_str(), stdout);
}

ordered_json toJson(const ListedRun& run)
{
    ordered_json json{{"run", run.id},
                      {"folder", run.folder},
                      {"started", nullptr},
                      {"duration_s", nullptr},
                      {"plan", run.plan},
                      {"plan_version", run.planVersion},
                      {"unit", run.unit()},
                      {"serial", run.serial},
                      {"station", run.station.host},
                      {"operator", run.station.operatorName},
                      {"verdict", nullptr},
                      {"running", run.running},
                      {"reason", run.running ? "" : run.reason},
                      {"failed_step", nullptr},
                      {"failed_steps", run.failedSteps}};
    if (run.started != std::chrono::system_clock::time_point{}) {
        json["started"] = record::isoText(run.started);
    }
    if (!run.running) {
        json["verdict"] = record::name(run.verdict);
    }
    if (run.ended >= run.started) {
        json["duration_s"] = std::chrono::duration<double>(run.ended - run.started).count();
    }
    if (!run.failedStep.empty()) {
        json["failed_step"] = run.failedStep;
    }
    return json;
}

void printJsonList(const std::string& directory, const RunList& list)
{
    ordered_json runs = ordered_json::array();
    for (const ListedRun& run : list.runs) {
        runs.push_back(toJson(run));
    }
    ordered_json passedOver = ordered_json::array();
    for (const auto& folder : list.passedOver) {
        passedOver.push_back(folder.string());
    }
    printJson({{"directory", directory},
               {"runs", std::move(runs)},
               {"broken", list.broken},
               {"passed_over", std::move(passedOver)}});
}

/// Says on standard error which folders and records are left out.
/// @returns the exit status.
int complainOf(const RunList& list)
{
    for (const auto& folder : list.passedOver) {
        complain(kProgram,
                 fmt::format("{}: expected a run, got a folder without {}", folder.string(), record::kRecordFile));
    }
    for (const std::string& broken : list.broken) {
        complain(kProgram, broken);
    }
    return list.broken.empty() ? kPassed : kWrongUse;
}

int list(const std::string& directory, const RunFilter& filter, bool json)
{
    RunList found = record::listRuns(directory);
    const int status = complainOf(found);
    const bool any = !found.runs.empty();
    std::erase_if(found.runs, [&filter](const ListedRun& run) { return !filter.matches(run); });
    if (json) {
        printJsonList(directory, found);
    } else if (found.runs.empty()) {
        complain(kProgram, directory + (any ? ": no run matches" : ": expected a folder of runs, got none"));
    } else {
        printTable(found);
    }
    return status;
}

constexpr const char* kRunning = "RUNNING";

void addVerdict(CLI::App& verb, RunFilter& filter)
{
    std::vector<std::string> words{kRunning};
    std::ranges::transform(record::kVerdicts, std::back_inserter(words),
                           [](record::Verdict each) { return record::name(each); });
    verb.add_option_function<std::string>(
            "--verdict",
            [&filter](const std::string& word) {
                filter.running = word == kRunning;
                const auto* found = std::ranges::find(record::kVerdicts, word,
                                                      [](record::Verdict each) { return std::string(name(each)); });
                filter.verdict = filter.running ? std::nullopt : std::optional(*found);
            },
            "Only runs with this verdict")
        ->check(CLI::IsMember(words))
        ->type_name("VERDICT");
}

/// Adds --plan, --serial and --since.
void addFilter(CLI::App& verb, RunFilter& filter)
{
    verb.add_option("--plan", filter.plan, "Only runs of this plan, as 'report list' names it")->type_name("PLAN");
    verb.add_option("--serial", filter.serial, "Only runs of the unit with this serial number")->type_name("SERIAL");
    const auto parse = [](const std::string& text) {
        return record::parseSince(text, std::chrono::system_clock::now());
    };
    verb.add_option_function<std::string>(
            "--since", [&filter, parse](const std::string& text) { filter.since = parse(text); },
            "Only runs that started this long ago or later (7d, 12h, 30min), or at this time in UTC or later "
            "(2026-11-21)")
        ->check([parse](const std::string& text) {
            return parse(text) ? ""
                               : fmt::format("expected an age such as 7d or a date such as 2026-11-21, got '{}'", text);
        })
        ->type_name("AGE");
}

void addReportList(Tool& tool, CLI::App& noun)
{
    struct Options {
        std::string directory;
        RunFilter filter;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* verb = noun.add_subcommand("list",
                                         "List the runs in a results directory, the newest first\n"
                                         "Standard error names folders without a record, and records that cannot be "
                                         "read.");
    verb->add_option("DIR", options->directory, "Results directory, as with --results")->type_name("DIR");
    addResults(*verb, options->directory);
    verb->get_option("--results")->excludes("DIR");
    addFilter(*verb, options->filter);
    addVerdict(*verb, options->filter);
    verb->footer(
        "Examples:\n"
        "  engineering-station report list --plan end-of-line --verdict FAIL --since 7d\n"
        "  engineering-station report list --json | jq '.runs[] | select(.verdict != \"PASS\")'");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] {
            return list(resultsFolder(tool, options->directory), options->filter, tool.json);
        };
    });
}

// What show and export share.

struct Chosen {
    std::string run;
    std::string directory;
};

CLI::Option* addRun(CLI::App& verb, Chosen& chosen)
{
    addResults(verb, chosen.directory);
    return verb
        .add_option("RUN", chosen.run,
                    "Name of a run, path of its folder or of its record, serial number of a unit for its latest run, "
                    "or 'latest'")
        ->type_name("RUN");
}

std::filesystem::path recordOf(const Tool& tool, const Chosen& chosen)
{
    return record::findRecord(resultsFolder(tool, chosen.directory), chosen.run);
}

// report show

int show(const Tool& tool, const Chosen& chosen, bool allFrames)
{
    const auto path = recordOf(tool, chosen);
    const auto groups = protocol::catalogue::groups();
    if (record::isRunning(path.parent_path())) {
        complain(kProgram, fmt::format("{}: the run goes on; this is what it has done so far", path.string()));
    }
    if (tool.json) {
        record::writeJson(std::cout, record::readRun(path, record::RunFacts::kWholeRun), groups, -1);
    } else {
        printReport(
            record::textReport(record::readRun(path), groups, {.colour = colourWanted(), .allFrames = allFrames}));
    }
    return kPassed;
}

void addReportShow(Tool& tool, CLI::App& noun)
{
    struct Options {
        Chosen chosen;
        bool allFrames = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* verb = noun.add_subcommand("show",
                                         "Print a run: the steps that went wrong, then every step\n"
                                         "With --json, it prints the record. The exit status does not depend on the "
                                         "verdict.");
    addRun(*verb, options->chosen)->required();
    verb->add_flag("--frames", options->allFrames, "Print the frames of all steps, not only of those that went wrong");
    verb->footer(
        "Examples:\n"
        "  engineering-station report show latest\n"
        "  engineering-station report show HU-2611-004711");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] { return show(tool, options->chosen, options->allFrames); };
    });
}

// report export

std::vector<std::string> formatNames()
{
    std::vector<std::string> names;
    std::ranges::transform(record::kReportFormats, std::back_inserter(names), &record::ReportFormat::name);
    return names;
}

struct Export {
    Chosen chosen;
    std::string format;
    std::string output;
    bool all = false;
    RunFilter filter;
};

/// Writes to a file. A failure has the status of a file that cannot be written.
void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write)
{
    try {
        record::writeAtomically(path, write);
    } catch (const record::RecordError&) {
        throw;
    } catch (const protocol::StorageError& error) {
        throw protocol::StorageError(error.what(), kNotRecorded);
    }
}

int exportRun(const Tool& tool, const Export& options)
{
    const auto path = recordOf(tool, options.chosen);
    const auto* known = std::ranges::find(record::kReportFormats, options.format,
                                          [](const record::ReportFormat& each) { return std::string(each.name); });
    std::string run;
    const auto write = [&](std::ostream& out) {
        run = record::writeReport(*known, path, protocol::catalogue::groups(), out);
    };
    const std::string& output = options.output;
    if (!output.empty()) {
        writeFile(output, write);
    }
    if (tool.json) {
        std::ostringstream content;
        if (output.empty()) {
            write(content);
        }
        ordered_json object{{"run", run}, {"format", options.format}};
        object[output.empty() ? "content" : "file"] = output.empty() ? content.str() : output;
        printJson(std::move(object));
    } else if (output.empty()) {
        write(std::cout);
        std::cout.flush();
    }
    return kPassed;
}

int exportAll(const Tool& tool, const Export& options)
{
    RunList found = record::listRuns(resultsFolder(tool, options.chosen.directory));
    int status = complainOf(found);
    std::erase_if(found.runs, [&options](const ListedRun& run) { return run.running || !options.filter.matches(run); });
    const auto write = [&](std::ostream& out) {
        record::csvReport(found.runs, out, [&](const record::RecordError& error) {
            complain(kProgram, error.what());
            status = kWrongUse;
        });
    };
    if (!options.output.empty()) {
        writeFile(options.output, write);
    } else {
        write(std::cout);
        std::cout.flush();
    }
    if (tool.json) {
        printJson({{"runs", found.runs.size()}, {"format", "csv"}, {"file", options.output}});
    }
    return status;
}

int exportAny(const Tool& tool, const Export& options)
{
    if (options.all == !options.chosen.run.empty()) {
        throw protocol::UserError("expected RUN or --all");
    }
    if (options.format.empty()) {
        throw protocol::UserError("expected --format FORMAT");
    }
    if (options.all && options.format != "csv") {
        throw protocol::UserError("--all: expected the format csv, got " + options.format);
    }
    if (options.all && tool.json && options.output.empty()) {
        throw protocol::UserError("--all with --json: expected --output FILE");
    }
    return options.all ? exportAll(tool, options) : exportRun(tool, options);
}

void addExport(Tool& tool, CLI::App& noun)
{
    const auto options = std::make_shared<Export>();
    CLI::App* verb = noun.add_subcommand("export",
                                         "Make a report from the record of a run, or one CSV file from many\n"
                                         "The report is made from the record alone.");
    CLI::Option* run = addRun(*verb, options->chosen);
    CLI::Option* all =
        verb->add_flag("--all", options->all, "Export all runs that have ended, with columns for the run")
            ->excludes(run);
    CLI::Option* format = verb->add_option("--format", options->format, "Format of the report")
                              ->check(CLI::IsMember(formatNames()))
                              ->type_name("FORMAT");
    verb->add_flag_function(
            "--csv", [options](std::int64_t) { options->format = "csv"; }, "The same as --format csv")
        ->excludes(format);
    verb->add_option("--output", options->output, "File to write; standard output by default")->type_name("FILE");
    addFilter(*verb, options->filter);
    addVerdict(*verb, options->filter);
    for (const char* name : {"--plan", "--serial", "--since", "--verdict"}) {
        verb->get_option(name)->needs(all);
    }
    verb->footer(
        "Examples:\n"
        "  engineering-station report export latest --format html --output report.html\n"
        "  engineering-station report export --all --csv --since 7d --output week.csv");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return exportAny(tool, *options); }; });
}

// report stats

struct Stats {
    std::string directory;
    RunFilter filter;
    bool csv = false;
    std::string html;
};

/// @returns what the statistics are about.
std::string subjectOf(const std::string& directory, const RunFilter& filter)
{
    std::string text = directory;
    text += filter.plan.empty() ? "" : ", plan " + filter.plan;
    text += filter.serial.empty() ? "" : ", unit " + filter.serial;
    return text + (filter.since ? ", since " + record::toText(*filter.since) : "");
}

int stats(const Tool& tool, const Stats& options)
{
    const std::string directory = resultsFolder(tool, options.directory);
    record::RunIndex index(directory);
    const record::RunStatistics found = record::statisticsOf(index, options.filter, &tool.interrupt);
    for (const std::string& broken : found.broken) {
        complain(kProgram, broken);
    }
    if (!options.html.empty()) {
        writeFile(options.html,
                  [&](std::ostream& out) { record::htmlReport(found, subjectOf(directory, options.filter), out); });
    }
    if (tool.json) {
        ordered_json object{{"directory", directory}};
        object.update(record::toJson(found));
        printJson(std::move(object));
    } else if (options.csv) {
        record::csvReport(found, std::cout);
        std::cout.flush();
    } else if (found.plans.empty()) {
        complain(kProgram, directory + ": no run counts");
    } else if (options.html.empty()) {
        printReport(record::textReport(found));
    }
    return found.broken.empty() ? kPassed : kWrongUse;
}

void addStats(Tool& tool, CLI::App& noun)
{
    const auto options = std::make_shared<Stats>();
    CLI::App* verb = noun.add_subcommand("stats",
                                         "Compute yield, failures and capability over many runs\n"
                                         "docs/results.md defines the numbers.");
    addResults(*verb, options->directory);
    addFilter(*verb, options->filter);
    verb->add_flag("--csv", options->csv, "Print one table as CSV");
    verb->add_option("--html", options->html, "Write a page with histograms instead")->type_name("FILE");
    verb->footer(
        "Examples:\n"
        "  engineering-station report stats --plan end-of-line --since 7d\n"
        "  engineering-station report stats --html week.html --since 7d");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return stats(tool, *options); }; });
}

}  // namespace

void addReport(Tool& tool)
{
    CLI::App* noun =
        tool.app.add_subcommand("report",
                                "List and print the runs of plans, and make reports and statistics from them\n"
                                "docs/results.md describes the folder of a run and its record.");
    noun->require_subcommand(1);
    addReportList(tool, *noun);
    addReportShow(tool, *noun);
    addExport(tool, *noun);
    addStats(tool, *noun);
}

}  // namespace programs::station_tool
