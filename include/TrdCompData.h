// trdcomp: packing and restoring the messages of a securities-trading API.
//
// A message is a fixed header followed by arrays of fixed-size records whose layout the
// function number chooses. Two wire encodings live side by side and are chosen per message by
// the codec nibble (bits 4-7 of the header's flags byte): 0 selects the 2008 codec (compact
// integers, length-prefixed strings), 1 to 15 the 2011 Fast codec (stop-bit integers, presence
// maps, fields left out when equal to the previous record).
//
// Every operation is a static member function; the library holds no state, so every entry point
// may run on any number of threads at once on distinct buffers.
#ifndef TRDCOMP_TRDCOMPDATA_H
#define TRDCOMP_TRDCOMPDATA_H

#include <cstdint>

#include "trdcomp_status.h"

// The library's version; VersionNumber() and VersionString() give the one actually loaded.
#define TRDCOMP_VERSION_MAJOR 1
#define TRDCOMP_VERSION_MINOR 1
#define TRDCOMP_VERSION_PATCH 0
#define TRDCOMP_VERSION_NUMBER \
  (TRDCOMP_VERSION_MAJOR * 10000 + TRDCOMP_VERSION_MINOR * 100 + TRDCOMP_VERSION_PATCH)

// On Windows the library's own objects export the API from the DLL, callers of the DLL import
// it, and users of a static library (TRDCOMP_STATIC, set by its CMake target and its pkg-config
// file) do neither.
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

#pragma pack(push, 1)

// Request header: the first 76 bytes of every request message, packed or restored.
struct tagREQ_HEAD {
  std::int32_t headLen;   // offset of the body; written as 76
  std::uint32_t funcNo;   // function number: selects layout and routine
  char flags;             // bit 0 records packed, bit 1 section table, bits 4-7 codec nibble
  char callerData[59];    // bytes 9 to 67: the caller's own, carried unchanged
  std::int32_t recCount;  // number of records in the body
  std::int32_t recSize;   // size of one record image
};

// Answer descriptor filled by the packing caller of an answer.
struct tagANS_Proc {
  std::uint32_t funcNo;       // function number
  char reserved[4];           // not read by the library
  char shortText[4];          // copied to answer header offset 20
  char text[64];              // copied to answer header offset 24
  std::int32_t sectionCount;  // 0 to 5 are meaningful
  std::int32_t recCount[5];   // record count of sections 0 to 4
  std::int32_t recSize[5];    // record size of sections 0 to 4 in the caller's arrays
};

#pragma pack(pop)

static_assert(sizeof(tagREQ_HEAD) == 76, "request header is 76 bytes");
static_assert(sizeof(tagANS_Proc) == 120, "answer descriptor is 120 bytes");

// The function numbers that have per-function routines, in both directions: every known number
// but 1017 (no body either way), 8998 (requests always pass through) and 8999 (answers always
// pass through). Declarations and definitions of the routines are generated from these lists.
#define TRDCOMP_ROUTINES(X)                                                                       \
  X(1000)                                                                                         \
  X(1001)                                                                                         \
  X(1002) X(1003) X(1004) X(1005) X(1006) X(1007) X(1008) X(1009) X(1010) X(1011) X(1012) X(1013) \
      X(1014) X(1015) X(1016) X(1018) X(1019) X(1020) X(1021) X(1023) X(1024) X(1025) X(1026)     \
          X(1027) X(1030) X(1031) X(1032) X(1033) X(1034) X(1035) X(1036) X(1040) X(1041) X(1042) \
              X(1043) X(1044) X(1045) X(1050) X(1051) X(1052) X(1053) X(1054) X(1055) X(1056)     \
                  X(1057) X(1058) X(1059) X(1060) X(1061) X(1062) X(1063) X(1064) X(1065) X(1066) \
                      X(1067) X(1068) X(1070) X(1071) X(1072) X(1073) X(1074) X(1075) X(1076)     \
                          X(1077) X(1078) X(1079) X(1080) X(1081) X(1082) X(1083) X(1084) X(1085) \
                              X(1086) X(1087) X(1100) X(1101) X(1102) X(1103) X(1104) X(1110)     \
                                  X(1111) X(1112) X(1113) X(1114) X(1115) X(1116) X(1117) X(1118) \
                                      X(1119) X(1120) X(1121) X(1122) X(1130) X(1131) X(1132)     \
                                          X(1133) X(1134) X(1200) X(1201) X(1202) X(1203) X(1204) \
                                              X(1205) X(1206) X(1250) X(1251) X(1260) X(1261)     \
                                                  X(8996) X(8997)
