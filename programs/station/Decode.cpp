#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/DecodeInput.h"
#include "station/trace/CaptureReader.h"
#include "station/trace/Describe.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using protocol::Frame;
using station::ScannedPiece;
using station::TraceEvent;
namespace catalogue = protocol::catalogue;

enum class Side { kAuto, kUnit, kStation };

struct DecodeOptions {
    std::vector<std::string> inputs;
    std::string from = "auto";
    station::CaptureTerms terms;
};

Side sideOf(const std::string& from)
{
    if (from == "auto") {
        return Side::kAuto;
    }
    return from == "unit" ? Side::kUnit : Side::kStation;
}

/// Prints frames with their meaning, one a line, and the bytes between them.
class DecodePrinter
{
public:
    DecodePrinter(Side side, bool json) : side_(side), json_(json) {}

    void print(const ScannedPiece& piece)
    {
        using Kind = TraceEvent::Kind;
        switch (piece.kind) {
            case ScannedPiece::Kind::kFrame: {
                const bool fromUnit =
                    side_ == Side::kAuto ? (piece.frame.cmdOne & protocol::kReplyBit) != 0 : side_ == Side::kUnit;
                return print({fromUnit ? Kind::kReceived : Kind::kSent, {}, {}, piece.frame, {}}, false);
            }
            case ScannedPiece::Kind::kCorrupt:
                return print({Kind::kCorrupt, {}, {}, piece.frame, {}, piece.bytes}, false);
            case ScannedPiece::Kind::kGarbage:
                return printBytes("garbage", piece.bytes);
            case ScannedPiece::Kind::kIncomplete:
                return printBytes("incomplete", withoutSecret(piece.bytes));
        }
    }

    /// Prints a piece of a capture, which may know when it happened and who sent it.
    void print(station::CapturePiece piece)
    {
        if (!piece.event) {
            return print(piece.noise);
        }
        if (side_ != Side::kAuto && isGoodFrame(*piece.event)) {
            piece.event->kind = side_ == Side::kUnit ? TraceEvent::Kind::kReceived : TraceEvent::Kind::kSent;
        }
        print(*piece.event, piece.timed);
    }

    bool foundFrame() const { return foundFrame_; }

private:
    static bool isGoodFrame(const TraceEvent& event)
    {
        return hasFrame(event.kind) && event.kind != TraceEvent::Kind::kCorrupt;
    }

    void print(const TraceEvent& clear, bool timed)
    {
        const TraceEvent event = mask_(clear);
        const auto groups = catalogue::groups();
        const auto decoded = attribution_.on(event).decoded;
        const bool good = isGoodFrame(event);
        const char* const sender = event.kind == TraceEvent::Kind::kSent ? "station" : "unit";
        foundFrame_ = foundFrame_ || good;
        if (json_) {
            ordered_json object{{"type", good ? "frame" : name(event.kind)}};
            if (timed) {
                object["time_ns"] =
                    std::chrono::duration_cast<std::chrono::nanoseconds>(event.at.time_since_epoch()).count();
            }
            if (good) {
                object["from"] = sender;
                object.update(frameJson(groups, decoded, event.frame));
            } else if (hasFrame(event.kind)) {
                object["cmd_one"] = event.frame.cmdOne;
                object["cmd_two"] = event.frame.cmdTwo;
                object["params"] = catalogue::formatHexBytes(event.frame.params);
                object["bytes"] = catalogue::formatHexBytes(event.bytes);
                if (event.masked) {
                    object["masked"] = true;
                }
            }
            printJson(object);
        } else if (good) {
            std::printf("%-7s  %s  %s\n", sender, station::frameText(event).c_str(),
                        catalogue::format(groups, decoded, event.frame).c_str());
        } else if (hasFrame(event.kind)) {
            std::puts(("corrupt  " + station::frameText(event) + "  (! wrong checksum)").c_str());
        } else {
            std::puts(name(event.kind));
        }
    }

    /// @returns the beginning of a frame, masked where the catalogue has a secret.
    static std::vector<std::uint8_t> withoutSecret(std::vector<std::uint8_t> bytes)
    {
        constexpr std::size_t kPlain = 6;  // header, length and code
        if (bytes.size() > kPlain) {
            const auto params = bytes.begin() + kPlain;
            protocol::Frame frame{bytes[4], bytes[5], {params, bytes.end()}};
            catalogue::maskSecrets(catalogue::groups(), frame);
            std::ranges::copy(frame.params, params);
        }
        return bytes;
    }

