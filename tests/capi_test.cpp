// The C interface: whole messages agree with the C++ entry points, faults are refused with their
// class and byte offset, and damaged messages never make it read or write out of bounds (the
// sanitizer build runs the same loop).
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>

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
  trdcomp_error err{};
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

Result restore(const Bytes& packed, std::size_t limit = 0) {
  Result r;
  void* out = nullptr;
  std::size_t n = 0;
  r.status =
      trdcomp_restore(packed.data(), packed.size(), TRDCOMP_DETECT, 0, limit, &out, &n, &r.err);
  if (out) r.bytes.assign(static_cast<unsigned char*>(out), static_cast<unsigned char*>(out) + n);
  trdcomp_release(out);
  return r;
}

TEST(CInterface, PacksAsTheEntryPointsDoAndRestoresPlainRecords) {
  for (std::uint32_t number : {1002u, 1010u, 1260u, 8998u}) {
    for (int nibble : {0, 1}) {
      const auto sent = trdcomp::samples::makeRequest(number, nibble, 5, number);
      const Result packed = pack(rawRequest(sent));
      ASSERT_EQ(packed.status, TRDCOMP_OK) << packed.err.message;
      EXPECT_EQ(packed.bytes, trdcomp::samples::packRequest(sent.head, sent.body)) << number;
      const Result back = restore(packed.bytes);
      ASSERT_EQ(back.status, TRDCOMP_OK) << back.err.message;
      EXPECT_EQ(back.bytes[8] & 1, 0);  // plain records
      EXPECT_EQ(Bytes(back.bytes.begin() + 76, back.bytes.end()), sent.body) << number;
    }
  }
  // The codec choice overrides the nibble; the flag reaches the 2008 codec.
  const auto sent = trdcomp::samples::makeRequest(1010, 0, 3, 1);
  EXPECT_EQ(pack(rawRequest(sent), TRDCOMP_CODEC_2011).bytes[8] >> 4, 1);
  EXPECT_EQ(pack(rawRequest(sent), TRDCOMP_CODEC_HEADER, 1).bytes,
            trdcomp::samples::packRequest(sent.head, sent.body, 1));
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

// The C restore takes what the entry points take, gives their bytes, and tells what is odd as
// warnings: for every number, both codecs and directions, as packed, with odd header lengths,
// and cut short.
TEST(CInterface, RestoresWhatTheEntryPointsRestoreAndWarnsOfWhatIsOdd) {
  int warned[5] = {}, compared = 0;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      for (bool request : {true, false}) {
        Bytes packed;
        if (request) {
          const auto q = trdcomp::samples::makeRequest(e->number, nibble, 3, e->number);
          packed = trdcomp::samples::packRequest(q.head, q.body);
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
          Result got;
          void* out = nullptr;
          std::size_t n = 0, count = 0;
          trdcomp_warning w[8];
          got.status = trdcomp_restore_ex(bytes.data(), bytes.size(),
                                          request ? TRDCOMP_REQUEST : TRDCOMP_ANSWER, 0, 0, &out,
                                          &n, w, 8, &count, &got.err);
          if (out)
            got.bytes.assign(static_cast<unsigned char*>(out),
                             static_cast<unsigned char*>(out) + n);
          trdcomp_release(out);
          const std::string what = std::to_string(e->number) + (request ? " request" : " answer") +
                                   " nibble " + std::to_string(nibble) + " of " +
                                   std::to_string(bytes.size()) + " bytes";
          ASSERT_EQ(got.status, want.status) << what << ": " << got.err.message;
          EXPECT_EQ(got.bytes, want.bytes) << what;
          ++compared;
          for (std::size_t k = 0; k < count && k < 8; ++k) {
            ++warned[w[k].code];
            EXPECT_GE(w[k].offset, 0) << what;
            EXPECT_LE(w[k].offset, std::int64_t(bytes.size())) << what;
          }
          if (warning > 0 && want.status == TRDCOMP_OK) {
            EXPECT_TRUE(count > 0 && w[0].code == warning) << what;
          } else if (warning == 0) {
            EXPECT_EQ(count, 0u) << what << ": " << w[0].message;
          }
        }
      }
    }
  }
  EXPECT_GT(compared, 800);
  EXPECT_GT(warned[TRDCOMP_WARN_RECORDS_MISSING], 100);
  EXPECT_GT(warned[TRDCOMP_WARN_RECORD_CUT], 100);
}

