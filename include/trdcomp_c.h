/* trdcomp C interface: whole messages in, whole messages out, and the record layouts described
 * as data, for tools and for languages that call C (Python's ctypes, for one).
 *
 * A "raw" message is a header followed by plain record images: the form a trading program holds
 * in memory and the form a restore produces. A "packed" message is what goes on the wire. Every
 * message starts with its header length (76 for a request, 96 for an answer), its function
 * number and its flags byte (bit 0 records packed, bit 1 section table, bits 4-7 codec nibble:
 * 0 the 2008 codec, 1 to 15 the 2011 Fast codec).
 *
 * A restore here takes exactly what the C++ restore entry points take and gives the same bytes:
 * what is odd about a message but restores all the same (records past its end, a header length
 * other than 76 or 96, a 2011 count that differs from the header's) comes back as a warning with
 * its byte offset, never as a refusal. Every failure fills a trdcomp_error with a code, the byte
 * offset of the fault when there is one, and a one-line message. Buffers these functions return
 * are released with trdcomp_release. They hold no state and may run on any number of threads at
 * once. */
#ifndef TRDCOMP_TRDCOMP_C_H
#define TRDCOMP_TRDCOMP_C_H

#include <stddef.h>
#include <stdint.h>

#include "trdcomp_status.h"

#ifndef TRDCOMP_API
#if defined(_WIN32)
#if defined(TRDCOMP_BUILDING)
#define TRDCOMP_API __declspec(dllexport)
#elif defined(TRDCOMP_STATIC)
#define TRDCOMP_API
#else
#define TRDCOMP_API __declspec(dllimport)
#endif
#else
#define TRDCOMP_API __attribute__((visibility("default")))
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Directions. TRDCOMP_DETECT asks the function to tell them apart by the header length. */
#define TRDCOMP_DETECT (-1)
#define TRDCOMP_REQUEST 0
#define TRDCOMP_ANSWER 1

/* The headers, as they lie at the start of a message (little-endian, no padding). A message's
 * bytes are read into these with memcpy; the library reads and writes them by these names. */
#if defined(_MSC_VER) || defined(__GNUC__)
#pragma pack(push, 1)
#endif
typedef struct trdcomp_request_header {
  int32_t header_length; /* where the body starts; 76 as written */
  uint32_t function;     /* function number */
  uint8_t flags;         /* TRDCOMP_FLAG_* */
  uint8_t caller[59];    /* the caller's own, carried unchanged */
  int32_t count;         /* records in the body */
  int32_t size;          /* bytes of one record image */
} trdcomp_request_header;

typedef struct trdcomp_answer_header {
  int32_t header_length; /* where the body (or section table) starts; 96 as written */
  uint32_t function;
  uint8_t flags;
  uint8_t caller[11];
  char short_text[4];
  char text[64];
  int32_t count; /* records of section 0 */
  int32_t size;  /* bytes of one record of section 0 */
} trdcomp_answer_header;
#if defined(_MSC_VER) || defined(__GNUC__)
#pragma pack(pop)
#endif

/* The bits of the flags byte. */
#define TRDCOMP_FLAG_PACKED 0x01        /* the body holds packed records */
#define TRDCOMP_FLAG_SECTION_TABLE 0x02 /* an answer's sections are listed in a table */
#define TRDCOMP_FLAG_NIBBLE_SHIFT 4     /* bits 4-7: the codec nibble, 0 the 2008 codec */
#define TRDCOMP_FLAG_NIBBLE_MASK 0xF0

/* Codec choices of trdcomp_pack and trdcomp_describe. */
#define TRDCOMP_CODEC_HEADER 0 /* trdcomp_pack: the codec the message's nibble names */
#define TRDCOMP_CODEC_2008 2008
#define TRDCOMP_CODEC_2011 2011

/* Status codes: TRDCOMP_OK (0) or one of the TRDCOMP_ERROR_* reasons of trdcomp_status.h, the
 * same codes that the C++ entry points report. */

