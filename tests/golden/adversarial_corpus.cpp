// trdcomp-adversarial: builds the inputs of the adversarial corpus from the layout tables, and
// merges what two builds made of them into the corpus file (see make_adversarial.sh).
//   trdcomp-adversarial inputs FILE
//   trdcomp-adversarial merge INPUTS REFERENCE CURRENT CORPUS
//
// The inputs are records that real callers produce and tidy samples do not: texts that fill
// their arrays (so that their comparison runs on into the following bytes), texts with bytes
// after their terminator (a reused struct), sender record sizes above and below the layout's,
// records equal to the previous one but for one field, boundary integers, negative prices and
// prices with four decimals, byte blocks with zero bytes inside, empty sections; and, on the
// restore side, raw messages whose header length is not the usual one. Every function number,
// both directions, codec nibbles 0 (flags 0, 1 and 2), 1 and 15.
//
// The merge keeps the reference build's bytes (the format's) wherever the two builds differ,
// except where a documented decision changed a result on purpose: there it keeps the current
// build's bytes and names the decision. Every difference is listed on standard error.
#include <zstd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "TrdCompData.h"
#include "adversarial_format.h"
#include "frame/catalogue.h"
#include "primitives/bytes.h"

namespace {

using namespace trdcomp::adversarial;
using trdcomp::records::Field;
using trdcomp::records::Kind;
using trdcomp::records::Layout;

struct Variant {
  int nibble;
  int flag;
};
constexpr Variant kVariants[] = {{0, 0}, {0, 1}, {0, 2}, {1, 0}, {15, 2}};

constexpr std::int32_t kInt32s[] = {0,
                                    -1,
                                    1,
                                    (1 << 28) - 1,
                                    1 << 28,
                                    -(1 << 28),
                                    -(1 << 28) - 1,
                                    INT32_MIN,
                                    INT32_MAX,
                                    (1 << 29) - 1,
                                    1 << 29,
                                    -(1 << 29)};
constexpr std::int64_t kInt64s[] = {
    0,         -1,        (1ll << 62) - 1, 1ll << 62,  -(1ll << 62),    -(1ll << 62) - 1,
    INT64_MIN, INT64_MAX, 1 << 28,         -(1 << 28), (1ll << 60) - 1, -(1ll << 60)};
constexpr double kDoubles[] = {-1.2345, 1.2345,   0.0001,        -0.0001, 123456.7891, -123456.7891,
                               0.00005, -0.00005, 1e12 + 0.0005, -0.0,    0.0,         99.99995};
constexpr unsigned char kChars[] = {0x80, 0xFF, 0x7F, 0x00, 0x01, 'A', 11, '0'};

// The leaf fields of a record, in encoding order: top-level fields and the members of every
// entry of a counted group (with the group's count field).
struct Leaf {
  const Field* field;
  std::uint32_t offset;
};
std::vector<Leaf> leaves(const Layout& l) {
  std::vector<Leaf> out;
  for (const Field* f = l.begin(); f != l.end(); ++f) {
    if (f->kind == Kind::Group) {
      for (std::uint32_t e = 0; e < f->repeat; ++e)
        for (int m = 1; m <= f->members; ++m)
          out.push_back({&f[m], f->offset + e * f->stride + f[m].offset});
      f += f->members;
    } else {
      out.push_back({f, f->offset});
    }
  }
  return out;
}

const Field* groupOf(const Layout& l, const Field* member) {
  for (const Field* f = l.begin(); f != l.end(); ++f)
    if (f->kind == Kind::Group && member > f && member <= f + f->members) return f;
  return nullptr;
}

bool isText(const Field& f) {
  return f.kind == Kind::Text || f.kind == Kind::ShortText;
}

unsigned char letter(std::uint32_t k) {
  return static_cast<unsigned char>('A' + k % 26);
}

// Record shapes.
enum class Shape { Full, Tail, Numbers };

// Fills one record. Full: texts fill their arrays, numbers have no zero byte, so a text's
// comparison runs on past its array. Tail: short texts followed by bytes of an earlier value
// (a reused struct), blocks with zero bytes inside. Numbers: boundary integers and prices.
void fill(const Layout& l, unsigned char* r, Shape shape, std::uint32_t seed) {
  std::memset(r, 0, l.size);
  std::uint32_t j = 0;
  for (const Field* f = l.begin(); f != l.end(); ++f, ++j) {
    if (f->kind == Kind::Group) {
      const std::int32_t count = shape == Shape::Numbers
                                     ? static_cast<std::int32_t>((seed + j) % (f->repeat + 2)) - 1
                                     : f->repeat;
      trdcomp::storeI32(r + f->countOffset, count);
      continue;  // members are leaves below
    }
    if (f->kind == Kind::CountedBlock) {
      const std::int32_t counts[] = {static_cast<std::int32_t>(f->width), 0, -5,
                                     static_cast<std::int32_t>(f->width) + 10, 7};
      trdcomp::storeI32(r + f->countOffset, shape == Shape::Full
                                                ? static_cast<std::int32_t>(f->width)
                                                : counts[(seed + j) % 5]);
    }
  }
  std::uint32_t k = 0;
  for (const Leaf& leaf : leaves(l)) {
    const Field& f = *leaf.field;
    unsigned char* at = r + leaf.offset;
    ++k;
    if (leaf.offset + f.width > l.size) continue;
    const std::uint32_t v = seed * 31 + k * 7;
    switch (f.kind) {
      case Kind::Char:
        *at = shape == Shape::Numbers ? kChars[v % std::size(kChars)] : letter(v);
        break;
      case Kind::Text:
      case Kind::ShortText: {
        if (shape == Shape::Full) {
          for (std::uint32_t i = 0; i < f.width; ++i) at[i] = letter(v + i);
        } else {
          const std::uint32_t used =
              shape == Shape::Tail ? std::min<std::uint32_t>(2, f.width - 1) : v % f.width;
          for (std::uint32_t i = 0; i < used; ++i) at[i] = letter(v + i);
          // A reused struct: an earlier, longer value behind the terminator.
          if (shape == Shape::Tail)
            for (std::uint32_t i = used + 1; i < f.width; ++i)
              at[i] = static_cast<unsigned char>('a' + (seed + i) % 26);
        }
        break;
      }
      case Kind::Block:
      case Kind::CountedBlock:
        for (std::uint32_t i = 0; i < f.width; ++i)
          at[i] = shape == Shape::Full ? static_cast<unsigned char>(0x41 + (v + i) % 190)
                  : (i % 5 == 2)       ? 0
                                       : static_cast<unsigned char>(v * 13 + i * 7);
        break;
      case Kind::Int32:
        trdcomp::storeI32(at, shape == Shape::Numbers ? kInt32s[v % std::size(kInt32s)]
                              : shape == Shape::Full  ? static_cast<std::int32_t>(0x41424344 + v)
                                                      : static_cast<std::int32_t>(v % 1000));
        break;
      case Kind::Int64:
        trdcomp::storeU64(
            at, static_cast<std::uint64_t>(shape == Shape::Numbers ? kInt64s[v % std::size(kInt64s)]
                                           : shape == Shape::Full  ? 0x4142434445464748ll + v
                                                                   : std::int64_t(v) * 1000003));
        break;
      case Kind::Double:
        trdcomp::storeF64(at, shape == Shape::Numbers ? kDoubles[v % std::size(kDoubles)]
                              : shape == Shape::Full  ? 1234.5678 + v
                                                      : v / 100.0);
        break;
      case Kind::Group: break;
    }
  }
}

// Changes one leaf of a record in place.
void change(const Layout& l, unsigned char* r, const Leaf& leaf, std::uint32_t step) {
  const Field& f = *leaf.field;
  unsigned char* at = r + leaf.offset;
  if (leaf.offset + f.width > l.size) return;
  switch (f.kind) {
    case Kind::Char: *at = static_cast<unsigned char>(*at + 1 + step); return;
    case Kind::Text:
    case Kind::ShortText: {
      // The last character of the text (its array's last byte for a text that fills it).
      std::uint32_t n = 0;
      while (n < f.width && at[n]) ++n;
      at[n ? n - 1 : 0] = letter(step + 3);
      return;
    }
    case Kind::Block:
    case Kind::CountedBlock: at[f.width / 2] ^= 0x5A; return;
    case Kind::Int32: trdcomp::storeI32(at, trdcomp::loadI32(at) + 1); return;
    case Kind::Int64: trdcomp::storeU64(at, trdcomp::loadU64(at) + 1); return;
    case Kind::Double: trdcomp::storeF64(at, trdcomp::loadF64(at) + 0.0001); return;
    case Kind::Group: return;
  }
}

// The records of one section or request body, each of the layout's size.
struct Records {
  std::vector<Bytes> list;
};

Records shaped(const Layout& l, const std::string& shape, std::uint32_t seed) {
  Records out;
  const std::vector<Leaf> all = leaves(l);
  // The first leaf that is not a text: a change there leaves every text equal to the previous
  // record's, so each text's comparison decides alone.
  const Leaf* first = all.empty() ? nullptr : &all[0];
  for (const Leaf& leaf : all)
    if (!isText(*leaf.field) && !groupOf(l, leaf.field)) {
      first = &leaf;
      break;
    }
  Bytes r(l.size);
  if (shape == "full" || shape == "tail") {
    fill(l, r.data(), shape == "full" ? Shape::Full : Shape::Tail, seed);
    for (int i = 0; i < 3; ++i) {
      out.list.push_back(r);
      if (first) change(l, r.data(), *first, static_cast<std::uint32_t>(i));
      if (shape == "tail")  // the bytes behind each terminator change, the texts do not
        for (const Leaf& leaf : all)
          if (isText(*leaf.field) && leaf.offset + leaf.field->width <= l.size &&
              leaf.field->width > 3)
            r[leaf.offset + leaf.field->width - 1] ^= 0x07;
    }
  } else if (shape == "stepfull" || shape == "steptail") {
    fill(l, r.data(), shape == "stepfull" ? Shape::Full : Shape::Tail, seed);
    out.list.push_back(r);
    std::uint32_t k = 0;
    for (const Leaf& leaf : all) {
      change(l, r.data(), leaf, k++);
      out.list.push_back(r);
    }
  } else if (shape == "numbers") {
    for (std::uint32_t i = 0; i < 12; ++i) {
      fill(l, r.data(), Shape::Numbers, seed + i);
      out.list.push_back(r);
    }
  }
  return out;
}

// The body a sender with records of `stride` bytes sends: each record cut to the stride or
// followed by bytes of the sender's own.
Bytes laid(const Records& records, std::uint32_t size, std::uint32_t stride) {
  Bytes out;
  for (std::size_t i = 0; i < records.list.size(); ++i) {
    const Bytes& r = records.list[i];
    out.insert(out.end(), r.begin(), r.begin() + std::min(size, stride));
    for (std::uint32_t k = size; k < stride; ++k)
      out.push_back(static_cast<unsigned char>(0x61 + (k * 7 + i) % 26));
  }
  return out;
}

std::uint32_t strideOf(const std::string& s, std::uint32_t size) {
  if (s == "above") return size + 9;
  if (s == "below") return std::max(1u, size * 2 / 3);
  return size;
}

// Generic records for numbers without a layout: bytes without a zero.
Records generic(std::uint32_t size, int count, std::uint32_t seed) {
  Records out;
  for (int i = 0; i < count; ++i) {
    Bytes r(size);
    for (std::uint32_t k = 0; k < size; ++k)
      r[k] = letter(seed + k * 3 + static_cast<std::uint32_t>(i));
    out.list.push_back(r);
  }
  return out;
}

// Output room for a pack: what this build asks for, and enough for a packer that measures each
// text to the end of the body.
std::int64_t room(std::int64_t bound, std::size_t records, std::size_t bodyBytes, int fields) {
  const std::int64_t texts = std::int64_t(records) * fields * (std::int64_t(bodyBytes) + 16);
  return std::max<std::int64_t>(bound, 4096 + 2 * std::int64_t(bodyBytes) + texts);
}

int fieldCount(const Layout* l) {
  return l ? static_cast<int>(leaves(*l).size()) : 1;
}

std::string variantName(const Variant& v) {
  // Appended word by word: g++ 12 warns falsely on some string concatenations.
  std::string s("n");
  s.append(std::to_string(v.nibble));
  s.push_back('f');
  s.append(std::to_string(v.flag));
  return s;
}

void requests(std::uint32_t number, std::vector<Entry>& out) {
  const trdcomp::frame::Entry* e = trdcomp::frame::find(number);
  for (const Variant& v : kVariants) {
    const Layout* l = e ? e->request[v.nibble ? 1 : 0] : nullptr;
    const bool coded = l && !l->opaque && e->requestForm == trdcomp::frame::RequestForm::Routine;
    const std::uint32_t size = l ? l->size : 64;
    const char* shapes[] = {"full", "tail", "stepfull", "steptail", "numbers"};
    for (const char* shape : shapes) {
      const bool strided = std::strcmp(shape, "full") == 0 || std::strcmp(shape, "tail") == 0;
      for (const char* stride : {"equal", "above", "below"}) {
        if (!strided && std::strcmp(stride, "equal") != 0) continue;
        const std::uint32_t seed = number * 7 + static_cast<std::uint32_t>(v.nibble * 3 + v.flag);
        const Records records = coded ? shaped(*l, shape, seed) : generic(size, 3, seed);
        const std::uint32_t s = strideOf(stride, size);
        tagREQ_HEAD head{};
        head.headLen = 76;
        head.funcNo = number;
        head.flags = static_cast<char>(v.nibble << 4);
        for (int k = 0; k < 59; ++k) head.callerData[k] = static_cast<char>(k * 5 + 1);
        head.recCount = static_cast<std::int32_t>(records.list.size());
        head.recSize = static_cast<std::int32_t>(s);
        const Bytes body = laid(records, size, s);
        Entry x;
        x.name =
            "req." + std::to_string(number) + "." + variantName(v) + "." + shape + "." + stride;
        x.op = kPackRequest;
        x.flag = static_cast<std::uint8_t>(v.flag);
        const auto* h = reinterpret_cast<const unsigned char*>(&head);
        x.input.assign(h, h + sizeof head);
        x.input.insert(x.input.end(), body.begin(), body.end());
        x.capacity = room(CTrdCompData::PackReqBound(&head, static_cast<int>(body.size())),
                          records.list.size(), body.size(), fieldCount(l));
        out.push_back(std::move(x));
      }
    }
  }
}

void answers(std::uint32_t number, std::vector<Entry>& out) {
  const trdcomp::frame::Entry* e = trdcomp::frame::find(number);
  for (const Variant& v : kVariants) {
    const trdcomp::records::AnswerLayout* a = e ? e->answerPack[v.nibble ? 1 : 0] : nullptr;
    const int sections = a ? a->sectionCount : 2;
    const char* shapes[] = {"full", "tail", "stepfull", "steptail", "numbers", "empty"};
    for (const char* shape : shapes) {
      const bool strided = std::strcmp(shape, "full") == 0 || std::strcmp(shape, "tail") == 0;
      const int emptyRounds = std::strcmp(shape, "empty") == 0 ? (sections > 1 ? sections : 0) : 1;
      for (int round = 0; round < emptyRounds; ++round)
        for (const char* stride : {"equal", "above", "below"}) {
          if (!strided && std::strcmp(stride, "equal") != 0) continue;
          tagANS_Proc proc{};
          proc.funcNo = number;
          std::memcpy(proc.shortText, "500", 4);
          std::memcpy(proc.text, "answer text that the header carries", 36);
          proc.sectionCount = sections;
          Bytes sectionBytes[5];
          std::size_t records = 0, bodyBytes = 0;
          int fields = 1;
          for (int s = 0; s < sections; ++s) {
            const Layout* l = a ? a->sections[s] : nullptr;
            const std::uint32_t size = l ? l->size : 40;
            const std::uint32_t seed =
                number * 11 + static_cast<std::uint32_t>(s * 5 + v.nibble * 3 + v.flag);
            Records rs = l ? shaped(*l, std::strcmp(shape, "empty") == 0 ? "full" : shape, seed)
                           : generic(size, 3, seed);
            if (!l && std::strcmp(shape, "full") != 0 && std::strcmp(shape, "empty") != 0)
              rs.list.resize(1);
            if (std::strcmp(shape, "empty") == 0) rs.list.resize(s == round ? 0 : 2);
            const std::uint32_t st = strideOf(stride, size);
            proc.recCount[s] = static_cast<std::int32_t>(rs.list.size());
            proc.recSize[s] = static_cast<std::int32_t>(st);
            sectionBytes[s] = laid(rs, size, st);
            records += rs.list.size();
            bodyBytes += sectionBytes[s].size();
            fields = std::max(fields, fieldCount(l));
          }
          Entry x;
          x.name = "ans." + std::to_string(number) + "." + variantName(v) + "." + shape +
                   (emptyRounds > 1 ? std::to_string(round) : "") + "." + stride;
          x.op = kPackAnswer;
          x.flag = static_cast<std::uint8_t>(v.flag);
          x.codecSel = v.nibble << 4;
          const auto* p = reinterpret_cast<const unsigned char*>(&proc);
          x.input.assign(p, p + sizeof proc);
          for (const Bytes& b : sectionBytes) {
            for (int k = 0; k < 4; ++k)
              x.input.push_back(static_cast<unsigned char>(b.size() >> (8 * k)));
            x.input.insert(x.input.end(), b.begin(), b.end());
          }
          x.capacity =
              room(CTrdCompData::PackAnsBound(&proc, x.codecSel), records, bodyBytes, fields);
          out.push_back(std::move(x));
        }
    }
  }
}

void putU32(Bytes& b, std::size_t at, std::uint32_t v) {
  for (int k = 0; k < 4; ++k)
    b[at + static_cast<std::size_t>(k)] = static_cast<unsigned char>(v >> (8 * k));
}

// Raw (unpacked) messages as a sender with other record sizes sends them, with the usual header
// length and others: a raw request's records start at 76 whatever its header says; an answer's
// section table or body starts at its header length.
void rawMessages(const trdcomp::frame::Entry& e, std::vector<Entry>& out) {
  for (int nibble : {0, 1}) {
    const Layout* l = e.request[nibble];
    const bool coded = l && !l->opaque;
    const std::uint32_t size = l ? l->size : 64;
    for (const char* shape : {"full", "tail"})
      for (const char* stride : {"above", "below"})
        for (std::int32_t headLen : {76, 0, 100}) {
          const std::uint32_t seed = e.number * 13 + static_cast<std::uint32_t>(nibble);
          const Records records = coded ? shaped(*l, shape, seed) : generic(size, 3, seed);
          const std::uint32_t s = strideOf(stride, size);
          tagREQ_HEAD head{};
          head.headLen = headLen;
          head.funcNo = e.number;
          head.flags = static_cast<char>(nibble << 4);
          head.recCount = static_cast<std::int32_t>(records.list.size());
          head.recSize = static_cast<std::int32_t>(s);
          Entry x;
          x.name = "rawreq." + std::to_string(e.number) + ".n" + std::to_string(nibble) + "." +
                   shape + "." + stride + ".h" + std::to_string(headLen);
          x.op = kRestoreRequest;
          const auto* h = reinterpret_cast<const unsigned char*>(&head);
          x.input.assign(h, h + sizeof head);
          const Bytes body = laid(records, size, s);
          x.input.insert(x.input.end(), body.begin(), body.end());
          out.push_back(std::move(x));
        }

    const trdcomp::records::AnswerLayout* a = e.answerRestore[nibble];
    const int sections = a ? a->sectionCount : 1;
    for (const char* stride : {"above", "below"})
      for (std::uint32_t headLen : {96u, 100u}) {
        Bytes message(headLen, 0);
        putU32(message, 0, headLen);
        putU32(message, 4, e.number);
        message[8] = static_cast<unsigned char>(nibble << 4 | (sections > 1 ? 2 : 0));
        std::memcpy(&message[20], "500", 4);
        Bytes body, table;
        for (int s = 0; s < sections; ++s) {
          const Layout* sl = a ? a->sections[s] : nullptr;
          const std::uint32_t size = sl ? sl->size : 40;
          const std::uint32_t seed = e.number * 17 + static_cast<std::uint32_t>(s + nibble);
          const Records rs = sl ? shaped(*sl, "full", seed) : generic(size, 3, seed);
          const std::uint32_t st = strideOf(stride, size);
          if (s == 0) {
            putU32(message, 88, static_cast<std::uint32_t>(rs.list.size()));
            putU32(message, 92, st);
          }
          table.resize(table.size() + 8);
          putU32(table, table.size() - 8, static_cast<std::uint32_t>(rs.list.size()));
          putU32(table, table.size() - 4, st);
          const Bytes b = laid(rs, size, st);
          body.insert(body.end(), b.begin(), b.end());
        }
        if (sections > 1) {
          Bytes t(4);
          putU32(t, 0, static_cast<std::uint32_t>(4 + table.size()));
          message.insert(message.end(), t.begin(), t.end());
          message.insert(message.end(), table.begin(), table.end());
        }
        message.insert(message.end(), body.begin(), body.end());
        Entry x;
        x.name = "rawans." + std::to_string(e.number) + ".n" + std::to_string(nibble) + "." +
                 stride + ".h" + std::to_string(headLen);
        x.op = kRestoreAnswer;
        x.input = std::move(message);
        out.push_back(std::move(x));
      }
  }
}

std::vector<Entry> buildInputs() {
  std::vector<Entry> out;
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e) {
    requests(e->number, out);
    answers(e->number, out);
  }
  for (std::uint32_t number : {999u, 7000u}) {
    requests(number, out);
    answers(number, out);
  }
  for (const trdcomp::frame::Entry* e = trdcomp::frame::begin(); e != trdcomp::frame::end(); ++e)
    rawMessages(*e, out);
  return out;
}

