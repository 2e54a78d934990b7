// The adversarial corpus: crafted messages (every function number, both codecs and directions)
// with the exact bytes the format packs and restores them to. Plain C++ on the standard library
// only, so that the runner that records the bytes builds against any release's public header.
//
// The corpus file is a zstd frame holding, little-endian:
//   "TRDADV1\n", u32 entry count, then per entry:
//     name (u16 length + bytes), op (u8), codec flag (u8), codecSel (i32), output capacity (i64),
//     input (u32 length + bytes), decision (u16 length + bytes: "" when the bytes are the
//     format's own, else the documented decision whose result was taken),
//     outcome: pack result (i32) and packed bytes (u32 length + bytes) for pack ops, then one
//     restore per restored input (the message itself, or the packed bytes and what derives
//     from them), each: u8 tag, i32 result, i32 length, u8 null, u32 length + bytes.
// A pack input is the 76-byte request header and the body, or the 120-byte answer descriptor
// and five sections (u32 length + bytes each).
#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace trdcomp::adversarial {

using Bytes = std::vector<unsigned char>;

enum Op : std::uint8_t {
  kPackRequest = 0,
  kPackAnswer = 1,
  kRestoreRequest = 2,
  kRestoreAnswer = 3
};

constexpr bool packs(Op op) {
  return op == kPackRequest || op == kPackAnswer;
}
constexpr bool isAnswer(Op op) {
  return op == kPackAnswer || op == kRestoreAnswer;
}

struct Restored {
  std::uint8_t tag = 0;  // which input (see derivedInputs)
  std::int32_t result = 0;
  std::int32_t length = 0;
  bool null = true;
  Bytes bytes;  // the restored message's `length` bytes

  bool operator==(const Restored&) const = default;
};

struct Outcome {
  std::int32_t packResult = 0;
  Bytes packed;
  std::vector<Restored> restores;

  bool operator==(const Outcome&) const = default;
};

struct Entry {
  std::string name;
  Op op = kPackRequest;
  std::uint8_t flag = 0;
  std::int32_t codecSel = 0;
  std::int64_t capacity = 0;  // bytes of the pack output handed in
  Bytes input;
  std::string decision;
  Outcome outcome;
};

// What a restore is run on. Tag 0: the message (restore ops) or the packed bytes (pack ops).
// Packed messages also restore with a header 4 bytes longer than they say (tag 1: 4 bytes
// inserted at the header length, which grows by 4), and packed answers cut short (tags 2 and 3:
// in the middle of the body, and one byte short of the end).
struct Derived {
  std::uint8_t tag;
  Bytes bytes;
};

inline std::uint32_t loadLe32(const unsigned char* p) {
  return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
         std::uint32_t(p[3]) << 24;
}

inline std::vector<Derived> derivedInputs(Op op, const Bytes& message) {
  std::vector<Derived> out;
  out.push_back({0, message});
  const std::size_t header = isAnswer(op) ? 96 : 76;
  if (!packs(op) || message.size() < header) return out;
  const std::uint32_t at = loadLe32(message.data());
  if (at <= message.size()) {
    Bytes longer(message.begin(), message.begin() + at);
    longer.insert(longer.end(), {0xEE, 0xEE, 0xEE, 0xEE});
    longer.insert(longer.end(), message.begin() + at, message.end());
    const std::uint32_t grown = at + 4;
    for (int k = 0; k < 4; ++k) longer[k] = static_cast<unsigned char>(grown >> (8 * k));
    out.push_back({1, std::move(longer)});
  }
  if (op == kPackAnswer && message.size() > header + 1) {
    out.push_back(
        {2, Bytes(message.begin(), message.begin() + header + (message.size() - header) / 2)});
    out.push_back({3, Bytes(message.begin(), message.end() - 1)});
  }
  return out;
}

// Serialisation.
class Writer {
 public:
  void u8(std::uint8_t v) { out_.push_back(v); }
  void u16(std::uint16_t v) { le(v, 2); }
  void u32(std::uint32_t v) { le(v, 4); }
  void i32(std::int32_t v) { le(static_cast<std::uint32_t>(v), 4); }
  void i64(std::int64_t v) { le(static_cast<std::uint64_t>(v), 8); }
  void bytes(const Bytes& b) {
    u32(static_cast<std::uint32_t>(b.size()));
    out_.insert(out_.end(), b.begin(), b.end());
  }
  void text(const std::string& s) {
    u16(static_cast<std::uint16_t>(s.size()));
    out_.insert(out_.end(), s.begin(), s.end());
  }
  void outcome(Op op, const Outcome& o) {
    if (packs(op)) {
      i32(o.packResult);
      bytes(o.packed);
    }
    u8(static_cast<std::uint8_t>(o.restores.size()));
    for (const Restored& r : o.restores) {
      u8(r.tag);
      i32(r.result);
      i32(r.length);
      u8(r.null ? 1 : 0);
      bytes(r.bytes);
    }
  }
  // An entry with or without its decision and outcome (the runner reads inputs only).
  void entry(const Entry& e, bool withOutcome) {
    text(e.name);
    u8(e.op);
    u8(e.flag);
    i32(e.codecSel);
    i64(e.capacity);
    bytes(e.input);
    if (!withOutcome) return;
    text(e.decision);
    outcome(e.op, e.outcome);
  }
  Bytes& data() { return out_; }

