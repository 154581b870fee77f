#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
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
#include "station/record/RunList.h"
#include "station/record/StoredFile.h"
#include "station/record/ValueText.h"

namespace programs::station_tool {

namespace {

namespace record = station::record;
using nlohmann::ordered_json;
using record::ListedRun;
using record::printable;
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
    for (const ListedRun& run : list.runs) {
        rows.push_back({record::toText(run.started), printable(run.plan), printable(run.unit),
                        verdictOf(run, colourWanted()), run.ended < run.started ? "-" : record::toText(durationOf(run)),
                        printable(run.folder.filename().string()), shortened(failureOf(run))});
    }
    std::fputs(protocol::table(rows).c_str(), stdout);
}

ordered_json toJson(const ListedRun& run)
{
    ordered_json json{{"run", run.id},
                      {"folder", run.folder.string()},
                      {"started", nullptr},
                      {"duration_s", nullptr},
                      {"plan", run.plan},
                      {"unit", run.unit},
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

int list(const std::string& directory, bool json)
{
    const RunList found = record::listRuns(directory);
    for (const auto& folder : found.passedOver) {
        complain(kProgram,
                 fmt::format("{}: expected a run, got a folder without {}", folder.string(), record::kRecordFile));
    }
    for (const std::string& broken : found.broken) {
        complain(kProgram, broken);
    }
    if (json) {
        printJsonList(directory, found);
    } else if (found.runs.empty()) {
        complain(kProgram, directory + ": expected a folder of runs, got none");
    } else {
        printTable(found);
    }
    return found.broken.empty() ? kPassed : kWrongUse;
}

void addReportList(Tool& tool, CLI::App& noun)
{
    const auto directory = std::make_shared<std::string>();
    CLI::App* verb = noun.add_subcommand("list",
                                         "List the runs in a results directory, the newest first\n"
                                         "Standard error names folders without a record, and records that cannot be "
                                         "read.");
    verb->add_option("DIR", *directory, "Results directory, as with --results")->type_name("DIR");
    addResults(*verb, *directory);
    verb->get_option("--results")->excludes("DIR");
    verb->footer(
        "Examples:\n"
        "  engineering-station report list\n"
        "  engineering-station report list --json | jq '.runs[] | select(.verdict != \"PASS\")'");
    verb->callback([&tool, directory] {
        tool.action = [&tool, directory] { return list(resultsFolder(tool, *directory), tool.json); };
    });
}

// What show and export share.

struct Chosen {
    std::string run;
    std::string directory;
};

void addRun(CLI::App& verb, Chosen& chosen)
{
    verb.add_option("RUN", chosen.run, "Name of a run, path of its folder or of its record, or 'latest'")
        ->type_name("RUN")
        ->required();
    addResults(verb, chosen.directory);
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
    addRun(*verb, options->chosen);
    verb->add_flag("--frames", options->allFrames, "Print the frames of all steps, not only of those that went wrong");
    verb->footer(
        "Examples:\n"
        "  engineering-station report show latest");
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

int exportRun(const Tool& tool, const Chosen& chosen, const std::string& format, const std::string& output)
{
    const auto path = recordOf(tool, chosen);
    const auto* known = std::ranges::find(record::kReportFormats, format,
                                          [](const record::ReportFormat& each) { return std::string(each.name); });
    std::string run;
    const auto write = [&](std::ostream& out) {
        run = record::writeReport(*known, path, protocol::catalogue::groups(), out);
    };
    if (!output.empty()) {
        try {
            record::writeAtomically(output, write);
        } catch (const record::RecordError&) {
            throw;
        } catch (const protocol::StorageError& error) {
            throw protocol::StorageError(error.what(), kNotRecorded);
        }
    }
    if (tool.json) {
        std::ostringstream content;
        if (output.empty()) {
            write(content);
        }
        ordered_json object{{"run", run}, {"format", format}};
        object[output.empty() ? "content" : "file"] = output.empty() ? content.str() : output;
        printJson(std::move(object));
    } else if (output.empty()) {
        write(std::cout);
        std::cout.flush();
    }
    return kPassed;
}

void addExport(Tool& tool, CLI::App& noun)
{
    struct Options {
        Chosen chosen;
        std::string format;
        std::string output;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* verb = noun.add_subcommand("export",
                                         "Make a report from a run's record\n"
                                         "The report is made from the record alone.");
    addRun(*verb, options->chosen);
    verb->add_option("--format", options->format, "Format of the report")
        ->check(CLI::IsMember(formatNames()))
        ->type_name("FORMAT")
        ->required();
    verb->add_option("--output", options->output, "File to write; standard output by default")->type_name("FILE");
    verb->footer(
        "Examples:\n"
        "  engineering-station report export latest --format html --output report.html\n"
        "  engineering-station report export latest --format csv");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] { return exportRun(tool, options->chosen, options->format, options->output); };
    });
}

}  // namespace

void addReport(Tool& tool)
{
    CLI::App* noun = tool.app.add_subcommand("report",
                                             "List and print the runs of plans, and make reports from them\n"
                                             "docs/results.md describes the folder of a run and its record.");
    noun->require_subcommand(1);
    addReportList(tool, *noun);
    addReportShow(tool, *noun);
    addExport(tool, *noun);
}

}  // namespace programs::station_tool
