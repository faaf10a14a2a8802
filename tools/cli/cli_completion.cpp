// moxdev completion: bash and zsh completion scripts generated from the
// command tree itself (subcommands, options, the values an argument takes), so
// they follow every change of the verbs.
#include "cli.h"

#include "moxdev/text.h"

#include <fmt/format.h>

#include <iostream>
#include <string>
#include <vector>

namespace moxdev_cli {

namespace {

// One command of the tree, as the scripts need it.
struct COMMAND {
    std::string path;                                               // "hps list"; "" for moxdev itself
    std::vector<std::pair<std::string, std::string>> subcommands;   // name, description
    std::vector<std::pair<std::string, std::string>> options;       // -s or --long, description
    std::vector<std::string> valued;                                // options that take a value
    std::vector<std::pair<std::string, std::string>> option_values; // option, its values or @SOURCE
    std::vector<std::string> arguments; // per positional: its values, @SOURCE, or "" for any
    bool last_repeats = false;          // the last positional takes several words
};

// "TEXT:{nand,spi} REQUIRED" -> "nand spi": the set a membership check
// allows; "@SOURCE" for values the command lists (complete_from).
std::string allowed_values(const CLI::Option* option)
{
    const auto source = completion_sources().find(option);
    if (source != completion_sources().end())
        return "@" + source->second;
    const std::string type = option->get_type_name();
    const std::size_t open = type.find('{'), close = type.find('}', open);
    if (open == std::string::npos || close == std::string::npos)
        return "";
    std::string values = type.substr(open + 1, close - open - 1);
    for (char& c : values)
        if (c == ',')
            c = ' ';
    return values;
}

void collect(const CLI::App* app, const std::string& path, std::vector<COMMAND>& commands)
{
    COMMAND command;
    command.path = path;
    for (const CLI::Option* option : app->get_options()) {
        if (option->get_positional() && !option->nonpositional()) {
            command.arguments.push_back(allowed_values(option));
            command.last_repeats = option->get_expected_max() > 1;
            continue;
        }
        std::vector<std::string> names;
        for (const std::string& name : option->get_snames())
            names.push_back("-" + name);
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
        const std::string values = allowed_values(option);
        for (const std::string& name : names) {
            command.options.emplace_back(name, option->get_description());
            if (option->get_expected_max() > 0)
                command.valued.push_back(name);
            if (!values.empty())
                command.option_values.emplace_back(name, values);
        }
    }
    // Subcommands without a group are for the scripts themselves.
    std::vector<const CLI::App*> subcommands =
        app->get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
    for (const CLI::App* sub : subcommands)
        command.subcommands.emplace_back(sub->get_name(), sub->get_description());
    commands.push_back(command);
    for (const CLI::App* sub : subcommands)
        collect(sub, path.empty() ? sub->get_name() : path + " " + sub->get_name(), commands);
}

std::vector<COMMAND> command_tree(const CLI::App& root)
{
    std::vector<COMMAND> commands;
    collect(&root, "", commands);
    return commands;
}

std::string single_quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string words(const std::vector<std::pair<std::string, std::string>>& entries)
{
    std::string text;
    for (const auto& entry : entries)
        text += (text.empty() ? "" : " ") + entry.first;
    return text;
}

std::string words(const std::vector<std::string>& entries)
{
    std::string text;
    for (const std::string& entry : entries)
        text += (text.empty() ? "" : " ") + entry;
    return text;
}

// A shell `case` over the command paths: `body` gives the branch of one
// command, or "" to leave it out.
template <class BODY>
std::string path_case(const std::vector<COMMAND>& commands, const char* subject, const std::string& indent, BODY body)
{
    std::string text = indent + "case \"" + subject + "\" in\n";
    for (const COMMAND& command : commands) {
        const std::string branch = body(command);
        if (!branch.empty())
            text += indent + "    (" + single_quoted(command.path) + ") " + branch + " ;;\n";
    }
    return text + indent + "esac\n";
}

// A shell `case` over "path N", the Nth positional of a command (the last one
// also for every later position when it repeats), for those that take a set
// of values; `value_branch` makes the branch from the values.
std::string argument_case(const std::vector<COMMAND>& commands, const std::string& indent,
                          std::string (*value_branch)(const std::string&))
{
    std::string text = indent + "case \"$1 $2\" in\n";
    for (const COMMAND& command : commands) {
        for (std::size_t i = 0; i < command.arguments.size(); ++i) {
            if (command.arguments[i].empty())
                continue;
            const std::string pattern = single_quoted(command.path + " " + std::to_string(i)) +
                                        (command.last_repeats && i + 1 == command.arguments.size()
                                             ? " | " + single_quoted(command.path + " ") + "[0-9]*"
                                             : "");
            text += indent + "    (" + pattern + ") " + value_branch(command.arguments[i]) + " ;;\n";
        }
    }
    return text + indent + "esac\n";
}

// The values of a branch: the words themselves, or the list the command
// prints for @SOURCE.
std::string bash_values(const std::string& values)
{
    if (values.rfind('@', 0) == 0)
        return "moxdev completion values " + values.substr(1) + " 2>/dev/null";
    return "echo " + single_quoted(values);
}

std::string zsh_values(const std::string& values)
{
    if (values.rfind('@', 0) == 0)
        return "reply=(${(f)\"$(moxdev completion values " + values.substr(1) + " 2>/dev/null)\"})";
    return "reply=(" + values + ")";
}

// A shell `case` over "path option" for the options whose values are known.
std::string option_value_case(const std::vector<COMMAND>& commands, const std::string& indent,
                              std::string (*value_branch)(const std::string&))
{
    std::string text = indent + "case \"$1 $2\" in\n";
    for (const COMMAND& command : commands) {
        for (const auto& [option, values] : command.option_values)
            text +=
                indent + "    (" + single_quoted(command.path + " " + option) + ") " + value_branch(values) + " ;;\n";
    }
    return text + indent + "esac\n";
}

std::string bash_script(const CLI::App& root)
{
    const std::vector<COMMAND> commands = command_tree(root);
    std::string text = "# bash completion for moxdev; generated by 'moxdev completion bash'.\n"
                       "# Load it with: source <(moxdev completion bash)\n\n";
    text += "_moxdev_subcommands() {\n" +
            path_case(commands, "$1", "    ",
                      [](const COMMAND& command) {
                          return command.subcommands.empty() ? "" : "echo " + single_quoted(words(command.subcommands));
                      }) +
            "}\n\n";
    text += "_moxdev_options() {\n" +
            path_case(commands, "$1", "    ",
                      [](const COMMAND& command) {
                          return command.options.empty() ? "" : "echo " + single_quoted(words(command.options));
                      }) +
            "}\n\n";
    text += "_moxdev_valued() {\n" +
            path_case(commands, "$1", "    ",
                      [](const COMMAND& command) {
                          return command.valued.empty() ? "" : "echo " + single_quoted(words(command.valued));
                      }) +
            "}\n\n";
    text += "# The values argument $2 (from 0) of command $1 takes; none: any word or file.\n"
            "_moxdev_argument() {\n" +
            argument_case(commands, "    ", bash_values) + "}\n\n";
    text += "# The values option $2 of command $1 takes; none: any word or file.\n"
            "_moxdev_option_values() {\n" +
            option_value_case(commands, "    ", bash_values) + "}\n\n";
    text += R"SH(_moxdev() {
    local cur="${COMP_WORDS[COMP_CWORD]}" prev="" path="" word sub argument=0 i
    ((COMP_CWORD > 1)) && prev="${COMP_WORDS[COMP_CWORD - 1]}"
    for ((i = 1; i < COMP_CWORD; i++)); do
        word="${COMP_WORDS[i]}"
        for sub in $(_moxdev_subcommands "$path"); do
            if [[ "$word" == "$sub" ]]; then
                path="${path:+$path }$word"
                argument=0
                continue 2
            fi
        done
        if [[ " $(_moxdev_valued "$path") " == *" $word "* ]]; then
            ((i++))
        elif [[ "$word" != -* ]]; then
            ((argument++))
        fi
    done
    COMPREPLY=()
    if [[ -n "$prev" && " $(_moxdev_valued "$path") " == *" $prev "* ]]; then
        if [[ -n "$(_moxdev_option_values "$path" "$prev")" ]]; then
            COMPREPLY=($(compgen -W "$(_moxdev_option_values "$path" "$prev")" -- "$cur"))
        else
            COMPREPLY=($(compgen -f -- "$cur"))
        fi
    elif [[ "$cur" == -* ]]; then
        COMPREPLY=($(compgen -W "$(_moxdev_options "$path")" -- "$cur"))
    elif [[ -n "$(_moxdev_subcommands "$path")" ]]; then
        COMPREPLY=($(compgen -W "$(_moxdev_subcommands "$path")" -- "$cur"))
    elif [[ -n "$(_moxdev_argument "$path" "$argument")" ]]; then
        COMPREPLY=($(compgen -W "$(_moxdev_argument "$path" "$argument")" -- "$cur"))
    else
        COMPREPLY=($(compgen -f -- "$cur"))
    fi
}

complete -o filenames -F _moxdev moxdev
)SH";
    return text;
}

