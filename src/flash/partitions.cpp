#include "flash/partitions.h"

#include <cerrno>
#include <cstdio>

#include "base/diag.h"
#include "libmarl/flash.h"
#include "libmarl/proc.h"

constinit marl::Partitions marl::g_partitions = {};

namespace {

using namespace marl;

constexpr const char* kTable = "/proc/mtd";
constexpr uint32_t kFlashBase = 0x2000000;

struct Row {
    unsigned size;
    unsigned erase_size;
};

// 2 when both numbers of a row are there, fewer when not; negative when there is no such row.
int read_row(int partition, Row& row) {
    char key[16];
    char raw[MARL_PROC_RAW_SIZE + 1] = {};
    snprintf(key, sizeof key, "mtd%d", partition);
    if (get_proc_field(kTable, key, ':', nullptr, raw) < 0) return -1;
    return sscanf(raw, "%x %x", &row.size, &row.erase_size);
}

bool read_table(Partitions& table) {
    table.MTD_START[0] = kFlashBase;
    Row row{};
    while (table.NUM_MTDS < kMaxPartitions) {
        const int numbers = read_row(table.NUM_MTDS, row);
        if (numbers < 0) break;  // the table has ended
        if (numbers == 0) return false;
        const uint32_t start = table.MTD_START[table.NUM_MTDS];
        if (row.size > UINT32_MAX - start) return false;
        table.MTD_START[++table.NUM_MTDS] = start + row.size;
    }
    const int numbers = read_row(0, row);
    if (numbers < 0) return false;
    if (numbers < 2) {
        diag::library_system_error("sscanf /proc/mtd", EINVAL);
        return false;
    }
    table.CFG_FLASH_SEC_SIZE = row.erase_size;
    return table.NUM_MTDS > 0 && row.erase_size > 0;
}

}  // namespace

int flash_init() {
    if (g_partitions.NUM_MTDS != 0) return g_partitions.NUM_MTDS;
    Partitions table{};
    if (!read_table(table)) return -1;
    g_partitions = table;
    diag::out("[libmarl] ####CFG_FLASH_SEC_SIZE=%#x\n", table.CFG_FLASH_SEC_SIZE);
    diag::out("[libmarl] NUM_MTDS=%d\n", table.NUM_MTDS);
    for (int i = 0; i <= table.NUM_MTDS; ++i)
        diag::out("[libmarl] ####MTD_START[%d]=%#x\n", i, table.MTD_START[i]);
    return table.NUM_MTDS;
}
