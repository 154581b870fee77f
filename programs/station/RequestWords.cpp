#include "programs/station/RequestWords.h"

#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "protocol/catalogue/Suggest.h"
#include "station/Hex.h"

namespace programs::station_tool {

namespace {

namespace catalogue = protocol::catalogue;

std::uint8_t byteOf(const std::string& word)
{
    const auto byte = station::parseByte(word);
    if (!byte) {
        throw WrongUse("'" + word + "' is no byte: one or two hexadecimal digits were expected");
    }
    return *byte;
}

Request parseBytes(const std::string& cmdOne, const std::vector<std::string>& arguments)
{
    if (arguments.empty()) {
        throw WrongUse("behind the group's code " + cmdOne + " the command's code is missing, as in '0F 00 01'");
    }
    Request request;
    request.frame.cmdOne = byteOf(cmdOne);
    request.frame.cmdTwo = byteOf(arguments.front());
    for (auto word = arguments.begin() + 1; word != arguments.end(); ++word) {
        request.frame.params.push_back(byteOf(*word));
    }
    if (request.frame.params.size() > protocol::kMaxStationParams) {
        throw WrongUse("a frame holds at most " + std::to_string(protocol::kMaxStationParams) +
                       " parameter bytes, not " + std::to_string(request.frame.params.size()));
    }
    request.command = catalogue::findCommand(catalogue::groups(), request.frame.cmdOne, request.frame.cmdTwo);
    return request;
}

std::string noAssignment(const catalogue::Command& command, const std::string& word)
{
    const std::string text = "'" + word + "' is no NAME=VALUE";
    if (command.params.empty()) {
        return text + "; the command has no parameters";
    }
    const catalogue::Field& first = command.params.front();
    return text + ", as in '" + std::string(first.name) + "=" + std::string(first.example) + "'";
}

Request parseNamed(const std::string& key, const std::vector<std::string>& words)
{
    const auto* command = catalogue::findCommand(catalogue::groups(), key);
    if (command == nullptr) {
        throw WrongUse(catalogue::noSuchCommand(catalogue::groups(), key));
    }
    std::vector<catalogue::Argument> arguments;
    for (const std::string& word : words) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) {
            throw WrongUse(key + ": " + noAssignment(*command, word));
        }
        arguments.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    }
    try {
        return {catalogue::encode(*command, arguments), command, true};
    } catch (const protocol::UserError& error) {
        throw WrongUse(key + ": " + error.what());
    }
}

}  // namespace

std::string Request::title() const
{
    if (command != nullptr) {
        return catalogue::fullKey(catalogue::groups(), *command);
    }
    const std::uint8_t codes[] = {frame.cmdOne, frame.cmdTwo};
    return catalogue::formatHexBytes(codes);
}

Request parseRequest(const std::string& command, const std::vector<std::string>& arguments)
{
    return station::parseByte(command) ? parseBytes(command, arguments) : parseNamed(command, arguments);
}

}  // namespace programs::station_tool
