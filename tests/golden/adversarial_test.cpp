// The adversarial corpus, byte for byte: every crafted message packs to the recorded bytes, and
// the recorded packed bytes (with a longer header, and cut short for answers) restore to the
// recorded messages. A difference names the entry (number, direction, codec nibble and flag,
// record shape, sender record size), what differs, the record it lies in and its first byte.
#include <gtest/gtest.h>
#include <zstd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "../restore_into_check.h"
#include "adversarial_run.h"
#include "frame/catalogue.h"

namespace {

using namespace trdcomp::adversarial;

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
  if (ZSTD_isError(n) || n != plain.size()) return {};
  return readEntries(plain, true);
}

std::int32_t le32(const Bytes& b, std::size_t at) {
  return at + 4 <= b.size() ? static_cast<std::int32_t>(loadLe32(b.data() + at)) : 0;
}

// Where byte `at` of a packed message lies: the header, a section table, or a record's block.
std::string inPacked(bool answer, const Bytes& m, std::size_t at) {
  const std::size_t header = answer ? 96 : 76;
  if (at < header || m.size() < header) return "header byte " + std::to_string(at);
  const auto funcNo = static_cast<std::uint32_t>(le32(m, 4));
  const int nibble = m[8] >> 4;
  std::size_t pos = static_cast<std::uint32_t>(le32(m, 0));
  if (!(m[8] & 1) || at < pos) return "byte " + std::to_string(at) + " (before the records)";
  const trdcomp::frame::Entry* e = trdcomp::frame::find(funcNo);
  std::vector<std::int64_t> counts;
  if (!answer) {
    counts.push_back(le32(m, 68));
  } else if (nibble == 0) {
    if (m[8] & 2) {
      const std::int32_t table = le32(m, pos);
      for (std::size_t p = pos + 4; p + 8 <= pos + static_cast<std::size_t>(table) && p < m.size();
           p += 8)
        counts.push_back(le32(m, p));
      pos += static_cast<std::size_t>(table);
    } else {
      counts.push_back(le32(m, 88));
    }
  } else {
    const auto* layout = e ? e->answerRestore[1] : nullptr;
    if (!layout || layout->sections[0]->dictionary ||
        (layout->sectionCount > 1 && layout->sections[1]->dictionary))
      return "byte " + std::to_string(at) + " of a dictionary answer";
    if (layout->sectionCount > 1)
      for (int s = 0; s < layout->sectionCount; ++s, pos += 2)
        counts.push_back(m[pos] | m[pos + 1] << 8);
    else
      counts.push_back(le32(m, 88));
  }
  if (nibble && (!answer || counts.size() == 1)) pos += 2;  // the packed count
  if (at < pos) return "byte " + std::to_string(at) + " (section table or counts)";
  const std::size_t prefix = nibble ? 2 : 4;
  for (std::size_t s = 0; s < counts.size(); ++s)
    for (std::int64_t i = 0; i < counts[s] && pos + prefix <= m.size(); ++i) {
      const std::size_t length =
          nibble ? std::size_t(m[pos] | m[pos + 1] << 8) : static_cast<std::uint32_t>(le32(m, pos));
      if (at < pos + prefix + length)
        return "section " + std::to_string(s) + " record " + std::to_string(i) + " (block at " +
               std::to_string(pos) + "), byte " + std::to_string(at);
      pos += prefix + length;
    }
  return "byte " + std::to_string(at) + " (past the records)";
}

// Where byte `at` of a restored message lies.
std::string inRestored(bool answer, const Bytes& m, std::size_t at) {
  const std::size_t header = answer ? 96 : 76;
  if (at < header) return "header byte " + std::to_string(at);
  std::vector<std::pair<std::int64_t, std::int64_t>> sections;  // count, size
  std::size_t pos = header;
  if (!answer) {
    sections.emplace_back(le32(m, 68), le32(m, 72));
  } else if (m[8] & 2) {
    const std::int32_t table = le32(m, 96);
    for (std::size_t p = 100; p + 8 <= 96 + static_cast<std::size_t>(table); p += 8)
      sections.emplace_back(le32(m, p), le32(m, p + 4));
    pos += static_cast<std::size_t>(table);
  } else {
    sections.emplace_back(le32(m, 88), le32(m, 92));
  }
  if (at < pos) return "section table byte " + std::to_string(at);
  for (std::size_t s = 0; s < sections.size(); ++s) {
    const auto [count, size] = sections[s];
    if (size > 0 && at < pos + std::size_t(count * size)) {
      const std::size_t i = (at - pos) / static_cast<std::size_t>(size);
      return "section " + std::to_string(s) + " record " + std::to_string(i) + " byte " +
             std::to_string(at - pos - i * static_cast<std::size_t>(size)) + " (message byte " +
             std::to_string(at) + ")";
    }
    pos += static_cast<std::size_t>(std::max<std::int64_t>(0, count * size));
  }
  return "byte " + std::to_string(at) + " (past the records)";
}

