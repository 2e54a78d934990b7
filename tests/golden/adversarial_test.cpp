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

#include "../restore_into_check.h"
#include "TrdCompData.h"
#include "frame/catalogue.h"

namespace {

using Bytes = std::vector<unsigned char>;

enum Op : std::uint8_t { kPackRequest, kPackAnswer, kRestoreRequest, kRestoreAnswer };

std::uint32_t loadLe32(const unsigned char* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
         std::uint32_t(p[3]) << 24;
}

// Little-endian fields of the corpus, in order; `ok` turns false at the first read past its end.
struct Reader {
  const Bytes& in;
  std::size_t at = 0;
  bool ok = true;
  std::uint64_t le(int n) {
    std::uint64_t v = 0;
    if (in.size() - at < std::size_t(n)) return ok = false, 0;
    for (int k = 0; k < n; ++k) v |= std::uint64_t(in[at++]) << (8 * k);
    return v;
  }
  std::int32_t i32() { return static_cast<std::int32_t>(static_cast<std::uint32_t>(le(4))); }
  Bytes bytes(std::uint64_t n) {
    if (in.size() - at < n) return ok = false, Bytes();
    at += n;
    return Bytes(in.begin() + static_cast<std::ptrdiff_t>(at - n),
                 in.begin() + static_cast<std::ptrdiff_t>(at));
  }
  Bytes bytes() { return bytes(le(4)); }
  std::string text() {
    const Bytes b = bytes(le(2));
    return std::string(b.begin(), b.end());
  }
};

Bytes loadCorpus() {
  const char* path = std::getenv("TRDCOMP_ADVERSARIAL_CORPUS");
  std::ifstream in(path ? path : TRDCOMP_ADVERSARIAL_CORPUS, std::ios::binary);
  const Bytes packed((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const unsigned long long size = ZSTD_getFrameContentSize(packed.data(), packed.size());
  if (packed.empty() || size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN)
    return {};
  Bytes plain(static_cast<std::size_t>(size));
  ZSTD_DCtx* dctx = ZSTD_createDCtx();
  ZSTD_DCtx_setParameter(dctx, ZSTD_d_windowLogMax, 27);
  const std::size_t n =
      ZSTD_decompressDCtx(dctx, plain.data(), plain.size(), packed.data(), packed.size());
  ZSTD_freeDCtx(dctx);
  if (ZSTD_isError(n) || n != plain.size() || std::memcmp(plain.data(), "TRDADV1\n", 8) != 0)
    return {};
  return plain;
}

// What a restore is run on. Tag 0: the message (restore ops) or the packed bytes (pack ops).
// Packed messages also restore with a header 4 bytes longer than they say (tag 1: 4 bytes
// inserted at the header length, which grows by 4), and packed answers cut short (tags 2 and 3:
// in the middle of the body, and one byte short of the end).
std::vector<Bytes> derivedInputs(Op op, const Bytes& message) {
  std::vector<Bytes> out{message};
  const std::size_t header = op == kPackAnswer ? 96 : 76;
  if ((op != kPackRequest && op != kPackAnswer) || message.size() < header) return out;
  const std::uint32_t at = loadLe32(message.data());
  if (at <= message.size()) {
    Bytes longer(message.begin(), message.begin() + at);
    longer.insert(longer.end(), {0xEE, 0xEE, 0xEE, 0xEE});
    longer.insert(longer.end(), message.begin() + at, message.end());
    for (int k = 0; k < 4; ++k) longer[k] = static_cast<unsigned char>((at + 4) >> (8 * k));
    out.push_back(std::move(longer));
  }
  if (op == kPackAnswer && message.size() > header + 1) {
    out.emplace_back(message.begin(), message.begin() + header + (message.size() - header) / 2);
    out.emplace_back(message.begin(), message.end() - 1);
  }
  return out;
}

// The pack of a pack input into a zeroed output of the recorded capacity (the format adds each
// block's length to its slot) with a guard behind it; -1 when the pack wrote past its output.
int pack(Op op, Bytes input, std::int64_t capacity, char flag, int codecSel, Bytes& packed) {
  constexpr std::size_t kGuard = 4096;
  Bytes out(static_cast<std::size_t>(capacity) + kGuard, 0);
  std::memset(out.data() + capacity, 0xCD, kGuard);
  int length = 0, result;
  char* o = reinterpret_cast<char*>(out.data());
  if (op == kPackRequest) {
    tagREQ_HEAD head;
    std::memcpy(&head, input.data(), sizeof head);
    result = CTrdCompData::PackReq2008(o, length, &head,
                                       reinterpret_cast<char*>(input.data() + sizeof head),
                                       static_cast<int>(input.size() - sizeof head), flag);
  } else {
    tagANS_Proc proc;
    std::memcpy(&proc, input.data(), sizeof proc);
    char* sections[5] = {};
    std::size_t at = sizeof proc;
    for (char*& section : sections) {
      const std::uint32_t n = loadLe32(input.data() + at);
      at += 4;
      section = n ? reinterpret_cast<char*>(input.data() + at) : nullptr;
      at += n;
    }
    result = CTrdCompData::PackAns2008(o, static_cast<int>(capacity), length, &proc, sections[0],
                                       sections[1], sections[2], sections[3], sections[4], flag,
                                       codecSel);
  }
  for (std::size_t k = 0; k < kGuard; ++k)
    if (out[static_cast<std::size_t>(capacity) + k] != 0xCD) return -1;
  if (length < 0 || length > capacity) length = 0;
  packed.assign(out.begin(), out.begin() + length);
  return result;
}

// "" when two byte strings are equal, else where they first differ.
std::string compareBytes(const Bytes& expected, const Bytes& actual) {
  if (expected == actual) return "";
  std::size_t at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at]) ++at;
  return ": lengths " + std::to_string(expected.size()) + " / " + std::to_string(actual.size()) +
         ", first difference at byte " + std::to_string(at);
}

// Reads one entry, runs it and compares every outcome with the recorded one: "" when all agree.
std::string checkEntry(Reader& r, std::string& name) {
  name = r.text();
  const Op op = static_cast<Op>(r.le(1));
  const char flag = static_cast<char>(r.le(1));
  const std::int32_t codecSel = r.i32();
  const auto capacity = static_cast<std::int64_t>(r.le(8));
  const Bytes input = r.bytes();
  const std::string decision = r.text();
  if (!decision.empty()) name += " [" + decision + "]";
  std::vector<Bytes> restored{input};
  std::string problem;
  if (op == kPackRequest || op == kPackAnswer) {
    Bytes packed;
    const int result = pack(op, input, capacity, flag, codecSel, packed);
    const int expected = r.i32();
    const std::string d = compareBytes(r.bytes(), packed);
    if (result == -1)
      problem = "written past its output";
    else if (result != expected)
      problem = "pack result " + std::to_string(expected) + " / " + std::to_string(result);
    else if (!d.empty())
      problem = "packed bytes" + d;
    restored = derivedInputs(op, packed);
  }
  static const char* const kInputs[] = {"restore", "restore with a header 4 bytes longer",
                                        "restore cut in the middle", "restore one byte short"};
  const std::uint64_t restores = r.le(1);
  if (restores != restored.size() && problem.empty()) problem = "number of restores";
  for (std::uint64_t k = 0; k < restores; ++k) {
    const std::uint64_t tag = r.le(1);
    const std::int32_t result = r.i32(), length = r.i32();
    const bool null = r.le(1) != 0;
    const Bytes bytes = r.bytes();
    if (!problem.empty() || k >= restored.size()) continue;
    Bytes in = restored[k];
    char* out = nullptr;
    int got = 0, gotLength = 0;
    char* data = in.empty() ? nullptr : reinterpret_cast<char*>(in.data());
    const bool answer = op == kPackAnswer || op == kRestoreAnswer;
    got = answer ? CTrdCompData::RestoreAns2008(data, int(in.size()), &out, gotLength, flag)
                 : CTrdCompData::RestoreReq2008(data, int(in.size()), &out, gotLength, flag);
    const Bytes gotBytes = out && got == 1 && gotLength > 0 ? Bytes(out, out + gotLength) : Bytes();
    const std::string what = kInputs[std::min<std::uint64_t>(tag, 3)];
    if (got != result || (out == nullptr) != null || gotLength != length)
      problem = what + ": result/length/null " + std::to_string(result) + "/" +
                std::to_string(length) + "/" + std::to_string(null) + " expected, got " +
                std::to_string(got) + "/" + std::to_string(gotLength) + "/" +
                std::to_string(out == nullptr);
    else if (const std::string d = compareBytes(bytes, gotBytes); !d.empty())
      problem = what + d;
    CTrdCompData::ReleaseAnsData(out);
  }
  // Each restored input, cut at two thirds and with its middle byte changed, restores into the
  // caller's buffer as the allocating restore restores it (see restore_into_check.h).
  const bool answer = op == kPackAnswer || op == kRestoreAnswer;
  for (std::size_t k = 0; k < restored.size() && problem.empty(); ++k) {
    const Bytes& whole = restored[k];
    Bytes changed = whole;
    if (!changed.empty()) changed[changed.size() / 2] ^= 0x5A;
    const Bytes variants[] = {whole, Bytes(whole.begin(), whole.begin() + 2 * whole.size() / 3),
                              changed};
    static const char* const kVariants[] = {"", ", cut", ", a byte changed"};
    for (int v = 0; v < 3 && problem.empty(); ++v)
      if (const std::string r = trdcomp::test::checkInto(answer, variants[v], flag); !r.empty())
        problem = std::string("into the caller's buffer, ") + kInputs[std::min<std::size_t>(k, 3)] +
                  kVariants[v] + ": " + r;
  }
  return problem;
}

// The corpus checked once for both tests: every entry's name, and the failures.
struct Checked {
  std::size_t entries = 0;
  std::set<std::string> names;
  std::vector<std::string> failures;
};
const Checked& checked() {
  static const Checked c = [] {
    Checked out;
    const Bytes plain = loadCorpus();
    if (plain.empty()) return out;
    Reader r{plain, 8};
    out.entries = r.le(4);
    for (std::size_t i = 0; i < out.entries && r.ok; ++i) {
      std::string name;
      const std::string problem = checkEntry(r, name);
      out.names.insert(name.substr(0, name.find(' ')));
      if (!problem.empty()) out.failures.push_back(name + ": " + problem);
    }
    if (!r.ok || r.at != plain.size()) out.failures.push_back("the corpus file is damaged");
    return out;
  }();
  return c;
}

TEST(AdversarialCorpus, PacksAndRestoresToTheRecordedBytes) {
  const Checked& c = checked();
  ASSERT_GT(c.entries, 10000u) << "tests/golden/adversarial.zst is missing or damaged";
  std::string report;
  for (std::size_t i = 0; i < c.failures.size() && i < 15; ++i)
    report += "  " + c.failures[i] + "\n";
  EXPECT_TRUE(c.failures.empty())
      << c.failures.size() << " of " << c.entries
      << " corpus messages differ from their recorded bytes (names: direction.number."
         "nNIBBLEfFLAG.shape.sender-size), first:\n"
      << report
      << "These bytes are the format's, as deployed peers write and read them. A deliberate "
         "change is a documented decision and a rebuilt corpus.";
}

// The corpus holds every number of the catalogue in both directions, with codec nibbles 0
// (flags 0, 1, 2), 1 and 15, and every record shape: a number added to the catalogue needs the
// corpus rebuilt.
TEST(AdversarialCorpus, CoversEveryNumberVariantAndShape) {
  const std::set<std::string>& names = checked().names;
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
