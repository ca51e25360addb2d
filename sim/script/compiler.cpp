#include "compiler.h"

#include <algorithm>

#include "devices.h"
#include "launch/run.h"
#include "source.h"
#include "verbs.h"

namespace sim::script {
namespace {

constexpr size_t kLineSize = 1024;

// A line without the words before it that say when it is done.
struct Line {
    unsigned number;
    std::string_view text;
    Nanos time;
    bool is_meant;  // in this boot
};

Line take_prefixes(Source& source, unsigned number, std::string_view text, unsigned boot) {
    Line line{number, text, kAtOnce, true};
    for (bool is_prefix = true; is_prefix && source.problem().empty();) {
        is_prefix = source.is("at")     ? (line.time = std::max(line.time, source.seconds()), true)
                    : source.is("boot") ? (line.is_meant &= source.number() == boot, true)
                                        : false;
    }
    const size_t left = source.more() ? source.rest().size() : 0;
    line.text = text.substr(text.size() - left);
    const std::string_view verb = line.text.substr(0, line.text.find_first_of(" \t"));
    const bool acts = verb != "expect" && verb != "never" && verb != "describe" && !verb.empty();
    source.wants(line.time == kAtOnce || acts, "a line that does something", line.text);
    source.wants(text.size() < kLineSize, "shorter", text);
    return line;
}

}  // namespace

// A board that was on before has its flash, CMOS and settings still, and nothing of what was volatile.
std::string Compiler::start(std::string_view script, bool beside) {
    const bool was_on = boot_ > 1 && !beside;
    const std::string gone = was_on ? "0 - remove /tmp\n0 - remove /proc\n0 - remove /sys\n" : "";
    known_.kept = beside ? Known::kFiles : was_on ? Known::kSaved : Known::kNothing;
    const std::string orders = compile(script);
    known_.kept = Known::kNothing;
    if (beside) return kEmptyBoard + orders;
    return gone + kEmptyBoard + "0 - put " + launch::kBootsFile + " 0 " + bytes_of(boot_) + "\n" + orders;
}

std::string Compiler::compile(std::string_view text) {
    std::vector<Line> lines;
    problems_.clear();
    for (unsigned number = 1; !text.empty(); ++number) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        Source source(line, number, known_);
        if (!source.more() || source.is("#") || line.starts_with('#')) continue;
        Source whole(line, number, known_);
        lines.push_back(take_prefixes(whole, number, line, boot_));
        if (!whole.problem().empty()) {
            problems_.push_back({number, whole.problem()});
            lines.pop_back();
        }
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a.time < b.time; });
    std::string orders;
    for (const Line& line : lines) {
        Known known = known_;
        Source source(line.text, line.number, known);
        source.at(line.time);
        if (line.time != kAtOnce) source.order("log script %s", std::string(line.text).c_str());
        if (!translate(source)) {
            problems_.push_back({line.number, source.problem()});
        } else if (line.is_meant) {
            known_ = known;
            orders += source.orders();
        }
    }
    std::sort(problems_.begin(), problems_.end(),
              [](const Problem& a, const Problem& b) { return a.line < b.line; });
    return orders;
}

std::string Compiler::tell(const std::string& line) {
    const std::string orders = compile(line);
    return "0 - log board told: " + line + "\n" + orders;
}

}  // namespace sim::script
