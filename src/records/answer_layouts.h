// Answer record layouts, one row per layout and section: owning routine number, section, record
// size, and the fields in encoding order in the layout notation (records/layout.h). Rotated rows
// encode their leading fields last, as listed. A function number that shares another number's
// answer routine uses that number's rows (frame/catalogue); an answer with rows for more than
// one section is a multi-section answer, except that an "optional section" is carried only by
// 2008 messages that send it with a section table.
#pragma once

#include <array>

#include "records/layout.h"

namespace trdcomp::records {

// clang-format off
inline constexpr std::array kAnswerRows = std::to_array<LayoutRow>({
    // no.  sec   size  fields
    {1000, 0,   320, "0: char[256] string; 256: char[48] string; 304: byte block [16]"},
    {1001, 0,    20, "0: 2 x char; 2: char[2] string; 4: char[16] string"},
    {1001, 1,    48, "0: char[8] string; 8: char[32] string; 40: 8 x char"},
    {1002, 0,   184, "0: byte block [64]; 64: char[8] string; 72: 3 x char[16] string; 120: 4 x char; 124: 2 x char[8] string; 140: char[24] string; 164: 5 x int32 (flag)"},
    {1002, 1,    92, "0: 4 x char; 4: char[8] string; 12: char[16] string; 28: char[24] string; 52: 2 x char[16] string; 84: char[8] string"},
    {1002, 2,     4, "0: int32 (flag)", "0: delta 1000"},
    {1003, 0,    69, "0: int32 (flag); 4: byte block [64]; 68: char"},
    {1004, 0, 32780, "0: 2 x int32 (flag); 8: byte block [32768]; 32776: int32 (flag)"},
    {1005, 0,   433, "0: 2 x char[16] string; 32: char[8] string; 40: char[24] string; 64: 2 x char; 66: char[36] string; 102: char[96] string; 198: 3 x char; 201: char[96] string; 297: char[8] string; 305: 4 x char[16] string; 369: char[36] string; 405: char[16] string; 421: 3 x int32 (flag)"},
    {1006, 0,    28, "0: short string [28]"},
    {1007, 0,    88, "0: char[28] string; 28: char[12] string; 40: 2 x char[16] string; 72: 2 x double"},
    {1009, 0,    40, "0: char[28] string; 28: char[12] string"},
    {1010, 0,    87, "0: char[28] string; 28: char[12] string; 40: int32 (flag); 44: double; 52: 3 x char; 55: char[8] string; 63: 2 x int32 (flag); 71: byte block [16]"},
    {1010, 1,   155, "68: char[28] string; 96: char[12] string; 108: int32 (flag); 112: double; 120: 3 x char; 123: char[8] string; 131: 2 x int32 (flag); 139: byte block [16]; 0: char[4] string; 4: char[64] string (rotated)", "optional section"},
    {1011, 0,   124, "68: 2 x char[28] string; 0: char[4] string; 4: char[64] string (rotated)"},
    {1012, 0,    87, "0: char[28] string; 28: char[12] string; 40: int32 (flag); 44: double; 52: 3 x char; 55: char[8] string; 63: 2 x int32 (flag); 71: byte block [16]"},
    {1012, 1,   155, "68: char[28] string; 96: char[12] string; 108: int32 (flag); 112: double; 120: 3 x char; 123: char[8] string (decode cap 16); 131: 2 x int32 (flag); 139: byte block [16]; 0: char[4] string; 4: char[64] string (rotated)", "optional section"},
    {1014, 0,    94, "68: int32 (flag); 72: int64; 80: char; 81: char[8] string; 89: char; 90: int32 (flag); 0: char[4] string; 4: char[64] string (rotated)"},
    {1014, 1,    12, "0: int32 (flag); 4: int64", "optional section"},
    {1015, 0,   149, "0: char; 1: 2 x char[16] string; 33: char[8] string; 41: char[16] string; 57: 2 x int32 (flag); 65: 2 x double; 81: 5 x int32 (flag); 101: 4 x double; 133: 2 x int64"},
    {1016, 0,   313, "0: char; 1: char[8] string; 9: char[16] string; 25: 28 x int32 (flag); 137: 21 x int64; 305: double"},
    {1019, 0,    16, "0: short string [16]"},
    {1020, 0,   124, "0: char[32] string; 32: 4 x char; 36: char[8] string; 44: char[16] string; 60: char[24] string; 84: 2 x char[16] string; 116: char[8] string"},
    {1021, 0,   139, "0: 2 x char[16] string; 32: char[8] string; 40: 2 x char; 42: char[16] string; 58: 10 x double; 138: char"},
    {1023, 0,   139, "0: 2 x char[16] string; 32: char[8] string; 40: 2 x char; 42: char[16] string; 58: 10 x double; 138: char"},
    {1023, 1,   242, "0: char[32] string; 32: 2 x char[16] string; 64: char; 65: char[16] string; 81: char[8] string; 89: char[16] string; 105: char[8] string; 113: char; 114: char[16] string; 130: 10 x int32 (flag); 170: 2 x double; 186: 7 x int64", "dictionary 0 32 64 81 113"},
    {1024, 0,   243, "0: char[32] string; 32: 2 x char[16] string; 64: 7 x char; 71: char[16] string; 87: char[8] string; 95: char[16] string; 111: char[8] string; 119: 8 x int32 (flag); 151: char[28] string; 179: char[12] string; 191: char[16] string; 207: char[8] string; 215: char[12] string; 227: 2 x double", "dictionary 0 32 48 64 65"},
    {1026, 0,   247, "0: char[32] string; 32: 2 x char[16] string; 64: 7 x char; 71: char[16] string; 87: char[8] string; 95: char[16] string; 111: 10 x int32 (flag); 151: char[28] string; 179: char[12] string; 191: 3 x char[16] string; 239: double", "dictionary 0 32 48 64 65"},
    {1032, 0,   310, "0: char[32] string; 32: 2 x char[16] string; 64: 6 x char; 70: char[16] string; 86: char[8] string; 94: 2 x char[16] string; 126: 9 x int32 (flag); 162: char[28] string; 190: 3 x char[16] string; 238: 9 x double", "dictionary 0 32 48 64 65"},
    {1033, 0,   199, "0: char[32] string; 32: 2 x char[16] string; 64: char; 65: char[16] string; 81: char[8] string; 89: char[16] string; 105: char[8] string; 113: 2 x char; 115: char[16] string; 131: 13 x int32 (flag); 183: 2 x double"},
    {1034, 0,   371, "0: char[32] string; 32: 2 x char[16] string; 64: 6 x char; 70: char[16] string; 86: char[8] string; 94: 2 x char[16] string; 126: 12 x int32 (flag); 174: char[28] string; 202: 3 x char[16] string; 250: 11 x double; 338: char; 339: char[8] string; 347: char[24] string", "dictionary 0 32 48 64 65"},
    {1035, 0,   149, "0: char[32] string; 32: int32 (flag); 36: char; 37: char[16] string; 53: char[8] string; 61: char[16] string; 77: char[32] string; 109: 2 x char[16] string; 141: 2 x int32 (flag)"},
    {1036, 0,   117, "0: char[32] string; 32: int32 (flag); 36: char; 37: char[16] string; 53: char[8] string; 61: 3 x char[16] string; 109: 2 x int32 (flag)"},
    {1040, 0,   107, "0: 2 x char[16] string; 32: char[8] string; 40: char[24] string; 64: 3 x char; 67: char[24] string; 91: char[16] string"},
    {1041, 0,    32, "0: char[8] string; 8: char[4] string; 12: 2 x char; 14: char[2] string; 16: char[16] string", "8: exchange"},
    {1043, 0,    36, "0: char[28] string; 28: double"},
    {1044, 0,   166, "0: 2 x int32 (flag); 8: 2 x char[16] string; 40: 2 x char; 42: char[8] string; 50: char[24] string; 74: char[28] string; 102: 2 x double; 118: 3 x char[16] string"},
    {1045, 0,    90, "0: char[8] string; 8: 2 x char[16] string; 40: char[8] string; 48: 2 x char; 50: 3 x double; 74: char[16] string"},
    {1050, 0,   113, "0: char[28] string; 28: char[12] string; 40: double; 48: 5 x char; 53: 2 x char[8] string; 69: char[16] string; 85: int64; 93: int32 (flag); 97: byte block [16]"},
    {1050, 1,   181, "68: char[28] string; 96: char[12] string; 108: double; 116: 5 x char; 121: 2 x char[8] string; 137: char[16] string; 153: int64; 161: int32 (flag); 165: byte block [16]; 0: char[4] string; 4: char[64] string (rotated)", "optional section"},
    {1051, 0,   117, "68: int64; 76: 5 x char; 81: 2 x char[8] string; 97: char[16] string; 113: int32 (flag); 0: char[4] string; 4: char[64] string (rotated)"},
    {1052, 0,   130, "0: 2 x char; 2: char[16] string; 18: 10 x double; 98: 2 x char[16] string"},
    {1053, 0,     8, "0: double"},
    {1054, 0,   344, "0: char[32] string; 32: 2 x char[16] string; 64: char[8] string; 72: char[16] string; 88: char[8] string; 96: 2 x char[16] string; 128: char[28] string; 156: 3 x char; 159: char[8] string; 167: char; 168: 2 x int32 (flag); 176: int64; 184: int32 (flag); 188: 2 x double; 204: 2 x int64; 220: double; 228: 2 x double; 244: 2 x int64; 260: 2 x double; 276: int64; 284: 2 x double; 300: int32 (flag); 304: 3 x double; 328: char[16] string", "dictionary 0 32 48 156 157"},
    {1055, 0,   250, "0: 2 x char[16] string; 32: char[8] string; 40: 2 x char; 42: 24 x double; 234: char[16] string"},
    {1056, 0,   353, "0: char[16] string; 16: char; 17: 3 x double; 41: char[16] string; 57: char[32] string; 89: char[16] string; 105: 31 x double"},
    {1057, 0,    32, "0: 2 x double; 16: char[16] string"},
    {1058, 0,    77, "0: char[16] string; 16: char[28] string; 44: char; 45: 2 x double; 61: char[16] string"},
    {1059, 0,    99, "0: char[28] string; 28: char[12] string; 40: 3 x char; 43: 2 x char[8] string; 59: char[16] string; 75: int64; 83: byte block [16]"},
    {1059, 1,   167, "68: char[28] string; 96: char[12] string; 108: 3 x char; 111: 2 x char[8] string; 127: char[16] string; 143: int64; 151: byte block [16]; 0: char[4] string; 4: char[64] string (rotated)", "optional section"},
    {1060, 0,   136, "0: char; 1: char[8] string; 9: char[16] string; 25: 3 x char; 28: char[8] string; 36: 2 x char[16] string; 68: 3 x double; 92: char[16] string; 108: 4 x char; 112: double; 120: int32 (flag); 124: double; 132: int32 (flag)"},
    {1061, 0,    94, "0: char; 1: char[8] string; 9: char[16] string; 25: char[8] string; 33: 2 x char[16] string; 65: char; 66: char[8] string; 74: int32 (flag); 78: char[16] string"},
    {1062, 0,    65, "0: 2 x char[16] string; 32: char; 33: 2 x double; 49: char[16] string"},
    {1063, 0,    62, "0: 2 x char[16] string; 32: 2 x char; 34: int32 (flag); 38: double; 46: char[16] string"},
    {1064, 0,   127, "68: int64; 76: char[16] string; 92: 3 x char; 95: 2 x char[8] string; 111: char[16] string; 0: char[4] string; 4: char[64] string (rotated)"},
    {1065, 0,   198, "16: char[16] string; 0: char[16] string; 32: 2 x char; 34: int32 (flag); 38: 18 x double; 182: char[16] string (rotated)"},
    {1066, 0,   305, "0: 3 x char[16] string; 48: char[8] string; 56: 2 x char[16] string; 88: char; 89: 2 x char[8] string; 105: 2 x int64; 121: double; 129: int64; 137: double; 145: 5 x int64; 185: double; 193: int64; 201: double; 209: 3 x int64; 233: int32 (flag); 237: double; 245: int64; 253: 2 x double; 269: int32 (flag); 273: 2 x double; 289: char[16] string"},
    {1070, 0,   133, "0: char[28] string; 28: char[36] string; 64: 2 x char[8] string; 80: char[16] string; 96: char; 97: int32 (flag); 101: 2 x double; 117: byte block [16]"},
    {1071, 0,   134, "0: char[28] string; 28: char[36] string; 64: 2 x char[8] string; 80: char[16] string; 96: 2 x char; 98: int32 (flag); 102: 2 x double; 118: byte block [16]"},
    {1072, 0,    64, "0: char[28] string; 28: char[36] string"},
    {1073, 0,   159, "0: char[28] string; 28: char[36] string; 64: 2 x char[8] string; 80: char[16] string; 96: char[8] string; 104: char[16] string; 120: 3 x char; 123: int32 (flag); 127: 2 x double; 143: byte block [16]"},
    {1074, 0,   122, "0: char[28] string; 28: char[36] string; 64: 2 x char[8] string; 80: char[16] string; 96: 2 x char; 98: 2 x int32 (flag); 106: byte block [16]"},
    {1075, 0,   441, "0: char[32] string; 32: char[8] string; 40: 4 x int32 (flag); 56: char[28] string; 84: char[36] string; 120: 2 x char[16] string; 152: char[8] string; 160: char[24] string; 184: char[16] string; 200: char[24] string; 224: char[8] string; 232: char[16] string; 248: char[24] string; 272: 3 x char; 275: 2 x char[16] string; 307: 2 x char; 309: 4 x int32 (flag); 325: 4 x double; 357: char[16] string; 373: char[24] string; 397: char[8] string; 405: char[36] string"},
    {1078, 0,   476, "0: char[32] string; 32: char[8] string; 40: 4 x int32 (flag); 56: char[28] string; 84: char[36] string; 120: char[28] string; 148: 2 x char[16] string; 180: char[8] string; 188: char[24] string; 212: char[16] string; 228: char[24] string; 252: char[8] string; 260: char[16] string; 276: char[24] string; 300: 4 x char; 304: 3 x int32 (flag); 316: 10 x double; 396: char[16] string; 412: char[24] string; 436: char[8] string; 444: 2 x char[16] string"},
    {1079, 0,   137, "0: 2 x char[16] string; 32: char[8] string; 40: char[24] string; 64: char[16] string; 80: char[24] string; 104: char[16] string; 120: char; 121: char[16] string"},
    {1079, 1,   141, "0: char[32] string; 32: 2 x char[8] string; 48: char[16] string; 64: char[24] string; 88: 5 x char; 93: char[16] string; 109: 2 x int32 (flag); 117: double; 125: char[16] string"},
    {1080, 0,   137, "0: char[28] string; 28: char[36] string; 64: 2 x char[8] string; 80: char[16] string; 96: char; 97: 2 x int32 (flag); 105: 2 x double; 121: byte block [16]"},
    {1081, 0,   138, "0: char[28] string; 28: char[36] string; 64: 2 x char[8] string; 80: char[16] string; 96: 2 x char; 98: 2 x int32 (flag); 106: 2 x double; 122: byte block [16]"},
    {1082, 0,   218, "0: char; 1: 2 x char[16] string; 33: char[8] string; 41: char[24] string; 65: char[16] string; 81: char[24] string; 105: char[8] string; 113: char[16] string; 129: char[24] string; 153: char; 154: 8 x double"},
    {1083, 0,   139, "0: 2 x char[16] string; 32: char[8] string; 40: 2 x char; 42: char[16] string; 58: 10 x double; 138: char"},
    {1083, 1,   290, "0: char[32] string; 32: char[8] string; 40: 2 x char[16] string; 72: char[8] string; 80: char[24] string; 104: char[16] string; 120: char[24] string; 144: char[8] string; 152: char[16] string; 168: char[24] string; 192: 2 x char; 194: 6 x double; 242: 2 x int32 (flag); 250: double; 258: 2 x char[16] string"},
    {1084, 0,   408, "0: char[32] string; 32: char[8] string; 40: char[36] string; 76: char[28] string; 104: char[36] string; 140: 2 x char[16] string; 172: char[8] string; 180: char[24] string; 204: char[16] string; 220: char[24] string; 244: char[8] string; 252: char[16] string; 268: char[24] string; 292: 2 x char[16] string; 324: 3 x char; 327: 2 x char[16] string; 359: char; 360: 8 x int32 (flag); 392: 2 x double"},
    {1085, 0,   100, "0: char[36] string; 36: char[28] string; 64: char[36] string"},
    {1086, 0,    84, "0: char[28] string; 28: char[16] string; 44: char[24] string; 68: char[16] string"},
    {1087, 0,   155, "0: char; 1: 2 x char[16] string; 33: char; 34: char[64] string; 98: char; 99: char[32] string; 131: 2 x int32 (flag); 139: char[16] string"},
    {1100, 0,    85, "0: char[28] string; 28: char[12] string; 40: 5 x char; 45: char[16] string; 61: 2 x int32 (flag); 69: byte block [16]"},
    {1100, 1,   153, "68: char[28] string; 96: char[12] string; 108: 5 x char; 113: char[16] string; 129: 2 x int32 (flag); 137: byte block [16]; 0: char[4] string; 4: char[64] string (rotated)", "optional section"},
    {1102, 0,     1, "0: char"},
    {1103, 0,   163, "0: char; 1: char[16] string; 17: char[23] string; 40: char[16] string; 56: 3 x char; 59: 3 x double; 83: 4 x int32 (flag); 99: 3 x double; 123: 6 x int32 (flag); 147: char[16] string"},
    {1104, 0,    92, "0: int32 (flag); 4: int64; 12: 4 x double; 44: 3 x char[16] string"},
    {1104, 1,   185, "68: int32 (flag); 72: int64; 80: 4 x double; 112: 3 x char[16] string; 160: 5 x char; 165: char[16] string; 181: int32 (flag); 0: char[4] string; 4: char[64] string (rotated)", "optional section"},
    {1110, 0,   193, "0: char; 1: 2 x char[16] string; 33: 18 x double; 177: char[16] string"},
    {1111, 0,   201, "0: char[32] string; 32: 2 x char; 34: char[16] string; 50: char[23] string; 73: 4 x char; 77: int32 (flag); 81: 13 x double; 185: char[16] string"},
    {1112, 0,   125, "0: char[32] string; 32: 5 x char; 37: char[8] string; 45: char[16] string; 61: char[24] string; 85: 2 x char[16] string; 117: char[8] string"},
    {1113, 0,   283, "0: char[32] string; 32: 2 x char[16] string; 64: 8 x int32 (flag); 96: 2 x double; 112: 8 x char; 120: 2 x char[16] string; 152: char[23] string; 175: char[28] string; 203: char[12] string; 215: char[8] string; 223: char[12] string; 235: 3 x char[16] string", "dictionary 0 32 48 112 113"},
    {1114, 0,   295, "0: char[32] string; 32: 2 x char[16] string; 64: 9 x int32 (flag); 100: 8 x char; 108: 2 x char[16] string; 140: char[23] string; 163: char[28] string; 191: char[12] string; 203: char[16] string; 219: 3 x double; 243: char[8] string; 251: char[12] string; 263: 2 x char[16] string", "dictionary 0 32 48 100 101"},
    {1115, 0,   193, "0: char; 1: 2 x char[16] string; 33: 18 x double; 177: char[16] string"},
    {1115, 1,   199, "0: char[32] string; 32: 3 x char[16] string; 80: char[8] string; 88: char[16] string; 104: char[23] string; 127: 4 x char; 131: 7 x int32 (flag); 159: 3 x double; 183: char[16] string", "dictionary 0 32 48 127 128"},
    {1116, 0, 32808, "0: 2 x char[16] string; 32: 2 x int32 (flag); 40: char[32768] string"},
    {1119, 0,   222, "0: char[32] string; 32: 3 x char; 35: char[16] string; 51: char[23] string; 74: 29 x int32 (flag); 190: 2 x double; 206: short string [16]"},
    {1122, 0,  2084, "0: 3 x int32 (flag); 12: char[8] string; 20: char[2048] string; 2068: char[16] string"},
    {1200, 0,   236, "0: char[32] string; 32: 2 x char[16] string; 64: char[8] string; 72: char[64] string; 136: int32 (flag); 140: 6 x double; 188: 8 x int32 (flag); 220: char[16] string"},
    {1201, 0,   270, "0: char[32] string; 32: 2 x char[16] string; 64: 2 x char; 66: char[8] string; 74: char[64] string; 138: char[28] string; 166: 4 x int32 (flag); 182: 7 x double; 238: 2 x char[16] string"},
    {1202, 0,   160, "0: char[32] string; 32: 2 x char[16] string; 64: char[8] string; 72: char[64] string; 136: 2 x int32 (flag); 144: char[16] string"},
    {1202, 1,    28, "0: int32 (flag); 4: double; 12: char[16] string"},
    {1202, 2,    32, "0: 2 x int32 (flag); 8: double; 16: char[16] string"},
    {1203, 0,    44, "0: char[28] string; 28: char[16] string"},
    {1206, 0,   316, "0: char[32] string; 32: 2 x char[16] string; 64: char[8] string; 72: char[64] string; 136: 2 x char[32] string; 200: int32 (flag); 204: 10 x double; 284: 4 x int32 (flag); 300: char[16] string"},
    {1250, 0,    92, "0: char[32] string; 32: char[16] string; 48: char[24] string; 72: int32 (flag); 76: char[16] string"},
    {1251, 0,    73, "0: char; 1: char[8] string; 9: char[16] string; 25: 4 x int32 (flag); 41: 2 x double; 57: char[16] string"},
    {1260, 0,    32, "0: byte block [16]; 16: char[16] string"},
    {8996, 0, 32788, "32768: int32 (flag); 0: length-counted byte block [32768]; 32772: char[16] string (rotated)"},
    {8997, 0,   332, "0: char[30] string; 30: char[256] string; 286: char[30] string; 316: char[16] string"},
    {8998, 0,   145, "prefix"},
});
// clang-format on

inline constexpr auto kAnswerFields = parseFields<totalFields(kAnswerRows)>(kAnswerRows);
inline constexpr auto kAnswerOps = makeOps(kAnswerFields);
inline constexpr auto kAnswerLayouts =
    bindLayouts(kAnswerRows, kAnswerFields.data(), kAnswerOps.data(), kAnswerTable);

}  // namespace trdcomp::records

namespace trdcomp::records {
// By routine number: with the optional sections for the 2008 codec, without for the 2011 codec.
inline constexpr auto kAnswerRoutineLayouts2008 =
    groupSections<distinctNumbers(kAnswerLayouts)>(kAnswerLayouts, kAnswerLayouts.data(), true);
inline constexpr auto kAnswerRoutineLayouts2011 =
    groupSections<distinctNumbers(kAnswerLayouts)>(kAnswerLayouts, kAnswerLayouts.data(), false);
}  // namespace trdcomp::records
