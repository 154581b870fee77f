#include "programs/Cli.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>

#include "protocol/Text.h"

namespace programs {

namespace {

using protocol::inQuotes;

const CLI::App& deepest(const CLI::App& app)
{
    const CLI::App* verb = &app;
    while (!verb->get_subcommands().empty()) {
        verb = verb->get_subcommands().back();
    }
    return *verb;
}

/// @returns "plan run: ", the place in a message that begins with the program's name.
std::string placeOf(const CLI::App& verb)
{
    const std::string path = pathOf(verb);
    const auto blank = path.find(' ');
    return blank == std::string::npos ? "" : path.substr(blank + 1) + ": ";
}

std::string didYouMean(const std::string& typed, const std::vector<std::string>& words)
{
    const std::vector<std::string_view> views(words.begin(), words.end());
    return protocol::didYouMean(typed, views);
}

/// @returns "expected one of a, b, got 'c'", or the word that was probably meant.
std::string expectedOneOf(const std::vector<std::string>& words, const std::string& typed)
{
    return fmt::format("expected one of {}, got {}{}", fmt::join(words, ", "), inQuotes(typed),
                       didYouMean(typed, words));
}

std::vector<std::string> namesOf(const std::vector<const CLI::App*>& verbs)
{
    std::vector<std::string> names;
    std::ranges::transform(verbs, std::back_inserter(names), [](const CLI::App* verb) { return verb->get_name(); });
    return names;
}

/// @returns whether the word is an option and not the '-' or "--" that are arguments.
bool isOption(const std::string& word)
{
    return word.starts_with("-") && word.size() > 1 && word != "--";
}

/// @returns how many words at the front of `words` are options of a verb below, and their values.
std::size_t countOptionsOfVerbsBelow(const CLI::App& verb, const std::vector<std::string>& words)
{
    std::size_t count = 0;
    while (count < words.size() && isOption(words[count]) && !verbsOf(verb).empty()) {
        const auto equals = words[count].find('=');
        const CLI::Option* const option = findOption(verb, words[count].substr(0, equals));
        if (option == nullptr) {
            break;
        }
        count += takesValue(*option) && equals == std::string::npos ? 2 : 1;
    }
    return std::min(count, words.size());
}

/// @returns "; did you mean '--set NAME=VALUE'?" for an assignment whose option is missing; else empty.
std::string didYouMeanOption(const CLI::App& verb, const std::string& word)
{
    const auto options = optionsOf(verb);
    const auto takesAssignment = [](const CLI::Option* option) {
        return valueName(*option).find('=') != std::string::npos;
    };
    const auto found = std::ranges::find_if(options, takesAssignment);
    return found == options.end() || word.find('=') == std::string::npos
               ? ""
               : fmt::format("; did you mean {}?", inQuotes((*found)->get_name() + " " + word));
}

/// @returns the mistake in a command line with an unknown `word`.
std::string explainWord(const CLI::App& verb, const std::string& word)
{
    const std::string option = word.substr(0, word.find('='));
    // A known one that was not understood stands behind "--".
    if (isOption(word) && findOption(verb, option) == nullptr) {
        std::vector<std::string> names;
        for (const CLI::Option* each : allOptionsOf(verb)) {
            std::ranges::copy(spellings(*each), std::back_inserter(names));
        }
        return fmt::format("unknown option {}{}", inQuotes(option), option.size() > 2 ? didYouMean(option, names) : "");
    }
    const auto names = namesOf(verbsOf(verb));
    if (names.empty()) {
        return fmt::format("expected no further argument, got {}{}", inQuotes(word), didYouMeanOption(verb, word));
    }
    const std::string suggestion = didYouMean(word, names);
    return fmt::format("unknown verb {}{}", inQuotes(word),
                       suggestion.empty() ? fmt::format("; expected one of {}", fmt::join(names, ", ")) : suggestion);
}

/// @returns the mistake in a command line that lacks something.
std::string explainMissing(const CLI::App& verb)
{
    const auto missing =
        verb.get_options([](const CLI::Option* each) { return each->get_required() && each->count() == 0; });
    return missing.empty() ? fmt::format("expected a verb ({}), got none", fmt::join(namesOf(verbsOf(verb)), ", "))
                           : fmt::format("expected {}, got none", signatureOf(*missing.front()));
}

/// @returns the option that CLI11's error names, without which the error is not about one; and the value in it.
std::pair<const CLI::Option*, std::string> optionIn(const CLI::App& verb, const std::string& error)
{
    // "Could not convert: NAME = VALUE", "NAME: …", "NAME was given …", "The value VALUE is not … for NAME".
    constexpr std::string_view kConversion = "Could not convert: ";
    const std::string text = error.starts_with(kConversion) ? error.substr(kConversion.size()) : error;
    const std::string first = text.substr(0, text.find_first_of(": "));
    const std::string last = text.substr(text.rfind(' ') + 1);
    for (const CLI::App* at = &verb; at != nullptr; at = at->get_parent()) {
        for (const CLI::Option* option : at->get_options()) {
            if (const std::string name = option->get_name(); name == first || name == last) {
                const auto value = std::min(text.size(), first.size() + (error == text ? 2 : 3));
                return {option, name == first ? text.substr(value) : ""};
            }
        }
    }
    return {};
}

/// @returns the mistake in the value of an option or argument.
std::string explainValue(const CLI::App& verb, const CLI::ParseError& error)
{
    const auto [option, text] = optionIn(verb, error.what());
    if (option == nullptr) {
        return error.what();
    }
    const std::string name = option->get_name();
    if (!takesValue(*option)) {
        return fmt::format("{}: expected no value, got one", name);
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        return option->count() > 1 ? fmt::format("{}: expected one value, got {}", name, option->count())
                                   : fmt::format("{}: expected {}, got none", name, valueName(*option));
    }
    if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
        return fmt::format("{}: expected a number, got {}", name, inQuotes(text));
    }
    const auto values = valuesOf(*option);
    // The text of CLI::IsMember: "VALUE not in {A,B}".
    const auto end = text.rfind(" not in {");
    return fmt::format("{}: {}", name,
                       values.empty() || end == std::string::npos ? text : expectedOneOf(values, text.substr(0, end)));
}

std::string withoutPlace(const CLI::App& app, const CLI::App& verb, const CLI::ParseError& error)
{
    const auto unknown = app.remaining(true);
    const bool notUnderstood = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const bool missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if ((notUnderstood || missing) && !unknown.empty()) {
        const std::size_t options = countOptionsOfVerbsBelow(verb, unknown);
        return options == unknown.size() ? fmt::format("expected a verb behind {}", unknown.front())
                                         : explainWord(verb, unknown[options]);
    }
    if (missing) {
        return explainMissing(verb);
    }
    if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
        std::string text = error.what();
        text.replace(text.find(" excludes "), std::string_view(" excludes ").size(), " or ");
        return fmt::format("expected {}, got both", text);
    }
    if (dynamic_cast<const CLI::RequiresError*>(&error) != nullptr) {
        constexpr std::string_view kBetween = " requires ";
        const std::string text = error.what();
        const auto between = text.find(kBetween);
        return fmt::format("{}: expected {} with it, got none", text.substr(0, between),
                           text.substr(between + kBetween.size()));
    }
    return explainValue(verb, error);
}

