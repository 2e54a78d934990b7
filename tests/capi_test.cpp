// The C interface: whole messages agree with the C++ entry points, faults are refused with their
// class and byte offset, and damaged messages never make it read or write out of bounds (the
// sanitizer build runs the same loop).
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>

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

TEST(CInterface, RefusesFaultsWithTheirClassAndOffset) {
  const auto sent = trdcomp::samples::makeRequest(1002, 0, 4, 9);
  const Bytes packed = pack(rawRequest(sent)).bytes;
  auto with = [&](std::size_t at, std::int32_t v) {
    Bytes b = packed;
    trdcomp::storeI32(b.data() + at, v);
    return b;
  };
  struct Case {
    const char* what;
    Bytes bytes;
    int code;
    std::int64_t offset;
  } cases[] = {
      {"header cut", Bytes(packed.begin(), packed.begin() + 60), TRDCOMP_E_TRUNCATED, 60},
      {"record cut", Bytes(packed.begin(), packed.end() - 1), TRDCOMP_E_TRUNCATED, -2},
      {"unknown number", with(4, 1022), TRDCOMP_E_UNKNOWN, 4},
      {"header length beyond", with(0, 4000), TRDCOMP_E_HEADER, 0},
      {"negative count", with(68, -2), TRDCOMP_E_HEADER, 68},
      {"huge count", with(68, 1 << 30), TRDCOMP_E_TOO_LARGE, 68},
  };
  for (const Case& c : cases) {
    const Result r = restore(c.bytes);
    EXPECT_EQ(r.status, c.code) << c.what << ": " << r.err.message;
    EXPECT_EQ(r.err.code, c.code) << c.what;
    if (c.offset != -2) {
      EXPECT_EQ(r.err.offset, c.offset) << c.what;
    }
    EXPECT_TRUE(r.bytes.empty()) << c.what;
  }
  EXPECT_EQ(pack(packed).err.offset, 8);  // packed already
  EXPECT_EQ(restore(packed, 100).status, TRDCOMP_E_TOO_LARGE);
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
                TRDCOMP_E_ARGUMENT);
    }
  }
  trdcomp_message_info info;
  EXPECT_EQ(trdcomp_describe(1022, TRDCOMP_REQUEST, TRDCOMP_CODEC_2008, &info), TRDCOMP_E_UNKNOWN);
  EXPECT_EQ(trdcomp_describe(1002, TRDCOMP_REQUEST, 2010, &info), TRDCOMP_E_ARGUMENT);
}

}  // namespace
