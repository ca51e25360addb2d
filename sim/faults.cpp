// Which calls fail, because the script says so or in a storm, and the power that is cut. In a storm, every so often, by
// chance, one of the calls that the program makes fails the next time it comes.
#include <algorithm>
#include <iterator>
#include <mutex>
#include <utility>

#include "board.h"
#include "devices.h"
#include "journal.h"
#include "real.h"
#include "script.h"

namespace sim::script {
namespace {

struct Fault {
    const char* what;
    const char* op;
    int64_t request;  // 0: any
    int64_t from, to;
    int64_t effect;
    const char* text;
    uint32_t calls = 0;
    bool fired = false;
};

constinit Table<Fault, 64> faults{};
clock::Lock lock;

// A call that it has met, how often, and what becomes of the next one.
struct Call {
    char what[sizeof board::OpenFile::name];
    const char* op;
    uint32_t request;
    uint32_t times;
    int64_t effect;
};

struct Storm {
    uint64_t random;
    clock::Nanos every;  // 0: there is none
    clock::Nanos next;
};

Table<Call, 128> met;
constinit Storm storm{};

struct Ways {
    const char* op;
    int effects[4];
};

constexpr Ways kWaysToFail[] = {
    {"open", {-ENOENT, -EMFILE, -ENOMEM, -EIO}}, {"read", {-EIO, -EINTR, 0, 1}},
    {"write", {-EIO, -EINTR, -ENOSPC, 1}},       {"ioctl", {-EIO, -EINTR, -ENODEV, -EBUSY}},
    {"sleep", {-EINTR, -EINTR, -EINTR, -EINTR}}, {"", {-EIO, -ENOMEM, -EAGAIN, -EINVAL}},  // any other
};

uint64_t draw(uint64_t most) {
    storm.random = storm.random * 6364136223846793005U + 1442695040888963407U;
    return (storm.random >> 33) % most;
}

// Calls that come often move to the front, where they are found soonest.
Call* meet(const char* what, const char* op, uint32_t request) {
    Call* call = std::find_if(met.begin(), met.end(), [&](const Call& each) {
        return each.request == request && strcmp(each.op, op) == 0 && strcmp(each.what, what) == 0;
    });
    if (call == met.end()) {
        Call made{{}, op, request, 0, kNoFault};
        snprintf(made.what, sizeof made.what, "%s", what);
        if (!met.add(made)) return nullptr;
    }
    ++call->times;
    if (call == met.begin() || call->times <= call[-1].times) return call;
    std::swap(call[0], call[-1]);
    return call - 1;
}

void choose_next() {
    Call& call = met.begin()[draw(met.used)];
    const Ways* ways = kWaysToFail;
    while (*ways->op != '\0' && strcmp(ways->op, call.op) != 0) ++ways;
    call.effect = ways->effects[draw(std::size(ways->effects))];
    storm.next =
        clock::now() + storm.every / 2 + static_cast<int64_t>(draw(static_cast<uint64_t>(storm.every)));
}

// In the journal it is the fault line that would do the same.
void tell(const Call& call) {
    record::Line line("board");
    line.add(" fault %s %s", call.what, call.op);
    if (call.request != 0) line.add(":0x%x", call.request);
    const auto effect = static_cast<int>(call.effect);
    if (effect < 0) line.add(" %u %s: call %u", call.times, strerrorname_np(-effect), call.times);
    if (effect >= 0) line.add(" %u short %d: call %u", call.times, effect, call.times);
}

int64_t effect_of_storm(const char* what, const char* op, uint32_t request) {
    if (storm.every == 0) return kNoFault;
    Call* call = meet(what, op, request);
    if (clock::now() >= storm.next) choose_next();
    if (call == nullptr || call->effect == kNoFault) return kNoFault;
    tell(*call);
    return std::exchange(call->effect, kNoFault);
}

}  // namespace

bool begin_storm(Words& words) {
    storm = {static_cast<uint64_t>(words.number()), words.number(), clock::now()};
    storm.next += storm.every;
    met.used = 0;
    return true;
}

bool add_fault(Words& words) {
    return faults.add({keep(words.next()), keep(words.next()), words.number(), words.number(), words.number(),
                       words.number(), keep(words.rest())});
}

void report_faults() {
    for (const Fault& each : faults) {
        if (!each.fired) record::Line("board").add(" fault %s never fired", each.text);
    }
    forget_faults();
}

void forget_faults() {
    faults.used = 0;
    storm.every = 0;
}

int64_t fault_of(const char* what, const char* op, uint32_t request) {
    if (faults.used == 0 && storm.every == 0) return kNoFault;
    const std::lock_guard guard(lock);
    int64_t effect = effect_of_storm(what, op, request);
    for (Fault& each : faults) {
        const bool same_what = strcmp(each.what, "*") == 0 || strcmp(each.what, what) == 0;
        if (!same_what || strcmp(each.op, op) != 0) continue;
        if (each.request != 0 && each.request != request) continue;
        ++each.calls;
        if (each.calls < each.from || each.calls > each.to || effect != kNoFault) continue;
        effect = each.effect;
        each.fired = true;
        record::Line("board").add(" fault %s: call %u", each.text, each.calls);
    }
    return effect;
}

bool may_fail(const char* what) {
    return std::any_of(faults.begin(), faults.end(),
                       [what](const Fault& each) { return strcmp(each.what, what) == 0; });
}

void count_change() {
    uint32_t& changes = devices::state.changes_to_cut;
    if (changes > 0 && --changes == 0) board::end("cut", board::kCut);
}

}  // namespace sim::script
