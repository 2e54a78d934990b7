// Restoring what arrives from the network. Every message of every number, cut at every byte, is
// read only inside the bytes handed in (the sanitizer build checks each
// access: inputs live in buffers of their exact size) and costs work that follows the bytes
// present, never the counts claimed: a restore counts the records it visits, and no restore may
// visit more records than its input has bytes.
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "frame/catalogue.h"
#include "frame/messages.h"
#include "test_util.h"

using namespace trdcomp::test;
using trdcomp::Status;

namespace {

enum class Direction { Request, Answer };

struct Release {
  void operator()(char* p) const { CTrdCompData::ReleaseAnsData(p); }
};

struct Outcome {
  Status status = TRDCOMP_OK;
  int length = 0;
  std::int64_t steps = 0;
  std::unique_ptr<char, Release> bytes;  // the restored message, when there is one
};

// Restores `in` from a heap buffer of its exact size, counting the records visited.
Outcome restore(Direction d, const Bytes& in, std::int64_t maxLength = 1 << 28) {
  std::unique_ptr<char[]> exact(new char[in.size() + (in.empty() ? 1 : 0)]);
  if (!in.empty()) std::memcpy(exact.get(), in.data(), in.size());
  const int inLen = static_cast<int>(in.size());
  Outcome o;
  trdcomp::RestoreOptions options;
  options.maxLength = maxLength;
  options.steps = &o.steps;
  char* out = nullptr;
  if (d == Direction::Request) {
    o.status = trdcomp::frame::checkRequestArguments(exact.get(), inLen, &out);
    bool passedThrough;
    if (o.status == TRDCOMP_OK)
      o.status = trdcomp::frame::restoreRequest(trdcomp::InView(exact.get(), inLen), &out, o.length,
                                                0, options, passedThrough);
  } else {
    o.status = trdcomp::frame::checkAnswerArguments(exact.get(), inLen, &out);
    if (o.status == TRDCOMP_OK)
      o.status = trdcomp::frame::restoreAnswer(trdcomp::InView(exact.get(), inLen), &out, o.length,
                                               0, options);
  }
  o.bytes.reset(out);
  return o;
}

struct Message {
  std::string name;
  Direction direction;
  int nibble;
  Bytes packed;
};

// A packed request and answer of every known number in both codecs: two records per section,
// or one where two make a message longer than 8 KiB.
std::vector<Message> everyMessage() {
  std::vector<Message> out;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      const std::string name = std::to_string(e->number) + (nibble ? " 2011" : " 2008");
      for (bool answer : {false, true}) {
        Message m{name + (answer ? " answer" : " request"),
                  answer ? Direction::Answer : Direction::Request,
                  nibble,
                  {}};
        for (int n = 2; n >= 1 && (m.packed.empty() || m.packed.size() > 8192); --n) {
          const auto q = trdcomp::samples::makeRequest(e->number, nibble, n, e->number);
          const auto a = trdcomp::samples::makeAnswer(e->number, nibble, n, e->number + 1);
          m.packed =
              answer ? packAnswer(a.proc, a.sections, 0, nibble << 4) : packRequest(q.head, q.body);
        }
        out.push_back(std::move(m));
      }
    }
  }
  return out;
}

// Every prefix is restored or refused with work that follows its bytes; a cut 2008 answer keeps
// its count. (What a cut answer restores to is frozen by the adversarial corpus, cut in the
// middle and one byte short, for every number and record shape.)
TEST(HostileInput, EveryPrefixOfEveryMessage) {
  for (const Message& m : everyMessage()) {
    SCOPED_TRACE(m.name);
    const Outcome whole = restore(m.direction, m.packed);
    ASSERT_EQ(whole.status, TRDCOMP_OK);
    // The fixed part: the header and, when a 2008 answer announces one, its section table.
    const bool table = m.direction == Direction::Answer && m.nibble == 0 && (m.packed[8] & 2);
    const std::size_t header = m.direction == Direction::Request ? 76
                               : table ? 96 + static_cast<std::size_t>(i32At(m.packed, 96))
                                       : 96;
    for (std::size_t cut = 0; cut < m.packed.size(); ++cut) {
      const Outcome o = restore(m.direction, slice(m.packed, 0, cut));
      ASSERT_LE(o.steps, static_cast<std::int64_t>(cut)) << cut;
      if (o.status != TRDCOMP_OK) continue;
      if (cut >= header && m.nibble == 0 && m.direction == Direction::Answer) {
        ASSERT_EQ(o.length, whole.length) << cut;
      }
    }
  }
}

