// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/completion.h"

#include <set>
#include <sstream>

#include "tools/vusctl/command.h"

namespace android::vus::ctl {

namespace {

// The first words, each once, in the order of the table.
Words first_words() {
    Words words;
    std::set<std::string> known;
    for (const Command& command : commands()) {
        if (known.insert(command.name).second) words.push_back(command.name);
    }
    return words;
}

Words subs_of(const std::string& name) {
    Words words;
    for (const Command& command : commands()) {
        if (name == command.name && *command.sub != '\0') words.push_back(command.sub);
    }
    return words;
}

std::string joined(const Words& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// Where a word of the call is a file or a directory.
bool takes_path(const char* value) {
    const std::string kind = value;
    return kind == "FILE" || kind == "DIR" || kind == "LIST";
}

bool has_path_argument(const Command& command) {
    const std::string arguments = command.arguments;
    for (const char* word : {"FILE", "DIR", "CASES", "OLD"}) {
        if (arguments.find(word) != std::string::npos) return true;
    }
    return false;
}

// In single quotes, for every shell of ours.
std::string quoted(const std::string& text) {
    std::string clean;
    for (const char c : text) clean += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return "'" + clean + "'";
}

std::string names_of(const std::vector<Option>& options) {
    Words words;
    for (const Option& option : options) words.push_back(option.name);
    return joined(words);
}

// The cases of the shell's "case" for each command, over its words joined by a blank.
std::string bash_cases() {
    std::ostringstream cases;
    for (const Command& command : commands()) {
        cases << "        " << quoted(command.path())
              << ") options=" << quoted(names_of(command.options))
              << (has_path_argument(command) ? " files=y" : "") << " ;;\n";
    }
    return cases.str();
}

// "--list|--tree|...": the options that a path follows.
std::string path_options() {
    std::set<std::string> names;
    for (const Command& command : commands()) {
        for (const Option& option : command.options) {
            if (option.value != nullptr && takes_path(option.value)) names.insert(option.name);
        }
    }
    std::string pattern;
    for (const std::string& name : names) pattern += (pattern.empty() ? "" : "|") + name;
    return pattern;
}

std::string bash_script() {
    std::ostringstream script;
    script << "# bash completion for vusctl\n"
              "_vusctl() {\n"
              "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
              "    local command=${COMP_WORDS[1]} options= files= subs=\n"
              "    case $before in\n"
              "        "
           << path_options()
           << ") COMPREPLY=($(compgen -f -- \"$word\")); return ;;\n"
              "    esac\n"
              "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
              "        COMPREPLY=($(compgen -W "
           << quoted(joined(first_words()) + " help --help --version")
           << " -- \"$word\")); return\n"
              "    fi\n"
              "    case $command in\n";
    for (const std::string& name : first_words()) {
        const Words subs = subs_of(name);
        if (!subs.empty())
            script << "        " << name << ") subs=" << quoted(joined(subs)) << " ;;\n";
    }
    script << "    esac\n"
              "    if [ -n \"$subs\" ] && [ \"$COMP_CWORD\" -eq 2 ]; then\n"
              "        COMPREPLY=($(compgen -W \"$subs\" -- \"$word\")); return\n"
              "    fi\n"
              "    [ -z \"$subs\" ] || command=\"$command ${COMP_WORDS[2]}\"\n"
              "    case $command in\n"
           << bash_cases()
           << "    esac\n"
              "    case $word in\n"
              "        -*) COMPREPLY=($(compgen -W \"$options --help\" -- \"$word\")) ;;\n"
              "        *) [ -z \"$files\" ] || COMPREPLY=($(compgen -f -- \"$word\")) ;;\n"
              "    esac\n"
              "}\n"
              "complete -F _vusctl vusctl\n";
    return script.str();
}

std::string zsh_options(const Command& command) {
    std::ostringstream specs;
    for (const Option& option : command.options) {
        std::string help = option.help;
        for (size_t at = help.find(':'); at != std::string::npos; at = help.find(':', at + 2)) {
            help.insert(at, "\\");
        }
        std::string spec = std::string("*") + option.name + "[" + help + "]";
        if (option.value != nullptr) {
            spec += std::string(":") + option.value + (takes_path(option.value) ? ":_files" : ":");
        }
        specs << " \\\n                " << quoted(spec);
    }
    if (has_path_argument(command)) specs << " \\\n                '*:file:_files'";
    return specs.str();
}

std::string zsh_script() {
    std::ostringstream script;
    script << "#compdef vusctl\n"
              "_vusctl() {\n"
              "    local command=$words[2]\n"
              "    if (( CURRENT == 2 )); then\n"
              "        compadd "
           << joined(first_words()) << " help\n        return\n    fi\n    case $command in\n";
    for (const std::string& name : first_words()) {
        const Words subs = subs_of(name);
        if (subs.empty()) continue;
        script << "        " << name << ")\n            if (( CURRENT == 3 )); then\n"
               << "                compadd " << joined(subs) << "\n                return\n"
               << "            fi\n            command=\"$command $words[3]\"\n"
               << "            shift words; (( CURRENT-- )) ;;\n";
    }
    script << "    esac\n    shift words; (( CURRENT-- ))\n    case $command in\n";
    for (const Command& command : commands()) {
        script << "        " << quoted(command.path()) << ")\n            _arguments"
               << zsh_options(command) << " ;;\n";
    }
    // As a file of the function's name, which is read when it is called, or read beforehand.
    script << "    esac\n}\n"
              "if [ \"$funcstack[1]\" = _vusctl ]; then\n    _vusctl \"$@\"\n"
              "else\n    compdef _vusctl vusctl\nfi\n";
    return script.str();
}

std::string fish_script() {
    std::ostringstream script;
    script << "# fish completion for vusctl\ncomplete -c vusctl -f\n";
    std::set<std::string> known;
    for (const Command& command : commands()) {
        const bool first = known.insert(command.name).second;
        const std::string at = "__fish_seen_subcommand_from " + std::string(command.name);
        if (*command.sub != '\0') {
            if (first) {
                script << "complete -c vusctl -n __fish_use_subcommand -a " << command.name << "\n";
            }
            script << "complete -c vusctl -n "
                   << quoted(at + "; and not __fish_seen_subcommand_from " +
                             joined(subs_of(command.name)))
                   << " -a " << command.sub << " -d " << quoted(command.summary) << "\n";
        } else {
            script << "complete -c vusctl -n __fish_use_subcommand -a " << command.name << " -d "
                   << quoted(command.summary) << "\n";
        }
        std::string condition = at;
        if (*command.sub != '\0') {
            condition += std::string("; and __fish_seen_subcommand_from ") + command.sub;
        }
        for (const Option& option : command.options) {
            script << "complete -c vusctl -n " << quoted(condition) << " -l " << option.name + 2;
            if (option.value != nullptr) script << (takes_path(option.value) ? " -rF" : " -x");
            script << " -d " << quoted(option.help) << "\n";
        }
        if (has_path_argument(command)) {
            script << "complete -c vusctl -n " << quoted(condition) << " -F\n";
        }
    }
    return script.str();
}

}  // namespace

std::optional<std::string> completion_for(const std::string& shell) {
    if (shell == "bash") return bash_script();
    if (shell == "zsh") return zsh_script();
    if (shell == "fish") return fish_script();
    return std::nullopt;
}

}  // namespace android::vus::ctl
