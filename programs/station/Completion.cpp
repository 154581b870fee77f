#include "programs/station/Completion.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string_view>

#include "programs/Cli.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/ports/SerialPorts.h"

namespace programs::station_tool {

namespace {

/// The words of the line are taken from COMP_LINE: bash cuts COMP_WORDS at every '=' and ':'.
constexpr const char* kBash = R"bash(# bash completion of engineering-station
_engineering_station() {
    local line words=() cur option='' word meaning break
    if [[ -n $COMP_LINE ]]; then
        line=${COMP_LINE:0:COMP_POINT}
        read -ra words <<<"$line"
        [[ $line == *[[:space:]] ]] && words+=('')
    else
        words=("${COMP_WORDS[@]:0:COMP_CWORD+1}")
    fi
    cur=${words[${#words[@]} - 1]}
    [[ $cur == --*=* ]] && option=${cur%%=*}=

    COMPREPLY=()
    while IFS=$'\t' read -r word meaning; do
        local IFS=$'\n'
        case $word in
            :files) COMPREPLY+=($(compgen -P "$option" -f -- "${cur#"$option"}")); compopt -o filenames 2>/dev/null ;;
            :directories) COMPREPLY+=($(compgen -P "$option" -d -- "${cur#"$option"}")); compopt -o filenames 2>/dev/null ;;
            *=) COMPREPLY+=("$word"); compopt -o nospace 2>/dev/null ;;
            *) COMPREPLY+=("$word") ;;
        esac
    done < <("${words[0]/#\~/$HOME}" __complete "${words[@]:1}" 2>/dev/null)

    # Where bash has cut the word at its last '=' or ':', it expects the rest only.
    for break in '=' ':'; do
        if [[ $cur == *"$break"* && $COMP_WORDBREAKS == *"$break"* ]]; then
            COMPREPLY=("${COMPREPLY[@]#"${cur%"$break"*}$break"}")
        fi
    done
}

complete -F _engineering_station engineering-station
)bash";