// A message of `bytes` bytes that claims `count` records: the header, then whatever fills the
// rest (zeros are the smallest records of both codecs: empty blocks, zero lengths).
Bytes claiming(Direction d, std::uint32_t number, int nibble, bool packed, std::int32_t count,
               std::int32_t senderSize, std::size_t bytes) {
  Bytes m(std::max<std::size_t>(bytes, d == Direction::Request ? 76 : 96), 0);
  putI32(m, 0, d == Direction::Request ? 76 : 96);
  putI32(m, 4, static_cast<std::int32_t>(number));
  m[8] = static_cast<unsigned char>((nibble << 4) | (packed ? 1 : 0));
  putI32(m, d == Direction::Request ? 68 : 88, count);
  putI32(m, d == Direction::Request ? 72 : 92, senderSize);
  // A 2011 body opens with its 16-bit count; make it agree where it can.
  if (nibble && packed) {
    const std::size_t at = d == Direction::Request ? 76 : 96;
    m[at] = static_cast<unsigned char>(count), m[at + 1] = static_cast<unsigned char>(count >> 8);
  }
  return m;
}

TEST(HostileInput, WorkFollowsTheBytesPresentNotTheCountsClaimed) {
  // 4 KiB that claim as many records as a 64 MiB restore holds: packed and raw, every number,
  // both codecs, both directions. A request that cannot hold its count is refused before
  // anything is allocated; an answer restores the records present and leaves the rest zero.
  constexpr std::size_t kBytes = 4096;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      for (bool packed : {true, false}) {
        SCOPED_TRACE(std::to_string(e->number) + (nibble ? " 2011" : " 2008") +
                     (packed ? " packed" : " raw"));
        const trdcomp::records::Layout* request = e->request[nibble];
        if (request) {
          const std::int32_t count = static_cast<std::int32_t>((64 << 20) / request->size);
          const Outcome o = restore(Direction::Request,
                                    claiming(Direction::Request, e->number, nibble, packed, count,
                                             static_cast<std::int32_t>(request->size), kBytes));
          EXPECT_EQ(o.status, TRDCOMP_ERROR_COUNT_BEYOND_INPUT);
          EXPECT_EQ(o.steps, 0);
        }
        // A 2011 answer body is always framed: it has no raw form.
        if (e->answerForm != trdcomp::frame::AnswerForm::Routine || (nibble && !packed)) continue;
        const trdcomp::records::AnswerLayout& answer = *e->answerRestore[nibble];
        if (answer.multiSection() || answer.sections[0]->dictionary) continue;
        // A 2011 single-section count travels in 16 bits.
        const std::int64_t size = answer.sections[0]->size;
        const std::int32_t count = static_cast<std::int32_t>(
            std::min<std::int64_t>((64 << 20) / size, nibble ? 65535 : INT32_MAX));
        const Outcome o = restore(Direction::Answer,
                                  claiming(Direction::Answer, e->number, nibble, packed, count,
                                           static_cast<std::int32_t>(size), kBytes),
                                  INT32_MAX);
        EXPECT_EQ(o.status, TRDCOMP_OK);
        EXPECT_EQ(o.length, 96 + count * size);
        EXPECT_LE(o.steps, static_cast<std::int64_t>(kBytes - 96) / (packed ? 2 : size) + 1);
      }
    }
  }
}

