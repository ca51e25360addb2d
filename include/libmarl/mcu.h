/**
 * @defgroup mcu Microcontroller
 * @brief Power switches, shutdown and mouse reports of the microcontroller behind `/dev/mcu`.
 *
 * Both directions carry frames of #MCU_FRAME_SIZE bytes. Commands are 0..#MCU_COMMAND_MAX.
 *
 *   Byte | From the host                       | From the microcontroller
 *   ---- | ----------------------------------- | ------------------------
 *   0    | 0xA1                                | 0xA0
 *   1    | command                             | command
 *   2    | operation: 0 to set, 1 to query     | data, as up to byte 5
 *   3    | value to set: 1 on, 0 off           | of a power switch: its state
 *   4, 5 | 0                                   | data
 *   6    | 0x0A                                | 0x0A, with 0xFF bytes as filler anywhere
 *
 * The first use opens the device and starts one reader thread, which lives until the process ends or a read
 * fails; it takes no signals. When a read fails (`MCU read error\n` as an ERROR line) all who wait for an
 * answer get -1, and the next call that uses the device starts a reader again. A child that was forked has no
 * reader: where its parent had used the device, it must not.
 *
 * The reader sorts what arrives into one ring per command. What arrives for a command without a ring is lost.
 * Command #MCU_MOUSE_ALTERNATE shares the ring of #MCU_MOUSE. A ring holds whole frames only, up to 585 of
 * them; a frame that finds no room is dropped.
 *
 * @par Which call
 * initSpiUtilDev() for each command that will be asked, or mouse_open() for the mouse; then PowerControl() and
 * mcu_query_status() for power switches, get_mouse_report() for the mouse and mcu_transact() for any other
 * command. Nobody has to call mcu_open(); mcu_write(), mcu_send_frame() and get_spi_data() are the parts of
 * mcu_transact(). mcu_shutdown() needs no ring; a program that halts the board calls sys_halt(), which calls
 * it.
 *
 * @par Messages
 * On standard output, but for the thread that cannot be created.
 *
 * @par Thread safety
 * Unless its description says otherwise a call may be made from any thread at any time. Answers belong to requests
 * by their command number alone: of two callers that query one command at the same time, either may get the
 * other's answer, and an answer that comes too late stays for the next read of its command.
 *
 * @par Example
 * @code{.c}
 * uint8_t state = 0;
 * if (initSpiUtilDev(21) == NULL) exit(EXIT_FAILURE);
 * if (mcu_query_status(21, &state) == 0 && state == 0) PowerControl(21, 1);
 * deinitSpiUtilDev(21);
 * @endcode
 * @{
 */
#ifndef LIBMARL_MCU_H
#define LIBMARL_MCU_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MCU_FRAME_SIZE 7       /**< bytes of a frame */
#define MCU_RING_SIZE 4096     /**< bytes that a ring holds */
#define MCU_COMMAND_MAX 25     /**< the highest command */
#define MCU_SHUTDOWN 3         /**< command: cut the power */
#define MCU_MOUSE 6            /**< command: a mouse report */
#define MCU_MOUSE_ALTERNATE 22 /**< command: the second kind of mouse report */

/** The ring of a command's answers. */
typedef struct mcu_fifo mcu_fifo;

/** One report of the mouse. */
typedef struct mcu_mouse_report {
    uint8_t key; /**< 0x81 for #MCU_MOUSE, 0x80 for #MCU_MOUSE_ALTERNATE */
    uint16_t x;  /**< position, as the mouse gives it */
    uint16_t y;  /**< position, as the mouse gives it */
} mcu_mouse_report;

/** A program's hold on the mouse. */
typedef struct mouse_client {
    mcu_fifo* fifo; /**< the ring from mouse_open() to mouse_close(), null otherwise */
} mouse_client;

/**
 * The descriptor of `/dev/mcu`. The first call opens it and starts the reader thread, and a call after a read
 * error starts one again.
 *
 * @return the descriptor; -1 when it cannot be opened, or when the thread cannot be created (the system error
 *         text for `pthread_create spi read\n` on standard error); the next call tries again
 */
MARL_API int mcu_open(void);

/**
 * Writes all bytes; writes of several threads do not mix. A failed write is repeated every 10 ms; after 300
 * failures in a row, about 3 s, the call gives up and what has gone out by then stays out.
 *
 * @param buf  the bytes
 * @param len  1..INT32_MAX
 * @return `len`, or -1; null or empty data and a device that cannot be opened give -1 after
 *         `--Assert(File:%s::Line:%d)--\n`
 */