typedef struct trdcomp_error {
  int code;          /* TRDCOMP_OK or a TRDCOMP_ERROR_* reason */
  int64_t offset;    /* byte offset of the fault in the input, -1 when none applies */
  char message[240]; /* one line, zero-terminated, without the offset */
} trdcomp_error;

/* What a number's message body is made of, per direction. */
#define TRDCOMP_FORM_RECORDS 0     /* records of the layouts below */
#define TRDCOMP_FORM_HEADER_ONLY 1 /* requests 1000 and 1001: packed as the header alone */
#define TRDCOMP_FORM_NO_BODY 2     /* 1017: no body in either direction */
#define TRDCOMP_FORM_PASS_THROUGH \
  3 /* no layout: the body travels as it is (8998 requests, 8999 answers) */

/* Field kinds, as the layout tables name them. */
#define TRDCOMP_KIND_CHAR 0       /* one raw byte */
#define TRDCOMP_KIND_TEXT 1       /* char[N]: zero-terminated inside its array when shorter */
#define TRDCOMP_KIND_SHORT_TEXT 2 /* short string [N]: at most N - 1 bytes survive */
#define TRDCOMP_KIND_BLOCK 3      /* byte block [N]: opaque, always the full width */
#define TRDCOMP_KIND_INT32 4      /* int32 whose 2008 form the codec flag chooses */
#define TRDCOMP_KIND_INT64 5      /* int64 */
#define TRDCOMP_KIND_DOUBLE 6     /* price or amount: 4 decimals (2008), 3 decimals (2011) */
#define TRDCOMP_KIND_COUNTED_BLOCK                                                        \
  7                          /* byte block whose used length is the int32 at count_offset \
                              */
#define TRDCOMP_KIND_GROUP 8 /* up to `repeat` entries of the `members` fields after it */

/* 2011 Fast text forms and integer bases. */
#define TRDCOMP_TEXT_LENGTH_PREFIXED 0
#define TRDCOMP_TEXT_STOP_BIT 1 /* 7-bit characters only */
#define TRDCOMP_TEXT_EXCHANGE 2 /* three-character exchange code */
#define TRDCOMP_BASE_CONSTANT 0
#define TRDCOMP_BASE_FIELD 1
#define TRDCOMP_BASE_PREVIOUS 2

/* Up to three sections per answer (2008 optional sections included). */
#define TRDCOMP_MAX_SECTIONS 3

typedef struct trdcomp_section_info {
  uint32_t record_size; /* bytes of one record */
  uint32_t field_count; /* entries of trdcomp_field: group members counted */
  uint32_t routine;     /* the number whose layout row this is (1008 answers use 1007's) */
  int opaque;           /* records are copied, never encoded (request 1000) */
  int rotated;          /* encoding order is not ascending offset */
  int dictionary;       /* 2011 Fast: repeated field groups travel once */
  int optional;         /* 2008 only: present when the message's section table sends it */
} trdcomp_section_info;

typedef struct trdcomp_message_info {
  uint32_t number;
  int form;          /* TRDCOMP_FORM_* */
  int section_count; /* 0 unless form is TRDCOMP_FORM_RECORDS; requests have 1 */
  trdcomp_section_info sections[TRDCOMP_MAX_SECTIONS];
} trdcomp_message_info;

typedef struct trdcomp_field_info {
  uint32_t offset;       /* in the record; for a group member, in the group's entry */
  uint32_t width;        /* bytes in the record (a group: repeat x stride) */
  uint32_t cap;          /* texts: most bytes the 2008 decoder keeps */
  int kind;              /* TRDCOMP_KIND_* */
  int group;             /* index of the enclosing group field, or -1 */
  uint32_t repeat;       /* group: most entries */
  uint32_t stride;       /* group: bytes per entry */
  uint32_t members;      /* group: member fields that follow it */
  uint32_t count_offset; /* group, counted block: offset of the int32 that counts */
  /* 2011 Fast attributes. */
  int text_form;   /* TRDCOMP_TEXT_* */
  int base_form;   /* TRDCOMP_BASE_* */
  int has_default; /* the first record leaves the field out when it equals the default */
  int dictionary;  /* one of the repeated group of a dictionary layout */
  int64_t base;
  uint32_t base_offset;
  int64_t default_value;
} trdcomp_field_info;

