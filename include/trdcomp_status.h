/* trdcomp status codes: the one set of reasons that the C++ entry points (TrdCompData.h, their
 * `reason` arguments and ErrorName) and the C interface (trdcomp_c.h, its return values and
 * trdcomp_error) both report. Included by both headers, alone or in either order.
 *
 * Values are stable: a code keeps its number in every later release, and new codes are added
 * before TRDCOMP_STATUS_COUNT, never in between. trdcomp_status_name (C) and
 * CTrdCompData::ErrorName (C++) give a short text for each. */
#ifndef TRDCOMP_TRDCOMP_STATUS_H
#define TRDCOMP_TRDCOMP_STATUS_H

#ifdef __cplusplus
enum TrdCompError : int {
#else
enum TrdCompError {
#endif
  TRDCOMP_OK = 0,
  /* Refusals of the entry points (and of the C interface, which restores and packs through
   * them). */
  TRDCOMP_ERROR_NULL_ARGUMENT = 1,      /* a pointer that the call needs is null */
  TRDCOMP_ERROR_NEGATIVE_SIZE = 2,      /* a negative length, count or record size */
  TRDCOMP_ERROR_HEADER_LENGTH = 3,      /* the header length lies beyond the input */
  TRDCOMP_ERROR_PACKED_UNKNOWN = 4,     /* an unknown number whose records are marked packed */
  TRDCOMP_ERROR_SECTION_BIT = 5,        /* a request with the section-table bit set */
  TRDCOMP_ERROR_COUNT_BEYOND_INPUT = 6, /* the record count cannot fit in the bytes given */
  TRDCOMP_ERROR_COUNT_MISMATCH = 7,     /* a 2011 packed count differs from the header's */
  TRDCOMP_ERROR_TOO_LARGE = 8,          /* a size does not fit the 32-bit lengths of the API */
  TRDCOMP_ERROR_LIMIT = 9,              /* the restored message would exceed the caller's limit */
  TRDCOMP_ERROR_ALLOCATION = 10,        /* the allocator returned nothing */
  TRDCOMP_ERROR_OUTPUT_TOO_SMALL = 11,  /* the packed or restored message does not fit the output */
  TRDCOMP_ERROR_BODY_TOO_SHORT = 12,    /* record count x record size exceeds the body's bytes */
  TRDCOMP_ERROR_DICTIONARY_INDEX = 13,  /* a 2011 record names a dictionary entry not there */
  /* Faults that the C interface finds in what it is given before any entry point runs. */
  TRDCOMP_ERROR_ARGUMENT = 14,         /* an unknown direction or codec, an index out of range */
  TRDCOMP_ERROR_TRUNCATED = 15,        /* the data ends before the header or table it must hold */
  TRDCOMP_ERROR_HEADER = 16,           /* a header or table field that the call cannot take */
  TRDCOMP_ERROR_UNKNOWN_FUNCTION = 17, /* a function number the call needs a layout for */
  TRDCOMP_STATUS_COUNT = 18            /* the number of codes, one more than the last */
};

#endif /* TRDCOMP_TRDCOMP_STATUS_H */
