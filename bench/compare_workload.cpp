#include "compare_workload.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TrdCompData.h"
#include "frame/catalogue.h"
#include "framing/walker.h"
#include "primitives/raw.h"
#include "realistic.h"
#include "records/codec2008.h"
#include "records/codec2011.h"

namespace trdcomp::compare {
namespace {

char* chars(Bytes& b) {
  return b.empty() ? nullptr : reinterpret_cast<char*>(b.data());
}

[[noreturn]] void refuse(const Message& m, const std::string& why) {
  std::fprintf(stderr, "trdcomp_compare: %s: %s; the comparison would be meaningless\n",
               m.label().c_str(), why.c_str());
  std::exit(1);
}

// The library's bound on the packed size of the message.
std::size_t packRoom(Message& m) {
  const long long bound =
      m.isAnswer
          ? CTrdCompData::PackAnsBound(&m.answer.proc, m.codec << 4)
          : CTrdCompData::PackReqBound(&m.request.head, static_cast<int>(m.request.body.size()));
  if (bound < 76) refuse(m, "no packed-size bound");
  return static_cast<std::size_t>(bound);
}

int packTo(Message& m, unsigned char* out, int room) {
  int length = 0;
  if (m.isAnswer) {
    auto& s = m.answer.sections;
    CTrdCompData::PackAns2008(reinterpret_cast<char*>(out), room, length, &m.answer.proc,
                              chars(s[0]), chars(s[1]), chars(s[2]), chars(s[3]), chars(s[4]), 0,
                              m.codec << 4);
  } else {
    CTrdCompData::PackReq2008(reinterpret_cast<char*>(out), length, &m.request.head,
                              chars(m.request.body), static_cast<int>(m.request.body.size()), 0);
  }
  return length;
}

// The record of a 1-record request by its codec's record decoder, into `record`: a zero buffer
// gives the restored record; the timed runs decode over the previous run's, the same work.
std::int64_t decodeRecord(const Message& m, Bytes& record) {
  const InView in(m.padded.data() + m.recordAt,
                  static_cast<std::int64_t>(m.padded.size()) - m.recordAt);
  const auto room = static_cast<std::int64_t>(record.size());
  if (m.codec == 0)
    return records::decode2008(*m.layout, in, m.recordLength, record.data(), room, 0,
                               records::Slot::Zero);
  return records::decode2011(*m.layout, records::Part::Whole, in, m.recordLength, record.data(),
                             room, records::Previous{});
}

// The first record the frame walker finds in a message.
struct FirstRecord {
  static constexpr bool kItems = false;
  static constexpr bool kNotes = false;
  framing::Place place{};
  bool found = false;
  void item(const framing::FrameItem&) {}
  void note(const framing::FrameNote&) {}
  Status dictionary(int, std::int64_t, std::int64_t) { return TRDCOMP_OK; }
  Status record(const framing::Place& p) {
    if (!found) place = p, found = true;
    return TRDCOMP_OK;
  }
};

// Room behind the packed message, so that its record lies well inside the input.
constexpr std::size_t kPadding = 4096;

void findRecord(Message& m) {
  const frame::Entry* e = frame::find(m.number);
  const records::Layout* layout = e ? e->request[m.codec] : nullptr;
  if (!layout) return;
  const InView in(m.packed.data(), static_cast<std::int64_t>(m.packed.size()));
  FirstRecord first;
  if (framing::walkRequest(framing::requestFrame(*layout, in), in, first) != TRDCOMP_OK ||
      !first.found)
    refuse(m, "the frame walker finds no record");
  m.layout = layout;
  m.recordAt = first.place.from;
  m.recordLength = first.place.length;
  m.padded = m.packed;
  m.padded.resize(m.packed.size() + kPadding, 0);
  // The record decoded alone is the record the restore gives.
  Bytes record(static_cast<std::size_t>(layout->size) + kPadding);
  decodeRecord(m, record);
  const auto at = m.raw.begin() + kRequestHeader;
  if (m.raw.size() < kRequestHeader + static_cast<std::size_t>(layout->size) ||
      !std::equal(at, at + layout->size, record.begin()))
    refuse(m, "its record decoded alone differs from the restored one");
}

}  // namespace

const char* opName(Op op) {
  switch (op) {
    case Op::Pack: return "pack";
    case Op::Restore: return "restore";
    case Op::Lz4Compress: return "lz4_compress";
    case Op::Lz4Decompress: return "lz4_decompress";
    case Op::ZstdCompress: return "zstd_compress";
    case Op::ZstdDecompress: return "zstd_decompress";
    case Op::Memcpy: return "memcpy";
    case Op::MallocMemcpyFree: return "malloc_memcpy_free";
    case Op::MallocSlackFree: return "malloc_slack_free";
    case Op::RestoreInto: return "restore_into";
    case Op::Fields: return "fields";
  }
  return "?";
}

std::string Message::label() const {
  std::string s = codecName();
  s.push_back('/');
  s.append(kind());
  s.push_back('/');
  s.append(std::to_string(number));
  s.push_back('/');
  s.append(std::to_string(records));
  return s;
}

Message makeMessage(std::uint32_t number, int codec, bool isAnswer, int records) {
  Message m;
  m.number = number;
  m.codec = codec;
  m.isAnswer = isAnswer;
  m.records = records;
  const std::uint32_t seed = number * 2 + static_cast<std::uint32_t>(codec);
  if (isAnswer)
    m.answer = realistic::makeAnswer(number, codec != 0, records, seed);
  else
    m.request = realistic::makeRequest(number, codec, records, seed);
  m.packed.assign(packRoom(m), 0);
  m.packed.resize(
      static_cast<std::size_t>(packTo(m, m.packed.data(), static_cast<int>(m.packed.size()))));

  const samples::Restored restored =
      isAnswer ? samples::restoreAnswer(m.packed) : samples::restoreRequest(m.packed);
  const std::string check = isAnswer ? samples::checkAnswer(m.answer, codec, m.packed, restored)
                                     : samples::checkRequest(m.request, codec, m.packed, restored);
  if (!check.empty()) refuse(m, "does not come back as sent (" + check + ")");
  // The raw message is what the restore side hands over; a number without a body has only its
  // header, as packed.
  m.raw = restored.bytes.empty() ? m.packed : restored.bytes;
  Bytes into(m.raw.size());
  int intoLen = -1;
  char* in = chars(m.packed);
  const int inLen = static_cast<int>(m.packed.size());
  const int intoResult =
      isAnswer ? CTrdCompData::RestoreAns2008Into(in, inLen, chars(into),
                                                  static_cast<int>(into.size()), intoLen, 0)
               : CTrdCompData::RestoreReq2008Into(in, inLen, chars(into),
                                                  static_cast<int>(into.size()), intoLen, 0);
  if (intoResult != 1 || static_cast<std::size_t>(intoLen) != restored.bytes.size() ||
      !std::equal(restored.bytes.begin(), restored.bytes.end(), into.begin()))
    refuse(m, "the restore into the caller's buffer differs");

  const int rawSize = static_cast<int>(m.raw.size());
  m.lz4.resize(static_cast<std::size_t>(LZ4_compressBound(rawSize)));
  m.lz4.resize(static_cast<std::size_t>(
      LZ4_compress_default(reinterpret_cast<const char*>(m.raw.data()), chars(m.lz4), rawSize,
                           static_cast<int>(m.lz4.size()))));
  m.zstd.resize(ZSTD_compressBound(m.raw.size()));
  const std::size_t z = ZSTD_compress(m.zstd.data(), m.zstd.size(), m.raw.data(), m.raw.size(), 1);
  if (ZSTD_isError(z)) refuse(m, ZSTD_getErrorName(z));
  m.zstd.resize(z);
  if (!isAnswer && records == 1) findRecord(m);

  Bytes back(m.raw.size());
  if (m.lz4.empty() ||
      LZ4_decompress_safe(reinterpret_cast<const char*>(m.lz4.data()), chars(back),
                          static_cast<int>(m.lz4.size()), rawSize) != rawSize ||
      back != m.raw)
    refuse(m, "LZ4 does not give the raw message back");
  std::fill(back.begin(), back.end(), 0);
  if (ZSTD_decompress(back.data(), back.size(), m.zstd.data(), m.zstd.size()) != m.raw.size() ||
      back != m.raw)
    refuse(m, "zstd does not give the raw message back");
  return m;
}

Worker::Worker(Message& m)
    : out_(std::max({packRoom(m),
                     static_cast<std::size_t>(LZ4_compressBound(static_cast<int>(m.raw.size()))),
                     ZSTD_compressBound(m.raw.size())}),
           0),
      record_(m.layout ? static_cast<std::size_t>(m.layout->size) + kPadding : 0),
      cctx_(nullptr),
      dctx_(nullptr) {}

Worker::~Worker() {
  ZSTD_freeCCtx(cctx_);
  ZSTD_freeDCtx(dctx_);
}

int Worker::pack(Message& m) {
  // The flags are ORed into byte 8 of an answer header and bytes 9 to 19 are the caller's.
  if (m.isAnswer) std::memset(out_.data() + 8, 0, 12);
  return packTo(m, out_.data(), static_cast<int>(out_.size()));
}

void Worker::restore(Message& m) {
  char* out = nullptr;
  int length = 0;
  if (m.isAnswer)
    CTrdCompData::RestoreAns2008(chars(m.packed), static_cast<int>(m.packed.size()), &out, length,
                                 0);
  else
    CTrdCompData::RestoreReq2008(chars(m.packed), static_cast<int>(m.packed.size()), &out, length,
                                 0);
  CTrdCompData::ReleaseAnsData(out);
}

int Worker::restoreInto(Message& m) {
  int length = 0;
  const int size = static_cast<int>(out_.size());
  if (m.isAnswer)
    CTrdCompData::RestoreAns2008Into(chars(m.packed), static_cast<int>(m.packed.size()),
                                     chars(out_), size, length, 0);
  else
    CTrdCompData::RestoreReq2008Into(chars(m.packed), static_cast<int>(m.packed.size()),
                                     chars(out_), size, length, 0);
  return length;
}

int Worker::lz4Compress(const Message& m) {
  return LZ4_compress_default(reinterpret_cast<const char*>(m.raw.data()), chars(out_),
                              static_cast<int>(m.raw.size()), static_cast<int>(out_.size()));
}

int Worker::lz4Decompress(const Message& m) {
  return LZ4_decompress_safe(reinterpret_cast<const char*>(m.lz4.data()), chars(out_),
                             static_cast<int>(m.lz4.size()), static_cast<int>(m.raw.size()));
}

std::size_t Worker::zstdCompress(const Message& m) {
  if (!cctx_) cctx_ = ZSTD_createCCtx();
  return ZSTD_compressCCtx(cctx_, out_.data(), out_.size(), m.raw.data(), m.raw.size(), 1);
}

std::size_t Worker::zstdDecompress(const Message& m) {
  if (!dctx_) dctx_ = ZSTD_createDCtx();
  return ZSTD_decompressDCtx(dctx_, out_.data(), m.raw.size(), m.zstd.data(), m.zstd.size());
}

void Worker::copy(const Message& m) {
  std::memcpy(out_.data(), m.raw.data(), m.raw.size());
}

void Worker::allocateCopyFree(const Message& m) {
  void* p = std::malloc(m.raw.size());
  if (p) std::memcpy(p, m.raw.data(), m.raw.size());
  benchmark::DoNotOptimize(p);
  std::free(p);
}

void Worker::allocateSlackFree(const Message& m) {
  constexpr std::size_t kSlack = 1024;  // behind every restored request
  auto* p = static_cast<unsigned char*>(std::malloc(m.raw.size() + kSlack));
  if (p) {
    std::memcpy(p, m.raw.data(), m.raw.size());
    std::memset(p + m.raw.size(), 0, kSlack);
  }
  benchmark::DoNotOptimize(p);
  std::free(p);
}

std::int64_t Worker::decodeFields(const Message& m) {
  return decodeRecord(m, record_);
}

}  // namespace trdcomp::compare
