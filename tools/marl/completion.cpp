// What is made of the table of commands for others: the completion of bash, and the man page's part.
#include <cstring>

#include "handlers.h"
#include "results.h"
#include "usage.h"
#include "values.h"

namespace tool {
namespace {

// --- bash

// Literal alternatives, options and what stands for files, as words for the shell.
void print_candidates(const Command& command) {
    std::string_view rest = command.arguments;
    for (Parameter parameter; next_parameter(rest, parameter);) {
        if (!parameter.option.empty()) {
            results::print(" %.*s", static_cast<int>(parameter.option.size()), parameter.option.data());
        }
        if (parameter.kind.empty() || find_kind(parameter.kind) != nullptr) continue;
        for (std::string_view words = parameter.kind; !words.empty();) {
            const std::string_view word = take_part(words, '|');
            results::print(" %.*s", static_cast<int>(word.size()), word.data());
        }
    }
}

bool takes_file(const Command& command) { return strstr(command.arguments, "FILE") != nullptr; }

void print_bash_families() {
    results::print("    \"\")\n        words=\"");
    for (const Family& family : families) results::print("%s ", family.name);
    results::print("\"\n        ;;\n");
    for (const Family& family : families) {
        if (!is_family(family.name)) continue;
        results::print("    %s)\n        words=\"", family.name);
        for (const Command& command : commands) {
            std::string_view rest = command.name;
            if (take_part(rest, ' ') == family.name)
                results::print("%.*s ", static_cast<int>(rest.size()), rest.data());
        }
        results::print("\"\n        ;;\n");
    }
}

void print_bash() {
    results::print(
        "# Completion of marl for bash; \"marl completion bash\" prints it.\n"
        "_marl() {\n"
        "    local current=${COMP_WORDS[COMP_CWORD]} given=() word words files=\n"
        "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "        [[ $word == -* ]] || given+=(\"$word\")\n"
        "    done\n"
        "    case \"${given[*]:0:2}\" in\n");
    print_bash_families();
    for (const Command& command : commands) {
        // A word alone is a command whatever follows it.
        const char* more = strchr(command.name, ' ') == nullptr ? "*" : "";
        results::print("    \"%s\"%s)\n        words=\"", command.name, more);
        print_candidates(command);
        results::print("\"\n%s        ;;\n", takes_file(command) ? "        files=yes\n" : "");
    }
    results::print("    esac\n    words+=\"");
    for (const CommonOption& option : common_options) results::print(" %s", option.name);
    results::print(
        "\"\n"
        "    mapfile -t COMPREPLY < <(compgen ${files:+-f} -W \"$words\" -- \"$current\")\n"
        "}\n"
        "complete -o filenames -F _marl marl\n");
}

// --- The man page

// A hyphen that is to be typed.
void print_typed(std::string_view text) {
    for (const char c : text) results::print(c == '-' ? "\\-" : c == '\\' ? "\\e" : "%c", c);
}

void print_man_usage(const Command& command) {
    results::print("\\fBmarl ");
    print_typed(command.name);
    results::print("\\fP");
    if (*command.arguments != '\0') results::print(" \\fI");
    print_typed(command.arguments);
    results::print(*command.arguments != '\0' ? "\\fP\n" : "\n");
}

void print_man_command(const Command& command) {
    results::print(".TP\n");
    print_man_usage(command);
    for (const char* text : {command.summary, command.details}) {
        for (std::string_view rest = text != nullptr ? text : ""; !rest.empty();) {
            print_typed(take_part(rest, '\n'));
            results::print("\n");
        }
    }
    print_danger(command, "\\-\\-yes");
}

void print_man() {
    results::print(".SH SYNOPSIS\n.nf\n");
    for (const Command& command : commands) print_man_usage(command);
    results::print(".fi\n.SH COMMANDS\n");
    for (const Command& command : commands) print_man_command(command);
    results::print(".SH ARGUMENTS\n");
    for (const Kind& kind : kinds) results::print(".TP\n.I %s\n%s\n", kind.name, kind.meaning);
    results::print(".SH EXAMPLES\n.nf\n");
    for (const Command& command : commands) {
        for (std::string_view rest = command.examples; !rest.empty();) {
            results::print("marl ");
            print_typed(take_part(rest, '\n'));
            results::print("\n");
        }
    }
    results::print(".fi\n");
}

}  // namespace

Exit completion(const Request& request) {
    strcmp(request.word(0), "bash") == 0 ? print_bash() : print_man();
    return kDone;
}

}  // namespace tool