TEST(HostileInput, CountsTheBytesCannotHoldAreRefusedAndRecordsOfNoSizeCostNothing) {
  // Requests of 1002 (83-byte records): each packed record needs its length field, each raw
  // record its size; one short is refused. Raw bodies whose sender record size is 0 or negative
  // with counts in the hundreds of millions (as in the reports that found these loops): the
  // request of 1000 and the answer of 1102 restore 1-byte records without a step.
  constexpr auto kRequest = Direction::Request;
  constexpr auto kAnswer = Direction::Answer;
  struct Case {
    const char* name;
    Direction direction;
    std::uint32_t number;
    int nibble;
    bool packed;
    std::size_t bytes;
    std::int32_t count, senderSize;
    Status status;
    int recordSize = 0;
  } cases[] = {
      // clang-format off
      {"2008 packed, 4 bytes each", kRequest, 1002, 0, true, 76 + 40, 10, 83, TRDCOMP_OK, 83},
      {"2008 packed, one short", kRequest, 1002, 0, true, 76 + 39, 10, 83, TRDCOMP_ERROR_COUNT_BEYOND_INPUT},
      {"2011 packed, count and 2 bytes each", kRequest, 1002, 1, true, 76 + 22, 10, 83, TRDCOMP_OK, 83},
      {"2011 packed, one short", kRequest, 1002, 1, true, 76 + 21, 10, 83, TRDCOMP_ERROR_COUNT_BEYOND_INPUT},
      {"raw, whole records", kRequest, 1002, 0, false, 76 + 830, 10, 83, TRDCOMP_OK, 83},
      {"raw, one byte short", kRequest, 1002, 0, false, 76 + 829, 10, 83, TRDCOMP_ERROR_COUNT_BEYOND_INPUT},
      {"raw, records of no size", kRequest, 1002, 1, false, 76, 10, 0, TRDCOMP_OK, 83},
      {"raw, negative size", kRequest, 1002, 1, false, 76 + 830, 10, -83, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"negative count", kRequest, 1002, 0, true, 76 + 40, -1, 83, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"count past 32-bit lengths", kRequest, 1002, 0, false, 76, 0x7FFFFFFF, 0, TRDCOMP_ERROR_TOO_LARGE},
      {"1000 request, size 0", kRequest, 1000, 0, false, 120, 200000000, 0, TRDCOMP_OK, 1},
      {"1000 request, negative size", kRequest, 1000, 0, false, 120, 200000000, -1233, TRDCOMP_ERROR_NEGATIVE_SIZE},
      {"1102 answer, size 0", kAnswer, 1102, 0, false, 120, 200000000, 0, TRDCOMP_OK, 1},
      {"1102 answer, negative size", kAnswer, 1102, 0, false, 120, 200000000, -1233, TRDCOMP_OK, 1},
      // clang-format on
  };
  for (const Case& c : cases) {
    const Outcome o =
        restore(c.direction,
                claiming(c.direction, c.number, c.nibble, c.packed, c.count, c.senderSize, c.bytes),
                INT32_MAX);
    EXPECT_EQ(o.status, c.status) << c.name;
    if (c.status == TRDCOMP_OK) {
      EXPECT_EQ(o.length, (c.direction == kRequest ? 76 : 96) + c.recordSize * c.count) << c.name;
    }
    if (c.senderSize <= 0) {
      EXPECT_EQ(o.steps, 0) << c.name;
    }
  }
}

// Text places of a layout: a counted group's text members once per entry.
std::int64_t textPlaces(const trdcomp::records::Layout& l) {
  using trdcomp::records::Kind;
  std::int64_t n = 0, times = 1, members = 0;
  for (const auto& f : l) {
    if (f.kind == Kind::Group) {
      times = f.repeat, members = f.members;
      continue;
    }
    if (f.kind == Kind::Text || f.kind == Kind::ShortText) n += members > 0 ? times : 1;
    if (members > 0 && --members == 0) times = 1;
  }
  return n;
}

