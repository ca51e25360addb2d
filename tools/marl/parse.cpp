#include "parse.h"

#include <cstring>

#include "messages.h"
#include "results.h"
#include "usage.h"
#include "values.h"

namespace tool {
namespace {

// The command of a family and what to do with it, or of a word alone.
const Command* find_command(std::string_view first, const char* second) {
    for (const Command& command : commands) {
        std::string_view rest = command.name;
        if (take_part(rest, ' ') != first) continue;
        if (rest.empty() || (second != nullptr && rest == second)) return &command;
    }
    return nullptr;
}

// The parameter that takes the positional argument `index`; false when there is none.
bool find_positional(const Command& command, int index, Parameter& out) {
    std::string_view rest = command.arguments;
    int number = 0;
    while (next_parameter(rest, out)) {
        if (!out.option.empty()) continue;
        if (number++ == index || out.is_repeated) return true;
    }
    return false;
}

bool find_option(const Command& command, std::string_view name, Parameter& out) {
    std::string_view rest = command.arguments;
    while (next_parameter(rest, out)) {
        if (!out.option.empty() && out.option == name) return true;
    }
    return false;
}

const CommonOption* find_common(std::string_view name) {
    if (name == "-h") name = "--help";
    if (name == "-q") name = "--quiet";
    if (name == "-y") name = "--yes";
    for (const CommonOption& option : common_options) {
        if (name == option.name) return &option;
    }
    return nullptr;
}

class Parser {
  public:
    Parser(Request& request, int argc, char** argv) : request_(request), count_(argc), arguments_(argv) {}

    bool run(Exit& status) {
        status = split();
        if (status != kDone) return false;
        if (wants_version_) results::print("marl %s\n", MARL_VERSION);
        if (wants_version_) return false;
        status = wants_help_ ? help() : check();
        return status == kDone && !wants_help_;
    }

  private:
    // Words apart from options. The command is known by then: options follow it, but for the common ones.
    Exit split() {
        bool only_words = false;
        for (int i = 1; i < count_; ++i) {
            const char* argument = arguments_[i];
            const bool is_option = argument[0] == '-' && argument[1] != '\0' && !only_words;
            if (!is_option && !take_word(argument))
                return complain(request_.command, "too many arguments", "");
            if (!is_option) continue;
            only_words = strcmp(argument, "--") == 0;
            if (only_words) continue;
            if (const Exit status = take_option(argument, i); status != kDone) return status;
        }
        return kDone;
    }

    bool take_word(const char* word) {
        if (request_.command == nullptr && second_ == nullptr) {
            (first_ == nullptr ? first_ : second_) = word;
            request_.command = find_command(first_, second_);
            return true;
        }
        if (request_.word_count == Request::kMostWords) return false;
        request_.words[request_.word_count++] = word;
        return true;
    }

    Exit take_option(const char* argument, int& index) {
        std::string_view value = argument;
        const std::string_view name = take_part(value, '=');
        const bool has_value = name.size() != strlen(argument);
        if (const CommonOption* common = find_common(argument)) {
            if (common->flag != nullptr) request_.*common->flag = true;
            wants_help_ |= strcmp(common->name, "--help") == 0;
            wants_version_ |= strcmp(common->name, "--version") == 0;
            return kDone;
        }
        Parameter parameter;
        if (request_.command == nullptr || !find_option(*request_.command, name, parameter)) {
            return complain(request_.command, "there is no option ", name);
        }
        if (parameter.kind.empty() && has_value)
            return complain(request_.command, "no value goes with ", name);
        const char* text = nullptr;
        if (!parameter.kind.empty()) {
            text = has_value ? value.data() : index + 1 < count_ ? arguments_[++index] : "";
            if (!is_value(parameter.kind, text))
                return complain_of_value(*request_.command, parameter.kind, text);
        }
        if (request_.option_count == Request::kMostOptions)
            return complain(request_.command, "too many options", "");
        request_.options[request_.option_count++] = {parameter.option, text};
        return kDone;
    }

    Exit check() {
        if (request_.command == nullptr) return complain_of_command();
        Parameter parameter;
        int index = 0;
        for (; request_.word(index) != nullptr; ++index) {
            if (!find_positional(*request_.command, index, parameter)) {
                return complain(request_.command, "one argument too many: ", request_.word(index));
            }
            if (!is_value(parameter.kind, request_.word(index))) {
                return complain_of_value(*request_.command, parameter.kind, request_.word(index));
            }
        }
        const bool is_short = find_positional(*request_.command, index, parameter) && !parameter.is_optional;
        // One is enough of what may be repeated.
        Parameter before{};
        const bool is_more =
            index > 0 && find_positional(*request_.command, index - 1, before) && before.is_repeated;
        if (is_short && !is_more) return complain(request_.command, "it wants ", parameter.kind);
        return kDone;
    }

    Exit complain_of_command() const {
        if (first_ == nullptr) return complain(nullptr, "a command is wanted", "");
        if (!is_family(first_)) return complain(nullptr, "there is no command ", first_);
        second_ != nullptr ? note("%s has no command %s", first_, second_)
                           : note("%s wants a command", first_);
        for (const Command& command : commands) {
            if (family_of(command.name) == first_) note("%s", UsageLine(command).text);
        }
        return kRefused;
    }

    Exit help() const {
        if (first_ == nullptr) {
            print_program_help();
        } else if (request_.command != nullptr) {
            print_command_help(*request_.command);
        } else if (is_family(first_)) {
            print_family_help(first_);
        } else {
            return complain_of_command();
        }
        return kDone;
    }

    Request& request_;
    int count_;
    char** arguments_;
    const char* first_ = nullptr;  // words of the command's name
    const char* second_ = nullptr;
    bool wants_help_ = false;
    bool wants_version_ = false;
};

}  // namespace

bool next_parameter(std::string_view& arguments, Parameter& out) {
    if (arguments.empty()) return false;
    out = {};
    out.is_optional = arguments.front() == '[';
    if (out.is_optional) arguments.remove_prefix(1);
    std::string_view text = take_part(arguments, out.is_optional ? ']' : ' ');
    if (out.is_optional && !arguments.empty()) arguments.remove_prefix(1);
    if (text.starts_with("--")) out.option = take_part(text, ' ');
    out.is_repeated = text.ends_with("...");
    if (out.is_repeated) text.remove_suffix(3);
    out.kind = text;
    return true;
}

bool parse(int argc, char** argv, Request& request, Exit& status) {
    return Parser(request, argc, argv).run(status);
}

bool Request::has(std::string_view option) const {
    for (int i = 0; i < option_count; ++i) {
        if (options[i].name == option) return true;
    }
    return false;
}

const char* Request::value(std::string_view option, const char* otherwise) const {
    for (int i = 0; i < option_count; ++i) {
        if (options[i].name == option) return options[i].value;
    }
    return otherwise;
}

uint32_t Request::number(int index) const {
    uint32_t value = 0;
    if (word(index) != nullptr) parse_number(word(index), value);
    return value;
}

uint32_t Request::number(std::string_view option, uint32_t otherwise) const {
    uint32_t number = otherwise;
    if (const char* text = value(option)) parse_number(text, number);
    return number;
}

}  // namespace tool