/* The known function numbers: trdcomp_function_count() of them (115), in ascending order;
 * trdcomp_function_at returns 0 for an index out of range. */
TRDCOMP_API int trdcomp_function_count(void);
TRDCOMP_API uint32_t trdcomp_function_at(int index);

/* Describes the records of `number` in `direction` and `codec` (2008 or 2011) as a restored
 * message holds them, which is also how trdcomp_pack reads a raw message. Returns 0, or
 * TRDCOMP_ERROR_UNKNOWN_FUNCTION for an unknown number and TRDCOMP_ERROR_ARGUMENT for a bad
 * direction, codec or null `info`. Nothing to free. */
TRDCOMP_API int trdcomp_describe(uint32_t number, int direction, int codec,
                                 trdcomp_message_info* info);

/* Field `index` (0 to field_count - 1, in encoding order) of section `section` of the records
 * described above. Returns 0, or a status code as trdcomp_describe does. Nothing to free. */
TRDCOMP_API int trdcomp_field(uint32_t number, int direction, int codec, int section, int index,
                              trdcomp_field_info* field);

/* The direction of a message by its header length (76: request, 96: answer), or -1 when the
 * first four bytes say neither (or fewer than four are given). */
TRDCOMP_API int trdcomp_direction(const void* message, size_t length);

/* Packs the raw message `raw` (`raw_len` bytes). `direction` may be TRDCOMP_DETECT. `codec` is
 * TRDCOMP_CODEC_HEADER (the nibble of the message), TRDCOMP_CODEC_2008 (nibble 0) or
 * TRDCOMP_CODEC_2011 (the message's nibble when it is not 0, else 1). `flag` is the codec flag
 * of the 2008 codec (0: compact 32-bit int32 fields, 1: compact 64-bit form).
 * A raw request is the 76-byte header and `count` records of `size` bytes at offset 76; a raw
 * answer is the 96-byte header, a section table when flags bit 1 is set (at most five
 * sections), and the sections one after another.
 * On success returns 0 and stores in `*out` a buffer of `*out_len` bytes that the caller frees
 * with trdcomp_release. On failure returns a status code, fills `err` when it is not null and
 * leaves `*out` null. */
TRDCOMP_API int trdcomp_pack(const void* raw, size_t raw_len, int direction, int codec, int flag,
                             void** out, size_t* out_len, trdcomp_error* err);

/* Restores the message `packed` (`length` bytes, packed or raw) into a raw message, as
 * RestoreReq2008Ex / RestoreAns2008Ex do: the same refusals (their reason is the code) and the
 * same bytes, except that flags bit 0 is cleared because the body now holds plain records. The
 * codec comes from the header; `flag` is the 2008 codec flag the sender used. `max_len` limits
 * the restored length (0: 256 MiB). `direction` may be TRDCOMP_DETECT (by the header length).
 * A 1017 message (no body) restores to its header as it came.
 * On success returns 0 and stores in `*out` a buffer of `*out_len` bytes that the caller frees
 * with trdcomp_release. On failure returns a status code, fills `err` when it is not null and
 * leaves `*out` null. */
TRDCOMP_API int trdcomp_restore(const void* packed, size_t length, int direction, int flag,
                                size_t max_len, void** out, size_t* out_len, trdcomp_error* err);

/* What is odd about a message that restores all the same. */
#define TRDCOMP_WARN_HEADER_LENGTH                          \
  1 /* a header length other than 76 (96): records are read \
       from where the format reads them */
#define TRDCOMP_WARN_RECORDS_MISSING                                                              \
  2                                    /* the message ends before records it counts: they restore \
                                          as zeros and the count is kept */
#define TRDCOMP_WARN_RECORD_CUT 3      /* a record's bytes run past the end of the message */
#define TRDCOMP_WARN_COUNT_DISAGREES 4 /* a 2011 section count differs from the header's */

