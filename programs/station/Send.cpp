#include <cstdio>
#include <memory>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/Conversation.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

namespace catalogue = protocol::catalogue;

struct SendOptions {
    std::string command;
    std::vector<std::string> arguments;
    station::PortSpec port;
    double timeoutSeconds = 1;
    station::SendTerms terms;
};

void printAnswer(const station::Request& request, const station::Answer& answer)
{
    const auto groups = catalogue::groups();
    for (const protocol::Frame& frame : answer.frames()) {
        std::string line = station::formatMasked(groups, frame);
        if (request.named) {
            line += "  " + catalogue::format(groups, decodeFromUnit(groups, frame, request.command), frame);
        }
        std::puts(line.c_str());
    }
}

void printAsJson(const std::string& port, const station::Request& request, const station::Answer& answer, int status)
{
    const auto groups = catalogue::groups();
    auto replies = nlohmann::ordered_json::array();
    for (const protocol::Frame& frame : answer.frames()) {
        replies.push_back(frameJson(groups, decodeFromUnit(groups, frame, request.command), frame));
    }
    nlohmann::ordered_json object{{"port", port},
                                  {"request", frameJson(groups, decodeRequest(groups, request.frame), request.frame)},
                                  {"replies", replies},
                                  {"corrupt", answer.corrupt},
                                  {"status", status}};
    if (answer.reply) {
        object["round_trip_ms"] = std::chrono::duration<double, std::milli>(answer.roundTrip).count();
    }
    printJson(object);
}

int send(const SendOptions& options, Tool& tool)
{
    const auto request = station::parseRequest(catalogue::groups(), options.command, options.arguments);
    auto terms = options.terms;
    terms.timeout = fromSeconds(options.timeoutSeconds);
    check(request, terms);
    station::Connection connection(options.port, {.interrupt = &tool.interrupt});
    const auto answer = converse(connection, catalogue::groups(), request, terms);
    const auto judgement = judge(request, terms, answer);
    tool.json ? printAsJson(options.port.path, request, answer, judgement.status) : printAnswer(request, answer);
    const bool remark = judgement.status == kPassed;
    if (!judgement.complaint.empty() && !(remark && tool.json)) {
        complain(kProgram, judgement.complaint);
    }
    return judgement.status;
}

}  // namespace

void addSend(Tool& tool)
{
    const auto options = std::make_shared<SendOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "send",
        "Send one command and print its reply\n"
        "By name, GROUP.COMMAND NAME=VALUE…: the tool checks the values against the catalogue and prints the reply's "
        "meaning after its bytes. '(! …)' marks a value outside the catalogue's range. A command without a reply "
        "returns at once, unless you add --expect-none.\n"
        "In bytes, CMD_ONE CMD_TWO BYTE… in hexadecimal: the tool always waits, and prints the reply as "
        "'8F 00 [01]'.\n"
        "While it waits, the tool ignores frames that the head unit sends by itself. If the device disappears and "
        "comes "
        "back, the tool sends a command again only if the catalogue calls it repeatable.");
    addCommandWords(*verb, options->command, options->arguments);
    addPort(*verb, options->port);
    addTimeout(*verb, options->timeoutSeconds);
    verb->add_flag("--expect-none", options->terms.expectNone, "Fail if a reply comes within the time");
    verb->add_flag("--wait-later", options->terms.waitLater,
                   "Also wait for the reply that comes later, from the HMI or the middleware");
    verb->add_flag("--yes", options->terms.yes, "Send a destructive command");
    verb->footer(
        "Examples:\n"
        "  engineering-station send test.set-mode mode=on\n"
        "  engineering-station send tuner.play frequency=94.7MHz\n"
        "  engineering-station send tuner.frequency --json\n"
        "  engineering-station send 0F 00 01");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return send(*options, tool); }; });
}

}  // namespace programs::station_tool
