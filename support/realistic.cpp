#include "realistic.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "frame/catalogue.h"
#include "primitives/bytes.h"

namespace trdcomp::realistic {
namespace {

using records::Field;
using records::Kind;
using records::Layout;

std::uint64_t mix(std::uint64_t x) {
  x ^= x >> 30;
  x *= 0xBF58476D1CE4E5B9ull;
  x ^= x >> 27;
  x *= 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(mix(seed + 0x9E3779B97F4A7C15ull)) {}
  std::uint64_t next() { return mix(state_ += 0x9E3779B97F4A7C15ull); }
  // A value in [lo, hi].
  std::int64_t range(std::int64_t lo, std::int64_t hi) {
    return lo + static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(hi - lo + 1));
  }
  bool chance(int percent) { return range(0, 99) < percent; }

 private:
  std::uint64_t state_;
};

// 0-99, fixed per field: the same field plays the same role in every message.
int roleOf(const Layout& layout, const Field& f) {
  const std::uint64_t h =
      mix(std::uint64_t(layout.size) * 1000003u + std::uint64_t(f.offset) * 131u +
          static_cast<std::uint64_t>(f.kind) * 7u + f.width);
  return static_cast<int>(h % 100);
}

constexpr std::int32_t kDate = 20260415;
constexpr std::int64_t kOrderIds = 2026041500000000;
constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr char kDigits[] = "0123456789";
constexpr const char* kExchangeCodes[] = {"600", "000", "IF1", "SHA", "SZA"};
constexpr char kCodeChars[] = "BS01AKI";

// What a field started with in this message: its base value and its pool of repeating values.
struct FieldState {
  bool ready = false;
  std::int64_t base = 0;
  std::string texts[3];
  std::int64_t values[2] = {};
};

class Message {
 public:
  explicit Message(std::uint32_t seed) : rng_(seed) {}

  void fillRecord(const Layout& layout, unsigned char* record, int index) {
    std::memset(record, 0, layout.size);
    for (const Field* f = layout.begin(); f != layout.end(); ++f) {
      if (f->kind == Kind::Group) {
        const int entries = static_cast<int>(rng_.range(1, std::min<int>(f->repeat, 4)));
        storeI32(record + f->countOffset, entries);
        for (int e = 0; e < entries; ++e)
          for (int m = 1; m <= f->members; ++m)
            fillField(layout, f[m], record + f->offset + e * f->stride + f[m].offset, index);
        f += f->members;
      } else if (f->kind == Kind::CountedBlock) {
        const auto used =
            static_cast<int>(rng_.range(std::min<int>(8, f->width), std::min<int>(64, f->width)));
        storeI32(record + f->countOffset, used);
        const int marked = std::min(used, static_cast<int>(rng_.range(1, 4)));
        for (int i = 0; i < marked; ++i)
          record[f->offset + i] = static_cast<unsigned char>(rng_.range(1, 255));
      } else {
        fillField(layout, *f, record + f->offset, index);
      }
    }
  }

  // A record without a codec (or of an unknown number): a text at its start, zeros after.
  void fillOpaque(unsigned char* record, std::uint32_t size) {
    std::memset(record, 0, size);
    const auto used = static_cast<std::uint32_t>(rng_.range(size * 3 / 10, size * 8 / 10));
    for (std::uint32_t i = 0; i < used; ++i)
      record[i] = static_cast<unsigned char>(kDigits[rng_.range(0, 9)]);
  }

  std::uint64_t next() { return rng_.next(); }

 private:
  std::string text(std::uint32_t width, std::uint32_t most, bool digits) {
    const auto lo = std::max<std::int64_t>(1, (width * 3 + 9) / 10);
    const auto hi = std::max<std::int64_t>(lo, width * 8 / 10);
    const auto length = std::min<std::int64_t>(rng_.range(lo, hi), most);
    std::string s;
    for (std::int64_t i = 0; i < length; ++i)
      s.push_back(digits || (i > 0 && rng_.chance(40)) ? kDigits[rng_.range(0, 9)]
                                                       : kLetters[rng_.range(0, 25)]);
    return s;
  }

  // One of three values, the first most often.
  int pooled() {
    const std::int64_t r = rng_.range(0, 9);
    return r < 7 ? 0 : r < 9 ? 1 : 2;
  }

