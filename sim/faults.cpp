// Which calls fail, and the power that is cut.
#include <algorithm>
#include <mutex>

#include "board.h"
#include "devices.h"
#include "journal.h"
#include "real.h"
#include "script.h"

namespace sim::script {
namespace {

Table<Fault, 64> faults;
clock::Lock lock;

}  // namespace

void add_fault(const Fault& fault) {
    if (!faults.add(fault)) board::end("cannot do its script: too many faults", board::kBadScript);
}

void report_faults() {
    for (const Fault& each : faults) {
        if (!each.fired) record::Line("board").add(" fault %s never fired", each.text);
    }
    forget_faults();
}

void forget_faults() {
    faults.used = 0;
    begin_storm(0, 0);
}

int64_t fault_of(const char* what, const char* op, uint32_t request) {
    if (faults.used == 0 && !is_stormy()) return kNoFault;
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
