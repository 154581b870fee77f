#include "programs/station/CommandLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <string_view>

#include "programs/Cli.h"
#include "programs/station/HelpFormatter.h"
#include "programs/station/Station.h"
#include "protocol/catalogue/Codec.h"

namespace programs::station_tool {

namespace {

const CLI::App& deepest(const CLI::App& app)
{
    const CLI::App* verb = &app;
    while (!verb->get_subcommands().empty()) {
        verb = verb->get_subcommands().back();
    }
    return *verb;
}

std::string didYouMean(const std::string& typed, const std::vector<std::string>& words)
{
    const std::vector<std::string_view> views(words.begin(), words.end());
    return protocol::didYouMean(typed, views);
}

std::vector<std::string> optionNames(const CLI::App& verb)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : allOptionsOf(verb)) {
        std::ranges::copy(spellings(*option), std::back_inserter(names));
    }
    return names;
}

std::vector<std::string> namesOf(const std::vector<const CLI::App*>& verbs)
{
    std::vector<std::string> names;
    std::ranges::transform(verbs, std::back_inserter(names), [](const CLI::App* verb) { return verb->get_name(); });
    return names;
}

/// @returns the error in a command line with an unknown `word`.
std::string explainWord(const CLI::App& verb, const std::string& word)
{
    if (word.starts_with("-") && word.size() > 1) {
        const std::string option = word.substr(0, word.find('='));
        return fmt::format("{}: unknown option '{}'{}", pathOf(verb), option, didYouMean(option, optionNames(verb)));
    }
    const auto names = namesOf(verbsOf(verb));
    if (names.empty()) {
        return fmt::format("{}: '{}' is one argument too many", pathOf(verb), word);
    }
    const std::string suggestion = didYouMean(word, names);
    return fmt::format("{}: unknown verb '{}'{}", pathOf(verb), word,
                       suggestion.empty() ? fmt::format("; expected one of {}", fmt::join(names, ", ")) : suggestion);
}

std::string explain(const CLI::App& app, const CLI::ParseError& error)
{
    const CLI::App& verb = deepest(app);
    const auto unknown = app.remaining(true);
    const bool notUnderstood = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if ((notUnderstood || missing) && !unknown.empty()) {
        return explainWord(verb, unknown.front());
    }
    if (missing && !verbsOf(verb).empty()) {
        return fmt::format("{}: expected a verb: {}", pathOf(verb), fmt::join(namesOf(verbsOf(verb)), ", "));
    }
    return error.what();
}

}  // namespace

void setUp(Tool& tool)
{
    CLI::App& app = tool.app;
    app.name(kProgram);
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.fallthrough();
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", std::string(kProgram) + " " ENGINEERING_VERSION, "Print the version and exit");
    app.add_flag("--json", tool.json, "Print data as JSON, one object a line, each with the number \"schema\"");
    app.add_option("--config", tool.station->given,
                   "The station's file; by default $ENGINEERING_STATION, else /etc/engineering/station.toml")
        ->type_name("FILE");
    std::string statuses = "Exit status:";
    for (const StatusMeaning& each : kStatusMeanings) {
        statuses += fmt::format("\n{:6}  {}", static_cast<int>(each.status), each.meaning);
    }
    app.footer(statuses);
    for (AddVerb* const add : kVerbs) {
        add(tool);
    }
}

std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& request) {
        std::ostringstream text;
        const int status = app.exit(request, text, text);
        const bool json = app.get_option("--json")->as<bool>();
        if (json && dynamic_cast<const CLI::CallForVersion*>(&request) != nullptr) {
            printJson({{"program", kProgram}, {"version", ENGINEERING_VERSION}});
        } else {
            printText(text.str(), json);
        }
        return status;
    } catch (const CLI::ParseError& error) {
        const std::string line = explain(app, error) + " (see '" + pathOf(deepest(app)) + " --help')";
        return printError(line, "user", kWrongUse, app.get_option("--json")->as<bool>());
    }
}

std::string pathOf(const CLI::App& verb)
{
    return verb.get_parent() == nullptr ? verb.get_name() : pathOf(*verb.get_parent()) + " " + verb.get_name();
}

std::string titleOf(const CLI::App& verb)
{
    const std::string text = verb.get_description();
    return text.substr(0, text.find('\n'));
}

std::string detailsOf(const CLI::App& verb)
{
    const std::string text = verb.get_description();
    const auto end = text.find('\n');
    return end == std::string::npos ? "" : text.substr(end + 1);
}

std::vector<const CLI::App*> verbsOf(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App* verb) { return !verb->get_group().empty(); });
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& verb)
{
    return verb.get_options(
        [](const CLI::Option* option) { return option->nonpositional() && !option->get_group().empty(); });
}

std::vector<const CLI::Option*> positionalsOf(const CLI::App& verb)
{
    return verb.get_options(
        [](const CLI::Option* option) { return option->get_positional() && !option->get_group().empty(); });
}

std::vector<const CLI::Option*> inheritedOptionsOf(const CLI::App& verb)
{
    std::vector<const CLI::Option*> options;
    for (const CLI::App* above = verb.get_parent(); above != nullptr; above = above->get_parent()) {
        std::ranges::copy_if(optionsOf(*above), std::back_inserter(options), [&](const CLI::Option* option) {
            return option != above->get_help_ptr() && !option->check_lname("version");
        });
    }
    return options;
}

std::vector<const CLI::Option*> allOptionsOf(const CLI::App& verb)
{
    auto options = optionsOf(verb);
    std::ranges::copy(inheritedOptionsOf(verb), std::back_inserter(options));
    return options;
}

std::vector<std::string> spellings(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    return names;
}

bool takesValue(const CLI::Option& option)
{
    return option.get_expected_max() != 0;
}

std::string valueName(const CLI::Option& option)
{
    const std::string name = option.get_type_name();
    const std::string own = name.substr(0, name.find_first_of(":{"));
    return own.empty() || own == "TEXT" ? "VALUE" : own;
}

std::vector<std::string> valuesOf(const CLI::Option& option)
{
    const std::string name = option.get_type_name();
    const auto begin = name.find('{');
    const auto end = name.find('}', begin);
    if (begin == std::string::npos || end == std::string::npos) {
        return {};
    }
    return CLI::detail::split(name.substr(begin + 1, end - begin - 1), ',');
}

}  // namespace programs::station_tool
