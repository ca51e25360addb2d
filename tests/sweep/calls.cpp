// What a scenario does: each function is looked up by its name, in a library that was just loaded. Its result is what
// the call says, `found` what there is to be seen of it afterwards.
#include <arpa/inet.h>
#include <libmarl.h>

#include <cstring>
#include <string>
#include <vector>

#define main sentrel_main
#include "daemon/main.cpp"
#undef main

#define SCENARIO(name) \
    extern "C" __attribute__((visibility("default"))) int name([[maybe_unused]] std::string& found)

namespace {

using Bytes = std::vector<uint8_t>;

Bytes image(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 2654435761U >> 24);
    return bytes;
}

int write_flash(int32_t mode, uint32_t address, uint32_t size) {
    RawFlash* flash = nullptr;
    if (const int made = createRawFlash(&mode, &flash); made < 0) return made;
    const int written = flash->write(flash, image(size).data(), address, size);
    const int released = flash->release(flash);
    return written < 0 ? written : released;
}

std::string text_of(const Usb3gModule& module) {
    return std::string(module.manufacturer) + module.product + module.vendor_id + module.product_id;
}

}  // namespace

SCENARIO(daemon) {
    char name[] = "sentrel";
    char* arguments[] = {name, nullptr};
    return sentrel_main(1, arguments);
}

SCENARIO(environment) {
    const int result = __set_armboot_para("ipaddr", "10.0.0.9");
    char value[16] = "";
    get_armboot_para("ipaddr", value, sizeof value);
    found = value;
    return result;
}
SCENARIO(network_save) { return SaveEthAttr("eth0", NET_ATTR_IP, "10.0.0.222"); }
SCENARIO(network_read) {
    char value[MARL_NET_VALUE_SIZE] = "";
    uint8_t byte = 0;
    readCMOS(0, &byte, 1);  // a device that is open stays so
    const int result = GetEthAttr("eth0", NET_ATTR_IP, value, sizeof value);
    found = value;
    return result;
}
SCENARIO(resolver) {
    if (const int saved = NetSetDNS("10.0.0.222", "10.0.0.9"); saved < 0) return saved;
    char first[16] = "", second[16] = "";
    const int result = NetGetDNS(first, sizeof first, second, sizeof second);
    found = std::string(first) + second;
    return result;
}
SCENARIO(flash_first) { return write_flash(0, 0x2000000, 0x2800); }
SCENARIO(flash_second) { return write_flash(0, 0x2028000, 0x2800); }
SCENARIO(flash_fpga) { return write_flash(0, 0x4000000, 0x80000); }
SCENARIO(flash_coprocessor) { return write_flash(1, 0x1000, 100); }
SCENARIO(fpga) {
    const int result = fpga_flash_open() < 0 ? -1 : fpga_flash_write(image(0x80000).data(), 0x80000, 0);
    fpga_flash_close();
    return result;
}
SCENARIO(coprocessor) {
    Bytes end = image(100);
    memcpy(end.data(), "upgrade-end", 11);
    const int fd = dm365_spi_open();
    if (dm365_upgrade_write(fd, image(1000).data(), 1000, 0x2000000, 0x2468) != 1000) return -1;
    return dm365_upgrade_write(fd, end.data(), 100, 0x2000000, 0x2468) < 0 ? -1 : 0;
}
SCENARIO(microcontroller) {
    if (initSpiUtilDev(18) == nullptr) return -1;
    const int result = PowerControl(18, 1);
    return deinitSpiUtilDev(18) < 0 ? -1 : result;
}
SCENARIO(modem_find) {
    Usb3gModule module{};
    const int result = find_and_identify_3g(&module);
    found = text_of(module);
    return result < 0 ? -1 : 0;
}
SCENARIO(usb_devices) {
    UsbDevice devices[4];
    int count = 4;
    const int result = get_usb_devs(devices, &count);
    for (int i = 0; result == 0 && i < count; ++i)
        for (const auto& name : devices[i].interfaces) found += name;
    return result;
}
SCENARIO(modem_wait) {
    Usb3gModule module{};
    const int result = wait_3g_usb_device(&module, 30);
    found = text_of(module);
    return result;
}
SCENARIO(modem_reset) { return reset_3g_and_wait(); }
SCENARIO(identify) {
    const int result = hwid_retry();
    found.assign(product_model_ptr, strnlen(product_model_ptr, MARL_MODEL_SIZE));
    for (uint32_t i = 0; i < MARL_INFO_COUNT; ++i) found += " " + std::to_string(get_dvr_info(i));
    return result;
}
SCENARIO(sections) {
    const int result = get_hwid_info();
    found.assign(reinterpret_cast<const char*>(&HWINFO_SECTIONS), sizeof HWINFO_SECTIONS);
    return result;
}
SCENARIO(cmos) {
    const uint8_t data[] = {0xAA, 0x55};
    uint8_t back[2] = {};
    if (writeCMOS(40, data, 2) != 3 || readCMOS(40, back, 2) < 0) return -1;
    return memcmp(back, data, 2) == 0 ? 0 : -1;
}
SCENARIO(halt) { return sys_halt(); }
SCENARIO(announcement) {
    const uint8_t mac[] = {0x00, 0x12, 0x31, 0x4A, 0x0C, 0x5E};
    return NetSendArpFrame("eth0", inet_addr("192.168.1.108"), mac) == 0 ? 0 : -1;
}
SCENARIO(statistics) {
    MemInfo memory{};
    CpuStat stat{};
    const int result = get_mem_info(&memory);
    get_cpu_stat(&stat);
    found = std::to_string(memory.total) + " " + std::to_string(memory.available) + " " +
            std::to_string(stat.context_switches);
    return result;
}
SCENARIO(clock_rate) {
    found = std::to_string(get_arm_rate());
    return 0;
}
SCENARIO(phy) { return usb_phy_set_state(MARL_SYSTEM_MODULE_BASE, 1); }
SCENARIO(upgrade_flag) {
    return set_upgrade_map() < 0 || check_upgrade_map() != 1 || clear_upgrade_map() < 0 ? -1 : 0;
}
SCENARIO(shell_command) { return my_system_call("touch /tmp/x") == 0 ? 0 : -1; }
