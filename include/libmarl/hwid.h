/*
 * Identification of the board. The load-time initialiser runs hwid_transform(); programs read the result
 * through libmarl/hwinfo.h. The section-based scheme at the end is a service for programs of older boards.
 *
 * Nothing here is meant to run beside readers of the hardware information.
 */
#ifndef LIBMARL_HWID_H
#define LIBMARL_HWID_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_MODEL_ROWS 35  /* rows of the model table; the row number is the product type */
#define MARL_MODEL_SLOTS 20 /* model names in a row; it ends at its first null or empty slot */

/* The device's product catalogue. */
MARL_API extern const char* const MODEL_TABLE[MARL_MODEL_ROWS][MARL_MODEL_SLOTS];

/* The sections of the section-based identification; 18 fields in the order of get_dvr_info()'s indices 0..17.
 */
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
 * Identifies the board and fills HWINFO, hwid and their companions. Sources, in this order: the boot
 * environment's HWID in its colon-separated form; as a hexadecimal number the boot parameter HWID of
 * /proc/qorzo/bootpara, the boot environment's HWID, the record in /mnt/mtdblock1. No failure is fatal:
 * without any source the raw ID is zero and the model "unknow". Run again, it keeps a raw ID that came from
 * the boot environment. Texts too long for a field are cut to it, processor clocks beyond the eighth dropped.
 */
MARL_API void hwid_transform(void);

/*
 * The Device text of /mnt/custom/ProductDefinition, cut to 31 characters. `buf` has 32 bytes. 0, or -1 when
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
 * after the warning "Get product error" when there is none.
 */
MARL_API int check_product_type(const char* text);
MARL_API int check_fvideo_chip(const char* text);

/* Sets hwid_absent to 1 when the boot environment has no HWID, else to 0, and returns it. */
MARL_API int get_hwid_scheme(void);

/*
 * With an HWID in the boot environment runs hwid_transform(); without one fills HWINFO_SECTIONS from the
 * bracketed section keys. A key that is missing, or a version that is not "V%d.%d" with 1..16 and 0..16, is
 * reported with a warning and leaves its field; a name that is not known gives 0xFFFF. Returns 0.
 */
MARL_API int get_hwid_info(void);

MARL_END_DECLS

#endif