#define TRDCOMP_REQUEST_ROUTINES(X) TRDCOMP_ROUTINES(X) X(8999)
#define TRDCOMP_ANSWER_ROUTINES(X) TRDCOMP_ROUTINES(X) X(8998)

// Compact field primitives of the 2008 codec. Each returns the number of bytes written or
// consumed and never fails; none checks the room left in its buffer.
class TRDCOMP_API CKtNetCompressHelper {
 public:
  CKtNetCompressHelper(const CKtNetCompressHelper&);
  CKtNetCompressHelper& operator=(const CKtNetCompressHelper&);

  // Signed 32-bit integer in 1-4 bytes (sign, 2-bit length code, 29 bits of magnitude).
  static int NCH_compress_int(char* out, int value);
  static int NCH_decompress_int(char* in, int& value);
  // Signed 64-bit integer in 1-5, 7 or 8 bytes (sign, 3-bit length code, 60 bits of magnitude).
  static int NCH_compress_int64(char* out, std::int64_t value);
  static int NCH_decompress_int64(char* in, std::int64_t& value);
  // 64-bit integer whose 3-bit length code goes to `flags` instead of the data.
  static int NCH_compress_int64_3Flags(char& flags, char* out, std::int64_t value);
  static int NCH_decompress_int64_3Flags(char flags, char* in, std::int64_t& value);
  // 32-bit integer whose 2-bit length code and sign bit go to `flags`.
  static int NCH_compress_int_2Flags(char& flags, char* out, int value);
  static int NCH_decompress_int_2Flags(char flags, char* in, int& value);
  // Length-prefixed text; the decoder keeps at most size - 1 characters.
  static int NCH_compress_string(char* out, const char* text);
  static int NCH_decompress_string(char* in, char* dest, int size);
  // 8-character securities code sent as a difference against a reference code.
  static int NCH_compress_securitiesCode8(char* out, const char* code, const char* reference);
  static int NCH_decompress_securitiesCode8(char* in, char* dest, const char* reference);
  // Length-prefixed byte block; the decoder keeps at most `capacity` bytes.
  static int NCH_compress_binData(char* out, char* data, int length);
  static int NCH_decompress_binData(char* in, char* dest, int capacity, int& length);

 protected:
  CKtNetCompressHelper();
  virtual ~CKtNetCompressHelper();
};

// Stop-bit primitives of the 2011 Fast codec: seven payload bits per byte, most significant
// group first, bit 7 set on the last byte of a field.
TRDCOMP_API int Fast_size_int64(std::int64_t value);
TRDCOMP_API int Fast_size_uint64(std::uint64_t value);
TRDCOMP_API int Fast_encode_int64(char* out, std::int64_t value);
TRDCOMP_API int Fast_decode_int64(char* in, std::int64_t& value);
TRDCOMP_API int Fast_encode_decimal3(char* out, double value);
TRDCOMP_API int Fast_decode_decimal3(char* in, double& value);
TRDCOMP_API int Fast_encode_string(char* out, const char* text, int cap);
TRDCOMP_API int Fast_decode_string(char* in, char* dest, int size);
TRDCOMP_API int Fast_encode_binData(char* out, char* data, int length);
TRDCOMP_API int Fast_decode_binData(char* in, char* dest, int capacity);
TRDCOMP_API int Fast_decode_lenString(char* in, char* dest, int size);

// Why a call was refused: the TrdCompError codes of trdcomp_status.h, shared with the C
// interface. The classic entry points report only 1 or 0 (PackAns2008: its output length); the
// Ex entry points also store the code in `*reason` when `reason` is not null, and ErrorName
// turns it into a short text.

