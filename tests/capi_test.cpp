// The C interface: whole messages agree with the C++ entry points, and faults are refused with
// their class and byte offset. (capi_fuzzer feeds it damaged messages under the sanitizers; the
// Python module's tests check the explanations of every number.)
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "primitives/bytes.h"
#include "samples.h"
#include "trdcomp_c.h"

namespace {

using trdcomp::samples::Bytes;

Bytes rawRequest(const trdcomp::samples::Request& r) {
  const auto* head = reinterpret_cast<const unsigned char*>(&r.head);
  Bytes out(head, head + sizeof r.head);
  trdcomp::storeU32(out.data(), 76);
  std::copy(r.body.begin(), r.body.end(), std::back_inserter(out));
  return out;
}

struct Result {
  int status = -1;
  Bytes bytes;
  bool buffer = false;  // a buffer was handed back
  trdcomp_error err{};
  std::vector<trdcomp_warning> warnings;
};

// A message with one int32 changed.
Bytes withI32(Bytes b, std::size_t at, std::int32_t v) {
  trdcomp::storeI32(b.data() + at, v);
  return b;
}

// A damaged message and the refusal it must meet: its class and the offset of its fault.
struct Refusal {
  const char* what;
  Bytes bytes;
  int code;
  std::int64_t offset;
  int direction = TRDCOMP_DETECT;
  std::size_t limit = 0;
};

Result pack(const Bytes& raw, int codec = TRDCOMP_CODEC_HEADER, int flag = 0) {
  Result r;
  void* out = nullptr;
  std::size_t n = 0;
  r.status = trdcomp_pack(raw.data(), raw.size(), TRDCOMP_DETECT, codec, flag, &out, &n, &r.err);
  if (out) r.bytes.assign(static_cast<unsigned char*>(out), static_cast<unsigned char*>(out) + n);
  trdcomp_release(out);
  return r;
}

Result restore(const Bytes& packed, int direction = TRDCOMP_DETECT, std::size_t limit = 0) {
  Result r;
  void* out = nullptr;
  std::size_t n = 0, count = 0;
  trdcomp_warning w[8];
  const unsigned char none = 0;  // a pointer to no bytes
  r.status = trdcomp_restore_ex(packed.empty() ? &none : packed.data(), packed.size(), direction, 0,
                                limit, &out, &n, w, 8, &count, &r.err);
  r.buffer = out != nullptr;
  if (out) r.bytes.assign(static_cast<unsigned char*>(out), static_cast<unsigned char*>(out) + n);
  r.warnings.assign(w, w + std::min<std::size_t>(count, 8));
  trdcomp_release(out);
  return r;
}

// What the C++ entry point restores: the bytes (flags bit 0 cleared, as the C interface
// documents) or the reason it refuses.
Result library(Bytes in, bool request) {
  Result r;
  char* out = nullptr;
  int n = 0, reason = 0;
  char* p = reinterpret_cast<char*>(in.data());
  const int size = static_cast<int>(in.size());
  const int ok = request ? CTrdCompData::RestoreReq2008Ex(p, size, &out, n, 0, -1, &reason)
                         : CTrdCompData::RestoreAns2008Ex(p, size, &out, n, 0, -1, &reason);
  r.status = ok ? TRDCOMP_OK : reason;
  if (out) r.bytes.assign(out, out + n);
  if (!out && ok) r.bytes = in;  // no body: the header stands for the message
  if (r.bytes.size() > 8) r.bytes[8] &= 0xFE;
  CTrdCompData::ReleaseAnsData(out);
  return r;
}

// The C pack gives the entry points' bytes, and the C restore takes what they take, gives their
// bytes, and tells what is odd as warnings: for every number, both codecs and directions, as
// packed, with odd header lengths, and cut short.
TEST(CInterface, PacksAndRestoresAsTheEntryPointsAndWarnsOfWhatIsOdd) {
  int warned[5] = {}, compared = 0;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      for (bool request : {true, false}) {
        Bytes packed;
        if (request) {
          const auto q = trdcomp::samples::makeRequest(e->number, nibble, 3, e->number);
          packed = trdcomp::samples::packRequest(q.head, q.body);
          EXPECT_EQ(pack(rawRequest(q)).bytes, packed) << e->number << " nibble " << nibble;
        } else {
          const auto a = trdcomp::samples::makeAnswer(e->number, nibble != 0, 3, e->number);
          packed = trdcomp::samples::packAnswer(a.proc, a.sections, 0, nibble << 4);
        }
        const std::int32_t head = request ? 76 : 96;
        std::vector<std::pair<Bytes, int>> shapes = {{packed, 0}};
        Bytes longer = packed;
        longer.insert(longer.begin() + head, 4, 0);
        trdcomp::storeI32(longer.data(), head + 4);
        shapes.push_back({longer, TRDCOMP_WARN_HEADER_LENGTH});
        if (packed.size() > std::size_t(head) + 2) {
          shapes.push_back(
              {Bytes(packed.begin(), packed.begin() + (packed.size() + head) / 2), -1});
          shapes.push_back({Bytes(packed.begin(), packed.end() - 1), -1});
        }
        for (const auto& [bytes, warning] : shapes) {
          const Result want = library(bytes, request);
          const Result got = restore(bytes, request ? TRDCOMP_REQUEST : TRDCOMP_ANSWER);
          const std::string what = std::to_string(e->number) + (request ? " request" : " answer") +
                                   " nibble " + std::to_string(nibble) + " of " +
                                   std::to_string(bytes.size()) + " bytes";
          ASSERT_EQ(got.status, want.status) << what << ": " << got.err.message;
          EXPECT_EQ(got.bytes, want.bytes) << what;
          ++compared;
          for (const trdcomp_warning& w : got.warnings) {
            ++warned[w.code];
            EXPECT_GE(w.offset, 0) << what;
            EXPECT_LE(w.offset, std::int64_t(bytes.size())) << what;
          }
          if (warning > 0 && want.status == TRDCOMP_OK) {
            EXPECT_TRUE(!got.warnings.empty() && got.warnings[0].code == warning) << what;
          } else if (warning == 0) {
            EXPECT_TRUE(got.warnings.empty()) << what << ": " << got.warnings[0].message;
          }
        }
      }
    }
  }
  EXPECT_GT(compared, 800);
  EXPECT_GT(warned[TRDCOMP_WARN_RECORDS_MISSING], 100);
  EXPECT_GT(warned[TRDCOMP_WARN_RECORD_CUT], 100);
  // The codec choice overrides the nibble; the flag reaches the 2008 codec.
  const auto sent = trdcomp::samples::makeRequest(1010, 0, 3, 1);
  EXPECT_EQ(pack(rawRequest(sent), TRDCOMP_CODEC_2011).bytes[8] >> 4, 1);
  EXPECT_EQ(pack(rawRequest(sent), TRDCOMP_CODEC_HEADER, 1).bytes,
            trdcomp::samples::packRequest(sent.head, sent.body, 1));
}

