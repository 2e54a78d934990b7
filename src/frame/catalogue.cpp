// The function-number catalogue as one table, resolved at compile time against the layout
// tables: a routine number without a layout does not build.
#include "frame/catalogue.h"

#include <array>

#include "records/answer_layouts.h"
#include "records/request_layouts.h"

namespace trdcomp::frame {
namespace {

using records::AnswerLayout;
using records::Layout;

// Notation of the rows. A request column names the routine whose behaviour the number's
// request routines have, one number for both codecs or the 2008 codec's and the 2011 Fast
// codec's. An answer column names one routine for all four answer routines, or the pack and
// restore routines apart, each again one number or the two codecs' numbers.
struct RequestColumn {
  RequestForm form;
  std::uint16_t routine[2];
};
constexpr RequestColumn req(std::uint16_t both) {
  return {RequestForm::Routine, {both, both}};
}
constexpr RequestColumn req(std::uint16_t c2008, std::uint16_t c2011) {
  return {RequestForm::Routine, {c2008, c2011}};
}
// Packed as the bare header with count 0; restored by the named routine.
constexpr RequestColumn headerOnly(std::uint16_t restore) {
  return {RequestForm::HeaderOnly, {restore, restore}};
}
constexpr RequestColumn kNoBody{RequestForm::NoBody, {0, 0}};
constexpr RequestColumn kPassThrough{RequestForm::PassThrough, {0, 0}};

struct Routines {
  std::uint16_t byCodec[2];
};
constexpr Routines pack(std::uint16_t both) {
  return {{both, both}};
}
constexpr Routines pack(std::uint16_t c2008, std::uint16_t c2011) {
  return {{c2008, c2011}};
}
constexpr Routines restore(std::uint16_t both) {
  return {{both, both}};
}
constexpr Routines restore(std::uint16_t c2008, std::uint16_t c2011) {
  return {{c2008, c2011}};
}

struct AnswerColumn {
  AnswerForm form;
  Routines pack, restore;
};
constexpr AnswerColumn ans(std::uint16_t all) {
  return {AnswerForm::Routine, {{all, all}}, {{all, all}}};
}
constexpr AnswerColumn ans(Routines p, Routines r) {
  return {AnswerForm::Routine, p, r};
}
constexpr AnswerColumn kNoAnswer{AnswerForm::NoBody, {}, {}};
constexpr AnswerColumn kRawAnswer{AnswerForm::PassThrough, {}, {}};

struct Sizes {
  std::uint32_t section[3];
};
constexpr Sizes sizes(std::uint32_t s0, std::uint32_t s1 = 0, std::uint32_t s2 = 0) {
  return {{s0, s1, s2}};
}
constexpr Sizes kSeveral{};  // several sections: their layouts give the sizes
constexpr Sizes kNoSizes{};

struct Row {
  std::uint32_t number;
  RequestColumn request;
  std::uint32_t requestSize;
  AnswerColumn answer;
  Sizes answerSizes;
};

// clang-format off
constexpr std::array kRows = std::to_array<Row>({
    // no.   request routine  size  answer routine                        answer record sizes
    {1000, headerOnly(1000),   1, ans(1000),                            sizes(320)},
    {1001, headerOnly(1000),   1, ans(1001),                            sizes(20, 48)},
    {1002, req(1002),         83, ans(1002),                            sizes(184, 92, 4)},
    {1003, req(1003),        218, ans(1003),                            sizes(69)},
    {1004, req(1004),        153, ans(1004),                            sizes(32780)},
    {1005, req(1005),        145, ans(1005),                            sizes(433)},
    {1006, req(1006),        484, ans(1006),                            sizes(28)},
    {1007, req(1007),        269, ans(1007),                            sizes(88)},
    {1008, req(1008),        213, ans(1007),                            sizes(88)},
    {1009, req(1009),        306, ans(1009),                            sizes(40)},
    {1010, req(1010),        238, ans(1010),                            kSeveral},
    {1011, req(1011),        274, ans(1011),                            kSeveral},
    {1012, req(1010),        238, ans(pack(1010), restore(1012, 1010)), kSeveral},
    {1013, req(1010),        238, ans(1010),                            kSeveral},
    {1014, req(1014),        175, ans(1014),                            kSeveral},
    {1015, req(1015),        170, ans(1015),                            sizes(149)},
    {1016, req(1016),        154, ans(1016),                            sizes(313)},
    {1017, kNoBody,            0, kNoAnswer,                            kNoSizes},
    {1018, req(1018),        247, ans(1006),                            sizes(28)},
    {1019, req(1019),        198, ans(pack(1006, 1019), restore(1019)), sizes(16)},
    {1020, req(1020),        182, ans(1020),                            sizes(124)},
    {1021, req(1021),        147, ans(1021),                            sizes(139)},
    {1023, req(1023),        208, ans(1023),                            kSeveral},
    {1024, req(1024),        236, ans(1024),                            sizes(243)},
    {1025, req(1024),        236, ans(1024),                            sizes(243)},
    {1026, req(1024),        236, ans(1026),                            sizes(247)},
    {1027, req(1024),        236, ans(1026),                            sizes(247)},
    {1030, req(1030),        244, ans(1024),                            sizes(243)},
    {1031, req(1030),        244, ans(1026),                            sizes(247)},
    {1032, req(1032),        215, ans(1032),                            sizes(310)},
    {1033, req(1033),        216, ans(1033),                            sizes(199)},
    {1034, req(1034),        216, ans(1034),                            sizes(371)},
    {1035, req(1032),        215, ans(1035),                            sizes(149)},
    {1036, req(1032),        215, ans(1036),                            sizes(117)},
    {1040, req(1005),        145, ans(1040),                            sizes(107)},
    {1041, req(1016, 1041),  154, ans(1041),                            sizes(32)},
    {1042, req(1042),        235, ans(1006),                            sizes(28)},
    {1043, req(1043),        226, ans(1043),                            sizes(36)},
    {1044, req(1044),        202, ans(1044),                            sizes(166)},
    {1045, req(1045),        161, ans(1045),                            sizes(90)},
    {1050, req(1050),        261, ans(1050),                            kSeveral},
    {1051, req(1051),        241, ans(1051),                            kSeveral},
    {1052, req(1021, 1052),  147, ans(1052),                            sizes(130)},
    {1053, req(1053),        216, ans(1053),                            sizes(8)},
    {1054, req(1054),        274, ans(1054),                            sizes(344)},
    {1055, req(1055),        162, ans(1055),                            sizes(250)},
    {1056, req(1055),        162, ans(1056),                            sizes(353)},
    {1057, req(1021, 1052),  147, ans(1057),                            sizes(32)},
    {1058, req(1058),        204, ans(1058),                            sizes(77)},
    {1059, req(1059),        295, ans(1059),                            kSeveral},
    {1060, req(1060),        183, ans(1060),                            sizes(136)},
    {1061, req(1061),        195, ans(1061),                            sizes(94)},
    {1062, req(1055, 1062),  162, ans(1062),                            sizes(65)},
    {1063, req(1055, 1062),  162, ans(1063),                            sizes(62)},
    {1064, req(1064),        235, ans(1064),                            kSeveral},
    {1065, req(1065),        163, ans(1065),                            sizes(198)},
    {1066, req(1066),        214, ans(1066),                            sizes(305)},
    {1067, req(1067),        290, ans(1054),                            sizes(344)},
    {1068, req(1068),        187, ans(pack(1006, 1019), restore(1019)), sizes(16)},
    {1070, req(1070),        238, ans(1070),                            sizes(133)},
    {1071, req(1071),        271, ans(1071),                            sizes(134)},
    {1072, req(1072),        310, ans(pack(1009, 1072), restore(1072)), sizes(64)},
    {1073, req(1073),        296, ans(1073),                            sizes(159)},
    {1074, req(1074),        227, ans(1074),                            sizes(122)},
    {1075, req(1075),        256, ans(1075),                            sizes(441)},
    {1076, req(1075),        256, ans(1075),                            sizes(441)},
    {1077, req(1077),        264, ans(1075),                            sizes(441)},
    {1078, req(1077),        264, ans(1078),                            sizes(476)},
    {1079, req(1079),        215, ans(1079),                            kSeveral},
    {1080, req(1080),        242, ans(1080),                            sizes(137)},
    {1081, req(1081),        275, ans(1081),                            sizes(138)},
    {1082, req(1082),        235, ans(1082),                            sizes(218)},
    {1083, req(1075),        256, ans(1083),                            kSeveral},
    {1084, req(1084),        291, ans(1084),                            sizes(408)},
    {1085, req(1085),        495, ans(1085),                            sizes(100)},
    {1086, req(1086),        605, ans(1086),                            sizes(84)},
    {1087, req(1087),        162, ans(1087),                            sizes(155)},
    {1100, req(1100),        240, ans(1100),                            kSeveral},
    {1101, req(1101),        256, ans(1011),                            kSeveral},
    {1102, req(1102),        169, ans(1102),                            sizes(1)},
    {1103, req(1103),        184, ans(1103),                            sizes(163)},
    {1104, req(1104),        210, ans(1104),                            kSeveral},
    {1110, req(1110),        146, ans(1110),                            sizes(193)},
    {1111, req(1111),        205, ans(1111),                            sizes(201)},
    {1112, req(1020),        182, ans(1112),                            sizes(125)},
    {1113, req(1113),        245, ans(1113),                            sizes(283)},
    {1114, req(1113),        245, ans(1114),                            sizes(295)},
    {1115, req(1115),        217, ans(1115),                            kSeveral},
    {1116, req(1116),        155, ans(1116),                            sizes(32808)},
    {1117, req(1117),        253, ans(1113),                            sizes(283)},
    {1118, req(1117),        253, ans(1114),                            sizes(295)},
    {1119, req(1119),        201, ans(1119),                            sizes(222)},
    {1120, req(1113),        245, ans(1113),                            sizes(283)},
    {1121, req(1113),        245, ans(1114),                            sizes(295)},
    {1122, req(1122),        173, ans(1122),                            sizes(2084)},
    {1130, req(1005),        145, ans(1040),                            sizes(107)},
    {1131, req(1016, 1041),  154, ans(1041),                            sizes(32)},
    {1132, req(1042),        235, ans(1006),                            sizes(28)},
    {1133, req(1043),        226, ans(1043),                            sizes(36)},
    {1134, req(1044),        202, ans(1044),                            sizes(166)},
    {1200, req(1020),        182, ans(1200),                            sizes(236)},
    {1201, req(1201),        190, ans(1201),                            sizes(270)},
    {1202, req(1202),        190, ans(1202),                            kSeveral},
    {1203, req(1203),        219, ans(pack(1009, 1203), restore(1203)), sizes(44)},
    {1204, req(1204),        247, ans(pack(1009, 1203), restore(1203)), sizes(44)},
    {1205, req(1204),        247, ans(pack(1009, 1203), restore(1203)), sizes(44)},
    {1206, req(1202),        190, ans(1206),                            sizes(316)},
    {1250, req(1250),        199, ans(1250),                            sizes(92)},
    {1251, req(1045),        161, ans(1251),                            sizes(73)},
    {1260, req(1260),        381, ans(1260),                            sizes(32)},
    {1261, req(1260),        381, ans(1260),                            sizes(32)},
    {8996, req(8996),         16, ans(8996),                            sizes(32788)},
    {8997, req(8996),         16, ans(8997),                            sizes(332)},
    {8998, kPassThrough,       0, ans(8998),                            sizes(145)},
    {8999, req(1005),        145, kRawAnswer,                           kNoSizes},
});
// clang-format on

constexpr const Layout* requestLayout(std::uint16_t routine) {
  for (const Layout& l : records::kRequestLayouts)
    if (l.number == routine) return &l;
  records::detail::fail("catalogue: request routine without a layout");
  return nullptr;
}

constexpr const AnswerLayout* answerLayout(std::uint16_t routine, int codec) {
  for (const AnswerLayout& a :
       codec == k2008 ? records::kAnswerRoutineLayouts2008 : records::kAnswerRoutineLayouts2011)
    if (a.number == routine) return &a;
  records::detail::fail("catalogue: answer routine without a layout");
  return nullptr;
}

constexpr std::array<Entry, kRows.size()> resolve() {
  std::array<Entry, kRows.size()> out{};
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    const Row& r = kRows[i];
    Entry& e = out[i];
    e.number = r.number;
    e.requestForm = r.request.form;
    e.answerForm = r.answer.form;
    e.requestSize = r.requestSize;
    for (int s = 0; s < 3; ++s) e.answerSizes[s] = r.answerSizes.section[s];
    for (int c = 0; c < 2; ++c) {
      if (r.request.routine[c]) e.request[c] = requestLayout(r.request.routine[c]);
      if (r.answer.form == AnswerForm::Routine) {
        e.answerPack[c] = answerLayout(r.answer.pack.byCodec[c], c);
        e.answerRestore[c] = answerLayout(r.answer.restore.byCodec[c], c);
      }
    }
    if (i > 0 && kRows[i - 1].number >= r.number)
      records::detail::fail("catalogue: rows must be in number order");
  }
  return out;
}

constexpr std::array<Entry, kRows.size()> kCatalogue = resolve();

// Numbers 1000 to 1261 and 8996 to 8999 map to their row; everything else is unknown.
constexpr std::uint32_t kLow = 1000, kHigh = 1261, kSpecial = 8996;
constexpr std::size_t kSlots = kHigh - kLow + 1 + 4;

constexpr std::size_t slotOf(std::uint32_t number) {
  if (number >= kLow && number <= kHigh) return number - kLow;
  if (number >= kSpecial && number < kSpecial + 4) return kHigh - kLow + 1 + (number - kSpecial);
  return kSlots;
}

constexpr std::array<std::int16_t, kSlots> index() {
  std::array<std::int16_t, kSlots> slots{};
  for (auto& s : slots) s = -1;
  for (std::size_t i = 0; i < kCatalogue.size(); ++i) {
    std::size_t slot = slotOf(kCatalogue[i].number);
    if (slot == kSlots) records::detail::fail("catalogue: number outside the known ranges");
    slots[slot] = static_cast<std::int16_t>(i);
  }
  return slots;
}

constexpr std::array<std::int16_t, kSlots> kIndex = index();

static_assert(kCatalogue.size() == 115, "the library knows 115 function numbers");

}  // namespace

const Entry* find(std::uint32_t number) {
  std::size_t slot = slotOf(number);
  if (slot == kSlots || kIndex[slot] < 0) return nullptr;
  return &kCatalogue[static_cast<std::size_t>(kIndex[slot])];
}

const Entry* begin() {
  return kCatalogue.data();
}
const Entry* end() {
  return kCatalogue.data() + kCatalogue.size();
}

}  // namespace trdcomp::frame
