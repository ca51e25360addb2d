/*
 * Identification of the board. The load-time initialiser runs hwid_transform(); programs read the result
 * through libmarl/hwinfo.h and need nothing of this. The section-based scheme at the end is for programs of
 * older boards, which call get_hwid_info() and read HWINFO_SECTIONS.
 *
 * hwid_transform(), get_hwid_scheme() and get_hwid_info() write HWINFO_SECTIONS and what libmarl/hwinfo.h
 * exports: one thread, with no reader beside it. The other calls are safe from any thread.
 *
 * Warnings are WARN lines on standard output. A failure of a source is reported on standard error.
 */
#ifndef LIBMARL_HWID_H
#define LIBMARL_HWID_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_MODEL_ROWS 35  /* rows of the model table; the row number is the product type */
#define MARL_MODEL_SLOTS 20 /* model names in a row; it ends at its first null or empty slot */

/* The device's product catalogue. */
MARL_API extern const char* const MODEL_TABLE[MARL_MODEL_ROWS][MARL_MODEL_SLOTS];

/* The section-based identification: 18 fields in the order of get_dvr_info()'s indices 0 to 17. */
struct marl_hwinfo_sections {
    uint16_t product_type;
    uint16_t video_channel;
    uint16_t audio_channel;
    uint16_t alarm_mode;
    uint16_t fvideo_chip;
    uint16_t dsp_chip;
    uint16_t analog_audio_mode;
    uint16_t talkback;
    uint16_t bvideo_chip;
    uint16_t store_interface;
    uint16_t matrix;
    uint16_t wireless_interface;
    uint16_t hd_encode;
    uint16_t hd_ver;
    uint16_t video_interface;
    uint16_t net_interface;
    uint16_t intelleg_analyse;
    uint16_t hwinfo_ver;
};

MARL_API extern struct marl_hwinfo_sections HWINFO_SECTIONS;

/*
 * Identifies the board and fills HWINFO, hwid and their companions from the first source that there is:
 *  - the boot environment's HWID, when it holds a colon: the colon-separated form;
 *  - the boot parameter HWID of /proc/qorzo/bootpara, a hexadecimal number, as the two that follow;
 *  - the boot environment's HWID;
 *  - the record in /mnt/mtdblock1.
 *
 * No failure is fatal: without any source the raw ID is zero and the model "unknow". Run again, it keeps a
 * raw ID that came from the boot environment. Texts too long for a field are cut to it, processor clocks
 * beyond the eighth dropped.
 */
MARL_API void hwid_transform(void);

/*
 * Identifies the board again if a source could not be read the last time; one that is not there is not asked
 * again. The load-time initialiser calls it once, the daemon until it succeeds. What an earlier source said
 * stays until all that rank before it have answered. 0 when the identity is settled, at no cost then; -1 when
 * a source still cannot be read, with its messages. Safe from any thread: a reader beside it finds each value
 * as it was or as it is, and a model name never half changed.
 */
MARL_API int hwid_retry(void);

/*
 * The Device text of /mnt/custom/ProductDefinition, what is between the first and the last quotation
 * mark behind the colon of a line with "Device", cut to 31 characters. `buf` has 32 bytes. 0, or -1 when
 * it is null, the file cannot be opened ("open %s \n" on standard error) or holds no such text; `buf` is
 * empty then.
 */
MARL_API int read_product_definition(char* buf);

/*
 * The first row of `table` (MARL_MODEL_ROWS rows) that holds `name`, or the position of `name` in a list that
 * ends with a null entry. Otherwise -1 after the warning "Undefined %s in %s" with the name and the key of
 * section `section` (0..17). -1 alone for a null argument or a section out of range.
 */
MARL_API int string2ValueProductType(const char* name, const char* const table[][MARL_MODEL_SLOTS],
                                     uint32_t section);
MARL_API int string2Value(const char* name, const char* const* list, uint32_t section);

/*
 * 1 when the boot-environment value of "[product_type]" or "[fvideo_chip]" contains `text`, 0 when not; -1
 * for null, or after the warning "Get product error" when there is no such value.
 */
MARL_API int check_product_type(const char* text);
MARL_API int check_fvideo_chip(const char* text);

/* Sets hwid_absent to 1 when the boot environment has no HWID, else to 0, and returns it. */
MARL_API int get_hwid_scheme(void);

/*
 * With an HWID in the boot environment runs hwid_transform(); without one fills HWINFO_SECTIONS from the
 * bracketed section keys ("[product_type]" and so on), and product_code from the first. A key that is
 * missing, or a version that is not "V%d.%d" with 1..16 and 0..16, is reported with a warning and leaves its
 * field; a name that is not known is reported and gives 0xFFFF. The version Va.b is stored as 16 * (a - 1) +
 * b modulo 2^16, where a 16 counts as 0. Returns 0.
 */
MARL_API int get_hwid_info(void);

MARL_END_DECLS

#endif
