/*
 * What board is this? The answer lives in one record, HWINFO, and the raw hardware ID beside it. Both are
 * filled by the load-time initialiser before main(), so no call has to come first, and only read afterwards,
 * so everything here is safe from any thread; a program that calls hwid_transform() or get_hwid_info()
 * (libmarl/hwid.h) itself is the exception. Where a source could not be read, hwid_retry() there may change
 * them once more, each value at once.
 *
 * Programs ask with get_dvr_info() and check_product_model(); the fields and words are for those that need
 * all of it at once.
 */
#ifndef LIBMARL_HWINFO_H
#define LIBMARL_HWINFO_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_MODEL_SIZE 32 /* bytes of the model name; a name of 32 characters has no NUL */
#define MARL_CPU_MAX 8     /* processors whose clock is recorded */
#define MARL_HWID_SIZE 16  /* bytes of the raw hardware ID */

/*
 * The decoded hardware information. The colon-separated identification fills the 16-bit fields by position,
 * so their order binds. print_system_info() prints the names of the codes.
 */
struct marl_hwinfo {
    char product_model[MARL_MODEL_SIZE];
    uint16_t hwid_ver;         /* version of the hardware-ID scheme */
    uint16_t product_category; /* 1 ITC, 2 IPC, 3 SPC, 0 unknown */
    uint16_t product_sub_category;
    uint16_t fvideo_chip;                  /* forward (sensor or decoder) video chip */
    uint16_t dsp_chip;                     /* main processor chip */
    uint16_t bvideo_chip;                  /* back-end video chip */
    uint16_t video_channel;                /* number of video channels */
    uint16_t analog_audio_mode;            /* analog audio codec */
    uint16_t audio_in_channel;             /* bit mask of audio inputs */
    uint16_t audio_out_channel;            /* bit mask of audio outputs */
    uint16_t store_interface;              /* storage interface */
    uint16_t cpu_count;                    /* entries used in cpu_clock_freq */
    uint16_t cpu_clock_freq[MARL_CPU_MAX]; /* MHz */
    uint16_t alarm_mode;                   /* alarm board */
    uint16_t wireless_interface;           /* wireless module's interface */
    uint16_t hd_encode;                    /* hardware encoder */
    uint16_t video_interface;              /* video output */
    uint16_t net_interface;                /* network interface */
    uint16_t intelleg_analyse;             /* 1: intelligent-analysis hardware */
    uint16_t hd_ver;                       /* board revision */
    uint16_t ext_info;                     /* last field of the colon-separated identification */
    uint16_t unused[21];
};

MARL_API extern struct marl_hwinfo HWINFO;

/* The raw ID. Bytes 0..7, little-endian, hold the packed fields; all zero with the colon-separated scheme. */
MARL_API extern uint8_t hwid[MARL_HWID_SIZE];

/*
 * Product type by model name, the row of MODEL_TABLE (libmarl/hwid.h): -1 for an unknown name, 0 when the
 * colon-separated scheme is not in use.
 */
MARL_API extern int32_t product_type;

/* Product code: bits 0..4 of the raw ID, or the type of the section-based identification. */
MARL_API extern uint32_t product_code;

/* 1 when the boot environment holds no HWID; set by get_hwid_scheme(). */
MARL_API extern uint32_t hwid_absent;

/* 1 once the raw ID has been taken from the boot environment. */
MARL_API extern uint32_t hwid_loaded;

/* Number of the keyboard boot parameter. */
MARL_API extern int32_t keyboard_type;

/* HWINFO.product_model once identification has run, null before. */
MARL_API extern const char* product_model_ptr;

/* Indices of get_dvr_info(). */
enum marl_dvr_info {
    MARL_INFO_PRODUCT_TYPE = 0,
    MARL_INFO_VIDEO_CHANNEL = 1,
    MARL_INFO_AUDIO_CHANNEL = 2,
    MARL_INFO_ALARM_MODE = 3,
    MARL_INFO_FVIDEO_CHIP = 4,
    MARL_INFO_DSP_CHIP = 5,
    MARL_INFO_ANALOG_AUDIO_MODE = 6,
    MARL_INFO_TALKBACK = 7,
    MARL_INFO_BVIDEO_CHIP = 8,
    MARL_INFO_STORE_INTERFACE = 9,
    MARL_INFO_MATRIX = 10,
    MARL_INFO_WIRELESS_INTERFACE = 11,
    MARL_INFO_HD_ENCODE = 12,
    MARL_INFO_HD_VER = 13,
    MARL_INFO_VIDEO_INTERFACE = 14,
    MARL_INFO_NET_INTERFACE = 15,
    MARL_INFO_INTELLEG_ANALYSE = 16,
    MARL_INFO_HWINFO_VER = 17,
    MARL_INFO_HWID_VER = 18,
    MARL_INFO_PRODUCT_CATEGORY = 19,
    MARL_INFO_PRODUCT_SUB_CATEGORY = 20,
    MARL_INFO_AUDIO_IN_CHANNEL = 21,
    MARL_INFO_AUDIO_OUT_CHANNEL = 22,
    MARL_INFO_CPU_COUNT = 23,
    MARL_INFO_EXT_INFO = 24,
    MARL_INFO_COUNT = 25
};

/*
 * One value of the hardware information by index (enum marl_dvr_info). The product type is `product_type`,
 * or where that is 0, bits 0..4 of the raw ID; so it is -1 for an unknown model name. The audio channels,
 * talkback, matrix and MARL_INFO_HWINFO_VER are taken from the raw ID, with 32 audio channels for 0; all
 * others are the fields of HWINFO. An index out of range gives -1 after "invalid dvr info cmd\n" on
 * standard error.
 */
MARL_API int get_dvr_info(uint32_t index);

/* get_dvr_info(0) whole, and the low 8 bits of indices 0, 1 and 13. */
MARL_API int get_product_type(void);
MARL_API uint8_t get_product_type_u8(void);
MARL_API uint8_t get_video_channel_num(void);
MARL_API uint8_t get_hardware_version(void);

/*
 * 1 when the product model begins with `name`, which the empty name always does; else 0. Null gives 0, a name
 * of more than 32 characters as well, after "product model too long\n" on standard error.
 */
MARL_API int check_product_model(const char* name);

/*
 * Whether the board has a talkback audio path, on its input side (`direction` 1) or output side (0): non-zero
 * when it has. Any other direction is answered without regard to sides.
 */
MARL_API int get_talkback_support(int direction);

/* Prints the record as a block on standard output. Negative when its last line was dropped. */
MARL_API int print_system_info(void);

MARL_END_DECLS

#endif
