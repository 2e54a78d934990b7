#include "corpus.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "frame/catalogue.h"
#include "primitives/bytes.h"
#include "samples.h"

namespace trdcomp::golden {
namespace {

using samples::Bytes;

// Numbers outside the catalogue: their messages pass through unchanged.
constexpr std::uint32_t kUnknown[] = {999, 1022, 1262, 7000, 9000};

// Codec nibble and codec flag. The flag reaches only the 2008 codec (it picks the int32 form);
// nibble 2 reaches the 2011 routines as 2 while the answer header carries 1.
struct Variant {
  const char* name;
  int nibble;
  char flag;
};
constexpr Variant kVariants[] = {{"n0f0", 0, 0}, {"n0f1", 0, 1}, {"n1f0", 1, 0}, {"n2f1", 2, 1}};

// 0 records; one (no previous record); three (the 2011 codec chains each to the one before).
constexpr int kCounts[] = {0, 1, 3};

// printf into a string (g++ 12 warns falsely on some string concatenations).
template <class... Args>
std::string format(const char* pattern, Args... args) {
  char text[256];
  std::snprintf(text, sizeof text, pattern, args...);
  return text;
}

std::string hex64(const Bytes& b) {
  return format("%016llx", static_cast<unsigned long long>(digest(b.data(), b.size())));
}

std::string line(const std::string& name, const Bytes& input, const Bytes* packed,
                 const samples::Restored& r) {
  std::string s = name;
  s.append(format(" %zu ", input.size())).append(hex64(input));
  s.append(packed ? format(" %zu ", packed->size()).append(hex64(*packed)) : std::string(" 0 -"));
  s.append(format(" %d %d ", r.result, r.length))
      .append(r.null ? std::string("null") : hex64(r.bytes));
  return s;
}

template <class T>
void append(Bytes& out, const T& value) {
  const std::size_t at = out.size();
  out.resize(at + sizeof value);
  std::memcpy(out.data() + at, &value, sizeof value);
}

void append(Bytes& out, const Bytes& more) {
  const std::size_t at = out.size();
  out.resize(at + more.size());
  if (!more.empty()) std::memcpy(out.data() + at, more.data(), more.size());
}

Bytes requestInput(const samples::Request& r) {
  Bytes in;
  append(in, r.head);
  append(in, r.body);
  return in;
}

Bytes answerInput(const samples::Answer& a) {
  Bytes in;
  append(in, a.proc);
  for (const Bytes& s : a.sections) append(in, s);
  return in;
}

// Records of `size` bytes laid again every `senderSize` bytes, as a sender with another version
// of the structure sends them: cut short, or followed by bytes of its own.
Bytes relay(const Bytes& records, std::size_t size, std::size_t senderSize) {
  Bytes out;
  const std::size_t count = size ? records.size() / size : 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto* r = records.data() + i * size;
    out.insert(out.end(), r, r + std::min(size, senderSize));
    for (std::size_t k = size; k < senderSize; ++k)
      out.push_back(static_cast<unsigned char>(0xA5 ^ (k * 7 + i)));
  }
  return out;
}

std::uint32_t requestSize(const frame::Entry* e, int nibble) {
  const records::Layout* l = e ? e->request[nibble ? 1 : 0] : nullptr;
  return l ? l->size : 64;
}

void packedMessages(std::uint32_t number, std::vector<std::string>& out) {
  for (int v = 0; v < 4; ++v) {
    const Variant& var = kVariants[v];
    for (int count : kCounts) {
      const std::uint32_t seed = number * 100 + static_cast<std::uint32_t>(v * 10 + count);

      const samples::Request q = samples::makeRequest(number, var.nibble, count, seed);
      const Bytes qPacked = samples::packRequest(q.head, q.body, var.flag);
      out.push_back(line(format("req.%u.%s.r%d", number, var.name, count), requestInput(q),
                         &qPacked, samples::restoreRequest(qPacked, var.flag)));

      const samples::Answer a = samples::makeAnswer(number, var.nibble != 0, count, seed);
      const Bytes aPacked = samples::packAnswer(a.proc, a.sections, var.flag, var.nibble << 4);
      out.push_back(line(format("ans.%u.%s.r%d", number, var.name, count), answerInput(a), &aPacked,
                         samples::restoreAnswer(aPacked, var.flag)));
    }
  }
}

// Raw requests (flags bit 0 clear) of three records from a sender whose record size differs
// from the layout's, and a request whose body is shorter than one record, which the packer
// passes on raw.
void rawRequests(const frame::Entry& e, int nibble, std::vector<std::string>& out) {
  const std::uint32_t size = requestSize(&e, nibble);
  const std::uint32_t seed = e.number * 100 + 50 + static_cast<std::uint32_t>(nibble);
  const samples::Request q = samples::makeRequest(e.number, nibble, 3, seed);
  const std::pair<const char*, std::uint32_t> senders[] = {{"small", std::max(1u, size * 2 / 3)},
                                                           {"large", size + 9}};
  for (const auto& [shape, senderSize] : senders) {
    tagREQ_HEAD head = q.head;
    head.headLen = 76;
    head.recSize = static_cast<std::int32_t>(senderSize);
    Bytes message;
    append(message, head);
    const Bytes body = relay(q.body, size, senderSize);
    append(message, body);
    out.push_back(line(format("rawreq.%u.n%d.%s", e.number, nibble, shape), message, nullptr,
                       samples::restoreRequest(message)));
  }

  samples::Request shortBody = samples::makeRequest(e.number, nibble, 1, seed + 1);
  shortBody.body.resize(size > 1 ? size - 1 : 0);
  const Bytes packed = samples::packRequest(shortBody.head, shortBody.body);
  out.push_back(line(format("shortreq.%u.n%d", e.number, nibble), requestInput(shortBody), &packed,
                     samples::restoreRequest(packed)));
}

// Raw answers of three records per section from a sender whose record sizes differ from the
// layouts': the header's count and size, or a section table when there are several sections.
void rawAnswers(const frame::Entry& e, int nibble, std::vector<std::string>& out) {
  const std::uint32_t seed = e.number * 100 + 60 + static_cast<std::uint32_t>(nibble);
  const samples::Answer a = samples::makeAnswer(e.number, nibble != 0, 3, seed);
  const int sections = a.proc.sectionCount;
  for (const char* shape : {"small", "large"}) {
    const bool small = shape[0] == 's';
    std::uint32_t senderSizes[5] = {};
    for (int s = 0; s < sections; ++s) {
      const auto size = static_cast<std::uint32_t>(a.proc.recSize[s]);
      senderSizes[s] = small ? std::max(1u, size * 2 / 3) : size + 9;
    }
    Bytes message(96, 0);
    storeU32(&message[0], 96);
    storeU32(&message[4], e.number);
    message[8] = static_cast<unsigned char>(nibble << 4 | (sections > 1 ? 2 : 0));
    std::memcpy(&message[20], a.proc.shortText, 4);
    std::memcpy(&message[24], a.proc.text, 64);
    storeI32(&message[88], a.proc.recCount[0]);
    storeU32(&message[92], senderSizes[0]);
    if (sections > 1) {
      message.resize(96 + 4 + 8 * static_cast<std::size_t>(sections));
      storeU32(&message[96], static_cast<std::uint32_t>(4 + 8 * sections));
      for (int s = 0; s < sections; ++s) {
        storeI32(&message[100 + 8 * static_cast<std::size_t>(s)], a.proc.recCount[s]);
        storeU32(&message[104 + 8 * static_cast<std::size_t>(s)], senderSizes[s]);
      }
    }
    for (int s = 0; s < sections; ++s) {
      const Bytes records =
          relay(a.sections[s], static_cast<std::size_t>(a.proc.recSize[s]), senderSizes[s]);
      append(message, records);
    }
    out.push_back(line(format("rawans.%u.n%d.%s", e.number, nibble, shape), message, nullptr,
                       samples::restoreAnswer(message)));
  }
}

}  // namespace

