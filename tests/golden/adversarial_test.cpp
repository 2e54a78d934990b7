// The adversarial corpus (adversarial.zst), byte for byte: crafted messages of every function
// number, both codecs and directions (texts that fill their arrays, bytes after a terminator,
// sender record sizes above and below the layout's, boundary integers and prices, empty
// sections, odd header lengths), each with the exact bytes the format packs and restores it to.
// Every pack input packs to the recorded bytes, and the recorded packed bytes (also with a header
// 4 bytes longer, and answers cut short) restore to the recorded messages; every restore input
// restores to its recorded message. The corpus is frozen: its bytes are those of the release
// before the hostile-input work, except where a documented decision changed a result on purpose,
// as the entry names. The programs that built it stay in the history
// (git log -- tests/golden/make_adversarial.sh).
//
// The file is a zstd frame holding, little-endian:
//   "TRDADV1\n", u32 entry count, then per entry:
//     name (u16 length + bytes), op (u8), codec flag (u8), codecSel (i32), output capacity (i64),
//     input (u32 length + bytes), decision (u16 length + bytes),
//     outcome: pack result (i32) and packed bytes (u32 length + bytes) for pack ops, then one
//     restore per restored input, each: u8 tag, i32 result, i32 length, u8 null, u32 length +
//     bytes.
// A pack input is the 76-byte request header and the body, or the 120-byte answer descriptor
// and five sections (u32 length + bytes each).
#include <gtest/gtest.h>
#include <zstd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

#include "TrdCompData.h"
#include "frame/catalogue.h"

namespace {

using Bytes = std::vector<unsigned char>;

enum Op : std::uint8_t { kPackRequest, kPackAnswer, kRestoreRequest, kRestoreAnswer };

bool packs(Op op) {
  return op == kPackRequest || op == kPackAnswer;
}
bool isAnswer(Op op) {
  return op == kPackAnswer || op == kRestoreAnswer;
}

struct Restored {
  std::uint8_t tag = 0;  // which input (see derivedInputs)
  std::int32_t result = 0, length = 0;
  bool null = true;
  Bytes bytes;  // the restored message's `length` bytes
};

struct Outcome {
  std::int32_t packResult = 0;
  Bytes packed;
  std::vector<Restored> restores;
};

struct Entry {
  std::string name, decision;
  Op op = kPackRequest;
  std::uint8_t flag = 0;
  std::int32_t codecSel = 0;
  std::int64_t capacity = 0;  // bytes of the pack output handed in
  Bytes input;
  Outcome outcome;
};

std::uint32_t loadLe32(const unsigned char* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
         std::uint32_t(p[3]) << 24;
}

class Reader {
 public:
  explicit Reader(const Bytes& in) : in_(in) {}
  bool done() const { return at_ == in_.size(); }
  std::uint64_t le(int n) {
    need(static_cast<std::size_t>(n));
    std::uint64_t v = 0;
    for (int k = 0; k < n; ++k) v |= std::uint64_t(in_[at_++]) << (8 * k);
    return v;
  }
  std::int32_t i32() { return static_cast<std::int32_t>(static_cast<std::uint32_t>(le(4))); }
  Bytes bytes(std::size_t n) {
    need(n);
    const auto from = in_.begin() + static_cast<std::ptrdiff_t>(at_);
    at_ += n;
    return Bytes(from, from + static_cast<std::ptrdiff_t>(n));
  }
  Bytes bytes() { return bytes(le(4)); }
  std::string text() {
    const Bytes b = bytes(le(2));
    return std::string(b.begin(), b.end());
  }
  Entry entry() {
    Entry e;
    e.name = text();
    e.op = static_cast<Op>(le(1));
    e.flag = static_cast<std::uint8_t>(le(1));
    e.codecSel = i32();
    e.capacity = static_cast<std::int64_t>(le(8));
    e.input = bytes();
    e.decision = text();
    if (packs(e.op)) {
      e.outcome.packResult = i32();
      e.outcome.packed = bytes();
    }
    for (auto n = le(1); n > 0; --n) {
      Restored r;
      r.tag = static_cast<std::uint8_t>(le(1));
      r.result = i32();
      r.length = i32();
      r.null = le(1) != 0;
      r.bytes = bytes();
      e.outcome.restores.push_back(std::move(r));
    }
    return e;
  }

