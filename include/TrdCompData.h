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

// The library's version; VersionNumber() and VersionString() give the one actually loaded.
#define TRDCOMP_VERSION_MAJOR 1
#define TRDCOMP_VERSION_MINOR 0
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
#define TRDCOMP_ROUTINES(X) \
  X(1000) X(1001) X(1002) X(1003) X(1004) X(1005) X(1006) X(1007) X(1008) X(1009) \
  X(1010) X(1011) X(1012) X(1013) X(1014) X(1015) X(1016) X(1018) X(1019) X(1020) \
  X(1021) X(1023) X(1024) X(1025) X(1026) X(1027) X(1030) X(1031) X(1032) X(1033) \
  X(1034) X(1035) X(1036) X(1040) X(1041) X(1042) X(1043) X(1044) X(1045) X(1050) \
  X(1051) X(1052) X(1053) X(1054) X(1055) X(1056) X(1057) X(1058) X(1059) X(1060) \
  X(1061) X(1062) X(1063) X(1064) X(1065) X(1066) X(1067) X(1068) X(1070) X(1071) \
  X(1072) X(1073) X(1074) X(1075) X(1076) X(1077) X(1078) X(1079) X(1080) X(1081) \
  X(1082) X(1083) X(1084) X(1085) X(1086) X(1087) X(1100) X(1101) X(1102) X(1103) \
  X(1104) X(1110) X(1111) X(1112) X(1113) X(1114) X(1115) X(1116) X(1117) X(1118) \
  X(1119) X(1120) X(1121) X(1122) X(1130) X(1131) X(1132) X(1133) X(1134) X(1200) \
  X(1201) X(1202) X(1203) X(1204) X(1205) X(1206) X(1250) X(1251) X(1260) X(1261) \
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

// Packs and restores whole messages. Results are 1 for success and 0 for failure, except
// PackAns2008, which returns 0 on every path and reports through `outLen`.
class TRDCOMP_API CTrdCompData {
 public:
  CTrdCompData();
  virtual ~CTrdCompData();

  // Packs a request: `head` is the caller's 76-byte header, `body` its record images. `out`
  // needs room for the header and the worst-case body; its size is not checked.
  static int PackReq2008(char* out, int& outLen, tagREQ_HEAD* head, char* body, int bodyLen,
                         char flag);
  // Restores a request into a new buffer stored in `*out`; free it with ReleaseAnsData.
  static int RestoreReq2008(char* in, int inLen, char** out, int& outLen, char flag);
  // Packs an answer from its descriptor and up to five section arrays. `outSize` must be at
  // least 96. The low byte of `codecSel` carries the requested codec nibble in bits 4-7.
  static int PackAns2008(char* out, int outSize, int& outLen, tagANS_Proc* proc, char* sec0,
                         char* sec1, char* sec2, char* sec3, char* sec4, char flag, int codecSel);
  // Restores an answer into a new buffer stored in `*out`; free it with ReleaseAnsData.
  static int RestoreAns2008(char* in, int inLen, char** out, int& outLen, char flag);
  // Frees a buffer returned by a restore entry point; null is ignored.
  static void ReleaseAnsData(char* data);
  // The version of the loaded library: TRDCOMP_VERSION_NUMBER and "MAJOR.MINOR.PATCH" of the
  // header it was built with.
  static int VersionNumber();
  static const char* VersionString();

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