 private:
  void le(std::uint64_t v, int n) {
    for (int k = 0; k < n; ++k) out_.push_back(static_cast<unsigned char>(v >> (8 * k)));
  }
  Bytes out_;
};

class Reader {
 public:
  explicit Reader(const Bytes& in) : in_(in) {}
  bool done() const { return at_ == in_.size(); }
  std::uint8_t u8() { return static_cast<std::uint8_t>(le(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(le(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(le(4)); }
  std::int32_t i32() { return static_cast<std::int32_t>(static_cast<std::uint32_t>(le(4))); }
  std::int64_t i64() { return static_cast<std::int64_t>(le(8)); }
  Bytes bytes() {
    const std::size_t n = u32();
    need(n);
    Bytes b(in_.begin() + static_cast<std::ptrdiff_t>(at_),
            in_.begin() + static_cast<std::ptrdiff_t>(at_ + n));
    at_ += n;
    return b;
  }
  std::string text() {
    const std::size_t n = u16();
    need(n);
    std::string s(in_.begin() + static_cast<std::ptrdiff_t>(at_),
                  in_.begin() + static_cast<std::ptrdiff_t>(at_ + n));
    at_ += n;
    return s;
  }
  Outcome outcome(Op op) {
    Outcome o;
    if (packs(op)) {
      o.packResult = i32();
      o.packed = bytes();
    }
    const int n = u8();
    for (int k = 0; k < n; ++k) {
      Restored r;
      r.tag = u8();
      r.result = i32();
      r.length = i32();
      r.null = u8() != 0;
      r.bytes = bytes();
      o.restores.push_back(std::move(r));
    }
    return o;
  }
  Entry entry(bool withOutcome) {
    Entry e;
    e.name = text();
    e.op = static_cast<Op>(u8());
    e.flag = u8();
    e.codecSel = i32();
    e.capacity = i64();
    e.input = bytes();
    if (withOutcome) {
      e.decision = text();
      e.outcome = outcome(e.op);
    }
    return e;
  }

 private:
  void need(std::size_t n) const {
    if (in_.size() - at_ < n) throw std::runtime_error("adversarial corpus: truncated");
  }
  std::uint64_t le(int n) {
    need(static_cast<std::size_t>(n));
    std::uint64_t v = 0;
    for (int k = 0; k < n; ++k)
      v |= std::uint64_t(in_[at_ + static_cast<std::size_t>(k)]) << (8 * k);
    at_ += static_cast<std::size_t>(n);
    return v;
  }
  const Bytes& in_;
  std::size_t at_ = 0;
};

constexpr char kMagic[] = "TRDADV1\n";

inline Bytes withMagic(Bytes body, std::uint32_t count) {
  Bytes out(kMagic, kMagic + 8);
  for (int k = 0; k < 4; ++k) out.push_back(static_cast<unsigned char>(count >> (8 * k)));
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

// The entries of a file's bytes (behind the magic and the count).
inline std::vector<Entry> readEntries(const Bytes& file, bool withOutcome) {
  if (file.size() < 12 || std::memcmp(file.data(), kMagic, 8) != 0)
    throw std::runtime_error("adversarial corpus: not a corpus file");
  const Bytes body(file.begin() + 12, file.end());
  Reader r(body);
  const std::uint32_t count = loadLe32(file.data() + 8);
  std::vector<Entry> out;
  out.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) out.push_back(r.entry(withOutcome));
  if (!r.done()) throw std::runtime_error("adversarial corpus: bytes after the last entry");
  return out;
}

inline Bytes writeEntries(const std::vector<Entry>& entries, bool withOutcome) {
  Writer w;
  for (const Entry& e : entries) w.entry(e, withOutcome);
  return withMagic(std::move(w.data()), static_cast<std::uint32_t>(entries.size()));
}

}  // namespace trdcomp::adversarial