// Packs and restores whole messages.
//
// Ownership. Pack outputs belong to the caller. Restore outputs are allocated by the library,
// zero-filled (slack included), stored in `*out`, and must be freed with ReleaseAnsData, never
// with free() or delete[]: the allocator is the library's.
//
// Sizes. Pack output needs at most PackReqBound / PackAnsBound bytes; nothing is ever written
// past that bound (nor past `outSize` where a call takes one). Restored lengths are 32-bit and
// always below 2^31 - 1 with their slack; the allocation is `outLen` plus the slack named below.
//
// Hostile input. Restore reads only [in, in + inLen), whatever the counts, lengths and offsets
// inside claim, and its work is bounded by inLen plus the records actually present: absent
// records cost nothing beyond the zeroed allocation. Answers keep the format's truncated-answer
// rule (records past the end of the input restore as zeros; the header keeps the full count),
// so a short answer may claim a large zeroed allocation: callers that want to bound it use the
// Ex entry points with a limit.
//
// Threads. No state is kept between calls; every function may run on any number of threads at
// once on distinct buffers.
class TRDCOMP_API CTrdCompData {
 public:
  CTrdCompData();
  virtual ~CTrdCompData();

  // Packs a request: the caller's 76-byte header `head` and its record images `body`
  // (`bodyLen` bytes: header record count x header record size). The codec is the header's
  // nibble (flags bits 4-7); `flag` is the 2008 codec flag (0: int32 fields in the 32-bit compact
  // form, 1: in the 64-bit form, other values: int32 fields left out).
  // Output: `out` must hold PackReqBound(head, bodyLen) bytes; it need not be zeroed. `outLen`
  // receives the packed length, header included; the bytes of `out` behind it may have been
  // used as scratch (never those past the bound).
  // Returns 1 when packed (or passed through: unknown numbers, and bodies shorter than one
  // record, travel as they are). Returns 0 without writing anything when `out` or `head` is null
  // (`outLen` untouched), and with `outLen` = 0 when `bodyLen` is negative, `body` is null with
  // `bodyLen` > 0, the header's count x size needs more bytes than `bodyLen` (or a negative
  // record size with records), or the packed size could exceed 2^31 - 1.
  static int PackReq2008(char* out, int& outLen, tagREQ_HEAD* head, char* body, int bodyLen,
                         char flag);
  // Restores a packed or raw request into a new buffer stored in `*out` (free it with
  // ReleaseAnsData) of `outLen` + 1024 bytes (unknown numbers: `inLen` + 10); `outLen` is the
  // restored length: 76 + count x the layout's record size. Returns 1, or 0 when refused: null
  // `in` or `out`, `inLen` below 1, a header length beyond `inLen`, the section-table bit, an
  // unknown number marked packed, a negative count, a count that cannot fit in `inLen` (each
  // packed record needs its length field, each raw record its size), a restored length beyond
  // 2^31 - 1, or a failed allocation. Deliberate exceptions kept from the format: a refused 2011
  // restore whose packed count differs from the header's leaves its buffer in `*out` (release
  // it; ReleaseAnsData ignores null), and a failed pass-through allocation returns 1 with `*out`
  // null and `outLen` = `inLen`.
  static int RestoreReq2008(char* in, int inLen, char** out, int& outLen, char flag);
  // Packs an answer from its descriptor and up to five section arrays (section i: record
  // count[i] x record size[i] bytes; a section the layout does not use may be null). The low byte
  // of `codecSel` carries the codec nibble in bits 4-7; `flag` is the 2008 codec flag.
  // Output: `outSize` bytes at `out`, which must be at least 96 and should be at least
  // PackAnsBound(proc, codecSel). A negative `outSize` means "unchecked": the caller promises
  // PackAnsBound bytes. Bytes 8 to 19 of the output header are the caller's: the flags are ORed
  // into byte 8 and bytes 9 to 19 are not written, so zero them (or put your own values there)
  // before every call; the rest need not be zeroed.
  // Returns 0 on every path, as the format has it: `outLen` tells success (96 or more) from
  // refusal (0): null `out` or `proc`, `outSize` from 0 to 95, a packed message larger than a
  // non-negative `outSize`, a negative count or size in a section that is sent, a null section
  // with records, or a size beyond 2^31 - 1 (e.g. a huge section count). Nothing is written
  // past `outSize` (or, when it is negative, past the bound); the bytes behind `outLen` may have
  // been used as scratch.
  static int PackAns2008(char* out, int outSize, int& outLen, tagANS_Proc* proc, char* sec0,
                         char* sec1, char* sec2, char* sec3, char* sec4, char flag, int codecSel);
  // Restores an answer into a new buffer stored in `*out` (free it with ReleaseAnsData) of
  // `outLen` + 10 bytes (+ 1024 for answers restored with a section table). Returns 1, or 0 when
  // refused: null `in` or `out`, a header length beyond `inLen`, an unknown number marked packed,
  // a negative count, a restored length beyond 2^31 - 1, a 2011 packed count that differs from
  // the header's, a 2011 dictionary index past its entries, or a failed allocation. Records that
  // lie past the end of the input restore as zeros (the truncated-answer rule). A refused 2011
  // restore may leave its buffer in `*out`: release it.
  static int RestoreAns2008(char* in, int inLen, char** out, int& outLen, char flag);
  // Frees a buffer returned by a restore entry point; null is ignored.
  static void ReleaseAnsData(char* data);
  // The version of the loaded library: TRDCOMP_VERSION_NUMBER and "MAJOR.MINOR.PATCH" of the
  // header it was built with.
  static int VersionNumber();
  static const char* VersionString();

