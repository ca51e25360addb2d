/*
 * The programs that scripts/bench measures. Built with -DPLAIN it is one that does not link the library.
 *
 *   client              ends at once
 *   client wait         waits for ever, for who looks at its memory
 *   client get NAME     prints a variable of the boot environment
 *   client gets N NAME  prints how many nanoseconds one of N look-ups takes
 *   client set N        prints the microseconds of each of N sets of a variable
 *   client flash N K    N times: prints the microseconds of reading 16 MiB with calls of 64 KiB, of the same with
 *                       a comparison of each piece, and of a flash_write of an image of which K sectors differ
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifdef PLAIN

int main(int count, char **arguments)
{
    (void)arguments;
    if (count > 1) pause();
    return 0;
}

#else

#include <fcntl.h>
#include <libmarl.h>
#include <time.h>

enum { kImage = 0x1000000, kPiece = 0x10000, kAddress = 0x2040000 };

/* Of the processor, so that other programs of the machine do not count. */
static double now_us(void)
{
    struct timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return (double)time.tv_sec * 1e6 + (double)time.tv_nsec / 1e3;
}

static int look_up(const char *name)
{
    char value[128];
    if (get_armboot_para(name, value, sizeof value) < 0) return 1;
    puts(value);
    return 0;
}

static int look_up_often(int times, const char *name)
{
    char value[128];
    const double start = now_us();
    for (int i = 0; i < times; ++i) {
        if (get_armboot_para(name, value, sizeof value) < 0) return 1;
    }
    fprintf(stderr, "result %.1f\n", (now_us() - start) * 1e3 / times);
    return 0;
}

static int set(int times)
{
    for (int i = 0; i < times; ++i) {
        char value[16];
        snprintf(value, sizeof value, "%d", i);
        const double start = now_us();
        __set_armboot_para("v50", value);
        fprintf(stderr, "result %.1f\n", now_us() - start);
    }
    return 0;
}

/* Reads the image a piece at a time; compares the pieces with `image` when it is there. */
static double read_all(int fd, unsigned char *piece, const unsigned char *image)
{
    const double start = now_us();
    for (int at = 0; at < kImage; at += kPiece) {
        if (pread(fd, piece, kPiece, at) != kPiece) exit(3);
        if (image != NULL && memcmp(piece, image + at, kPiece) != 0) exit(4);
    }
    return now_us() - start;
}

static int flash(int times, int changed)
{
    const int32_t mode = 0;
    RawFlash *flash = NULL;
    unsigned char *image = malloc(kImage);
    unsigned char *piece = malloc(kPiece);
    if (createRawFlash(&mode, &flash) < 0 || image == NULL || piece == NULL) return 2;
    unsigned number = 1;
    for (int i = 0; i < kImage; ++i) image[i] = (unsigned char)((number = number * 1664525U + 1013904223U) >> 24);
    if (flash->write(flash, image, kAddress, kImage) != kImage) return 2;
    const int fd = open("/dev/mtd/2", O_RDONLY);
    for (int round = 0; round < times; ++round) {
        const double reading = read_all(fd, piece, NULL);
        const double comparing = read_all(fd, piece, image);
        for (int i = 0; i < changed; ++i) image[i * (kImage / (changed + 1)) + round] ^= 0xFF;
        const double start = now_us();
        if (flash->write(flash, image, kAddress, kImage) != kImage) return 2;
        fprintf(stderr, "result %.0f %.0f %.0f\n", reading, comparing, now_us() - start);
    }
    flash->release(flash);
    return 0;
}

int main(int count, char **arguments)
{
    const char *what = count > 1 ? arguments[1] : "";
    if (strcmp(what, "wait") == 0) return pause();
    if (strcmp(what, "get") == 0 && count == 3) return look_up(arguments[2]);
    if (strcmp(what, "gets") == 0 && count == 4) return look_up_often(atoi(arguments[2]), arguments[3]);
    if (strcmp(what, "set") == 0 && count == 3) return set(atoi(arguments[2]));
    if (strcmp(what, "flash") == 0 && count == 4) return flash(atoi(arguments[2]), atoi(arguments[3]));
    return count > 1 ? 2 : 0;
}

#endif