  void fillField(const Layout& layout, const Field& f, unsigned char* at, int index) {
    const int role = roleOf(layout, f);
    FieldState& s = states_[&f];
    const bool first = !s.ready;
    s.ready = true;
    switch (f.kind) {
      case Kind::Char:
        if (first)
          for (std::int64_t& v : s.values) v = kCodeChars[rng_.range(0, 6)];
        *at = static_cast<unsigned char>(s.values[rng_.chance(80) ? 0 : 1]);
        return;
      case Kind::Text:
      case Kind::ShortText: {
        // At most cap - 1 characters come back, and a terminator stays inside the array.
        const std::uint32_t most = std::min(f.width, f.cap) - 1;
        if (most == 0) return;
        std::string value;
        if (f.text == records::TextForm::ExchangeCode) {
          if (first)
            for (std::string& t : s.texts) t = kExchangeCodes[rng_.range(0, 4)];
          value = s.texts[pooled()].substr(0, most);
        } else if (role < 75) {  // accounts, codes, names: a few per message
          if (first)
            for (std::string& t : s.texts) t = text(f.width, most, role < 35);
          value = s.texts[pooled()];
        } else {  // order references, remarks: new in every record
          value = text(f.width, most, role < 85);
        }
        std::memcpy(at, value.data(), value.size());
        return;
      }
      case Kind::Block:
        // Mostly zero: half the blocks are empty, the rest carry a few bytes at their start.
        if (first) s.base = role < 50 ? 0 : rng_.range(1, std::min<int>(8, f.width));
        for (std::int64_t i = 0; i < s.base; ++i)
          at[i] = static_cast<unsigned char>(mix(std::uint64_t(f.offset) * 31 + i) % 255 + 1);
        return;
      case Kind::Int32: {
        std::int64_t v = 0;
        if (role < 15) {
          v = 0;
        } else if (role < 30) {
          v = kDate;
        } else if (role < 40) {  // a time of day, rising through the message
          if (first) s.base = rng_.range(93000, 140000);
          v = s.base + index / 4;
        } else if (role < 60) {
          v = 100 * rng_.range(1, 500);
        } else if (role < 75) {  // a small code: one of two per message
          if (first)
            for (std::int64_t& c : s.values) c = rng_.range(0, 9);
          v = s.values[rng_.chance(80) ? 0 : 1];
        } else if (role < 85) {  // a sequence number
          if (first) s.base = rng_.range(1000, 900000);
          v = s.base + index;
        } else {
          if (first) s.base = rng_.range(1, 99);
          v = s.base;
        }
        storeI32(at, static_cast<std::int32_t>(v));
        return;
      }
      case Kind::Int64: {
        std::int64_t v = 0;
        if (role < 30) {
          v = 0;
        } else if (role < 60) {  // order numbers
          if (first) s.base = kOrderIds + rng_.range(0, 999999);
          v = s.base + index;
        } else {  // amounts in cents
          v = 100 * rng_.range(1, 10000000);
        }
        storeU64(at, static_cast<std::uint64_t>(v));
        return;
      }
      case Kind::Double: {
        // Integers of thousandths divided once: the nearest double to a 2- or 3-decimal price,
        // which both codecs (four and three decimals) carry exactly.
        double v = 0;
        if (role < 20) {
          v = 0;
        } else if (role < 70) {  // a price near the message's, in ticks of 0.01 or 0.001
          const std::int64_t tick = role < 45 ? 10 : 1;
          if (first) s.base = rng_.range(100, 50000) * tick;
          v = static_cast<double>(s.base + rng_.range(-20, 20) * tick) / 1000.0;
        } else {  // an amount with two decimals
          v = static_cast<double>(rng_.range(100, 1000000000)) / 100.0;
        }
        storeF64(at, v);
        return;
      }
      case Kind::CountedBlock:
      case Kind::Group: return;  // filled by fillRecord
    }
  }

  Random rng_;
  std::map<const Field*, FieldState> states_;
};

}  // namespace

samples::Request makeRequest(std::uint32_t number, int nibble, int count, std::uint32_t seed) {
  Message m(seed);
  samples::Request r;
  const frame::Entry* e = frame::find(number);
  const Layout* layout = e ? e->request[nibble ? 1 : 0] : nullptr;
  const std::uint32_t size = layout ? layout->size : 64;
  r.head.funcNo = number;
  r.head.flags = static_cast<char>(nibble << 4);
  // A session's own bytes: a few identifiers, then zeros.
  for (int i = 0; i < 16; ++i) r.head.callerData[i] = static_cast<char>(m.next() & 0x7F);
  r.head.recCount = count;
  r.head.recSize = static_cast<std::int32_t>(size);
  r.body.assign(std::size_t(count) * size, 0);
  for (int i = 0; i < count; ++i) {
    unsigned char* rec = r.body.data() + std::size_t(i) * size;
    if (layout && !layout->opaque)
      m.fillRecord(*layout, rec, i);
    else
      m.fillOpaque(rec, size);
  }
  return r;
}

samples::Answer makeAnswer(std::uint32_t number, bool codec2011, int count, std::uint32_t seed) {
  Message m(seed);
  samples::Answer a;
  a.proc.funcNo = number;
  std::memcpy(a.proc.shortText, "000", 4);
  std::memcpy(a.proc.text, "OK", 3);
  const frame::Entry* e = frame::find(number);
  const records::AnswerLayout* layout = e ? e->answerRestore[codec2011 ? 1 : 0] : nullptr;
  const int sections = layout ? layout->sectionCount : 2;
  a.proc.sectionCount = sections;
  for (int s = 0; s < sections; ++s) {
    const Layout* l = layout ? layout->sections[s] : nullptr;
    const std::uint32_t size = l ? l->size : 40;
    a.proc.recCount[s] = count;
    a.proc.recSize[s] = static_cast<std::int32_t>(size);
    a.sections[s].assign(std::size_t(count) * size, 0);
    for (int i = 0; i < count; ++i) {
      unsigned char* rec = a.sections[s].data() + std::size_t(i) * size;
      if (l && !l->opaque)
        m.fillRecord(*l, rec, i);
      else
        m.fillOpaque(rec, size);
    }
  }
  return a;
}

}  // namespace trdcomp::realistic