MARL_API int mcu_write(const uint8_t* buf, uint32_t len);

/**
 * mcu_write() of a frame.
 *
 * @param cmd    nothing is made of it
 * @param frame  #MCU_FRAME_SIZE bytes
 * @return 0, or -1
 */
MARL_API int mcu_send_frame(uint32_t cmd, const uint8_t* frame);

/**
 * Sends a frame, then waits for an answer as get_spi_data() does and puts it in the frame's place.
 *
 * @param cmd    command of the answer; its ring must exist
 * @param frame  #MCU_FRAME_SIZE bytes
 * @return 0, or -1; a failed send also prints `--Assert(File:%s::Line:%d)--\n`
 */
MARL_API int mcu_transact(uint32_t cmd, uint8_t* frame);

/**
 * The ring of a command, created when there is none.
 *
 * @param cmd  0..#MCU_COMMAND_MAX
 * @return the ring, good until deinitSpiUtilDev(); nothing needs to be done with it. Null for a command out of
 *         range (`--Assert(File:%s::Line:%d)--\n`) or without memory
 *         (`libMARL::initSpiUtilDev::fifo_malloc failed!\n`).
 */
MARL_API mcu_fifo* initSpiUtilDev(uint32_t cmd);

/**
 * Frees the ring of a command with what it holds, if there is one; readers that wait on it return. All users
 * of a ring share it: it goes for all of them.
 *
 * @param cmd  0..#MCU_COMMAND_MAX
 * @return 0, or -1 for a command out of range
 */
MARL_API int deinitSpiUtilDev(uint32_t cmd);

/**
 * Waits until the ring of a command holds `len` bytes and takes them. #MCU_MOUSE waits without limit; any
 * other command about 3 s.
 *
 * @param cmd  0..#MCU_COMMAND_MAX
 * @param buf  where the bytes go
 * @param len  0..#MCU_RING_SIZE
 * @return `len`; -1 after the ERROR line `SPI_CMD: 0x%x  read timeout !!!\n`, when the device cannot be opened
 *         or read, and when the command has no ring or loses it while the call waits
 */
MARL_API int get_spi_data(uint32_t cmd, uint8_t* buf, uint32_t len);

/**
 * Asks for the state of a power switch. Its ring must exist.
 *
 * @param cmd    18, 21, 23, 24 or 25; what each feeds is the board's
 * @param state  where the state goes, one byte; left alone by a failed exchange
 * @return 0; -1 for another command, which sends nothing, or a failed exchange, which prints as mcu_transact()
 *         does
 */
MARL_API int mcu_query_status(uint32_t cmd, uint8_t* state);

/**
 * Sets a power switch and reads it back a second later. Its ring must exist.
 *
 * @param cmd  18, 21, 23, 24 or 25
 * @param on   1 on, 0 off
 * @return 0 after `[libmarl] Set CMD:0x%x *************************success\n\n`; -1 for another command or
 *         value, which sends nothing, or after an ERROR line: `Send CMD2SPI to mcu fail!\n`,
 *         `Set and QueryStatus fail!\n`, or `Set CMD:0x%x fail!\n` when the switch is in the other state
 */
MARL_API int PowerControl(uint32_t cmd, uint32_t on);

/**
 * Tells the microcontroller to cut the power; waits for no answer.
 *
 * @return #MCU_FRAME_SIZE, or -1 as mcu_write()
 */
MARL_API int mcu_shutdown(void);

/**
 * Waits without limit for a mouse report and prints `x:%d,y:%d,key:%x\n`.
 *
 * @param report  where it goes
 * @return 0; -1 without a ring (mouse_open()) or device, and when the device cannot be read any more
 */
MARL_API int get_mouse_report(mcu_mouse_report* report);

/**
 * Creates the ring of mouse reports, or joins it.
 *
 * @param obj  where that is noted
 * @return 0, or -1 as initSpiUtilDev()
 */
MARL_API int mouse_open(mouse_client* obj);

/**
 * Frees the ring of mouse reports for every user of it.
 *
 * @param obj  as of mouse_open(); cleared
 * @return 0, or -1 when it is not open
 */
MARL_API int mouse_close(mouse_client* obj);

MARL_END_DECLS

/** @} */

#endif