/// @param swallowed becomes the mistake when an option took a verb as its value, and no verb came behind it.
/// @returns the words with the verb first and the options that stood before it right behind it.
std::vector<std::string> verbFirst(const CLI::App& app, std::vector<std::string> words,
                                   std::optional<CLI::ValidationError>& swallowed)
{
    const auto isVerbOf = [](const CLI::App& above, const std::string& word) {
        return std::ranges::count(namesOf(verbsOf(above)), word) > 0;
    };
    std::vector<std::string> path;
    std::vector<std::string> options;
    const CLI::App* verb = &app;
    auto word = words.begin();
    while (word != words.end()) {
        if (isOption(*word)) {
            const CLI::Option* const option = findOption(*verb, *word);
            const bool two = option != nullptr && takesValue(*option) && word + 1 != words.end();
            if (two && !swallowed && isVerbOf(*verb, word[1])) {
                swallowed.emplace(*word,
                                  fmt::format("expected {}, got the verb {}", valueName(*option), inQuotes(word[1])));
            }
            options.insert(options.end(), word, word + (two ? 2 : 1));
            word += two ? 2 : 1;
            continue;
        }
        const auto below = verbsOf(*verb);
        const auto found = std::ranges::find(below, *word, [](const CLI::App* each) { return each->get_name(); });
        if (found == below.end()) {
            break;
        }
        verb = *found;
        swallowed.reset();
        path.push_back(*word++);
    }
    if (path.empty()) {
        return words;
    }
    path.insert(path.end(), options.begin(), options.end());
    path.insert(path.end(), word, words.end());
    return path;
}

}  // namespace

void complain(const char* program, const std::string& message)
{
    std::fprintf(stderr, "%s: %s\n", program, protocol::printable(message).c_str());
}

void readCommandLine(CLI::App& app, int argc, char** argv)
{
    std::optional<CLI::ValidationError> swallowed;
    auto words = verbFirst(app, {argv + 1, argv + argc}, swallowed);
    // CLI11 takes them from the back.
    std::ranges::reverse(words);
    try {
        app.parse(words);
    } catch (const CLI::Success&) {
        throw;
    } catch (const CLI::ParseError&) {
        if (swallowed) {
            throw CLI::ValidationError(*swallowed);
        }
        throw;
    }
}

std::string explain(const CLI::App& app, const CLI::ParseError& error)
{
    const CLI::App& verb = deepest(app);
    return fmt::format("{}{} (see '{} --help')", placeOf(verb), withoutPlace(app, verb, error), pathOf(verb));
}

std::optional<int> parse(CLI::App& app, int argc, char** argv)
{
    if (app.get_version_ptr() == nullptr) {
        setUpHelp(app);
    }
    try {
        readCommandLine(app, argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& request) {
        return app.exit(request);
    } catch (const CLI::ParseError& error) {
        complain(app.get_name().c_str(), explain(app, error));
        return protocol::kWrongUse;
    }
}

CLI::Validator secondsUpTo(double most)
{
    return {[most](std::string& text) {
                double seconds = 0;
                const auto result = std::from_chars(text.data(), text.data() + text.size(), seconds);
                const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
                return whole && seconds >= 0 && seconds <= most
                           ? ""
                           : fmt::format("expected a number of seconds from 0 to {:.0f}, got {}", most, inQuotes(text));
            },
            ""};
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

const CLI::Option* findOption(const CLI::App& verb, const std::string& name)
{
    for (const CLI::Option* option : allOptionsOf(verb)) {
        if (std::ranges::count(spellings(*option), name) > 0) {
            return option;
        }
    }
    for (const CLI::App* below : verbsOf(verb)) {
        if (const CLI::Option* option = findOption(*below, name)) {
            return option;
        }
    }
    return nullptr;
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
    return own.empty() || own == "TEXT" ? "VALUE" : own == "UINT" ? "NUMBER" : own;
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

}  // namespace programs
