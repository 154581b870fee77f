#include <cstdio>
#include <sstream>
#include <string>

#include "programs/Cli.h"
#include "programs/station/Tool.h"

namespace programs::station_tool {

namespace {

/// Text for a line of roff: nothing in it is taken for a request or an escape.
std::string escaped(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool lineStart = out.empty() || out.back() == '\n';
        if (lineStart && (c == '.' || c == '\'')) {
            out += "\\&";
        }
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else if (text.substr(i).starts_with("…")) {
            out += "\\&...";
            i += std::string_view("…").size() - 1;
        } else {
            out += c;
        }
    }
    return out;
}

/// @returns the text with each of its lines as a paragraph of its own.
std::string paragraphs(const std::string& text)
{
    std::string out;
    for (const std::string& line : wrapped(text, static_cast<std::size_t>(-1))) {
        if (!line.empty()) {
            out += ".PP\n" + escaped(line) + "\n";
        }
    }
    return out;
}

std::string item(const std::string& tag, const std::string& text)
{
    return ".TP\n.B " + escaped(tag) + "\n" + escaped(text) + "\n";
}

std::string item(const CLI::Option& option)
{
    // The default port is that of the user who makes the page; others read it.
    const bool port = valueName(option) == "PORT";
    return item(signatureOf(option), port ? option.get_description() : meaningOf(option));
}

std::string items(const std::vector<const CLI::Option*>& options)
{
    std::string out;
    for (const CLI::Option* option : options) {
        out += item(*option);
    }
    return out;
}

/// @returns a footer: its indented lines as they stand, the others as paragraphs.
std::string footerText(const std::string& footer)
{
    std::string out;
    bool verbatim = false;
    const auto setVerbatim = [&](bool wanted) {
        if (wanted != verbatim) {
            out += wanted ? ".PP\n.RS 4\n.nf\n" : ".fi\n.RE\n";
            verbatim = wanted;
        }
    };
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        setVerbatim(line.starts_with("  "));
        if (verbatim) {
            out += escaped(line.substr(2)) + "\n";
        } else if (!line.empty()) {
            out += ".PP\n" + escaped(line) + "\n";
        }
    }
    setVerbatim(false);
    return out;
}

/// The verb and those below it, each under a heading of its own.
std::string verbText(const CLI::App& verb)
{
    std::string usage = usageOf(verb);
    usage.erase(0, std::string(kProgram).size() + 1);
    std::string out = ".SS " + escaped(usage) + "\n" + escaped(titleOf(verb)) + ".\n";
    out += paragraphs(detailsOf(verb)) + items(positionalsOf(verb));
    for (const CLI::Option* option : optionsOf(verb)) {
        if (option != verb.get_help_ptr()) {
            out += item(*option);
        }
    }
    out += footerText(verb.get_footer());
    for (const CLI::App* below : verbsOf(verb)) {
        out += verbText(*below);
    }
    return out;
}

std::string manual(const CLI::App& app)
{
    std::string out =
        ".TH ENGINEERING\\-STATION 1 \"\" \"engineering\\-station " ENGINEERING_VERSION "\" \"Commands\"\n";
    out += ".SH NAME\nengineering\\-station \\- the test station's side of a head unit's engineering line\n";
    out += ".SH SYNOPSIS\n.B engineering\\-station\nVERB [OPTIONS] \\&...\n";
    out += ".SH DESCRIPTION\n" + escaped(app.get_description()) + "\n";
    out += ".PP\nData goes to standard output, diagnostics to standard error, one line for each error.\n";
    out += ".SH OPTIONS\nEvery verb takes these.\n" + items(optionsOf(app));
    out += ".SH VERBS\n";
    for (const CLI::App* verb : verbsOf(app)) {
        out += verbText(*verb);
    }
    out += ".SH EXIT STATUS\n";
    for (const StatusMeaning& each : kStatusMeanings) {
        out += item(std::to_string(each.status), each.meaning);
    }
    out += ".SH ENVIRONMENT\n";
    out += item("NO_COLOR", "If it is set and not empty, output to a terminal has no colour.");
    out += item("TERM", "If it is dumb or not set, a terminal gets neither colour nor lines that change.");
    out += item("XDG_RUNTIME_DIR", "Directory of the default port, engineering/uart.");
    return out;
}

}  // namespace

void addMan(Tool& tool)
{
    CLI::App* verb =
        tool.app.add_subcommand("man",
                                "Print the manual page\n"
                                "It is made from the same descriptions as --help, in the format of man(1).");
    verb->footer(
        "Examples:\n"
        "  engineering-station man | man -l -");
    verb->callback([&tool] {
        tool.action = [&tool] {
            printText(manual(tool.app), tool.json);
            return static_cast<int>(kPassed);
        };
    });
}

}  // namespace programs::station_tool
