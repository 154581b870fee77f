// Decodes any frame with the catalogue, and encodes commands with any text for a parameter.
//
// Input: one byte chooses. Even: group, command, then parameters of a frame that the unit or the station sends. Odd: a
// command by its place in the catalogue, then NAME=VALUE lines.

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"

using namespace protocol::catalogue;
using fuzz::expect;
using protocol::Frame;

namespace {

void checkLine(const std::string& text)
{
    expect(std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
           "a control character has come through: " + text);
}

void decode(const Frame& frame)
{
    for (const Decoded& decoded : {decodeRequest(groups(), frame), decodeFromUnit(groups(), frame)}) {
        checkLine(format(groups(), decoded, frame));
        expect(decoded.known() || decoded.rest == frame.params, "an unknown frame has lost bytes");
    }
}

const Command& commandAt(std::size_t place)
{
    std::vector<const Command*> all;
    for (const Group& group : groups()) {
        for (const Command& command : group.commands) {
            all.push_back(&command);
        }
    }
    return *all[place % all.size()];
}

std::vector<Argument> argumentsOf(std::string_view lines)
{
    std::vector<Argument> arguments;
    while (!lines.empty() && arguments.size() < 8) {
        const auto end = std::min(lines.find('\n'), lines.size());
        const std::string_view line = lines.substr(0, end);
        const auto equals = std::min(line.find('='), line.size());
        arguments.emplace_back(line.substr(0, equals), line.substr(std::min(equals + 1, line.size())));
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return arguments;
}

void encodeAndDecode(const Command& command, const std::vector<Argument>& arguments)
{
    try {
        const Frame frame = encode(command, arguments);
        const Decoded decoded = decodeRequest(groups(), frame);
        expect(decoded.command == &command, "another command has come back");
        expect(decoded.problems.empty(), "what has been encoded does not fit the catalogue");
    } catch (const protocol::UserError& error) {
        expect(std::string_view(error.what()).size() > 0, "a refusal without words");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::ByteReader input({data, size});
    if (input.byte() % 2 == 0) {
        Frame frame;
        frame.cmdOne = input.byte();
        frame.cmdTwo = input.byte();
        const auto rest = input.bytes(protocol::kMaxStationParams);
        frame.params.assign(rest.begin(), rest.end());
        decode(frame);
        return 0;
    }
    const Command& command = commandAt(input.byte());
    const auto rest = input.bytes(1024);
    encodeAndDecode(command, argumentsOf({reinterpret_cast<const char*>(rest.data()), rest.size()}));
    return 0;
}
