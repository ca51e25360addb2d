#include "source.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "devices.h"

namespace sim::script {
namespace {

constexpr const char* kBlanks = " \t";
constexpr std::string_view kLasting[] = {"/mnt", "/dev/mtd", "/etc", "/."};
constexpr std::string_view kOfFiles[] = {"put", "size", "remove", "flash", "beat"};  // orders

std::string one_of_the_devices() {
    std::string list = "one of";
    for (const std::string_view device : kDevices) list.append(" ").append(device);
    return list;
}

}  // namespace

std::string_view Source::skip() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
    return rest_;
}

std::string Source::next() {
    const std::string found(skip().substr(0, rest_.find_first_of(kBlanks)));
    rest_.remove_prefix(found.size());
    return found;
}

std::string Source::rest() {
    const std::string found(skip());
    rest_ = {};
    return found;
}

bool Source::is(std::string_view words) {
    if (!skip().starts_with(words)) return false;
    const std::string_view after = rest_.substr(words.size());
    if (!words.ends_with(':') && !after.empty() && after.find_first_of(kBlanks) != 0) return false;
    rest_ = after;
    return true;
}

std::string Source::word() {
    const std::string found = next();
    wants(!found.empty(), "a word", found);
    return found;
}

std::string Source::text() {
    const std::string found = rest();
    wants(!found.empty(), "a text", found);
    return found;
}

uint64_t Source::number(int base, uint64_t most, const char* wanted) {
    const std::string found = next();
    char* end = nullptr;
    const uint64_t value = strtoull(found.c_str(), &end, base);
    wants(isalnum(found[0]) && *end == '\0' && value <= most, wanted, found);
    return value;
}

Nanos Source::seconds() {
    const std::string found = next();
    char* end = nullptr;
    const double value = strtod(found.c_str(), &end);
    wants(isdigit(found[0]) && *end == '\0', "seconds", found);
    return value > 9e9 ? kNever : static_cast<Nanos>(value * 1e6 + 0.5) * 1000;
}

std::string Source::path() {
    const std::string found = next();
    wants(is_of_the_board(found), "a path below /dev, /proc, /sys, /mnt, /tmp or /etc", found);
    return found;
}

std::string Source::device() {
    const std::string found = next();
    wants(is_device(found), one_of_the_devices(), found);
    return found;
}

bool Source::wants(bool is_right, std::string_view wanted, std::string_view found) {
    if (!is_right && problem_.empty())
        problem_.append("\"").append(found.substr(0, 200)).append("\" should be ").append(wanted);
    return is_right;
}

bool Source::is_saved(std::string_view path) const {
    if (known.kept == Known::kNothing || time_ != kAtOnce) return false;
    return known.kept == Known::kFiles ||
           std::any_of(std::begin(kLasting), std::end(kLasting),
                       [path](std::string_view top) { return path.starts_with(top); });
}

void Source::order(const char* format, ...) {
    char what[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(what, sizeof what, format, arguments);
    va_end(arguments);
    char verb[8], path[512];
    const bool is_of_file = sscanf(what, "%7s %511s", verb, path) == 2 &&
                            std::find(std::begin(kOfFiles), std::end(kOfFiles), verb) != std::end(kOfFiles);
    if (is_of_file && is_saved(path)) return;
    const std::string time = time_ == kAtOnce ? "-" : std::to_string(time_);
    orders_.append(std::to_string(line_)).append(" ").append(time).append(" ").append(what).append("\n");
}

}  // namespace sim::script
