// The functions of the table of commands; each family has a file of its own.
#pragma once

#include "command.h"

namespace tool {

Exit id(const Request& request);

Exit env_list(const Request& request);
Exit env_get(const Request& request);
Exit env_set(const Request& request);
Exit env_unset(const Request& request);

Exit gpio_get(const Request& request);
Exit gpio_set(const Request& request);
Exit gpio_pulse(const Request& request);
Exit gpio_watch(const Request& request);
bool is_reset_line(const Request& request);
Exit expander_get(const Request& request);
Exit expander_set(const Request& request);

Exit cmos_read(const Request& request);
Exit cmos_write(const Request& request);

Exit net_show(const Request& request);
Exit net_set(const Request& request);
Exit net_dns(const Request& request);
Exit net_mac(const Request& request);
Exit net_host(const Request& request);
Exit net_arp(const Request& request);
bool is_setting(const Request& request);

Exit flash_list(const Request& request);
Exit flash_get(const Request& request);
Exit flash_put(const Request& request);
Exit flash_compare(const Request& request);
Exit flash_clear(const Request& request);

Exit modem_list(const Request& request);
Exit modem_power(const Request& request);
Exit modem_reset(const Request& request);

Exit mcu_status(const Request& request);
Exit mcu_power(const Request& request);

Exit watchdog_arm(const Request& request);
Exit watchdog_feed(const Request& request);

Exit upgrade_begin(const Request& request);
Exit upgrade_end(const Request& request);
Exit upgrade_status(const Request& request);
Exit restart_kind(const Request& request);
Exit reboot(const Request& request);

Exit stats(const Request& request);

Exit completion(const Request& request);

}  // namespace tool
