/**
 * @defgroup hwid Identification
 * @brief Finding out the model: sources, tables and the section-based scheme of older boards.
 *
 * @par Which call
 * None, as a rule: the load-time initialiser runs hwid_transform(), and programs read the result with
 * get_dvr_info() and check_product_model(). A program that lives long and has to know the board calls
 * hwid_retry() until it gives 0. get_hwid_info() is for programs of older boards that read #HWINFO_SECTIONS;
 * check_product_type() and check_fvideo_chip() ask those boards' sections directly, and get_hwid_scheme()
 * which of the two schemes a board has. The rest is what these are made of.
 *
 * @par Messages
 * Warnings are WARN lines on standard output. A failure of a source is reported on standard error.
 *
 * @par Thread safety
 * hwid_transform(), get_hwid_scheme() and get_hwid_info() write #HWINFO_SECTIONS and what get_dvr_info() reads:
 * one thread, with no reader beside it. The other calls are safe from any thread.
 *
 * @par Example
 * @code{.c}
 * while (hwid_retry() < 0) sleep(5);  // a source was busy at the start
 * printf("%s\n", product_model_ptr);
 * @endcode
 * @{
 */
#ifndef LIBMARL_HWID_H
#define LIBMARL_HWID_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_MODEL_ROWS 35  /**< rows of the model table; the row number is the product type */
#define MARL_MODEL_SLOTS 20 /**< model names in a row; it ends at its first null or empty slot */

/** The device's product catalogue. */
MARL_API extern const char* const MODEL_TABLE[MARL_MODEL_ROWS][MARL_MODEL_SLOTS];

/**
 * The section-based identification: 18 fields in the order of get_dvr_info()'s indices 0 to 17. Each is the
 * value of the bracketed key of its name, `[product_type]` and so on, in the boot environment.
 */
struct marl_hwinfo_sections {
    uint16_t product_type;       /**< row of #MODEL_TABLE */
    uint16_t video_channel;      /**< number of video channels */
    uint16_t audio_channel;      /**< number of audio channels */
    uint16_t alarm_mode;         /**< alarm board */
    uint16_t fvideo_chip;        /**< forward (sensor or decoder) video chip */
    uint16_t dsp_chip;           /**< main processor chip */
    uint16_t analog_audio_mode;  /**< analog audio codec */
    uint16_t talkback;           /**< talkback path */
    uint16_t bvideo_chip;        /**< back-end video chip */
    uint16_t store_interface;    /**< storage interface */
    uint16_t matrix;             /**< matrix */
    uint16_t wireless_interface; /**< wireless module's interface */
    uint16_t hd_encode;          /**< hardware encoder */
    uint16_t hd_ver;             /**< board revision, see get_hwid_info() */
    uint16_t video_interface;    /**< video output */
    uint16_t net_interface;      /**< network interface */
    uint16_t intelleg_analyse;   /**< 1: intelligent-analysis hardware */
    uint16_t hwinfo_ver;         /**< version of the sections, see get_hwid_info() */
};

/** The section-based identification, as get_hwid_info() has found it. */
MARL_API extern struct marl_hwinfo_sections HWINFO_SECTIONS;

/**
 * Identifies the board and fills #HWINFO, #hwid and their companions from the first source that there is:
 *  - the boot environment's HWID, when it holds a colon: the colon-separated form;
 *  - the boot parameter HWID of `/proc/qorzo/bootpara`, a hexadecimal number, as the two that follow;
 *  - the boot environment's HWID;
 *  - the record in `/mnt/mtdblock1`.
 *
 * No failure is fatal: without any source the raw ID is zero and the model "unknow". Run again, it keeps a raw
 * ID that came from the boot environment. Texts too long for a field are cut to it, processor clocks beyond
 * the eighth dropped.
 */
MARL_API void hwid_transform(void);

/**
 * Identifies the board again if a source could not be read the last time; one that is not there is not asked
 * again. The load-time initialiser calls it once, the daemon until it succeeds. What an earlier source said
 * stays until all that rank before it have answered. A reader beside it finds each value as it was or as it
 * is, and a model name never half changed.
 *
 * @return 0 when the identity is settled, at no cost then; -1 when a source still cannot be read, with its
 *         messages
 */
MARL_API int hwid_retry(void);

/**
 * The Device text of `/mnt/custom/ProductDefinition`: what is between the first and the last quotation mark
 * behind the colon of a line with "Device".
 *
 * @param buf  32 bytes; the text is cut to 31 characters, and empty when there is none
 * @return 0, or -1 when `buf` is null, the file cannot be opened (`open %s \n` on standard error) or holds no
 *         such text
 */
MARL_API int read_product_definition(char* buf);

/**
 * The first row of a model table that holds a name.
 *
 * @param name     the model
 * @param table    of #MARL_MODEL_ROWS rows, as #MODEL_TABLE
 * @param section  0..17: the section whose key the warning names
 * @return the row; -1 after the warning `Undefined %s in %s\n` with the name and the key when there is none;
 *         -1 alone for a null argument or a section out of range
 */
MARL_API int string2ValueProductType(const char* name, const char* const table[][MARL_MODEL_SLOTS],
                                     uint32_t section);

/**
 * The position of a name in a list.
 *
 * @param name     the name
 * @param list     ends with a null entry
 * @param section  0..17: the section whose key the warning names
 * @return the position; -1 as string2ValueProductType()
 */
MARL_API int string2Value(const char* name, const char* const* list, uint32_t section);

/**
 * Whether the boot-environment value of `[product_type]` contains a text.
 *
 * @param text  what to look for
 * @return 1 when it does, 0 when not; -1 for null, or after the warning `Get product error\n` when there is no
 *         such value
 */
MARL_API int check_product_type(const char* text);

/**
 * Whether the boot-environment value of `[fvideo_chip]` contains a text.
 *
 * @param text  what to look for
 * @return as check_product_type()
 */
MARL_API int check_fvideo_chip(const char* text);

/**
 * Sets #hwid_absent to 1 when the boot environment has no HWID, else to 0.
 *
 * @return what it has set
 */
MARL_API int get_hwid_scheme(void);

/**
 * With an HWID in the boot environment runs hwid_transform(); without one fills #HWINFO_SECTIONS from the
 * bracketed section keys, and #product_code from the first.
 *
 * A key that is missing, or a version that is not "V%d.%d" with 1..16 and 0..16, is reported with a warning
 * and leaves its field; a name that is not known is reported and gives 0xFFFF. The version Va.b is stored as
 * 16 * (a - 1) + b modulo 2^16, where a 16 counts as 0.
 *
 * @return 0
 */
MARL_API int get_hwid_info(void);

MARL_END_DECLS

/** @} */

#endif
