#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "programs/station/FrameJson.h"
#include "programs/station/RequestWords.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"

namespace programs::station_tool {

namespace {

namespace catalogue = protocol::catalogue;

struct EncodeOptions {
    std::string command;
    std::vector<std::string> arguments;
};

int printFrame(const Request& request, bool json)
{
    protocol::StationFrameBuffer buffer;
    const auto& frame = request.frame;
    const std::size_t length = protocol::encode(buffer, frame.cmdOne, frame.cmdTwo, frame.params);
    const std::string bytes = catalogue::formatHexBytes(protocol::Bytes(buffer).first(length));
    if (json) {
        const auto groups = catalogue::groups();
        printJson({{"bytes", bytes}, {"request", frameJson(groups, catalogue::decodeRequest(groups, frame), frame)}});
    } else {
        std::puts(bytes.c_str());
    }
    return kPassed;
}

}  // namespace

void addEncode(Tool& tool)
{
    const auto options = std::make_shared<EncodeOptions>();
    CLI::App* verb = tool.app.add_subcommand("encode",
                                             "Print the bytes of a command's frame\n"
                                             "They are those that 'send' would put on the line. No port is used.");
    verb->add_option("COMMAND", options->command,
                     "GROUP.COMMAND as 'catalogue list' prints it; or the group's code, hexadecimal")
        ->type_name("COMMAND")
        ->required();
    verb->add_option("ARGUMENT", options->arguments,
                     "NAME=VALUE for each parameter; or the command's code and parameter bytes, hexadecimal");
    verb->footer(
        "Examples:\n"
        "  engineering-station encode tuner.play frequency=8750\n"
        "  engineering-station encode 0F 00 01");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] {
            return printFrame(parseRequest(options->command, options->arguments), tool.json);
        };
    });
}

}  // namespace programs::station_tool