 private:
  void need(std::size_t n) const {
    if (in_.size() - at_ < n) throw std::runtime_error("adversarial corpus: truncated");
  }
  const Bytes& in_;
  std::size_t at_ = 0;
};

std::vector<Entry> loadCorpus() {
  const char* path = std::getenv("TRDCOMP_ADVERSARIAL_CORPUS");
  std::ifstream in(path ? path : TRDCOMP_ADVERSARIAL_CORPUS, std::ios::binary);
  const Bytes packed((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (packed.empty()) return {};
  const unsigned long long size = ZSTD_getFrameContentSize(packed.data(), packed.size());
  if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN) return {};
  Bytes plain(static_cast<std::size_t>(size));
  ZSTD_DCtx* dctx = ZSTD_createDCtx();
  ZSTD_DCtx_setParameter(dctx, ZSTD_d_windowLogMax, 27);
  const std::size_t n =
      ZSTD_decompressDCtx(dctx, plain.data(), plain.size(), packed.data(), packed.size());
  ZSTD_freeDCtx(dctx);
  if (ZSTD_isError(n) || n != plain.size() || std::memcmp(plain.data(), "TRDADV1\n", 8) != 0)
    return {};
  Reader r(plain);
  r.bytes(8);
  std::vector<Entry> out(r.le(4));
  for (Entry& e : out) e = r.entry();
  if (!r.done()) throw std::runtime_error("adversarial corpus: bytes after the last entry");
  return out;
}

// What a restore is run on. Tag 0: the message (restore ops) or the packed bytes (pack ops).
// Packed messages also restore with a header 4 bytes longer than they say (tag 1: 4 bytes
// inserted at the header length, which grows by 4), and packed answers cut short (tags 2 and 3:
// in the middle of the body, and one byte short of the end).
std::vector<std::pair<std::uint8_t, Bytes>> derivedInputs(Op op, const Bytes& message) {
  std::vector<std::pair<std::uint8_t, Bytes>> out{{0, message}};
  const std::size_t header = isAnswer(op) ? 96 : 76;
  if (!packs(op) || message.size() < header) return out;
  const std::uint32_t at = loadLe32(message.data());
  if (at <= message.size()) {
    Bytes longer(message.begin(), message.begin() + at);
    longer.insert(longer.end(), {0xEE, 0xEE, 0xEE, 0xEE});
    longer.insert(longer.end(), message.begin() + at, message.end());
    for (int k = 0; k < 4; ++k) longer[k] = static_cast<unsigned char>((at + 4) >> (8 * k));
    out.emplace_back(1, std::move(longer));
  }
  if (op == kPackAnswer && message.size() > header + 1) {
    out.emplace_back(
        2, Bytes(message.begin(), message.begin() + header + (message.size() - header) / 2));
    out.emplace_back(3, Bytes(message.begin(), message.end() - 1));
  }
  return out;
}

Restored restore(Op op, std::uint8_t tag, Bytes in, char flag) {
  Restored r;
  r.tag = tag;
  char* out = nullptr;
  char* bytes = in.empty() ? nullptr : reinterpret_cast<char*>(in.data());
  const int inLen = static_cast<int>(in.size());
  r.result = isAnswer(op) ? CTrdCompData::RestoreAns2008(bytes, inLen, &out, r.length, flag)
                          : CTrdCompData::RestoreReq2008(bytes, inLen, &out, r.length, flag);
  r.null = out == nullptr;
  if (out && r.result == 1 && r.length > 0) r.bytes.assign(out, out + r.length);
  CTrdCompData::ReleaseAnsData(out);
  return r;
}

// The pack of a pack input into a zeroed output of the recorded capacity (the format adds each
// block's length to its slot), with a guard behind it, then the restores of the packed bytes and
// what derives from them; or the restore of a restore input. "" when nothing was written past
// the output.
std::string run(const Entry& e, Outcome& o) {
  const char flag = static_cast<char>(e.flag);
  if (!packs(e.op)) {
    o.restores.push_back(restore(e.op, 0, e.input, flag));
    return "";
  }
  constexpr std::size_t kGuard = 4096;
  Bytes out(static_cast<std::size_t>(e.capacity) + kGuard, 0);
  std::memset(out.data() + e.capacity, 0xCD, kGuard);
  int length = 0;
  Bytes input = e.input;
  if (e.op == kPackRequest) {
    tagREQ_HEAD head;
    std::memcpy(&head, input.data(), sizeof head);
    char* body = reinterpret_cast<char*>(input.data() + sizeof head);
    o.packResult =
        CTrdCompData::PackReq2008(reinterpret_cast<char*>(out.data()), length, &head, body,
                                  static_cast<int>(input.size() - sizeof head), flag);
  } else {
    tagANS_Proc proc;
    std::memcpy(&proc, input.data(), sizeof proc);
    char* sections[5] = {};
    std::size_t at = sizeof proc;
    for (char*& s : sections) {
      const std::uint32_t n = loadLe32(input.data() + at);
      at += 4;
      s = n ? reinterpret_cast<char*>(input.data() + at) : nullptr;
      at += n;
    }
    o.packResult = CTrdCompData::PackAns2008(
        reinterpret_cast<char*>(out.data()), static_cast<int>(e.capacity), length, &proc,
        sections[0], sections[1], sections[2], sections[3], sections[4], flag, e.codecSel);
  }
  for (std::size_t k = 0; k < kGuard; ++k)
    if (out[static_cast<std::size_t>(e.capacity) + k] != 0xCD) return "written past its output";
  if (length < 0 || length > e.capacity) length = 0;
  o.packed.assign(out.begin(), out.begin() + length);
  for (const auto& [tag, bytes] : derivedInputs(e.op, o.packed))
    o.restores.push_back(restore(e.op, tag, bytes, flag));
  return "";
}

// The first difference of two byte strings; "" when equal.
std::string compareBytes(const Bytes& expected, const Bytes& actual) {
  if (expected == actual) return "";
  std::size_t at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at]) ++at;
  return "lengths " + std::to_string(expected.size()) + " / " + std::to_string(actual.size()) +
         ", first difference at byte " + std::to_string(at);
}