  // The largest packed size of a request, header included, in the codec its header's nibble
  // selects: the output size PackReq2008 needs. Computed in 64 bits; a value above 2^31 - 1
  // means the request cannot be packed (PackReq2008 refuses it). -1 for a null `head` or a
  // negative `bodyLen`.
  static long long PackReqBound(const tagREQ_HEAD* head, int bodyLen);
  // The largest packed size of an answer, header and section table included, in the codec that
  // `codecSel` selects, for any codec flag. Same conventions as PackReqBound; -1 for a null
  // `proc`.
  static long long PackAnsBound(const tagANS_Proc* proc, int codecSel);

  // Checked variants. Each returns 1 on success and 0 on refusal and, when `reason` is not null,
  // stores TRDCOMP_OK or the TrdCompError that explains the refusal. On refusal `outLen` is 0
  // and, for the restores, `*out` is null: nothing is left to release.
  //
  // PackReq2008Ex: PackReq2008 with the size of `out`; refuses (TRDCOMP_ERROR_OUTPUT_TOO_SMALL)
  // a packed message that would not fit in `outSize` bytes, and writes nothing past them.
  static int PackReq2008Ex(char* out, int outSize, int& outLen, tagREQ_HEAD* head, char* body,
                           int bodyLen, char flag, int* reason = nullptr);
  // PackAns2008Ex: PackAns2008 returning 1 on success; `outSize` must not be negative.
  static int PackAns2008Ex(char* out, int outSize, int& outLen, tagANS_Proc* proc, char* sec0,
                           char* sec1, char* sec2, char* sec3, char* sec4, char flag, int codecSel,
                           int* reason = nullptr);
  // RestoreReq2008Ex / RestoreAns2008Ex: the restores with a ceiling on the restored length:
  // a message whose `outLen` would exceed `maxOutLen` is refused (TRDCOMP_ERROR_LIMIT) before
  // anything is allocated. `maxOutLen` below 0 means no ceiling.
  static int RestoreReq2008Ex(char* in, int inLen, char** out, int& outLen, char flag,
                              int maxOutLen, int* reason = nullptr);
  static int RestoreAns2008Ex(char* in, int inLen, char** out, int& outLen, char flag,
                              int maxOutLen, int* reason = nullptr);

