/* What libmarl exports is marked MARL_API; everything else stays inside the library. */
#ifndef LIBMARL_EXPORT_H
#define LIBMARL_EXPORT_H

#include <stddef.h>
#include <stdint.h>

#define MARL_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define MARL_BEGIN_DECLS extern "C" {
#define MARL_END_DECLS }
#else
#define MARL_BEGIN_DECLS
#define MARL_END_DECLS
#endif

#endif