std::uint64_t digest(const unsigned char* data, std::size_t n) {
  std::uint64_t h = 14695981039346656037ull;
  for (std::size_t i = 0; i < n; ++i) h = (h ^ data[i]) * 1099511628211ull;
  return h;
}

std::vector<std::string> buildCorpus() {
  std::vector<std::string> out;
  for (const frame::Entry* e = frame::begin(); e != frame::end(); ++e)
    packedMessages(e->number, out);
  for (std::uint32_t number : kUnknown) packedMessages(number, out);
  for (const frame::Entry* e = frame::begin(); e != frame::end(); ++e) {
    for (int nibble : {0, 1}) {
      rawRequests(*e, nibble, out);
      rawAnswers(*e, nibble, out);
    }
  }
  return out;
}

const char kFileHeader[] =
    "# Golden wire corpus: the packed and restored bytes of today's codecs, one message a line.\n"
    "# Deployed peers depend on these bytes: a changed line is a change of the wire format.\n"
    "# Columns: name, input length and FNV-1a 64 digest (the sample message: header or answer\n"
    "# descriptor, then the records), packed length and digest (- for raw messages that are\n"
    "# only restored), restore result, restored length and digest (null: no buffer).\n"
    "# Names: req/ans.NUMBER.nNfF.rK (codec nibble N, codec flag F, K records per section),\n"
    "# rawreq/rawans.NUMBER.nN.small/large (unpacked, sender record size below or above the\n"
    "# layout's), shortreq.NUMBER.nN (a request body shorter than one record).\n"
    "# Regenerate only for a deliberate change of wire bytes: trdcomp-golden "
    "tests/golden/wire.txt\n";

}  // namespace trdcomp::golden