typedef struct trdcomp_warning {
  int code;          /* TRDCOMP_WARN_* */
  int64_t offset;    /* where in the input */
  char message[200]; /* one line, zero-terminated, without the offset */
} trdcomp_warning;

/* trdcomp_restore, telling what is odd: up to `capacity` warnings go to `warnings` (which may be
 * null when `capacity` is 0), and `*warning_count` (when not null) receives how many there
 * were, also when that is more than `capacity` or the restore fails. */
TRDCOMP_API int trdcomp_restore_ex(const void* packed, size_t length, int direction, int flag,
                                   size_t max_len, void** out, size_t* out_len,
                                   trdcomp_warning* warnings, size_t capacity,
                                   size_t* warning_count, trdcomp_error* err);

/* A message's frame, as the library walks it. */
typedef struct trdcomp_section_frame {
  int32_t count;           /* records the message counts */
  int32_t sender_size;     /* plain records: the record size the message states; packed: 0 */
  uint32_t record_size;    /* bytes of one record of the restored message */
  int dictionary;          /* 2011: a dictionary section */
  int64_t count_offset;    /* where the count lies in the input */
  int64_t first_offset;    /* where the first record (its length, when packed) starts; -1 */
  int64_t present;         /* records whose bytes start inside the input */
  int64_t restored_offset; /* where the section's first record lies in the restored message */
} trdcomp_section_frame;

typedef struct trdcomp_frame {
  int direction; /* TRDCOMP_REQUEST or TRDCOMP_ANSWER */
  int codec;     /* TRDCOMP_CODEC_2008 or TRDCOMP_CODEC_2011 */
  int form;      /* TRDCOMP_FORM_* */
  int packed;    /* records travel packed */
  uint32_t function;
  uint8_t flags;
  int32_t header_length; /* as the header says */
  int64_t table_offset;  /* the section table in the input, -1 when there is none */
  int64_t table_length;
  int64_t records_offset; /* where the records (2011: the counts ahead of them) start */
  int section_count;      /* sections of the restored message; 0 for the forms without records */
  trdcomp_section_frame sections[TRDCOMP_MAX_SECTIONS];
  int64_t end;             /* where the bytes the message is read from end: the rest is not read */
  int64_t restored_length; /* bytes of the restored message */
} trdcomp_frame;

/* Walks the message `message` (`length` bytes, packed or raw) as a restore does, without
 * decoding a record: fills `frame` and the warnings as trdcomp_restore_ex does. Returns 0, or,
 * for a 2011 count that differs from the header's where the restore refuses it, that refusal
 * (the frame is filled as far as it was read). The other refusals of a restore (header length,
 * counts, limits) are the restore's to make: the frame shows the fields they come from. */
TRDCOMP_API int trdcomp_frame_of(const void* message, size_t length, int direction, int flag,
                                 trdcomp_frame* frame, trdcomp_warning* warnings, size_t capacity,
                                 size_t* warning_count, trdcomp_error* err);

/* What a stretch of the input holds (trdcomp_item.what). */
#define TRDCOMP_ITEM_HEADER 0      /* a header field: `field` is a TRDCOMP_HEADER_* */
#define TRDCOMP_ITEM_HEADER_GAP 1  /* between the fixed header and the header length: skipped */
#define TRDCOMP_ITEM_TABLE_SIZE 2  /* the section table's size */
#define TRDCOMP_ITEM_TABLE_COUNT 3 /* a section's record count in the table */
#define TRDCOMP_ITEM_TABLE_RECORD_SIZE 4 /* a section's record size in the table */
#define TRDCOMP_ITEM_TABLE_UNREAD 5      /* table pairs past the five a message carries */
#define TRDCOMP_ITEM_SECTION_COUNT 6     /* 2011: a section's 16-bit record count */
#define TRDCOMP_ITEM_DICTIONARY_SIZE 7   /* 2011: the 16-bit number of dictionary entries */
#define TRDCOMP_ITEM_RECORD_LENGTH 8     /* 2008: a record's u32 length */
#define TRDCOMP_ITEM_BLOCK_LENGTH 9      /* 2011: a block's u16 length */
#define TRDCOMP_ITEM_PRESENCE_MAP 10     /* 2011: one byte of a block's presence map */
#define TRDCOMP_ITEM_DICTIONARY_INDEX 11 /* 2011: a reduced record's dictionary index */
#define TRDCOMP_ITEM_FIELD 12            /* a field of a record */
#define TRDCOMP_ITEM_UNREAD 13           /* bytes inside the message that no field reads */
#define TRDCOMP_ITEM_TRAILING 14         /* bytes after the last record: not read */
#define TRDCOMP_ITEM_BODY 15             /* the body of a message without layout, as it travels */