  // Restoring into the caller's buffer. The restored bytes are the ones RestoreReq2008 /
  // RestoreAns2008 hand back, `outLen` of them.
  //
  // RestoreReqLength / RestoreAnsLength: the size of the restored message, header included:
  // the `outSize` that RestoreReq2008Into / RestoreAns2008Into need, and the `outLen` they
  // give. It comes from the header, the section table and the counts only (no record is
  // decoded), and is -1 for a message the restore refuses, with one exception: a 2011
  // dictionary index past its entries is a field of a record, found only by the restore
  // (TRDCOMP_ERROR_DICTIONARY_INDEX). Refusals that depend on memory (a failed allocation) are
  // not foreseen either. 0: a message that restores to nothing (function number 1017).
  // The size holds no slack: where the classic restores let a text's decode cap run past the
  // last record into their slack, the Into restores stop it at the end of the message; the
  // bytes up to `outLen` are the same. It is below 2^31 - 1 with the classic restore's slack
  // (1024 bytes for requests, 10 or 1024 for answers), which restores the same message.
  // Reads only [in, in + inLen); the work follows the header and, for 2011 messages, the length
  // prefixes of the records present.
  static long long RestoreReqLength(const char* in, int inLen);
  static long long RestoreAnsLength(const char* in, int inLen);
  // RestoreReq2008Into / RestoreAns2008Into: restore the message `in` of `inLen` bytes into
  // `out`, which holds `outSize` bytes (`out` may be null when `outSize` is 0); `flag` is the
  // 2008 codec flag, as for RestoreReq2008. Returns 1 with `outLen` = the restored length, or 0
  // with `outLen` = 0 and, when `reason` is not null, the TrdCompError in `*reason` (TRDCOMP_OK
  // on success). Refuses what RestoreReq2008Ex / RestoreAns2008Ex without a ceiling refuse, for
  // the same reasons, and also: a negative `outSize` (TRDCOMP_ERROR_NEGATIVE_SIZE), a null
  // `out` with bytes (TRDCOMP_ERROR_NULL_ARGUMENT), and a restored message longer than
  // `outSize` (TRDCOMP_ERROR_OUTPUT_TOO_SMALL, before anything is written; call
  // RestoreReqLength / RestoreAnsLength first to size `out`). Nothing is allocated, but for
  // the table of a 2011 dictionary section's entries (answers only), released before the call
  // returns (its failure: TRDCOMP_ERROR_ALLOCATION).
  // Writes only the bytes of the restored message, [out, out + its length), never past
  // `outSize`; `out` need not be zeroed. A refusal found in the records (a 2011 count that
  // differs from the header's, a dictionary index past its entries) may leave some of them
  // written: they are not a message. Records the input does
  // not hold restore as zeros (the truncated-answer rule), so `outLen` may be far above
  // `inLen`: the work is the input's records plus the zeroing of the rest of `outLen`, which
  // the caller bounds by the `outSize` it gives. Reads only [in, in + inLen).
  static int RestoreReq2008Into(char* in, int inLen, char* out, int outSize, int& outLen, char flag,
                                int* reason = nullptr);
  static int RestoreAns2008Into(char* in, int inLen, char* out, int outSize, int& outLen, char flag,
                                int* reason = nullptr);

  // A short constant text naming a TrdCompError ("unknown error" for other values).
  static const char* ErrorName(int reason);

 private:
#define TRDCOMP_DECLARE_REQUEST_ROUTINES(n)                                                     \
  static int PackReq2008_##n(char* out, int& outLen, char* body, int bodyLen, char flag);       \
  static int RestoreReq2008_##n(char* in, int inLen, char** out, int& outLen, char flag);       \
  static int PackReq2011_Fast_##n(char* out, int& outLen, char* body, int bodyLen, int nibble); \
  static int RestoreReq2011_Fast_##n(char* in, int inLen, char** out, int& outLen, int nibble);
#define TRDCOMP_DECLARE_ANSWER_ROUTINES(n)                                                      \
  static int PackAns2008_##n(char* out, int& outLen, tagANS_Proc* proc, char* sec0, char* sec1, \
                             char* sec2, char* sec3, char* sec4, char flag);                    \
  static int RestoreAns2008_##n(char* in, int inLen, char** out, int& outLen, char flag);       \
  static int PackAns2011_Fast_##n(char* out, int& outLen, tagANS_Proc* proc, char* sec0,        \
                                  char* sec1, char* sec2, char* sec3, char* sec4, int nibble);  \
  static int RestoreAns2011_Fast_##n(char* in, int inLen, char** out, int& outLen, int nibble);
  TRDCOMP_REQUEST_ROUTINES(TRDCOMP_DECLARE_REQUEST_ROUTINES)
  TRDCOMP_ANSWER_ROUTINES(TRDCOMP_DECLARE_ANSWER_ROUTINES)
#undef TRDCOMP_DECLARE_REQUEST_ROUTINES
#undef TRDCOMP_DECLARE_ANSWER_ROUTINES
};

#endif  // TRDCOMP_TRDCOMPDATA_H
