#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "programs/station/FrameJson.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/Conversation.h"

namespace programs::station_tool {

namespace {

int printFrame(const protocol::Frame& frame, bool json)
{
    protocol::StationFrameBuffer buffer;
    const std::size_t length = protocol::encode(buffer, frame.cmdOne, frame.cmdTwo, frame.params);
    const std::string bytes = protocol::catalogue::formatHexBytes(protocol::Bytes(buffer).first(length));
    if (json) {
        const auto groups = protocol::catalogue::groups();
        printJson({{"bytes", bytes}, {"request", frameJson(groups, decodeRequest(groups, frame), frame)}});
    } else {
        std::puts(bytes.c_str());
    }
    return kPassed;
}

}  // namespace

void addEncode(Tool& tool)
{
    const auto command = std::make_shared<std::string>();
    const auto arguments = std::make_shared<std::vector<std::string>>();
    CLI::App* verb = tool.app.add_subcommand("encode",
                                             "Print the bytes of a command's frame\n"
                                             "They are the bytes that 'send' writes to the line. No port is used.");
    addCommandWords(*verb, *command, *arguments);
    verb->footer(
        "Examples:\n"
        "  engineering-station encode tuner.play frequency=8750\n"
        "  engineering-station encode 0F 00 01");
    verb->callback([&tool, command, arguments] {
        tool.action = [&tool, command, arguments] {
            return printFrame(station::parseRequest(protocol::catalogue::groups(), *command, *arguments).frame,
                              tool.json);
        };
    });
}

}  // namespace programs::station_tool