// Refusals carry the entry point's reason and, where the header says it, the offset.
TEST(CInterface, RefusesWithTheEntryPointsReasonAndItsOffset) {
  const auto sent = trdcomp::samples::makeRequest(1002, 0, 4, 9);
  const Bytes packed = pack(rawRequest(sent)).bytes;
  const auto sent2011 = trdcomp::samples::makeRequest(1002, 1, 2, 9);
  Bytes count2011 = trdcomp::samples::packRequest(sent2011.head, sent2011.body);
  count2011[76] = 9;  // the 16-bit count says 9, the header 2
  const auto passing = trdcomp::samples::makeAnswer(8999, false, 2, 9);
  Bytes sectionBit = packed, answer = trdcomp::samples::packAnswer(passing.proc, passing.sections);
  sectionBit[8] |= 2;
  answer[8] |= 1;  // answers of 8999 pass through: a packed body is refused
  auto with = [&](std::size_t at, std::int32_t v) { return withI32(packed, at, v); };
  const Refusal cases[] = {
      {"empty", {}, TRDCOMP_ERROR_NEGATIVE_SIZE, 0, TRDCOMP_REQUEST},
      {"no header length", Bytes(packed.begin(), packed.begin() + 3), TRDCOMP_ERROR_TRUNCATED, 3},
      {"header cut", Bytes(packed.begin(), packed.begin() + 60), TRDCOMP_ERROR_HEADER_LENGTH, 0},
      {"header length neither", with(0, 1000), TRDCOMP_ERROR_HEADER, 0},
      {"header length beyond", with(0, 4000), TRDCOMP_ERROR_HEADER_LENGTH, 0, TRDCOMP_REQUEST},
      {"unknown number, packed", with(4, 1022), TRDCOMP_ERROR_PACKED_UNKNOWN, 8},
      {"pass-through answer, packed", answer, TRDCOMP_ERROR_PACKED_UNKNOWN, 8},
      {"section bit", sectionBit, TRDCOMP_ERROR_SECTION_BIT, 8},
      {"negative count", with(68, -2), TRDCOMP_ERROR_NEGATIVE_SIZE, 68},
      {"huge count", with(68, 1 << 30), TRDCOMP_ERROR_COUNT_BEYOND_INPUT, 68},
      {"2011 count", count2011, TRDCOMP_ERROR_COUNT_MISMATCH, 76},
      {"limit", packed, TRDCOMP_ERROR_LIMIT, 68, TRDCOMP_DETECT, 100},
  };
  for (const Refusal& c : cases) {
    const Result r = restore(c.bytes, c.direction, c.limit);
    EXPECT_EQ(r.status, c.code) << c.what << ": " << r.err.message;
    EXPECT_EQ(r.err.code, c.code) << c.what;
    EXPECT_EQ(r.err.offset, c.offset) << c.what;
    EXPECT_FALSE(r.buffer) << c.what;
  }
  EXPECT_EQ(pack(packed).err.offset, 8);  // packed already
}

