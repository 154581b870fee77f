#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/RequestWords.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/Connection.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using protocol::Frame;
using Connection = station::Connection;
namespace catalogue = protocol::catalogue;

struct SendOptions {
    std::string command;
    std::vector<std::string> arguments;
    station::PortSpec port;
    double timeoutSeconds = 1;
    bool expectNone = false;
    bool waitLater = false;
    bool yes = false;
};

/// What came on account of a command.
struct Answer {
    std::optional<Frame> reply;
    std::optional<Frame> later;
    std::chrono::nanoseconds roundTrip{0};
    std::size_t corrupt = 0;
};

/// One command on the line.
class Conversation
{
public:
    Conversation(const SendOptions& options, Request request, Tool& tool)
        : options_(options), request_(std::move(request)), tool_(tool)
    {
    }

    int run()
    {
        Connection connection(options_.port, {.interrupt = &tool_.interrupt});
        answer_ = hold(connection);
        const int status = tool_.json ? statusOf() : printed();
        if (tool_.json) {
            printAsJson(status);
        }
        return status;
    }

private:
    bool waits() const
    {
        const bool answered = request_.command != nullptr && !request_.command->replies.empty();
        return !request_.named || answered || options_.expectNone;
    }

    bool waitsLater() const { return options_.waitLater; }

    Answer hold(Connection& connection)
    {
        if (!waits() && !waitsLater()) {
            connection.send(request_.frame);
            return {};
        }
        Answer answer;
        const auto timeout = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::duration<double>(options_.timeoutSeconds));
        // What comes later may come first.
        const auto accept = [&](const Frame& frame) {
            if (isLater(frame) && !answer.later) {
                answer.later = frame;
                return !waits();
            }
            return waits() && isReply(frame);
        };
        const bool repeatable = request_.command != nullptr && request_.command->repeatable;
        auto outcome = connection.request(request_.frame, accept, timeout, repeatable);
        answer.roundTrip = outcome.roundTrip;
        answer.corrupt = outcome.corrupt;
        if (waits()) {
            answer.reply = std::move(outcome.reply);
        }
        if (waitsLater() && !answer.later && (answer.reply || !waits())) {
            awaitLater(connection, Connection::Clock::now() + timeout, answer);
        }
        return answer;
    }

    void awaitLater(Connection& connection, Connection::Clock::time_point deadline, Answer& answer) const
    {
        while (auto frame = connection.receive(deadline)) {
            if (isLater(*frame)) {
                answer.later = std::move(frame);
                return;
            }
            // A unit that never falls silent has always another frame.
            if (Connection::Clock::now() >= deadline) {
                return;
            }
        }
    }

    bool isReply(const Frame& frame) const
    {
        const bool described = request_.command != nullptr && !request_.command->replies.empty();
        return described ? catalogue::answers(*request_.command, frame)
                         : catalogue::answersUnknown(request_.frame, frame);
    }

    bool isLater(const Frame& frame) const
    {
        if (!waitsLater() || request_.command == nullptr) {
            return false;
        }
        for (const catalogue::Reply& reply : request_.command->later) {
            if (reply.cmdOne == frame.cmdOne && reply.cmdTwo == frame.cmdTwo) {
                return true;
            }
        }
        return false;
    }

    std::vector<Frame> frames() const
    {
        std::vector<Frame> all;
        for (const auto& frame : {answer_.reply, answer_.later}) {
            if (frame) {
                all.push_back(*frame);
            }
        }
        return all;
    }

    int printed() const
    {
        for (const Frame& frame : frames()) {
            std::string line = station::formatMasked(catalogue::groups(), frame);
            if (request_.named) {
                const auto decoded = catalogue::decodeFromUnit(catalogue::groups(), frame, request_.command);
                line += "  " + catalogue::format(catalogue::groups(), decoded, frame);
            }
            std::puts(line.c_str());
        }
        return statusOf();
    }

    void printAsJson(int status) const
    {
        const auto groups = catalogue::groups();
        ordered_json replies = ordered_json::array();
        for (const Frame& frame : frames()) {
            replies.push_back(frameJson(groups, catalogue::decodeFromUnit(groups, frame, request_.command), frame));
        }
        ordered_json object{
            {"port", options_.port.path},
            {"request", frameJson(groups, catalogue::decodeRequest(groups, request_.frame), request_.frame)},
            {"replies", replies},
            {"corrupt", answer_.corrupt},
            {"status", status}};
        if (answer_.reply) {
            object["round_trip_ms"] = std::chrono::duration<double, std::milli>(answer_.roundTrip).count();
        }
        printJson(object);
    }

    /// Says on standard error what is missing.
    int statusOf() const
    {
        if (options_.expectNone) {
            if (answer_.reply) {
                complain(kProgram, "a reply came where none was expected");
            }
            return answer_.reply ? kFailed : kPassed;
        }
        if (waits() && !answer_.reply) {
            complain(kProgram, noReply());
            return kNoAnswer;
        }
        if (waitsLater() && !answer_.later) {
            complain(kProgram, "the later reply to " + request_.title() + " did not come in time" + hint());
            return kNoAnswer;
        }
        return kPassed;
    }

    std::string noReply() const
    {
        std::string text = "no reply to " + request_.title() + " came in time";
        if (answer_.corrupt > 0) {
            text += "; frames with a wrong checksum: " + std::to_string(answer_.corrupt);
        }
        return text + hint();
    }

    /// What keeps a sound unit silent.
    std::string hint() const
    {
        if (request_.command == nullptr) {
            return "; the catalogue does not know the command";
        }
        std::string text;
        if (!request_.command->silentWhen.empty()) {
            text = "; it stays away " + std::string(request_.command->silentWhen);
        }
        const auto* setMode = catalogue::findCommand(catalogue::groups(), "test.set-mode");
        if (setMode != nullptr && request_.frame.cmdOne != setMode->cmdOne) {
            text += "; is auto-test mode on? ('send test.set-mode mode=on')";
        }
        return text;
    }

    const SendOptions& options_;
    const Request request_;
    Tool& tool_;
    Answer answer_;
};