// Refusals carry the entry point's reason and, where the header says it, the offset.
TEST(CInterface, RefusesWithTheEntryPointsReasonAndItsOffset) {
  const auto sent = trdcomp::samples::makeRequest(1002, 0, 4, 9);
  const Bytes packed = pack(rawRequest(sent)).bytes;
  auto with = [&](std::size_t at, std::int32_t v) { return withI32(packed, at, v); };
  const Refusal cases[] = {
      {"header cut", Bytes(packed.begin(), packed.begin() + 60), TRDCOMP_ERROR_HEADER_LENGTH, 0},
      {"unknown number, packed", with(4, 1022), TRDCOMP_ERROR_PACKED_UNKNOWN, 8},
      {"header length beyond", with(0, 4000), TRDCOMP_ERROR_HEADER_LENGTH, 0},
      {"negative count", with(68, -2), TRDCOMP_ERROR_NEGATIVE_SIZE, 68},
      {"huge count", with(68, 1 << 30), TRDCOMP_ERROR_COUNT_BEYOND_INPUT, 68},
  };
  for (const Refusal& c : cases) {
    void* out = nullptr;
    std::size_t n = 0;
    trdcomp_error err{};
    const int status =
        trdcomp_restore(c.bytes.data(), c.bytes.size(), TRDCOMP_REQUEST, 0, 0, &out, &n, &err);
    EXPECT_EQ(status, c.code) << c.what << ": " << err.message;
    EXPECT_EQ(err.code, c.code) << c.what;
    EXPECT_EQ(err.offset, c.offset) << c.what;
    EXPECT_EQ(out, nullptr) << c.what;
  }
  // A field the message is too short to hold is faulted where the message ends.
  const unsigned char none[1] = {};
  void* out = nullptr;
  std::size_t n = 0;
  trdcomp_error err{};
  EXPECT_EQ(trdcomp_restore(none, 0, TRDCOMP_REQUEST, 0, 0, &out, &n, &err),
            TRDCOMP_ERROR_NEGATIVE_SIZE);
  EXPECT_EQ(err.offset, 0);
  EXPECT_EQ(pack(packed).err.offset, 8);  // packed already
  EXPECT_EQ(restore(packed, 100).status, TRDCOMP_ERROR_LIMIT);
}

TEST(CInterface, DamagedMessagesAreRestoredOrRefused) {
  std::vector<Bytes> seeds;
  for (std::uint32_t number : {1002u, 1023u, 1024u, 1260u, 8996u, 1010u})
    for (int nibble : {0, 1}) {
      const auto a = trdcomp::samples::makeAnswer(number, nibble != 0, 3, number);
      seeds.push_back(trdcomp::samples::packAnswer(a.proc, a.sections, 0, nibble << 4));
      const auto q = trdcomp::samples::makeRequest(number, nibble, 3, number);
      seeds.push_back(trdcomp::samples::packRequest(q.head, q.body));
    }
  std::mt19937 rng(11);
  int restored = 0;
  for (int i = 0; i < 20000; ++i) {
    Bytes b = seeds[rng() % seeds.size()];
    for (int k = 1 + static_cast<int>(rng() % 4); k > 0; --k) b[rng() % b.size()] = rng() & 0xFF;
    if (rng() % 3 == 0) b.resize(rng() % b.size());
    // Within the limit when restored; when refused, the fault lies inside the input.
    const Result r = restore(b, 1 << 22);
    if (r.status == TRDCOMP_OK) {
      ++restored;
      EXPECT_LE(r.bytes.size(), std::size_t(1) << 22);
    } else {
      EXPECT_GE(r.err.offset, -1);
      EXPECT_LE(r.err.offset, static_cast<std::int64_t>(b.size()));
    }
  }
  EXPECT_GT(restored, 1000);
}