Bytes readFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(std::string("cannot read ") + path);
  return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeFile(const char* path, const Bytes& b) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
  if (!out) throw std::runtime_error(std::string("cannot write ") + path);
}

std::vector<Outcome> readOutcomes(const char* path, const std::vector<Entry>& inputs) {
  const Bytes file = readFile(path);
  if (file.size() < 12 || loadLe32(file.data() + 8) != inputs.size())
    throw std::runtime_error(std::string(path) + ": not the outcomes of these inputs");
  const Bytes body(file.begin() + 12, file.end());
  Reader r(body);
  std::vector<Outcome> out;
  for (const Entry& e : inputs) out.push_back(r.outcome(e.op));
  return out;
}

// Whether a 2008 text of the request or answer runs without a terminator to the end of its
// record (the caller's, or the layout's when that is larger): the reference measured it on
// into the following bytes.
bool textRunsPastRecord(const Entry& e) {
  const auto runs = [](const Layout& l, const unsigned char* body, std::size_t bytes,
                       std::int64_t count, std::int64_t stride) {
    const std::int64_t extent = std::max<std::int64_t>(stride, l.size);
    for (std::int64_t i = 0; i < count; ++i)
      for (const Leaf& leaf : leaves(l)) {
        if (!isText(*leaf.field)) continue;
        bool ended = false;
        for (std::int64_t k = i * stride + leaf.offset;
             k < i * stride + extent && k < std::int64_t(bytes); ++k)
          if (body[k] == 0) {
            ended = true;
            break;
          }
        if (!ended) return true;
      }
    return false;
  };
  if (e.op == kPackRequest) {
    tagREQ_HEAD head;
    std::memcpy(&head, e.input.data(), sizeof head);
    if ((head.flags >> 4) & 15) return false;
    const trdcomp::frame::Entry* c = trdcomp::frame::find(head.funcNo);
    const Layout* l = c ? c->request[0] : nullptr;
    return l && runs(*l, e.input.data() + 76, e.input.size() - 76, head.recCount, head.recSize);
  }
  if (e.op == kPackAnswer) {
    if (e.codecSel & 0xF0) return false;
    tagANS_Proc proc;
    std::memcpy(&proc, e.input.data(), sizeof proc);
    const trdcomp::frame::Entry* c = trdcomp::frame::find(proc.funcNo);
    const trdcomp::records::AnswerLayout* a = c ? c->answerPack[0] : nullptr;
    std::size_t at = sizeof proc;
    for (int s = 0; s < 5; ++s) {
      const std::uint32_t n = loadLe32(e.input.data() + at);
      at += 4;
      if (a && s < a->sectionCount &&
          runs(*a->sections[s], e.input.data() + at, n, proc.recCount[s], proc.recSize[s]))
        return true;
      at += n;
    }
  }
  return false;
}

