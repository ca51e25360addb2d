// What the table of commands tells the user: help, and what is wrong with a command line.
#pragma once

#include <span>
#include <string_view>

#include "command.h"

namespace tool {

// Options that every command has.
struct CommonOption {
    const char* name;
    const char* meaning;
    bool Request::*flag;  // null for those that are answered at once
};

extern const std::span<const CommonOption> common_options;

// "usage: marl flash write FILE TARGET"
struct UsageLine {
    explicit UsageLine(const Command& command);
    char text[160];
};

std::string_view family_of(std::string_view name);
bool is_family(std::string_view word);

void print_program_help();
void print_family_help(std::string_view family);
void print_command_help(const Command& command);
// The sentence about what a command destroys, if it does; `yes` is the option as it is to be printed.
void print_danger(const Command& command, const char* yes);

// Says what is wrong, with the word that it is about behind it, and where help is to be had.
Exit complain(const Command* command, const char* what, std::string_view word);
Exit complain_of_value(const Command& command, std::string_view kind, const char* text);

}  // namespace tool