std::string explain(const Entry& e) {
  Outcome actual;
  const std::string overrun = run(e, actual);
  if (!overrun.empty()) return overrun;
  const Outcome& expected = e.outcome;
  if (packs(e.op)) {
    if (expected.packResult != actual.packResult)
      return "pack result " + std::to_string(expected.packResult) + " / " +
             std::to_string(actual.packResult);
    const std::string d = compareBytes(expected.packed, actual.packed);
    if (!d.empty()) return "packed bytes: " + d;
  }
  if (expected.restores.size() != actual.restores.size()) return "number of restores";
  static const char* const kInputs[] = {"restore", "restore with a header 4 bytes longer",
                                        "restore cut in the middle", "restore one byte short"};
  for (std::size_t k = 0; k < expected.restores.size(); ++k) {
    const Restored &x = expected.restores[k], &y = actual.restores[k];
    const std::string what = kInputs[std::min<std::size_t>(x.tag, 3)];
    if (x.result != y.result || x.null != y.null || x.length != y.length)
      return what + ": result/length/null " + std::to_string(x.result) + "/" +
             std::to_string(x.length) + "/" + std::to_string(x.null) + " expected, got " +
             std::to_string(y.result) + "/" + std::to_string(y.length) + "/" +
             std::to_string(y.null);
    const std::string d = compareBytes(x.bytes, y.bytes);
    if (!d.empty()) return what + ": " + d;
  }
  return "";
}

class AdversarialCorpus : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { corpus_ = new std::vector<Entry>(loadCorpus()); }
  static void TearDownTestSuite() { delete corpus_; }
  static std::vector<Entry>* corpus_;
};
std::vector<Entry>* AdversarialCorpus::corpus_ = nullptr;

TEST_F(AdversarialCorpus, PacksAndRestoresToTheRecordedBytes) {
  ASSERT_GT(corpus_->size(), 10000u) << "tests/golden/adversarial.zst is missing or damaged";
  std::vector<std::string> failures;
  for (const Entry& e : *corpus_) {
    const std::string d = explain(e);
    if (!d.empty())
      failures.push_back(e.name + (e.decision.empty() ? "" : " [" + e.decision + "]") + ": " + d);
  }
  std::string report;
  for (std::size_t i = 0; i < failures.size() && i < 15; ++i) report += "  " + failures[i] + "\n";
  EXPECT_TRUE(failures.empty())
      << failures.size() << " of " << corpus_->size()
      << " corpus messages differ from their recorded bytes (names: direction.number."
         "nNIBBLEfFLAG.shape.sender-size), first:\n"
      << report
      << "These bytes are the format's, as deployed peers write and read them. A deliberate "
         "change is a documented decision and a rebuilt corpus.";
}

// The corpus holds every number of the catalogue in both directions, with codec nibbles 0
// (flags 0, 1, 2), 1 and 15, and every record shape: a number added to the catalogue needs the
// corpus rebuilt.
TEST_F(AdversarialCorpus, CoversEveryNumberVariantAndShape) {
  std::set<std::string> names;
  for (const Entry& e : *corpus_) names.insert(e.name);
  std::vector<std::string> missing;
  for (const trdcomp::frame::Entry* c = trdcomp::frame::begin(); c != trdcomp::frame::end(); ++c)
    for (const char* direction : {"req", "ans"})
      for (const char* variant : {"n0f0", "n0f1", "n0f2", "n1f0", "n15f2"})
        for (const char* shape : {"full.equal", "full.above", "full.below", "tail.equal",
                                  "tail.above", "tail.below", "numbers.equal"}) {
          const std::string name = std::string(direction) + "." + std::to_string(c->number) + "." +
                                   variant + "." + shape;
          if (!names.count(name)) missing.push_back(name);
        }
  EXPECT_TRUE(missing.empty()) << missing.size() << " missing, first " << missing.front();
}

}  // namespace