TEST(CInterface, DescribeRefusesWhatItDoesNotKnow) {
  trdcomp_message_info info;
  trdcomp_field_info f;
  EXPECT_EQ(trdcomp_describe(1022, TRDCOMP_REQUEST, TRDCOMP_CODEC_2008, &info),
            TRDCOMP_ERROR_UNKNOWN_FUNCTION);
  EXPECT_EQ(trdcomp_describe(1002, TRDCOMP_REQUEST, 2010, &info), TRDCOMP_ERROR_ARGUMENT);
  ASSERT_EQ(trdcomp_describe(1002, TRDCOMP_REQUEST, TRDCOMP_CODEC_2008, &info), TRDCOMP_OK);
  const int last = static_cast<int>(info.sections[0].field_count) - 1;
  EXPECT_EQ(trdcomp_field(1002, TRDCOMP_REQUEST, TRDCOMP_CODEC_2008, 0, last, &f), TRDCOMP_OK);
  EXPECT_EQ(trdcomp_field(1002, TRDCOMP_REQUEST, TRDCOMP_CODEC_2008, 0, last + 1, &f),
            TRDCOMP_ERROR_ARGUMENT);
}

// A plain answer's frame is checked before it is packed: each fault is refused with its class and
// the offset of the field that says it.
TEST(CInterface, PackRefusesAPlainAnswerWhoseFrameDoesNotHold) {
  const auto a = trdcomp::samples::makeAnswer(1002, false, 3, 7);
  const Bytes packed = trdcomp::samples::packAnswer(a.proc, a.sections, 0, 0);
  const Bytes raw = restore(packed).bytes;  // two sections: a table at 96, records at 116
  ASSERT_EQ(raw[8] & TRDCOMP_FLAG_SECTION_TABLE, TRDCOMP_FLAG_SECTION_TABLE);
  EXPECT_EQ(pack(raw).bytes, packed);
  const auto n = static_cast<std::int64_t>(raw.size());
  auto with = [&](std::size_t at, std::int32_t v) { return withI32(raw, at, v); };
  const Refusal cases[] = {
      {"header length", with(0, 100), TRDCOMP_ERROR_HEADER, 0},
      {"table size cut", Bytes(raw.begin(), raw.begin() + 98), TRDCOMP_ERROR_TRUNCATED, 96},
      {"table size not pairs", with(96, 13), TRDCOMP_ERROR_HEADER, 96},
      {"six pairs", with(96, 4 + 8 * 6), TRDCOMP_ERROR_HEADER, 96},
      {"table past the end", with(96, 4 + 8 * 1000), TRDCOMP_ERROR_TRUNCATED, n},
      {"negative count", with(100, -1), TRDCOMP_ERROR_HEADER, 100},
      {"negative size", with(112, -1), TRDCOMP_ERROR_HEADER, 112},
      {"records past the end", with(108, 4), TRDCOMP_ERROR_TRUNCATED, n},
  };
  for (const Refusal& c : cases) {
    const Result r = pack(c.bytes);
    EXPECT_EQ(r.status, c.code) << c.what << ": " << r.err.message;
    EXPECT_EQ(r.err.offset, c.offset) << c.what;
    EXPECT_TRUE(r.bytes.empty()) << c.what;
  }
}

}  // namespace