void check(const SendOptions& options, const Request& request)
{
    if (request.command != nullptr && request.command->destructive && !options.yes) {
        throw WrongUse(request.title() + " is destructive (" + std::string(request.command->title) +
                       "); say --yes to send it");
    }
    if (options.waitLater && (request.command == nullptr || request.command->later.empty())) {
        throw WrongUse("--wait-later: the catalogue has no later reply to " + request.title());
    }
    if (options.waitLater && options.expectNone) {
        throw WrongUse("--wait-later and --expect-none exclude each other");
    }
}

}  // namespace

void addSend(Tool& tool)
{
    const auto options = std::make_shared<SendOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "send",
        "Send one command and print what answers it\n"
        "By name, GROUP.COMMAND NAME=VALUE…, values are checked against the catalogue and the reply is printed with "
        "its meaning behind its bytes; what is out of the catalogue's range is marked '(! …)' and does not change the "
        "exit status. A command that the catalogue has no reply for returns at once; --expect-none waits and sees.\n"
        "In bytes, CMD_ONE CMD_TWO BYTE… in hexadecimal, the reply is printed as '8F 00 [01]' and is always awaited.\n"
        "What was left in the line from before is discarded first. Frames that the head unit sends on its own while "
        "the reply is awaited (key reports, notices) are passed over. The port is locked while it is used. When the "
        "device goes and comes back meanwhile, a command that the catalogue calls repeatable is sent again.\n"
        "Exit status: 0 a reply came or none was due, 1 a reply came with --expect-none, 2 wrong use, 3 no reply in "
        "time, 4 interrupted, 10 the port is missing or busy, 11 the link failed.");
    verb->add_option("COMMAND", options->command,
                     "GROUP.COMMAND as 'catalogue list' prints it; or the group's code, hexadecimal")
        ->type_name("COMMAND")
        ->required();
    verb->add_option("ARGUMENT", options->arguments,
                     "NAME=VALUE for each parameter: a number, the name of a choice, a number with its unit (87.5MHz), "
                     "text, or bytes (00:1A:7D); or the command's code and at most 252 parameter bytes, hexadecimal");
    addPort(*verb, options->port);
    addTimeout(*verb, options->timeoutSeconds);
    verb->add_flag("--expect-none", options->expectNone,
                   "Exit with 0 when no reply to the command came within the time, with 1 when one did");
    verb->add_flag("--wait-later", options->waitLater,
                   "Wait also for the reply that comes when the HMI or the middleware has it");
    verb->add_flag("--yes", options->yes, "Send a destructive command");
    verb->footer(
        "Examples:\n"
        "  engineering-station send test.set-mode mode=on\n"
        "  engineering-station send tuner.play frequency=94.7MHz\n"
        "  engineering-station send tuner.frequency --json\n"
        "  engineering-station send 0F 00 01");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] {
            Request request = parseRequest(options->command, options->arguments);
            check(*options, request);
            return Conversation(*options, std::move(request), tool).run();
        };
    });
}

}  // namespace programs::station_tool