// The documented decision that explains why the current build differs from the reference on
// this entry, or "".
std::string decisionFor(const Entry& e, const Outcome& reference, const Outcome& current) {
  const bool refusedNow = (packs(e.op) && current.packed.empty() && !reference.packed.empty()) ||
                          (!current.restores.empty() && !reference.restores.empty() &&
                           current.restores[0].result == 0 && reference.restores[0].result == 1);
  if (refusedNow) return "hostile input refused";
  if (packs(e.op) && current.packed != reference.packed && textRunsPastRecord(e))
    return "2008 text measured to the end of its own record";
  return "";
}

// Which part of an outcome differs first.
std::string whatDiffers(const Outcome& a, const Outcome& b) {
  const auto first = [](const Bytes& x, const Bytes& y) {
    std::size_t k = 0;
    while (k < x.size() && k < y.size() && x[k] == y[k]) ++k;
    return std::to_string(k);
  };
  if (a.packResult != b.packResult || a.packed != b.packed)
    return "packed bytes from byte " + first(a.packed, b.packed);
  for (std::size_t k = 0; k < a.restores.size() && k < b.restores.size(); ++k) {
    const Restored &x = a.restores[k], &y = b.restores[k];
    if (x == y) continue;
    std::string s = "restore " + std::to_string(x.tag);
    if (x.result != y.result || x.length != y.length)
      return s + ": result " + std::to_string(x.result) + " -> " + std::to_string(y.result) +
             ", length " + std::to_string(x.length) + " -> " + std::to_string(y.length);
    return s + " from byte " + first(x.bytes, y.bytes);
  }
  return "number of restores";
}

