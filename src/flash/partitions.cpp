#include "flash/partitions.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/flash.h"

constinit marl::Partitions marl::g_partitions = {};

namespace {

using namespace marl;

constexpr const char* kTable = "/proc/mtd";
constexpr uint32_t kFlashBase = 0x2000000;

struct Row {
    int numbers;  // how many of the two the row has; -1 when the table has no such row
    unsigned size;
    unsigned erase_size;
};

// The rows by the number in their name.
using Rows = Row[kMaxPartitions];

// "mtd3: 00020000 00010000 "name"": the name of a row is at its start, whatever the partition is called.
void take_row(const char* line, Rows& rows) {
    constexpr const char* kName = "mtd";
    line += strspn(line, " \t");
    if (strncmp(line, kName, strlen(kName)) != 0) return;
    const char* number = line + strlen(kName);
    char* end = nullptr;
    const unsigned long partition = strtoul(number, &end, 10);
    if (strspn(number, "0123456789") == 0 || *end != ':' || partition >= kMaxPartitions) return;
    Row& row = rows[partition];
    if (row.numbers < 0) row.numbers = std::max(0, sscanf(end + 1, "%x %x", &row.size, &row.erase_size));
}

// All rows of one look at the table. False when it cannot be read to its end.
bool read_rows(Rows& rows) {
    for (Row& row : rows) row.numbers = -1;
    const Fd file(open_file(kTable, O_RDONLY));
    LineReader reader(file.get());
    char piece[128];
    bool at_start = true;
    while (file.is_open() && reader.next(piece, sizeof piece) && !reader.failed()) {
        if (at_start) take_row(piece, rows);
        at_start = strchr(piece, '\n') != nullptr;
    }
    if (file.is_open() && !reader.failed()) return true;
    diag::err("open %s failed\n", kTable);
    return false;
}

bool report_row() {
    diag::library_system_error("sscanf /proc/mtd", EINVAL);
    return false;
}

bool read_table(Partitions& table) {
    Rows rows;
    if (!read_rows(rows)) return false;
    table.MTD_START[0] = kFlashBase;
    for (const Row& row : rows) {
        if (row.numbers < 0) break;  // the table has ended
        const uint32_t start = table.MTD_START[table.NUM_MTDS];
        if (row.numbers == 0 || row.size > UINT32_MAX - start) return report_row();
        table.MTD_START[++table.NUM_MTDS] = start + row.size;
    }
    if (table.NUM_MTDS == 0) return false;
    if (rows[0].numbers < 2 || rows[0].erase_size == 0) return report_row();
    table.CFG_FLASH_SEC_SIZE = rows[0].erase_size;
    return true;
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