// 'name:description' entries for _describe.
std::string described(const std::vector<std::pair<std::string, std::string>>& entries)
{
    std::string text;
    for (const auto& entry : entries) {
        std::string description = entry.second.substr(0, entry.second.find('\n'));
        text += (text.empty() ? "" : " ") + single_quoted(entry.first + ":" + description);
    }
    return text;
}

std::string zsh_script(const CLI::App& root)
{
    const std::vector<COMMAND> commands = command_tree(root);
    std::string text = "#compdef moxdev\n"
                       "# zsh completion for moxdev; generated by 'moxdev completion zsh'.\n"
                       "# Install it as _moxdev in a directory of $fpath.\n\n";
    const std::string no_reply = "    reply=()\n";
    text += "_moxdev_subcommands() {\n" + no_reply +
            path_case(commands, "$1", "    ",
                      [](const COMMAND& command) {
                          return command.subcommands.empty() ? "" : "reply=(" + described(command.subcommands) + ")";
                      }) +
            "}\n\n";
    text += "_moxdev_options() {\n" + no_reply +
            path_case(commands, "$1", "    ",
                      [](const COMMAND& command) {
                          return command.options.empty() ? "" : "reply=(" + described(command.options) + ")";
                      }) +
            "}\n\n";
    text += "_moxdev_valued() {\n" + no_reply +
            path_case(commands, "$1", "    ",
                      [](const COMMAND& command) {
                          return command.valued.empty() ? "" : "reply=(" + words(command.valued) + ")";
                      }) +
            "}\n\n";
    text += "# The values argument $2 (from 0) of command $1 takes; none: any word or file.\n"
            "_moxdev_argument() {\n" +
            no_reply + argument_case(commands, "    ", zsh_values) + "}\n\n";
    text += "# The values option $2 of command $1 takes; none: any word or file.\n"
            "_moxdev_option_values() {\n" +
            no_reply + option_value_case(commands, "    ", zsh_values) + "}\n\n";
    text += R"SH(_moxdev() {
    local path_words="" word prev argument=0 i
    local -a reply names
    for ((i = 2; i < CURRENT; i++)); do
        word=${words[i]}
        _moxdev_subcommands "$path_words"
        names=(${reply%%:*})
        if (( ${names[(Ie)$word]} )); then
            path_words=${path_words:+$path_words }$word
            argument=0
            continue
        fi
        _moxdev_valued "$path_words"
        if (( ${reply[(Ie)$word]} )); then
            ((i++))
        elif [[ $word != -* ]]; then
            ((argument++))
        fi
    done
    prev=${words[CURRENT-1]}
    _moxdev_valued "$path_words"
    if (( CURRENT > 2 && ${reply[(Ie)$prev]} )); then
        _moxdev_option_values "$path_words" "$prev"
        if (( $#reply )); then
            compadd -a reply
        else
            _files
        fi
        return
    fi
    if [[ ${words[CURRENT]} == -* ]]; then
        _moxdev_options "$path_words"
        _describe -t options option reply
        return
    fi
    _moxdev_subcommands "$path_words"
    if (( $#reply )); then
        _describe -t commands command reply
        return
    fi
    _moxdev_argument "$path_words" $argument
    if (( $#reply )); then
        compadd -a reply
    else
        _files
    fi
}

_moxdev "$@"
)SH";
    return text;
}

// Text for a man page: roff escapes for backslashes and leading dots.
std::string roff_text(const std::string& text)
{
    std::string out;
    bool line_start = true;
    for (const char c : text) {
        if (line_start && (c == '.' || c == '\''))
            out += "\\&";
        out += c == '\\' ? std::string("\\e") : std::string(1, c);
        line_start = c == '\n';
    }
    return out;
}

void man_command(const CLI::App* app, const std::string& path, std::string& text)
{
    const std::vector<const CLI::App*> subcommands =
        app->get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
    if (!path.empty()) {
        text += ".SS \"" + path + "\"\n.nf\n" +
                roff_text(app->get_formatter()->make_help(app, path, CLI::AppFormatMode::Normal)) + ".fi\n";
    }
    for (const CLI::App* sub : subcommands)
        man_command(sub, path.empty() ? "moxdev " + sub->get_name() : path + " " + sub->get_name(), text);
}

// A help2man include file: a COMMANDS section with the help of every
// command and subcommand, as --help prints it.
std::string man_commands(const CLI::App& root)
{
    std::string text = "[COMMANDS]\nEvery command's help, as \\fBmoxdev\\fR \\fICOMMAND\\fR \\fB\\-\\-help\\fR "
                       "prints it.\n";
    man_command(&root, "", text);
    return text;
}

} // namespace

void add_completion_commands(CLI::App& app)
{
    CLI::App* completion = app.add_subcommand("completion", "Print a shell completion script (bash or zsh)");
    completion->require_subcommand(1);
    completion->footer("bash: source <(moxdev completion bash), or install it as "
                       "share/bash-completion/completions/moxdev.\n"
                       "zsh: install it as _moxdev in a directory of $fpath (e.g. share/zsh/site-functions).");
    const CLI::App* root = &app;
    completion->add_subcommand("bash", "Print the bash completion script")->callback([root] {
        std::cout << bash_script(*root);
    });
    completion->add_subcommand("zsh", "Print the zsh completion script")->callback([root] {
        std::cout << zsh_script(*root);
    });
    // The man page's section on every command, for help2man --include.
    completion->add_subcommand("man", "")->group("")->callback([root] { std::cout << man_commands(*root); });
    // What the scripts call for the values of names, makers, sizes, kinds.
    static std::string source;
    CLI::App* values = completion->add_subcommand("values", "Print the values completion offers for SOURCE");
    values->group(""); // for the scripts, not for people
    values
        ->add_option("SOURCE", source,
                     "flash-names, flash-makers, flash-sizes, flash-voltages, device-names, "
                     "type-kinds")
        ->required();
    values->callback([] {
        const auto lister = completion_listers().find(source);
        if (lister == completion_listers().end())
            throw USER_ERROR{"no completion values are named " + moxdev::quoted(source)};
        for (const std::string& value : lister->second())
            std::cout << value << "\n";
    });
}

} // namespace moxdev_cli
