// What a command is, and what the user asked of one.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tool {

enum Exit { kDone = 0, kFailed = 1, kRefused = 2 };  // of the process: the last one for usage, too

struct Request;

// One row of the table that help, usage errors, completion and the man page are made of.
struct Command {
    const char* name;  // "flash write": a family and what to do, or a word alone
    const char*
        arguments;  // "LINE 0|1 [--for MS]": WORDs are kinds of values (values.h), the rest is literal
    const char* summary;
    const char* details;   // whole lines; null when the summary says all
    const char* examples;  // command lines, one a line, without the program's name
    Exit (*run)(const Request& request);
    // What it destroys, as "rewrites the ..."; null for nothing. Asked before, or --yes is needed.
    const char* danger = nullptr;
    bool (*is_dangerous)(const Request& request) = nullptr;  // null: always
    bool needs_board = true;
};

extern const std::span<const Command> commands;

// A family of commands, for help.
struct Family {
    const char* name;
    const char* summary;
};

extern const std::span<const Family> families;

// A part of Command::arguments.
struct Parameter {
    std::string_view option;  // "--for", or empty
    std::string_view kind;    // name of a kind or literal alternatives; empty for an option without value
    bool is_optional;
    bool is_repeated;  // once or more
};

// Takes the next one off the front of `arguments`. False at the end.
bool next_parameter(std::string_view& arguments, Parameter& out);

struct Request {
    static constexpr int kMostWords = 160;
    static constexpr int kMostOptions = 4;

    const Command* command = nullptr;
    bool json = false;
    bool yes = false;
    bool quiet = false;
    int word_count = 0;
    const char* words[kMostWords] = {};
    struct {
        std::string_view name;
        const char* value;
    } options[kMostOptions] = {};
    int option_count = 0;

    const char* word(int index) const { return index < word_count ? words[index] : nullptr; }
    bool has(std::string_view option) const;
    const char* value(std::string_view option, const char* otherwise = nullptr) const;
    // Numbers of arguments that were found to be such.
    uint32_t number(int index) const;
    uint32_t number(std::string_view option, uint32_t otherwise) const;
};

}  // namespace tool
