#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "programs/Cli.h"

namespace programs {

namespace {

constexpr std::size_t kHelpWidth = 100;
constexpr std::size_t kLeftColumn = 26;

/// A row of two columns; the left one has a line of its own when it is too long.
std::string row(const std::string& left, const std::string& right)
{
    std::string text = "  " + left;
    std::size_t column = text.size();
    for (const std::string& line : wrapped(right, kHelpWidth - kLeftColumn)) {
        if (column + 2 > kLeftColumn) {
            text += '\n';
            column = 0;
        }
        text += std::string(kLeftColumn - column, ' ') + line;
        column = kLeftColumn;
    }
    return text + '\n';
}

std::string section(const std::string& title, const std::vector<const CLI::Option*>& options)
{
    std::string text;
    for (const CLI::Option* option : options) {
        text += row(signatureOf(*option), meaningOf(*option));
    }
    return text.empty() ? "" : "\n" + title + ":\n" + text;
}

}  // namespace

std::vector<std::string> wrapped(const std::string& text, std::size_t width)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string paragraph; std::getline(stream, paragraph);) {
        if (paragraph.starts_with(' ')) {
            lines.push_back(paragraph);
            continue;
        }
        std::istringstream words(paragraph);
        std::string line;
        for (std::string word; words >> word;) {
            if (!line.empty() && line.size() + 1 + word.size() > width) {
                lines.push_back(line);
                line.clear();
            }
            line += (line.empty() ? "" : " ") + word;
        }
        lines.push_back(line);
    }
    return lines;
}

std::string signatureOf(const CLI::Option& option)
{
    if (option.get_positional() && !option.nonpositional()) {
        return option.get_name(true, false) +
               (option.get_expected_max() >= CLI::detail::expected_max_vector_size ? "..." : "");
    }
    std::string text;
    for (const std::string& name : option.get_snames()) {
        text += (text.empty() ? "-" : ", -") + name;
    }
    for (const std::string& name : option.get_lnames()) {
        text += (text.empty() ? "--" : ", --") + name;
    }
    return takesValue(option) ? text + " " + valueName(option) : text;
}

std::string meaningOf(const CLI::Option& option)
{
    std::string text = option.get_description();
    if (const auto values = valuesOf(option); !values.empty()) {
        text += fmt::format(" (one of {})", fmt::join(values, ", "));
    }
    if (takesValue(option) && !option.get_default_str().empty()) {
        text += fmt::format(" [{}]", option.get_default_str());
    }
    return text;
}

std::string usageOf(const CLI::App& verb)
{
    std::string text = pathOf(verb) + " [OPTIONS]";
    for (const CLI::Option* option : positionalsOf(verb)) {
        text += option->get_required() ? " " + signatureOf(*option) : " [" + signatureOf(*option) + "]";
    }
    return verbsOf(verb).empty() ? text : text + (verb.get_require_subcommand_min() > 0 ? " VERB …" : " [VERB …]");
}

namespace {

/// The layout of --help: verbs with the first line of their description, options in two columns of which the second is
/// wrapped, the options that every verb takes named with each.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};

std::string HelpFormatter::make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const
{
    std::string text = "Usage: " + usageOf(*app) + "\n\n";
    for (const std::string& part : {titleOf(*app), detailsOf(*app)}) {
        for (const std::string& line : wrapped(part, kHelpWidth)) {
            text += line + "\n";
        }
        text += "\n";
    }
    text.resize(text.find_last_not_of('\n') + 2);
    std::string verbs;
    for (const CLI::App* verb : verbsOf(*app)) {
        verbs += row(verb->get_name(), titleOf(*verb));
    }
    text += verbs.empty() ? "" : "\nVerbs:\n" + verbs;
    text += section("Arguments", positionalsOf(*app));
    text += section("Options", optionsOf(*app));
    text += section("Options of every verb", inheritedOptionsOf(*app));
    if (!app->get_footer().empty()) {
        text += "\n" + app->get_footer() + "\n";
    }
    return text;
}

}  // namespace

void setUpHelp(CLI::App& app)
{
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", app.get_name() + " " ENGINEERING_VERSION, "Print the version and exit");
}

}  // namespace programs
