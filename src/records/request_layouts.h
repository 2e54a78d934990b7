// Request record layouts, one row per layout: owning routine number, section (always 0), record
// size, and the fields in encoding order in the layout notation (records/layout.h). A function
// number that shares another number's request routine uses that number's row (frame/catalogue).
//
// Rows 1041, 1052 and 1062 serve the 2011 Fast codec only; in the 2008 codec those numbers use
// rows 1016, 1021 and 1055. Their fields are those of the rows they stand beside there.
#pragma once

#include <array>

#include "records/layout.h"

namespace trdcomp::records {

// clang-format off
inline constexpr std::array kRequestRows = std::to_array<LayoutRow>({
    // no.  sec size  fields
    {1000, 0,   1, "no record codec"},
    {1002, 0,  83, "0: 3 x char; 3: char[32] string; 35: 2 x char[24] string", "0: = 'A'; 1: = 11; 2: = 0"},
    {1003, 0, 218, "prefix; 145: 3 x char[24] string; 217: char"},
    {1004, 0, 153, "prefix; 145: char[8] string"},
    {1005, 0, 145, "prefix"},
    {1006, 0, 484, "prefix; 145: char; 146: char[36] string; 182: char[96] string; 278: 2 x char; 280: char[96] string; 376: char[8] string; 384: 4 x char[16] string; 448: char[36] string"},
    {1007, 0, 269, "prefix; 145: 4 x char; 149: char[24] string; 173: char[16] string; 189: char[8] string; 197: 2 x char[24] string; 245: char[16] string; 261: double"},
    {1008, 0, 213, "prefix; 145: 4 x char; 149: 2 x char[24] string; 197: char[16] string"},
    {1009, 0, 306, "prefix; 145: char; 146: char[144] string; 290: char[16] string"},
    {1010, 0, 238, "prefix; 145: char[12] string; 157: char; 158: char[16] string; 174: char[8] string; 182: 2 x int32 (flag); 190: 4 x char; 194: char[8] string; 202: char[12] string; 214: char[24] string", "keeps section bit"},
    {1011, 0, 274, "prefix; 145: 2 x int32 (flag); 153: char[12] string; 165: char[28] string; 193: char; 194: char[16] string; 210: char[8] string; 218: 2 x int32 (flag); 226: 4 x char; 230: char[8] string; 238: char[12] string; 250: char[24] string", "keeps section bit"},
    {1014, 0, 175, "prefix; 145: char; 146: char[16] string; 162: char[8] string; 170: char; 171: int32 (flag)", "keeps section bit"},
    {1015, 0, 170, "prefix; 145: char; 146: char[16] string; 162: char[8] string"},
    {1016, 0, 154, "prefix; 145: char; 146: char[8] string"},
    {1018, 0, 247, "prefix; 145: char; 146: int32 (flag); 150: char[12] string; 162: char[28] string; 190: char; 191: char[16] string; 207: char[8] string; 215: 2 x int32 (flag); 223: 4 x char; 227: char[8] string; 235: char[12] string"},
    {1019, 0, 198, "prefix; 145: char; 146: char[16] string; 162: char[8] string; 170: int32 (flag); 174: char[8] string; 182: char[16] string"},
    {1020, 0, 182, "prefix; 145: char; 146: int32 (flag); 150: char[32] string"},
    {1021, 0, 147, "prefix; 145: 2 x char"},
    {1023, 0, 208, "prefix; 145: char; 146: char[16] string; 162: char; 163: char[8] string; 171: char; 172: int32 (flag); 176: char[32] string"},
    {1024, 0, 236, "prefix; 145: char; 146: char[16] string; 162: char; 163: char[8] string; 171: char[28] string; 199: char; 200: int32 (flag); 204: char[32] string"},
    {1030, 0, 244, "prefix; 145: char; 146: char[16] string; 162: char; 163: char[8] string; 171: char[28] string; 199: 2 x int32 (flag); 207: char; 208: int32 (flag); 212: char[32] string"},
    {1032, 0, 215, "prefix; 145: char; 146: char[16] string; 162: char[8] string; 170: 2 x int32 (flag); 178: char; 179: int32 (flag); 183: char[32] string"},
    {1033, 0, 216, "prefix; 145: char; 146: char[16] string; 162: char; 163: char[8] string; 171: 2 x int32 (flag); 179: char; 180: int32 (flag); 184: char[32] string"},
    {1034, 0, 216, "prefix; 145: char; 146: char[16] string; 162: char[8] string; 170: 2 x int32 (flag); 178: 2 x char; 180: int32 (flag); 184: char[32] string"},
    {1041, 0, 154, "prefix; 145: char; 146: char[8] string"},
    {1042, 0, 235, "prefix; 145: 2 x char; 147: char[8] string; 155: 3 x char[24] string; 227: double"},
    {1043, 0, 226, "prefix; 145: char; 146: char[8] string; 154: 3 x char[24] string"},
    {1044, 0, 202, "prefix; 145: char; 146: char[8] string; 154: 2 x char[24] string"},
    {1045, 0, 161, "prefix; 145: char[16] string"},
    {1050, 0, 261, "prefix; 145: char[12] string; 157: char; 158: char[8] string; 166: char[16] string; 182: char[8] string; 190: char[16] string; 206: int64; 214: int32 (flag); 218: 7 x char; 225: char[8] string; 233: char[12] string; 245: char[16] string", "keeps section bit"},
    {1051, 0, 241, "prefix; 145: char; 146: char[8] string; 154: char[16] string; 170: char[8] string; 178: char[16] string; 194: int32 (flag); 198: 7 x char; 205: char[8] string; 213: char[12] string; 225: char[16] string", "keeps section bit"},
    {1052, 0, 147, "prefix; 145: 2 x char"},
    {1053, 0, 216, "prefix; 145: 4 x char; 149: char[8] string; 157: char[16] string; 173: char[8] string; 181: char[16] string; 197: 3 x char; 200: char[16] string"},
    {1054, 0, 274, "prefix; 145: 2 x char; 147: char[8] string; 155: char[16] string; 171: char[8] string; 179: char[16] string; 195: char[28] string; 223: 6 x char; 229: 2 x int32 (flag); 237: char; 238: int32 (flag); 242: char[32] string"},
    {1055, 0, 162, "prefix; 145: char; 146: char[16] string"},
    {1058, 0, 204, "prefix; 145: 2 x char; 147: double; 155: char[16] string; 171: char; 172: char[8] string; 180: char[16] string; 196: char[8] string"},
    {1059, 0, 295, "prefix; 145: char; 146: char[8] string; 154: char[16] string; 170: char[8] string; 178: char[16] string; 194: int64; 202: 5 x char; 207: char[8] string; 215: char[12] string; 227: 3 x char[16] string; 275: char[8] string; 283: char[12] string", "keeps section bit"},
    {1060, 0, 183, "prefix; 145: 2 x char; 147: 2 x char[8] string; 163: char[16] string; 179: 4 x char"},
    {1061, 0, 195, "prefix; 145: 2 x char; 147: 2 x char[8] string; 163: 2 x char[16] string"},
    {1062, 0, 162, "prefix; 145: char; 146: char[16] string"},
    {1064, 0, 235, "prefix; 145: char; 146: char[8] string; 154: char[16] string; 170: char[8] string; 178: char[16] string; 194: 5 x char; 199: char[8] string; 207: char[12] string; 219: char[16] string", "keeps section bit"},
    {1065, 0, 163, "prefix; 145: 2 x char; 147: char[16] string"},
    {1066, 0, 214, "prefix; 145: 2 x char; 147: char[8] string; 155: char[16] string; 171: char[8] string; 179: char[16] string; 195: 3 x char; 198: char[16] string"},
    {1067, 0, 290, "prefix; 145: 2 x char; 147: char[8] string; 155: char[16] string; 171: char[8] string; 179: char[16] string; 195: char[28] string; 223: 6 x char; 229: char[16] string; 245: 2 x int32 (flag); 253: char; 254: int32 (flag); 258: char[32] string"},
    {1068, 0, 187, "prefix; 145: char; 146: char[8] string; 154: char[16] string; 170: char; 171: char[16] string"},
    {1070, 0, 238, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char; 218: int32 (flag); 222: 2 x double"},
    {1071, 0, 271, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char; 218: int32 (flag); 222: 2 x double; 238: char; 239: int32 (flag); 243: char[28] string (decode cap 36)"},
    {1072, 0, 310, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char; 218: char[28] string; 246: char[36] string; 282: 3 x int32 (flag); 294: 2 x double"},
    {1073, 0, 296, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char[8] string; 225: char[16] string; 241: 2 x char; 243: int32 (flag); 247: 2 x double; 263: char; 264: int32 (flag); 268: char[28] string (decode cap 36)"},
    {1074, 0, 227, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: 2 x char; 219: 2 x int32 (flag)"},
    {1075, 0, 256, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: 3 x char; 220: int32 (flag); 224: char[32] string"},
    {1077, 0, 264, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: 2 x int32 (flag); 225: 3 x char; 228: int32 (flag); 232: char[32] string"},
    {1079, 0, 215, "prefix; 145: 2 x char[8] string; 161: char[16] string; 177: 2 x char; 179: int32 (flag); 183: char[32] string"},
    {1080, 0, 242, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char; 218: 2 x int32 (flag); 226: 2 x double"},
    {1081, 0, 275, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char; 218: 2 x int32 (flag); 226: 2 x double; 242: char; 243: int32 (flag); 247: char[28] string (decode cap 36)"},
    {1082, 0, 235, "prefix; 145: 2 x char; 147: char[16] string; 163: char[8] string; 171: char[16] string; 187: char[24] string; 211: char[8] string; 219: char[16] string"},
    {1084, 0, 291, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char[36] string; 253: 2 x char; 255: int32 (flag); 259: char[32] string"},
    {1085, 0, 495, "prefix; 145: char[8] string; 153: char[16] string; 169: char[24] string; 193: char[8] string; 201: char[16] string; 217: char[36] string; 253: char[28] string; 281: char[36] string; 317: 2 x char[16] string; 349: 3 x char[28] string; 433: 5 x char; 438: char[16] string; 454: char; 455: 6 x int32 (flag); 479: 2 x double"},
    {1086, 0, 605, "prefix; 145: char[8] string; 153: char[16] string; 169: 2 x char[24] string; 217: 2 x char; 219: char[36] string; 255: char[24] string; 279: char; 280: char[36] string; 316: 2 x char[16] string; 348: char; 349: char[96] string; 445: char[8] string; 453: 6 x char[16] string; 549: char[36] string; 585: int32 (flag); 589: char[16] string"},
    {1087, 0, 162, "prefix; 145: char[16] string; 161: char"},
    {1100, 0, 240, "prefix; 145: 7 x char; 152: 2 x char[16] string; 184: 2 x int32 (flag); 192: char[12] string; 204: char[8] string; 212: char[12] string; 224: char[16] string", "keeps section bit"},
    {1101, 0, 256, "prefix; 145: 7 x char; 152: 2 x char[16] string; 184: 2 x int32 (flag); 192: char[28] string; 220: char[8] string; 228: char[12] string; 240: char[16] string", "keeps section bit"},
    {1102, 0, 169, "prefix; 145: 2 x int32 (flag); 153: char[16] string"},
    {1103, 0, 184, "prefix; 145: 7 x char; 152: 2 x char[16] string"},
    {1104, 0, 210, "prefix; 145: 5 x char; 150: 2 x char[16] string; 182: int32 (flag); 186: char[8] string; 194: char[16] string", "keeps section bit"},
    {1110, 0, 146, "prefix; 145: char"},
    {1111, 0, 205, "prefix; 145: 2 x char; 147: char[16] string; 163: int32 (flag); 167: 2 x char; 169: int32 (flag); 173: char[32] string"},
    {1113, 0, 245, "prefix; 145: char; 146: char[16] string; 162: 2 x char; 164: char[16] string; 180: char[28] string; 208: char; 209: int32 (flag); 213: char[32] string"},
    {1115, 0, 217, "prefix; 145: char; 146: char[16] string; 162: 2 x char; 164: char[16] string; 180: char; 181: int32 (flag); 185: char[32] string"},
    {1116, 0, 155, "prefix; 145: 2 x int32 (flag); 153: 2 x char"},
    {1117, 0, 253, "prefix; 145: char; 146: char[16] string; 162: 2 x char; 164: char[16] string; 180: char[28] string; 208: 2 x int32 (flag); 216: char; 217: int32 (flag); 221: char[32] string"},
    {1119, 0, 201, "prefix; 145: 3 x char; 148: char[16] string; 164: char; 165: int32 (flag); 169: char[32] string"},
    {1122, 0, 173, "prefix; 145: int32 (flag); 149: char[8] string; 157: char[16] string"},
    {1201, 0, 190, "prefix; 145: 2 x int32 (flag); 153: char; 154: int32 (flag); 158: char[32] string"},
    {1202, 0, 190, "prefix; 145: char[8] string; 153: char; 154: int32 (flag); 158: char[32] string"},
    {1203, 0, 219, "prefix; 145: char; 146: char[16] string; 162: char[8] string; 170: int32 (flag); 174: 5 x double; 214: 5 x char"},
    {1204, 0, 247, "prefix; 145: char; 146: char[16] string; 162: char[8] string; 170: char[28] string; 198: int32 (flag); 202: 5 x double; 242: 5 x char"},
    {1250, 0, 199, "prefix; 145: char[16] string; 161: 2 x char; 163: int32 (flag); 167: char[32] string"},
    {1260, 0, 381, "prefix; 145: int32 (flag); 149: up to 12 x (char, char, short string [16]) counted by 145; 365: short string [16]"},
    {8996, 0,  16, "0: char[16] string"},
});
// clang-format on

inline constexpr auto kRequestFields = parseFields<totalFields(kRequestRows)>(kRequestRows);
inline constexpr auto kRequestOps = makeOps(kRequestFields);
inline constexpr auto kRequestLayouts =
    bindLayouts(kRequestRows, kRequestFields.data(), kRequestOps.data(), kRequestTable);

}  // namespace trdcomp::records
