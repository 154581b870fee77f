#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "programs/station/CommandLine.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"

namespace programs::station_tool {

namespace {

namespace catalogue = protocol::catalogue;

/// What the script does with the tables that are put before it. A word is taken from the line rather than from
/// COMP_WORDS, which are cut at every '=' and ':'.
constexpr std::string_view kFunctions = R"bash(
_engineering_station_offer() {
    local cur=$1 words=$2
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
}

_engineering_station_files() {
    local IFS=$'\n'
    COMPREPLY=($(compgen "$2" -- "$1"))
    compopt -o filenames 2>/dev/null
}

_engineering_station_ports() {
    local cur=$1 port
    COMPREPLY=()
    for port in "${XDG_RUNTIME_DIR:+$XDG_RUNTIME_DIR/engineering/uart}" "/tmp/engineering-$UID/uart" \
        /dev/serial/by-id/* /dev/ttyUSB* /dev/ttyACM*; do
        [[ -n $port && -e $port && $port == "$cur"* ]] && COMPREPLY+=("$port")
    done
    if [[ ${#COMPREPLY[@]} -eq 0 && -n $cur ]]; then
        _engineering_station_files "$cur" -f
    fi
}

_engineering_station_value() {
    local cur=$1 kind=$2
    case $kind in
        @file) _engineering_station_files "$cur" -f ;;
        @directory) _engineering_station_files "$cur" -d ;;
        @port) _engineering_station_ports "$cur" ;;
        @command) _engineering_station_offer "$cur" "$_engineering_station_commands" ;;
        @group) _engineering_station_offer "$cur" "$_engineering_station_groups" ;;
        @key) _engineering_station_offer "$cur" \
            "$_engineering_station_groups $_engineering_station_commands $_engineering_station_notices" ;;
        @none | '') COMPREPLY=() ;;
        *) _engineering_station_offer "$cur" "$kind" ;;
    esac
}

_engineering_station_argument() {
    local cur=$1 command=$2 name names=()
    if [[ $cur == *=* ]]; then
        name=${cur%%=*}
        COMPREPLY=($(compgen -P "$name=" -W "${_engineering_station_choices["$command $name"]}" -- "${cur#*=}"))
    else
        for name in ${_engineering_station_parameters["$command"]}; do
            names+=("$name=")
        done
        _engineering_station_offer "$cur" "${names[*]}"
        compopt -o nospace 2>/dev/null
    fi
}

_engineering_station() {
    local words=() word path=engineering-station option='' first='' count=0 i cur
    if [[ -n $COMP_LINE ]]; then
        local line=${COMP_LINE:0:COMP_POINT}
        read -ra words <<<"$line"
        [[ $line == *[[:space:]] ]] && words+=('')
    else
        words=("${COMP_WORDS[@]:0:COMP_CWORD+1}")
    fi
    cur=${words[${#words[@]} - 1]}
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        word=${words[i]}
        if [[ -n $option ]]; then
            option=''
        elif [[ $word == --*=* ]]; then
            :
        elif [[ $word == -* ]]; then
            [[ -n ${_engineering_station_values["$path $word"]} ]] && option=$word
        elif [[ $first == '' && " ${_engineering_station_verbs["$path"]} " == *" $word "* ]]; then
            path+=" $word"
        else
            [[ $count -eq 0 ]] && first=$word
            count=$((count + 1))
        fi
    done

    COMPREPLY=()
    local positional=${_engineering_station_positionals["$path"]}
    if [[ -n $option ]]; then
        _engineering_station_value "$cur" "${_engineering_station_values["$path $option"]}"
    elif [[ $cur == --*=* ]]; then
        option=${cur%%=*}
        _engineering_station_value "${cur#*=}" "${_engineering_station_values["$path $option"]}"
        COMPREPLY=("${COMPREPLY[@]/#/$option=}")
    elif [[ $cur == -* ]]; then
        _engineering_station_offer "$cur" "${_engineering_station_options["$path"]}"
    elif [[ -n ${_engineering_station_verbs["$path"]} ]]; then
        _engineering_station_offer "$cur" "${_engineering_station_verbs["$path"]}"
    elif [[ $positional == @command && $count -gt 0 ]]; then
        _engineering_station_argument "$cur" "$first"
    else
        _engineering_station_value "$cur" "$positional"
    fi

    # Where the shell has cut the word before its last '=' or ':', it wants what stands behind.
    local break
    for break in '=' ':'; do
        if [[ $cur == *"$break"* && $COMP_WORDBREAKS == *"$break"* ]]; then
            COMPREPLY=("${COMPREPLY[@]#"${cur%"$break"*}$break"}")
        fi
    done
}

complete -F _engineering_station engineering-station
)bash";

std::string shellQuoted(std::string_view text)
{
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return out + "'";
}

/// An associative array of the shell.
class Table
{
public:
    void add(const std::string& key, const std::string& words)
    {
        if (!words.empty()) {
            rows_ += "    [" + shellQuoted(key) + "]=" + shellQuoted(words) + "\n";
        }
    }

    std::string text(const char* name) const
    {
        return std::string("declare -gA _engineering_station_") + name + "=(\n" + rows_ + ")\n";
    }

private:
    std::string rows_;
};

void append(std::string& words, std::string_view word)
{
    words += (words.empty() ? "" : " ") + std::string(word);
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

/// @returns the words that may stand there, or how to find them.
std::string kindOf(const CLI::Option& option)
{
    static const std::map<std::string, std::string> kKinds{
        {"FILE", "@file"},       {"DIR", "@directory"}, {"PORT", "@port"},
        {"COMMAND", "@command"}, {"GROUP", "@group"},   {"KEY", "@key"},
    };
    std::string words;
    for (const std::string& value : valuesOf(option)) {
        append(words, value);
    }
    if (!words.empty()) {
        return words;
    }
    const auto kind = kKinds.find(valueName(option));
    return kind == kKinds.end() ? "@none" : kind->second;
}

struct TreeTables {
    Table verbs;
    Table options;
    Table values;
    Table positionals;
};

void addVerb(TreeTables& tables, const CLI::App& verb)
{
    // The shell has no empty keys, so the program's name stands in front of every path.
    const std::string path = pathOf(verb);
    std::string names;
    for (const CLI::App* below : verbsOf(verb)) {
        append(names, below->get_name());
        addVerb(tables, *below);
    }
    tables.verbs.add(path, names);

    std::string options;
    for (const CLI::App* each = &verb; each != nullptr; each = each->get_parent()) {
        for (const CLI::Option* option : optionsOf(*each)) {
            const bool repeated = each != &verb && (option == each->get_help_ptr() || option->check_lname("version"));
            if (repeated) {
                continue;
            }
            for (const std::string& name : spellings(*option)) {
                append(options, name);
                if (takesValue(*option)) {
                    tables.values.add(std::string(path).append(" ").append(name), kindOf(*option));
                }
            }
        }
    }
    tables.options.add(path, options);
    if (const auto positionals = positionalsOf(verb); !positionals.empty()) {
        tables.positionals.add(path, kindOf(*positionals.front()));
    }
}

std::string catalogueTables()
{
    std::string groups;
    std::string commands;
    std::string notices;
    Table parameters;
    Table choices;
    for (const catalogue::Group& group : catalogue::groups()) {
        append(groups, group.key);
        for (const catalogue::Command& command : group.commands) {
            const std::string key = catalogue::fullKey(catalogue::groups(), command);
            std::string names;
            append(commands, key);
            for (const catalogue::Field& field : command.params) {
                append(names, field.name);
                std::string words;
                for (const catalogue::Choice& choice : field.choices) {
                    append(words, choice.name);
                }
                choices.add(key + " " + std::string(field.name), words);
            }
            parameters.add(key, names);
        }
        for (const catalogue::Notice& notice : group.notices) {
            append(notices, catalogue::fullKey(catalogue::groups(), notice));
        }
    }
    return "_engineering_station_groups=" + shellQuoted(groups) +
           "\n_engineering_station_commands=" + shellQuoted(commands) +
           "\n_engineering_station_notices=" + shellQuoted(notices) + "\n" + parameters.text("parameters") +
           choices.text("choices");
}

std::string bashScript(const CLI::App& app)
{
    TreeTables tables;
    addVerb(tables, app);
    return "# bash completion of engineering-station, written by 'engineering-station completion bash'.\n\n" +
           tables.verbs.text("verbs") + tables.options.text("options") + tables.values.text("values") +
           tables.positionals.text("positionals") + catalogueTables() + std::string(kFunctions);
}

}  // namespace

void addCompletion(Tool& tool)
{
    const auto shell = std::make_shared<std::string>();
    CLI::App* verb = tool.app.add_subcommand("completion",
                                             "Print the script that completes this tool's words in a shell\n"
                                             "It knows verbs, options, the names of the catalogue, parameters, choices "
                                             "and ports.");
    verb->add_option("SHELL", *shell, "The shell")->check(CLI::IsMember({"bash"}))->required();
    verb->footer(
        "Examples:\n"
        "  engineering-station completion bash > ~/.local/share/bash-completion/completions/engineering-station\n"
        "  source <(engineering-station completion bash)");
    verb->callback([&tool, shell] {
        tool.action = [&tool] {
            printText(bashScript(tool.app), tool.json);
            return static_cast<int>(kPassed);
        };
    });
}

}  // namespace programs::station_tool
