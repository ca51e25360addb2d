/**
 * @defgroup hwinfo Hardware information
 * @brief What board is this? One record, the raw hardware ID beside it, and the calls that answer from them.
 *
 * The record and the raw ID are filled by the load-time initialiser before `main`, and only read afterwards.
 *
 * @par Which call
 * No call has to come first. Programs ask with get_dvr_info() and check_product_model(); get_product_type()
 * and its like are the first with an index. The fields of #HWINFO and the words are for those that need all
 * of it at once. Compare models by prefix with check_product_model(), not by product type: types hold several
 * models. What filled it all is hwid_transform().
 *
 * @par Messages
 * On standard error, but for print_system_info().
 *
 * @par Thread safety
 * Everything is safe from any thread; a program that calls hwid_transform() or get_hwid_info() itself is the
 * exception. Where a source could not be read, hwid_retry() may change the record once more, each value at
 * once.
 *
 * @par Example
 * @code{.c}
 * printf("%.*s, type %d\n", MARL_MODEL_SIZE, HWINFO.product_model, get_product_type());
 * printf("%d channels\n", get_dvr_info(MARL_INFO_VIDEO_CHANNEL));
 * if (check_product_model("QZ-NRX") == 1) puts("a recorder");
 * @endcode
 * @{
 */
#ifndef LIBMARL_HWINFO_H
#define LIBMARL_HWINFO_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_MODEL_SIZE 32 /**< bytes of the model name; a name of 32 characters has no NUL */
#define MARL_CPU_MAX 8     /**< processors whose clock is recorded */
#define MARL_HWID_SIZE 16  /**< bytes of the raw hardware ID */

/**
 * The decoded hardware information. The colon-separated identification fills the 16-bit fields by position,
 * so their order binds. print_system_info() prints the names of the codes.
 */
struct marl_hwinfo {
    char product_model[MARL_MODEL_SIZE];   /**< the model name */
    uint16_t hwid_ver;                     /**< version of the hardware-ID scheme */
    uint16_t product_category;             /**< 1 ITC, 2 IPC, 3 SPC, 0 unknown */
    uint16_t product_sub_category;         /**< number within the category */
    uint16_t fvideo_chip;                  /**< forward (sensor or decoder) video chip */
    uint16_t dsp_chip;                     /**< main processor chip */
    uint16_t bvideo_chip;                  /**< back-end video chip */
    uint16_t video_channel;                /**< number of video channels */
    uint16_t analog_audio_mode;            /**< analog audio codec */
    uint16_t audio_in_channel;             /**< bit mask of audio inputs */
    uint16_t audio_out_channel;            /**< bit mask of audio outputs */
    uint16_t store_interface;              /**< storage interface */
    uint16_t cpu_count;                    /**< entries used in cpu_clock_freq */
    uint16_t cpu_clock_freq[MARL_CPU_MAX]; /**< MHz */
    uint16_t alarm_mode;                   /**< alarm board */
    uint16_t wireless_interface;           /**< wireless module's interface */
    uint16_t hd_encode;                    /**< hardware encoder */
    uint16_t video_interface;              /**< video output */
    uint16_t net_interface;                /**< network interface */
    uint16_t intelleg_analyse;             /**< 1: intelligent-analysis hardware */
    uint16_t hd_ver;                       /**< board revision */
    uint16_t ext_info;                     /**< last field of the colon-separated identification */
    uint16_t unused[21];                   /**< only takes up room */
};

/** The decoded hardware information of this board. */
MARL_API extern struct marl_hwinfo HWINFO;

/** The raw ID. Bytes 0..7, little-endian, hold the packed fields; all zero with the colon-separated scheme. */
MARL_API extern uint8_t hwid[MARL_HWID_SIZE];

/**
 * Product type by model name, the row of #MODEL_TABLE: -1 for an unknown name, 0 when the colon-separated
 * scheme is not in use.
 */
MARL_API extern int32_t product_type;

/** Product code: bits 0..4 of the raw ID, or the type of the section-based identification. */
MARL_API extern uint32_t product_code;

/** 1 when the boot environment holds no HWID; set by get_hwid_scheme(). */
MARL_API extern uint32_t hwid_absent;

/** 1 once the raw ID has been taken from the boot environment. */
MARL_API extern uint32_t hwid_loaded;

/** Number of the keyboard boot parameter. */
MARL_API extern int32_t keyboard_type;

/** The model name in #HWINFO once identification has run, null before. */
MARL_API extern const char* product_model_ptr;

