#include "samples.h"

#include <cstring>

#include "frame/catalogue.h"
#include "primitives/bytes.h"

namespace trdcomp::samples {
namespace {

using records::Field;
using records::Kind;

constexpr char kAlnum[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

int pick(std::mt19937& rng, int lo, int hi) {
  return std::uniform_int_distribution<int>(lo, hi)(rng);
}

void fillText(unsigned char* dst, std::uint32_t width, std::mt19937& rng) {
  int most = static_cast<int>(width) - 1;
  int shape = pick(rng, 0, 9);
  int length = shape < 3   ? pick(rng, 0, std::min(most, 6))
               : shape < 8 ? pick(rng, 0, std::min(most, 20))
                           : pick(rng, 0, most);
  bool local = pick(rng, 0, 9) == 0;  // a name in a local double-byte character set
  for (int i = 0; i < length; ++i)
    dst[i] = local ? static_cast<unsigned char>(pick(rng, 0xB0, 0xF7))
                   : static_cast<unsigned char>(kAlnum[pick(rng, 0, 61)]);
}

std::int32_t sampleInt32(std::mt19937& rng, bool wide) {
  switch (pick(rng, 0, 5)) {
    case 0: return pick(rng, 0, 100);
    case 1: return 20260000 + pick(rng, 101, 1231);  // a date
    case 2: return pick(rng, 93000, 150000);         // a time of day
    case 3: return -pick(rng, 1, 100000);
    case 4:
      return wide ? pick(rng, INT32_MIN + 1, INT32_MAX) : pick(rng, -(1 << 29) + 1, (1 << 29) - 1);
    default: return 0;
  }
}

void fillField(const Field& f, unsigned char* at, std::mt19937& rng, bool codec2011) {
  switch (f.kind) {
    case Kind::Char:
      *at =
          pick(rng, 0, 3) ? kAlnum[pick(rng, 0, 35)] : static_cast<unsigned char>(pick(rng, 0, 12));
      return;
    case Kind::Text:
    case Kind::ShortText:
      if (codec2011 && f.text == records::TextForm::ExchangeCode) {
        // Three-character codes: a lone character would read back as the code it stands for.
        const char* codes[] = {"000", "600", "IF1", "ABC", "XY", ""};
        std::strcpy(reinterpret_cast<char*>(at), codes[pick(rng, 0, 5)]);
        return;
      }
      fillText(at, f.width, rng);
      return;
    case Kind::Block: {
      int used = pick(rng, 0, static_cast<int>(f.width));
      for (int i = 0; i < used; ++i) at[i] = static_cast<unsigned char>(pick(rng, 0, 255));
      return;
    }
    case Kind::Int32: storeI32(at, sampleInt32(rng, codec2011)); return;
    case Kind::Int64: {
      std::int64_t v =
          std::uniform_int_distribution<std::int64_t>(-(1ll << 59) + 1, (1ll << 59) - 1)(rng);
      storeU64(at, static_cast<std::uint64_t>(pick(rng, 0, 1) ? v : v >> 40));
      return;
    }
    case Kind::Double: {
      // Non-negative prices: both codecs deliberately move negative values toward zero.
      std::int64_t units = std::uniform_int_distribution<std::int64_t>(0, 100000000)(rng);
      storeF64(at, codec2011 ? units / 1000.0 : units / 10000.0);
      return;
    }
    case Kind::CountedBlock:
    case Kind::Group: return;  // filled with their counts by fillRecord
  }
}

}  // namespace

void fillRecord(const records::Layout& layout, unsigned char* record, std::mt19937& rng,
                bool codec2011, const unsigned char* previous) {
  std::memset(record, 0, layout.size);
  for (const Field* f = layout.begin(); f != layout.end(); ++f) {
    // Records of one message share much: the account, the market, the date, the currency.
    if (previous && f->kind != Kind::Group && f->kind != Kind::CountedBlock &&
        pick(rng, 0, 9) < 6) {
      std::memcpy(record + f->offset, previous + f->offset, f->width);
      continue;
    }
    if (f->kind == Kind::Group) {
      int entries = pick(rng, 0, f->repeat);
      storeI32(record + f->countOffset, entries);
      for (int e = 0; e < entries; ++e)
        for (int m = 1; m <= f->members; ++m)
          fillField(f[m], record + f->offset + e * f->stride + f[m].offset, rng, codec2011);
      f += f->members;
    } else if (f->kind == Kind::CountedBlock) {
      int used = pick(rng, 0, 300);
      storeI32(record + f->countOffset, used);
      for (int i = 0; i < used; ++i)
        record[f->offset + i] = static_cast<unsigned char>(pick(rng, 0, 255));
    } else {
      fillField(*f, record + f->offset, rng, codec2011);
    }
  }
}

Request makeRequest(std::uint32_t number, int nibble, int count, std::uint32_t seed) {
  std::mt19937 rng(seed);
  Request r;
  const frame::Entry* e = frame::find(number);
  const records::Layout* layout = e ? e->request[nibble ? 1 : 0] : nullptr;
  std::uint32_t size = layout ? layout->size : 64;
  r.head.funcNo = number;
  r.head.flags = static_cast<char>(nibble << 4);
  for (char& c : r.head.callerData) c = static_cast<char>(pick(rng, 0, 255));
  r.head.recCount = count;
  r.head.recSize = static_cast<std::int32_t>(size);
  r.body.assign(std::size_t(count) * size, 0);
  for (int i = 0; i < count; ++i) {
    unsigned char* rec = r.body.data() + std::size_t(i) * size;
    if (layout && !layout->opaque)
      fillRecord(*layout, rec, rng, nibble != 0, i ? rec - size : nullptr);
    else
      for (std::uint32_t k = 0; k < size; ++k)
        rec[k] = static_cast<unsigned char>(pick(rng, 0, 255));
  }
  return r;
}

Answer makeAnswer(std::uint32_t number, bool codec2011, int count, std::uint32_t seed) {
  std::mt19937 rng(seed);
  Answer a;
  a.proc.funcNo = number;
  std::strcpy(a.proc.shortText, "000");
  std::strcpy(a.proc.text, "OK");
  const frame::Entry* e = frame::find(number);
  const records::AnswerLayout* layout = e ? e->answerRestore[codec2011 ? 1 : 0] : nullptr;
  const int sections = layout ? layout->sectionCount : 2;
  a.proc.sectionCount = sections;
  for (int s = 0; s < sections; ++s) {
    const records::Layout* l = layout ? layout->sections[s] : nullptr;
    const std::uint32_t size = l ? l->size : 40;
    a.proc.recCount[s] = count;
    a.proc.recSize[s] = static_cast<std::int32_t>(size);
    a.sections[s].assign(std::size_t(count) * size, 0);
    for (int i = 0; i < count; ++i) {
      unsigned char* rec = a.sections[s].data() + std::size_t(i) * size;
      if (l)
        fillRecord(*l, rec, rng, codec2011, i ? rec - size : nullptr);
      else
        for (std::uint32_t k = 0; k < size; ++k)
          rec[k] = static_cast<unsigned char>(pick(rng, 0, 255));
    }
  }
  return a;
}

Bytes packRequest(tagREQ_HEAD head, Bytes body, char flag) {
  const long long bound = CTrdCompData::PackReqBound(&head, static_cast<int>(body.size()));
  Bytes out(static_cast<std::size_t>(bound > 0 ? bound : 76), 0);
  int length = 0;
  CTrdCompData::PackReq2008(reinterpret_cast<char*>(out.data()), length, &head,
                            reinterpret_cast<char*>(body.data()), static_cast<int>(body.size()),
                            flag);
  out.resize(static_cast<std::size_t>(length));
  return out;
}

Bytes packAnswer(tagANS_Proc proc, std::vector<Bytes> sections, char flag, int codecSel) {
  sections.resize(5);
  char* sec[5];
  for (int i = 0; i < 5; ++i)
    sec[i] = sections[i].empty() ? nullptr : reinterpret_cast<char*>(sections[i].data());
  const long long bound = CTrdCompData::PackAnsBound(&proc, codecSel);
  Bytes out(static_cast<std::size_t>(bound > 96 ? bound : 96), 0);
  int length = 0;
  CTrdCompData::PackAns2008(reinterpret_cast<char*>(out.data()), static_cast<int>(out.size()),
                            length, &proc, sec[0], sec[1], sec[2], sec[3], sec[4], flag, codecSel);
  out.resize(static_cast<std::size_t>(length));
  return out;
}

namespace {
template <class Restore>
Restored restore(Restore entryPoint, Bytes& in, char flag) {
  Restored r;
  char* out = nullptr;
  r.result = entryPoint(reinterpret_cast<char*>(in.data()), static_cast<int>(in.size()), &out,
                        r.length, flag);
  r.null = out == nullptr;
  if (out && r.length > 0) r.bytes.assign(out, out + r.length);
  CTrdCompData::ReleaseAnsData(out);
  return r;
}

std::int32_t i32(const Bytes& b, std::size_t at) {
  return at + 4 <= b.size() ? loadI32(&b[at]) : -1;
}

std::string sameBytes(const Bytes& restored, std::size_t at, const Bytes& sent, const char* what) {
  if (restored.size() < at + sent.size()) return std::string(what) + ": restored message too short";
  for (std::size_t i = 0; i < sent.size(); ++i)
    if (restored[at + i] != sent[i])
      return std::string(what) + ": byte " + std::to_string(i) + " differs";
  return "";
}
}  // namespace

Restored restoreRequest(Bytes in, char flag) {
  return restore(CTrdCompData::RestoreReq2008, in, flag);
}
Restored restoreAnswer(Bytes in, char flag) {
  return restore(CTrdCompData::RestoreAns2008, in, flag);
}

std::string checkRequest(const Request& sent, int nibble, const Bytes& packed, const Restored& r) {
  if (r.result != 1) return "refused";
  const frame::Entry* e = frame::find(sent.head.funcNo);
  const frame::RequestForm form = e ? e->requestForm : frame::RequestForm::PassThrough;
  if (form == frame::RequestForm::NoBody) return r.null && r.length == 0 ? "" : "a body came back";
  if (form == frame::RequestForm::PassThrough) return r.bytes == packed ? "" : "not passed through";
  const std::string caller =
      sameBytes(r.bytes, 9, Bytes(sent.head.callerData, sent.head.callerData + 59), "caller bytes");
  if (!caller.empty()) return caller;
  if (i32(r.bytes, 0) != 76) return "header length not normalised";
  if (form == frame::RequestForm::HeaderOnly) return r.length == 76 ? "" : "a body came back";
  if (i32(r.bytes, 72) != static_cast<std::int32_t>(e->request[nibble ? 1 : 0]->size))
    return "record size";
  if (r.bytes.size() != 76 + sent.body.size()) return "length";
  return sameBytes(r.bytes, 76, sent.body, "records");
}

std::string checkAnswer(const Answer& sent, int nibble, const Bytes& packed, const Restored& r) {
  if (r.result != 1) return "refused";
  const frame::Entry* e = frame::find(sent.proc.funcNo);
  const frame::AnswerForm form = e ? e->answerForm : frame::AnswerForm::PassThrough;
  if (form == frame::AnswerForm::NoBody) return r.null && r.length == 0 ? "" : "a body came back";
  if (form == frame::AnswerForm::PassThrough) return r.bytes == packed ? "" : "not passed through";
  if (i32(r.bytes, 0) != 96) return "header length not normalised";
  const records::AnswerLayout& layout = *e->answerRestore[nibble ? 1 : 0];
  std::size_t at = 96;
  if (layout.multiSection()) {
    if (!(r.bytes[8] & 2) || i32(r.bytes, 96) != 4 + 8 * layout.sectionCount)
      return "section table";
    at += 4 + 8 * layout.sectionCount;
  } else if (i32(r.bytes, 88) != sent.proc.recCount[0] ||
             i32(r.bytes, 92) != static_cast<std::int32_t>(layout.sections[0]->size)) {
    return "count or record size";
  }
  for (int s = 0; s < layout.sectionCount; ++s) {
    const std::string section = sameBytes(r.bytes, at, sent.sections[s], "section");
    if (!section.empty()) return section + " " + std::to_string(s);
    at += sent.sections[s].size();
  }
  return at == r.bytes.size() ? "" : "length";
}

}  // namespace trdcomp::samples