// A body without a zero byte is the worst case of the 2011 text rule: every text fills its array,
// and with equal records each comparison runs on to the end of the body. Packing such a body
// compares each byte past an array a bounded number of times (once per text place at most),
// never once per record: for every 2011 layout, requests and answer sections, dictionary
// sections included, and sender record sizes equal to, above and below the layout's.
TEST(HostileInput, PackingTextsWithoutTerminatorsIsLinearInTheBody) {
  constexpr int kRecords = 48;
  int runOn = 0;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    const trdcomp::records::Layout* request = e->request[1];
    const trdcomp::records::AnswerLayout* answer = e->answerPack[1];
    for (int stride : {0, 9, -1}) {  // the layout's size, 9 bytes more, a third less
      SCOPED_TRACE(std::to_string(e->number) + " stride " + std::to_string(stride));
      const auto senderSize = [&](std::uint32_t size) {
        return static_cast<std::int32_t>(stride >= 0 ? size + stride : size * 2 / 3);
      };
      std::int64_t steps = 0;
      int outLen = 0;
      if (request && !request->opaque && e->requestForm == trdcomp::frame::RequestForm::Routine) {
        const std::int32_t size = senderSize(request->size);
        const Bytes body(std::size_t(kRecords) * size, 'A');
        const tagREQ_HEAD head = requestHead(e->number, kRecords, size, 0x10);
        Bytes out(static_cast<std::size_t>(trdcomp::frame::requestBound(head, int(body.size()))));
        ASSERT_EQ(trdcomp::frame::packRequest(reinterpret_cast<char*>(out.data()), -1, outLen, head,
                                              reinterpret_cast<const char*>(body.data()),
                                              int(body.size()), 0, &steps),
                  TRDCOMP_OK);
        EXPECT_LE(steps, (textPlaces(*request) + 1) * std::int64_t(body.size())) << "request";
        runOn += steps > 0;
      }
      if (!answer || e->answerForm != trdcomp::frame::AnswerForm::Routine) continue;
      std::vector<std::pair<int, int>> shape;
      std::vector<Bytes> sections(5);
      char* pointers[5] = {};
      std::int64_t most = 0;
      for (int s = 0; s < answer->sectionCount; ++s) {
        shape.emplace_back(kRecords, senderSize(answer->sections[s]->size));
        sections[s].assign(std::size_t(kRecords) * shape[s].second, 'A');
        pointers[s] = reinterpret_cast<char*>(sections[s].data());
        most += (textPlaces(*answer->sections[s]) + 1) * std::int64_t(sections[s].size());
      }
      const tagANS_Proc proc = answerProc(e->number, shape);
      Bytes out(static_cast<std::size_t>(trdcomp::frame::answerBound(proc, 0x10)));
      steps = 0;
      ASSERT_EQ(trdcomp::frame::packAnswer(reinterpret_cast<char*>(out.data()), -1, outLen, proc,
                                           pointers, 0, 0x10, &steps),
                TRDCOMP_OK);
      EXPECT_LE(steps, most) << "answer";
      runOn += steps > 0;
    }
  }
  // Most layouts have texts, and their comparisons did run on past the arrays.
  EXPECT_GT(runOn, 300);
}

TEST(HostileInput, LimitsAndRefusalsThroughTheInterface) {
  const auto sample = trdcomp::samples::makeAnswer(1009, false, 3, 7);
  Bytes packed = packAnswer(sample.proc, sample.sections);
  const int full = 96 + 3 * 40;
  // No limit, a limit at the restored length, one byte below it.
  for (int limit : {-1, full, full - 1}) {
    const bool refused = limit == full - 1;
    char* out = reinterpret_cast<char*>(1);
    int length = -1, reason = -1;
    EXPECT_EQ(CTrdCompData::RestoreAns2008Ex(reinterpret_cast<char*>(packed.data()),
                                             static_cast<int>(packed.size()), &out, length, 0,
                                             limit, &reason),
              refused ? 0 : 1)
        << limit;
    EXPECT_EQ(reason, refused ? TRDCOMP_ERROR_LIMIT : TRDCOMP_OK) << limit;
    EXPECT_EQ(length, refused ? 0 : full) << limit;
    EXPECT_EQ(out == nullptr, refused) << limit;
    CTrdCompData::ReleaseAnsData(out);
  }
  // A 2011 request whose packed count differs from its header's: the classic entry point keeps
  // the format's buffer for the caller to release, the checked one hands back nothing.
  auto request = trdcomp::samples::makeRequest(1002, 1, 2, 9);
  Bytes wire = packRequest(request.head, request.body);
  wire[76] = 1;  // the 16-bit count says 1, the header 2
  char* out = nullptr;
  int length = 0, reason = 0;
  char* in = reinterpret_cast<char*>(wire.data());
  const int inLen = static_cast<int>(wire.size());
  EXPECT_EQ(CTrdCompData::RestoreReq2008(in, inLen, &out, length, 0), 0);
  EXPECT_NE(out, nullptr);
  CTrdCompData::ReleaseAnsData(out);
  EXPECT_EQ(CTrdCompData::RestoreReq2008Ex(in, inLen, &out, length, 0, -1, &reason), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(reason, TRDCOMP_ERROR_COUNT_MISMATCH);
  // Every reason has a name of its own.
  std::set<std::string> names;
  for (int r = TRDCOMP_OK; r <= TRDCOMP_ERROR_DICTIONARY_INDEX; ++r)
    names.insert(CTrdCompData::ErrorName(r));
  EXPECT_EQ(names.size(), std::size_t(TRDCOMP_ERROR_DICTIONARY_INDEX + 1));
  EXPECT_STREQ(CTrdCompData::ErrorName(999), "unknown error");
}

}  // namespace