std::string hexAround(const Bytes& b, std::size_t at) {
  static const char digits[] = "0123456789abcdef";
  std::string s;
  for (std::size_t i = at; i < at + 8 && i < b.size(); ++i) {
    s += digits[b[i] >> 4];
    s += digits[b[i] & 15];
    s += ' ';
  }
  return s.empty() ? "(end)" : s;
}

// The first difference of two byte strings, explained; "" when equal.
std::string compareBytes(const Bytes& expected, const Bytes& actual,
                         std::string (*locate)(bool, const Bytes&, std::size_t), bool answer) {
  if (expected == actual) return "";
  std::size_t at = 0;
  while (at < expected.size() && at < actual.size() && expected[at] == actual[at]) ++at;
  return "lengths " + std::to_string(expected.size()) + " / " + std::to_string(actual.size()) +
         ", first difference at " + locate(answer, expected, at) + ": expected " +
         hexAround(expected, at) + "| got " + hexAround(actual, at);
}

const char* restoredInput(std::uint8_t tag) {
  switch (tag) {
    case 0: return "restore";
    case 1: return "restore with a header 4 bytes longer";
    case 2: return "restore cut in the middle";
    default: return "restore one byte short";
  }
}

std::string explain(const Entry& e, const Outcome& actual) {
  const bool answer = isAnswer(e.op);
  const Outcome& expected = e.outcome;
  if (packs(e.op)) {
    if (expected.packResult != actual.packResult)
      return "pack result " + std::to_string(expected.packResult) + " / " +
             std::to_string(actual.packResult);
    const std::string d = compareBytes(expected.packed, actual.packed, inPacked, answer);
    if (!d.empty()) return "packed bytes: " + d;
  }
  if (expected.restores.size() != actual.restores.size()) return "number of restores";
  for (std::size_t k = 0; k < expected.restores.size(); ++k) {
    const Restored &x = expected.restores[k], &y = actual.restores[k];
    const std::string what = restoredInput(x.tag);
    if (x.result != y.result || x.null != y.null || x.length != y.length)
      return what + ": result/length/null " + std::to_string(x.result) + "/" +
             std::to_string(x.length) + "/" + std::to_string(x.null) + " expected, got " +
             std::to_string(y.result) + "/" + std::to_string(y.length) + "/" +
             std::to_string(y.null);
    const std::string d = compareBytes(x.bytes, y.bytes, inRestored, answer);
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
    const std::string d = explain(e, run(e));
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
         "change is a documented decision and a corpus rebuilt with "
         "tests/golden/make_adversarial.sh.";
}

// Every restored input of the corpus, and each cut at two thirds and with its middle byte
// changed, restores into the caller's buffer as the allocating restore restores it (see
// restore_into_check.h).
TEST_F(AdversarialCorpus, RestoresIntoTheCallersBufferAsTheAllocatingRestore) {
  ASSERT_GT(corpus_->size(), 10000u) << "tests/golden/adversarial.zst is missing or damaged";
  std::vector<std::string> failures;
  for (const Entry& e : *corpus_) {
    const bool answer = isAnswer(e.op);
    for (const Derived& d : derivedInputs(e.op, packs(e.op) ? e.outcome.packed : e.input)) {
      Bytes changed = d.bytes;
      if (!changed.empty()) changed[changed.size() / 2] ^= 0x5A;
      const Bytes variants[] = {
          d.bytes, Bytes(d.bytes.begin(), d.bytes.begin() + 2 * d.bytes.size() / 3), changed};
      const char* const names[] = {"", ", cut", ", a byte changed"};
      for (int k = 0; k < 3; ++k) {
        const std::string r =
            trdcomp::test::checkInto(answer, variants[k], static_cast<char>(e.flag));
        if (!r.empty())
          failures.push_back(e.name + ", " + restoredInput(d.tag) + names[k] + ": " + r);
      }
    }
  }
  std::string report;
  for (std::size_t i = 0; i < failures.size() && i < 15; ++i) report += "  " + failures[i] + "\n";
  EXPECT_TRUE(failures.empty()) << failures.size()
                                << " restores into the caller's buffer differ, first:\n"
                                << report;
}

// The corpus holds every number of the catalogue in both directions, with codec nibbles 0
// (flags 0, 1, 2), 1 and 15, and every record shape; a rebuilt corpus cannot quietly lose any.
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
