/*
 * Types shared by every exported family of libguestprep.
 *
 * The library exports plain C functions with unmangled names. Heap results
 * are allocated with malloc() and released by the caller with free().
 */
#ifndef GUESTPREP_TYPES_H
#define GUESTPREP_TYPES_H

#include <stddef.h>
#include <stdint.h>

#if defined(GUESTPREP_BUILDING)
#define GUESTPREP_API __attribute__((visibility("default")))
#else
#define GUESTPREP_API
#endif

/* A truth value: TRUE (1) or FALSE (0); one byte where it is a record field. */
typedef uint8_t Bool;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#endif /* GUESTPREP_TYPES_H */
