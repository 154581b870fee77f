#include "protocol/catalogue/Catalogue.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/CatalogueText.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Document.h"
#include "protocol/catalogue/HexBytes.h"
#include "protocol/toml/Problem.h"
#include "station/record/ValueText.h"

namespace programs::station_tool {

namespace {

namespace catalogue = protocol::catalogue;
using nlohmann::ordered_json;

void printText(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
}

int showAll(bool json)
{
    if (json) {
        ordered_json groups = ordered_json::array();
        for (const catalogue::Group& group : catalogue::groups()) {
            groups.push_back(groupJson(group));
        }
        printJson({{"sha256", catalogue::hash()}, {"groups", groups}});
        return kPassed;
    }
    const char* between = "";
    for (const catalogue::Group& group : catalogue::groups()) {
        printText(between + groupText(group));
        between = "\n";
    }
    return kPassed;
}

/// @returns the key of what has the codes "02" or "02.01", with or without bit 7 of the group; any other text as it
/// stands.
std::string keyOf(catalogue::Groups groups, const std::string& text)
{
    const auto dot = text.find('.');
    const auto one = catalogue::parseHexByte(text.substr(0, dot));
    const auto* group =
        one ? catalogue::findGroup(groups, static_cast<std::uint8_t>(*one & ~protocol::kReplyBit)) : nullptr;
    if (group == nullptr || dot == std::string::npos) {
        return group == nullptr ? text : std::string(group->key);
    }
    const auto two = catalogue::parseHexByte(text.substr(dot + 1));
    if (const auto* command = two ? catalogue::findCommand(groups, group->code, *two) : nullptr) {
        return catalogue::fullKey(groups, *command);
    }
    const auto notice =
        std::ranges::find_if(group->notices, [&](const catalogue::Notice& each) { return two && each.cmdTwo == *two; });
    return notice == group->notices.end() ? text : catalogue::fullKey(groups, *notice);
}

int show(const std::string& text, bool json)
{
    const auto groups = catalogue::groups();
    if (text.empty()) {
        return showAll(json);
    }
    const std::string key = keyOf(groups, text);
    if (const auto* group = catalogue::findGroup(groups, std::string_view(key))) {
        json ? printJson(groupJson(*group)) : printText(groupText(*group));
    } else if (const auto* command = catalogue::findCommand(groups, std::string_view(key))) {
        json ? printJson(commandJson(groups, *command)) : printText(commandText(groups, *command));
    } else if (const auto* notice = catalogue::findNotice(groups, key)) {
        json ? printJson(noticeJson(groups, *notice)) : printText(noticeText(groups, *notice));
    } else {
        throw protocol::UserError(catalogue::noSuchCommand(groups, key));
    }
    return kPassed;
}

int list(bool json)
{
    const auto groups = catalogue::groups();
    if (!json) {
        printText(listText(groups));
        return kPassed;
    }
    ordered_json keys = ordered_json::array();
    ordered_json notices = ordered_json::array();
    for (const catalogue::Group& group : groups) {
        for (const catalogue::Command& command : group.commands) {
            keys.push_back(catalogue::fullKey(groups, command));
        }
        for (const catalogue::Notice& notice : group.notices) {
            notices.push_back(catalogue::fullKey(groups, notice));
        }
    }
    printJson({{"commands", keys}, {"notices", notices}});
    return kPassed;
}

/// @returns "93 commands, 2 notices".
std::string countText(catalogue::Groups groups)
{
    std::size_t commands = 0;
    std::size_t notices = 0;
    for (const catalogue::Group& group : groups) {
        commands += group.commands.size();
        notices += group.notices.size();
    }
    return protocol::plural(commands, "command") + ", " + protocol::plural(notices, "notice");
}

int check(const std::string& path, Tool& tool)
{
    const std::string text = readInput(path, tool.interrupt);
    const catalogue::Document document(text);
    const auto& problems = document.problems();
    if (tool.json) {
        ordered_json array = ordered_json::array();
        for (const auto& problem : problems) {
            array.push_back({{"line", problem.line}, {"column", problem.column}, {"text", problem.text}});
        }
        printJson({{"file", path}, {"problems", array}});
    } else {
        for (const auto& problem : problems) {
            complainOfFile(protocol::toml_file::format(path, problem));
        }
        if (problems.empty()) {
            printText(station::record::printable(path) + ": sound, " + countText(document.groups()) + "\n");
        }
    }
    return problems.empty() ? kPassed : kWrongUse;
}

void addCatalogueShow(Tool& tool, CLI::App& noun)
{
    const auto key = std::make_shared<std::string>();
    CLI::App* verb = noun.add_subcommand("show",
                                         "Print the catalogue\n"
                                         "Without a key, it prints all groups, one line per command; with --json, "
                                         "one object with everything.");
    verb->add_option("KEY", *key, "GROUP, GROUP.COMMAND or GROUP.NOTICE; or codes in hexadecimal: 02, 02.01")
        ->type_name("KEY");
    verb->footer(
        "Examples:\n"
        "  engineering-station catalogue show tuner\n"
        "  engineering-station catalogue show tuner.tune\n"
        "  engineering-station catalogue show --json");
    verb->callback([&tool, key] { tool.action = [&tool, key] { return show(*key, tool.json); }; });
}

void addCatalogueList(Tool& tool, CLI::App& noun)
{
    CLI::App* verb = noun.add_subcommand("list",
                                         "Print the codes and keys of all commands, one per line\n"
                                         "Notices, which the unit sends by itself, are marked '(sent unasked)'.");
    verb->footer(
        "Examples:\n"
        "  engineering-station catalogue list");
    verb->callback([&tool] { tool.action = [&tool] { return list(tool.json); }; });
}

void addCatalogueCheck(Tool& tool, CLI::App& noun)
{
    const auto path = std::make_shared<std::string>();
    CLI::App* verb = noun.add_subcommand("check",
                                         "Check a catalogue file\n"
                                         "Each error is a line FILE:LINE:COLUMN: TEXT on standard error.");
    verb->add_option("FILE", *path, "Catalogue in TOML; - for standard input")->type_name("FILE")->required();
    verb->footer(
        "Examples:\n"
        "  engineering-station catalogue check protocol/catalogue.toml");
    verb->callback([&tool, path] { tool.action = [&tool, path] { return check(*path, tool); }; });
}

}  // namespace

void addCatalogue(Tool& tool)
{
    CLI::App* noun = tool.app.add_subcommand("catalogue",
                                             "Print or check the catalogue of the protocol\n"
                                             "The tool contains a catalogue of all commands, replies and notices.");
    noun->require_subcommand(1);
    addCatalogueShow(tool, *noun);
    addCatalogueList(tool, *noun);
    addCatalogueCheck(tool, *noun);
}

}  // namespace programs::station_tool
