#include "libmarl/interfaces.h"

#include "libmarl/proc.h"

int NetWirelessPresent(const char* name) {
    return get_proc_field("/proc/net/wireless", name, ':', nullptr, nullptr);
}