int merge(const char* inputsPath, const char* referencePath, const char* currentPath,
          const char* corpusPath) {
  std::vector<Entry> entries = readEntries(readFile(inputsPath), false);
  const std::vector<Outcome> reference = readOutcomes(referencePath, entries);
  const std::vector<Outcome> current = readOutcomes(currentPath, entries);
  std::map<std::string, int> decisions;
  int unexplained = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    Entry& e = entries[i];
    e.outcome = reference[i];
    if (reference[i] == current[i]) continue;
    e.decision = decisionFor(e, reference[i], current[i]);
    if (e.decision.empty()) {
      ++unexplained;
      std::fprintf(stderr, "differs (the reference's bytes kept): %s: %s\n", e.name.c_str(),
                   whatDiffers(reference[i], current[i]).c_str());
    } else {
      e.outcome = current[i];
      ++decisions[e.decision];
    }
  }
  for (const auto& [decision, n] : decisions)
    std::fprintf(stderr, "%d entries take the current bytes: %s\n", n, decision.c_str());
  std::fprintf(stderr, "%d entries differ without a documented decision\n", unexplained);

  const Bytes plain = writeEntries(entries, true);
  Bytes packed(ZSTD_compressBound(plain.size()));
  ZSTD_CCtx* cctx = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(cctx, ZSTD_c_compressionLevel, 19);
  ZSTD_CCtx_setParameter(cctx, ZSTD_c_windowLog, 27);
  const std::size_t n =
      ZSTD_compress2(cctx, packed.data(), packed.size(), plain.data(), plain.size());
  ZSTD_freeCCtx(cctx);
  if (ZSTD_isError(n)) throw std::runtime_error(ZSTD_getErrorName(n));
  packed.resize(n);
  writeFile(corpusPath, packed);
  std::fprintf(stderr, "%zu entries, %zu bytes (%zu compressed) written to %s\n", entries.size(),
               plain.size(), packed.size(), corpusPath);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc == 3 && std::strcmp(argv[1], "inputs") == 0) {
      const std::vector<Entry> entries = buildInputs();
      writeFile(argv[2], writeEntries(entries, false));
      std::fprintf(stderr, "%zu inputs written to %s\n", entries.size(), argv[2]);
      return 0;
    }
    if (argc == 6 && std::strcmp(argv[1], "merge") == 0)
      return merge(argv[2], argv[3], argv[4], argv[5]);
  } catch (const std::exception& x) {
    std::fprintf(stderr, "trdcomp-adversarial: %s\n", x.what());
    return 1;
  }
  std::fprintf(stderr, "usage: %s inputs FILE\n       %s merge INPUTS REFERENCE CURRENT CORPUS\n",
               argv[0], argv[0]);
  return 2;
}