/* Header fields (trdcomp_item.field of TRDCOMP_ITEM_HEADER). */
#define TRDCOMP_HEADER_LENGTH 0
#define TRDCOMP_HEADER_FUNCTION 1
#define TRDCOMP_HEADER_FLAGS 2
#define TRDCOMP_HEADER_CALLER 3
#define TRDCOMP_HEADER_SHORT_TEXT 4
#define TRDCOMP_HEADER_TEXT 5
#define TRDCOMP_HEADER_COUNT 6
#define TRDCOMP_HEADER_SIZE 7

/* Whose record a field or block is (trdcomp_item.unit). */
#define TRDCOMP_UNIT_RECORD 0 /* a record of its section */
#define TRDCOMP_UNIT_ENTRY 1  /* 2011: a dictionary entry */

typedef struct trdcomp_item {
  int64_t offset; /* in the input */
  int64_t length; /* bytes of the input: the items cover every byte once, in order */
  int what;       /* TRDCOMP_ITEM_* */
  int field;      /* TRDCOMP_ITEM_FIELD: the trdcomp_field index; TRDCOMP_ITEM_HEADER: which */
  int section;    /* -1 when none */
  int unit;       /* TRDCOMP_UNIT_* */
  int64_t record; /* index of the record (or entry) in its section, -1 when none */
  int32_t entry;  /* entry of a counted group for its members, else -1 */
  uint32_t width; /* TRDCOMP_ITEM_FIELD: bytes of the decoded value */
  int64_t value_offset;    /* TRDCOMP_ITEM_FIELD: the decoded value's bytes in `values` */
  int64_t restored_offset; /* where it lands in the restored message, -1 for none */
  int64_t value;           /* counts, lengths, sizes, indexes; a map byte as it is */
  int64_t overrun;         /* bytes it reads past its record or the input (cut from `length`) */
  int first_place;         /* TRDCOMP_ITEM_PRESENCE_MAP: the place of bit 0x40 */
  int place_field[7];      /* the field each bit stands for: -2 the dictionary index, -1 none */
  int32_t place_entry[7];  /* its group entry, else -1 */
} trdcomp_item;

typedef struct trdcomp_explanation {
  trdcomp_frame frame;
  size_t item_count;
  const trdcomp_item* items;
  size_t values_length;
  const unsigned char* values; /* the restored message, then each dictionary entry decoded */
} trdcomp_explanation;

/* Annotates every byte of the message `message` (`length` bytes, packed or raw): the items in
 * input order, each a stretch that one thing of the format holds. A message the restore would
 * refuse is refused here too. On success returns 0 and stores in `*out` one buffer (free it with
 * trdcomp_release); on failure returns a status code, fills `err` and leaves `*out` null. */
TRDCOMP_API int trdcomp_explain(const void* message, size_t length, int direction, int flag,
                                size_t max_len, trdcomp_explanation** out, trdcomp_error* err);

/* A short constant text for a status code ("unknown error" for other values). */
TRDCOMP_API const char* trdcomp_status_name(int code);

/* Frees a buffer returned by trdcomp_pack or trdcomp_restore; null is ignored. */
TRDCOMP_API void trdcomp_release(void* data);

#ifdef __cplusplus
}
#endif

#endif /* TRDCOMP_TRDCOMP_C_H */