    void printBytes(const char* kind, const std::vector<std::uint8_t>& bytes) const
    {
        const std::string text = catalogue::formatHexBytes(bytes);
        if (json_) {
            printJson({{"type", kind}, {"bytes", text}});
            return;
        }
        std::printf("%s: %s\n", kind, text.c_str());
    }

    Side side_;
    bool json_;
    bool foundFrame_ = false;
    station::Attribution attribution_{catalogue::groups()};
    station::SecretMask mask_{catalogue::groups()};
};

void decodeFile(const std::string& path, const DecodeOptions& options, const Tool& tool, DecodePrinter& printer)
{
    const auto input = openInput(path, tool.interrupt);
    station::CaptureReader reader(*input, nameOfInput(path), options.terms);
    while (auto piece = reader.next()) {
        printer.print(*std::move(piece));
    }
    complainOfIgnored(nameOfInput(path), reader.ignored());
}

/// @returns whether the arguments name files, rather than being bytes themselves.
bool areFiles(const std::vector<std::string>& inputs)
{
    if (inputs.empty()) {
        return true;
    }
    for (const std::string& input : inputs) {
        std::error_code error;
        const bool hexadecimal = protocol::catalogue::parseHexBytes(input).has_value();
        if (input == "-" || (!hexadecimal && std::filesystem::exists(input, error))) {
            return true;
        }
    }
    return false;
}

int decode(const DecodeOptions& options, Tool& tool)
{
    DecodePrinter printer(sideOf(options.from), tool.json);
    if (areFiles(options.inputs)) {
        const auto inputs = options.inputs.empty() ? std::vector<std::string>{"-"} : options.inputs;
        for (const std::string& input : inputs) {
            decodeFile(input, options, tool, printer);
        }
    } else {
        const std::string& first = options.inputs.front();
        const bool word = first.find_first_of(" \t\n[") == std::string::npos;
        if (options.inputs.size() == 1 && word && !catalogue::parseHexBytes(first)) {
            throw protocol::UserError(fmt::format("no such file: {} (or bytes such as '2A A2')", first));
        }
        for (const ScannedPiece& piece : station::readHexArguments(options.inputs)) {
            printer.print(piece);
        }
    }
    if (!printer.foundFrame()) {
        complain(kProgram,
                 "expected a valid frame, from 2A A2 to its checksum, or its content in quotes, as in '8F 00 [01]', "
                 "got none");
        return kFailed;
    }
    return kPassed;
}

}  // namespace

void addDecode(Tool& tool)
{
    const auto options = std::make_shared<DecodeOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "decode",
        "Print the meaning of frames\n"
        "The input is bytes in hexadecimal, as arguments, in a file or on standard input. A file may also be the raw "
        "bytes of a line, or a capture: pcapng or pcap (link type USER0), Saleae CSV, sigrok UART annotations, xxd, "
        "hexdump -C, or a log with TX: and RX:. Each frame is one line with its sender, its bytes and its meaning. "
        "Garbage, frames with a wrong checksum and incomplete frames appear in their place. Frames that the catalogue "
        "does not know stay bytes. If no frame is valid, it fails.");
    verb->add_option("INPUT", options->inputs,
                     "Bytes in hexadecimal, contents of frames such as '8F 00 [01]' in quotes, or files; - or none for "
                     "standard input")
        ->type_name("FILE");
    verb->add_option("--from", options->from,
                     "Sender of the frames; auto takes it from the capture, or from bit 7 of the group")
        ->check(CLI::IsMember({"auto", "unit", "station"}))
        ->default_str("auto");
    addCaptureTerms(*verb, options->terms);
    verb->footer(
        "Examples:\n"
        "  engineering-station decode 2A A2 00 04 82 01 24 FE FE 57\n"
        "  engineering-station decode '82 01 [24 FE]'\n"
        "  engineering-station decode trace.pcapng\n"
        "  engineering-station decode --station 'UART to unit' logic.csv");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return decode(*options, tool); }; });
}

}  // namespace programs::station_tool