TEST(CInterface, DescribesEveryNumber) {
  ASSERT_EQ(trdcomp_function_count(), 115);
  for (int i = 0; i < trdcomp_function_count(); ++i) {
    const std::uint32_t number = trdcomp_function_at(i);
    const trdcomp::frame::Entry* e = trdcomp::frame::find(number);
    ASSERT_NE(e, nullptr);
    trdcomp_message_info info;
    ASSERT_EQ(trdcomp_describe(number, TRDCOMP_ANSWER, TRDCOMP_CODEC_2008, &info), TRDCOMP_OK);
    if (info.form != TRDCOMP_FORM_RECORDS) continue;
    ASSERT_EQ(info.section_count, e->answerRestore[0]->sectionCount);
    for (int s = 0; s < info.section_count; ++s) {
      const auto& l = *e->answerRestore[0]->sections[s];
      EXPECT_EQ(info.sections[s].record_size, l.size);
      trdcomp_field_info f;
      ASSERT_EQ(trdcomp_field(number, TRDCOMP_ANSWER, TRDCOMP_CODEC_2008, s,
                              static_cast<int>(l.fieldCount) - 1, &f),
                TRDCOMP_OK);
      EXPECT_EQ(f.offset, l.fields[l.fieldCount - 1].offset);
      EXPECT_EQ(trdcomp_field(number, TRDCOMP_ANSWER, TRDCOMP_CODEC_2008, s,
                              static_cast<int>(l.fieldCount), &f),
                TRDCOMP_ERROR_ARGUMENT);
    }
  }
  trdcomp_message_info info;
  EXPECT_EQ(trdcomp_describe(1022, TRDCOMP_REQUEST, TRDCOMP_CODEC_2008, &info),
            TRDCOMP_ERROR_UNKNOWN_FUNCTION);
  EXPECT_EQ(trdcomp_describe(1002, TRDCOMP_REQUEST, 2010, &info), TRDCOMP_ERROR_ARGUMENT);
}

}  // namespace

namespace {

// Every number's packed and raw messages, both codecs and directions.
std::vector<std::pair<Bytes, bool>> everyMessage() {
  std::vector<std::pair<Bytes, bool>> out;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
    for (int nibble : {0, 1}) {
      const auto q = trdcomp::samples::makeRequest(e->number, nibble, 3, e->number);
      out.push_back({trdcomp::samples::packRequest(q.head, q.body), true});
      out.push_back({rawRequest(q), true});
      const auto a = trdcomp::samples::makeAnswer(e->number, nibble != 0, 3, e->number);
      out.push_back({trdcomp::samples::packAnswer(a.proc, a.sections, 0, nibble << 4), false});
    }
  return out;
}

}  // namespace

// Explain covers every byte once, in order; a well-formed message has no byte that nothing
// reads; every present bit of a 2011 map has its field (or index) among the record's items.
TEST(CInterface, ExplainCoversEveryByteAndEveryPresentField) {
  int fields = 0;
  for (auto& [bytes, request] : everyMessage()) {
    trdcomp_explanation* e = nullptr;
    trdcomp_error err{};
    ASSERT_EQ(trdcomp_explain(bytes.data(), bytes.size(),
                              request ? TRDCOMP_REQUEST : TRDCOMP_ANSWER, 0, 0, &e, &err),
              TRDCOMP_OK)
        << err.message;
    const std::string what = std::to_string(trdcomp::loadU32(bytes.data() + 4)) +
                             (request ? " request" : " answer") + " flags " +
                             std::to_string(bytes[8]);
    std::int64_t at = 0;
    std::map<std::pair<int, std::int64_t>, int> bits, read;  // per (section, record)
    for (std::size_t k = 0; k < e->item_count; ++k) {
      const trdcomp_item& i = e->items[k];
      ASSERT_EQ(i.offset, at) << what << " item " << k;
      ASSERT_GT(i.length, 0) << what << " item " << k;
      at += i.length;
      // Bodies of the forms without records are not read (1000, 1001, 1017).
      if (e->frame.form == TRDCOMP_FORM_RECORDS) {
        EXPECT_NE(i.what, TRDCOMP_ITEM_UNREAD) << what << " at " << i.offset;
        EXPECT_NE(i.what, TRDCOMP_ITEM_TRAILING) << what << " at " << i.offset;
      }
      const auto key = std::make_pair(i.section * 2 + i.unit, i.record);
      if (i.what == TRDCOMP_ITEM_PRESENCE_MAP)
        for (int b = 0; b < 7; ++b) bits[key] += (i.value >> (6 - b)) & 1;
      if (i.what == TRDCOMP_ITEM_FIELD || i.what == TRDCOMP_ITEM_DICTIONARY_INDEX) ++read[key];
      if (i.what == TRDCOMP_ITEM_FIELD) {
        ++fields;
        ASSERT_LE(i.value_offset + i.width, std::int64_t(e->values_length)) << what;
      }
    }
    EXPECT_EQ(at, std::int64_t(bytes.size())) << what;
    for (const auto& [key, n] : bits) EXPECT_EQ(read[key], n) << what << " record " << key.second;
    trdcomp_release(e);
  }
  EXPECT_GT(fields, 10000);
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
