// Memory, processor, interfaces.
#include <libmarl.h>

#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

// What cannot be read is shown as not known, and the rest all the same.
bool is_unknown(const char* name) {
    results::field(name, nullptr);
    return false;
}

bool show_memory() {
    MemInfo memory{};
    if (get_mem_info(&memory) != 0) return is_unknown("memory");
    results::begin("memory");
    results::field("total_kb", memory.total);
    results::field("available_kb", memory.available);
    results::end();
    return true;
}

// The first look tells of all the time since the start.
bool show_processor(uint32_t seconds) {
    CpuStat processor{};
    if (seconds > 0) {
        get_cpu_usage();
        sleep_us(1000000 * (seconds % 60));
        for (uint32_t minutes = seconds / 60; minutes > 0; --minutes) sleep_us(60000000);
    }
    if (get_cpu_stat(&processor) != 0) return is_unknown("processor");
    results::begin("processor");
    results::field("usage_percent", processor.usage);
    results::field("context_switches", processor.context_switches);
    results::end();
    return true;
}

bool show_interfaces() {
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    const int count = NetGetEthDevice(entries, MARL_NET_DEVICES_MAX);
    if (count < 0) return is_unknown("interfaces");
    results::begin("interfaces");
    for (int i = 0; i < count; ++i) {
        NetDeviceStats counters{};
        if (NetGetDeviceState(entries[i].name, &counters) < 0) continue;
        results::begin(entries[i].name);
        results::field("rx_bytes", static_cast<int64_t>(counters.rx_bytes));
        results::field("rx_packets", static_cast<int64_t>(counters.rx_packets));
        results::field("tx_bytes", static_cast<int64_t>(counters.tx_bytes));
        results::field("tx_packets", static_cast<int64_t>(counters.tx_packets));
        results::end();
    }
    results::end();
    return true;
}

}  // namespace

Exit stats(const Request& request) {
    const bool has_memory = show_memory();
    const bool has_processor = show_processor(request.number("--over", 0));
    const bool has_interfaces = show_interfaces();
    if (!has_memory) return failed("the memory's use cannot be read");
    if (!has_processor) return failed("the processor's use cannot be read");
    if (!has_interfaces) return failed("the interfaces cannot be listed");
    return kDone;
}

}  // namespace tool
