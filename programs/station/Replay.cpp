#include "station/replay/Replay.h"

#include <fmt/format.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

using station::Replayed;
namespace catalogue = protocol::catalogue;

struct ReplayOptions {
    std::string capture;
    station::CaptureTerms form;
    station::ReplayTerms terms;
    double timeoutSeconds = 1;
};

nlohmann::ordered_json answersJson(const Replayed& replayed, const std::vector<protocol::Frame>& frames)
{
    const auto groups = catalogue::groups();
    auto array = nlohmann::ordered_json::array();
    for (const protocol::Frame& frame : frames) {
        array.push_back(frameJson(groups, decodeFromUnit(groups, frame, replayed.request.command), frame));
    }
    return array;
}

void printReplayed(const Replayed& replayed, bool json)
{
    if (json) {
        const auto groups = catalogue::groups();
        const protocol::Frame& request = replayed.request.frame;
        printJson({{"type", "command"},
                   {"number", replayed.number},
                   {"request", frameJson(groups, decodeRequest(groups, request), request)},
                   {"expected", answersJson(replayed, replayed.expected)},
                   {"got", answersJson(replayed, replayed.got)},
                   {"result", name(replayed.result)},
                   {"differences", replayed.differences}});
    } else {
        for (const std::string& difference : replayed.differences) {
            std::puts(
                protocol::printable(fmt::format("{:4}  {}: {}", replayed.number, replayed.request.title, difference))
                    .c_str());
        }
    }
    std::fflush(stdout);
}

void printSummary(const ReplayOptions& options, const station::Recording& recording,
                  const station::ReplaySummary& summary, protocol::ExitStatus status, bool json)
{
    using Answer = Replayed::Result;
    if (json) {
        nlohmann::ordered_json object{{"type", "summary"}, {"port", options.terms.port.path}, {"sent", summary.sent}};
        for (const auto result :
             {Answer::kSame, Answer::kDiffers, Answer::kMissing, Answer::kUnexpected, Answer::kIgnored}) {
            object[name(result)] = summary.count(result);
        }
        object["notices"] = summary.notices;
        object["varying"] = recording.varying;
        object["masked_at"] = summary.maskedAt ? nlohmann::ordered_json(*summary.maskedAt) : nullptr;
        object["status"] = static_cast<int>(status);
        printJson(std::move(object));
        return;
    }
    std::string line = fmt::format(
        "{}: {} sent, {} answered as recorded, {} otherwise, {} without an answer", options.capture,
        protocol::plural(summary.sent, "command"), summary.count(Answer::kSame),
        summary.count(Answer::kDiffers) + summary.count(Answer::kUnexpected), summary.count(Answer::kMissing));
    if (const auto ignored = summary.count(Answer::kIgnored); ignored > 0) {
        line += fmt::format(", {} not compared", ignored);
    }
    std::puts(protocol::printable(line).c_str());
    for (const std::string& field : recording.varying) {
        complain(kProgram, fmt::format("{} varies in the recording: only its range was compared", field));
    }
    if (summary.maskedAt) {
        complain(kProgram, fmt::format("{}: command {} is masked: it and all after it were not sent", options.capture,
                                       *summary.maskedAt));
    }
}

int replayCapture(const ReplayOptions& options, Tool& tool)
{
    const auto groups = catalogue::groups();
    auto terms = options.terms;
    terms.timeout = fromSeconds(options.timeoutSeconds);
    std::error_code error;
    const auto kind = std::filesystem::status(options.capture, error).type();
    using Type = std::filesystem::file_type;
    if (options.capture == "-" || (kind != Type::regular && kind != Type::directory && kind != Type::not_found)) {
        throw protocol::UserError(fmt::format("{}: expected a file, which can be read twice, got a pipe or device",
                                              nameOfInput(options.capture)));
    }
    const auto read = [&](const auto& use) {
        const auto input = openInput(options.capture, tool.interrupt);
        station::CaptureReader reader(*input, options.capture, options.form);
        return use(reader);
    };
    const auto recording = read([&](station::CaptureReader& reader) {
        auto surveyed = survey(groups, reader, options.capture, terms);
        complainOfIgnored(options.capture, reader.ignored());
        complainOfIgnored(options.capture, surveyed.noise());
        return surveyed;
    });
    station::ReplaySummary summary;
    try {
        read([&](station::CaptureReader& reader) {
            replay(
                groups, reader, recording, terms, tool.interrupt,
                [&](const Replayed& each) { printReplayed(each, tool.json); }, summary);
        });
    } catch (const protocol::Error& ended) {
        if (summary.sent > 0) {
            printSummary(options, recording, summary, ended.status(), tool.json);
        }
        throw;
    }
    printSummary(options, recording, summary, summary.status(), tool.json);
    return summary.status();
}

}  // namespace

void addReplay(Tool& tool)
{
    const auto options = std::make_shared<ReplayOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "replay",
        "Send the commands of a capture again and compare the answers\n"
        "Reads the forms that decode reads. Sends each command of the station after the pause that the capture has "
        "before it, waits for as many answers as the capture has, and prints each difference. Frames that the unit "
        "sends by itself are not compared. Of a value that varies in the capture only the range is compared.\n"
        "The exit status is 1 for an answer that differs or that the capture does not have, 3 for one that does not "
        "come. A masked command ends the replay, with status 2 if all before it was equal.");
    verb->add_option("CAPTURE", options->capture, "Capture to send again")->type_name("FILE")->required();
    addPort(*verb, options->terms.port);
    addTimeout(*verb, options->timeoutSeconds);
    verb->add_flag("--fast", options->terms.fast, "Send each command as soon as the one before it is answered");
    verb->add_option("--ignore", options->terms.ignore,
                     "Compare no answers of these commands: a filter as of monitor, such as 'gps, car.speed'")
        ->type_name("EXPR");
    verb->add_flag("--yes", options->terms.yes, "Send destructive commands");
    addCaptureTerms(*verb, options->form);
    verb->footer(
        "Examples:\n"
        "  engineering-station replay trace.pcapng\n"
        "  engineering-station replay --fast --ignore gps trace.pcapng --json");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return replayCapture(*options, tool); }; });
}

}  // namespace programs::station_tool