/** Indices of get_dvr_info(). */
enum marl_dvr_info {
    MARL_INFO_PRODUCT_TYPE = 0,          /**< #product_type or, where that is 0, bits 0..4 of the raw ID */
    MARL_INFO_VIDEO_CHANNEL = 1,         /**< number of video channels */
    MARL_INFO_AUDIO_CHANNEL = 2,         /**< number of audio channels, of the raw ID */
    MARL_INFO_ALARM_MODE = 3,            /**< alarm board */
    MARL_INFO_FVIDEO_CHIP = 4,           /**< forward (sensor or decoder) video chip */
    MARL_INFO_DSP_CHIP = 5,              /**< main processor chip */
    MARL_INFO_ANALOG_AUDIO_MODE = 6,     /**< analog audio codec */
    MARL_INFO_TALKBACK = 7,              /**< talkback path, of the raw ID; ask get_talkback_support() */
    MARL_INFO_BVIDEO_CHIP = 8,           /**< back-end video chip */
    MARL_INFO_STORE_INTERFACE = 9,       /**< storage: 0 none, 1 USB, 2 PATA, 3 SATA, 4 SDIO */
    MARL_INFO_MATRIX = 10,               /**< matrix, of the raw ID */
    MARL_INFO_WIRELESS_INTERFACE = 11,   /**< wireless module's interface */
    MARL_INFO_HD_ENCODE = 12,            /**< hardware encoder */
    MARL_INFO_HD_VER = 13,               /**< board revision */
    MARL_INFO_VIDEO_INTERFACE = 14,      /**< video output */
    MARL_INFO_NET_INTERFACE = 15,        /**< network interface */
    MARL_INFO_INTELLEG_ANALYSE = 16,     /**< 1: intelligent-analysis hardware */
    MARL_INFO_HWINFO_VER = 17,           /**< version of the packed layout, of the raw ID */
    MARL_INFO_HWID_VER = 18,             /**< version of the hardware-ID scheme */
    MARL_INFO_PRODUCT_CATEGORY = 19,     /**< 1 ITC, 2 IPC, 3 SPC, 0 unknown */
    MARL_INFO_PRODUCT_SUB_CATEGORY = 20, /**< number within the category */
    MARL_INFO_AUDIO_IN_CHANNEL = 21,     /**< bit mask of audio inputs */
    MARL_INFO_AUDIO_OUT_CHANNEL = 22,    /**< bit mask of audio outputs */
    MARL_INFO_CPU_COUNT = 23,            /**< number of processors */
    MARL_INFO_EXT_INFO = 24,             /**< last field of the colon-separated identification */
    MARL_INFO_COUNT = 25                 /**< number of indices */
};

/**
 * One value of the hardware information.
 *
 * The product type is -1 for an unknown model name. The audio channels, talkback, matrix and
 * #MARL_INFO_HWINFO_VER are taken from the raw ID, with 32 audio channels for 0; all others are the fields of
 * #HWINFO.
 *
 * @param index  what is asked for (enum marl_dvr_info)
 * @return the value; -1 after `invalid dvr info cmd\n` on standard error for an index out of range
 */
MARL_API int get_dvr_info(uint32_t index);

/**
 * get_dvr_info() of #MARL_INFO_PRODUCT_TYPE.
 *
 * @return the product type, -1 for an unknown model name
 */
MARL_API int get_product_type(void);

/**
 * The low 8 bits of get_product_type().
 *
 * @return the product type, 255 for an unknown model name
 */
MARL_API uint8_t get_product_type_u8(void);

/**
 * The low 8 bits of #MARL_INFO_VIDEO_CHANNEL.
 *
 * @return the number of video channels
 */
MARL_API uint8_t get_video_channel_num(void);

/**
 * The low 8 bits of #MARL_INFO_HD_VER.
 *
 * @return the board revision
 */
MARL_API uint8_t get_hardware_version(void);

/**
 * Whether the product model begins with `name`, which the empty name always does.
 *
 * @param name  at most 32 characters
 * @return 1 when it does, 0 when not; 0 for null, and for a longer name after `product model too long\n` on
 *         standard error
 */
MARL_API int check_product_model(const char* name);

/**
 * Whether the board has a talkback audio path.
 *
 * @param direction  1 its input side, 0 its output side; any other is answered without regard to sides
 * @return non-zero when it has: with the colon-separated scheme the bit mask of that side's channels, else 1
 */
MARL_API int get_talkback_support(int direction);

/**
 * Prints the record as a block on standard output.
 *
 * @return negative when its last line was dropped
 */
MARL_API int print_system_info(void);

MARL_END_DECLS

/** @} */

#endif