constexpr const char* kZsh = R"zsh(#compdef engineering-station
# zsh completion of engineering-station
_engineering-station() {
    local word meaning
    local -a spaced open
    while IFS=$'\t' read -r word meaning; do
        case $word in
            :files) [[ $PREFIX == --*=* ]] && compset -P '*='; _files ;;
            :directories) [[ $PREFIX == --*=* ]] && compset -P '*='; _files -/ ;;
            *=) open+=("${word//:/\\:}:$meaning") ;;
            *) spaced+=("${word//:/\\:}:$meaning") ;;
        esac
    done < <("${words[1]/#\~/$HOME}" __complete "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)
    (( $#spaced )) && _describe 'word' spaced
    (( $#open )) && _describe 'parameter' open -S ''
    return 0
}

# In a file of $fpath this text is the function itself.
if [[ $funcstack[1] == _engineering-station ]]; then
    _engineering-station
else
    compdef _engineering-station engineering-station
fi
)zsh";

constexpr const char* kFish = R"fish(# fish completion of engineering-station
function __engineering_station
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l option (string match -r -- '^--[^=]*=' $current)
    for line in (command $words[1] __complete $words[2..-1] "$current" 2>/dev/null)
        switch $line
            case ':files*'
                printf "$option%s\n" (__fish_complete_path (string replace -- "$option" '' $current))
            case ':directories*'
                printf "$option%s\n" (__fish_complete_directories (string replace -- "$option" '' $current))
            case '*'
                echo $line
        end
    end
end

complete --command engineering-station --no-files --arguments '(__engineering_station)'
)fish";

const std::map<std::string, const char*> kScripts{{"bash", kBash}, {"zsh", kZsh}, {"fish", kFish}};

using Candidates = std::vector<Candidate>;

/// Completes one command line.
class Completer
{
public:
    Completer(const CLI::App& app, const std::function<Candidates()>& ports) : verb_(&app), ports_(ports) {}

    void pass(const std::string& word)
    {
        if (option_ != nullptr) {
            option_ = nullptr;
        } else if (word.starts_with("-") && word.size() > 1) {
            const CLI::Option* option = findOption(*verb_, word);
            option_ = option != nullptr && takesValue(*option) ? option : nullptr;
        } else if (const CLI::App* below = arguments_.empty() ? verbBelow(word) : nullptr) {
            verb_ = below;
        } else {
            arguments_.push_back(word);
        }
    }

    Candidates complete(const std::string& current) const
    {
        if (option_ != nullptr) {
            return values(*option_, current);
        }
        if (const auto equals = current.find('='); current.starts_with("--") && equals != std::string::npos) {
            const CLI::Option* option = findOption(*verb_, current.substr(0, equals));
            return option != nullptr ? behind(current, values(*option, current.substr(equals + 1))) : Candidates();
        }
        Candidates all;
        if (current.starts_with("-")) {
            for (const CLI::Option* option : allOptionsOf(*verb_)) {
                for (const std::string& name : spellings(*option)) {
                    all.push_back({name, option->get_description()});
                }
            }
            return matching(std::move(all), current);
        }
        for (const CLI::App* below : verbsOf(*verb_)) {
            all.push_back({below->get_name(), titleOf(*below)});
        }
        if (!all.empty()) {
            return matching(std::move(all), current);
        }
        const auto positionals = positionalsOf(*verb_);
        if (positionals.empty()) {
            return {};
        }
        const CLI::Option& first = *positionals.front();
        return valueName(first) == "COMMAND" && !arguments_.empty() ? parameters(current) : values(first, current);
    }

private:
    static Candidates matching(Candidates all, const std::string& current)
    {
        std::erase_if(all, [&](const Candidate& each) { return !each.word.starts_with(current); });
        return all;
    }

    /// Puts the beginning of `current`, up to its first '=', before each value.
    static Candidates behind(const std::string& current, Candidates values)
    {
        for (Candidate& value : values) {
            if (!value.word.starts_with(":")) {
                value.word.insert(0, current, 0, current.find('=') + 1);
            }
        }
        return values;
    }

    const CLI::App* verbBelow(const std::string& name) const
    {
        const auto verbs = verbsOf(*verb_);
        const auto found = std::ranges::find(verbs, name, [](const CLI::App* each) { return each->get_name(); });
        return found == verbs.end() ? nullptr : *found;
    }

    Candidates values(const CLI::Option& option, const std::string& current) const
    {
        const std::string kind = valueName(option);
        Candidates all;
        for (const std::string& value : valuesOf(option)) {
            all.push_back({value, ""});
        }
        if (kind == "FILE") {
            return {{kFileNames, ""}};
        }
        if (kind == "DIR") {
            return {{kDirectoryNames, ""}};
        }
        if (kind == "PORT") {
            all = matching(ports_(), current);
            return all.empty() && !current.empty() ? Candidates{{kFileNames, ""}} : all;
        }
        if (kind == "COMMAND" || kind == "KEY") {
            addKeys(all, kind == "KEY");
        }
        return matching(std::move(all), current);
    }

    static void addKeys(Candidates& all, bool withGroupsAndNotices)
    {
        namespace catalogue = protocol::catalogue;
        const auto groups = catalogue::groups();
        for (const catalogue::Group& group : groups) {
            if (withGroupsAndNotices) {
                all.push_back({std::string(group.key), std::string(group.title)});
                for (const catalogue::Notice& notice : group.notices) {
                    all.push_back({catalogue::fullKey(groups, notice), std::string(notice.title)});
                }
            }
            for (const catalogue::Command& command : group.commands) {
                all.push_back({catalogue::fullKey(groups, command), std::string(command.title)});
            }
        }
    }

    /// NAME=VALUE of the command that is the first argument.
    Candidates parameters(const std::string& current) const
    {
        namespace catalogue = protocol::catalogue;
        const auto* command = catalogue::findCommand(catalogue::groups(), std::string_view(arguments_.front()));
        Candidates all;
        if (command == nullptr) {
            return all;
        }
        for (const catalogue::Field& field : command->params) {
            const std::string name = std::string(field.name) + "=";
            if (!current.starts_with(name)) {
                all.push_back({name, std::string(field.meaning)});
            }
            for (const catalogue::Choice& choice :
                 current.starts_with(name) ? field.choices : decltype(field.choices)()) {
                all.push_back({name + std::string(choice.name), std::to_string(choice.value)});
            }
        }
        return matching(std::move(all), current);
    }

    const CLI::App* verb_;
    const std::function<Candidates()>& ports_;
    const CLI::Option* option_ = nullptr;  ///< the next word is its value
    std::vector<std::string> arguments_;
};

/// @returns the bench's link and the machine's ports.
Candidates knownPorts()
{
    Candidates all;
    std::error_code error;
    if (std::filesystem::exists(station::defaultPort(), error)) {
        all.push_back({station::defaultPort(), "bench"});
    }
    for (const station::SerialPort& port : station::listSerialPorts()) {
        for (const std::string& name : port.stableNames) {
            all.push_back({name, port.product});
        }
        all.push_back({port.device, port.product});
    }
    return all;
}

}  // namespace

std::vector<Candidate> completions(const CLI::App& app, const std::vector<std::string>& words,
                                   const std::function<std::vector<Candidate>()>& ports)
{
    if (words.empty()) {
        return {};
    }
    Completer completer(app, ports);
    std::for_each(words.begin(), words.end() - 1, [&](const std::string& word) { completer.pass(word); });
    return completer.complete(words.back());
}

bool printCompletions(const CLI::App& app, int argc, char** argv)
{
    if (argc < 2 || std::string_view(argv[1]) != "__complete") {
        return false;
    }
    for (const Candidate& each : completions(app, {argv + 2, argv + argc}, knownPorts)) {
        std::printf("%s\t%s\n", each.word.c_str(), each.meaning.c_str());
    }
    return true;
}

void addCompletion(Tool& tool)
{
    const auto shell = std::make_shared<std::string>();
    CLI::App* verb = tool.app.add_subcommand("completion",
                                             "Print the script that completes the command line in a shell\n"
                                             "The script asks the tool for verbs, options, names of the catalogue, "
                                             "parameters, choices and ports.");
    verb->add_option("SHELL", *shell, "Shell of the script")->check(CLI::IsMember({"bash", "zsh", "fish"}))->required();
    verb->footer(
        "Examples:\n"
        "  source <(engineering-station completion bash)\n"
        "  engineering-station completion zsh > ~/.zfunc/_engineering-station\n"
        "  engineering-station completion fish > ~/.config/fish/completions/engineering-station.fish");
    verb->callback([&tool, shell] {
        tool.action = [&tool, shell] {
            printText(kScripts.at(*shell), tool.json);
            return static_cast<int>(kPassed);
        };
    });
}

}  // namespace programs::station_tool
