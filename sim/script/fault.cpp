// fault WHAT CALL[:REQUEST] N|N..M|N+ ERROR|short BYTES: one that could never fire is found here.
#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

#include "verbs.h"

namespace sim::script {
namespace {

// What can fail: whose calls, and which.
struct Owner {
    const char* what;
    const char* calls;
};

constexpr Owner kOwners[] = {
    {"PATH",
     "open close read write ioctl lseek mmap ftruncate fsync stat lstat access mkdir unlink rename opendir"},
    {"socket", "open close read write ioctl setsockopt sendto recvfrom bind"},
    {"out", "write"},
    {"err", "write"},
    {"thread", "pthread_create"},
    {"clone", "clone"},
    {"clock", "settimeofday"},
    {"process", "vfork"},
    {"heap", "malloc calloc realloc"},
    {"*", "sleep"},  // and all of the others
    {"COMMAND", "system"},
};

bool has(const Owner& owner, const std::string& call) {
    return (std::string(" ") + owner.calls + " ").find(" " + call + " ") != std::string::npos;
}

bool can_fail(const std::string& what, const std::string& call) {
    const auto calls_it = [&call](const Owner& owner) { return has(owner, call); };
    if (what == "*") return std::any_of(std::begin(kOwners), std::end(kOwners), calls_it);
    const std::string name = what.starts_with('/') ? "PATH" : what;
    return calls_it(*std::find_if(std::begin(kOwners), std::end(kOwners) - 1,
                                  [&name](const Owner& owner) { return owner.what == name; }));
}

std::string what_can_fail() {
    std::string list;
    for (const Owner& owner : kOwners)
        list.append(list.empty() ? "" : "; ").append(owner.what).append(" ").append(owner.calls);
    return list;
}

// A negated error number, by name or number.
int error_of(Source& source) {
    const std::string word = source.next();
    const char* known_number = isdigit(word[0]) != 0 ? strerrorname_np(atoi(word.c_str())) : word.c_str();
    for (int number = 1; known_number != nullptr && number < 140; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && strcmp(known_number, known) == 0) return -number;
    }
    source.wants(false, "an error as EIO, its number, or short and a number", word);
    return 0;
}

}  // namespace

void make_fault(Source& source) {
    const std::string text = source.rest();
    Source parts(text, 0, source.known);
    const std::string what = text.starts_with("/dev/") ? parts.device()
                             : text.starts_with('/')   ? parts.path()
                                                       : parts.next();
    std::string call = parts.next();
    const size_t colon = call.find(':');
    unsigned request = 0;
    if (colon != std::string::npos) {
        Source number(std::string_view(call).substr(colon + 1), 0, source.known);
        request = static_cast<unsigned>(number.number());
        parts.wants(number.ends(), "CALL:REQUEST, a number", call);
        call.resize(colon);
    }
    parts.wants(can_fail(what, call), what_can_fail(), call);
    const std::string range = parts.next();
    unsigned from = 0, to = 0;
    const int numbers = sscanf(range.c_str(), "%u..%u", &from, &to);
    if (numbers == 1) to = range.ends_with('+') ? UINT_MAX : from;
    const bool is_plain = range.find_first_not_of("0123456789.+") == std::string::npos;
    parts.wants(is_plain && numbers > 0 && from > 0 && from <= to, "N, N..M or N+", range);
    const int64_t effect = parts.is("short") ? static_cast<int64_t>(parts.number()) : error_of(parts);
    parts.ends();
    source.take_problem(parts);
    source.order("fault %s %s %u %u %u %lld %s", what.c_str(), call.c_str(), request, from, to,
                 static_cast<long long>(effect), text.c_str());
}

}  // namespace sim::script
