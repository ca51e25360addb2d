#include "usage.h"

#include <cstdio>

#include "messages.h"
#include "results.h"
#include "values.h"

namespace tool {
namespace {

constexpr CommonOption kCommonOptions[] = {
    {"--json", "results as JSON: one object", &Request::json},
    {"--quiet", "without the lines that the library prints on the standard output", &Request::quiet},
    {"--yes", "do what destroys without being asked", &Request::yes},
    {"--help", "this, of the program, a family or a command", nullptr},
    {"--version", "the version", nullptr},
};

// Each line of `text` with something in front of it.
void print_lines(std::string_view text, const char* before) {
    while (!text.empty()) {
        const std::string_view line = take_part(text, '\n');
        results::print("%s%.*s\n", before, static_cast<int>(line.size()), line.data());
    }
}

void print_kinds(const Command& command) {
    std::string_view rest = command.arguments;
    std::string_view before;
    for (Parameter parameter; next_parameter(rest, parameter);) {
        const Kind* kind = find_kind(parameter.kind);
        if (kind != nullptr && parameter.kind != before)
            results::print("  %-10s %s\n", kind->name, kind->meaning);
        before = parameter.kind;
    }
}

}  // namespace

constinit const std::span<const CommonOption> common_options = kCommonOptions;

UsageLine::UsageLine(const Command& command) {
    const char* blank = *command.arguments != '\0' ? " " : "";
    snprintf(text, sizeof text, "usage: marl %s%s%s", command.name, blank, command.arguments);
}

std::string_view family_of(std::string_view name) { return take_part(name, ' '); }

bool is_family(std::string_view word) {
    for (const Command& command : commands) {
        if (word != command.name && family_of(command.name) == word) return true;
    }
    return false;
}

void print_danger(const Command& command, const char* yes) {
    if (command.danger == nullptr) return;
    results::print("%s it %s it asks before; without a terminal it wants %s.\n",
                   command.is_dangerous != nullptr ? "Where" : "As", command.danger, yes);
}

void print_command_help(const Command& command) {
    results::print("%s\n\n%s\n", UsageLine(command).text, command.summary);
    if (command.details != nullptr) print_lines(command.details, "");
    print_danger(command, "--yes");
    if (*command.arguments != '\0') results::print("\n");
    print_kinds(command);
    results::print("\nexamples:\n");
    print_lines(command.examples, "  marl ");
}

void print_family_help(std::string_view family) {
    results::print("usage: marl %.*s COMMAND [ARGUMENT...]\n\n", static_cast<int>(family.size()),
                   family.data());
    for (const Command& command : commands) {
        if (family_of(command.name) != family) continue;
        results::print("  %-16s %s\n", command.name, command.summary);
    }
    results::print("\nexamples:\n");
    for (const Command& command : commands) {
        if (family_of(command.name) == family) print_lines(command.examples, "  marl ");
    }
}

void print_program_help() {
    results::print("usage: marl [OPTION...] COMMAND [ARGUMENT...]\n\n");
    results::print("What the board is and has, by the hardware library.\n\n");
    for (const Family& family : families) results::print("  %-14s %s\n", family.name, family.summary);
    results::print("\noptions, anywhere:\n");
    for (const CommonOption& option : common_options)
        results::print("  %-14s %s\n", option.name, option.meaning);
    results::print("\nexamples:\n");
    print_lines("id --json\nflash --help\nflash write --help\nflash write system.img system", "  marl ");
    results::print(
        "\nstatus: 0 done, 1 failed, 2 wrong usage or refused. Results are on the standard output,\n");
    results::print("all else on the standard error. The man page, marl(1), has the shape of the JSON.\n");
}

// A word that a complaint ends with; where help is to be had behind it.
Exit complain(const Command* command, const char* what, std::string_view word) {
    note("%s%s%s%.*s", command != nullptr ? command->name : "", command != nullptr ? ": " : "", what,
         static_cast<int>(word.size()), word.data());
    if (command != nullptr) {
        note("%s", UsageLine(*command).text);
    } else {
        note("marl --help has what there is");
    }
    return kRefused;
}

Exit complain_of_value(const Command& command, std::string_view kind, const char* text) {
    const Kind* known = find_kind(kind);
    char what[256];
    if (known != nullptr) {
        snprintf(what, sizeof what, "%s is %s, not ", known->name, known->meaning);
    } else {
        snprintf(what, sizeof what, "it should be %.*s, not ", static_cast<int>(kind.size()), kind.data());
    }
    return complain(&command, what, *text != '\0' ? text : "nothing");
}

}  // namespace tool
