/*
 * The microcontroller behind /dev/mcu: power switches, shutdown, mouse reports.
 *
 * Both directions carry frames of MCU_FRAME_SIZE bytes. The host sends {0xA1, command, operation, value, 0,
 * 0, 0x0A}, operation 0 to set (value 1 on, 0 off) and 1 to query; the microcontroller sends {0xA0, command,
 * 4 data bytes, 0x0A} with 0xFF bytes as filler anywhere. Commands are 0..MCU_COMMAND_MAX.
 *
 * Which call: initSpiUtilDev() for each command that will be asked, or mouse_open() for the mouse; then
 * PowerControl() and mcu_query_status() for power switches, get_mouse_report() for the mouse and
 * mcu_transact() for any other command. Nobody has to call mcu_open(); mcu_write(), mcu_send_frame() and
 * get_spi_data() are the parts of mcu_transact(). mcu_shutdown() needs no ring.
 *
 * The first use opens the device and starts one reader thread, which lives until the process ends or a read
 * fails; it takes no signals. When a read fails ("MCU read error\n" as an ERROR line) all who wait for an
 * answer get -1, and the next call that uses the device starts a reader again.
 *
 * The reader sorts what arrives into one ring per command. What arrives for a command without a ring is lost.
 * Command MCU_MOUSE_ALTERNATE shares the ring of MCU_MOUSE. A ring holds whole frames only, up to 585 of
 * them; a frame that finds no room is dropped.
 *
 * Answers belong to requests by their command number alone: of two callers that query one command at the
 * same time, either may get the other's answer, and an answer that comes too late stays for the next read of
 * its command.
 *
 * Unless its comment says otherwise a call may be made from any thread at any time.
 */
#ifndef LIBMARL_MCU_H
#define LIBMARL_MCU_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MCU_FRAME_SIZE 7
#define MCU_RING_SIZE 4096 /* bytes that a ring holds */
#define MCU_COMMAND_MAX 25
#define MCU_SHUTDOWN 3
#define MCU_MOUSE 6
#define MCU_MOUSE_ALTERNATE 22 /* the second kind of mouse report */

/* The ring of a command's answers. */
typedef struct mcu_fifo mcu_fifo;

/* One report of the mouse. */
typedef struct mcu_mouse_report {
    uint8_t key; /* 0x81 for MCU_MOUSE, 0x80 for MCU_MOUSE_ALTERNATE */
    uint16_t x;
    uint16_t y;
} mcu_mouse_report;

/* A program's hold on the mouse: its ring from mouse_open() to mouse_close(), null otherwise. */
typedef struct mouse_client {
    mcu_fifo* fifo;
} mouse_client;

/*
 * The descriptor of /dev/mcu. The first call opens it and starts the reader thread, and a call after a read
 * error starts one again. -1 when it cannot be opened, or when the thread cannot be created (the system error
 * text for "pthread_create spi read\n" on standard error); the next call tries again.
 */
MARL_API int mcu_open(void);

/*
 * Writes all `len` bytes (1..INT32_MAX) and returns `len`; writes of several threads do not mix. A failed
 * write is repeated every 10 ms; after 300 failures in a row, about 3 s, the call returns -1 and what has
 * gone out by then stays out. Null or empty data and a device that cannot be opened give -1 after
 * "--Assert(File:%s::Line:%d)--\n" on standard output.
 */
MARL_API int mcu_write(const uint8_t* buf, uint32_t len);

/* mcu_write() of the MCU_FRAME_SIZE bytes at `frame`: 0, or -1. Nothing is made of `cmd`. */
MARL_API int mcu_send_frame(uint32_t cmd, const uint8_t* frame);

/*
 * Sends the MCU_FRAME_SIZE bytes at `frame`, then waits for an answer of `cmd` as get_spi_data() does and
 * puts it in their place. 0, or -1; a failed send also prints "--Assert(File:%s::Line:%d)--\n" on
 * standard output.
 */
MARL_API int mcu_transact(uint32_t cmd, uint8_t* frame);

/*
 * The ring of `cmd`, created when there is none. Null for a command above MCU_COMMAND_MAX
 * ("--Assert(File:%s::Line:%d)--\n") or without memory ("libMARL::initSpiUtilDev::fifo_malloc failed!\n"),
 * both on standard output. The pointer is good until deinitSpiUtilDev(); nothing needs to be done with it.
 */
MARL_API mcu_fifo* initSpiUtilDev(uint32_t cmd);

/*
 * Frees the ring of `cmd` with what it holds, if there is one; readers that wait on it return. 0, or -1 for a
 * command above MCU_COMMAND_MAX. All users of a ring share it: it goes for all of them.
 */
MARL_API int deinitSpiUtilDev(uint32_t cmd);

/*
 * Waits until the ring of `cmd` holds `len` bytes (0..MCU_RING_SIZE), takes them and returns `len`. MCU_MOUSE
 * waits without limit; any other command about 3 s, then -1 after the ERROR line
 * "SPI_CMD: 0x%x  read timeout !!!\n". Also -1 when the device cannot be opened or read, and when the command
 * has no ring or loses it while the call waits.
 */
MARL_API int get_spi_data(uint32_t cmd, uint8_t* buf, uint32_t len);

/*
 * Asks for the state of a power switch (commands 18, 21, 23, 24 and 25; what each feeds is the board's) and
 * stores it, one byte, through `state`. Its ring must exist. 0; -1 for another command, which sends nothing,
 * or a failed exchange, which leaves `*state` alone and prints as mcu_transact() does.
 */
MARL_API int mcu_query_status(uint32_t cmd, uint8_t* state);

/*
 * Sets a power switch to `on` (0 or 1) and reads it back a second later. Its ring must exist. 0 after
 * "[libmarl] Set CMD:0x%x *************************success\n\n" on standard output; -1 for another command or
 * value, which sends nothing, or after an ERROR line: "Send CMD2SPI to mcu fail!",
 * "Set and QueryStatus fail!", or "Set CMD:0x%x fail!" when the switch is in the other state.
 */
MARL_API int PowerControl(uint32_t cmd, uint32_t on);

/* Tells the microcontroller to cut the power; waits for no answer. MCU_FRAME_SIZE, or -1 as mcu_write(). */
MARL_API int mcu_shutdown(void);

/*
 * Waits without limit for a mouse report, fills `report` and prints "x:%d,y:%d,key:%x\n" on standard output.
 * 0; -1 without a ring (mouse_open()) or device, and when the device cannot be read any more.
 */
MARL_API int get_mouse_report(mcu_mouse_report* report);

/* Creates the ring of mouse reports, or joins it, and notes it in `obj`: 0, or -1 as initSpiUtilDev(). */
MARL_API int mouse_open(mouse_client* obj);

/* Frees the ring of mouse reports for every user of it and clears `obj`: 0, or -1 when `obj` is not open. */
MARL_API int mouse_close(mouse_client* obj);

MARL_END_DECLS

#endif
