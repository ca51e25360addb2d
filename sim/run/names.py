"""What the numbers in a journal mean on this board."""

BUTTON_LINES = (23, 30, 31, 36)
RESET_LINE = 35
GPIO_LINES = {
    4: "attention",
    5: "modem power",
    7: "modem power",
    9: "storage bus status",
    26: "modem power",
    32: "modem power",
    RESET_LINE: "board reset",
    37: "modem power",
    45: "disk power",
    48: "co-processor reset or modem power",
    49: "disk power, active low",
    **dict.fromkeys(BUTTON_LINES, "reset button"),
}
EXPANDER_OUTPUTS = {0: "disk power", 1: "board reset", 3: "modem power", 6: "modem power"}
CMOS_BYTES = {
    1: "run marker",
    27: "bus release mark",
    40: "network settings valid",
    42: "factory reset mark",
    44: "network settings",
}
HEARTBEATS = {"/tmp/encode_to_sentrel": "encode", "/tmp/mediaguard_to_sentrel": "mediaguard"}
UPGRADE_FLAG = "/tmp/upgrade_ing"
FILES = {
    UPGRADE_FLAG: "upgrade flag",
    "/dev/mtd/1": "boot environment",
    "/proc/net/emac_stats": "Ethernet MAC",
    "/mnt/mtd/dm365_version": "version of the co-processor",
    **{path: f"heartbeat of {name}" for path, name in HEARTBEATS.items()},
}

GPIO, WATCHDOG, RTC = "/dev/misc/gpio", "/dev/misc/wdt", "/dev/misc/rtc"
EXPANDER_IN, EXPANDER_OUT = "/dev/misc/gio_expd_in", "/dev/misc/gio_expander"
REQUESTS = {
    WATCHDOG: {0x4: "keepalive", 0x5: "set period", 0x7: "resume"},
    RTC: {0x80247009: "read the clock"},
    GPIO: {0x1: "set interrupt mode"},
    "/dev/misc/spi0": {
        0x40047301: "set mode",
        0x80047302: "read status",
        0x80047304: "read acknowledgement",
        0x40047305: "query alive",
        0x40047306: "factory reset",
        0x40047307: "boot wait",
        0x40047309: "query version (old)",
        0x4004730A: "query 2a",
        0x4004730B: "begin exchange",
        0x4004730C: "end exchange",
        0x4004730D: "query version",
    },
    "/dev/misc/spi1": {
        0xC004650C: "identify",
        0xC0046501: "start programming",
        0xC0046502: "end programming",
        0xC0046508: "erase",
        0xC004650B: "open the protection",
    },
    "/dev/davinci_vpfe": {0x80145603: "read capture interrupts", 0x80045609: "set camera module"},
    "/dev/mtd/": {0x40084D02: "erase", 0x80204D01: "geometry"},
    "socket": {
        0x890B: "add route",
        0x890C: "delete route",
        0x8913: "read flags",
        0x8914: "set flags",
        0x8915: "read address",
        0x8916: "set address",
        0x891B: "read netmask",
        0x891C: "set netmask",
        0x8922: "set MTU",
        0x8924: "set hardware address",
        0x8927: "read hardware address",
        0x8933: "read index",
    },
}
# What the co-processor's words mean, by the request that they come with.
WORDS = {
    0x40047305: {0x6984: "alive"},
    0x80047302: {0x2468: "upgrading", 0: "idle"},
    0x80047304: {0x55AA: "accepted", 0x7788: "send again", 0x99BB: "complete"},
    0x40047301: {0x2468: "upgrading"},
    0x4004730A: {0: "in order", 1: "abnormal"},
    0x80145603: {0: "running", 1: "stalled"},
}
# How a boot ends: the first words of such a line, and what the whole line means.
ENDS = ("end", "reset", "cut", "stuck:", "cannot")
RESETS = {
    "reset gpio35": "the program pulsed GPIO line 35, board reset",
    "reset watchdog": "nobody fed the watchdog",
    "reset command": "the program gave the command to reboot",
    "cut": "the power was cut",
    "end time": "the time was over",
}


def request_name(path, number):
    """The name of a device's request; its number where it has none."""
    table = REQUESTS.get(path) or REQUESTS.get(path[: path.rfind("/") + 1]) or {}
    return table.get(number, f"request 0x{number:x}")


def line_name(number):
    """A GPIO line in decimal, with its name."""
    name = GPIO_LINES.get(number)
    return f"line {number} ({name})" if name else f"line {number}"
